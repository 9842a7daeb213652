// The generated constant tables, each pinned once: the checked-in files are what their generators
// write (so a table changes only with its generator and model), and every table keeps the values and
// properties it must hold: the colour tables' given rows, white, neutral axis, gray component, black
// level and monotone cube edges; the interpolation weights' rule; the dither matrix's tile, level
// counts, fixed cells and dispersion; the ink-split tables' given rows and black; the threshold maps'
// tiles; the jitter tables' start, sum and spread.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "src/data/tables.h"

namespace inkweave {
namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(GeneratedTables, CheckedInFilesMatchTheirGenerators) {
  const struct {
    const char* generator;
    const char* name;
  } generated[] = {{GEN_COLOR_TABLES, "color_tables"},     {GEN_INTERPOLATION_WEIGHTS, "interpolation_weights"},
                   {GEN_DITHER_MATRIX, "dither_matrix"},   {GEN_INK_SPLIT_TABLES, "ink_split_tables"},
                   {GEN_THRESHOLD_MAPS, "threshold_maps"}, {GEN_THRESHOLD_JITTER, "threshold_jitter"}};
  for (const auto& g : generated) {
    const std::string checkedIn = std::string(INKWEAVE_SOURCE_DIR "/src/data/generated/") + g.name + ".cpp";
    const std::string fresh = ::testing::TempDir() + g.name + "_regen.cpp";
    const std::string command = std::string("\"") + g.generator + "\" \"" + fresh + "\"";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    const std::string written = Slurp(fresh);
    std::remove(fresh.c_str());
    EXPECT_FALSE(written.empty()) << g.name;
    EXPECT_TRUE(written == Slurp(checkedIn))
        << "src/data/generated/" << g.name << ".cpp is not what its generator writes; update it with:\n  "
        << g.generator << " " << checkedIn;
  }
}

// Colour tables and interpolation weights -----------------------------------------------------------

const std::uint8_t* Point(int table, int i, int j, int k) { return ColorTable(table) + ((i * 17 + j) * 17 + k) * 4; }

std::string Hex(const std::uint8_t* p) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02x %02x %02x %02x", p[0], p[1], p[2], p[3]);
  return buf;
}

TEST(ColorTables, GivenRowsToTheByte) {
  struct Row {
    int table;
    const char* cells[9];  // black, red, green, blue, cyan, magenta, yellow, white, gray
  };
  static const Row kRows[] = {
      {1,
       {"ff ff ff ff", "00 e1 eb 00", "8b 00 f2 00", "ec c6 00 00", "ff 00 00 00", "00 ff 00 00", "00 00 ff 00",
        "00 00 00 00", "4c 4c 4c 4c"}},
      {2,
       {"ff ff ff ff", "00 be ec 00", "6e 00 f2 00", "d8 c2 00 00", "a0 00 01 00", "00 e0 00 00", "00 00 ff 00",
        "00 00 00 00", "4c 4c 4c 4c"}},
      {3,
       {"ff ff ff ff", "00 88 aa 00", "6b 00 c7 00", "a8 8a 00 00", "ff 00 01 00", "00 ff 00 00", "00 00 ff 00",
        "00 00 00 00", "40 40 40 40"}},
      {7,
       {"b2 b2 b2 b2", "00 5e 7e 00", "46 00 96 00", "7d 5f 00 00", "b2 00 01 00", "00 b2 00 00", "00 00 b2 00",
        "00 00 00 00", "2c 2c 2c 2c"}},
      {13,
       {"c0 c0 c0 c0", "00 5a 82 00", "3e 00 9e 00", "80 5c 00 00", "c0 00 01 00", "00 c0 00 00", "00 00 c0 00",
        "00 00 00 00", "26 26 26 26"}},
      {15,
       {"ff ff ff ff", "00 e3 eb 00", "99 00 f0 00", "eb cb 00 00", "ff 00 00 00", "00 ff 00 00", "00 00 ff 00",
        "00 00 00 00", "60 60 60 60"}},
  };
  static constexpr int kAt[9][3] = {{0, 0, 0},   {16, 0, 0},  {0, 16, 0},   {0, 0, 16}, {0, 16, 16},
                                    {16, 0, 16}, {16, 16, 0}, {16, 16, 16}, {8, 8, 8}};
  for (const Row& row : kRows)
    for (int c = 0; c < 9; ++c)
      EXPECT_EQ(Hex(Point(row.table, kAt[c][0], kAt[c][1], kAt[c][2])), row.cells[c])
          << "table " << row.table << " at (" << kAt[c][0] << "," << kAt[c][1] << "," << kAt[c][2] << ")";
}

