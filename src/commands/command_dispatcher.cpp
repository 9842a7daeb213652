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

const std::uint32_t CommandValueTable[20] = {1200, 1165, 1012, 1000, 799, 544, 574, 882, 507, 0,
                                             37,   55,   132,  138,  238, 366, 351, 196, 384, 0};

namespace {

// The print mode with the monochrome bit added for a monochrome device.
std::uint8_t WithMonochromeBit(const DeviceState& state) {
  std::uint8_t p = state.PrintMode;
  if (state.ColorMode == DMCOLOR_MONOCHROME) p |= kPrintModeMonochrome;
  return p;
}

constexpr std::uint8_t kClearFlag = static_cast<std::uint8_t>(~kPrintModeFlag);

void SelectDither(DeviceState& state) {
  state.HalftoneMethod = 1;
  state.PrintMode = WithMonochromeBit(state) & kClearFlag;
}

void SelectErrorDiffusion(DeviceState& state) {
  state.HalftoneMethod = 2;
  const std::uint8_t p = WithMonochromeBit(state);
  state.PrintMode = p < 6 ? static_cast<std::uint8_t>(p | kPrintModeFlag) : static_cast<std::uint8_t>(p & kClearFlag);
}

void SelectHighResolution(DeviceState& state) {
  switch (state.PrintMode) {
    case 4:
    case 36: state.PrintMode = 6; break;
    case 21:
    case 53: state.PrintMode = 22; break;
    default: break;
  }
  const std::uint8_t p = WithMonochromeBit(state);
  state.PrintMode = state.HalftoneMethod == 2 && p < 6 ? static_cast<std::uint8_t>(p | kPrintModeFlag)
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
  (void)WriteBytes(devobj, kEnterRasterLanguage, sizeof kEnterRasterLanguage, driver);
  (void)WriteBytes(devobj, kReset, sizeof kReset, driver);
  (void)WriteBytes(devobj, kEnterRasterLanguage, sizeof kEnterRasterLanguage, driver);
  WriteModeSettings(devobj, driver);
}

void EndPage(DEVOBJ* devobj, IPrintOemDriverUni* driver) {
  WriteDirect(devobj, kFormFeed, sizeof kFormFeed, driver);
  for (int i = 0; i < 5; ++i) WritePadding(devobj, driver);
}

void EndJob(DEVOBJ* devobj, DeviceState& state, IPrintOemDriverUni* driver) {
  if (state.WriteFailed) {
    (void)driver->lpVtbl->DrvWriteAbortBuf(driver, devobj, const_cast<std::uint8_t*>(kAbortTail), sizeof kAbortTail,
                                           1000);
  } else {
    WriteDirect(devobj, kReset, sizeof kReset, driver);
  }
  state.WriteFailed = 0;
  state.JobEnded = 1;
}

}  // namespace

int HandleCommand(DEVOBJ* devobj, std::uint32_t commandId, std::uint32_t /*count*/, IPrintOemDriverUni* driver) {
  DeviceState* state = StateOf(devobj);
  if (!state) return 1;  // no device: nothing to act on
  const bool writes = commandId >= kCmdPageStart && commandId <= kCmdJobEnd;
  if (writes && !driver) return 1;  // no spool service published: nothing can be written
  switch (commandId) {
    case kCmdDither: SelectDither(*state); break;
    case kCmdErrorDiffusion: SelectErrorDiffusion(*state); break;
    case kCmdNothing: break;
    case kCmdHighResolution: SelectHighResolution(*state); break;
    case kCmdMediaPlain: state->MediaType = 0; break;
    case kCmdMediaInkjet: state->MediaType = 1; break;
    case kCmdMediaGlossy: state->MediaType = 2; break;
    case kCmdMediaPhoto: state->MediaType = 3; break;
    case kCmdPageStart: WritePageStart(devobj, driver); break;
    case kCmdPageEnd: EndPage(devobj, driver); break;
    case kCmdJobStart: StartJob(devobj, *state, driver); break;
    case kCmdJobEnd: EndJob(devobj, *state, driver); break;
    default:
      state->LastCommandId = commandId & 0xFF;
      // Ids of 24 and above have no table entry; they record 0.
      state->CommandValue = commandId < 20 ? CommandValueTable[commandId] : 0;
      break;
  }
  return 1;
}

}  // namespace inkweave
