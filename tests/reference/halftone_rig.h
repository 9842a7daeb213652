// What the halftone renderers' tests hand a renderer: a device state with its own plane buffers, error
// lines, tone curves (identity unless changed) and a colour table of its own (zeros until the test fills
// it), and host bands allocated at exactly height x stride bytes, so that a sanitizer build catches any
// access outside them. Neither is copied: the state and the band record point into them.
#pragma once

#include <cstdint>
#include <vector>

#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"

namespace inkweave::reference {

struct Rig {
  DeviceState State{};
  std::vector<std::uint8_t> Planes[2];
  std::vector<std::int16_t> Lines[4];
  std::vector<std::uint8_t> Curves = std::vector<std::uint8_t>(kToneCurveBytes);
  std::vector<std::uint8_t> Lut = std::vector<std::uint8_t>(kColorTableBytes);

  // lineCells: the cells of each error line (none for ordered dither).
  explicit Rig(std::uint16_t colorMode, std::size_t lineCells = 0) {
    for (int b = 0; b < 2; ++b) {
      Planes[b].assign(kPlaneBufferBytes, 0);
      State.PlaneBuffer[b] = Planes[b].data();
    }
    for (int j = 0; j < 4; ++j) {
      Lines[j].assign(lineCells, 0);
      State.LineBuffers[j] = Lines[j].data();
    }
    for (std::size_t i = 0; i < Curves.size(); ++i) Curves[i] = static_cast<std::uint8_t>(i);
    State.ColorMode = colorMode;
    State.ColorLut = Lut.data();
    State.ToneCurves = Curves.data();
  }
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;
};

struct Band {
  std::vector<std::uint8_t> Bytes;
  BandInfo Info{};

  Band(int width, int height, int bitCount = 24) {
    Info.Header.biSize = 40;
    Info.Header.biWidth = width;
    Info.Header.biHeight = height;
    Info.Header.biPlanes = 1;
    Info.Header.biBitCount = static_cast<std::uint16_t>(bitCount);
    Info.Stride = BandStride(width);
    Bytes.assign(static_cast<std::size_t>(height) * static_cast<std::size_t>(Info.Stride), 0);
    Info.Bits = Bytes.data();
  }
  Band(const Band&) = delete;
  Band& operator=(const Band&) = delete;
  std::uint8_t* Row(int r) { return Bytes.data() + static_cast<std::ptrdiff_t>(r) * Info.Stride; }
};

// Page offsets of a band.
inline IPPARAMS Offsets(int x, int y) {
  IPPARAMS params{};
  params.dwSize = sizeof(IPPARAMS);
  params.ptOffset.x = x;
  params.ptOffset.y = y;
  return params;
}

}  // namespace inkweave::reference
