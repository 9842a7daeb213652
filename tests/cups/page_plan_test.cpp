// Page planning: which device a raster header asks for, where the printable area lies in the raster,
// and the job's options over the PPD's defaults.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>

#include "cups/page_plan.h"
#include "tests/cups/cups_support.h"

namespace inkweave::cupstest {
namespace {

using cups::PagePlan;
using host::HighRes;

PagePlan Plan(const cups_page_header2_t& header, const cups::JobOptions& options = {}) {
  auto planned = cups::PlanPage(header, options);
  if (auto* error = std::get_if<std::string>(&planned)) {
    ADD_FAILURE() << *error;
    return {};
  }
  return std::get<PagePlan>(planned);
}

TEST(PagePlan, TakesTheNearestKnownPaperElseTheCustomCode) {
  struct Case {
    double Width, Height;  // points
    std::int16_t Code;
  };
  for (const Case& c : {Case{595, 842, 9}, Case{612, 792, 1}, Case{600, 845, 9}, Case{842, 595, cups::kPaperUser},
                        Case{400, 400, cups::kPaperUser}}) {
    SCOPED_TRACE(std::to_string(c.Width) + " x " + std::to_string(c.Height));
    const unsigned w = static_cast<unsigned>(c.Width * 300 / 72), h = static_cast<unsigned>(c.Height * 300 / 72);
    const PagePlan plan = Plan(PageHeader(w, h, 300, CUPS_CSPACE_RGB, c.Width, c.Height));
    EXPECT_EQ(plan.Setup.PaperSize, c.Code);
    EXPECT_EQ(plan.Warnings.size(), c.Code == cups::kPaperUser ? 1u : 0u);
  }
}

TEST(PagePlan, PlacesThePrintableAreaInTheRaster) {
  const host::PrintableArea area = host::PrintableAreaOf(*host::FindPaper("a4"), 600);
  // The raster is the whole sheet: the printable area starts at the margins.
  PagePlan plan = Plan(PageHeader(4960, 7016, 600, CUPS_CSPACE_RGB, 595, 842));
  EXPECT_EQ(plan.OffsetX, area.Left);
  EXPECT_EQ(plan.OffsetY, area.Top);
  EXPECT_EQ(plan.Setup.PageWidth, area.Width);
  EXPECT_EQ(plan.Setup.PageHeight, area.Height);
  EXPECT_EQ(plan.Setup.Quality, 600);
  // The raster is only the imaging box (10, 20)-(585, 830) points: it starts at the box's corner.
  cups_page_header2_t header = PageHeader(4792, 6750, 600, CUPS_CSPACE_RGB, 595, 842);
  header.cupsImagingBBox[0] = 10, header.cupsImagingBBox[1] = 20;
  header.cupsImagingBBox[2] = 585, header.cupsImagingBBox[3] = 830;
  plan = Plan(header);
  EXPECT_EQ(plan.OffsetX, static_cast<std::int64_t>(area.Left) - 83);  // 10 pt at 600 dpi
  EXPECT_EQ(plan.OffsetY, static_cast<std::int64_t>(area.Top) - 100);  // 12 pt
  // A whole-sheet raster whose imaging box is near the full width is still the whole sheet.
  header = PageHeader(4960, 7016, 600, CUPS_CSPACE_RGB, 595, 842);
  header.cupsImagingBBox[0] = 3, header.cupsImagingBBox[1] = 3;
  header.cupsImagingBBox[2] = 594, header.cupsImagingBBox[3] = 839;
  plan = Plan(header);
  EXPECT_EQ(plan.OffsetX, area.Left);
  EXPECT_EQ(plan.OffsetY, area.Top);
}

// Headers libcups takes but the filter cannot print, hostile ones among them: each refused with a message
// naming the cause (the filter writes it as the page's error), with no undefined arithmetic on the way
// (the sanitizers see a negative length made unsigned, an out-of-range float made integer, or an
// enumeration loaded with a value it does not hold).
TEST(PagePlan, RefusesHeadersItCannotPlan) {
  const auto refusal = [](auto change) {
    cups_page_header2_t header = PageHeader(1200, 1754, 150, CUPS_CSPACE_RGB, 595, 842);
    change(header);
    auto planned = cups::PlanPage(header, {});
    const std::string* message = std::get_if<std::string>(&planned);
    return message ? *message : std::string("planned");
  };
  struct Case {
    const char* name;
    std::function<void(cups_page_header2_t&)> change;
    const char* expect;
  } cases[] = {
      {"sheet narrower than its margins", [](auto& h) { h.cupsPageSize[0] = 10; }, "leaves no printable area"},
      {"sheet lower than its margins", [](auto& h) { h.cupsPageSize[1] = 20; }, "leaves no printable area"},
      {"imaging box reaching past any sheet",  // the raster is the box: its top gives the raster's place
       [](auto& h) {
         h.cupsImagingBBox[0] = 10, h.cupsImagingBBox[2] = 586;  // as wide as the raster
         h.cupsImagingBBox[3] = 1e30f;
       },
       "Imaging box"},
      {"colour space out of range",
       [](auto& h) {
         const unsigned space = 0x7FFFFFFF;  // as a stream may hold it: no enumerator has it
         std::memcpy(&h.cupsColorSpace, &space, sizeof space);
       },
       "colour space 2147483647"},
      {"bytes per line", [](auto& h) { h.cupsBytesPerLine += 3; }, "3603 bytes per line"},
      {"16-bit",
       [](auto& h) {
         h.cupsBitsPerColor = 16;
         h.cupsBitsPerPixel = 48;
         h.cupsBytesPerLine *= 2;
       },
       "16 bits per colour"},
      {"CMYK",
       [](auto& h) {
         h.cupsColorSpace = CUPS_CSPACE_CMYK;
         h.cupsBitsPerPixel = 32;
         h.cupsBytesPerLine = 1200 * 4;
       },
       "colour space 6"},
      {"200 dpi", [](auto& h) { h.HWResolution[0] = h.HWResolution[1] = 200; }, "resolution 200x200"},
      {"uneven dpi", [](auto& h) { h.HWResolution[1] = 300; }, "resolution 150x300"},
      {"colour order out of range",
       [](auto& h) {
         const unsigned order = 0xFFFFFFFF;
         std::memcpy(&h.cupsColorOrder, &order, sizeof order);
       },
       "colour order 4294967295"},
  };
  for (const Case& c : cases) EXPECT_NE(refusal(c.change).find(c.expect), std::string::npos) << c.name;
}

TEST(PagePlan, CutsAPageWiderThanTheHeadAndWarns) {
  const PagePlan plan = Plan(PageHeader(5409, 7653, 600, CUPS_CSPACE_RGB, 649, 918));  // envelope C4
  EXPECT_EQ(plan.Setup.PaperSize, 30);
  EXPECT_EQ(plan.Setup.PageWidth, host::kMaxLineDots);
  ASSERT_EQ(plan.Warnings.size(), 1u);
  EXPECT_NE(plan.Warnings[0].find("cut off"), std::string::npos);
}

// What the whole chain prints (the queue test) leaves out: a mode the page cannot have, a paper type
// the plug-in does not know; each is replaced and warned of. (Colour, gray and the paper types that
// print: the filter and queue tests.)
TEST(PagePlan, WarnsOfMediaAndHighResolutionItCannotGive) {
  struct Case {
    unsigned Dpi;
    const char* Media;
    HighRes Mode;
    std::uint32_t Callback;
    bool High;
  } cases[] = {
      {300, "Glossy", HighRes::Print1200, host::kCallbackMediaGlossy, false},  // high resolution needs 600 dpi
      {600, "photographic", HighRes::HighRes600, host::kCallbackMediaPhoto, true},
      {600, "Cardboard", HighRes::Off, host::kCallbackMediaPlain, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Media);
    cups_page_header2_t header = PageHeader(c.Dpi * 595 / 72, c.Dpi * 842 / 72, c.Dpi, CUPS_CSPACE_RGB, 595, 842);
    std::strcpy(header.MediaType, c.Media);
    const PagePlan plan = Plan(header, {host::Halftone::Dither, c.Mode});
    EXPECT_EQ(plan.MediaCallback, c.Callback);
    EXPECT_EQ(plan.HighResolution, c.High);
    EXPECT_EQ(plan.Warnings.size(), c.High ? 0u : 1u);
  }
}

TEST(JobOptions, TakeThePpdDefaultsUnderTheJobsOptions) {
  TempDir dir("options");
  std::string ppd = ReadText(INKWEAVE_PPD_EN_PATH);
  for (auto [from, to] : {std::pair{"*DefaultInkweaveHalftone: Dither", "*DefaultInkweaveHalftone: Diffusion"},
                          std::pair{"*DefaultInkweaveHighRes: Off", "*DefaultInkweaveHighRes: HighRes600"}}) {
    const auto at = ppd.find(from);
    ASSERT_NE(at, std::string::npos);
    ppd.replace(at, std::strlen(from), to);
  }
  std::ofstream(dir / "queue.ppd") << ppd;
  const std::string path = dir / "queue.ppd";

  std::vector<std::string> warnings;
  cups::JobOptions options = cups::ReadJobOptions(path.c_str(), "", &warnings);
  EXPECT_EQ(options.Method, host::Halftone::Diffusion);
  EXPECT_EQ(options.Resolution, HighRes::HighRes600);
  // A queue set up with an earlier PPD may still send the mode it no longer offers; choices in any case.
  options = cups::ReadJobOptions(path.c_str(), "InkweaveHighRes=Print1200 InkweaveHalftone=dither", &warnings);
  EXPECT_EQ(options.Method, host::Halftone::Dither);
  EXPECT_EQ(options.Resolution, HighRes::Print1200);
  EXPECT_TRUE(warnings.empty());

  options = cups::ReadJobOptions((dir / "missing.ppd").c_str(), "InkweaveHighRes=Bogus", &warnings);
  EXPECT_EQ(options.Method, host::Halftone::Dither);
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_NE(warnings[0].find("Unable to read the PPD"), std::string::npos);
  EXPECT_NE(warnings[1].find("\"Bogus\" (Off, HighRes600"), std::string::npos) << warnings[1];
}

}  // namespace
}  // namespace inkweave::cupstest
