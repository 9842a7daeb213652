// The one-bit diffusion pair against the plain reference, and its edge cases: white stripes, the
// floors, amounts 0 and 255, the unstored partial byte, the map rows past 127, the ink split.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <random>

#include "src/data/tables.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/diffusion.h"
#include "src/halftone/halftone.h"
#include "tests/diffusion/diffusion_support.h"
#include "tests/reference/diffusion_reference.h"

namespace inkweave {
namespace {

using testing::DiffusionDevice;
using testing::MakeBand;
using testing::MakeDiffusionDevice;
using testing::RenderStripe;

BandRendererFn LowRenderer(bool landscape) { return landscape ? &DiffuseLowLandscape : &DiffuseLowPortrait; }

// Several bands of several stripes each (the last one short), error carried throughout; both devices
// start from the same seeded error lines and stale plane bytes.
TEST(DiffuseLow, MatchesTheReferenceOnRandomBandsInBothOrientations) {
  std::mt19937 rng(20240611);
  for (const bool landscape : {false, true}) {
    for (const int across : {1, 7, 8, 13, 64, 333}) {
      for (const bool colour : {false, true}) {
        auto fast = MakeDiffusionDevice(400, 300, colour ? 2 : 1, colour ? 2 : 1, static_cast<std::int16_t>(rng() % 6));
        auto slow = MakeDiffusionDevice(400, 300, colour ? 2 : 1, colour ? 2 : 1, fast->State.MediaType);
        // A gray curve that does not keep white white shows whether white reaches the conversion.
        for (int i = 0; i < 256; ++i)
          fast->Curves[5 * 256 + i] = fast->Curves[4 * 256 + i] = static_cast<std::uint8_t>(i * 7 / 8 + 16);
        slow->Curves = fast->Curves;
        SeedDiffusionLines(fast->State, 4, across);
        for (auto& b : fast->Planes) {
          for (auto& byte : b) byte = static_cast<std::uint8_t>(rng());
        }
        testing::CopyDiffusionState(*fast, *slow);
        std::int32_t position = static_cast<std::int32_t>(rng() % 200);
        for (int bandNo = 0; bandNo < 3; ++bandNo) {
          const int lines = 16 * 2 + 5;
          auto band = landscape ? MakeBand(lines, across, testing::RandomRuns(rng()))
                                : MakeBand(across, lines, testing::RandomRuns(rng()));
          for (int y = 0; y < lines - 1; y += 16) {
            const int rows = lines < y + 16 ? lines - y : 16;
            const std::uint32_t got = RenderStripe(LowRenderer(landscape), *fast, *band, landscape, y, rows, position);
            const std::uint32_t want = reference::DiffuseLowReference(slow->State, y, across, band->Info, rows, 0,
                                                                      across, position, landscape);
            ASSERT_EQ(got, want);
            for (int j = 0; j < 4; ++j) ASSERT_EQ(fast->Lines[j], slow->Lines[j]) << "error line " << j;
            ASSERT_EQ(fast->Planes[0], slow->Planes[0]) << "landscape " << landscape << " across " << across;
          }
          position += lines;
        }
      }
    }
  }
}

// The error of a lone pixel lands in cell x (the pixel two behind), so one-pixel lines show it.
struct LonePixel {
  int Error;
  std::uint32_t Dot;
};

LonePixel RenderLonePixel(DiffusionDevice& d, const testing::TestBand& band, int x, int ink, int incoming) {
  for (auto& line : d.Lines) std::fill(line.begin(), line.end(), 0);
  d.Lines[ink][x + 2] = static_cast<std::int16_t>(incoming);
  IPPARAMS params{};
  const std::uint32_t dot = DiffuseLowPortrait(d.State, 0, 1, band.Info, 1, x, 1, &params);
  return {d.Lines[ink][x], dot};
}

TEST(DiffuseLow, AmountsZeroAndFullMoveTheErrorTowardTheFloorWhateverItIs) {
  auto d = MakeDiffusionDevice(600, 300, 1);
  auto white = MakeBand(300, 1, testing::Flat(255, 255, 255));
  auto black = MakeBand(300, 1, testing::Flat(0, 0, 0));
  for (int x = 0; x < 256; ++x) {
    for (int incoming = -3000; incoming <= 3000; incoming += 97) {
      const int ink = x % 4;
      const int v = incoming / 8;
      const int floor = DiffusionSeedErrors[(4 * x + ink) % 256];
      const LonePixel w = RenderLonePixel(*d, *white, x, ink, incoming);
      ASSERT_EQ(w.Error, v <= floor ? std::min(v + 16, 0) : v - 16) << "x " << x << " error " << incoming;
      ASSERT_EQ(w.Dot, 0u);
      // Black ink 255: always a dot, then v - 255 + 255 moved 16 toward the floor (no clamp).
      const int blackFloor = DiffusionSeedErrors[(4 * x + 3) % 256];
      const LonePixel k = RenderLonePixel(*d, *black, x, 3, incoming);
      ASSERT_EQ(k.Error, v > blackFloor ? v - 16 : v + 16) << "x " << x << " error " << incoming;
      ASSERT_EQ(k.Dot, 1u);
    }
  }
}

TEST(DiffuseLow, WhiteStripeConvertsNothingSetsNothingAndMovesErrorsTowardTheFloor) {
  auto d = MakeDiffusionDevice(200, 300, 1);
  for (int i = 0; i < 256; ++i) d->Curves[5 * 256 + i] = d->Curves[4 * 256 + i] = 0;  // any conversion is black
  auto r = MakeDiffusionDevice(200, 300, 1);
  r->Curves = d->Curves;
  SeedDiffusionLines(d->State, 4, 200);
  testing::CopyDiffusionState(*d, *r);
  auto band = MakeBand(200, 16, testing::Flat(255, 255, 255));
  EXPECT_EQ(RenderStripe(&DiffuseLowPortrait, *d, *band, false, 0, 16, 0), 0u);
  for (const std::uint8_t byte : d->Planes[0]) ASSERT_EQ(byte, 0);
  // Every pixel's error is its incoming error / 8 moved 16 toward the floor, never raised above 0.
  int pixels = 0;
  reference::DiffuseLowReference(r->State, 0, 200, band->Info, 16, 0, 200, 0, false,
                                 [&](long x, int ink, int incoming, int error, bool dot) {
                                   const int v = incoming / 8;
                                   const int floor = DiffusionSeedErrors[(4 * x + ink) % 256];
                                   EXPECT_FALSE(dot);
                                   EXPECT_EQ(error, v <= floor ? std::min(v + 16, 0) : v - 16);
                                   ++pixels;
                                 });
  EXPECT_EQ(pixels, 16 * 200 * 4);
  for (int j = 0; j < 4; ++j) EXPECT_EQ(d->Lines[j], r->Lines[j]);
}

TEST(DiffuseLow, LeftToRightLinesLeaveTheirPartialLastByteUnstored) {
  auto d = MakeDiffusionDevice(64, 300, 1);
  std::fill(d->Planes[0].begin(), d->Planes[0].end(), 0xA5);
  auto band = MakeBand(13, 16, testing::Flat(0, 0, 0));  // black: every black dot set
  ASSERT_EQ(RenderStripe(&DiffuseLowPortrait, *d, *band, false, 0, 16, 0), 1u);
  for (int l = 0; l < 16; ++l) {
    const std::uint8_t* black = &d->Planes[0][kLineBytes * l + kBlackPlane * kPlaneBytes];
    EXPECT_EQ(black[0], 0xFF);
    EXPECT_EQ(black[1], l % 2 == 0 ? 0xA5 : 0xF8) << "line " << l;  // right-to-left lines store it
    EXPECT_EQ(d->Planes[0][kLineBytes * l + kCyanPlane * kPlaneBytes + 1], l % 2 == 0 ? 0xA5 : 0x00)
        << "cyan, line " << l;
  }
}

TEST(DiffuseLow, StripesPastRow127ReadTheFineMapBehindTheMap) {
  // Gray 128 in monochrome: black ink 127 against thresholds that differ between map and fine map.
  auto band = MakeBand(128, 16, testing::Flat(128, 128, 128));
  auto at = [&](std::int32_t position) {
    auto d = MakeDiffusionDevice(128, 300, 1);
    auto r = MakeDiffusionDevice(128, 300, 1);
    RenderStripe(&DiffuseLowPortrait, *d, *band, false, 0, 16, position);
    reference::DiffuseLowReference(r->State, 0, 128, band->Info, 16, 0, 128, position, false);
    EXPECT_EQ(d->Planes[0], r->Planes[0]) << "position " << position;
  };
  // Rows 120..135 and 127..142 continue into the fine map (the reference reads it explicitly).
  at(120);
  at(127);
}

TEST(DiffuseLow, StripeWithoutLinesReturnsAtOnce) {
  auto d = MakeDiffusionDevice(64, 300, 1);
  auto band = MakeBand(64, 16, testing::Flat(0, 0, 0));
  EXPECT_EQ(RenderStripe(&DiffuseLowPortrait, *d, *band, false, 0, 0, 0), 0u);
  EXPECT_EQ(RenderStripe(&DiffuseLowLandscape, *d, *band, true, 0, -3, 0), 0u);
  for (const std::uint8_t byte : d->Planes[0]) ASSERT_EQ(byte, 0);
}

TEST(InkSplit, TableChoiceBlackAndYellowCap) {
  DeviceState s{};
  s.ColorMode = 1;
  EXPECT_EQ(detail::InkSplitTableIndex(s), 8);
  s.ColorMode = 2;
  const struct {
    int code, media, table;
  } cases[] = {{2, 0, 0}, {2, 4, 8}, {1, 5, 8}, {4, 1, 2},  {5, 2, 4}, {4, 3, 6}, {4, 4, 9},
               {4, 0, 1}, {6, 2, 5}, {6, 3, 7}, {6, 5, 10}, {6, 1, 3}, {6, 0, 3}, {9, 3, 0}};
  for (const auto& c : cases) {
    s.PrintMode = static_cast<std::uint8_t>(c.code | 32);
    s.MediaType = static_cast<std::int16_t>(c.media);
    EXPECT_EQ(detail::InkSplitTableIndex(s), c.table) << "code " << c.code << " media " << c.media;
  }
  // Pure black: table 8 all black; the highest-resolution tables black 192 with yellow left.
  const std::uint8_t black[4] = {0, 0, 0, 0};
  const detail::InkAmounts k8 = detail::SplitInks(black, InkSplitTable[8], 255);
  EXPECT_EQ(k8.Amount[0] | k8.Amount[1] | k8.Amount[2], 0);
  EXPECT_EQ(k8.Amount[3], 255);
  for (int t : {3, 5, 7}) {
    const detail::InkAmounts k = detail::SplitInks(black, InkSplitTable[t], 255);
    EXPECT_EQ(k.Amount[3], 192);
    EXPECT_EQ(k.Amount[0] | k.Amount[1], 0);
    EXPECT_GT(k.Amount[2], 0);
  }
  // Yellow never above the cap, whatever the source.
  for (int y = 0; y < 256; y += 5) {
    const std::uint8_t lightness[4] = {255, 255, static_cast<std::uint8_t>(y), 255};
    EXPECT_LE(detail::SplitInks(lightness, InkSplitTable[0], 40).Amount[2], 40);
  }
}

TEST(DiffuseLow, YellowStaysBelowTheCapTakenFromBlack) {
  // A colour table whose black holds only 200 of yellow: pure yellow (amount 255 otherwise, always a
  // dot) is held to 200 and then leaves gaps.
  auto d = MakeDiffusionDevice(256, 300, 2, 2, 0);
  d->Lut[2] = 200;
  auto band = MakeBand(256, 64, testing::Flat(255, 255, 0));
  int dots = 0;
  for (int y = 0; y < 64; y += 16) {
    RenderStripe(&DiffuseLowPortrait, *d, *band, false, y, 16, 0);
    for (int l = 0; l < 16; ++l) {
      for (int b = 0; b < 32; ++b) dots += std::popcount(d->Planes[0][kLineBytes * l + kYellowPlane * kPlaneBytes + b]);
    }
  }
  const double density = dots / (64.0 * 256.0);
  EXPECT_GT(density, 0.70);
  EXPECT_LT(density, 0.86);
}

}  // namespace
}  // namespace inkweave
