// Renderer selection: the halftone method in force for a band, the band renderer, and the seeding of
// the error lines while nothing has been printed on the page.
#pragma once

#include "platform/platform.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/halftone/halftone.h"

namespace inkweave {

// Settles the halftone in force (sending "I" when error diffusion flags the mode), seeds the error
// lines while the page has no dot, and answers the band's renderer: null for a halftone in force other
// than dither and error diffusion, and then the band is not rendered.
[[nodiscard]] BandRendererFn SelectBandRenderer(DEVOBJ* devobj, const BandInfo& band, IPrintOemDriverUni* driver);

// The renderer the table gives for a halftone method, print mode, bit count and orientation (null
// for a halftone method other than 1 and 2). Exposed for tests.
[[nodiscard]] BandRendererFn ChooseBandRenderer(std::uint8_t activeHalftone, std::uint8_t printMode, int bitCount,
                                                bool landscape);

}  // namespace inkweave
