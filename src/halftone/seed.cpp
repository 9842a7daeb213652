// Set-up shared by the error-diffusion renderers: seeding the four error lines at the top of a page
// and choosing the ink-split table of a stripe.
#include <cstdint>

#include "src/halftone/diffusion.h"
#include "src/halftone/halftone.h"

namespace inkweave {

// Error line j gets DiffusionSeedErrors[(4 i) mod 256 + j] in cell i, a pattern that repeats every 64
// cells. Flagged modes (two interleaved rows) take 2 W + 8 cells, the others (W + 4), doubled at the
// highest resolutions. Never more cells than the device allocated.
void SeedDiffusionLines(DeviceState& state, int /*count*/, int width) {
  const bool flagged = state.PrintMode >= kPrintModeFlag;
  const int level = LevelOf(state.PrintMode);
  std::int64_t cells = flagged ? 2 * std::int64_t{width} + 8 : (std::int64_t{width} + 4) * (level < kLevelHigh ? 1 : 2);
  const std::int64_t allocated = detail::ErrorCellsAllocated(state);
  if (cells > allocated) cells = allocated;
  for (int j = 0; j < 4; ++j) {
    std::int16_t* line = state.LineBuffers[j];
    if (line == nullptr) continue;
    for (std::int64_t i = 0; i < cells; ++i) line[i] = DiffusionSeedErrors[((4 * i) & 255) + j];
  }
  state.ScanParity = 0;
  state.DiffusionCursor = 0;
}

namespace detail {

int InkSplitTableIndex(const DeviceState& state) {
  if (state.ColorMode != DMCOLOR_COLOR) return 8;
  const int level = LevelOf(state.PrintMode);
  const int media = state.MediaType;
  if (level == kLevel600 || level == 5) {
    switch (media) {
      case 1: return 2;
      case 2: return 4;
      case 3: return 6;
      case 4:
      case 5: return 9;
      default: return 1;
    }
  }
  if (level == kLevelHigh) {
    switch (media) {
      case 2: return 5;
      case 3: return 7;
      case 4:
      case 5: return 10;
      default: return 3;
    }
  }
  return (media == 4 || media == 5) ? 8 : 0;
}

}  // namespace detail
}  // namespace inkweave
