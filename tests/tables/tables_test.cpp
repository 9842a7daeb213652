// The generated constant tables, each pinned once: the checked-in files are what their generators
// write (the colour-table and dither-matrix generators refuse to write a table that breaks its given
// values or properties), and the properties the other tables and the stored layouts must hold: the
// interpolation weights' rule; the dither matrix's repeated tile and dispersion; the ink-split tables'
// grey component and black; the threshold maps' values and tiles. (The jitter tables' sum and spread
// hold by their generator's construction: the sum is its loop's exit condition, the spread its draws'.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "src/data/tables.h"

namespace inkweave {
namespace {

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
    EXPECT_EQ(std::system(("cmp -s \"" + fresh + "\" \"" + checkedIn + "\"").c_str()), 0)
        << "src/data/generated/" << g.name << ".cpp is not what its generator writes; update it with:\n  "
        << g.generator << " " << checkedIn;
    std::remove(fresh.c_str());
  }
}

// Entry (fr * 16 + fg) * 16 + fb, corner b: floor(255 wr wg wb) at fractions f / 16, the corner further
// along red for bit 1 of b, green for 2, blue for 4.
TEST(InterpolationWeights, EveryEntryFollowsTheRule) {
  for (int entry = 0; entry < 16 * 16 * 16; ++entry) {
    const int f[3] = {entry / 256, entry / 16 % 16, entry % 16};
    int sum = 0;
    for (int corner = 0; corner < 8; ++corner) {
      double w = 255.0;
      for (int axis = 0; axis < 3; ++axis) w *= (corner >> axis & 1) ? f[axis] / 16.0 : 1.0 - f[axis] / 16.0;
      ASSERT_EQ(InterpolationWeights[entry][corner], static_cast<int>(std::floor(w))) << entry << " b" << corner;
      sum += InterpolationWeights[entry][corner];
    }
    ASSERT_LE(sum, 255);  // the base weight used is never negative
  }
}

constexpr int kTile = 64;

// The stored dither matrix and threshold maps are 64 x 64 tiles repeated, the rows behind repeating the
// top of their map; the threshold maps hold only their four thresholds, and a one-bit stripe that runs
// past row 127 sees different thresholds there (or the rows behind would not matter).
TEST(StoredMaps, RepeatTheirTiles) {
  for (int row = 0; row < kDitherRowsStored; ++row)
    for (int col = 0; col < kDitherSize; ++col)
      ASSERT_EQ(DitherMatrix[row][col], DitherMatrix[row % kDitherSize % kTile][col % kTile])
          << "dither row " << row << " column " << col;
  int differing = 0;
  for (int y = 0; y < kThresholdMapRowsStored; ++y) {
    const int base = y < 128 ? 0 : 128;
    for (int x = 0; x < 128; ++x) {
      const int t = DiffusionThresholdMaps[y][x];
      ASSERT_TRUE(t == 5 || t == 30 || t == 50 || t == 192) << "row " << y << " column " << x;
      ASSERT_EQ(t, DiffusionThresholdMaps[base + (y - base) % 64][x % 64]) << "threshold row " << y << " column " << x;
      if (y >= 128 && y < 128 + 15) differing += t != DiffusionThresholdMaps[y - 128][x];
    }
  }
  EXPECT_GT(differing, 500);
}

// How much of a dot pattern's power lies at low frequencies (radius <= 6 cycles per tile), relative
// to a random pattern of the same dot count: for a random choice of k cells the expected power is the
// same at every non-zero frequency, so its low-frequency share is just the share of such bins.
double LowFrequencyRatio(int value) {
  constexpr int kRadius = 6;
  std::vector<std::complex<double>> twiddle(kTile);
  for (int n = 0; n < kTile; ++n) twiddle[n] = std::polar(1.0, -2.0 * 3.14159265358979323846 * n / kTile);
  std::vector<int> cellsOf[2];  // x + kTile y of the cells left empty and inked at `value` (value < threshold)
  for (int cell = 0; cell < kTile * kTile; ++cell)
    cellsOf[value < DitherMatrix[cell / kTile][cell % kTile]].push_back(cell);
  const double cells = kTile * kTile, k = static_cast<double>(cellsOf[1].size()), acPower = cells * k - k * k;
  // A pattern and its complement differ only at frequency 0: the smaller set is summed.
  const std::vector<int>& dots = cellsOf[cellsOf[0].size() < cellsOf[1].size() ? 0 : 1];
  double low = 0;
  int bins = 0;
  for (int u = -kRadius; u <= kRadius; ++u)
    for (int v = -kRadius; v <= kRadius; ++v) {
      if (u * u + v * v == 0 || u * u + v * v > kRadius * kRadius) continue;
      std::complex<double> sum = 0;
      for (const int cell : dots) sum += twiddle[((u * (cell % kTile) + v * (cell / kTile)) % kTile + kTile) % kTile];
      low += std::norm(sum);
      ++bins;
    }
  return acPower <= 0 ? 0 : (low / acPower) / (bins / (cells - 1));
}

// Even 16 dots stay well below random; at densities 1/16..15/16 (inputs 18..238) far below.
TEST(DitherMatrix, DotsAreDispersedAtEveryLevel) {
  double sum = 0, worst = 0;
  for (int value = 2; value <= 254; ++value) {
    const double ratio = LowFrequencyRatio(value);
    const bool dense = value >= 18 && value <= 238;
    EXPECT_LT(ratio, dense ? 0.12 : 0.7) << "input value " << value;
    sum += dense ? ratio : 0;
    worst = std::max(worst, dense ? ratio : 0);
  }
  std::printf("low-frequency power against random, densities 1/16..15/16: mean %.4f, worst %.4f\n", sum / 221, worst);
  EXPECT_LT(sum / 221, 0.05);
}

// Tables 8..10 take the whole grey component (no black); in the measured tables 0..7 black (g less the
// grey component) starts from nothing, never falls and never exceeds g, and the highest-resolution
// tables hold it at 192 from g = 192 on, with a trace of yellow at 255.
TEST(InkSplitTables, GreyComponentAndBlack) {
  for (int t = 0; t <= 10; ++t) {
    int lastBlack = 0;
    for (int g = 0; g < 256; ++g) {
      const auto& split = InkSplitTable[t][g];
      const int black = g - split[3];
      if (t >= 8) {
        ASSERT_TRUE(split[0] == g && split[1] == g && split[2] == g && split[3] == 0) << "table " << t << " g " << g;
        continue;
      }
      if (g == 0) {
        EXPECT_EQ(split[0] | split[1] | split[2] | split[3], 0) << "table " << t;
      }
      EXPECT_GE(black, lastBlack) << "table " << t << " g " << g;
      EXPECT_LE(black, g) << "table " << t << " g " << g;
      if ((t == 3 || t == 5 || t == 7) && g >= 192) {
        EXPECT_EQ(black, 192) << "table " << t << " g " << g;
      }
      lastBlack = black;
    }
  }
  for (int t : {3, 5, 7}) EXPECT_LT(InkSplitTable[t][255][2], 255);
}

}  // namespace
}  // namespace inkweave
