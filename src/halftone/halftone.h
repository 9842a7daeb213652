// The twelve band renderers: four ordered-dither renderers and eight error-diffusion renderers, all
// with the BandRendererFn contract; the seeding of the error lines; and the clearing of the planes that
// the renderers' way of writing asks for between stripes. The planes' layout is plane_geometry.h.
#pragma once

#include <cstdint>

#include "src/device/band_info.h"
#include "src/device/device_state.h"

namespace inkweave {

// A band renderer turns one stripe of a band into dot planes. Arguments: the device state, the stripe's
// first line in the band, the dots across an output line, the band record, the lines in the stripe,
// the first pixel position (always 0), the pixels per output row, the host's image parameters.
// Answers 1 when it set any dot, else 0 (only the low 16 bits are used).
using BandRendererFn = std::uint32_t (*)(DeviceState& state, int firstLine, int width, const BandInfo& band,
                                         int lineCount, int firstPixel, int rowPixels, const IPPARAMS* params);

#define INKWEAVE_BAND_RENDERER(name)                                                                    \
  std::uint32_t name(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount, \
                     int firstPixel, int rowPixels, const IPPARAMS* params)

INKWEAVE_BAND_RENDERER(DitherColorPortrait);
INKWEAVE_BAND_RENDERER(DitherColorLandscape);
INKWEAVE_BAND_RENDERER(DitherGrayPortrait);
INKWEAVE_BAND_RENDERER(DitherGrayLandscape);

INKWEAVE_BAND_RENDERER(DiffuseLowPortrait);
INKWEAVE_BAND_RENDERER(DiffuseLowLandscape);
INKWEAVE_BAND_RENDERER(DiffuseMidPortrait);
INKWEAVE_BAND_RENDERER(DiffuseMidLandscape);
INKWEAVE_BAND_RENDERER(DiffuseHighPortrait);
INKWEAVE_BAND_RENDERER(DiffuseHighLandscape);
INKWEAVE_BAND_RENDERER(DiffuseTopPortrait);
INKWEAVE_BAND_RENDERER(DiffuseTopLandscape);

#undef INKWEAVE_BAND_RENDERER

// After a stripe that set dots, clears what the next stripe's renderer does not overwrite: in portrait,
// both PlaneBuffers after a 24-bit dither stripe below level 6 (the colour dither renderers only OR
// their dots in); in landscape, the first PlaneBuffer after any stripe.
void ClearPlanesAfterInkedStripe(DeviceState& state, int bitCount);

// Fills the four error lines with the seed pattern; count is ignored (always 4); width is the scan
// width in pixels, already doubled in the highest-resolution modes.
void SeedDiffusionLines(DeviceState& state, int count, int width);

}  // namespace inkweave
