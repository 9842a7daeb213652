// Page set-up of the colour conversion: the choice of the colour table by media and print mode (with
// a memory of the last choice, so later pages keep their table), and the tone curves 0..5 built from
// the brightness, contrast and per-channel gain adjustments.
#include <cstdint>

#include "src/color/color.h"
#include "src/color/color_internal.h"
#include "src/data/tables.h"

namespace inkweave {
namespace {

// The table pair (dither, error diffusion) by media code and the whole PrintMode byte. The mode sets
// are exact byte values on purpose: a monochrome mode (bit 16) never matches them.
struct LutPair {
  int dither;     // table number, 0 none
  int diffusion;  // table number, 0 none
};

bool IsFineMode(std::uint8_t mode) { return mode == 4 || mode == 5 || mode == 36 || mode == 37; }

LutPair PairFor(std::int16_t media, std::uint8_t mode) {
  switch (media) {
    case 0: return IsFineMode(mode) ? LutPair{3, 4} : LutPair{1, 2};
    case 1: return (mode == 6 || mode == 38) ? LutPair{7, 8} : LutPair{5, 6};
    case 2: return IsFineMode(mode) ? LutPair{11, 12} : LutPair{9, 10};
    case 3: return IsFineMode(mode) ? LutPair{11, 12} : LutPair{13, 14};
    case 4:
    case 5: return IsFineMode(mode) ? LutPair{5, 6} : LutPair{15, 16};
    default: return LutPair{0, 0};
  }
}

// An adjusted value as the unsigned 16-bit number it is computed in: above 255 (negative ones
// included, they wrap to large numbers) saturates to 255.
std::uint8_t UnsignedClamp(int value) {
  const auto s = static_cast<std::uint16_t>(value);
  return static_cast<std::uint8_t>(s <= 255 ? s : 255);
}

// A gain-adjusted value as a signed 16-bit number, clamped to 0..255.
std::uint8_t SignedClamp(int value) {
  const auto s = static_cast<std::int16_t>(value);
  if (s <= 0) return 0;
  return static_cast<std::uint8_t>(s > 255 ? 255 : s);
}

}  // namespace

const std::uint8_t* SelectColorLut(DeviceState& state, std::int16_t purpose) {
  // The memory: the same key keeps the stored table whatever the purpose.
  if (static_cast<std::uint16_t>(state.MediaType) == state.CachedMediaType &&
      state.PrintQuality == state.CachedPrintQuality && state.HalftoneMethod == state.CachedHalftoneMethod &&
      state.LutVariant == state.CachedLutVariant && state.PrintMode == state.CachedPrintMode &&
      state.ColorLut != nullptr) {
    return state.ColorLut;
  }

  const LutPair pair = PairFor(state.MediaType, state.PrintMode);
  state.CachedMediaType = static_cast<std::uint16_t>(state.MediaType);
  state.CachedPrintQuality = state.PrintQuality;
  state.CachedHalftoneMethod = state.HalftoneMethod;
  state.CachedLutVariant = state.LutVariant;
  state.CachedPrintMode = state.PrintMode;
  // ColorTable answers null for number 0, so a media code above 5 yields no table.
  return ColorTable(purpose == kLutPurposeDither ? pair.dither : pair.diffusion);
}

void BuildToneCurves(DeviceState& state) {
  std::uint8_t* curves = state.ToneCurves;
  if (curves == nullptr) return;
  std::uint8_t* brightness = curves + kCurveBrightness * 256;
  std::uint8_t* contrast = curves + kCurveContrast * 256;

  // Curves 0 and 1: offsets in the unsigned 16-bit clamp.
  const int offset = state.BrightnessAdjust * 255 / 128;
  for (int i = 0; i < 256; ++i) {
    brightness[i] = UnsignedClamp(offset + i);
    contrast[i] = UnsignedClamp(i + (i - 128) * state.ContrastAdjust / 100);
  }

  // Curves 2..4: brightness, the channel's gain in the signed clamp, then contrast.
  const std::int16_t gains[3] = {state.RedGain, state.GreenGain, state.BlueGain};
  for (int channel = 0; channel < 3; ++channel) {
    std::uint8_t* curve = curves + (kCurveRed + channel) * 256;
    for (int i = 0; i < 256; ++i) {
      const int v = brightness[i];
      curve[i] = contrast[SignedClamp(v + gains[channel] * v / 128)];
    }
  }

  // Curve 5: brightness then contrast. Curve 6 belongs to the band driver.
  std::uint8_t* gray = curves + kCurveGray * 256;
  for (int i = 0; i < 256; ++i) gray[i] = contrast[brightness[i]];
}

}  // namespace inkweave
