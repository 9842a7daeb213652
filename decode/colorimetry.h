// Colour measurement for the virtual printer, with Little CMS 2 (its own library target, so that the
// stream decoder and printer model stay standard-library only).
//
// Every colour is CIELAB under D50 relative to a white: printed colours relative to the bare paper
// (the printer model's reflectances), sRGB source colours relative to sRGB white (relative
// colorimetric, adapted to D50 by the sRGB profile).
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "decode/ink.h"

namespace inkweave::decode {

struct Lab {
  double L = 0;
  double a = 0;
  double b = 0;
};

// A printed reflectance (linear ROMM RGB relative to the paper) as CIELAB D50.
Lab LabOfReflectance(const Reflectance& colour);
// An sRGB colour as CIELAB D50.
Lab LabOfSrgb(std::uint8_t red, std::uint8_t green, std::uint8_t blue);
// Printed reflectances as 8-bit sRGB pixels (three bytes each), clipped to the sRGB gamut.
void SrgbOfReflectances(std::span<const Reflectance> colours, std::span<std::uint8_t> rgb);
// Black-point compensation of a source colour: scaled in XYZ so that the source's black (L* 0) lands
// on `black` and white stays white.
Lab CompensateBlack(const Lab& source, const Lab& black);
double DeltaE2000(const Lab& one, const Lab& two);
// Hue angle in degrees, 0..360.
double Hue(const Lab& colour);

}  // namespace inkweave::decode
