// The weave maps and the shortening of the last passes.
//
// Invariants swept for every mode over a long page (steady state, before the end-of-page flush):
//   - rows reach each pass buffer in strictly rising head rows, so the blank-marker gap filling never
//     has to go back;
//   - every row lands where the page wants it: with the feeds summed before each pass (in 1/400 in),
//     3 x feeds + 8 x head row - 3 x (feed units per row) x page row is one constant for the whole
//     page (a head row is one nozzle pitch, 8/3 units);
//   - feeds of a full cycle add up to the rows of the cycle.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

#include "src/raster/weave.h"

namespace inkweave {
namespace {

std::vector<std::pair<int, int>> Phase(int mode, int phase) {
  std::vector<std::pair<int, int>> out;
  for (int j = 0; j < kWeaveModeTable[mode].RowsOfPhase[phase]; ++j)
    out.emplace_back(WeaveMap[mode][phase][j].Pass, WeaveMap[mode][phase][j].HeadRow);
  return out;
}

using Pairs = std::vector<std::pair<int, int>>;

TEST(WeaveMap, GivenRows) {
  const Pairs modeTwo = Phase(2, 0);
  ASSERT_EQ(modeTwo.size(), 105u);
  EXPECT_EQ(Pairs(modeTwo.begin(), modeTwo.begin() + 4), (Pairs{{0, 0}, {1, 53}, {0, 1}, {1, 54}}));
  EXPECT_EQ(Pairs(modeTwo.end() - 2, modeTwo.end()), (Pairs{{1, 104}, {0, 52}}));

  const Pairs modeFive = Phase(5, 1);
  EXPECT_EQ(Pairs(modeFive.begin(), modeFive.begin() + 4), (Pairs{{1, 0}, {4, 64}, {7, 26}, {2, 90}}));

  // Mode 1: phase p sends row j to buffer p, head row j.
  for (int phase = 0; phase < 2; ++phase)
    for (int j = 0; j < 105; ++j) EXPECT_EQ(Phase(1, phase)[j], (std::pair<int, int>{phase, j}));

  // Mode 3's irregular phases.
  EXPECT_EQ(Phase(3, 3).size(), 52u);
  EXPECT_EQ(Phase(3, 4).size(), 50u);
  const Pairs irregular = Phase(3, 4);
  EXPECT_EQ(Pairs(irregular.begin(), irregular.begin() + 5), (Pairs{{3, 26}, {2, 52}, {1, 78}, {0, 2}, {3, 28}}));
}

TEST(WeaveMap, ModeTwoPhaseBoundaries) {
  std::vector<int> boundaries;
  int row = 0;
  for (int phase = 0; phase < kWeaveModeTable[2].Phases; ++phase) {
    row += kWeaveModeTable[2].RowsOfPhase[phase];
    boundaries.push_back(row);
  }
  EXPECT_EQ(boundaries, (std::vector<int>{105, 211, 315, 420}));
}

TEST(WeaveMap, ModesOfTheWholePrintModeByte) {
  for (int level = 1; level <= 6; ++level)
    for (int flags : {0, 16, 32, 48})
      EXPECT_EQ(FindWeaveMode(static_cast<std::uint8_t>(level + flags)), &kWeaveModeTable[level]);
  for (int value : {0, 7, 15, 16, 23, 64 + 2, 128 + 2, 255})
    EXPECT_EQ(FindWeaveMode(static_cast<std::uint8_t>(value)), nullptr) << value;
}

class WeaveSweep : public ::testing::TestWithParam<int> {};

TEST_P(WeaveSweep, RowsLandOnceInPlaceAndInHeadOrder) {
  const int mode = GetParam();
  const WeaveMode& weave = kWeaveModeTable[mode];
  const int unitsPerRow3 = mode == 1 ? 8 : mode <= 3 ? 4 : mode <= 5 ? 2 : 1;  // 3 x feed units per row
  std::vector<std::vector<std::pair<int, int>>> held(kMaxWeavePhases);         // (page row, head row) per buffer
  std::set<long> offsets;
  std::set<int> printed;
  long feeds = 0;
  int phase = 0, phaseRow = 0;
  for (int y = 0; y < 5000; ++y) {
    const WeaveCell cell = WeaveMap[mode][phase][phaseRow];
    auto& buffer = held[cell.Pass];
    ASSERT_TRUE(buffer.empty() || buffer.back().second < cell.HeadRow)
        << "mode " << mode << " row " << y << " goes back to head row " << int(cell.HeadRow);
    buffer.emplace_back(y, cell.HeadRow);
    if (++phaseRow == weave.RowsOfPhase[phase]) {
      feeds += weave.Feed[phase];
      for (const auto& [row, head] : held[weave.PassOfPhase[phase]]) {
        offsets.insert(3 * feeds + 8L * head - static_cast<long>(unitsPerRow3) * row);
        EXPECT_TRUE(printed.insert(row).second);
      }
      held[weave.PassOfPhase[phase]].clear();
      phaseRow = 0;
      phase = (phase + 1) % weave.Phases;
    }
  }
  EXPECT_EQ(offsets.size(), 1u) << "mode " << mode;
  // The page's first row is the one that the last nozzle (105; 102 in modes 3 and 5, which use the even
  // nozzles only) prints once the first pass has been fed.
  EXPECT_EQ(*offsets.begin(), 8 * (mode == 3 || mode == 5 ? 102 : 105)) << "mode " << mode;
  EXPECT_GT(printed.size(), 4500u);

  int cycleRows = 0, cycleFeed = 0;
  for (int p = 0; p < weave.Phases; ++p) {
    cycleRows += weave.RowsOfPhase[p];
    cycleFeed += weave.Feed[p];
  }
  EXPECT_EQ(3 * cycleFeed, unitsPerRow3 * cycleRows);
}

INSTANTIATE_TEST_SUITE_P(Modes, WeaveSweep, ::testing::Range(1, 7));

TEST(ShortenLastPass, FirstPassIsCapped) {
  struct Case {
    int mode, phase, rowsFilled, padding, feed;
  };
  for (const Case c : {Case{1, 0, 16, 87, 48}, Case{1, 0, 0, 105, 0}, Case{1, 1, 104, 0, 280}, Case{2, 0, 69, 36, 44},
                       Case{2, 0, 0, 51, 4}, Case{3, 0, 30, 24, 4}, Case{4, 0, 100, 3, 62}, Case{5, 0, 0, 12, 2},
                       Case{6, 0, 0, 12, 3}, Case{2, 1, 106, 0, 140}}) {
    const ShortPass pass = ShortenLastPass(kWeaveModeTable[c.mode], c.phase, c.rowsFilled, 0);
    EXPECT_EQ(pass.Padding, c.padding) << "mode " << c.mode << " n " << c.rowsFilled;
    EXPECT_EQ(pass.Feed, c.feed) << "mode " << c.mode << " n " << c.rowsFilled;
    EXPECT_EQ(pass.Shift, c.padding);
  }
}

TEST(ShortenLastPass, LaterPassesTakeUpThePreviousShortening) {
  // Mode 2: a pass after a shortening of 36 rows (96 units) with 87 rows of room takes all 87.
  ShortPass pass = ShortenLastPass(kWeaveModeTable[2], 1, 16, 36);
  EXPECT_EQ(pass.Padding, 87);
  EXPECT_EQ(pass.Feed, 4);
  EXPECT_EQ(pass.Shift, 87);

  // Mode 6, empty passes: each takes the previous 8 Q / 3 plus its own 35 units, in steps of 3 rows.
  int shift = 0;
  std::vector<int> paddings, feeds;
  for (int phase = 0; phase < 8; ++phase) {
    pass = ShortenLastPass(kWeaveModeTable[6], phase, 0, shift);
    paddings.push_back(pass.Padding);
    feeds.push_back(pass.Feed);
    shift = pass.Shift;
  }
  EXPECT_EQ(paddings, (std::vector<int>{12, 24, 36, 48, 60, 72, 84, 96}));
  EXPECT_EQ(feeds, (std::vector<int>{3, 3, 3, 3, 3, 3, 3, 3}));

  // Mode 5 (k = 6): 3 (32 + 34) / 8 = 24 rows.
  pass = ShortenLastPass(kWeaveModeTable[5], 1, 0, 12);
  EXPECT_EQ(pass.Padding, 24);
  EXPECT_EQ(pass.Feed, 2);
  // Little room left: the padding stops at the pass's own rows, the rest of the shortening is fed.
  pass = ShortenLastPass(kWeaveModeTable[5], 1, 90, 12);
  EXPECT_EQ(pass.Padding, 12);
  EXPECT_EQ(pass.Feed, 34 + 32 - 32);
}

}  // namespace
}  // namespace inkweave
