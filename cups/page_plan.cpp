#include "cups/page_plan.h"

#include <strings.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <cups/cups.h>
#include <cups/ppd.h>

#include "host/papers.h"

namespace inkweave::cups {
namespace {

constexpr double kMmPerPoint = 25.4 / 72.0;

bool Equal(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string Format(const char* format, auto... args) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, format, args...);
  return buffer;
}

// The paper-type command for the header's MediaType: the PPD's choice names (and those of earlier
// PPDs, such as "Photo"), and the IPP media-type keywords a client may send instead; none is plain paper.
std::optional<std::uint32_t> MediaCallback(std::string_view media) {
  if (media.empty()) return host::kMedia[0].Callback;
  if (const host::Medium* m = host::FindMedium(media)) return m->Callback;
  return std::nullopt;
}

// The value of one of our options; false when the value is not one of its choices.
bool ParseChoice(std::string_view keyword, std::string_view value, JobOptions& options) {
  if (keyword == host::kHalftoneKeyword) {
    for (const host::HalftoneChoice& h : host::kHalftones)
      if (Equal(h.PpdName, value)) {
        options.Method = h.Method;
        return true;
      }
  } else {
    for (const host::HighResChoice& h : host::kHighResModes)
      if (Equal(h.PpdName, value)) {
        options.Resolution = h.Mode;
        return true;
      }
  }
  return false;
}

// "A, B or C": the choices of one of our options, for a warning.
std::string ChoiceNames(std::string_view keyword) {
  std::vector<std::string_view> names;
  if (keyword == host::kHalftoneKeyword)
    for (const host::HalftoneChoice& h : host::kHalftones) names.push_back(h.PpdName);
  else
    for (const host::HighResChoice& h : host::kHighResModes) names.push_back(h.PpdName);
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
    text.append(names[i]);
  }
  return text;
}

constexpr std::string_view kOurOptions[] = {host::kHalftoneKeyword, host::kHighResKeyword};

// The PPD's marked choices (its defaults, then the job's options marked over them). The PPD API is the
// only way a filter learns how the queue was set up; it is deprecated in CUPS 2 but fully supported,
// so its use is kept to this one function.
void ReadPpdChoices(const char* ppdPath, int count, cups_option_t* jobOptions, JobOptions& options,
                    std::vector<std::string>* warnings) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  ppd_file_t* ppd = ppdOpenFile(ppdPath);
  if (!ppd) {
    int line = 0;
    const ppd_status_t status = ppdLastError(&line);
    if (warnings)
      warnings->push_back(Format("Unable to read the PPD %s (%s, line %d); using the built-in defaults", ppdPath,
                                 ppdErrorString(status), line));
    return;
  }
  ppdMarkDefaults(ppd);
  cupsMarkOptions(ppd, count, jobOptions);
  for (std::string_view keyword : kOurOptions) {
    if (const ppd_choice_t* choice = ppdFindMarkedChoice(ppd, std::string(keyword).c_str()))
      ParseChoice(keyword, choice->choice, options);
  }
  ppdClose(ppd);
#pragma GCC diagnostic pop
}

}  // namespace

JobOptions ReadJobOptions(const char* ppdPath, const char* optionText, std::vector<std::string>* warnings) {
  JobOptions result;
  cups_option_t* options = nullptr;
  const int count = cupsParseOptions(optionText ? optionText : "", 0, &options);
  if (ppdPath && *ppdPath) ReadPpdChoices(ppdPath, count, options, result, warnings);
  for (std::string_view keyword : kOurOptions) {
    const char* value = cupsGetOption(std::string(keyword).c_str(), count, options);
    if (value && !ParseChoice(keyword, value, result) && warnings)
      warnings->push_back(Format("Unknown %s value \"%s\" (%s); ignored", std::string(keyword).c_str(), value,
                                 ChoiceNames(keyword).c_str()));
  }
  cupsFreeOptions(count, options);
  return result;
}

