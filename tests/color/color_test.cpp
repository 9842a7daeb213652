// The choice of the page's colour table (by media and the whole PrintMode byte, with its memory of the
// last choice), the tone curves with their unsigned and signed clamps, and ConvertPixel: the fixed order
// of its cases (monochrome, grid point or white, the six corners, the neutral axis with its stretched top
// cell), and the batch kernel of every instruction set against it over a dense sample of the RGB cube for
// several tables and tone curves (the whole-stream suite pins the interpolation on printed pages).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "src/color/color.h"
#include "src/color/kernels.h"
#include "src/data/tables.h"
#include "tests/support/instruction_sets.h"

namespace inkweave {
namespace {

// The table number behind a pointer, 0 for none.
int TableNumber(const std::uint8_t* lut) {
  for (int n = 1; n <= kColorTableCount; ++n)
    if (ColorTable(n) == lut) return n;
  return 0;
}

// Both tables of the pair for a fresh state (no memory).
std::array<int, 2> PairFor(std::int16_t media, std::uint8_t mode) {
  std::array<int, 2> pair{};
  for (int which = 0; which < 2; ++which) {
    DeviceState state{};
    state.MediaType = media;
    state.PrintMode = mode;
    pair[static_cast<std::size_t>(which)] =
        TableNumber(SelectColorLut(state, which == 0 ? kLutPurposeDither : kLutPurposeDiffusion));
  }
  return pair;
}

TEST(SelectColorLut, EveryRowOfTheSelection) {
  struct Case {
    std::int16_t media;
    std::uint8_t mode;
    int dither, diffusion;
  };
  static const Case kCases[] = {
      {0, 4, 3, 4},    {0, 5, 3, 4},   {0, 36, 3, 4},   {0, 37, 3, 4},   {0, 1, 1, 2},  {0, 2, 1, 2},   {0, 6, 1, 2},
      {0, 38, 1, 2},   {0, 20, 1, 2},  {0, 52, 1, 2},   {1, 6, 7, 8},    {1, 38, 7, 8}, {1, 4, 5, 6},   {1, 22, 5, 6},
      {1, 2, 5, 6},    {1, 37, 5, 6},  {2, 4, 11, 12},  {2, 37, 11, 12}, {2, 6, 9, 10}, {2, 20, 9, 10}, {3, 5, 11, 12},
      {3, 36, 11, 12}, {3, 6, 13, 14}, {3, 1, 13, 14},  {4, 4, 5, 6},    {4, 36, 5, 6}, {4, 6, 15, 16}, {5, 5, 5, 6},
      {5, 37, 5, 6},   {5, 2, 15, 16}, {5, 21, 15, 16}, {6, 4, 0, 0},    {-1, 2, 0, 0}, {100, 6, 0, 0},
  };
  for (const Case& c : kCases)
    EXPECT_EQ(PairFor(c.media, c.mode), (std::array<int, 2>{c.dither, c.diffusion}))
        << "media " << c.media << " mode " << int{c.mode};
}

// Over all 256 mode bytes the alternative pairs answer to exactly their listed bytes.
TEST(SelectColorLut, AlternativePairsOnlyForTheirExactBytes) {
  for (std::int16_t media = 0; media <= 5; ++media) {
    const int alternative = media == 1 ? 7 : media == 0 ? 3 : media <= 3 ? 11 : 5;
    int count = 0;
    for (int mode = 0; mode < 256; ++mode) count += PairFor(media, static_cast<std::uint8_t>(mode))[0] == alternative;
    EXPECT_EQ(count, media == 1 ? 2 : 4) << "media " << media;
  }
}

TEST(SelectColorLut, MemoryKeepsTheStoredTableWhateverThePurpose) {
  DeviceState state{};
  state.MediaType = 1;
  state.PrintMode = 6;
  state.PrintQuality = 600;
  state.HalftoneMethod = 1;
  state.ColorLut = SelectColorLut(state, kLutPurposeDither);  // first page
  EXPECT_EQ(TableNumber(state.ColorLut), 7);

  // Second page, same key: the stored table comes back even for the diffusion purpose.
  EXPECT_EQ(TableNumber(SelectColorLut(state, kLutPurposeDiffusion)), 7);

  // Whatever ColorLut holds is returned as it stands, and the memory is not rewritten.
  const std::uint8_t other[4] = {};
  state.ColorLut = other;
  EXPECT_EQ(SelectColorLut(state, kLutPurposeDither), other);

  // Any part of the key changed, or no table held: a new choice, not the held pointer.
  for (int part = 0; part < 6; ++part) {
    DeviceState s = state;
    switch (part) {
      case 0: s.PrintQuality = 300; break;
      case 1: s.HalftoneMethod = 2; break;
      case 2: s.LutVariant = 1; break;
      case 3: s.PrintMode = 38; break;
      case 4: s.MediaType = 2; break;
      case 5: s.ColorLut = nullptr; break;
    }
    const int expected = part == 4 ? 9 : 7;  // media 2, mode 6: the glossy pair
    EXPECT_EQ(TableNumber(SelectColorLut(s, kLutPurposeDither)), expected) << "part " << part;
    EXPECT_EQ(s.CachedPrintQuality, s.PrintQuality);
    EXPECT_EQ(s.CachedLutVariant, s.LutVariant);
  }
}

// Curves 0 brightness, 1 contrast, 2..4 red, green, blue gain, 5 gray; curve 6 is left alone. A
// negative unsigned sum is a large number and saturates to 255, not to 0: kept on purpose; the gains
// clamp as signed 16-bit values.
int Identity(int i) { return i; }

void Adjust(DeviceState& state, const std::int16_t (&adjust)[5]) {
  state.BrightnessAdjust = adjust[0];
  state.ContrastAdjust = adjust[1];
  state.RedGain = adjust[2];
  state.GreenGain = adjust[3];
  state.BlueGain = adjust[4];
  BuildToneCurves(state);
}

int Darker(int i) { return i == 0 ? 255 : i - 1; }
int Doubled(int i) { return i >= 64 && i <= 191 ? 2 * i - 128 : 255; }

TEST(BuildToneCurves, AdjustmentsTruncateAndClampPerCurve) {
  struct Case {
    const char* what;
    std::int16_t adjust[5];                            // brightness, contrast, red, green, blue
    std::vector<std::pair<int, int (*)(int)>> curves;  // curve, expected value of input i
  };
  const Case cases[] = {
      {"no adjustment", {0, 0, 0, 0, 0}, {{0, Identity}, {1, Identity}, {2, Identity}, {3, Identity}, {5, Identity}}},
      {"brightness -1 saturates 0 to white", {-1, 0, 0, 0, 0}, {{0, Darker}, {2, Darker}, {5, Darker}}},
      {"brightness -128 subtracts 255", {-128, 0, 0, 0, 0}, {{0, [](int i) { return i == 255 ? 0 : 255; }}}},
      {"contrast 100 doubles around mid-scale, negatives wrap to 255", {0, 100, 0, 0, 0}, {{1, Doubled}, {5, Doubled}}},
      // Red: v - 2v <= 0 gives 0; green: 2v, above 255 gives 255; blue: v + 255 v is 256 (255) at v = 1 and
      // past 32767 from v = 128 on (65533 at 255, as signed 16 bits -3, so 0); curves 0, 1 and 5 do not
      // see the gains.
      {"gains clamp signed",
       {0, 0, -256, 128, 32767},
       {{2, [](int) { return 0; }},
        {3, [](int i) { return std::min(2 * i, 255); }},
        {4, [](int i) { return i >= 1 && i <= 127 ? 255 : 0; }},
        {0, Identity},
        {5, Identity}}},
  };
  for (const Case& c : cases) {
    std::array<std::uint8_t, kToneCurveBytes> bytes;
    bytes.fill(0xA5);
    DeviceState state{};
    state.ToneCurves = bytes.data();
    Adjust(state, c.adjust);
    for (const auto& [curve, expected] : c.curves)
      for (int i = 0; i < 256; ++i) ASSERT_EQ(bytes[curve * 256 + i], expected(i)) << c.what << ", curve " << curve;
    for (int i = 0; i < 256; ++i) ASSERT_EQ(bytes[6 * 256 + i], 0xA5) << c.what << ": curve 6 is left alone";
  }
}

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
  Adjust(brighter.state, {1, 0, 0, 0, 0});
  EXPECT_EQ(brighter(254, 254, 254), All(255 - 200));
  // White input is the white grid point whatever the curves make of it.
  Converter darker(lut.data());
  Adjust(darker.state, {-128, 0, 0, 0, 0});  // white input becomes 0 through the curves
  EXPECT_EQ(darker(255, 255, 255), (std::array<int, 4>{55, 248, 248, 248}));
}

// The batch kernel of every instruction set against ConvertPixel: every third value of each channel (255
// included), the values around the cell edges in every combination, and a seeded random sample, for three
// tables, colour and monochrome, with identity and bent curves, in pieces of every length up to 37.
TEST(ConvertPixel, EveryInstructionSetsBatchKernelAgreesWithIt) {
  static const std::int16_t kVariants[][5] = {{0, 0, 0, 0, 0}, {3, 20, -20, 10, 40}, {-2, -15, 30, -40, 0}};
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
      for (const auto& adjust : kVariants) {
        Converter convert(ColorTable(t), mode);
        Adjust(convert.state, adjust);
        std::vector<std::uint32_t> want(keys.size()), got(keys.size());
        for (std::size_t i = 0; i < keys.size(); ++i) {
          const auto ink = convert(keys[i] & 255, (keys[i] >> 8) & 255, keys[i] >> 16);
          want[i] = ink[0] | ink[1] << 8 | ink[2] << 16 | static_cast<std::uint32_t>(ink[3]) << 24;
        }
        ConvertParts parts;
        PrepareConvertParts(convert.state, parts);
        testing::ForEachInstructionSet([&](InstructionSet set) {
          std::fill(got.begin(), got.end(), 0u);
          for (std::size_t i = 0, n = 1; i < keys.size(); i += n, n = n % 37 + 1)
            ConvertPreparedFor(set)(&keys[i], static_cast<int>(std::min(n, keys.size() - i)), &got[i], convert.state,
                                    parts);
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
