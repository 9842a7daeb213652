// The band driver: per-page set-up, stripes, rendering and output of one band.
#pragma once

#include "platform/platform.h"

namespace inkweave {

// Always answers 1.
int ProcessBand(DEVOBJ* devobj, const BYTE* bits, const BITMAPINFOHEADER* header, const BYTE* colorTable,
                DWORD callbackId, const IPPARAMS* params, IPrintOemDriverUni* driver);

}  // namespace inkweave
