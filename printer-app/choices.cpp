#include "printer-app/choices.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace inkweave::printerapp {

std::string PwgMediaName(const host::Paper& paper) { return std::string(paper.PwgName); }

cups::JobOptions JobOptionsFrom(const pappl_pr_options_t& options, std::vector<std::string>* warnings) {
  cups::JobOptions result;
  if (const char* value = cupsGetOption(kHalftoneAttribute, options.num_vendor, options.vendor)) {
    if (const host::HalftoneChoice* halftone = host::FindHalftone(value))
      result.Method = halftone->Method;
    else if (warnings)
      warnings->push_back(std::string("unknown ") + kHalftoneAttribute + " \"" + value + "\"; printing with dither");
  }
  if (const char* value = cupsGetOption(kHighResolutionAttribute, options.num_vendor, options.vendor)) {
    if (!std::strcmp(value, "true"))
      result.Resolution = host::HighRes::HighRes600;
    else if (std::strcmp(value, "false") && warnings)
      warnings->push_back(std::string("unknown ") + kHighResolutionAttribute + " \"" + value + "\"; ignored");
  }
  return result;
}

std::variant<cups::PagePlan, std::string> PlanJobPage(const pappl_pr_options_t& options,
                                                      const cups_page_header2_t& header) {
  std::vector<std::string> warnings;
  const cups::JobOptions jobOptions = JobOptionsFrom(options, &warnings);
  // The job ticket's media type decides the paper-type command, whatever the raster says.
  cups_page_header2_t page = header;
  std::memset(page.MediaType, 0, sizeof page.MediaType);
  std::snprintf(page.MediaType, sizeof page.MediaType, "%s", options.media.type);
  auto planned = cups::PlanPage(page, jobOptions);
  if (auto* plan = std::get_if<cups::PagePlan>(&planned))
    plan->Warnings.insert(plan->Warnings.begin(), warnings.begin(), warnings.end());
  return planned;
}

cups_page_header2_t RenderedPageHeader(const pappl_pr_options_t& options) {
  cups_page_header2_t header{};
  const bool mono = options.print_color_mode == PAPPL_COLOR_MODE_MONOCHROME ||
                    options.print_color_mode == PAPPL_COLOR_MODE_AUTO_MONOCHROME ||
                    options.print_color_mode == PAPPL_COLOR_MODE_BI_LEVEL;
  // The size as the job's media-col gives it (a custom size has no entry in the PWG table).
  pwg_media_t media{};
  media.pwg = options.media.size_name;
  media.width = options.media.size_width;
  media.length = options.media.size_length;
  cupsRasterInitPWGHeader(&header, &media, mono ? "sgray_8" : "srgb_8", options.printer_resolution[0],
                          options.printer_resolution[1], "one-sided", nullptr);
  return header;
}

}  // namespace inkweave::printerapp
