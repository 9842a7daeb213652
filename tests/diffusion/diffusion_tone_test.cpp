// The measured tone response of each diffusion pair: flat monochrome patches (black ink = amount)
// from 0 to 255 in steps of 8, 512 pixels wide and 128 lines down the page, seeded as at page start.
// Prints the table kept in docs/diffusion-tone-response.md; checks only the ends, where the rules fix
// the outcome (no ink at 0; every dot, and the largest, at 255 for the two-bit and one-bit low pairs).
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"
#include "tests/diffusion/diffusion_support.h"

namespace inkweave {
namespace {

using testing::MakeBand;
using testing::MakeDiffusionDevice;
using testing::RenderStripe;

constexpr int kAcross = 512;
constexpr int kLines = 128;       // source lines
constexpr int kSettleLines = 16;  // output lines left out while the error settles

struct Response {
  double Volume;  // ink delivered / full ink, dot sizes weighed by the ink the quantiser books for them
  double Large;   // share of positions with each dot size
  double Medium;
  double Small;
};

// Weights of the dot sizes: what each quantiser subtracts from the error for them.
Response Measure(BandRendererFn renderer, std::uint8_t printMode, int stripeLines, int scale, int amount, double large,
                 double medium, double small) {
  auto d = MakeDiffusionDevice(kAcross, 600, printMode);
  const std::uint8_t gray = static_cast<std::uint8_t>(255 - amount);
  auto band = MakeBand(kAcross, kLines, testing::Flat(gray, gray, gray));
  SeedDiffusionLines(d->State, 4, kAcross * scale);
  const int dots = kAcross * scale;
  const int planeBytes = kPlaneBytes * scale;
  long counts[3] = {0, 0, 0};
  long positions = 0;
  for (int y = 0; y < kLines; y += stripeLines) {
    RenderStripe(renderer, *d, *band, false, y, stripeLines, 0);
    for (int l = 0; l < stripeLines * scale; ++l) {
      if (y * scale + l < kSettleLines) continue;
      const std::uint8_t* first = &d->Planes[0][4 * planeBytes * l + 3 * planeBytes];
      const std::uint8_t* second = &d->Planes[1][4 * planeBytes * l + 3 * planeBytes];
      for (int b = 0; b < dots / 8; ++b) {
        const int both = std::popcount(static_cast<unsigned>(first[b] & second[b]));
        counts[0] += both;
        counts[1] += std::popcount(static_cast<unsigned>(first[b])) - both;
        counts[2] += std::popcount(static_cast<unsigned>(second[b])) - both;
      }
      positions += dots;
    }
  }
  Response r;
  r.Large = double(counts[0]) / double(positions);
  r.Medium = double(counts[1]) / double(positions);
  r.Small = double(counts[2]) / double(positions);
  r.Volume = (large * r.Large + medium * r.Medium + small * r.Small) / 255.0;
  return r;
}

TEST(DiffusionToneResponse, MeasuredOverFlatPatches) {
  std::vector<int> amounts;
  for (int a = 0; a < 256; a += 8) amounts.push_back(a);
  amounts.push_back(255);
  std::printf("| amount | low: dots | mid: volume (L / M / S) | high: volume (L / S) | top: dots |\n");
  std::printf("|---:|---:|---:|---:|---:|\n");
  for (const int a : amounts) {
    // The low pair's one-bit dots (first buffer); the first buffer alone counts as "medium" there.
    const Response low = Measure(&DiffuseLowPortrait, 1, 16, 1, a, 0, 255, 0);
    const Response mid = Measure(&DiffuseMidPortrait, 32 | 2, 16, 1, a, 255, 248, 100);
    const Response high = Measure(&DiffuseHighPortrait, 32 | 4, 16, 1, a, 0, 255, 212);
    const Response top = Measure(&DiffuseTopPortrait, 6, 4, 2, a, 0, 255, 0);
    std::printf("| %d | %.3f | %.3f (%.2f / %.2f / %.2f) | %.3f (%.2f / %.2f) | %.3f |\n", a, low.Medium, mid.Volume,
                mid.Large, mid.Medium, mid.Small, high.Volume, high.Medium, high.Small, top.Medium);
    if (a == 0) {
      EXPECT_EQ(low.Volume + mid.Volume + high.Volume + top.Volume, 0.0);
    }
    if (a == 255) {
      EXPECT_EQ(low.Medium, 1.0);
      EXPECT_EQ(mid.Large, 1.0);
      EXPECT_EQ(high.Medium, 1.0);
      EXPECT_EQ(high.Small, 0.0);
    }
  }
}

}  // namespace
}  // namespace inkweave
