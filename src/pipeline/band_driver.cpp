// The band driver. For every band: the page set-up on the band at the page's origin (colour table,
// tone curves, weave counters, pass buffers), the band record, the renderer, then the band in stripes
// (plane_geometry.h), each rendered and handed to the raster emitter; and the page's final emitter call
// on the band that ends exactly at the page height.
#include "src/pipeline/band_driver.h"

#include <cstdint>

#include "src/color/color.h"
#include "src/device/memory_list.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"
#include "src/pipeline/renderer_selection.h"
#include "src/raster/raster.h"

namespace inkweave {
namespace {

detail::StripeObserver stripeObserver = nullptr;
void* stripeObserverContext = nullptr;

// Curve 6 of an 8-bit page is curve 5 through this map, which holds the identity.
constexpr std::uint8_t GrayMap(int i) { return static_cast<std::uint8_t>(i); }

void StartPage(DeviceState& state, int bitCount) {
  if (bitCount == 24) {
    std::int16_t purpose;
    if (state.HalftoneMethod == 0 || state.HalftoneMethod == kHalftoneDiffusion)
      purpose = kLutPurposeDiffusion;
    else if (state.HalftoneMethod == kHalftoneDither)
      purpose = kLutPurposeDither;
    else
      purpose = state.LutVariant ? kLutPurposeDiffusion : kLutPurposeDither;
    state.ColorLut = SelectColorLut(state, purpose);
    BuildToneCurves(state);
  } else if (bitCount == 8) {
    BuildToneCurves(state);
    std::uint8_t* gray = state.ToneCurves + 5 * 256;
    std::uint8_t* band = state.ToneCurves + 6 * 256;
    for (int i = 0; i < 256; ++i) band[i] = gray[GrayMap(i)];
  }

  state.PaperPosition = 0;
  state.PhaseRow = 0;
  state.WeavePhase = 0;
  state.StripeFlag = kStripeFirst;
  const int passes = PassBufferCount(state.PrintMode);
  for (int i = 0; i < passes; ++i) {
    PassBuffer& pass = state.StripeBuffers[i];
    pass.RowsFilled = 0;
    pass.WritePos = pass.BufferStart;
  }
  state.PageInkSeen = 0;
}

}  // namespace

void detail::SetStripeObserver(StripeObserver observer, void* context) {
  stripeObserver = observer;
  stripeObserverContext = context;
}

bool BandFitsDevice(const DEVOBJ* devobj, const BITMAPINFOHEADER& header, const IPPARAMS& params) {
  const DeviceState* state = StateOf(devobj);
  if (!state) return false;
  if (header.biBitCount != 24 && header.biBitCount != 8 && header.biBitCount != 1) return false;
  if (header.biWidth <= 0 || header.biHeight <= 0 || params.ptOffset.x < 0 || params.ptOffset.y < 0) return false;
  const std::int64_t rowPixels = state->Landscape ? header.biHeight : header.biWidth;
  if (rowPixels > static_cast<std::int64_t>(state->PageWidth) || rowPixels > kPlaneDots) return false;
  // The band's end along the output lines must be a 32-bit offset: the driver adds the two.
  const std::int64_t lines = state->Landscape ? header.biWidth : header.biHeight;
  const std::int64_t offset = state->Landscape ? params.ptOffset.x : params.ptOffset.y;
  return offset + lines <= INT32_MAX;
}

void ProcessBand(DEVOBJ* devobj, const BYTE* bits, const BITMAPINFOHEADER* header, const BYTE*, DWORD,
                 const IPPARAMS* params, IPrintOemDriverUni* driver) {
  DeviceState& state = *StateOf(devobj);
  BandInfo band;
  band.Header = *header;
  band.Bits = bits;
  band.Stride = BandStride(header->biWidth);

  const int offsetX = params->ptOffset.x;
  const int offsetY = params->ptOffset.y;
  if (offsetX == 0 && offsetY == 0) StartPage(state, header->biBitCount);

  // Output lines run down the portrait page: across the band in landscape.
  const bool landscape = state.Landscape != 0;
  const int lines = landscape ? header->biWidth : header->biHeight;
  const int rowPixels = landscape ? header->biHeight : header->biWidth;
  int rowUnits = rowPixels;
  if (landscape)
    rowUnits = static_cast<std::uint16_t>(header->biHeight);
  else if (header->biBitCount == 1)
    rowUnits = (rowPixels + 7) / 8;
  state.BandOffset = static_cast<std::uint32_t>(landscape ? offsetX : offsetY);

  const BandRendererFn renderer = SelectBandRenderer(devobj, band, driver);

  const int stripe = PlaneLayoutOf(LevelOf(state.PrintMode)).StripeLines;
  int limit = lines;
  if (landscape && state.PageHeight <= static_cast<std::uint32_t>(offsetX + lines))
    limit = static_cast<int>(state.PageHeight) - offsetX;  // the band runs past the page: cut it

  // A last stripe of a single line is dropped, and a band of one line emits nothing: kept as it is.
  for (int y = 0; y < limit - 1; y += stripe) {
    const int rows = limit < y + stripe ? limit - y : stripe;
    std::uint32_t result = 0;
    if (!params->bBlankBand && renderer)
      result = renderer(state, y, rowUnits, band, rows, 0, static_cast<std::int16_t>(rowPixels), params);
    const auto inkFlag = static_cast<std::int16_t>(result & 0xFFFF);
    if (stripeObserver) stripeObserver(devobj, band, y, rows, inkFlag, stripeObserverContext);
    EmitStripe(devobj, stripe, band, inkFlag, driver);
    state.StripeFlag = kStripeLater;
    if (inkFlag != 0) {
      state.PageInkSeen |= static_cast<std::uint16_t>(inkFlag);
      ClearPlanesAfterInkedStripe(state, header->biBitCount);
    }
  }

  const int end = limit + (landscape ? offsetX : offsetY);
  if (end >= 0 && static_cast<std::uint32_t>(end) == state.PageHeight) {
    state.StripeFlag = kStripeFinal;
    EmitStripe(devobj, 0, band, 1, driver);
    state.StripeFlag = kStripeFirst;
  }
}

}  // namespace inkweave
