// A device and bands for the diffusion tests, allocated as the device allocates them: four error
// lines of exactly 4 W + 16 bytes (W doubled at 600 dpi), two plane buffers of kPlaneBufferBytes, seven
// identity tone curves, and bands whose pixel block ends at the last row's stride.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"

namespace inkweave::testing {

struct DiffusionDevice {
  DeviceState State;
  std::vector<std::int16_t> Lines[4];
  std::vector<std::uint8_t> Planes[2];
  std::vector<std::uint8_t> Curves;
  std::vector<std::uint8_t> Lut;  // 17 x 17 x 17 x 4, red slowest: C = 255 - r, M, Y likewise, K = min
};

inline std::unique_ptr<DiffusionDevice> MakeDiffusionDevice(std::uint32_t pageWidth, std::uint16_t quality,
                                                            std::uint8_t printMode, std::uint16_t colorMode = 1,
                                                            std::int16_t media = 0) {
  auto d = std::make_unique<DiffusionDevice>();
  d->State = DeviceState{};
  d->State.PageWidth = pageWidth;
  d->State.PrintQuality = quality;
  d->State.PrintMode = printMode;
  d->State.ColorMode = colorMode;
  d->State.MediaType = media;
  const std::size_t w = std::size_t{pageWidth} * (quality == 600 ? 2 : 1);
  for (int j = 0; j < 4; ++j) {
    d->Lines[j].assign((4 * w + 16) / 2, 0);
    d->State.LineBuffers[j] = d->Lines[j].data();
  }
  for (int b = 0; b < 2; ++b) {
    d->Planes[b].assign(kPlaneBufferBytes, 0);
    d->State.PlaneBuffer[b] = d->Planes[b].data();
  }
  d->Curves.resize(kToneCurveBytes);
  for (std::size_t i = 0; i < d->Curves.size(); ++i) d->Curves[i] = static_cast<std::uint8_t>(i);
  d->State.ToneCurves = d->Curves.data();
  d->Lut.resize(17 * 17 * 17 * 4);
  for (int r = 0; r < 17; ++r) {
    for (int g = 0; g < 17; ++g) {
      for (int b = 0; b < 17; ++b) {
        auto lit = [](int i) { return i * 16 > 255 ? 255 : i * 16; };
        const int c = 255 - lit(r), m = 255 - lit(g), y = 255 - lit(b);
        const int k = c < m ? (c < y ? c : y) : (m < y ? m : y);
        std::uint8_t* p = &d->Lut[static_cast<std::size_t>(((r * 17 + g) * 17 + b) * 4)];
        p[0] = static_cast<std::uint8_t>(c);
        p[1] = static_cast<std::uint8_t>(m);
        p[2] = static_cast<std::uint8_t>(y);
        p[3] = static_cast<std::uint8_t>(k);
      }
    }
  }
  d->State.ColorLut = d->Lut.data();
  return d;
}

struct TestBand {
  std::vector<std::uint8_t> Pixels;
  BandInfo Info;
};

using PixelFn = std::function<void(int x, int y, std::uint8_t* rgb)>;

inline std::unique_ptr<TestBand> MakeBand(int width, int height, const PixelFn& pixel) {
  auto band = std::make_unique<TestBand>();
  const std::int32_t stride = BandStride(width);
  band->Pixels.assign(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height), 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) pixel(x, y, &band->Pixels[static_cast<std::size_t>(y * stride + 3 * x)]);
  }
  band->Info = BandInfo{};
  band->Info.Header.biSize = 40;
  band->Info.Header.biWidth = width;
  band->Info.Header.biHeight = height;
  band->Info.Header.biPlanes = 1;
  band->Info.Header.biBitCount = 24;
  band->Info.Bits = band->Pixels.data();
  band->Info.Stride = stride;
  return band;
}

inline PixelFn Flat(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  return [=](int, int, std::uint8_t* p) {
    p[0] = r;
    p[1] = g;
    p[2] = b;
  };
}

// Random pixels in short runs (so the conversion cache is exercised), with white runs among them.
inline PixelFn RandomRuns(std::uint32_t seed) {
  auto rng = std::make_shared<std::mt19937>(seed);
  auto last = std::make_shared<std::array<std::uint8_t, 3>>();
  return [=](int, int, std::uint8_t* p) {
    const std::uint32_t roll = (*rng)() % 16;
    if (roll < 3) {
      (*last)[0] = (*last)[1] = (*last)[2] = 255;
    } else if (roll < 8) {
      for (auto& c : *last) c = static_cast<std::uint8_t>((*rng)() >> 24);
    }
    p[0] = (*last)[0];
    p[1] = (*last)[1];
    p[2] = (*last)[2];
  };
}

// The pixels across a band's scan lines.
inline int BandAcross(const TestBand& band, bool landscape) {
  return landscape ? band.Info.Header.biHeight : band.Info.Header.biWidth;
}

// Calls a renderer as the band driver does: row units and row pixels are the pixels across (from
// firstPixel on, when given).
inline std::uint32_t RenderStripe(BandRendererFn renderer, DiffusionDevice& d, const TestBand& band, bool landscape,
                                  int firstLine, int lines, std::int32_t position, int firstPixel = 0) {
  IPPARAMS params{};
  params.dwSize = sizeof(IPPARAMS);
  if (landscape) {
    params.ptOffset.x = position;
  } else {
    params.ptOffset.y = position;
  }
  const int across = BandAcross(band, landscape);
  return renderer(d.State, firstLine, across, band.Info, lines, firstPixel, across - firstPixel, &params);
}

}  // namespace inkweave::testing
