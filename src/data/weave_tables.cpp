// The weave tables are constant data computed at compile time in weave_tables.h; this unit pins what
// every map must satisfy, so a slip in a start table stops the build.
#include "src/data/weave_tables.h"

namespace inkweave {
namespace {

// Every head row of a map stays on the head, and every row goes to a buffer of its mode.
constexpr bool MapsStayOnHead() {
  for (int mode = 1; mode < kWeaveModes; ++mode) {
    const WeaveMode& weave = kWeaveModeTable[mode];
    for (int phase = 0; phase < weave.Phases; ++phase)
      for (int j = 0; j < weave.RowsOfPhase[phase]; ++j) {
        const WeaveCell cell = WeaveMap[mode][phase][j];
        if (cell.HeadRow >= kHeadRows || cell.Pass >= weave.PassBuffers) return false;
      }
  }
  return true;
}
static_assert(MapsStayOnHead());

// The feed amounts in 1/400 in.
static_assert(kWeaveModeTable[2].Feed[0] == 140 && kWeaveModeTable[3].Feed[0] == 68 &&
              kWeaveModeTable[4].Feed[0] == 70 && kWeaveModeTable[5].Feed[0] == 34 &&
              kWeaveModeTable[6].Feed[0] == 35 && kWeaveModeTable[1].Feed[1] == kModeOneFeed);

}  // namespace
}  // namespace inkweave
