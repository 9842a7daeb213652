// The device state's life: set-up from the device mode and GDI information, the working buffers, and
// the release of all of it at once.
#include "src/device/device_setup.h"

#include <cstring>

#include "src/device/memory_list.h"
#include "src/device/plane_geometry.h"

namespace inkweave {
namespace {

// Allocates a buffer for *slot unless it already has one; false when the heap refuses.
template <typename T>
bool AllocInto(DeviceState& state, T*& slot, std::uint32_t bytes, bool zero) {
  if (slot) return true;
  void* block = AllocFromList(state.MemoryList, bytes);
  if (!block) return false;
  if (zero) std::memset(block, 0, bytes);
  slot = static_cast<T*>(block);
  return true;
}

bool AllocateBuffers(DeviceState& state, std::uint32_t lineWidth, std::int16_t printQuality) {
  const std::uint32_t lineBytes = ErrorLineBytes(lineWidth);
  for (std::int16_t*& line : state.LineBuffers)
    if (!AllocInto(state, line, lineBytes, false)) return false;
  for (std::uint8_t*& planes : state.PlaneBuffer)
    if (!AllocInto(state, planes, kPlaneBufferBytes, true)) return false;
  if (!AllocInto(state, state.ToneCurves, kToneCurveBytes, true)) return false;

  if (!state.StripeBuffers[0].BufferStart) {
    state.PrintMode = printQuality == 150 ? kLevel150 : printQuality == 600 ? kLevel600 : kLevel300;
    // At 600 dpi, room for the passes of level 6, which the high-resolution command may select.
    const int count = PassBufferCount(printQuality == 600 ? kLevelHigh : state.PrintMode);
    for (int i = 0; i < count; ++i) {
      std::uint8_t* buffer = nullptr;
      if (!AllocInto(state, buffer, kPassBufferBytes, false)) return false;
      state.StripeBuffers[i].BufferStart = buffer;
      state.StripeBuffers[i].WritePos = buffer;
    }
  }
  if (!AllocInto(state, state.RecordBuffer, kRecordBufferBytes, false)) return false;
  if (!AllocInto(state, state.ScratchBuffer, kScratchBufferBytes, false)) return false;
  return true;
}

}  // namespace

bool InitDeviceState(DeviceState& state, const GDIINFO& gdiInfo, const DEVMODEW& devmode) {
  state.PaperSize = static_cast<std::uint16_t>(devmode.dmPaperSize);
  // The state always holds the portrait page.
  if (devmode.dmOrientation == DMORIENT_LANDSCAPE) {
    state.PageWidth = gdiInfo.ulVertRes;
    state.PageHeight = gdiInfo.ulHorzRes;
  } else {
    state.PageWidth = gdiInfo.ulHorzRes;
    state.PageHeight = gdiInfo.ulVertRes;
  }

  // A page the buffers cannot serve is refused before anything is allocated.
  if (!PageFitsBuffers(state.PageWidth, state.PageHeight)) return false;

  auto* head = static_cast<MemoryBlock**>(GlobalHeapAlloc(sizeof(MemoryBlock*)));
  if (!head) return false;
  *head = nullptr;
  state.MemoryList = head;

  std::uint32_t lineWidth = state.PageWidth;
  if (devmode.dmPrintQuality == 600) lineWidth *= 2;
  if (!AllocateBuffers(state, lineWidth, devmode.dmPrintQuality)) {
    FreeMemoryList(state);  // pointers to the freed buffers stay until DisablePDEV clears them
    return false;
  }

  state.Landscape = devmode.dmOrientation == DMORIENT_LANDSCAPE ? 1 : 0;
  state.PrintQuality = static_cast<std::uint16_t>(devmode.dmPrintQuality);
  state.ColorMode = static_cast<std::uint16_t>(devmode.dmColor);
  state.HalftoneMethod = kHalftoneDither;
  state.BrightnessAdjust = 0;
  state.ContrastAdjust = 0;
  state.PaperSize = static_cast<std::uint16_t>(devmode.dmPaperSize);
  state.RedGain = state.GreenGain = state.BlueGain = 0;
  state.LutVariant = 0;
  state.CompressionMethod = 2;
  return true;
}

HRESULT EnableDevice(const DEVOBJ* devobj, const GDIINFO* gdiInfo, void** outState) {
  auto* state = static_cast<DeviceState*>(LocalHeapAlloc(sizeof(DeviceState)));
  if (!state) {
    if (outState) *outState = nullptr;
    return E_FAIL;
  }
  std::memset(static_cast<void*>(state), 0, sizeof(DeviceState));
  if (outState) *outState = state;  // before set-up: the host holds the record even if set-up fails

  const DEVMODEW* devmode = devobj ? devobj->pPublicDM : nullptr;
  if (gdiInfo && devmode && InitDeviceState(*state, *gdiInfo, *devmode)) {
    state->InitFailed = 0;
    return S_OK;
  }
  state->InitFailed = 1;
  return E_FAIL;
}

void DisableDevice(DEVOBJ* devobj) {
  DeviceState* state = StateOf(devobj);
  if (!state) return;
  for (std::int16_t*& line : state->LineBuffers) line = nullptr;
  state->PlaneBuffer[0] = state->PlaneBuffer[1] = nullptr;
  state->ToneCurves = nullptr;
  for (PassBuffer& pass : state->StripeBuffers) pass.BufferStart = nullptr;
  state->RecordBuffer = nullptr;
  state->ScratchBuffer = nullptr;
  FreeMemoryList(*state);
  LocalHeapFree(state);
}

}  // namespace inkweave
