// The one driver of the printer application, "inkweave": what the printer advertises over IPP and
// the callbacks that print its jobs.
#pragma once

#include <pappl/pappl.h>

namespace inkweave::printerapp {

inline constexpr const char* kDriverName = "inkweave";
inline constexpr const char* kMakeAndModel = "inkweave Colour Inkjet";
// The IEEE-1284 device ID the printer application reports for its printers.
inline constexpr const char* kDeviceId = "MFG:inkweave;MDL:Colour Inkjet;CMD:inkweave;CLS:PRINTER;";

// PAPPL's driver callback for the "inkweave" driver: fills the driver data (papers and margins,
// resolutions, quality, colour modes, media types, raster callbacks) and the vendor attributes.
bool FillDriver(pappl_system_t* system, const char* driverName, const char* deviceUri, const char* deviceId,
                pappl_pr_driver_data_t* data, ipp_t** attributes, void* context);

}  // namespace inkweave::printerapp
