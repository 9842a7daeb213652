// Colour conversion: choosing the page's colour table and tone curves, and converting one RGB pixel
// into four ink lightness values (255 no ink, 0 full ink) in the order cyan, magenta, yellow, black.
#pragma once

#include <cstdint>

#include "src/device/device_state.h"

namespace inkweave {

inline constexpr std::int16_t kLutPurposeDiffusion = 1;
inline constexpr std::int16_t kLutPurposeDither = 2;

// The colour table for the state's media and print mode; purpose 2 asks for the dither table, any
// other value for the error-diffusion table. Null when no table applies (media code above 5).
const std::uint8_t* SelectColorLut(DeviceState& state, std::int16_t purpose);

// Rewrites curves 0..5 of ToneCurves from the adjustment fields.
void BuildToneCurves(DeviceState& state);

// Converts the pixel (red, green, blue) into out[0..3]; returns the four bytes with cyan lowest.
std::uint32_t ConvertPixel(const std::uint8_t* pixel, std::uint8_t* out, const DeviceState& state);

}  // namespace inkweave
