// The twelve band renderers: four ordered-dither renderers and eight error-diffusion renderers. All
// follow the BandRendererFn contract of device_state.h.
#pragma once

#include <cstdint>

#include "src/device/device_state.h"
#include "src/pipeline/band_info.h"

namespace inkweave {

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

// Fills the four error lines with the seed pattern; count is ignored (always 4); width is the scan
// width in pixels, already doubled in the highest-resolution modes.
void SeedDiffusionLines(DeviceState& state, int count, int width);

}  // namespace inkweave
