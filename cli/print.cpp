// inkweave print: documents → the plug-in, through our host exactly as the platform's printer driver
// drives it (load, enable, selections, job start, per page the bands, job end, disable), with the
// bytes it writes streamed into the output file. The pages are opened and rendered on a thread of
// their own, a band ahead of the plug-in (host/band_queue.h); the plug-in is called from this
// thread only, in order.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "cli/commands.h"
#include "cli/document.h"
#include "cli/library_messages.h"
#include "cli/output_file.h"
#include "cli/plugin.h"
#include "host/band_queue.h"
#include "host/choices.h"
#include "host/host.h"
#include "host/papers.h"

namespace inkweave::cli {
namespace {

volatile std::sig_atomic_t gInterrupted = 0;
extern "C" void OnInterrupt(int) { gInterrupted = 1; }

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

// One progress line per page on a terminal, rewritten in place as the bands go out.
class Progress {
 public:
  explicit Progress(bool show) : show_(show), start_(std::chrono::steady_clock::now()) {}
  void Band(int page, int pages, int band, int bands) {
    if (!show_) return;
    std::fprintf(Messages(), "\rpage %d of %d: band %d/%d, %.1f s ", page, pages, band, bands, Elapsed());
    if (band == bands) std::fputc('\n', Messages());
    std::fflush(Messages());
  }
  void Abandon() {
    if (show_) std::fputc('\n', Messages());
  }
  double Elapsed() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

