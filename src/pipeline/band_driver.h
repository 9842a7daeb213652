// The band driver: per-page set-up, stripes, rendering and output of one band.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "src/device/band_info.h"

namespace inkweave {

// Whether the device can take the band at all: a 24-, 8- or 1-bit band of positive size at a
// non-negative offset whose rows are no wider than the page and than a dot plane holds.
[[nodiscard]] bool BandFitsDevice(const DEVOBJ* devobj, const BITMAPINFOHEADER& header, const IPPARAMS& params);

// Runs one band through renderer and emitter. It cannot fail: a band the device cannot take is refused
// before (BandFitsDevice), and a failed write is recorded in WriteFailed by the write path.
void ProcessBand(DEVOBJ* devobj, const BYTE* bits, const BITMAPINFOHEADER* header, const BYTE* colorTable,
                 DWORD callbackId, const IPPARAMS* params, IPrintOemDriverUni* driver);

namespace detail {

// Test seam: told after every stripe is rendered, just before the emitter reads PlaneBuffer, with the
// band record, the stripe's first line in the band and its rendered line count. Null (the default)
// tells nobody.
using StripeObserver = void (*)(const DEVOBJ* devobj, const BandInfo& band, int firstLine, int lines,
                                std::int16_t inkFlag, void* context);
void SetStripeObserver(StripeObserver observer, void* context);

}  // namespace detail
}  // namespace inkweave
