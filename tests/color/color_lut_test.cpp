// The choice of the page's colour table (by media and the whole PrintMode byte, with its memory of the
// last choice) and the tone curves with their unsigned and signed clamps.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "src/color/color.h"
#include "src/data/tables.h"

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

// Tone curves -------------------------------------------------------------------------------------

// Curves 0 brightness, 1 contrast, 2..4 red, green, blue gain, 5 gray; curve 6 is left alone. A
// negative unsigned sum is a large number and saturates to 255, not to 0: kept on purpose; the gains
// clamp as signed 16-bit values.
int Identity(int i) { return i; }
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
      {"brightness 64 adds trunc(64 x 255 / 128)",
       {64, 0, 0, 0, 0},
       {{0, [](int i) { return std::min(i + 127, 255); }}}},
      {"brightness -128 subtracts 255", {-128, 0, 0, 0, 0}, {{0, [](int i) { return i == 255 ? 0 : 255; }}}},
      {"contrast 100 doubles around mid-scale, negatives wrap to 255", {0, 100, 0, 0, 0}, {{1, Doubled}, {5, Doubled}}},
      {"contrast -100 is mid-scale", {0, -100, 0, 0, 0}, {{1, [](int) { return 128; }}}},
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
    state.BrightnessAdjust = c.adjust[0];
    state.ContrastAdjust = c.adjust[1];
    state.RedGain = c.adjust[2];
    state.GreenGain = c.adjust[3];
    state.BlueGain = c.adjust[4];
    BuildToneCurves(state);
    for (const auto& [curve, expected] : c.curves)
      for (int i = 0; i < 256; ++i) ASSERT_EQ(bytes[curve * 256 + i], expected(i)) << c.what << ", curve " << curve;
    for (int i = 0; i < 256; ++i) ASSERT_EQ(bytes[6 * 256 + i], 0xA5) << c.what << ": curve 6 is left alone";
  }
}

}  // namespace
}  // namespace inkweave
