#include "tests/pipeline/fake_stages.h"

#include "src/color/color.h"
#include "src/halftone/halftone.h"
#include "src/raster/raster.h"

namespace inkweave {

namespace fakes {
Log& Calls() {
  static Log log;
  return log;
}
void Reset() { Calls() = Log{}; }

namespace {
std::uint32_t Record(const char* name, DeviceState& state, int firstLine, int width, int lineCount, int rowPixels) {
  Log& log = Calls();
  log.Renderers.push_back({name, firstLine, width, lineCount, rowPixels});
  const std::uint32_t answer = log.NextAnswer < log.Answers.size() ? log.Answers[log.NextAnswer++] : 0;
  if (answer) state.PlaneBuffer[0][0] = 0xFF;
  return answer;
}
}  // namespace
}  // namespace fakes

#define FAKE_RENDERER(name)                                                                                            \
  std::uint32_t name(DeviceState& state, int firstLine, int width, const BandInfo&, int lineCount, int, int rowPixels, \
                     const IPPARAMS*) {                                                                                \
    return fakes::Record(#name, state, firstLine, width, lineCount, rowPixels);                                        \
  }
FAKE_RENDERER(DitherColorPortrait)
FAKE_RENDERER(DitherColorLandscape)
FAKE_RENDERER(DitherGrayPortrait)
FAKE_RENDERER(DitherGrayLandscape)
FAKE_RENDERER(DiffuseLowPortrait)
FAKE_RENDERER(DiffuseLowLandscape)
FAKE_RENDERER(DiffuseMidPortrait)
FAKE_RENDERER(DiffuseMidLandscape)
FAKE_RENDERER(DiffuseHighPortrait)
FAKE_RENDERER(DiffuseHighLandscape)
FAKE_RENDERER(DiffuseTopPortrait)
FAKE_RENDERER(DiffuseTopLandscape)
#undef FAKE_RENDERER

void SeedDiffusionLines(DeviceState&, int count, int width) { fakes::Calls().Seeds.push_back({count, width}); }

const std::uint8_t* SelectColorLut(DeviceState&, std::int16_t purpose) {
  static const std::uint8_t table[4] = {};
  ++fakes::Calls().ColorLutSelections;
  fakes::Calls().LastPurpose = purpose;
  return table;
}

void BuildToneCurves(DeviceState& state) {
  ++fakes::Calls().ToneCurveBuilds;
  for (int c = 0; c < 6; ++c)
    for (int i = 0; i < 256; ++i) state.ToneCurves[c * 256 + i] = static_cast<std::uint8_t>(255 - i);
}

void EmitStripe(DEVOBJ* devobj, int stripeHeight, const BandInfo&, std::int16_t inkFlag, IPrintOemDriverUni*) {
  const DeviceState& state = *StateOf(devobj);
  fakes::Calls().Emits.push_back({stripeHeight, inkFlag, state.StripeFlag, state.PlaneBuffer[0][0]});
}

}  // namespace inkweave
