// Buffer bounds: every diffusion renderer on the widest page at every print quality, with the error
// lines, plane buffers and band allocated to their exact sizes, so the sanitizers see any byte read or
// written outside them. Also the modes whose line buffers are too short for the highest resolution.
#include <gtest/gtest.h>

#include <cstdint>

#include "src/halftone/halftone.h"
#include "tests/diffusion/diffusion_support.h"

namespace inkweave {
namespace {

using testing::MakeBand;
using testing::MakeDiffusionDevice;
using testing::RenderStripe;

constexpr int kWidestPage = 5100;  // 8.5 in at 600 dpi

struct Member {
  BandRendererFn Portrait;
  BandRendererFn Landscape;
  std::uint8_t PrintMode;
  int StripeLines;
};

const Member kMembers[] = {{&DiffuseLowPortrait, &DiffuseLowLandscape, 1, 16},
                           {&DiffuseMidPortrait, &DiffuseMidLandscape, 32 | 2, 16},
                           {&DiffuseHighPortrait, &DiffuseHighLandscape, 32 | 4, 16},
                           {&DiffuseTopPortrait, &DiffuseTopLandscape, 6, 4}};

TEST(DiffusionBounds, WidestPageAtEveryPrintQuality) {
  for (const int quality : {150, 300, 600}) {
    const int page = kWidestPage * quality / 600;
    for (const Member& m : kMembers) {
      for (const bool landscape : {false, true}) {
        for (const int across : {1, 9, page - 1, page}) {
          auto d = MakeDiffusionDevice(static_cast<std::uint32_t>(page), static_cast<std::uint16_t>(quality),
                                       m.PrintMode, 2, 3);
          SeedDiffusionLines(d->State, 4, across * ((m.PrintMode & 15) >= 6 ? 2 : 1));
          const int lines = m.StripeLines + 3;
          auto band = landscape ? MakeBand(lines, across, testing::RandomRuns(5))
                                : MakeBand(across, lines, testing::RandomRuns(5));
          for (int y = 0; y < lines - 1; y += m.StripeLines) {
            const int rows = lines < y + m.StripeLines ? lines - y : m.StripeLines;
            RenderStripe(landscape ? m.Landscape : m.Portrait, *d, *band, landscape, y, rows, 127);
          }
        }
      }
    }
  }
}

// A caller that asks for more than the buffers hold (more lines than a stripe, more dots than the page
// or plane, the highest resolution on line buffers allocated without the 600 dpi doubling) gets the
// part that fits.
TEST(DiffusionBounds, OversizedRequestsStayInsideTheBuffers) {
  for (const Member& m : kMembers) {
    auto d = MakeDiffusionDevice(1000, 300, m.PrintMode, 1);
    SeedDiffusionLines(d->State, 4, 2000);
    auto band = MakeBand(6000, 40, testing::RandomRuns(9));
    RenderStripe(m.Portrait, *d, *band, false, 0, 40, 127);
    auto tall = MakeBand(40, 6000, testing::RandomRuns(9));
    RenderStripe(m.Landscape, *d, *tall, true, 0, 40, 127);
  }
}

}  // namespace
}  // namespace inkweave
