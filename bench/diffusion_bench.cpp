// The error-diffusion pairs on one stripe of the widest page (5,100 pixels at 600 dpi; 16 source lines,
// 4 for the top pair, which renders them as 8 lines of 10,200 dots), portrait, and the low pair also
// in landscape (a stripe of 16 columns read down a 5,100-row band). Colour through the page's
// diffusion table, on a photo-like band (smooth gradients with noise, so nearly every pixel is
// converted) and on a flat band (one conversion a stripe). Mpx/s = source pixels per second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "src/color/color.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"

namespace inkweave {
namespace {

constexpr int kAcross = 5100;

struct BenchDevice {
  DeviceState State{};
  std::vector<std::int16_t> Lines[4];
  std::vector<std::uint8_t> Planes[2];
  std::vector<std::uint8_t> Curves;
};

void SetUp(BenchDevice& d, std::uint8_t printMode) {
  d.State.PageWidth = kAcross;
  d.State.PrintQuality = 600;
  d.State.PrintMode = printMode;
  d.State.ColorMode = 2;
  d.State.HalftoneMethod = 2;
  for (int j = 0; j < 4; ++j) {
    d.Lines[j].assign(2 * (2 * kAcross) + 8, 0);
    d.State.LineBuffers[j] = d.Lines[j].data();
  }
  for (int b = 0; b < 2; ++b) {
    d.Planes[b].assign(kPlaneBufferBytes, 0);
    d.State.PlaneBuffer[b] = d.Planes[b].data();
  }
  d.Curves.assign(kToneCurveBytes, 0);
  d.State.ToneCurves = d.Curves.data();
  BuildToneCurves(d.State);
  d.State.ColorLut = SelectColorLut(d.State, kLutPurposeDiffusion);
}

std::vector<std::uint8_t> Band(int width, int height, bool photo) {
  const std::int32_t stride = BandStride(width);
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(stride) * height, 200);
  std::mt19937 rng(0xD1FFu);
  for (int y = 0; y < height && photo; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = &pixels[static_cast<std::size_t>(y * stride + 3 * x)];
      const int noise = static_cast<int>(rng() % 9) - 4;
      p[0] = static_cast<std::uint8_t>((x / 20 + noise) & 255);
      p[1] = static_cast<std::uint8_t>((y * 4 + x / 40 + noise) & 255);
      p[2] = static_cast<std::uint8_t>((255 - x / 20 + noise) & 255);
    }
  }
  return pixels;
}

void Run(benchmark::State& bench, BandRendererFn renderer, std::uint8_t printMode, int lines, bool landscape = false) {
  BenchDevice d;
  SetUp(d, printMode);
  if (d.State.ColorLut == nullptr) {
    bench.SkipWithError("no colour table for this mode");
    return;
  }
  SeedDiffusionLines(d.State, 4, kAcross * ((printMode & 15) >= 6 ? 2 : 1));
  const bool photo = bench.range(0) != 0;
  const int width = landscape ? lines : kAcross;
  const int height = landscape ? kAcross : lines;
  const std::vector<std::uint8_t> pixels = Band(width, height, photo);
  BandInfo band{};
  band.Header.biSize = 40;
  band.Header.biWidth = width;
  band.Header.biHeight = height;
  band.Header.biBitCount = 24;
  band.Bits = pixels.data();
  band.Stride = BandStride(width);
  IPPARAMS params{};
  for (auto _ : bench) {
    benchmark::DoNotOptimize(renderer(d.State, 0, kAcross, band, lines, 0, kAcross, &params));
    benchmark::ClobberMemory();
  }
  bench.SetItemsProcessed(bench.iterations() * static_cast<std::int64_t>(kAcross) * lines);
  bench.SetLabel(photo ? "photo" : "flat");
}

void BM_DiffuseLow(benchmark::State& bench) { Run(bench, &DiffuseLowPortrait, 2, 16); }
void BM_DiffuseMid(benchmark::State& bench) { Run(bench, &DiffuseMidPortrait, 32 | 2, 16); }
void BM_DiffuseHigh(benchmark::State& bench) { Run(bench, &DiffuseHighPortrait, 32 | 4, 16); }
void BM_DiffuseTop(benchmark::State& bench) { Run(bench, &DiffuseTopPortrait, 6, 4); }
void BM_DiffuseLowLandscape(benchmark::State& bench) { Run(bench, &DiffuseLowLandscape, 2, 16, true); }

BENCHMARK(BM_DiffuseLow)->Arg(1)->Arg(0);
BENCHMARK(BM_DiffuseMid)->Arg(1)->Arg(0);
BENCHMARK(BM_DiffuseHigh)->Arg(1)->Arg(0);
BENCHMARK(BM_DiffuseTop)->Arg(1)->Arg(0);
BENCHMARK(BM_DiffuseLowLandscape)->Arg(1);

}  // namespace
}  // namespace inkweave
