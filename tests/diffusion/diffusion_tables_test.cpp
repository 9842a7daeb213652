// The error-diffusion tables: what each must hold (given rows and values, counts, monotone black),
// that the checked-in files are what their generators write, and a SHA-256 pin of every table.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "src/data/tables.h"
#include "tests/support/sha256.h"

namespace inkweave {
namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(DiffusionTables, CheckedInFilesAreWhatTheGeneratorsWrite) {
  const struct {
    const char* generator;
    const char* name;
  } generated[] = {{GEN_INK_SPLIT_TABLES, "ink_split_tables"},
                   {GEN_THRESHOLD_MAPS, "threshold_maps"},
                   {GEN_THRESHOLD_JITTER, "threshold_jitter"}};
  for (const auto& g : generated) {
    const std::string checkedIn = std::string(INKWEAVE_SOURCE_DIR "/src/data/generated/") + g.name + ".cpp";
    const std::string fresh = ::testing::TempDir() + g.name + "_regen.cpp";
    const std::string command = std::string("\"") + g.generator + "\" \"" + fresh + "\"";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    EXPECT_TRUE(Slurp(fresh) == Slurp(checkedIn))
        << "src/data/generated/" << g.name << ".cpp is stale; update it with:\n  " << g.generator << " " << checkedIn
        << "\nand re-pin its SHA-256 in this test if the change is intended";
  }
}

// The tables' bytes as they lie in memory (little-endian), as dumped to build/data/<TableName>.bin.
TEST(DiffusionTables, ContentsArePinned) {
  EXPECT_EQ(testing::Sha256Hex(InkSplitTable, sizeof InkSplitTable),
            "5d7cbe70595e9f42c027fa8203237c5fe33f76ddeff4f71ec413335712cfb30d");
  EXPECT_EQ(testing::Sha256Hex(DiffusionThresholdMaps, sizeof DiffusionThresholdMaps),
            "9c3b35de733b46871255b188e89b74924dc336d68de65ea6d7ced54297448c39");
  EXPECT_EQ(testing::Sha256Hex(ThresholdJitter, sizeof ThresholdJitter),
            "a99c8db7dbd4d6ba11dfe81b98044c9a1a9891c0279e0ae1d27e46cb68ed073c");
  EXPECT_EQ(testing::Sha256Hex(ThresholdJitterWide, sizeof ThresholdJitterWide),
            "95d854eba05a066f1b32e4bb183a775c6dd20790d92774f464bbae01bb9f94ad");
}

TEST(InkSplitTables, RuleTablesRemoveTheWholeGreyComponent) {
  for (int t = 8; t <= 10; ++t) {
    for (int g = 0; g < 256; ++g) {
      EXPECT_EQ(InkSplitTable[t][g][0], g);
      EXPECT_EQ(InkSplitTable[t][g][1], g);
      EXPECT_EQ(InkSplitTable[t][g][2], g);
      ASSERT_EQ(InkSplitTable[t][g][3], 0) << "table " << t << " g " << g;
    }
  }
}

TEST(InkSplitTables, MeasuredTablesPassTheirRowsAndBlackStartsThereAndNeverFalls) {
  const int measuredG[4] = {64, 128, 192, 255};
  const int rows[8][4][4] = {{{25, 12, -6, 60}, {76, 55, 33, 69}, {144, 128, 109, 41}, {255, 255, 255, 0}},
                             {{22, 11, -9, 64}, {61, 29, -2, 105}, {131, 109, 80, 67}, {255, 255, 255, 0}},
                             {{21, 1, -9, 64}, {65, 28, 11, 95}, {136, 107, 89, 60}, {255, 255, 255, 0}},
                             {{34, 20, 2, 51}, {108, 100, 87, 34}, {192, 192, 192, 0}, {255, 255, 241, 63}},
                             {{22, 8, -18, 64}, {66, 39, 5, 95}, {134, 113, 79, 60}, {255, 255, 255, 0}},
                             {{34, 24, 3, 51}, {109, 102, 88, 34}, {192, 192, 192, 0}, {255, 255, 240, 63}},
                             {{20, 10, -9, 64}, {59, 29, -2, 105}, {129, 109, 80, 67}, {255, 255, 255, 0}},
                             {{32, 22, 9, 43}, {106, 106, 95, 27}, {192, 192, 192, 0}, {255, 255, 243, 63}}};
  const int firstBlack[8] = {53, 88, 72, 38, 72, 38, 88, 35};
  for (int t = 0; t < 8; ++t) {
    for (int r = 0; r < 4; ++r) {
      for (int v = 0; v < 4; ++v) EXPECT_EQ(InkSplitTable[t][measuredG[r]][v], rows[t][r][v]) << "table " << t;
    }
    EXPECT_EQ(InkSplitTable[t][0][0] | InkSplitTable[t][0][1] | InkSplitTable[t][0][2] | InkSplitTable[t][0][3], 0);
    int lastBlack = 0;
    for (int g = 0; g < 256; ++g) {
      const int black = g - InkSplitTable[t][g][3];
      EXPECT_EQ(black > 0, g >= firstBlack[t]) << "table " << t << " g " << g;
      EXPECT_GE(black, lastBlack) << "table " << t << " g " << g;
      EXPECT_LE(black, g) << "table " << t << " g " << g;
      lastBlack = black;
    }
  }
  // The highest-resolution tables hold black at 192 from g = 192 on, with a trace of yellow at 255.
  for (int t : {3, 5, 7}) {
    for (int g = 192; g < 256; ++g) EXPECT_EQ(g - InkSplitTable[t][g][3], 192) << "table " << t << " g " << g;
    EXPECT_LT(InkSplitTable[t][255][2], 255);
  }
}

std::map<int, int> Counts(int firstRow, int rows) {
  std::map<int, int> counts;
  for (int y = firstRow; y < firstRow + rows; ++y) {
    for (int x = 0; x < 128; ++x) ++counts[DiffusionThresholdMaps[y][x]];
  }
  return counts;
}

TEST(ThresholdMaps, MapAndFineMapHoldTheirValuesAsRepeatedTiles) {
  EXPECT_EQ(Counts(0, 128), (std::map<int, int>{{5, 10752}, {30, 256}, {50, 4352}, {192, 1024}}));
  EXPECT_EQ(Counts(128, 128), (std::map<int, int>{{5, 12288}, {30, 512}, {50, 3072}, {192, 512}}));
  const int row0[16] = {192, 5, 5, 5, 50, 5, 50, 50, 5, 5, 50, 50, 5, 5, 5, 5};
  for (int x = 0; x < 16; ++x) EXPECT_EQ(DiffusionThresholdMaps[0][x], row0[x]);
  for (int y = 0; y < kThresholdMapRowsStored; ++y) {
    const int base = y < 128 ? 0 : 128;
    for (int x = 0; x < 128; ++x) {
      ASSERT_EQ(DiffusionThresholdMaps[y][x], DiffusionThresholdMaps[base + (y - base) % 64][x % 64])
          << "row " << y << " column " << x;
    }
  }
  // A one-bit stripe that runs past row 127 must see different thresholds there, or the rows behind
  // the map would not matter.
  int differing = 0;
  for (int y = 0; y < 15; ++y) {
    for (int x = 0; x < 128; ++x) differing += DiffusionThresholdMaps[128 + y][x] != DiffusionThresholdMaps[y][x];
  }
  EXPECT_GT(differing, 500);
}

TEST(ThresholdJitter, TablesHoldTheirStartSumAndSpread) {
  const int start[16] = {1, 0, 30, 9, 25, 8, 26, 13, 3, 0, 14, 15, 31, 28, 15, 30};
  int sum = 0;
  for (int i = 0; i < 256; ++i) {
    if (i < 16) {
      EXPECT_EQ(ThresholdJitter[i], start[i]);
    }
    EXPECT_LE(ThresholdJitter[i], 31);
    sum += ThresholdJitter[i];
  }
  EXPECT_EQ(sum, 3997);
  long total = 0;
  for (const std::int32_t v : ThresholdJitterWide) {
    const int t = (v >> 4) + 200;
    ASSERT_GE(t, 136);
    ASSERT_LE(t, 264);
    total += t;
  }
  EXPECT_NEAR(total / 1024.0, 200.0, 4.0);
}

}  // namespace
}  // namespace inkweave
