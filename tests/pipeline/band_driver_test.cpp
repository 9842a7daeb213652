// The band driver's sequencing where printed pages do not reach it, seen through recording stand-ins:
// page set-up at the origin after an abandoned page, blank bands, the landscape cut past the page end,
// the single final call, the row units of one-bit bands and the bands the device refuses. (Stripes,
// plane clearing and gray bands are pinned by the whole-stream suite.)
#include <gtest/gtest.h>

#include <vector>

#include "host/spool.h"
#include "src/device/device_setup.h"
#include "src/pipeline/band_driver.h"
#include "tests/pipeline/fake_stages.h"

namespace inkweave {
namespace {

using fakes::Calls;

struct Page {
  DEVMODEW devmode{};
  GDIINFO gdi{};
  DEVOBJ devobj{};
  host::SpoolService spool;
  std::vector<std::uint8_t> bits;

  Page(std::uint32_t width, std::uint32_t height, bool landscape = false, std::int16_t quality = 300) {
    fakes::Reset();
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
  void Band(int w, int h, int x, int y, bool blank = false, std::uint16_t bitCount = 24) {
    BITMAPINFOHEADER header{};
    header.biSize = 40;
    header.biWidth = w;
    header.biHeight = h;
    header.biBitCount = bitCount;
    IPPARAMS params{};
    params.ptOffset = {x, y};
    params.bBlankBand = blank ? 1 : 0;
    ProcessBand(&devobj, bits.data(), &header, nullptr, 0, &params, spool.Interface());
  }
};

std::vector<int> RenderedLines(const fakes::Log& log) {
  std::vector<int> v;
  for (const auto& r : log.Renderers) v.push_back(r.LineCount);
  return v;
}

TEST(BandDriver, BlankBandStillEmitsEveryStripe) {
  Page page(100, 1000);
  page.Band(100, 48, 0, 0, /*blank=*/true);
  EXPECT_TRUE(Calls().Renderers.empty());
  ASSERT_EQ(Calls().Emits.size(), 3u);
  for (const auto& e : Calls().Emits) EXPECT_EQ(e.InkFlag, 0);
}

TEST(BandDriver, PageSetUpOnlyAtTheOrigin) {
  Page page(100, 64);
  // What an abandoned page left: rows in a pass, ink seen.
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
  EXPECT_EQ(Calls().Emits[0].StripeFlag, 1) << "the first stripe of the page";
  EXPECT_EQ(Calls().Emits[1].StripeFlag, 0);
  page.Band(100, 32, 0, 32);
  EXPECT_EQ(Calls().ColorLutSelections, 1);
  EXPECT_EQ(Calls().ToneCurveBuilds, 1);

  page.state().HalftoneMethod = 2;
  page.Band(100, 32, 0, 0);
  EXPECT_EQ(Calls().LastPurpose, 1) << "error diffusion asks for its own table";
}

TEST(BandDriver, ExactlyOneFinalCallWhereTheBandMeetsThePageEnd) {
  Page page(100, 40);
  page.Band(100, 32, 0, 0);
  EXPECT_EQ(Calls().Emits.size(), 2u);
  page.Band(100, 8, 0, 32);
  ASSERT_EQ(Calls().Emits.size(), 4u);
  const auto& final = Calls().Emits.back();
  EXPECT_EQ(final.StripeHeight, 0);
  EXPECT_EQ(final.InkFlag, 1);
  EXPECT_EQ(final.StripeFlag, 2);
  EXPECT_EQ(page.state().StripeFlag, 1);

  // A page whose bands never end exactly at its height gets no final call.
  Page other(100, 40);
  other.Band(100, 48, 0, 0);
  for (const auto& e : Calls().Emits) EXPECT_NE(e.StripeHeight, 0);
}

TEST(BandDriver, LandscapeClearsTheFirstPlaneAndCutsTheBandToThePage) {
  // Portrait page 100 wide, 40 high; landscape bands are vertical slices 100 pixels high.
  Page page(100, 40, /*landscape=*/true);
  Calls().Answers = {1, 1, 1};
  page.state().PlaneBuffer[1][0] = 0x55;
  page.Band(48, 100, 0, 0);  // 48 columns, but the page ends at 40
  EXPECT_EQ(RenderedLines(Calls()), (std::vector<int>{16, 16, 8}));
  EXPECT_EQ(Calls().Renderers[0].Name, "DitherColorLandscape");
  EXPECT_EQ(Calls().Renderers[0].Width, 100) << "landscape rows are the band's height";
  EXPECT_EQ(page.state().PlaneBuffer[0][0], 0);
  EXPECT_EQ(page.state().PlaneBuffer[1][0], 0x55) << "only the first plane buffer is cleared";
  ASSERT_EQ(Calls().Emits.back().StripeHeight, 0) << "the cut band ends the page";
  EXPECT_EQ(page.state().BandOffset, 0u);
  page.Band(16, 100, 24, 0);
  EXPECT_EQ(page.state().BandOffset, 24u);
}

TEST(BandDriver, RowUnitsOfOneBitBands) {
  // Bytes per row of a 1-bit band: a partial last byte, and a width of whole bytes.
  for (const auto& [pixels, bytes] : {std::pair{100, 13}, std::pair{96, 12}, std::pair{8, 1}}) {
    Page page(100, 1000);
    page.Band(pixels, 16, 0, 0, false, 1);
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
      {false, 100, 16, 24, 0, 0, true},
      {false, 101, 16, 24, 0, 0, false},  // wider than the page
      {false, 100, 16, 16, 0, 0, false},
      {false, 100, 0, 8, 0, 0, false},
      {false, 0, 16, 1, 0, 0, false},
      {false, 100, 16, 8, 0, -16, false},
      {false, 100, 16, 8, -1, 0, false},
      {false, 100, 16, 24, 0, kMax - 16, true},
      {false, 100, 16, 24, 0, kMax - 15, false},
      {false, 100, kMax, 24, 0, 1, false},
      {true, 16, 100, 24, 0, 0, true},
      {true, 16, 101, 24, 0, 0, false},
      {true, 16, 100, 24, kMax - 16, 0, true},
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