std::optional<host::Paper> NearestPaper(double widthMm, double heightMm) {
  std::optional<host::Paper> best;
  double bestDistance = kPaperToleranceMm;
  for (const host::Paper& paper : host::Papers()) {
    const double distance = std::max(std::fabs(paper.WidthMm - widthMm), std::fabs(paper.HeightMm - heightMm));
    if (distance <= bestDistance) {
      best = paper;
      bestDistance = distance;
    }
  }
  return best;
}

bool PagePlan::SameDevice(const PagePlan& other) const {
  return Setup.PaperSize == other.Setup.PaperSize && Setup.Quality == other.Setup.Quality &&
         Setup.Landscape == other.Setup.Landscape && Setup.Color == other.Setup.Color &&
         Setup.PageWidth == other.Setup.PageWidth && Setup.PageHeight == other.Setup.PageHeight &&
         MediaCallback == other.MediaCallback && Method == other.Method && HighResolution == other.HighResolution;
}

void PagePlan::CopyRow(const std::uint8_t* raster, std::uint8_t* band, std::int32_t width) const {
  const int out = BandBits / 8;
  std::int64_t first = std::max<std::int64_t>(0, -OffsetX);
  std::int64_t last = std::min<std::int64_t>(width, static_cast<std::int64_t>(RasterWidth) - OffsetX);
  if (!raster || first >= last) first = last = width;
  std::memset(band, 0xFF, static_cast<std::size_t>(first * out));
  std::memset(band + last * out, 0xFF, static_cast<std::size_t>((width - last) * out));
  if (first == last) return;
  const std::uint8_t* src = raster + (OffsetX + first) * Channels;
  std::uint8_t* to = band + first * out;
  const std::size_t pixels = static_cast<std::size_t>(last - first);
  if (Channels == out && !InvertGray) {
    std::memcpy(to, src, pixels * static_cast<std::size_t>(out));
    return;
  }
  for (std::size_t i = 0; i < pixels; ++i) {
    const std::uint8_t v = InvertGray ? static_cast<std::uint8_t>(255 - src[i]) : src[i];
    for (int c = 0; c < out; ++c) to[i * out + c] = v;
  }
}