// The black corner: full ink in every table but the ink-limited ones.
int BlackLevel(int table) {
  switch (table) {
    case 7:
    case 8: return 0xb2;
    case 9:
    case 10:
    case 13:
    case 14: return 0xc0;
    default: return 0xff;
  }
}

TEST(ColorTables, WhiteNeutralsBlackAndGrayComponentAtEveryGridPoint) {
  for (int t = 1; t <= kColorTableCount; ++t) {
    SCOPED_TRACE("table " + std::to_string(t));
    EXPECT_EQ(Hex(Point(t, 16, 16, 16)), "00 00 00 00");
    const int level = BlackLevel(t);
    for (int n = 0; n < 4; ++n) EXPECT_EQ(Point(t, 0, 0, 0)[n], level);
    for (int i = 0; i < 17; ++i) {
      const std::uint8_t* p = Point(t, i, i, i);
      EXPECT_TRUE(p[0] == p[1] && p[1] == p[2] && p[2] == p[3]) << "neutral " << i << ": " << Hex(p);
      if (i > 0) {
        EXPECT_LE(p[0], Point(t, i - 1, i - 1, i - 1)[0]) << "neutral axis rises at " << i;
      }
    }
    for (int i = 0; i < 17; ++i)
      for (int j = 0; j < 17; ++j)
        for (int k = 0; k < 17; ++k) {
          const std::uint8_t* p = Point(t, i, j, k);
          ASSERT_EQ(p[3], std::min({p[0], p[1], p[2]})) << "(" << i << "," << j << "," << k << ")";
          for (int n = 0; n < 4; ++n) ASSERT_LE(p[n], level) << "ink limit at (" << i << "," << j << "," << k << ")";
        }
  }
}

TEST(ColorTables, MonotoneAlongTheTwelveEdges) {
  static constexpr int kCorner[8][3] = {{0, 0, 0},  {16, 0, 0},  {0, 16, 0},  {16, 16, 0},
                                        {0, 0, 16}, {16, 0, 16}, {0, 16, 16}, {16, 16, 16}};
  for (int t = 1; t <= kColorTableCount; ++t) {
    SCOPED_TRACE("table " + std::to_string(t));
    int edges = 0;
    for (int a = 0; a < 8; ++a)
      for (int axis = 0; axis < 3; ++axis) {
        if (a >> axis & 1) continue;
        ++edges;
        for (int n = 0; n < 4; ++n) {
          bool rises = false, falls = false;
          for (int s = 1; s < 17; ++s) {
            int g0[3] = {kCorner[a][0], kCorner[a][1], kCorner[a][2]};
            int g1[3] = {g0[0], g0[1], g0[2]};
            g0[axis] = s - 1;
            g1[axis] = s;
            const int d = Point(t, g1[0], g1[1], g1[2])[n] - Point(t, g0[0], g0[1], g0[2])[n];
            rises |= d > 0;
            falls |= d < 0;
          }
          EXPECT_FALSE(rises && falls) << "ink " << n << " along the edge from corner " << a << ", axis " << axis;
        }
      }
    EXPECT_EQ(edges, 12);
  }
}

// floor(255 wr wg wb) for corner b (bit 1 red, 2 green, 4 blue further) at fractions f / 16.
int WeightByRule(int fr, int fg, int fb, int corner) {
  const int f[3] = {fr, fg, fb};
  double w = 255.0;
  for (int axis = 0; axis < 3; ++axis) w *= (corner >> axis & 1) ? f[axis] / 16.0 : 1.0 - f[axis] / 16.0;
  return static_cast<int>(std::floor(w));
}

TEST(InterpolationWeights, EveryEntryFollowsTheRule) {
  for (int fr = 0; fr < 16; ++fr)
    for (int fg = 0; fg < 16; ++fg)
      for (int fb = 0; fb < 16; ++fb) {
        int sum = 0;
        for (int corner = 0; corner < 8; ++corner) {
          const int w = InterpolationWeights[(fr * 16 + fg) * 16 + fb][corner];
          ASSERT_EQ(w, WeightByRule(fr, fg, fb, corner)) << fr << "," << fg << "," << fb << " b" << corner;
          sum += w;
        }
        ASSERT_LE(sum, 255);  // the base weight used is never negative
      }
}

