// The planes between stripes. The colour dither renderers OR their dots into the planes, so after a
// stripe that set dots the planes are cleared before the next; the other renderers store whole bytes of
// the planes they write. The rule is the design's exactly, landscape included, where the first
// PlaneBuffer is cleared after every inked stripe whatever the renderer.
//
// Only the bytes that a stripe can have written are cleared: the buffers start zeroed, and no renderer
// writes past the last line of a full stripe plus the colour dither's black pass, which runs on for as
// many bytes as the line has dots (at most kPlaneDots) from the black plane of the last line. The
// bytes past that bound stay zero for the life of the device, so clearing the rest would change none.
#include <cstring>

#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"

namespace inkweave {
namespace {

constexpr std::uint32_t kWrittenBytes = (kStripeLines - 1) * kLineBytes + kBlackPlane * kPlaneBytes + kPlaneDots;
static_assert(kWrittenBytes >= kStripeLines * kLineBytes && kWrittenBytes >= kStripeOutputLinesHigh * kLineBytesHigh);
static_assert(kWrittenBytes <= kPlaneBufferBytes);

}  // namespace

void ClearPlanesAfterInkedStripe(DeviceState& state, int bitCount) {
  if (state.Landscape) {
    std::memset(state.PlaneBuffer[0], 0, kWrittenBytes);
    return;
  }
  if (bitCount == 24 && state.ActiveHalftone == kHalftoneDither && LevelOf(state.PrintMode) < kLevelHigh) {
    std::memset(state.PlaneBuffer[0], 0, kWrittenBytes);
    std::memset(state.PlaneBuffer[1], 0, kWrittenBytes);
  }
}

}  // namespace inkweave
