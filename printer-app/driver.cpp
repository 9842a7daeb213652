#include "printer-app/driver.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "printer-app/choices.h"
#include "printer-app/raster.h"

namespace inkweave::printerapp {
namespace {

// Nominal speeds for pages-per-minute, which IPP requires: an A4 page of text at 300 dpi.
constexpr int kPagesPerMinute = 5;
constexpr int kPagesPerMinuteColor = 3;

int HundredthsMm(double mm) { return static_cast<int>(std::lround(mm * 100)); }

// The PWG names of the papers, kept for the life of the process (the driver data points at them).
const std::vector<std::string>& MediaNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> list;
    for (const host::Paper& paper : host::Papers()) list.push_back(PwgMediaName(paper));
    return list;
  }();
  return names;
}

// Identify-Printer: the printer's stream has no command to make it beep or blink, so the request
// is shown where the printer application shows everything, in its log.
void Identify(pappl_printer_t* printer, pappl_identify_actions_t, const char* message) {
  papplLogPrinter(printer, PAPPL_LOGLEVEL_INFO, "Identify-Printer: %s", message && *message ? message : "(no message)");
}

void AddVendorAttributes(pappl_pr_driver_data_t* data, ipp_t* attributes) {
  std::vector<const char*> halftones;
  for (const host::HalftoneChoice& h : host::kHalftones) halftones.push_back(h.Name.data());
  ippAddStrings(attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, (std::string(kHalftoneAttribute) + "-supported").c_str(),
                static_cast<int>(halftones.size()), nullptr, halftones.data());
  ippAddString(attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, (std::string(kHalftoneAttribute) + "-default").c_str(),
               nullptr, halftones.front());
  ippAddBoolean(attributes, IPP_TAG_PRINTER, (std::string(kHighResolutionAttribute) + "-supported").c_str(), 1);
  ippAddBoolean(attributes, IPP_TAG_PRINTER, (std::string(kHighResolutionAttribute) + "-default").c_str(), 0);
  data->num_vendor = 2;
  data->vendor[0] = kHalftoneAttribute;
  data->vendor[1] = kHighResolutionAttribute;
}

}  // namespace

bool FillDriver(pappl_system_t* system, const char* driverName, const char*, const char*, pappl_pr_driver_data_t* data,
                ipp_t** attributes, void*) {
  if (!driverName || std::strcmp(driverName, kDriverName)) {
    papplLog(system, PAPPL_LOGLEVEL_ERROR, "No driver named '%s' (the driver is '%s').", driverName ? driverName : "",
             kDriverName);
    return false;
  }
  data->rstartjob_cb = StartRasterJob;
  data->rstartpage_cb = StartRasterPage;
  data->rwriteline_cb = WriteRasterLine;
  data->rendpage_cb = EndRasterPage;
  data->rendjob_cb = EndRasterJob;
  data->identify_cb = Identify;
  data->identify_default = data->identify_supported = PAPPL_IDENTIFY_ACTIONS_DISPLAY;

  std::snprintf(data->make_and_model, sizeof data->make_and_model, "%s", kMakeAndModel);
  data->ppm = kPagesPerMinute;
  data->ppm_color = kPagesPerMinuteColor;
  data->kind = PAPPL_KIND_DOCUMENT | PAPPL_KIND_ENVELOPE | PAPPL_KIND_PHOTO;

  // The print qualities, 150, 300 and 600 dpi; print-quality draft, normal and high pick them when no
  // resolution is asked.
  data->num_resolution = static_cast<int>(std::size(host::kQualities));
  for (std::size_t i = 0; i < std::size(host::kQualities); ++i)
    data->x_resolution[i] = data->y_resolution[i] = host::kQualities[i];
  data->x_default = data->y_default = host::kDefaultQuality;
  data->quality_default = IPP_QUALITY_NORMAL;

  // Colour (sRGB) and monochrome (black ink only, from sGray).
  data->raster_types = PAPPL_PWG_RASTER_TYPE_SRGB_8 | PAPPL_PWG_RASTER_TYPE_SGRAY_8;
  data->color_supported = PAPPL_COLOR_MODE_AUTO | PAPPL_COLOR_MODE_COLOR | PAPPL_COLOR_MODE_MONOCHROME;
  data->color_default = PAPPL_COLOR_MODE_AUTO;
  data->orient_default = IPP_ORIENT_NONE;
  data->content_default = PAPPL_CONTENT_AUTO;
  data->scaling_default = PAPPL_SCALING_AUTO;
  data->sides_supported = data->sides_default = PAPPL_SIDES_ONE_SIDED;
  data->duplex = PAPPL_DUPLEX_NONE;

  // The papers, with the device's margins. PAPPL gives one margin for top and bottom: the larger,
  // the bottom's, so that nothing is placed where the bottom cannot print.
  const auto& names = MediaNames();
  data->num_media = static_cast<int>(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) data->media[i] = names[i].c_str();
  data->left_right = HundredthsMm(host::kMarginSideMm);
  data->bottom_top = HundredthsMm(std::max(host::kMarginTopMm, host::kMarginBottomMm));
  data->borderless = false;

  // The paper types, by their IPP keywords.
  data->num_type = static_cast<int>(std::size(host::kMedia));
  for (std::size_t i = 0; i < std::size(host::kMedia); ++i) data->type[i] = host::kMedia[i].IppKeyword.data();

  // One paper source, A4 plain paper loaded.
  data->num_source = 1;
  data->source[0] = "main";
  pappl_media_col_t& ready = data->media_ready[0];
  const host::Paper a4 = *host::FindPaper("a4");
  std::snprintf(ready.size_name, sizeof ready.size_name, "%s", PwgMediaName(a4).c_str());
  ready.size_width = HundredthsMm(a4.WidthMm);
  ready.size_length = HundredthsMm(a4.HeightMm);
  ready.left_margin = ready.right_margin = data->left_right;
  ready.top_margin = ready.bottom_margin = data->bottom_top;
  std::snprintf(ready.source, sizeof ready.source, "%s", data->source[0]);
  std::snprintf(ready.type, sizeof ready.type, "%s", data->type[0]);
  data->media_default = ready;

  if (!*attributes) *attributes = ippNew();
  AddVendorAttributes(data, *attributes);
  return true;
}

}  // namespace inkweave::printerapp
