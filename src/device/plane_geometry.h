// The dot planes between the renderers and the raster emitter: the one home of their layout, the
// stripe heights and the size of PlaneBuffer.
//
// A stripe's output is one record per output line holding four planes, cyan, magenta, yellow and
// black in that order, each kPlaneBytes long (kPlaneBytesHigh at level 6 and up); output line n starts
// at n x the line stride. Dot x of a plane is bit 128 >> (x mod 8) of byte x / 8. Two-bit dots keep
// their second bit at the same place in the second PlaneBuffer. Monochrome pages use the black plane
// only. At level 6 and up every source line and pixel is rendered twice: a stripe of 4 source lines
// fills 8 output lines of twice the dots.
#pragma once

#include <algorithm>
#include <cstdint>

#include "src/device/device_state.h"

namespace inkweave {

// Planes of an output line, by ink.
inline constexpr int kPlanes = 4;
inline constexpr int kCyanPlane = 0;
inline constexpr int kMagentaPlane = 1;
inline constexpr int kYellowPlane = 2;
inline constexpr int kBlackPlane = 3;

inline constexpr int kPlaneBytes = 640;                           // bytes per plane below level 6
inline constexpr int kPlaneBytesHigh = 1280;                      // bytes per plane at level 6 and up
inline constexpr int kLineBytes = kPlanes * kPlaneBytes;          // 2,560 bytes per output line
inline constexpr int kLineBytesHigh = kPlanes * kPlaneBytesHigh;  // 5,120 bytes per output line
inline constexpr int kPlaneDots = 8 * kPlaneBytes;                // 5,120 dots: the widest band row

inline constexpr int kStripeLines = 16;           // source lines (and output lines) of a stripe below level 6
inline constexpr int kStripeLinesHigh = 4;        // source lines of a stripe at level 6 and up
inline constexpr int kStripeOutputLinesHigh = 8;  // output lines of such a stripe

// Each of the two PlaneBuffers: 122,880 bytes, room for three full stripes at any level.
inline constexpr std::uint32_t kPlaneBufferBytes = 0x1E000;
static_assert(kStripeLines * kLineBytes <= kPlaneBufferBytes);
static_assert(kStripeOutputLinesHigh * kLineBytesHigh <= kPlaneBufferBytes);

// The page geometry EnablePDEV accepts: no wider than the widest band row the planes hold (wider bands
// are refused anyway, and the error lines are sized by the page width), and no taller than a band offset
// can reach (offsets are signed 32-bit). Each error line holds 4 bytes a dot of the doubled width at
// 600 dpi, plus 16: at most 40,976 bytes.
inline constexpr std::uint32_t kMaxPageWidth = kPlaneDots;
inline constexpr std::uint32_t kMaxPageHeight = 0x7FFFFFFF;
constexpr bool PageFitsBuffers(std::uint32_t width, std::uint32_t height) {
  return width <= kMaxPageWidth && height <= kMaxPageHeight;
}
// Bytes of each of the four error lines for a line of `width` dots (the page width, doubled at 600 dpi).
constexpr std::uint32_t ErrorLineBytes(std::uint32_t width) { return 4 * width + 16; }
static_assert(ErrorLineBytes(2 * kMaxPageWidth) == 40976);

// The layout at a resolution level (the low four bits of PrintMode).
struct PlaneLayout {
  int PlaneBytes;   // S, bytes per plane; plane p of a line starts at p x S
  int LineBytes;    // 4 S, bytes per output line
  int StripeLines;  // source lines of a full stripe
  int OutputLines;  // output lines of a full stripe
  int Scale;        // output lines per source line, dots per source pixel
};

constexpr PlaneLayout PlaneLayoutOf(int level) {
  if (level >= kLevelHigh) return {kPlaneBytesHigh, kLineBytesHigh, kStripeLinesHigh, kStripeOutputLinesHigh, 2};
  return {kPlaneBytes, kLineBytes, kStripeLines, kStripeLines, 1};
}

// The bytes of each plane row that the emitter encodes for a band line of linePixels: the pixels
// rounded up to an even number of bytes, doubled at level 6 and up, at most one high-level plane.
constexpr int PlaneRowBytes(int level, std::int32_t linePixels) {
  std::int32_t bytes = ((linePixels + 15) / 8) & ~1;
  if (level >= kLevelHigh) bytes *= 2;
  return std::clamp<std::int32_t>(bytes, 0, kPlaneBytesHigh);
}

}  // namespace inkweave
