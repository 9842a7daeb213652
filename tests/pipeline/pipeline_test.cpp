// The band driver where printed pages do not reach it, seen through recording stand-ins for the stages
// around it: page set-up at the origin after an abandoned page, the landscape cut past the page end, the
// row units of one-bit bands and the bands the device refuses. (Stripes, blank bands, the final call,
// plane clearing, gray bands, the renderer each print mode gets, dither forced to diffusion at level 6,
// the diffusion flag and the seeding on printed pages are pinned by the whole-stream suite.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/spool.h"
#include "src/color/color.h"
#include "src/device/device_setup.h"
#include "src/halftone/halftone.h"
#include "src/pipeline/band_driver.h"
#include "src/pipeline/renderer_selection.h"
#include "src/raster/raster.h"

namespace inkweave {
namespace {

// What the stand-ins were asked, in order.
struct Log {
  struct Renderer {
    std::string Name;
    int Width, LineCount, RowPixels;
  };
  std::vector<Renderer> Renderers;
  std::vector<std::pair<int, std::uint16_t>> Emits;  // stripe height, the stripe flag the emitter saw
  int ColorLutSelections = 0;
  std::int16_t LastPurpose = 0;
  int ToneCurveBuilds = 0;
};

Log& Calls() {
  static Log log;
  return log;
}

}  // namespace

// The stages around the band driver, linked in place of the real ones.
#define FAKE_RENDERER(name)                                                                            \
  std::uint32_t name(DeviceState&, int, int width, const BandInfo&, int lineCount, int, int rowPixels, \
                     const IPPARAMS*) {                                                                \
    Calls().Renderers.push_back({#name, width, lineCount, rowPixels});                                 \
    return 0;                                                                                          \
  }
FAKE_RENDERER(DitherColorPortrait)
FAKE_RENDERER(DitherColorLandscape)
FAKE_RENDERER(DitherGrayPortrait)
FAKE_RENDERER(DitherGrayLandscape)
FAKE_RENDERER(DiffuseLowPortrait)
FAKE_RENDERER(DiffuseLowLandscape)
FAKE_RENDERER(DiffuseMidPortrait)
FAKE_RENDERER(DiffuseMidLandscape)
FAKE_RENDERER(DiffuseHighPortrait)
FAKE_RENDERER(DiffuseHighLandscape)
FAKE_RENDERER(DiffuseTopPortrait)
FAKE_RENDERER(DiffuseTopLandscape)
#undef FAKE_RENDERER

void SeedDiffusionLines(DeviceState&, int, int) {}

const std::uint8_t* SelectColorLut(DeviceState&, std::int16_t purpose) {
  static const std::uint8_t table[4] = {};
  ++Calls().ColorLutSelections;
  Calls().LastPurpose = purpose;
  return table;
}

void BuildToneCurves(DeviceState&) { ++Calls().ToneCurveBuilds; }

void EmitStripe(DEVOBJ* devobj, int stripeHeight, const BandInfo&, std::int16_t, IPrintOemDriverUni*) {
  Calls().Emits.push_back({stripeHeight, StateOf(devobj)->StripeFlag});
}

namespace {

struct Page {
  DEVMODEW devmode{};
  GDIINFO gdi{};
  DEVOBJ devobj{};
  host::SpoolService spool;
  std::vector<std::uint8_t> bits;

  Page(std::uint32_t width, std::uint32_t height, bool landscape = false, std::int16_t quality = 300) {
    Calls() = Log{};
    devmode.dmPrintQuality = quality;
    devmode.dmOrientation = landscape ? DMORIENT_LANDSCAPE : DMORIENT_PORTRAIT;
    devmode.dmColor = DMCOLOR_COLOR;
    devmode.dmPaperSize = DMPAPER_A4;
    gdi.ulHorzRes = landscape ? height : width;
    gdi.ulVertRes = landscape ? width : height;
    devobj.pPublicDM = &devmode;
    void* out = nullptr;
    EXPECT_EQ(EnableDevice(&devobj, &gdi, &out), S_OK);
    devobj.pdevOEM = out;
    bits.assign(1 << 20, 0x80);
  }
  ~Page() { DisableDevice(&devobj); }
  DeviceState& state() { return *StateOf(&devobj); }

  // Hands a band of w x h pixels at (x, y).
  void Band(int w, int h, int x, int y, std::uint16_t bitCount = 24) {
    BITMAPINFOHEADER header{40, w, h, 1, bitCount, 0, 0, 0, 0, 0, 0};
    IPPARAMS params{sizeof(IPPARAMS), {x, y}, nullptr, 0, 0};
    ProcessBand(&devobj, bits.data(), &header, nullptr, 0, &params, spool.Interface());
  }
};

TEST(BandDriver, PageSetUpOnlyAtTheOrigin) {
  Page page(100, 64);
  // What an abandoned page left: a later stripe, rows in a pass, ink seen.
  page.state().StripeFlag = kStripeLater;
  page.state().StripeBuffers[1].RowsFilled = 9;
  page.state().StripeBuffers[1].WritePos += 7;
  page.state().PageInkSeen = 1;
  page.Band(100, 32, 0, 0);
  EXPECT_EQ(Calls().ColorLutSelections, 1);
  EXPECT_EQ(Calls().LastPurpose, 2) << "dither asks for the dither table";
  EXPECT_EQ(Calls().ToneCurveBuilds, 1);
  EXPECT_EQ(page.state().StripeBuffers[1].RowsFilled, 0);
  EXPECT_EQ(page.state().StripeBuffers[1].WritePos, page.state().StripeBuffers[1].BufferStart);
  EXPECT_EQ(page.state().PageInkSeen, 0);
  EXPECT_EQ(Calls().Emits[0].second, 1) << "the first stripe of the page";
  EXPECT_EQ(Calls().Emits[1].second, 0);
  page.Band(100, 32, 0, 32);
  EXPECT_EQ(Calls().ColorLutSelections, 1);
  EXPECT_EQ(Calls().ToneCurveBuilds, 1);

  page.state().HalftoneMethod = 2;
  page.Band(100, 32, 0, 0);
  EXPECT_EQ(Calls().LastPurpose, 1) << "error diffusion asks for its own table";
}

TEST(BandDriver, LandscapeCutsTheBandToThePage) {
  // Portrait page 100 wide, 40 high; landscape bands are vertical slices 100 pixels high.
  Page page(100, 40, /*landscape=*/true);
  page.Band(48, 100, 0, 0);  // 48 columns, but the page ends at 40
  std::vector<int> lines;
  for (const auto& r : Calls().Renderers) lines.push_back(r.LineCount);
  EXPECT_EQ(lines, (std::vector<int>{16, 16, 8}));
  EXPECT_EQ(Calls().Renderers[0].Name, "DitherColorLandscape");
  EXPECT_EQ(Calls().Renderers[0].Width, 100) << "landscape rows are the band's height";
  ASSERT_EQ(Calls().Emits.back().first, 0) << "the cut band ends the page";
  EXPECT_EQ(page.state().BandOffset, 0u);
  page.Band(16, 100, 24, 0);
  EXPECT_EQ(page.state().BandOffset, 24u);
}

TEST(BandDriver, RowUnitsOfOneBitBands) {
  // Bytes per row of a 1-bit band: a partial last byte, and a width of whole bytes.
  for (const auto& [pixels, bytes] : {std::pair{100, 13}, std::pair{96, 12}, std::pair{8, 1}}) {
    Page page(100, 1000);
    page.Band(pixels, 16, 0, 0, 1);
    EXPECT_EQ(Calls().Renderers[0].Width, bytes) << pixels;
    EXPECT_EQ(Calls().Renderers[0].RowPixels, pixels);
  }
}

// Each band against a 100 x 1000 page (portrait and landscape): whether the plug-in takes it. The band's
// end along the output lines must stay a 32-bit offset, or the driver's sums would overflow.
TEST(BandDriver, BandsTheDeviceCannotTake) {
  constexpr std::int32_t kMax = INT32_MAX;
  struct Case {
    bool landscape;
    std::int32_t width, height;
    std::uint16_t bitCount;
    std::int32_t x, y;
    bool fits;
  } cases[] = {
      {false, 100, 16, 24, 0, 0, true},          {false, 101, 16, 24, 0, 0, false},  // wider than the page
      {false, 100, 16, 16, 0, 0, false},         {false, 0, 16, 1, 0, 0, false},
      {false, 100, 16, 8, 0, -16, false},        {false, 100, 16, 24, 0, kMax - 16, true},
      {false, 100, 16, 24, 0, kMax - 15, false}, {false, 100, kMax, 24, 0, 1, false},
      {true, 16, 100, 24, 0, 0, true},           {true, 16, 100, 24, kMax - 16, 0, true},
      {true, 64, 100, 24, kMax - 10, 0, false},  // the huge x offset of a hostile host
      {true, kMax, 100, 24, 1, 0, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << (c.landscape ? "landscape " : "portrait ") << c.width << " x " << c.height
                                      << " at (" << c.x << ", " << c.y << "), " << c.bitCount << " bits");
    Page page(100, 1000, c.landscape);
    const BITMAPINFOHEADER header{40, c.width, c.height, 1, c.bitCount, 0, 0, 0, 0, 0, 0};
    IPPARAMS params{};
    params.ptOffset = {c.x, c.y};
    EXPECT_EQ(BandFitsDevice(&page.devobj, header, params), c.fits);
  }
  Page widest(5120, 100);
  const BITMAPINFOHEADER header{40, 5120, 16, 1, 24, 0, 0, 0, 0, 0, 0};
  EXPECT_TRUE(BandFitsDevice(&widest.devobj, header, IPPARAMS{}));
}

}  // namespace
}  // namespace inkweave
