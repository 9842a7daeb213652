// inkweave print: documents → the plug-in, through our host exactly as the platform's printer driver
// drives it (load, enable, selections, job start, per page the bands, job end, disable), with the
// bytes it writes streamed into the output file.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>

#include "cli/commands.h"
#include "cli/document.h"
#include "cli/output_file.h"
#include "cli/plugin.h"
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
    std::fprintf(stderr, "\rpage %d of %d: band %d/%d, %.1f s ", page, pages, band, bands, Elapsed());
    if (band == bands) std::fputc('\n', stderr);
    std::fflush(stderr);
  }
  void Abandon() {
    if (show_) std::fputc('\n', stderr);
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

void ReportError(const std::string& message) { std::fprintf(stderr, "inkweave: %s\n", message.c_str()); }

int RunPrint(const PrintOptions& options) {
  std::string error;
  // Settings first: nothing is opened for a job that cannot be printed.
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
  auto pages = ListPages(options.Inputs, &error);
  if (!pages) {
    ReportError(error);
    return kExitFailure;
  }
  const int total = static_cast<int>(pages->size());
  if (options.Pages.Highest() > total) {
    ReportError("--pages: page " + std::to_string(options.Pages.Highest()) + " asked for, but the job has only " +
                std::to_string(total) + (total == 1 ? " page" : " pages"));
    return kExitUsage;
  }
  std::vector<InputPage> chosen;
  for (int i = 0; i < total; ++i)
    if (options.Pages.Contains(i + 1)) chosen.push_back((*pages)[static_cast<std::size_t>(i)]);

  auto library = OpenPlugin(options.Plugin, &error);
  if (!library) {
    ReportError(error);
    return kExitFailure;
  }
  auto out = OutputFile::Create(options.Output, &error);
  if (!out) {
    ReportError(error);
    return kExitFailure;
  }

  // The device context, as the platform's driver sets it up.
  host::HostSession session(library->Entry());
  session.Spool().SetKeepWrites(false);
  session.Spool().SetSink([&out](const std::uint8_t* bytes, std::size_t size) { out->Write(bytes, size); });
  if (const HRESULT hr = session.Load(); Failed(hr)) {
    ReportError("the plug-in would not load (" + Hex(hr) + ")");
    return kExitFailure;
  }
  host::DeviceSetup setup;
  setup.PaperSize = paper->Code;
  setup.Quality = static_cast<std::int16_t>(dpi);
  setup.Color = !options.Mono;
  setup.Landscape = options.Landscape;
  setup.PageWidth = area.Width;
  setup.PageHeight = area.Height;
  if (const HRESULT hr = session.Enable(setup); Failed(hr)) {
    ReportError("the plug-in refused the device set-up (" + Hex(hr) + ")");
    return kExitFailure;
  }
  host::SelectModes(session, options.Method == host::Halftone::Diffusion, options.HighRes, medium->Callback);
  session.Command(host::kCallbackJobStart);

  InstallInterruptHandlers();
  Progress progress(!options.Quiet && isatty(STDERR_FILENO));
  PageImage::Request request;
  request.Dpi = dpi;
  request.Width = options.Landscape ? area.Height : area.Width;
  request.Height = options.Landscape ? area.Width : area.Height;
  request.Fit = options.Fit;
  request.InOrder = !options.Landscape;

  bool ok = true;
  for (std::size_t index = 0; index < chosen.size() && ok; ++index) {
    auto image = PageImage::Open(chosen[index], request, &error);
    if (!image) {
      ReportError(error);
      ok = false;
      break;
    }
    host::PageSource source;
    source.Width = static_cast<std::int32_t>(request.Width);
    source.Height = static_cast<std::int32_t>(request.Height);
    source.BitsPerPixel = 24;
    std::string failure;
    source.Render = [&](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                        std::size_t stride) {
      if (Interrupted()) return false;
      if (out->Failed()) {
        failure = out->Path() + ": write failed: " + out->Reason();
        return false;
      }
      if (!image->Render(x, y, w, h, dst, stride)) {
        failure = chosen[index].File + ": " + image->Error();
        return false;
      }
      return true;
    };
    const int pageNumber = static_cast<int>(index) + 1;
    const host::PageResult result = host::PrintPage(session, source, options.BandHeight, [&](int band, int bands) {
      progress.Band(pageNumber, static_cast<int>(chosen.size()), band, bands);
    });
    if (result.Stopped || Failed(result.Status)) {
      progress.Abandon();
      if (Interrupted()) failure = "interrupted; no output written";
      if (failure.empty())
        failure = "the plug-in failed on page " + std::to_string(pageNumber) + " (" + Hex(result.Status) + ")";
      ReportError(failure);
      ok = false;
    }
  }
  session.Command(host::kCallbackJobEnd);
  session.Disable();
  session.Unload();
  if (!ok) return Interrupted() ? kExitInterrupted : kExitFailure;
  if (!out->Commit(&error)) {
    ReportError(error);
    return kExitFailure;
  }
  if (!options.Quiet && isatty(STDERR_FILENO))
    std::fprintf(stderr, "%s: %zu %s, %llu bytes, %.1f s\n", options.Output.c_str(), chosen.size(),
                 chosen.size() == 1 ? "page" : "pages", static_cast<unsigned long long>(out->Bytes()),
                 progress.Elapsed());
  return kExitOk;
}

}  // namespace inkweave::cli
