// The four ordered-dither renderers on one 16-line stripe at the A4 widths of 300 and 600 dpi
// (2,480 and 4,960 dots a line). The colour renderers get a photo-like band (smooth colour with fine
// noise, so nearly every pixel is converted) and a text-like band (white with short dark runs, where
// the one-pixel memory saves most conversions); the gray renderers a smooth gray band. The planes are
// not cleared between runs (the band driver's job); the Mpx rate counts output dots per second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"

namespace inkweave {
namespace {

constexpr int kStripeLines = 16;

enum class Image { Photo, Text, Gray };

struct Setup {
  std::vector<std::uint8_t> planes = std::vector<std::uint8_t>(kPlaneBufferBytes, 0);
  std::vector<std::uint8_t> curves = std::vector<std::uint8_t>(kToneCurveBytes);
  std::vector<std::uint8_t> lut = std::vector<std::uint8_t>(kColorTableBytes);
  std::vector<std::uint8_t> pixels;
  DeviceState state{};
  BandInfo band{};
  IPPARAMS params{};
  int width = 0;

  // Portrait: a band of width x 16 rows. Landscape: a band of 16 columns x width rows.
  Setup(int dots, bool landscape, Image image) : width(dots) {
    for (std::size_t i = 0; i < curves.size(); ++i) curves[i] = static_cast<std::uint8_t>(i % 256);
    std::mt19937 rng(7);
    for (auto& b : lut) b = static_cast<std::uint8_t>(rng());
    std::fill(lut.end() - 4, lut.end(), 0);  // no ink on white
    state.ColorMode = 2;
    state.ColorLut = lut.data();
    state.ToneCurves = curves.data();
    state.PlaneBuffer[0] = planes.data();

    const int bandWidth = landscape ? kStripeLines : dots;
    const int bandHeight = landscape ? dots : kStripeLines;
    band.Header.biSize = 40;
    band.Header.biWidth = bandWidth;
    band.Header.biHeight = bandHeight;
    band.Header.biBitCount = image == Image::Gray ? 8 : 24;
    band.Stride = BandStride(bandWidth);
    pixels.assign(static_cast<std::size_t>(band.Stride) * static_cast<std::size_t>(bandHeight), 0xFF);
    for (int y = 0; y < bandHeight; ++y) {
      std::uint8_t* row = pixels.data() + static_cast<std::ptrdiff_t>(y) * band.Stride;
      for (int x = 0; x < bandWidth; ++x) {
        const double u = (landscape ? y : x) / static_cast<double>(dots);
        const int noise = static_cast<int>(rng() % 9) - 4;
        auto level = [&](double v) {
          return static_cast<std::uint8_t>(std::clamp(static_cast<int>(v) + noise, 0, 255));
        };
        switch (image) {
          case Image::Photo:
            row[3 * x] = level(255 * u);
            row[3 * x + 1] = level(128 + 120 * std::sin(9 * u));
            row[3 * x + 2] = level(255 * (1 - u));
            break;
          case Image::Text:
            if (rng() % 100 < 8) row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = 0;
            break;
          case Image::Gray: row[x] = level(255 * u); break;
        }
      }
    }
    band.Bits = pixels.data();
    params.dwSize = sizeof params;
  }
};

void RunRenderer(benchmark::State& bench, BandRendererFn renderer, bool landscape, Image image) {
  const int dots = static_cast<int>(bench.range(0));
  Setup setup(dots, landscape, image);
  for (auto _ : bench) {
    benchmark::DoNotOptimize(renderer(setup.state, 0, dots, setup.band, kStripeLines, 0, dots, &setup.params));
    benchmark::ClobberMemory();
  }
  bench.counters["Mpx"] =
      benchmark::Counter(static_cast<double>(dots) * kStripeLines / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_DitherColorPortrait_Photo(benchmark::State& s) { RunRenderer(s, DitherColorPortrait, false, Image::Photo); }
void BM_DitherColorPortrait_Text(benchmark::State& s) { RunRenderer(s, DitherColorPortrait, false, Image::Text); }
void BM_DitherColorLandscape_Photo(benchmark::State& s) { RunRenderer(s, DitherColorLandscape, true, Image::Photo); }
void BM_DitherColorLandscape_Text(benchmark::State& s) { RunRenderer(s, DitherColorLandscape, true, Image::Text); }
void BM_DitherGrayPortrait(benchmark::State& s) { RunRenderer(s, DitherGrayPortrait, false, Image::Gray); }
void BM_DitherGrayLandscape(benchmark::State& s) { RunRenderer(s, DitherGrayLandscape, true, Image::Gray); }

BENCHMARK(BM_DitherColorPortrait_Photo)->Arg(2480)->Arg(4960);
BENCHMARK(BM_DitherColorPortrait_Text)->Arg(2480)->Arg(4960);
BENCHMARK(BM_DitherColorLandscape_Photo)->Arg(2480)->Arg(4960);
BENCHMARK(BM_DitherColorLandscape_Text)->Arg(2480)->Arg(4960);
BENCHMARK(BM_DitherGrayPortrait)->Arg(2480)->Arg(4960);
BENCHMARK(BM_DitherGrayLandscape)->Arg(2480)->Arg(4960);

}  // namespace
}  // namespace inkweave
