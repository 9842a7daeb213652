// The planes between stripes. The colour dither renderers OR their dots into the planes, so after a
// stripe that set dots the planes are cleared before the next; the other renderers store whole bytes of
// the planes they write. The rule is the design's exactly, landscape included, where the first
// PlaneBuffer is cleared after every inked stripe whatever the renderer.
#include <cstring>

#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"

namespace inkweave {

void ClearPlanesAfterInkedStripe(DeviceState& state, int bitCount) {
  if (state.Landscape) {
    std::memset(state.PlaneBuffer[0], 0, kPlaneBufferBytes);
    return;
  }
  if (bitCount == 24 && state.ActiveHalftone == kHalftoneDither && LevelOf(state.PrintMode) < kLevelHigh) {
    std::memset(state.PlaneBuffer[0], 0, kPlaneBufferBytes);
    std::memset(state.PlaneBuffer[1], 0, kPlaneBufferBytes);
  }
}

}  // namespace inkweave
