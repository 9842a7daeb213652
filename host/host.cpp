#include "host/host.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace inkweave::host {

// ---------------------------------------------------------------------------------------------------
// The plug-in library
// ---------------------------------------------------------------------------------------------------
std::string FindPluginLibrary(const std::string& fromProgram, const std::string& installPath,
                              const std::string& buildPath) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (const char* path = std::getenv("INKWEAVE_PLUGIN"); path && *path) return path;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const fs::path installed = self.parent_path() / fromProgram;
    if (fs::exists(installed, ec)) return installed.lexically_normal().string();
  }
  if (fs::exists(installPath, ec)) return installPath;
  return buildPath;
}

std::unique_ptr<PluginLibrary> PluginLibrary::Open(const std::string& path, std::string* error) {
  std::unique_ptr<PluginLibrary> library(new PluginLibrary());
#if defined(_WIN32)
  void* module = LoadLibraryA(path.c_str());
  if (!module) {
    if (error) *error = "cannot load " + path;
    return nullptr;
  }
  library->handle_ = module;
  library->entry_.GetClassObject =
      reinterpret_cast<DllGetClassObjectFn>(reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
  library->entry_.CanUnloadNow =
      reinterpret_cast<DllCanUnloadNowFn>(reinterpret_cast<void*>(GetProcAddress(module, "DllCanUnloadNow")));
#else
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    if (error) *error = dlerror();
    return nullptr;
  }
  library->handle_ = handle;
  library->entry_.GetClassObject = reinterpret_cast<DllGetClassObjectFn>(dlsym(handle, "DllGetClassObject"));
  library->entry_.CanUnloadNow = reinterpret_cast<DllCanUnloadNowFn>(dlsym(handle, "DllCanUnloadNow"));
#endif
  if (!library->entry_.GetClassObject || !library->entry_.CanUnloadNow) {
    if (error) *error = path + " does not export DllGetClassObject and DllCanUnloadNow";
    return nullptr;
  }
  return library;
}

PluginLibrary::~PluginLibrary() {
  if (!handle_) return;
#if defined(_WIN32)
  FreeLibrary(handle_);
#else
  dlclose(handle_);
#endif
}

// ---------------------------------------------------------------------------------------------------
// The session
// ---------------------------------------------------------------------------------------------------
HostSession::HostSession(PluginEntry entry) : entry_(entry) {}

HostSession::~HostSession() {
  if (enabled_ || devobj_.pdevOEM) Disable();
  if (plugin_) Unload();
}

