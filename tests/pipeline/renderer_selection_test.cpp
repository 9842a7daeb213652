// Renderer selection: the halftone method in force, the flag and the immediate ink-mode command, the
// renderer table row by row, and the seeding of the error lines while the page has no dot.
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

TEST(RendererSelection, DiffusionAt150KeepsTheModeUnflagged) {
  Selection s(2, 1);
  s.Select();
  EXPECT_EQ(s.state.PrintMode, 1);
  EXPECT_TRUE(s.spool.Writes().empty());
  EXPECT_EQ(s.chosen, &DiffuseLowPortrait);
  EXPECT_EQ(s.state.ActiveHalftone, 2);
}

TEST(RendererSelection, DiffusionFlagsTheModeAndSendsTheInkModeOnEveryBand) {
  for (std::uint8_t level : {2, 4}) {
    Selection s(2, level);
    s.Select();
    EXPECT_EQ(s.state.PrintMode, 32 + level);
    ASSERT_EQ(s.spool.Writes().size(), 1u);
    EXPECT_EQ(s.spool.Writes()[0].Bytes, Hex("49 31"));
    EXPECT_EQ(s.state.InkModeCode, 0x31);
    EXPECT_EQ(s.chosen, level == 2 ? &DiffuseMidPortrait : &DiffuseHighPortrait);
    s.Select();
    EXPECT_EQ(s.spool.Writes().size(), 2u) << "sent again although the flag is already set";
  }
  Selection mono(2, 18);
  mono.Select();
  EXPECT_EQ(mono.state.PrintMode, 50);
  EXPECT_EQ(mono.spool.Writes()[0].Bytes, Hex("49 30"));
  EXPECT_EQ(mono.chosen, &DiffuseMidPortrait);
}

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

TEST(RendererSelection, SeedingOnlyUnderDiffusionAndWhileThePageHasNoDot) {
  Selection s(2, 34);
  s.Select();
  s.Select();
  EXPECT_EQ(fakes::Calls().Seeds.size(), 2u) << "blank leading bands are re-seeded";
  EXPECT_EQ(fakes::Calls().Seeds[0].Width, 640);
  s.state.PageInkSeen = 1;
  s.Select();
  EXPECT_EQ(fakes::Calls().Seeds.size(), 2u);

  Selection dither(1, 2);
  dither.Select();
  EXPECT_TRUE(fakes::Calls().Seeds.empty());
  EXPECT_EQ(dither.chosen, &DitherColorPortrait);
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
