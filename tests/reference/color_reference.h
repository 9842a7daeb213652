// A deliberately plain pixel conversion for the tests, written from the rules rather than from the
// fast code: weights computed per corner from the fractions (not read from InterpolationWeights),
// plain division by 255, every case spelled out with grid points by coordinates.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>

namespace inkweave::reference {

// floor(255 wr wg wb) for corner b (bit 1 red, 2 green, 4 blue further) at fractions f / 16.
inline int WeightByRule(int fr, int fg, int fb, int corner) {
  const int f[3] = {fr, fg, fb};
  double w = 255.0;
  for (int axis = 0; axis < 3; ++axis) {
    const double t = f[axis] / 16.0;
    w *= (corner >> axis & 1) ? t : 1.0 - t;
  }
  return static_cast<int>(std::floor(w));
}

// Ink n of grid point (i, j, k).
inline int GridInk(const std::uint8_t* lut, int i, int j, int k, int n) { return lut[((i * 17 + j) * 17 + k) * 4 + n]; }

inline std::array<std::uint8_t, 4> Complement(const std::uint8_t* lut, int i, int j, int k) {
  std::array<std::uint8_t, 4> out{};
  for (int n = 0; n < 4; ++n) out[n] = static_cast<std::uint8_t>(255 - GridInk(lut, i, j, k, n));
  return out;
}

// The four lightness values of pixel (red, green, blue); curves holds the seven tone curves.
inline std::array<std::uint8_t, 4> ConvertPixelByRule(int red, int green, int blue, int colorMode,
                                                      const std::uint8_t* lut, const std::uint8_t* curves) {
  if (colorMode == 1) {
    const int gray = (30 * red + 59 * green + 11 * blue) / 100;
    const auto v = curves[5 * 256 + gray];
    return {v, v, v, v};
  }
  const int r = curves[2 * 256 + red];
  const int g = curves[3 * 256 + green];
  const int b = curves[4 * 256 + blue];
  const int ir = r / 16, ig = g / 16, ib = b / 16;
  const int fr = r % 16, fg = g % 16, fb = b % 16;

  if (red == 255 && green == 255 && blue == 255) return Complement(lut, 16, 16, 16);
  if (fr == 0 && fg == 0 && fb == 0) return Complement(lut, ir, ig, ib);

  const int key = r * 65536 + g * 256 + b;
  if (key == 0x0000FF) return Complement(lut, 0, 0, 16);
  if (key == 0x00FF00) return Complement(lut, 0, 16, 0);
  if (key == 0x00FFFF) return Complement(lut, 0, 16, 16);
  if (key == 0xFF0000) return Complement(lut, 16, 0, 0);
  if (key == 0xFF00FF) return Complement(lut, 16, 0, 16);
  if (key == 0xFFFF00) return Complement(lut, 16, 16, 0);

  if (r == g && g == b) {
    const int d = ir < 15 ? 16 : 15;
    const int v = (GridInk(lut, ir + 1, ig + 1, ib + 1, 0) * fr + GridInk(lut, ir, ig, ib, 0) * (d - fr)) / d;
    const auto o = static_cast<std::uint8_t>(255 - v);
    return {o, o, o, o};
  }

  int w[8];
  int rest = 0;
  for (int corner = 1; corner < 8; ++corner) {
    w[corner] = WeightByRule(fr, fg, fb, corner);
    rest += w[corner];
  }
  w[0] = 255 - rest;
  std::array<std::uint8_t, 4> out{};
  for (int n = 0; n < 4; ++n) {
    long sum = 0;
    for (int corner = 0; corner < 8; ++corner)
      sum += static_cast<long>(w[corner]) *
             GridInk(lut, ir + (corner & 1), ig + (corner >> 1 & 1), ib + (corner >> 2 & 1), n);
    out[n] = static_cast<std::uint8_t>(255 - sum / 255);
  }
  return out;
}

}  // namespace inkweave::reference
