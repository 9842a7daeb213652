// The mid, high and top pairs against the plain reference, and the choices their rules leave open:
// the interleaved error rows carried through ScanParity, the guard cells, the stored partial bytes,
// the doubled grid of the top pair; plus the seeding of the error lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "src/data/tables.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"
#include "src/halftone/kernels.h"
#include "tests/diffusion/diffusion_support.h"
#include "tests/reference/diffusion_reference.h"
#include "tests/support/instruction_sets.h"

namespace inkweave {
namespace {

using reference::MultiKind;
using testing::MakeBand;
using testing::MakeDiffusionDevice;
using testing::RenderStripe;

struct Pair {
  MultiKind Kind;
  BandRendererFn Portrait;
  BandRendererFn Landscape;
  std::uint8_t PrintMode;  // a mode that selects the pair
  int StripeLines;
  const char* Name;
};

// White with a colour on every 97th pixel of the band's scan order.
testing::PixelFn SparseColour(std::uint32_t seed) {
  auto rng = std::make_shared<std::mt19937>(seed);
  auto count = std::make_shared<int>(0);
  return [=](int, int, std::uint8_t* p) {
    const bool colour = ++*count % 97 == 0;
    for (int c = 0; c < 3; ++c) p[c] = colour ? static_cast<std::uint8_t>((*rng)() >> 24) : 255;
  };
}

const Pair kPairs[] = {{MultiKind::Mid, &DiffuseMidPortrait, &DiffuseMidLandscape, 32 | 2, 16, "mid"},
                       {MultiKind::High, &DiffuseHighPortrait, &DiffuseHighLandscape, 32 | 4, 16, "high"},
                       {MultiKind::Top, &DiffuseTopPortrait, &DiffuseTopLandscape, 6, 4, "top"}};

TEST(DiffuseMultiLevel, MatchesTheReferenceOnRandomBandsInBothOrientationsOnEveryInstructionSet) {
  testing::ForEachInstructionSet([](InstructionSet) {
    std::mt19937 rng(77);
    for (const Pair& pair : kPairs) {
      for (const bool landscape : {false, true}) {
        for (const int across : {1, 6, 8, 13, 100, 257}) {
          for (const bool colour : {false, true}) {
            const std::int16_t media = static_cast<std::int16_t>(rng() % 6);
            auto fast = MakeDiffusionDevice(300, 600, pair.PrintMode, colour ? 2 : 1, media);
            auto slow = MakeDiffusionDevice(300, 600, pair.PrintMode, colour ? 2 : 1, media);
            SeedDiffusionLines(fast->State, 4, across * (pair.Kind == MultiKind::Top ? 2 : 1));
            // In colour, errors of every size instead of the seed, so that the gathered errors meet
            // each decision's edge.
            if (colour)
              for (auto& line : fast->Lines)
                for (auto& cell : line) cell = static_cast<std::int16_t>(static_cast<int>(rng() % 1201) - 600);
            fast->State.ScanParity = static_cast<std::int16_t>(rng() % 2);
            fast->State.DiffusionCursor = rng() % 1024;
            for (auto& b : fast->Planes) {
              for (auto& byte : b) byte = static_cast<std::uint8_t>(rng());
            }
            testing::CopyDiffusionState(*fast, *slow);
            std::int32_t position = static_cast<std::int32_t>(rng() % 256);
            // Lines that start past the band's first pixel, now and then.
            const int firstPixel = across > 8 ? static_cast<int>(rng() % 3) : 0;
            for (int bandNo = 0; bandNo < 2; ++bandNo) {
              const int lines = pair.StripeLines * 3 + 3;
              // The second band is white but for a sparse grid of colours: white runs between them.
              const testing::PixelFn pixels = bandNo == 0 ? testing::RandomRuns(rng()) : SparseColour(rng());
              auto band = landscape ? MakeBand(lines, across, pixels) : MakeBand(across, lines, pixels);
              for (int y = 0; y < lines - 1; y += pair.StripeLines) {
                const int rows = std::min(pair.StripeLines, lines - y);
                const auto got = RenderStripe(landscape ? pair.Landscape : pair.Portrait, *fast, *band, landscape, y,
                                              rows, position, firstPixel);
                const auto want =
                    reference::DiffuseMultiReference(pair.Kind, slow->State, y, across, band->Info, rows, firstPixel,
                                                     across - firstPixel, position, landscape);
                ASSERT_EQ(got, want) << pair.Name;
                ASSERT_EQ(fast->State.ScanParity, slow->State.ScanParity);
                for (int j = 0; j < 4; ++j)
                  ASSERT_EQ(fast->Lines[j], slow->Lines[j]) << pair.Name << " error line " << j;
                for (int b = 0; b < 2; ++b) {
                  ASSERT_EQ(fast->Planes[b], slow->Planes[b]) << pair.Name << " buffer " << b << " across " << across;
                }
              }
              position += lines;
            }
          }
        }
      }
    }
  });
}

// Amount 255 always prints (large dot: both buffers in the mid pair, the first in the high pair) and
// amount 0 never does, whatever error the lines hold.
TEST(DiffuseMultiLevel, AmountsZeroAndFullIgnoreTheError) {
  for (const Pair& pair : {kPairs[0], kPairs[1]}) {
    for (const std::int16_t error : {std::int16_t{-32000}, std::int16_t{32000}, std::int16_t{0}}) {
      auto d = MakeDiffusionDevice(64, 300, pair.PrintMode);
      for (auto& line : d->Lines) std::fill(line.begin(), line.end(), error);
      auto black = MakeBand(64, 16, testing::Flat(0, 0, 0));
      EXPECT_EQ(RenderStripe(pair.Portrait, *d, *black, false, 0, 16, 0), 1u);
      for (int l = 0; l < 16; ++l) {
        for (int b = 0; b < 8; ++b) {
          const int blackByte = kLineBytes * l + kBlackPlane * kPlaneBytes + b;
          const int cyanByte = kLineBytes * l + kCyanPlane * kPlaneBytes + b;
          ASSERT_EQ(d->Planes[0][blackByte], 0xFF) << pair.Name;
          ASSERT_EQ(d->Planes[1][blackByte], pair.Kind == MultiKind::Mid ? 0xFF : 0x00) << pair.Name;
          ASSERT_EQ(d->Planes[0][cyanByte] | d->Planes[1][cyanByte], 0) << pair.Name << " cyan";
        }
      }
      auto white = MakeBand(64, 16, testing::Flat(255, 255, 255));
      for (auto& line : d->Lines) std::fill(line.begin(), line.end(), error);
      EXPECT_EQ(RenderStripe(pair.Portrait, *d, *white, false, 0, 16, 0), 0u);
    }
  }
}

// With amounts that never draw jitter (here black 220), one call of 16 lines equals two of 8: the
// rows written at the end of a call are the rows read at the start of the next.
TEST(DiffuseMultiLevel, StripesContinueThroughScanParity) {
  for (const Pair& pair : kPairs) {
    const int half = pair.StripeLines / 2;
    auto one = MakeDiffusionDevice(80, 600, pair.PrintMode);
    auto two = MakeDiffusionDevice(80, 600, pair.PrintMode);
    auto band = MakeBand(80, pair.StripeLines, testing::Flat(35, 35, 35));
    SeedDiffusionLines(one->State, 4, 160);
    testing::CopyDiffusionState(*one, *two);
    RenderStripe(pair.Portrait, *one, *band, false, 0, pair.StripeLines, 0);
    RenderStripe(pair.Portrait, *two, *band, false, 0, half, 0);
    const int lineBytes = pair.Kind == MultiKind::Top ? kLineBytesHigh : kLineBytes;
    const int outHalf = half * (pair.Kind == MultiKind::Top ? 2 : 1);
    const std::vector<std::uint8_t> firstHalf(two->Planes[0].begin(), two->Planes[0].begin() + outHalf * lineBytes);
    RenderStripe(pair.Portrait, *two, *band, false, half, half, 0);
    EXPECT_TRUE(std::equal(firstHalf.begin(), firstHalf.end(), one->Planes[0].begin())) << pair.Name;
    EXPECT_TRUE(std::equal(two->Planes[0].begin(), two->Planes[0].begin() + outHalf * lineBytes,
                           one->Planes[0].begin() + outHalf * lineBytes))
        << pair.Name;
    for (int j = 0; j < 4; ++j) EXPECT_EQ(one->Lines[j], two->Lines[j]) << pair.Name;
    EXPECT_EQ(one->State.ScanParity, two->State.ScanParity);
  }
}

TEST(DiffuseMultiLevel, ScanParityAdvancesByTheOutputLinesEvenWithoutLines) {
  auto d = MakeDiffusionDevice(64, 600, 32 | 2);
  auto band = MakeBand(64, 16, testing::Flat(128, 128, 128));
  RenderStripe(&DiffuseMidPortrait, *d, *band, false, 0, 15, 0);
  EXPECT_EQ(d->State.ScanParity, 1);
  EXPECT_EQ(RenderStripe(&DiffuseHighLandscape, *d, *band, true, 0, 0, 0), 0u);
  EXPECT_EQ(d->State.ScanParity, 1);
  RenderStripe(&DiffuseHighPortrait, *d, *band, false, 0, 3, 0);
  EXPECT_EQ(d->State.ScanParity, 0);
  RenderStripe(&DiffuseTopPortrait, *d, *band, false, 0, 3, 0);  // six output lines
  EXPECT_EQ(d->State.ScanParity, 0);
}

// Every byte a line touches is written whole: the bits past a 13-dot line are clear, the bytes past it
// and the lines past the stripe untouched; the guard cells of the rows written are 0.
TEST(DiffuseMultiLevel, PartialBytesAreStoredAndGuardsCleared) {
  for (const Pair& pair : kPairs) {
    auto d = MakeDiffusionDevice(64, 600, pair.PrintMode);
    SeedDiffusionLines(d->State, 4, 128);
    for (auto& b : d->Planes) std::fill(b.begin(), b.end(), 0xFF);
    auto band = MakeBand(13, pair.StripeLines, testing::Flat(0, 0, 0));
    RenderStripe(pair.Portrait, *d, *band, false, 0, pair.StripeLines, 0);
    const int scale = pair.Kind == MultiKind::Top ? 2 : 1;
    const int dots = 13 * scale;
    const int planeBytes = kPlaneBytes * scale;
    const int outputLines = pair.StripeLines * scale;
    for (int l = 0; l <= outputLines; ++l) {
      for (int ink = 0; ink < 4; ++ink) {
        const std::uint8_t* plane = &d->Planes[0][4 * planeBytes * l + planeBytes * ink];
        if (l == outputLines) {
          ASSERT_EQ(plane[0], 0xFF) << pair.Name << ": the line after the stripe";
          continue;
        }
        ASSERT_EQ(plane[(dots - 1) / 8] & (0xFF >> (dots % 8)), 0) << pair.Name << " line " << l << " ink " << ink;
        ASSERT_EQ(plane[(dots - 1) / 8 + 1], 0xFF) << pair.Name << " line " << l;
      }
    }
    for (const auto& line : d->Lines) {
      for (const int slot : {0, 1}) {
        for (const int position : {-2, -1, dots, dots + 1}) EXPECT_EQ(line[2 * (position + 2) + slot], 0) << pair.Name;
      }
    }
  }
}

TEST(SeedDiffusionLines, FillsThePatternOverTheModesCountAndResetsTheLineState) {
  const struct {
    std::uint8_t printMode;
    int width;
    int cells;
  } cases[] = {{2, 100, 104}, {16 | 1, 100, 104}, {32 | 2, 100, 208}, {6, 200, 408}, {32 | 6, 200, 408}, {2, -4, 0}};
  for (const auto& c : cases) {
    auto d = MakeDiffusionDevice(600, 600, c.printMode);
    for (auto& line : d->Lines) std::fill(line.begin(), line.end(), 0x7777);
    d->State.ScanParity = 1;
    d->State.DiffusionCursor = 99;
    SeedDiffusionLines(d->State, 4, c.width);
    for (int j = 0; j < 4; ++j) {
      for (int i = 0; i < c.cells + 2; ++i) {
        const std::int16_t want = i < c.cells ? DiffusionSeedErrors[(4 * i) % 256 + j] : 0x7777;
        ASSERT_EQ(d->Lines[j][static_cast<std::size_t>(i)], want) << "mode " << int{c.printMode} << " cell " << i;
      }
    }
    EXPECT_EQ(d->State.ScanParity, 0);
    EXPECT_EQ(d->State.DiffusionCursor, 0u);
  }
  // Never past the allocation: a page of 100 at 300 dpi has 2 x 100 + 8 cells.
  auto small = MakeDiffusionDevice(100, 300, 6);
  SeedDiffusionLines(small->State, 4, 200);
  EXPECT_EQ(small->Lines[0].size(), 208u);
  EXPECT_EQ(small->Lines[0][207], DiffusionSeedErrors[(4 * 207) % 256]);
}

}  // namespace
}  // namespace inkweave

