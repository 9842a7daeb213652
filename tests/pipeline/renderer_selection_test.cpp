// Renderer selection over the whole print-mode byte, row by row, and where printed pages do not reach it:
// dither forced to diffusion at level 6 in landscape, and halftone values other than dither and diffusion.
// (The flag, the ink-mode command and the seeding on printed pages are pinned by the whole-stream suite.)
#include <gtest/gtest.h>

#include "host/spool.h"
#include "src/halftone/halftone.h"
#include "src/pipeline/renderer_selection.h"
#include "tests/pipeline/fake_stages.h"
#include "tests/support/bytes.h"

namespace inkweave {
namespace {

using testing::Hex;

TEST(RendererTable, RowByRow) {
  struct Row {
    std::uint8_t active;
    std::uint8_t mode;
    int bits;
    BandRendererFn portrait;
    BandRendererFn landscape;
  };
  const Row rows[] = {
      // Dither, unflagged: level 6 is diffused; otherwise colour or gray by the bit count.
      {1, 6, 24, &DiffuseTopPortrait, &DiffuseTopLandscape},
      {1, 22, 8, &DiffuseTopPortrait, &DiffuseTopLandscape},
      {1, 2, 24, &DitherColorPortrait, &DitherColorLandscape},
      {1, 18, 24, &DitherColorPortrait, &DitherColorLandscape},  // monochrome alone is not flagged
      {1, 4, 8, &DitherGrayPortrait, &DitherGrayLandscape},
      {1, 1, 1, &DitherGrayPortrait, &DitherGrayLandscape},
      // Dither, flagged: the simple renderers at any level.
      {1, 38, 24, &DitherColorPortrait, &DitherColorLandscape},
      {1, 34, 8, &DitherGrayPortrait, &DitherGrayLandscape},
      {1, 64 + 6, 24, &DitherColorPortrait, &DitherColorLandscape},  // bit 64 counts as a flag
      // Error diffusion.
      {2, 6, 24, &DiffuseTopPortrait, &DiffuseTopLandscape},
      {2, 2, 24, &DiffuseLowPortrait, &DiffuseLowLandscape},
      {2, 20, 8, &DiffuseLowPortrait, &DiffuseLowLandscape},
      {2, 33, 24, &DiffuseLowPortrait, &DiffuseLowLandscape},
      {2, 32, 24, &DiffuseMidPortrait, &DiffuseMidLandscape},
      {2, 34, 24, &DiffuseMidPortrait, &DiffuseMidLandscape},
      {2, 35, 8, &DiffuseMidPortrait, &DiffuseMidLandscape},
      {2, 36, 24, &DiffuseHighPortrait, &DiffuseHighLandscape},
      {2, 37, 24, &DiffuseHighPortrait, &DiffuseHighLandscape},
      {2, 38, 24, &DiffuseTopPortrait, &DiffuseTopLandscape},
      {2, 39, 24, &DiffuseMidPortrait, &DiffuseMidLandscape},
      {2, 47, 24, &DiffuseMidPortrait, &DiffuseMidLandscape},
      {0, 2, 24, nullptr, nullptr},
      {3, 36, 24, nullptr, nullptr},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(ChooseBandRenderer(r.active, r.mode, r.bits, false), r.portrait)
        << "active " << int{r.active} << " mode " << int{r.mode} << " bits " << r.bits;
    EXPECT_EQ(ChooseBandRenderer(r.active, r.mode, r.bits, true), r.landscape)
        << "landscape, active " << int{r.active} << " mode " << int{r.mode};
  }
}

struct Selection {
  DeviceState state{};
  DEVOBJ devobj{};
  host::SpoolService spool;
  BandInfo band{};
  BandRendererFn chosen = nullptr;  // what the last selection answered
  Selection(std::uint8_t halftone, std::uint8_t mode, bool landscape = false) {
    fakes::Reset();
    state.HalftoneMethod = halftone;
    state.PrintMode = mode;
    state.Landscape = landscape ? 1 : 0;
    devobj.pdevOEM = &state;
    band.Header.biWidth = 640;
    band.Header.biHeight = 48;
    band.Header.biBitCount = 24;
  }
  void Select() { chosen = SelectBandRenderer(&devobj, band, spool.Interface()); }
};

TEST(RendererSelection, DitherAtLevelSixBecomesDiffusionAndSeedsDoubleWidth) {
  Selection s(1, 6, /*landscape=*/true);
  s.Select();
  EXPECT_EQ(s.state.ActiveHalftone, 2);
  EXPECT_EQ(s.chosen, &DiffuseTopLandscape);
  ASSERT_EQ(fakes::Calls().Seeds.size(), 1u);
  EXPECT_EQ(fakes::Calls().Seeds[0].Width, 2 * 48) << "landscape scans across the band's height, doubled";
  EXPECT_EQ(fakes::Calls().Seeds[0].Count, 4);
  EXPECT_TRUE(s.spool.Writes().empty());
  s.Select();  // and back: the next band asks for dither and is forced again
  EXPECT_EQ(s.state.ActiveHalftone, 2);
}

TEST(RendererSelection, OtherHalftoneValuesKeepTheMethodInForce) {
  Selection s(7, 2);
  s.state.ActiveHalftone = 2;
  s.Select();
  EXPECT_EQ(s.state.ActiveHalftone, 2);
  EXPECT_EQ(s.chosen, &DiffuseLowPortrait);
  s.state.ActiveHalftone = 0;
  s.Select();
  EXPECT_EQ(s.chosen, nullptr) << "no renderer for a halftone in force other than 1 and 2";
}

}  // namespace
}  // namespace inkweave