namespace {

// The steps of PlanPage. Each checks its part of the header and fills its part of the plan; a step
// that fails answers the message that stops the page.
using Refusal = std::optional<std::string>;

// An enumerated field of the header as the stream sent it: libcups stores any 32-bit value there, and
// loading one outside the enumeration as the enumeration type is undefined.
template <typename Enum>
unsigned RawField(const Enum& field) {
  static_assert(sizeof(Enum) == sizeof(unsigned));
  unsigned value;
  std::memcpy(&value, &field, sizeof value);
  return value;
}

// Pixel format: 8-bit RGB or 8-bit gray, chunked.
Refusal ReadPixelFormat(const cups_page_header2_t& header, PagePlan& plan) {
  if (header.cupsBitsPerColor != 8)
    return Format("Unsupported raster: %u bits per colour (the printer takes 8)", header.cupsBitsPerColor);
  const unsigned space = RawField(header.cupsColorSpace);
  switch (space) {
    case CUPS_CSPACE_RGB:
    case CUPS_CSPACE_SRGB: plan.Channels = 3; break;
    case CUPS_CSPACE_W:
    case CUPS_CSPACE_SW: plan.Channels = 1; break;
    case CUPS_CSPACE_K:
      plan.Channels = 1;
      plan.InvertGray = true;
      break;
    default: return Format("Unsupported raster colour space %u (RGB, sRGB, W, sW or K)", space);
  }
  const unsigned order = RawField(header.cupsColorOrder);
  if (plan.Channels == 3 && order != CUPS_ORDER_CHUNKED)
    return Format("Unsupported raster colour order %u (chunked pixels only)", order);
  if (header.cupsBitsPerPixel != 8u * static_cast<unsigned>(plan.Channels))
    return Format("Inconsistent raster header: %u bits per pixel for %d colours of 8 bits", header.cupsBitsPerPixel,
                  plan.Channels);
  return std::nullopt;
}

// Resolution: one of the device's print qualities, the same both ways.
Refusal ReadResolution(const cups_page_header2_t& header, PagePlan& plan) {
  const unsigned dpi = header.HWResolution[0];
  const bool known = std::find(std::begin(host::kQualities), std::end(host::kQualities), static_cast<int>(dpi)) !=
                     std::end(host::kQualities);
  if (dpi != header.HWResolution[1] || !known)
    return Format("Unsupported resolution %ux%u dpi (150, 300 or 600 dpi, the same both ways)", header.HWResolution[0],
                  header.HWResolution[1]);
  plan.Setup.Quality = static_cast<std::int16_t>(dpi);
  return std::nullopt;
}

// Size: something, nothing larger than any paper, and rows as long as the pixels make them.
Refusal ReadSize(const cups_page_header2_t& header, PagePlan& plan) {
  const unsigned dpi = header.HWResolution[0];
  if (header.cupsWidth == 0 || header.cupsHeight == 0)
    return Format("Empty raster page (%u x %u pixels)", header.cupsWidth, header.cupsHeight);
  const std::uint64_t limit = static_cast<std::uint64_t>(kMaxPageInches) * dpi;
  if (header.cupsWidth > limit || header.cupsHeight > limit)
    return Format("Raster page of %u x %u pixels at %u dpi is larger than any paper (%u inches at most)",
                  header.cupsWidth, header.cupsHeight, dpi, kMaxPageInches);
  const std::uint64_t rowBytes = static_cast<std::uint64_t>(header.cupsWidth) * static_cast<unsigned>(plan.Channels);
  if (header.cupsBytesPerLine != rowBytes)
    return Format("Inconsistent raster header: %u bytes per line for %u pixels of %d bytes", header.cupsBytesPerLine,
                  header.cupsWidth, plan.Channels);
  plan.RasterWidth = header.cupsWidth;
  plan.RasterHeight = header.cupsHeight;
  plan.BytesPerLine = header.cupsBytesPerLine;
  return std::nullopt;
}

struct Sheet {
  double Width;   // points
  double Height;  // points
};

// The sheet: cupsPageSize (v2 and v3), else PageSize, else the raster's own size.
Sheet SheetOf(const cups_page_header2_t& header) {
  const unsigned dpi = header.HWResolution[0];
  Sheet sheet{header.cupsPageSize[0] > 0 ? header.cupsPageSize[0] : header.PageSize[0],
              header.cupsPageSize[1] > 0 ? header.cupsPageSize[1] : header.PageSize[1]};
  if (!(sheet.Width > 0 && sheet.Height > 0 && sheet.Width <= 72.0 * kMaxPageInches &&
        sheet.Height <= 72.0 * kMaxPageInches))
    sheet = {header.cupsWidth * 72.0 / dpi, header.cupsHeight * 72.0 / dpi};
  return sheet;
}

// The paper (the nearest the device knows, else the platform's "any other size") and its printable
// area, cut to the widest line the plug-in takes.
std::variant<host::PrintableArea, std::string> ChoosePaper(const Sheet& sheet, PagePlan& plan) {
  const unsigned dpi = static_cast<unsigned>(plan.Setup.Quality);
  host::Paper paper{"custom", "", "Custom size", kPaperUser, sheet.Width * kMmPerPoint, sheet.Height * kMmPerPoint,
                    false};
  if (const auto known = NearestPaper(sheet.Width * kMmPerPoint, sheet.Height * kMmPerPoint)) {
    paper = *known;
  } else {
    plan.Warnings.push_back(
        Format("Page size %.0fx%.0f points is not a paper the printer knows; printing it as "
               "a custom size",
               sheet.Width, sheet.Height));
  }
  host::PrintableArea area = host::PrintableAreaOf(paper, static_cast<int>(dpi));
  if (area.Width < 1 || area.Height < 1)
    return Format("Page size %.0fx%.0f points leaves no printable area inside the margins", sheet.Width, sheet.Height);
  if (area.Width > host::kMaxLineDots) {
    plan.Warnings.push_back(
        Format("The printable width of %u dots at %u dpi is wider than the print head's %u; "
               "the right edge is cut off",
               area.Width, dpi, host::kMaxLineDots));
    area.Width = host::kMaxLineDots;
  }
  plan.PaperName = std::string(paper.Name);
  plan.Setup.PaperSize = paper.Code;
  plan.Setup.PageWidth = area.Width;
  plan.Setup.PageHeight = area.Height;
  return area;
}

// Where the raster lies on the sheet: normally the raster is the whole sheet. A raster the size of
// the imaging box (as Ghostscript renders for CUPS) starts at the box's top-left corner. The box is
// left, bottom, right, top in points: cupsImagingBBox (v2, v3), else ImagingBoundingBox.
// A box is used only when it lies on a sheet of the largest size the filter takes; any other is ignored.
Refusal PlaceRaster(const cups_page_header2_t& header, const Sheet& sheet, const host::PrintableArea& area,
                    PagePlan& plan) {
  const unsigned dpi = header.HWResolution[0];
  double box[4];
  for (int i = 0; i < 4; ++i) box[i] = header.cupsImagingBBox[i];
  if (!(box[2] > box[0] && box[3] > box[1]))
    for (int i = 0; i < 4; ++i) box[i] = header.ImagingBoundingBox[i];
  constexpr double kLimit = 72.0 * kMaxPageInches;
  for (double side : box)
    if (!(side >= -kLimit && side <= kLimit))  // also NaN
      return Format("Imaging box %.0f, %.0f, %.0f, %.0f points lies beyond the %u-inch page limit", box[0], box[1],
                    box[2], box[3], kMaxPageInches);
  std::int64_t originX = 0;
  std::int64_t originY = 0;
  const double slack = dpi / 10.0;  // 0.1 in
  const double sheetWidthDots = sheet.Width * dpi / 72.0;
  const double boxWidthDots = (box[2] - box[0]) * dpi / 72.0;
  if (std::fabs(header.cupsWidth - sheetWidthDots) > slack && box[2] > box[0] &&
      std::fabs(header.cupsWidth - boxWidthDots) <= slack) {
    originX = std::llround(box[0] * dpi / 72.0);
    originY = std::llround((sheet.Height - box[3]) * dpi / 72.0);
  }
  plan.OffsetX = static_cast<std::int64_t>(area.Left) - originX;
  plan.OffsetY = static_cast<std::int64_t>(area.Top) - originY;
  return std::nullopt;
}

// The selections (media, halftone, high resolution) and the bands' depth that follows from them.
void ChooseSelections(const cups_page_header2_t& header, const JobOptions& options, PagePlan& plan) {
  const unsigned dpi = header.HWResolution[0];
  const std::string_view media(header.MediaType, strnlen(header.MediaType, sizeof header.MediaType));
  if (const auto callback = MediaCallback(media)) {
    plan.MediaCallback = *callback;
  } else {
    plan.Warnings.push_back(Format("Unknown media type \"%.*s\"; printing on plain paper settings",
                                   static_cast<int>(media.size()), media.data()));
  }
  plan.Method = options.Method;
  if (options.Resolution != host::HighRes::Off) {
    if (dpi == 600)
      plan.HighResolution = true;
    else
      plan.Warnings.push_back(Format("High resolution needs a 600 dpi raster; printing at %u dpi without it", dpi));
  }
  plan.BandBits = plan.Channels == 1 && plan.Method == host::Halftone::Dither && !plan.HighResolution ? 8 : 24;
}

}  // namespace

std::variant<PagePlan, std::string> PlanPage(const cups_page_header2_t& header, const JobOptions& options) {
  PagePlan plan;
  if (Refusal refusal = ReadPixelFormat(header, plan)) return *refusal;
  if (Refusal refusal = ReadResolution(header, plan)) return *refusal;
  if (Refusal refusal = ReadSize(header, plan)) return *refusal;
  const Sheet sheet = SheetOf(header);
  auto area = ChoosePaper(sheet, plan);
  if (auto* refusal = std::get_if<std::string>(&area)) return *refusal;
  if (Refusal refusal = PlaceRaster(header, sheet, std::get<host::PrintableArea>(area), plan)) return *refusal;
  plan.Setup.Color = plan.Channels == 3;
  plan.Setup.Landscape = false;  // the raster arrives upright; CUPS has turned the page already
  ChooseSelections(header, options, plan);
  return plan;
}

}  // namespace inkweave::cups
