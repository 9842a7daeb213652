// The command-callback dispatcher. Selections (halftone, media, high resolution) change the device
// state; job and page commands write their sequences through the command writer. The print-mode flag
// arithmetic of the halftone and resolution selections is exact, consequences included: the
// monochrome bit is only ever added, a second error-diffusion selection clears the flag again, and
// level 6 never carries the flag.
#include "src/commands/command_dispatcher.h"

#include "src/commands/command_writer.h"
#include "src/commands/printer_commands.h"
#include "src/device/device_state.h"

namespace inkweave {

namespace {

// The print mode with the monochrome bit added for a monochrome device.
std::uint8_t WithMonochromeBit(const DeviceState& state) {
  std::uint8_t p = state.PrintMode;
  if (state.ColorMode == DMCOLOR_MONOCHROME) p |= kPrintModeMonochrome;
  return p;
}

constexpr std::uint8_t kClearFlag = static_cast<std::uint8_t>(~kPrintModeFlag);

void SelectDither(DeviceState& state) {
  state.HalftoneMethod = kHalftoneDither;
  state.PrintMode = WithMonochromeBit(state) & kClearFlag;
}

void SelectErrorDiffusion(DeviceState& state) {
  state.HalftoneMethod = kHalftoneDiffusion;
  const std::uint8_t p = WithMonochromeBit(state);
  state.PrintMode =
      p < kLevelHigh ? static_cast<std::uint8_t>(p | kPrintModeFlag) : static_cast<std::uint8_t>(p & kClearFlag);
}

void SelectHighResolution(DeviceState& state) {
  // Exactly these four whole values change: colour level 4, flagged or not, and monochrome 21 and 53
  // (level 5, as the design has them) move to level 6.
  switch (state.PrintMode) {
    case kLevel600:
    case kLevel600 | kPrintModeFlag: state.PrintMode = kLevelHigh; break;
    case 21:
    case 53: state.PrintMode = kLevelHigh | kPrintModeMonochrome; break;
    default: break;
  }
  const std::uint8_t p = WithMonochromeBit(state);
  state.PrintMode = state.HalftoneMethod == kHalftoneDiffusion && p < kLevelHigh
                        ? static_cast<std::uint8_t>(p | kPrintModeFlag)
                        : static_cast<std::uint8_t>(p & kClearFlag);
}

void WriteDirect(DEVOBJ* devobj, const std::uint8_t* bytes, DWORD length, IPrintOemDriverUni* driver) {
  // Page end and job end bypass WriteBytes: their failures are never recorded.
  DWORD written = 0;
  (void)driver->lpVtbl->DrvWriteSpoolBuf(driver, devobj, const_cast<std::uint8_t*>(bytes), length, &written);
}

void StartJob(DEVOBJ* devobj, DeviceState& state, IPrintOemDriverUni* driver) {
  state.WriteFailed = 0;
  for (int i = 0; i < 20; ++i) WritePadding(devobj, driver);
  WriteBytes(devobj, kEnterRasterLanguage, sizeof kEnterRasterLanguage, driver);
  WriteBytes(devobj, kReset, sizeof kReset, driver);
  WriteBytes(devobj, kEnterRasterLanguage, sizeof kEnterRasterLanguage, driver);
  WriteModeSettings(devobj, driver);
}

void EndPage(DEVOBJ* devobj, IPrintOemDriverUni* driver) {
  WriteDirect(devobj, kFormFeed, sizeof kFormFeed, driver);
  for (int i = 0; i < 5; ++i) WritePadding(devobj, driver);
}

void EndJob(DEVOBJ* devobj, DeviceState& state, IPrintOemDriverUni* driver) {
  if (state.WriteFailed) {
    // Like the direct writes, the abort write's answer changes nothing: the job ends either way.
    (void)driver->lpVtbl->DrvWriteAbortBuf(driver, devobj, const_cast<std::uint8_t*>(kAbortTail), sizeof kAbortTail,
                                           1000);
  } else {
    WriteDirect(devobj, kReset, sizeof kReset, driver);
  }
  state.WriteFailed = 0;
}

}  // namespace

void HandleCommand(DEVOBJ* devobj, std::uint32_t commandId, std::uint32_t /*count*/, IPrintOemDriverUni* driver) {
  DeviceState* state = StateOf(devobj);
  if (!state) return;  // no device: nothing to act on
  const bool writes = commandId >= kCmdPageStart && commandId <= kCmdJobEnd;
  if (writes && !driver) return;  // no spool service published: nothing can be written
  switch (commandId) {
    case kCmdDither: SelectDither(*state); break;
    case kCmdErrorDiffusion: SelectErrorDiffusion(*state); break;
    case kCmdHighResolution: SelectHighResolution(*state); break;
    case kCmdMediaPlain: state->MediaType = 0; break;
    case kCmdMediaInkjet: state->MediaType = 1; break;
    case kCmdMediaGlossy: state->MediaType = 2; break;
    case kCmdMediaPhoto: state->MediaType = 3; break;
    case kCmdPageStart: WritePageStart(devobj, driver); break;
    case kCmdPageEnd: EndPage(devobj, driver); break;
    case kCmdJobStart: StartJob(devobj, *state, driver); break;
    case kCmdJobEnd: EndJob(devobj, *state, driver); break;
    default: break;
  }
}

}  // namespace inkweave