HRESULT HostSession::Load() {
  if (!entry_.GetClassObject) return E_FAIL;
  IClassFactory* factory = nullptr;
  HRESULT hr = entry_.GetClassObject(&CLSID_RenderPlugin, &IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (Failed(hr)) return hr;
  hr = factory->lpVtbl->CreateInstance(factory, nullptr, &IID_IPrintOemUni, reinterpret_cast<void**>(&plugin_));
  factory->lpVtbl->Release(factory);
  if (Failed(hr)) {
    plugin_ = nullptr;
    return hr;
  }

  // What the platform's driver asks first.
  DWORD needed = 0;
  plugin_->lpVtbl->GetInfo(plugin_, OEMGI_GETSIGNATURE, &info_.Signature, sizeof(DWORD), &needed);
  plugin_->lpVtbl->GetInfo(plugin_, OEMGI_GETINTERFACEVERSION, &info_.InterfaceVersion, sizeof(DWORD), &needed);
  plugin_->lpVtbl->GetInfo(plugin_, OEMGI_GETVERSION, &info_.Version, sizeof(DWORD), &needed);
  auto implements = [this](const char* name) {
    std::string copy(name);
    return plugin_->lpVtbl->GetImplementedMethod(plugin_, copy.data()) == S_OK;
  };
  info_.ImplementsImageProcessing = implements("ImageProcessing");
  info_.ImplementsCommandCallback = implements("CommandCallback");
  info_.ImplementsFilterGraphics = implements("FilterGraphics");

  DRVENABLEDATA ded{};
  hr = plugin_->lpVtbl->EnableDriver(plugin_, OEM_INTERFACE_VERSION, sizeof ded, &ded);
  if (Failed(hr)) return hr;
  return plugin_->lpVtbl->PublishDriverInterface(plugin_, spool_.Unknown());
}

HRESULT HostSession::Enable(const DeviceSetup& setup) {
  if (!plugin_) return E_FAIL;
  setup_ = setup;

  devmode_ = DEVMODEW{};
  const char16_t name[] = u"inkweave";
  std::copy(std::begin(name), std::end(name), devmode_.dmDeviceName);
  devmode_.dmSpecVersion = 0x0401;
  devmode_.dmSize = sizeof(DEVMODEW);
  devmode_.dmFields = 0x00000001 | 0x00000002 | 0x00000400 | 0x00000800 | 0x00002000;  // the fields set below
  devmode_.dmOrientation = setup.Landscape ? DMORIENT_LANDSCAPE : DMORIENT_PORTRAIT;
  devmode_.dmPaperSize = setup.PaperSize;
  devmode_.dmScale = 100;
  devmode_.dmCopies = 1;
  devmode_.dmPrintQuality = setup.Quality;
  devmode_.dmYResolution = setup.Quality;
  devmode_.dmColor = setup.Color ? DMCOLOR_COLOR : DMCOLOR_MONOCHROME;

  // The surface the host renders: the landscape page in landscape.
  gdiInfo_ = GDIINFO{};
  gdiInfo_.ulVersion = 0x5000;
  gdiInfo_.ulTechnology = 2;  // raster printer
  gdiInfo_.ulHorzRes = setup.Landscape ? setup.PageHeight : setup.PageWidth;
  gdiInfo_.ulVertRes = setup.Landscape ? setup.PageWidth : setup.PageHeight;
  gdiInfo_.ulLogPixelsX = gdiInfo_.ulLogPixelsY = static_cast<ULONG>(setup.Quality > 0 ? setup.Quality : 300);
  gdiInfo_.cBitsPixel = setup.Color ? 24 : 8;
  gdiInfo_.cPlanes = 1;

  devobj_ = DEVOBJ{};
  devobj_.dwSize = sizeof(DEVOBJ);
  devobj_.pPublicDM = &devmode_;
  devobj_.pDrvProcs = spool_.Interface();

  DRVENABLEDATA ded{};
  void* state = nullptr;
  const HRESULT hr = plugin_->lpVtbl->EnablePDEV(plugin_, &devobj_, devmode_.dmDeviceName, 0, nullptr, sizeof gdiInfo_,
                                                 &gdiInfo_, 0, nullptr, &ded, &state);
  devobj_.pdevOEM = state;  // held also when set-up failed: DisablePDEV frees it
  enabled_ = hr == S_OK;
  return hr;
}

HRESULT HostSession::Command(DWORD callbackId) {
  if (!plugin_) return E_FAIL;
  INT result = 0;
  return plugin_->lpVtbl->CommandCallback(plugin_, &devobj_, callbackId, 0, nullptr, &result);
}

HRESULT HostSession::ImageProcessing(const Band& band) {
  if (!plugin_) return E_FAIL;
  const std::int64_t stride = BandRowStride(band.Width);
  if (band.Width < 1 || band.Height < 1 || static_cast<std::uint64_t>(stride) * band.Height > kMaxBandBytes)
    return E_FAIL;  // no bitmap header can describe the band
  BITMAPINFOHEADER header{};
  header.biSize = sizeof header;
  header.biWidth = band.Width;
  header.biHeight = band.Height;
  header.biPlanes = 1;
  header.biBitCount = band.BitCount;
  header.biSizeImage = static_cast<DWORD>(stride * band.Height);
  IPPARAMS params{};
  params.dwSize = sizeof params;
  params.ptOffset = {band.OffsetX, band.OffsetY};
  params.bBanding = 1;
  params.bBlankBand = band.Blank ? 1 : 0;
  BYTE* result = nullptr;
  return plugin_->lpVtbl->ImageProcessing(plugin_, &devobj_, const_cast<BYTE*>(band.Bits), &header, nullptr, 0, &params,
                                          &result);
}

HRESULT HostSession::Disable() {
  if (!plugin_ || (!enabled_ && !devobj_.pdevOEM)) return S_OK;
  const HRESULT hr = plugin_->lpVtbl->DisablePDEV(plugin_, &devobj_);
  devobj_.pdevOEM = nullptr;
  enabled_ = false;
  return hr;
}

ULONG HostSession::Unload() {
  if (!plugin_) return 0;
  const ULONG count = plugin_->lpVtbl->Release(plugin_);
  plugin_ = nullptr;
  return count;
}

void SelectModes(HostSession& session, bool diffusion, bool highResolution, DWORD media) {
  if (highResolution) session.Command(kCallbackHighResolution);
  session.Command(diffusion ? kCallbackErrorDiffusion : kCallbackDither);
  if (media) session.Command(media);
}

// ---------------------------------------------------------------------------------------------------
// Pages
// ---------------------------------------------------------------------------------------------------
bool IsBlankBand(const std::uint8_t* bits, std::int32_t width, std::int32_t height, std::size_t stride,
                 std::uint16_t bitsPerPixel) {
  const std::size_t rowBytes = static_cast<std::size_t>(width) * (bitsPerPixel / 8);
  for (std::int32_t y = 0; y < height; ++y) {
    const std::uint8_t* row = bits + stride * static_cast<std::size_t>(y);
    for (std::size_t i = 0; i < rowBytes; ++i)
      if (row[i] != 0xFF) return false;
  }
  return true;
}

PageResult PrintPage(HostSession& session, const PageSource& source, std::int32_t bandHeight,
                     const std::function<void(int band, int bands)>& onBand) {
  PageResult result;
  if (bandHeight < 1 || source.Width < 1 || source.Height < 1 || !(source.Render || (source.Lend && source.GiveBack))) {
    result.Status = E_FAIL;
    result.Problem = "the page of " + std::to_string(source.Width) + " x " + std::to_string(source.Height) +
                     " pixels in bands of " + std::to_string(bandHeight) + " is empty";
    return result;
  }
  const bool landscape = session.Setup().Landscape;
  // Portrait: full-width slices down the page. Landscape: full-height slices across the page.
  const std::int32_t extent = landscape ? source.Width : source.Height;
  const std::int32_t bandWidth = landscape ? std::min(bandHeight, extent) : source.Width;
  const std::int32_t rowsMax = landscape ? source.Height : std::min(bandHeight, extent);
  const std::uint64_t fullBytes = static_cast<std::uint64_t>(BandRowStride(bandWidth)) * rowsMax;
  if (fullBytes > kMaxBandBytes) {
    result.Status = E_FAIL;
    result.Problem = "the page of " + std::to_string(source.Width) + " x " + std::to_string(source.Height) +
                     " pixels makes bands of " + std::to_string(fullBytes) + " bytes, more than a band can hold";
    return result;
  }
  // Exactly the bytes of each band, so that a read past one is a read past its buffer: one buffer for
  // the full bands and one for a shorter last band, both had before the page starts (none for a source
  // that lends its bands).
  const int bands = static_cast<int>((std::int64_t{extent} + bandHeight - 1) / bandHeight);
  const std::int32_t lastSize = extent - (bands - 1) * bandHeight;
  auto bandBytes = [&](std::int32_t size) {
    return static_cast<std::size_t>(BandRowStride(landscape ? size : source.Width)) *
           static_cast<std::size_t>(landscape ? source.Height : size);
  };
  const bool lends = !source.Render;
  std::vector<std::uint8_t> full(lends ? 0 : bandBytes(std::min(bandHeight, extent)));
  std::vector<std::uint8_t> last(!lends && lastSize < bandHeight ? bandBytes(lastSize) : 0);

  session.Command(kCallbackPageStart);
  for (int index = 0; index < bands; ++index) {
    const std::int32_t start = index * bandHeight;
    const std::int32_t size = std::min(bandHeight, extent - start);
    Band band;
    band.BitCount = source.BitsPerPixel;
    if (landscape) {
      band.Width = size;
      band.Height = source.Height;
      band.OffsetX = start;
    } else {
      band.Width = source.Width;
      band.Height = size;
      band.OffsetY = start;
    }
    // The plug-in reads every band at its own width's stride (a short last band in landscape too).
    const std::size_t bandStride = static_cast<std::size_t>(BandRowStride(band.Width));
    if (lends) {
      band.Bits = source.Lend(band.OffsetX, band.OffsetY, band.Width, band.Height);
    } else {
      std::vector<std::uint8_t>& buffer = size < bandHeight && !last.empty() ? last : full;
      std::fill(buffer.begin(), buffer.end(), 0xFF);
      if (source.Render(band.OffsetX, band.OffsetY, band.Width, band.Height, buffer.data(), bandStride))
        band.Bits = buffer.data();
    }
    if (!band.Bits) {
      result.Stopped = true;
      break;
    }
    band.Blank = IsBlankBand(band.Bits, band.Width, band.Height, bandStride, source.BitsPerPixel);
    const HRESULT hr = session.ImageProcessing(band);
    if (lends) source.GiveBack();
    if (Failed(hr) && result.Status == S_OK) result.Status = hr;
    ++result.Bands;
    if (onBand) onBand(index + 1, bands);
  }
  session.Command(kCallbackPageEnd);
  return result;
}

}  // namespace inkweave::host
