// The weave of the raster emitter: the table of a whole PrintMode byte, and the shortening of the
// last passes in the page's final flush. The tables themselves are constant data (data/weave_tables.h).
#pragma once

#include <cstdint>

#include "src/data/weave_tables.h"
#include "src/device/device_state.h"

namespace inkweave {

// One pass of the page's final flush, padded at its top so that its rows land lower on the head, with
// its feed changed to match. A padded row is one nozzle pitch, 8/3 of a feed unit, in every mode.
struct ShortPass {
  int Padding;  // q, blank head rows written before the pass
  int Feed;     // 1/400 in
  int Shift;    // Q, carried to the next pass
};

// previousShift is the Shift of the pass flushed before this one in the same flush (0 for the first).
constexpr ShortPass ShortenLastPass(const WeaveMode& weave, int phase, int rowsFilled, int previousShift) {
  const int normal = weave.Feed[phase];  // E
  const int base = weave.ShortBase ? weave.ShortBase : weave.FeedRows[phase];
  const int k = weave.ShortStep;
  const int rows = k * ((base - rowsFilled) / k);  // c, divisions truncate toward zero
  if (previousShift == 0) {
    const int padding = rows < weave.ShortCap ? rows : weave.ShortCap;
    return {padding, normal - 8 * padding / 3, padding};
  }
  // Take up the previous pass's shortening D as far as this pass's rows allow.
  const int shortening = 8 * previousShift / 3;  // D
  int padding = rows;
  if (shortening + normal <= 8 * rows / 3) {
    const int wanted = 3 * (shortening + normal) / 8;
    padding = k * ((wanted < rows ? wanted : rows) / k);
  }
  const int feed = normal + shortening - 8 * padding / 3;
  return {padding, feed, 3 * (normal + shortening - feed) / 8};
}

// The weave of a whole PrintMode byte (m, m + 16, m + 32 or m + 48 with m 1..6); null for any other
// byte.
constexpr const WeaveMode* FindWeaveMode(std::uint8_t printMode) {
  const int level = WeaveLevelOf(printMode);
  return level ? &kWeaveModeTable[level] : nullptr;
}

}  // namespace inkweave
