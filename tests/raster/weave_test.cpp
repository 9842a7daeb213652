// The weave maps and the shortening of the last passes, at the rows and passes whose values are fixed.
// (That every row lands once in its place, in every mode and at every end of the cycle, is the weave
// round trip's to show.)
#include <gtest/gtest.h>

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
