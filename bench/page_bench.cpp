// Whole pages through the plug-in's entry points, as the host driver drives them: an A4 page
// (printable area 4800 x 6826 dots at 600 dpi) from an in-memory synthetic page (photo-like colour,
// patches, text-like strokes; no image decoding is timed), banded 256 rows at a time by PrintPage,
// with the stream counted and dropped. One iteration = page start, every band, page end.
//
// Counters: pages per minute, megapixels (page pixels handed over) per second, stream bytes per page,
// and the process's peak resident memory so far (run one configuration per process to read it per
// configuration, as bench.sh does).
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "host/host.h"
#include "host/papers.h"
#include "src/plugin/render_plugin.h"

namespace {

using namespace inkweave;

constexpr int kTileRows = 512;  // the synthetic page repeats every 512 rows

// One tile of a page width: smooth hue and lightness sweeps with fine noise, saturated patches, and
// white stretches with thin dark strokes (text-like).
std::vector<std::uint8_t> MakeTile(int width) {
  std::vector<std::uint8_t> tile(static_cast<std::size_t>(width) * kTileRows * 3);
  std::mt19937 random(12345);
  std::uniform_int_distribution<int> noise(-6, 6);
  for (int y = 0; y < kTileRows; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = &tile[(static_cast<std::size_t>(y) * width + x) * 3];
      const double u = static_cast<double>(x) / width, v = static_cast<double>(y) / kTileRows;
      int r, g, b;
      if (y < 320) {  // photo-like
        r = static_cast<int>(128 + 110 * std::sin(6.28 * u + 1.0) * (1 - v));
        g = static_cast<int>(128 + 110 * std::sin(6.28 * u * 1.7 + 2.0 + v));
        b = static_cast<int>(128 + 110 * std::cos(6.28 * v + u * 3));
        r += noise(random), g += noise(random), b += noise(random);
      } else if (y < 416) {  // patches
        const int patch = x * 8 / width;
        r = patch & 1 ? 0 : 255, g = patch & 2 ? 0 : 255, b = patch & 4 ? 0 : 255;
      } else {  // text-like: white with thin strokes
        const bool stroke = ((x / 3) % 7 == 0 && (y / 10) % 2 == 0) || (y % 24 == 0 && (x / 40) % 3 != 0);
        r = g = b = stroke ? 20 : 255;
      }
      p[0] = static_cast<std::uint8_t>(std::clamp(r, 0, 255));
      p[1] = static_cast<std::uint8_t>(std::clamp(g, 0, 255));
      p[2] = static_cast<std::uint8_t>(std::clamp(b, 0, 255));
    }
  }
  return tile;
}

long PeakRssKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// args: quality (300, 600, or 1200 for the high-resolution mode), diffusion 0/1, mono 0/1.
void BM_A4Page(benchmark::State& state) {
  const int quality = static_cast<int>(state.range(0));
  const bool highRes = quality == 1200;
  const bool diffusion = state.range(1) != 0;
  const bool mono = state.range(2) != 0;
  const int dpi = highRes ? 600 : quality;
  const host::PrintableArea area = host::PrintableAreaOf(*host::FindPaper("a4"), dpi);
  const auto width = static_cast<std::int32_t>(area.Width), height = static_cast<std::int32_t>(area.Height);
  const std::vector<std::uint8_t> tile = MakeTile(width);

  host::HostSession session(host::PluginEntry{&inkweave::GetClassObject, &inkweave::CanUnloadNow});
  std::uint64_t bytes = 0;
  session.Spool().SetKeepWrites(false);
  session.Spool().SetSink([&bytes](const std::uint8_t*, std::size_t size) { bytes += size; });
  host::DeviceSetup setup;
  setup.Quality = static_cast<std::int16_t>(dpi);
  setup.Color = !mono;
  setup.PageWidth = area.Width;
  setup.PageHeight = area.Height;
  if (Failed(session.Load()) || Failed(session.Enable(setup))) {
    state.SkipWithError("the plug-in would not start");
    return;
  }
  host::SelectModes(session, diffusion, highRes, host::kCallbackMediaPlain);
  session.Command(host::kCallbackJobStart);

  host::PageSource source;
  source.Width = width;
  source.Height = height;
  source.Render = [&tile, width](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                                 std::size_t stride) {
    for (std::int32_t row = 0; row < h; ++row)
      std::memcpy(dst + stride * static_cast<std::size_t>(row),
                  &tile[(static_cast<std::size_t>((y + row) % kTileRows) * width + x) * 3],
                  static_cast<std::size_t>(w) * 3);
    return true;
  };
  for (auto _ : state) {
    const host::PageResult result = host::PrintPage(session, source, 256);
    if (Failed(result.Status)) state.SkipWithError("a band failed");
  }
  session.Command(host::kCallbackJobEnd);

  const double pages = static_cast<double>(state.iterations());
  state.counters["pages/min"] = benchmark::Counter(pages * 60.0, benchmark::Counter::kIsRate);
  state.counters["Mpx/s"] = benchmark::Counter(pages * width * height / 1e6, benchmark::Counter::kIsRate);
  state.counters["stream_MB"] = static_cast<double>(bytes) / pages / 1e6;
  state.counters["peak_MiB"] = static_cast<double>(PeakRssKiB()) / 1024.0;
}

void Configurations(benchmark::internal::Benchmark* b) {
  b->ArgNames({"dpi", "diffusion", "mono"});
  for (int quality : {300, 600, 1200})
    for (int diffusion : {0, 1})
      for (int mono : {0, 1}) b->Args({quality, diffusion, mono});
}
BENCHMARK(BM_A4Page)->Apply(Configurations)->Unit(benchmark::kMillisecond)->MinTime(0.5);

}  // namespace