namespace inkweave {
namespace {

// The blank chain (every amount 0) decides from the gathered error before its division; the full
// chain decides from the quotient, and is pinned to the reference above. On every instruction set
// with a chain, in both directions, for every quantiser, both must agree on runs whose gathered errors
// cover every edge of the floors' decisions many times over (previous rows of random errors).
TEST(DiffuseMultiLevel, BlankChainAgreesWithTheFullChainOnEveryErrorItMeets) {
  constexpr int kDots = detail::kRunDots;
  constexpr int kCells = 2 * (kDots + 6) + 2;
  std::mt19937 rng(0xB1A4C);
  std::int32_t amounts[kDots][4] = {};
  std::int32_t thresholds[kDots][4];
  for (auto& dot : thresholds)
    for (auto& t : dot) t = 5;
  testing::ForEachInstructionSet([&](InstructionSet set) {
    for (const auto q : {detail::Quantiser::Mid, detail::Quantiser::High, detail::Quantiser::Top}) {
      for (const int step : {1, -1}) {
        const detail::ChainRunFn blank = detail::ChainRunFor(set, q, step, true);
        const detail::ChainRunFn full = detail::ChainRunFor(set, q, step, false);
        if (blank == nullptr) continue;  // no chain on this instruction set
        for (int trial = 0; trial < 300; ++trial) {
          std::vector<std::int16_t> lines[4], outA[4], outB[4];
          const int slot = static_cast<int>(rng() % 2);
          for (int ink = 0; ink < 4; ++ink) {
            lines[ink].resize(kCells);
            for (auto& cell : lines[ink]) cell = static_cast<std::int16_t>(static_cast<int>(rng() % 700) - 240);
            outA[ink] = outB[ink] = lines[ink];
          }
          std::vector<std::uint8_t> planesA(2 * kLineBytes, 0), planesB(2 * kLineBytes, 0);
          detail::ChainState a{}, b{};
          for (int ink = 0; ink < 4; ++ink) {
            a.C1[ink] = b.C1[ink] = static_cast<std::int16_t>(static_cast<int>(rng() % 200) - 100);
            a.C2[ink] = b.C2[ink] = static_cast<std::int16_t>(static_cast<int>(rng() % 200) - 100);
          }
          const int x = step > 0 ? 2 : kDots + 1;  // positions 0 .. kDots + 3
          auto run = [&](detail::ChainRunFn chain, std::vector<std::int16_t>* out, std::vector<std::uint8_t>& planes,
                         detail::ChainState& state) {
            chain({amounts,
                   thresholds,
                   {lines[0].data() + (slot ^ 1), lines[1].data() + (slot ^ 1), lines[2].data() + (slot ^ 1),
                    lines[3].data() + (slot ^ 1)},
                   {out[0].data() + slot, out[1].data() + slot, out[2].data() + slot, out[3].data() + slot},
                   x,
                   kDots,
                   {planes.data(), planes.data() + kLineBytes},
                   kPlaneBytes},
                  state);
          };
          run(blank, outA, planesA, a);
          run(full, outB, planesB, b);
          for (int ink = 0; ink < 4; ++ink) ASSERT_EQ(outA[ink], outB[ink]) << "ink " << ink << " trial " << trial;
          ASSERT_EQ(planesA, planesB);
          ASSERT_EQ(0, std::memcmp(&a, &b, sizeof a));
        }
      }
    }
  });
}

}  // namespace
}  // namespace inkweave
