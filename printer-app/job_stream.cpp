#include "printer-app/job_stream.h"

#include <mutex>

namespace inkweave::printerapp {
namespace {

// Every call into the plug-in, of any job, is made holding this lock.
std::mutex gPluginLock;

// The plug-in library, loaded by the first job and kept for the life of the process.
const host::PluginLibrary* LoadPlugin(std::string* path, std::string* error) {
  static std::unique_ptr<host::PluginLibrary> library;
  static std::string loadError;
  static std::string loadedPath;
  static std::once_flag once;
  std::call_once(once, [] {
    loadedPath = PluginPath();
    library = host::PluginLibrary::Open(loadedPath, &loadError);
  });
  *path = loadedPath;
  *error = loadError;
  return library.get();
}

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

}  // namespace

std::string PluginPath() {
  return host::FindPluginLibrary("../lib/inkweave/libinkweave.so", INKWEAVE_PLUGIN_INSTALL_PATH,
                                 INKWEAVE_PLUGIN_BUILD_PATH);
}

std::unique_ptr<JobStream> JobStream::Start(pappl_job_t* job, pappl_device_t* device) {
  std::string path, error;
  const host::PluginLibrary* library = LoadPlugin(&path, &error);
  if (!library) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "Unable to load the render plug-in %s: %s", path.c_str(), error.c_str());
    return nullptr;
  }
  std::unique_ptr<JobStream> stream(new JobStream(job, device, library->Entry()));
  std::lock_guard lock(gPluginLock);
  if (const HRESULT hr = stream->session_.Load(); hr != S_OK) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "The render plug-in %s did not load (result %s)", path.c_str(),
                Hex(hr).c_str());
    return nullptr;
  }
  return stream;
}

JobStream::JobStream(pappl_job_t* job, pappl_device_t* device, host::PluginEntry entry)
    : job_(job), device_(device), session_(entry) {
  session_.Spool().SetKeepWrites(false);
  session_.Spool().SetSink([this](const std::uint8_t* bytes, std::size_t size) {
    if (writeFailed_ || papplDeviceWrite(device_, bytes, size) >= 0) return;
    writeFailed_ = true;
    papplLogJob(job_, PAPPL_LOGLEVEL_ERROR, "Unable to write to the printer (%s); stopping the job",
                papplPrinterGetDeviceURI(papplJobGetPrinter(job_)));
  });
}

JobStream::~JobStream() {
  Finish();
  std::lock_guard lock(gPluginLock);
  session_.Unload();
}

bool JobStream::UseDevice(const cups::PagePlan& plan) {
  if (open_ && plan_.SameDevice(plan)) return true;
  CloseDevice();
  std::lock_guard lock(gPluginLock);
  if (const HRESULT hr = session_.Enable(plan.Setup); hr != S_OK) {
    session_.Disable();
    papplLogJob(job_, PAPPL_LOGLEVEL_ERROR, "The render plug-in could not set up the device (result %s)",
                Hex(hr).c_str());
    return false;
  }
  host::SelectModes(session_, plan.Method == host::Halftone::Diffusion, plan.HighResolution, plan.MediaCallback);
  session_.Command(host::kCallbackJobStart);
  plan_ = plan;
  open_ = true;
  return true;
}

void JobStream::PageStart() {
  std::lock_guard lock(gPluginLock);
  session_.Command(host::kCallbackPageStart);
}

void JobStream::PageEnd() {
  std::lock_guard lock(gPluginLock);
  session_.Command(host::kCallbackPageEnd);
}

bool JobStream::Band(const host::Band& band) {
  std::lock_guard lock(gPluginLock);
  const HRESULT hr = session_.ImageProcessing(band);
  if (hr == S_OK) return true;
  papplLogJob(job_, PAPPL_LOGLEVEL_ERROR, "The render plug-in refused a band (result %s)", Hex(hr).c_str());
  return false;
}

host::PageResult JobStream::PrintPage(const host::PageSource& source, std::int32_t bandHeight) {
  std::lock_guard lock(gPluginLock);
  host::PageResult result = host::PrintPage(session_, source, bandHeight);
  if (result.Status != S_OK)
    papplLogJob(job_, PAPPL_LOGLEVEL_ERROR, "The render plug-in refused a band (result %s)",
                Hex(result.Status).c_str());
  return result;
}

void JobStream::CloseDevice() {
  if (!open_) return;
  std::lock_guard lock(gPluginLock);
  session_.Command(host::kCallbackJobEnd);
  session_.Disable();
  open_ = false;
}

void JobStream::Finish() {
  CloseDevice();
  papplDeviceFlush(device_);
}

bool JobStream::ShouldStop() const { return writeFailed_ || papplJobIsCanceled(job_); }

}  // namespace inkweave::printerapp
