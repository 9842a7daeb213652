// The ordered-dither matrix: what it must hold (tile, level counts, fixed cells, the rows behind it),
// that the checked-in table is what its generator writes, and how well its dots are dispersed.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "src/data/tables.h"
#include "tests/support/sha256.h"

namespace inkweave {
namespace {

constexpr int kTile = 64;

TEST(DitherMatrix, IsOneTileRepeatedWithTheRowsBehindRepeatingTheTop) {
  for (int row = 0; row < kDitherRowsStored; ++row) {
    for (int col = 0; col < kDitherSize; ++col) {
      ASSERT_EQ(DitherMatrix[row][col], DitherMatrix[row % kDitherSize % kTile][col % kTile])
          << "row " << row << " column " << col;
    }
  }
}

TEST(DitherMatrix, TileHoldsEveryLevelSixteenTimesAndTheMergedLowestLevel48Times) {
  std::vector<int> count(256, 0);
  for (int row = 0; row < kTile; ++row) {
    for (int col = 0; col < kTile; ++col) ++count[DitherMatrix[row][col]];
  }
  EXPECT_EQ(count[0], 0);
  EXPECT_EQ(count[1], 0);
  EXPECT_EQ(count[2], 48);
  for (int level = 3; level <= 255; ++level) EXPECT_EQ(count[level], 16) << "threshold " << level;
}

TEST(DitherMatrix, HoldsTheFixedCellsOfRowsZeroAndOne) {
  const std::uint8_t row0[16] = {66, 159, 47, 100, 196, 52, 228, 4, 76, 147, 35, 99, 200, 56, 232, 8};
  const std::uint8_t row1[16] = {175, 95, 255, 127, 132, 212, 20, 180, 163, 83, 243, 115, 136, 216, 24, 184};
  for (int col = 0; col < 16; ++col) {
    EXPECT_EQ(DitherMatrix[0][col], row0[col]) << "column " << col;
    EXPECT_EQ(DitherMatrix[1][col], row1[col]) << "column " << col;
  }
}

TEST(DitherMatrix, CheckedInTableIsWhatTheGeneratorWrites) {
  const std::string checkedIn = INKWEAVE_SOURCE_DIR "/src/data/generated/dither_matrix.cpp";
  const std::string fresh = ::testing::TempDir() + "dither_matrix_regen.cpp";
  const std::string command = std::string("\"") + GEN_DITHER_MATRIX + "\" \"" + fresh + "\"";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  auto slurp = [](const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  };
  const std::string expected = slurp(fresh);
  std::remove(fresh.c_str());
  ASSERT_FALSE(expected.empty());
  EXPECT_TRUE(slurp(checkedIn) == expected)
      << "src/data/generated/dither_matrix.cpp is not what tools/gen_dither_matrix.cpp writes. Update it with\n"
      << "  cmake --build <build> --target gen-dither-matrix && <build>/tools/gen-dither-matrix "
         "src/data/generated/dither_matrix.cpp\n"
      << "and then the SHA-256 pinned in tests/dither/dither_matrix_test.cpp.";
}

TEST(DitherMatrix, BytesArePinned) {
  EXPECT_EQ(testing::Sha256Hex(DitherMatrix, sizeof DitherMatrix),
            "74c8c008a0cd62b9de3f06bb317c7ceab84966ebb524ff255395e90e014cbcbe");
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

}  // namespace
}  // namespace inkweave
