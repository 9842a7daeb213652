// Renderer selection: the halftone method in force for a band, the band renderer, and the seeding of
// the error lines while nothing has been printed on the page.
#pragma once

#include "platform/platform.h"
#include "src/device/device_state.h"
#include "src/pipeline/band_info.h"

namespace inkweave {

void SelectBandRenderer(DEVOBJ* devobj, const BandInfo& band, IPrintOemDriverUni* driver);

// The renderer the table gives for a halftone method, print mode, bit count and orientation (null
// for a halftone method other than 1 and 2). Exposed for tests.
BandRendererFn ChooseBandRenderer(std::uint8_t activeHalftone, std::uint8_t printMode, int bitCount, bool landscape);

}  // namespace inkweave
