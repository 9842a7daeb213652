// The PDF filter. PAPPL takes PWG and Apple raster, JPEG and PNG itself; a PDF comes here. Each page
// is rendered by poppler only for the rectangle of the band the plug-in is handed, exactly as
// `inkweave print` renders a PDF, so a 600 dpi page is never held in memory whole.
//
// Where the page lands (print-scaling): "none" puts it at its own size centred on the sheet, so a
// page of the sheet's size lands on the sheet as it was drawn and the margins cut its edges; "fit"
// scales it to the printable area; "fill" covers the printable area; "auto" and "auto-fit" are
// "none" for a page no larger than the sheet and "fit" for a larger one. A landscape page (asked for
// with orientation-requested, or wider than tall when no orientation is asked for) is printed on the
// turned paper, centred in the printable area.
#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>

#include "cli/options.h"
#include "cli/pdf_page.h"
#include "printer-app/choices.h"
#include "printer-app/job_stream.h"
#include "printer-app/raster.h"

namespace inkweave::printerapp {
namespace {

struct OptionsDeleter {
  void operator()(pappl_pr_options_t* options) const { papplJobDeletePrintOptions(options); }
};

// A page no larger than the sheet by more than this counts as fitting it, mm.
constexpr double kSheetToleranceMm = 0.5;

bool Landscape(const pappl_pr_options_t& options, const cli::PdfPage& page) {
  switch (options.orientation_requested) {
    case IPP_ORIENT_LANDSCAPE:
    case IPP_ORIENT_REVERSE_LANDSCAPE: return true;
    case IPP_ORIENT_PORTRAIT:
    case IPP_ORIENT_REVERSE_PORTRAIT: return false;
    default: return page.Width() > page.Height();
  }
}

// Where the page (natural size in device dots) lands on the surface (the printable area, turned in
// landscape).
cli::Placement PlaceOnSurface(const cli::PdfPage& page, const cups::PagePlan& plan, bool landscape,
                              const pappl_pr_options_t& options, int dpi) {
  const pappl_scaling_t scaling = options.print_scaling;
  const double width = static_cast<double>(page.Width()), height = static_cast<double>(page.Height());
  const std::int64_t surfaceWidth = landscape ? plan.Setup.PageHeight : plan.Setup.PageWidth;
  const std::int64_t surfaceHeight = landscape ? plan.Setup.PageWidth : plan.Setup.PageHeight;
  const double dotsPerMm = dpi / 25.4;
  const double sheetWidth = options.media.size_width / 100.0 * dotsPerMm;  // media-col sizes are 1/100 mm
  const double sheetHeight = options.media.size_length / 100.0 * dotsPerMm;
  const double tolerance = kSheetToleranceMm * dotsPerMm;
  const bool fitsSheet = landscape ? width <= sheetHeight + tolerance && height <= sheetWidth + tolerance
                                   : width <= sheetWidth + tolerance && height <= sheetHeight + tolerance;
  if (scaling == PAPPL_SCALING_FIT ||
      ((scaling == PAPPL_SCALING_AUTO || scaling == PAPPL_SCALING_AUTO_FIT) && !fitsSheet))
    return cli::PlacePage(width, height, surfaceWidth, surfaceHeight, cli::Scale{});
  if (scaling == PAPPL_SCALING_FILL) {
    const double factor = std::max(surfaceWidth / width, surfaceHeight / height);
    return cli::PlacePage(width, height, surfaceWidth, surfaceHeight, cli::Scale{factor * 100.0});
  }
  if (landscape) return cli::PlacePage(width, height, surfaceWidth, surfaceHeight, cli::Scale{100.0});
  // At its own size on the sheet; the plan's offsets lead from the sheet's corner to the printable area's.
  cli::Placement placement = cli::PlacePage(width, height, static_cast<std::int64_t>(std::lround(sheetWidth)),
                                            static_cast<std::int64_t>(std::lround(sheetHeight)), cli::Scale{100.0});
  placement.Left -= plan.OffsetX;
  placement.Top -= plan.OffsetY;
  return placement;
}

// One page of the PDF through the plug-in. False when the job must stop.
bool PrintPdfPage(JobStream& stream, const char* file, int index, const pappl_pr_options_t& options,
                  cups::PagePlan plan) {
  pappl_job_t* job = stream.Job();
  const int dpi = plan.Setup.Quality;
  std::string error;
  // Opened at the device resolution first: its size there decides the placement.
  auto page = cli::PdfPage::Open(file, index, dpi / 72.0, &error);
  if (!page) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "Page %d: cannot read it: %s", index + 1, error.c_str());
    return false;
  }
  const bool landscape = Landscape(options, *page);
  const cli::Placement placement = PlaceOnSurface(*page, plan, landscape, options, dpi);
  if (placement.Factor != 1.0) {
    page = cli::PdfPage::Open(file, index, placement.Factor * dpi / 72.0, &error);
    if (!page) {
      papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "Page %d: cannot read it: %s", index + 1, error.c_str());
      return false;
    }
  }
  plan.Setup.Landscape = landscape;
  if (!stream.UseDevice(plan)) return false;

  host::PageSource source;
  source.Width = static_cast<std::int32_t>(landscape ? plan.Setup.PageHeight : plan.Setup.PageWidth);
  source.Height = static_cast<std::int32_t>(landscape ? plan.Setup.PageWidth : plan.Setup.PageHeight);
  source.BitsPerPixel = 24;  // monochrome too: the device prints black ink only
  bool renderFailed = false;
  source.Render = [&](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                      std::size_t stride) {
    if (stream.ShouldStop()) return false;
    if (!page->RenderOnSurface(placement.Left, placement.Top, x, y, w, h, dst, stride, &error)) {
      papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "Page %d: %s", index + 1, error.c_str());
      renderFailed = true;
      return false;
    }
    return true;
  };
  const host::PageResult result = stream.PrintPage(source, kBandHeight);
  return !renderFailed && !result.Stopped && result.Status == S_OK;
}

}  // namespace

