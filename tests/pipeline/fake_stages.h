// Recording stand-ins for the stages around the band driver and renderer selection: the renderers,
// the seeding, the colour preparation and the raster emitter. Linked into the pipeline's unit test in
// place of the real stages, so that the driver's own sequencing can be seen call by call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "src/device/device_state.h"

namespace inkweave::fakes {

struct RendererCall {
  std::string Name;
  int FirstLine;
  int Width;
  int LineCount;
  int RowPixels;
};

struct EmitCall {
  int StripeHeight;
  std::int16_t InkFlag;
  std::uint16_t StripeFlag;     // as the emitter saw it
  std::uint8_t FirstPlaneByte;  // PlaneBuffer[0][0] when the emitter ran
};

struct SeedCall {
  int Count;
  int Width;
};

struct Log {
  std::vector<RendererCall> Renderers;
  std::vector<EmitCall> Emits;
  std::vector<SeedCall> Seeds;
  int ColorLutSelections = 0;
  std::int16_t LastPurpose = 0;
  int ToneCurveBuilds = 0;
  // What the next renderer calls answer (and write into the first plane byte when non-zero).
  std::vector<std::uint32_t> Answers;
  std::size_t NextAnswer = 0;
};

Log& Calls();
void Reset();

}  // namespace inkweave::fakes
