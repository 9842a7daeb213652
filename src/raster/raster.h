// The raster emitter: weaves the dot rows of each stripe into head passes and writes feeds, ink-mode
// commands and pass data.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "src/device/band_info.h"

namespace inkweave {

// Emits one stripe of PlaneBuffer. stripeHeight is the nominal stripe height (16, or 4 in the
// highest-resolution mode; 0 in the page's final call); inkFlag is the renderer's result (1 in the
// final call).
void EmitStripe(DEVOBJ* devobj, int stripeHeight, const BandInfo& band, std::int16_t inkFlag,
                IPrintOemDriverUni* driver);

}  // namespace inkweave
