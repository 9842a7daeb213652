// Creating and destroying the device state (the bodies of EnablePDEV and DisablePDEV).
#pragma once

#include "platform/platform.h"
#include "src/device/device_state.h"

namespace inkweave {

// Fills the state from the device mode and page geometry and allocates every working buffer.
// Answers false after a failed allocation, with every block already freed.
[[nodiscard]] bool InitDeviceState(DeviceState& state, const GDIINFO& gdiInfo, const DEVMODEW& devmode);

// EnablePDEV: allocates the record, hands it to the host through *outState (also when set-up then
// fails), and sets it up. S_OK, or E_FAIL with InitFailed set (or a null record when even the record
// could not be had).
[[nodiscard]] HRESULT EnableDevice(const DEVOBJ* devobj, const GDIINFO* gdiInfo, void** outState);

// DisablePDEV: frees every buffer and the record itself (nothing without a record).
void DisableDevice(DEVOBJ* devobj);

}  // namespace inkweave