bool PrintPdf(pappl_job_t* job, pappl_device_t* device, void*) {
  const char* file = papplJobGetFilename(job);
  std::string error;
  const int pages = cli::PdfPage::CountPages(file, &error);
  if (pages < 1) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "%s",
                pages < 0 ? ("Cannot read the PDF: " + error).c_str() : "The PDF has no pages");
    papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_FORMAT_ERROR, PAPPL_JREASON_NONE);
    return false;
  }
  std::unique_ptr<pappl_pr_options_t, OptionsDeleter> options(
      papplJobCreatePrintOptions(job, static_cast<unsigned>(pages), true));
  if (!options) return false;
  auto planned = PlanJobPage(*options, RenderedPageHeader(*options));
  if (auto* message = std::get_if<std::string>(&planned)) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "%s", message->c_str());
    papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_UNPRINTABLE_ERROR, PAPPL_JREASON_NONE);
    return false;
  }
  const cups::PagePlan& plan = std::get<cups::PagePlan>(planned);
  for (const std::string& w : plan.Warnings) papplLogJob(job, PAPPL_LOGLEVEL_WARN, "%s", w.c_str());

  // page-ranges, counted from 1; PAPPL leaves the whole document when none are asked for.
  const int first = std::max(1, static_cast<int>(options->first_page));
  const int last = std::min(
      pages, options->last_page > 0 ? static_cast<int>(std::min<unsigned>(options->last_page, INT_MAX)) : pages);
  const int copies = std::max(1, options->copies);
  if (first > last) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "The page-ranges select no page of the %d-page document", pages);
    return false;
  }
  auto stream = JobStream::Start(job, device);
  if (!stream) return false;
  papplJobSetImpressions(job, (last - first + 1) * copies);
  bool ok = true;
  for (int copy = 0; copy < copies && ok; ++copy) {
    for (int index = first - 1; index < last && ok; ++index) {
      ok = PrintPdfPage(*stream, file, index, *options, plan);
      if (ok) papplJobSetImpressionsCompleted(job, 1);
    }
  }
  stream->Finish();
  // A canceled job ends early but not in error.
  return ok || (papplJobIsCanceled(job) && !stream->WriteFailed());
}

}  // namespace inkweave::printerapp