 private:
  bool show_;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace

bool Interrupted() { return gInterrupted != 0; }

void InstallInterruptHandlers() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGHUP, &action, nullptr);
}

void ReportError(const std::string& message) { std::fprintf(Messages(), "inkweave: %s\n", message.c_str()); }

namespace {

// The job as RunPrint's steps build it up. Each step answers kExitOk to go on, or the exit code after
// it has reported why not.
struct PrintJob {
  explicit PrintJob(const PrintOptions& options) : Options(options), Meter(false) {}
  const PrintOptions& Options;
  host::DeviceSetup Setup;
  DWORD Media = 0;               // the paper-type command
  PageImage::Request Request;    // the surface every page is rendered into
  std::vector<InputPage> Pages;  // the pages chosen, in order
  std::unique_ptr<host::PluginLibrary> Library;
  std::unique_ptr<OutputFile> Out;
  std::optional<host::HostSession> Session;  // after Library and Out: it goes first
  Progress Meter;
  bool Terminal = false;  // standard error is a terminal
};

// The device set-up and the surface of the pages, from the options alone: nothing is opened for a
// job that cannot be printed.
int ChooseSettings(PrintJob& job) {
  const PrintOptions& options = job.Options;
  const auto paper = host::FindPaper(options.Paper);
  const host::Medium* medium = host::FindMedium(options.Media);
  if (!paper || !medium) {
    ReportError("unknown paper or media");  // CLI11 checks the names; kept as a guard
    return kExitUsage;
  }
  const int dpi = options.Dpi();
  const host::PrintableArea area = host::PrintableAreaOf(*paper, dpi);
  if (area.Width > host::kMaxLineDots) {
    ReportError("paper " + options.Paper + " is " + std::to_string(area.Width) + " dots wide at " +
                std::to_string(dpi) + " dpi, wider than the " + std::to_string(host::kMaxLineDots) +
                " dots a printer line holds; choose --quality 300 or a narrower paper");
    return kExitUsage;
  }
  job.Setup.PaperSize = paper->Code;
  job.Setup.Quality = static_cast<std::int16_t>(dpi);
  job.Setup.Color = !options.Mono;
  job.Setup.Landscape = options.Landscape;
  job.Setup.PageWidth = area.Width;
  job.Setup.PageHeight = area.Height;
  job.Media = medium->Callback;
  job.Request.Dpi = dpi;
  job.Request.Width = options.Landscape ? area.Height : area.Width;
  job.Request.Height = options.Landscape ? area.Width : area.Height;
  job.Request.Fit = options.Fit;
  job.Request.InOrder = !options.Landscape;
  job.Request.Gray = options.Mono;
  job.Request.InputProfile = options.InputProfile;
  if (!options.InputProfile.empty()) {
    if (const auto why = CheckInputProfile(options.InputProfile)) {
      ReportError("--input-profile " + options.InputProfile + ": " + *why);
      return kExitUsage;
    }
  }
  return kExitOk;
}

// Every page of the inputs, less those --pages leaves out.
int ChoosePages(PrintJob& job) {
  std::string error;
  auto pages = ListPages(job.Options.Inputs, &error);
  if (!pages) {
    ReportError(error);
    return kExitFailure;
  }
  const int total = static_cast<int>(pages->size());
  const PageSelection& selection = job.Options.Pages;
  if (selection.Highest() > total) {
    ReportError("--pages: page " + std::to_string(selection.Highest()) + " asked for, but the job has only " +
                std::to_string(total) + (total == 1 ? " page" : " pages"));
    return kExitUsage;
  }
  for (int i = 0; i < total; ++i)
    if (selection.Contains(i + 1)) job.Pages.push_back((*pages)[static_cast<std::size_t>(i)]);
  return kExitOk;
}

// The plug-in and the output, then the device context as the platform's driver sets it up: load,
// enable, the selections and the job start.
int OpenDevice(PrintJob& job) {
  std::string error;
  job.Library = OpenPlugin(job.Options.Plugin, &error);
  if (!job.Library) {
    ReportError(error);
    return kExitFailure;
  }
  job.Out = OutputFile::Create(job.Options.Output, &error);
  if (!job.Out) {
    ReportError(error);
    return kExitFailure;
  }
  host::HostSession& session = job.Session.emplace(job.Library->Entry());
  session.Spool().SetKeepWrites(false);
  OutputFile& out = *job.Out;
  session.Spool().SetSink([&out](const std::uint8_t* bytes, std::size_t size) { out.Write(bytes, size); });
  if (const HRESULT hr = session.Load(); Failed(hr)) {
    ReportError("the plug-in would not load (" + Hex(hr) + ")");
    return kExitFailure;
  }
  if (const HRESULT hr = session.Enable(job.Setup); Failed(hr)) {
    ReportError("the plug-in refused the device set-up (" + Hex(hr) + ")");
    return kExitFailure;
  }
  host::SelectModes(session, job.Options.Method == host::Halftone::Diffusion, job.Options.HighRes, job.Media);
  session.Command(host::kCallbackJobStart);
  return kExitOk;
}

// The input side of the job, on its own thread: every page opened and rendered band by band, in the
// order the plug-in takes them. A page that cannot be opened or rendered stops the job there.
void RenderPages(const PrintJob& job, host::BandQueue& queue, LibraryMessages& library) {
  const std::vector<host::BandRect> bands =
      host::BandsOf(static_cast<std::int32_t>(job.Request.Width), static_cast<std::int32_t>(job.Request.Height),
                    job.Options.BandHeight, job.Setup.Landscape);
  for (const InputPage& input : job.Pages) {
    std::string error;
    auto image = PageImage::Open(input, job.Request, &error);
    bool queued = image != nullptr;
    for (std::size_t band = 0; band < bands.size() && queued; ++band) {
      const host::BandRect& rect = bands[band];
      queued = queue.Put(rect, 3, [&](std::uint8_t* dst, std::size_t stride, std::string* why) {
        if (image->Render(rect.X, rect.Y, rect.Width, rect.Height, dst, stride)) return true;
        *why = input.File + ": " + image->Error();
        return false;
      });
    }
    library.Collect(input.File);
    if (!image) queue.Fail(error);
    if (!queued) return;
  }
}

// One page, band by band, from the input side. False after reporting why the job stops.
bool PrintOnePage(PrintJob& job, std::size_t index, host::BandQueue& queue) {
  host::PageSource source;
  source.Width = static_cast<std::int32_t>(job.Request.Width);
  source.Height = static_cast<std::int32_t>(job.Request.Height);
  source.BitsPerPixel = 24;
  std::string failure;
  // The plug-in reads each band in the queue's slot it was rendered into.
  source.Lend = [&](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h) -> const std::uint8_t* {
    if (Interrupted()) return nullptr;
    if (job.Out->Failed()) {
      failure = job.Out->Name() + ": write failed: " + job.Out->Reason() + "; job stopped";
      return nullptr;
    }
    const std::uint8_t* pixels = queue.Lend({x, y, w, h});
    if (!pixels) failure = queue.Error();
    return pixels;
  };
  source.GiveBack = [&] { queue.GiveBack(); };
  const int pageNumber = static_cast<int>(index) + 1;
  const host::PageResult result = host::PrintPage(
      *job.Session, source, job.Options.BandHeight,
      [&](int band, int bands) { job.Meter.Band(pageNumber, static_cast<int>(job.Pages.size()), band, bands); });
  if (!result.Stopped && !Failed(result.Status)) return true;
  job.Meter.Abandon();
  if (Interrupted()) failure = "interrupted; no output written";
  if (failure.empty() && !result.Problem.empty())
    failure = "page " + std::to_string(pageNumber) + ": " + result.Problem;
  if (failure.empty())
    failure = "the plug-in failed on page " + std::to_string(pageNumber) + " (" + Hex(result.Status) + ")";
  ReportError(failure);
  return false;
}

// The job end and the end of the device context; then the output is put in place if every page went
// out. Answers the exit code.
int Finish(PrintJob& job, bool printed) {
  host::HostSession& session = *job.Session;
  session.Command(host::kCallbackJobEnd);
  session.Disable();
  session.Unload();
  if (!printed) return Interrupted() ? kExitInterrupted : kExitFailure;
  std::string error;
  if (!job.Out->Commit(&error)) {
    ReportError(error);
    return kExitFailure;
  }
  if (!job.Options.Quiet)
    std::fprintf(Messages(), "%s: %zu %s, %llu bytes, %.1f s\n", job.Out->Name().c_str(), job.Pages.size(),
                 job.Pages.size() == 1 ? "page" : "pages", static_cast<unsigned long long>(job.Out->Bytes()),
                 job.Meter.Elapsed());
  return kExitOk;
}

}  // namespace

int RunPrint(const PrintOptions& options) {
  PrintJob job(options);
  for (int (*step)(PrintJob&) : {ChooseSettings, ChoosePages, OpenDevice})
    if (const int code = step(job); code != kExitOk) return code;

  InstallInterruptHandlers();
  job.Terminal = isatty(STDERR_FILENO);
  job.Meter = Progress(!options.Quiet && job.Terminal);
  LibraryMessages library;
  bool printed = true;
  {
    // Two bands: one the input side fills while the plug-in reads the other.
    host::BandQueue queue(2);
    queue.Run([&] { RenderPages(job, queue, library); });
    for (std::size_t index = 0; index < job.Pages.size() && printed; ++index) printed = PrintOnePage(job, index, queue);
  }  // the input side stops here
  const int code = Finish(job, printed);
  // What the libraries printed, once per line, after a job that went out; a failed job keeps to its
  // one line of error.
  if (code == kExitOk)
    for (const std::string& line : library.Lines()) std::fprintf(Messages(), "inkweave: warning: %s\n", line.c_str());
  return code;
}

}  // namespace inkweave::cli
