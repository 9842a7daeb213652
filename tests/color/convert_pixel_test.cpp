// ConvertPixel: the fixed order of its cases (monochrome, grid point or white, the six corners, the
// neutral axis with its stretched top cell), and the batch kernel of every instruction set against it over
// a dense sample of the RGB cube for several tables and tone curves (the whole-stream suite pins the
// interpolation on printed pages).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "src/color/color.h"
#include "src/color/kernels.h"
#include "src/data/tables.h"
#include "tests/support/instruction_sets.h"

namespace inkweave {
namespace {

struct Converter {
  std::array<std::uint8_t, kToneCurveBytes> curves{};
  DeviceState state{};
  explicit Converter(const std::uint8_t* lut, std::uint16_t colorMode = 2) {
    state.ColorMode = colorMode;
    state.ColorLut = lut;
    state.ToneCurves = curves.data();
    BuildToneCurves(state);
  }
  // Converts a pixel held in an array of exactly three bytes: reading a fourth would be an overread
  // (the sanitizer build catches it).
  std::array<int, 4> operator()(int r, int g, int b) const {
    const std::uint8_t pixel[3] = {static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g),
                                   static_cast<std::uint8_t>(b)};
    std::uint8_t out[4] = {1, 2, 3, 4};
    const std::uint32_t packed = ConvertPixel(pixel, out, state);
    EXPECT_EQ(packed, out[0] | out[1] << 8 | out[2] << 16 | static_cast<std::uint32_t>(out[3]) << 24);
    return {out[0], out[1], out[2], out[3]};
  }
};

std::array<int, 4> Complement(int table, int i, int j, int k) {
  const std::uint8_t* p = ColorTable(table) + ((i * 17 + j) * 17 + k) * 4;
  return {255 - p[0], 255 - p[1], 255 - p[2], 255 - p[3]};
}

std::array<int, 4> All(int v) { return {v, v, v, v}; }

// White is no ink; black, grid points and the six full-intensity corners read their grid point; one step
// short of a corner interpolates instead; without a table in colour mode nothing inks.
TEST(ConvertPixel, WhiteGridPointsAndCorners) {
  static const int kPoints[][6] = {{0, 0, 0, 0, 0, 0},    {128, 128, 128, 8, 8, 8}, {16, 64, 240, 1, 4, 15},
                                   {0, 0, 255, 0, 0, 16}, {0, 255, 0, 0, 16, 0},    {0, 255, 255, 0, 16, 16},
                                   {255, 0, 0, 16, 0, 0}, {255, 0, 255, 16, 0, 16}, {255, 255, 0, 16, 16, 0}};
  for (int t = 1; t <= kColorTableCount; ++t) {
    const Converter convert(ColorTable(t));
    EXPECT_EQ(convert(255, 255, 255), All(255)) << t;
    for (const auto& p : kPoints) EXPECT_EQ(convert(p[0], p[1], p[2]), Complement(t, p[3], p[4], p[5])) << t;
  }
  const Converter convert(ColorTable(1));
  EXPECT_NE(convert(255, 254, 0), convert(255, 255, 0));
  EXPECT_EQ(Converter(nullptr)(12, 200, 77), All(255));
}

// A synthetic table whose diagonal says which grid points the neutral case reads.
std::vector<std::uint8_t> DiagonalTable() {
  std::vector<std::uint8_t> lut(kColorTableBytes, 0);
  for (int i = 0; i < 17; ++i) {
    std::uint8_t* p = &lut[static_cast<std::size_t>(((i * 17 + i) * 17 + i) * 4)];
    p[0] = static_cast<std::uint8_t>(10 * i + 40);  // cyan: the only byte the neutral case reads
    p[1] = p[2] = p[3] = 7;
  }
  return lut;
}

TEST(ConvertPixel, NeutralCaseReadsTheCyanOfTheDiagonal) {
  const std::vector<std::uint8_t> lut = DiagonalTable();
  const Converter convert(lut.data());
  // Gray 136: between (8,8,8) and (9,9,9) at fr = 8, the same value in all four inks.
  EXPECT_EQ(convert(136, 136, 136), All(255 - (130 * 8 + 120 * 8) / 16));
  EXPECT_EQ(convert(250, 250, 250), All(255 - (200 * 10 + 190 * 5) / 15));

  // Gray 255 reached through the curves only (input not white): d = 15, fr = 15 lands on point 16.
  Converter brighter(lut.data());
  brighter.state.BrightnessAdjust = 1;  // +1
  BuildToneCurves(brighter.state);
  EXPECT_EQ(brighter(254, 254, 254), All(255 - 200));
  // White input is the white grid point whatever the curves make of it.
  EXPECT_EQ(brighter(255, 255, 255), (std::array<int, 4>{55, 248, 248, 248}));
  Converter darker(lut.data());
  darker.state.BrightnessAdjust = -128;  // white input becomes 0 through the curves
  BuildToneCurves(darker.state);
  EXPECT_EQ(darker(255, 255, 255), (std::array<int, 4>{55, 248, 248, 248}));
}

TEST(ConvertPixel, MonochromeUsesTheGrayCurveUncomplemented) {
  Converter gray(ColorTable(1), 1);
  EXPECT_EQ(gray(255, 0, 0), All(76));
  EXPECT_EQ(gray(0, 255, 0), All(150));
  EXPECT_EQ(gray(0, 0, 255), All(28));
  EXPECT_EQ(gray(255, 255, 255), All(255));
  EXPECT_EQ(gray(0, 0, 0), All(0));
  gray.state.BrightnessAdjust = -1;
  BuildToneCurves(gray.state);
  EXPECT_EQ(gray(255, 0, 0), All(75));
  EXPECT_EQ(gray(0, 0, 0), All(255));  // the unsigned clamp of curve 0
  // No colour table is needed in monochrome.
  gray.state.ColorLut = nullptr;
  EXPECT_EQ(gray(255, 0, 0), All(75));
}

// The batch kernel of every instruction set against ConvertPixel: every third value of each channel (255
// included), the values around the cell edges in every combination, and a seeded random sample, for three
// tables, colour and monochrome, with identity and bent curves, in pieces of every length up to 37.
TEST(ConvertPixel, EveryInstructionSetsBatchKernelAgreesWithIt) {
  struct Variant {
    std::int16_t brightness, contrast, red, green, blue;
  };
  static const Variant kVariants[] = {{0, 0, 0, 0, 0}, {3, 20, -20, 10, 40}, {-2, -15, 30, -40, 0}};
  static const int kEdges[] = {0, 1, 15, 16, 17, 127, 128, 136, 239, 240, 241, 254, 255};
  std::mt19937 rng(0x5EED0C01u);
  std::vector<std::uint32_t> keys;
  for (int r = 0; r < 256; r += 3)
    for (int g = 0; g < 256; g += 3)
      for (int b = 0; b < 256; b += 3) keys.push_back(static_cast<std::uint32_t>(r | g << 8 | b << 16));
  for (int r : kEdges)
    for (int g : kEdges)
      for (int b : kEdges) keys.push_back(static_cast<std::uint32_t>(r | g << 8 | b << 16));
  for (int s = 0; s < 20000; ++s) keys.push_back(rng() & 0xFFFFFF);

  for (int t : {1, 8, 13})
    for (std::uint16_t mode : {2, 1})
      for (const Variant& v : kVariants) {
        Converter convert(ColorTable(t), mode);
        convert.state.BrightnessAdjust = v.brightness;
        convert.state.ContrastAdjust = v.contrast;
        convert.state.RedGain = v.red;
        convert.state.GreenGain = v.green;
        convert.state.BlueGain = v.blue;
        BuildToneCurves(convert.state);
        std::vector<std::uint32_t> want(keys.size()), got(keys.size());
        for (std::size_t i = 0; i < keys.size(); ++i) {
          const auto ink = convert(keys[i] & 255, (keys[i] >> 8) & 255, keys[i] >> 16);
          want[i] = ink[0] | ink[1] << 8 | ink[2] << 16 | static_cast<std::uint32_t>(ink[3]) << 24;
        }
        testing::ForEachInstructionSet([&](InstructionSet set) {
          std::fill(got.begin(), got.end(), 0u);
          for (std::size_t i = 0, n = 1; i < keys.size(); i += n, n = n % 37 + 1)
            ConvertPixelsFor(set)(&keys[i], static_cast<int>(std::min(n, keys.size() - i)), &got[i], convert.state);
          int mismatches = 0;
          for (std::size_t i = 0; i < keys.size(); ++i)
            if (got[i] != want[i] && ++mismatches <= 5)
              ADD_FAILURE() << "table " << t << " mode " << mode << " pixel 0x" << std::hex << keys[i] << ": 0x"
                            << got[i] << " != 0x" << want[i];
          ASSERT_EQ(mismatches, 0);
        });
      }
}

}  // namespace
}  // namespace inkweave