// The dither matrix ----------------------------------------------------------------------------------

constexpr int kTile = 64;

// One 64 x 64 tile repeated (the rows behind repeating the top), holding every level 16 times and the
// merged lowest level 48 times, with the fixed cells of rows 0 and 1.
TEST(DitherMatrix, OneTileWithItsLevelCountsAndFixedCells) {
  for (int row = 0; row < kDitherRowsStored; ++row)
    for (int col = 0; col < kDitherSize; ++col)
      ASSERT_EQ(DitherMatrix[row][col], DitherMatrix[row % kDitherSize % kTile][col % kTile])
          << "row " << row << " column " << col;
  std::vector<int> count(256, 0);
  for (int row = 0; row < kTile; ++row)
    for (int col = 0; col < kTile; ++col) ++count[DitherMatrix[row][col]];
  EXPECT_EQ(count[0] + count[1], 0);
  EXPECT_EQ(count[2], 48);
  for (int level = 3; level <= 255; ++level) EXPECT_EQ(count[level], 16) << "threshold " << level;
  const std::uint8_t rows[2][16] = {{66, 159, 47, 100, 196, 52, 228, 4, 76, 147, 35, 99, 200, 56, 232, 8},
                                    {175, 95, 255, 127, 132, 212, 20, 180, 163, 83, 243, 115, 136, 216, 24, 184}};
  for (int row = 0; row < 2; ++row)
    for (int col = 0; col < 16; ++col) EXPECT_EQ(DitherMatrix[row][col], rows[row][col]) << row << ", " << col;
}

// How much of a dot pattern's power lies at low frequencies (radius <= 6 cycles per tile), relative
// to a random pattern of the same dot count: for a random choice of k cells the expected power is the
// same at every non-zero frequency, so its low-frequency share is just the share of such bins.
double LowFrequencyRatio(int value) {
  constexpr int kRadius = 6;
  constexpr double kPi = 3.14159265358979323846;
  std::vector<std::complex<double>> twiddle(kTile);
  for (int n = 0; n < kTile; ++n) twiddle[n] = std::polar(1.0, -2.0 * kPi * n / kTile);
  // Dots of input value `value`: where value < threshold.
  int dots = 0;
  std::vector<std::vector<std::complex<double>>> rows(kTile, std::vector<std::complex<double>>(2 * kRadius + 1));
  for (int y = 0; y < kTile; ++y) {
    for (int x = 0; x < kTile; ++x) {
      if (value >= DitherMatrix[y][x]) continue;
      ++dots;
      for (int u = -kRadius; u <= kRadius; ++u) rows[y][u + kRadius] += twiddle[((u * x) % kTile + kTile) % kTile];
    }
  }
  const double cells = kTile * kTile;
  const double acPower = cells * dots - static_cast<double>(dots) * dots;
  if (acPower <= 0) return 0;
  double low = 0;
  int bins = 0;
  for (int u = -kRadius; u <= kRadius; ++u) {
    for (int v = -kRadius; v <= kRadius; ++v) {
      if (u * u + v * v == 0 || u * u + v * v > kRadius * kRadius) continue;
      std::complex<double> sum = 0;
      for (int y = 0; y < kTile; ++y) sum += rows[y][u + kRadius] * twiddle[((v * y) % kTile + kTile) % kTile];
      low += std::norm(sum);
      ++bins;
    }
  }
  return (low / acPower) / (bins / (cells - 1));
}

TEST(DitherMatrix, DotsAreDispersedAtEveryLevel) {
  double sum = 0;
  double worst = 0;
  int counted = 0;
  for (int value = 2; value <= 254; ++value) {
    const double ratio = LowFrequencyRatio(value);
    EXPECT_LT(ratio, 0.7) << "input value " << value;  // even 16 dots stay well below random
    if (value >= 18 && value <= 238) {                 // at least 1/16 of the cells are the minority
      sum += ratio;
      worst = std::max(worst, ratio);
      ++counted;
    }
  }
  const double mean = sum / counted;
  std::printf("low-frequency power against random, densities 1/16..15/16: mean %.4f, worst %.4f\n", mean, worst);
  EXPECT_LT(mean, 0.05);
  EXPECT_LT(worst, 0.12);
}

// Error-diffusion tables ----------------------------------------------------------------------------

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
