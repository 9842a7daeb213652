// ConvertPixel on distinct pixels: a seeded stream of 64 Ki pixels in which neighbours differ (as the
// renderers call it: a pixel equal to the one before is not converted). Colour
// through the plain-paper dither table and the inkjet diffusion table, and monochrome; the smooth
// variant walks a gradient, so it mostly interpolates within few cells. Mpx/s = items per second.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "src/color/color.h"
#include "src/data/tables.h"
#include "src/device/device_state.h"

namespace inkweave {
namespace {

constexpr std::size_t kPixels = 1 << 16;

std::vector<std::uint8_t> RandomPixels() {
  std::mt19937 rng(0xC010u);
  std::vector<std::uint8_t> pixels(kPixels * 3);
  for (auto& b : pixels) b = static_cast<std::uint8_t>(rng());
  return pixels;
}

std::vector<std::uint8_t> GradientPixels() {
  std::vector<std::uint8_t> pixels(kPixels * 3);
  for (std::size_t i = 0; i < kPixels; ++i) {
    pixels[3 * i] = static_cast<std::uint8_t>(i);
    pixels[3 * i + 1] = static_cast<std::uint8_t>(i >> 4);
    pixels[3 * i + 2] = static_cast<std::uint8_t>(255 - (i >> 8));
  }
  return pixels;
}

void Run(benchmark::State& bench, int table, std::uint16_t colorMode, const std::vector<std::uint8_t>& pixels) {
  std::array<std::uint8_t, kToneCurveBytes> curves{};
  DeviceState state{};
  state.ColorMode = colorMode;
  state.ColorLut = ColorTable(table);
  state.ToneCurves = curves.data();
  BuildToneCurves(state);
  std::uint8_t out[4];
  std::uint32_t sink = 0;
  for (auto _ : bench) {
    for (std::size_t i = 0; i < kPixels; ++i) sink += ConvertPixel(&pixels[3 * i], out, state);
    benchmark::DoNotOptimize(sink);
  }
  bench.SetItemsProcessed(static_cast<std::int64_t>(bench.iterations()) * static_cast<std::int64_t>(kPixels));
}

void BM_ConvertPixelRandom(benchmark::State& bench) { Run(bench, static_cast<int>(bench.range(0)), 2, RandomPixels()); }
void BM_ConvertPixelGradient(benchmark::State& bench) { Run(bench, 1, 2, GradientPixels()); }
void BM_ConvertPixelMonochrome(benchmark::State& bench) { Run(bench, 1, 1, RandomPixels()); }

BENCHMARK(BM_ConvertPixelRandom)->Arg(1)->Arg(6);
BENCHMARK(BM_ConvertPixelGradient);
BENCHMARK(BM_ConvertPixelMonochrome);

}  // namespace
}  // namespace inkweave
