// Raster output throughput: the two row coders on typical rows (blank, dense dither-like, photo-like)
// and the emitter's rows per second on a colour page in modes 2 and 6.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "src/raster/coders.h"
#include "tests/support/emit_driver.h"

namespace {

using Row = std::vector<std::uint8_t>;

// kind 0: blank; 1: dense dither (a 4x4 ordered pattern of a mid tone); 2: photo-like (noise that is
// sparse in highlights, dense in shadows, with blank stretches).
Row MakeRow(int kind, std::size_t length, unsigned seed) {
  Row row(length, 0);
  std::mt19937 random(seed);
  if (kind == 1) {
    for (std::size_t i = 0; i < length; ++i) row[i] = (i % 2) ? 0xAA : 0x55;
    for (std::size_t i = 0; i < length; i += 7) row[i] |= 0x11;
  } else if (kind == 2) {
    for (std::size_t i = 0; i < length; ++i) {
      const int tone = static_cast<int>((i / 64) % 5);  // stretches of different density
      std::uint8_t b = 0;
      for (int bit = 0; bit < 8; ++bit)
        if (static_cast<int>(random() % 8) < tone) b |= static_cast<std::uint8_t>(1 << bit);
      row[i] = b;
    }
  }
  return row;
}

void BM_PatternEncode(benchmark::State& state) {
  const Row row = MakeRow(static_cast<int>(state.range(0)), 1280, 1);
  Row out(4096);
  for (auto _ : state) {
    benchmark::DoNotOptimize(inkweave::PatternEncode(out.data(), row.data(), 1280));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 1280);
}
BENCHMARK(BM_PatternEncode)->Arg(0)->Arg(1)->Arg(2)->ArgName("blank0_dither1_photo2");

void BM_PackBitsEncode(benchmark::State& state) {
  const Row row = MakeRow(static_cast<int>(state.range(0)), 1280, 1);
  Row out(4096);
  for (auto _ : state) {
    std::uint16_t length = 1280;
    benchmark::DoNotOptimize(inkweave::PackBitsEncode(out.data(), row.data(), length));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 1280);
}
BENCHMARK(BM_PackBitsEncode)->Arg(0)->Arg(1)->Arg(2)->ArgName("blank0_dither1_photo2");

// Whole stripes through EmitStripe: an A4-wide colour page at 600 dpi (mode 4) or in mode 6, photo-like
// planes; counts raster rows per second including the pass writes to the spool recorder.
void BM_EmitStripe(benchmark::State& state) {
  const auto mode = static_cast<std::uint8_t>(state.range(0));
  inkweave::testing::EmitDevice device(mode, 2, mode >= 6 ? 600 : 300);
  device.Spool.SetKeepWrites(false);
  device.State.InkModeCode = 0x10;
  const int pixels = mode >= 6 ? 4960 : 2480;
  const inkweave::BandInfo band = inkweave::testing::MakeBand(pixels);
  const int width = inkweave::PlaneRowBytes(inkweave::LevelOf(mode), pixels);
  const int rows = inkweave::PlaneLayoutOf(inkweave::LevelOf(mode)).OutputLines;
  for (int n = 0; n < rows; ++n)
    for (int p = 0; p < 4; ++p) {
      const Row row = MakeRow(2, static_cast<std::size_t>(width), static_cast<unsigned>(n * 4 + p));
      std::copy(row.begin(), row.end(), device.PlaneRow(0, n, p));
    }
  inkweave::testing::BeginPage(device.State);
  std::int64_t emitted = 0;
  for (auto _ : state) {
    inkweave::testing::EmitOne(device, mode >= 6 ? 4 : 16, band, 1);
    emitted += rows;
  }
  state.counters["rows/s"] = benchmark::Counter(static_cast<double>(emitted), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_EmitStripe)->Arg(2)->Arg(4)->Arg(6)->ArgName("mode");

}  // namespace
