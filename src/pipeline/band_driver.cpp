// Transitional: the band driver lands with the band pipeline; until then bands are accepted and
// produce nothing.
#include "src/pipeline/band_driver.h"

namespace inkweave {

int ProcessBand(DEVOBJ*, const BYTE*, const BITMAPINFOHEADER*, const BYTE*, DWORD, const IPPARAMS*,
                IPrintOemDriverUni*) {
  return 1;
}

}  // namespace inkweave
