// The printer command writer. Every byte to the printer passes through WriteBytes; the command groups
// are fixed byte strings written whole.
#include "src/commands/command_writer.h"

#include "src/commands/printer_commands.h"
#include "src/device/device_state.h"

namespace inkweave {

// The paper command, shared by every device of the process and patched in place before it is sent.
std::uint8_t PaperCommand[4] = {0x73, 0x00, 0x00, 0x00};

namespace {

template <std::size_t N>
void Write(DEVOBJ* devobj, const std::uint8_t (&bytes)[N], IPrintOemDriverUni* driver) {
  WriteBytes(devobj, bytes, N, driver);
}

// The ink-mode code of a print mode: two bits a dot when the mode is flagged, monochrome or colour.
std::uint8_t InkModeOf(std::uint8_t printMode) {
  const bool flagged = (printMode & kPrintModeFlag) != 0;
  const bool mono = (printMode & kPrintModeMonochrome) != 0;
  if (flagged) return mono ? kInkModeMonoTwoBit : kInkModeColorTwoBit;
  return mono ? kInkModeMonoOneBit : kInkModeColorOneBit;
}

bool IsEnvelope(std::uint16_t paperSize) {
  switch (paperSize) {
    case DMPAPER_ENV_10:
    case DMPAPER_ENV_DL:
    case DMPAPER_ENV_C5:
    case DMPAPER_ENV_C4:
    case DMPAPER_ENV_B5:
    case DMPAPER_ENV_MONARCH: return true;
    default: return false;
  }
}

// Patches PaperCommand for the paper size and answers how many of its bytes to send.
std::uint32_t PreparePaperCommand(std::uint16_t paperSize) {
  std::uint8_t code;
  switch (paperSize) {
    case DMPAPER_LETTER:
    case DMPAPER_LEGAL:
      PaperCommand[1] = 0xFF;
      PaperCommand[2] = 0xE8;
      PaperCommand[3] = 0x02;
      return 4;
    case DMPAPER_A4: code = 0x01; break;
    case DMPAPER_EXECUTIVE: code = 0x03; break;
    case DMPAPER_A5: code = 0x07; break;
    case DMPAPER_ENV_B5: code = 0x05; break;
    case DMPAPER_ENV_C5: code = 0x06; break;
    case DMPAPER_ENV_C4: code = 0x01; break;  // shares the A4 code
    case DMPAPER_ENV_10: code = 0x0C; break;
    case DMPAPER_ENV_DL: code = 0x0A; break;
    case DMPAPER_ENV_MONARCH: code = 0x0D; break;
    default: code = 0xFF; break;
  }
  PaperCommand[1] = code;
  return 2;
}

}  // namespace

void WriteBytes(DEVOBJ* devobj, const void* bytes, std::uint32_t length, IPrintOemDriverUni* driver) {
  DWORD written = 0;
  const HRESULT hr = driver->lpVtbl->DrvWriteSpoolBuf(driver, devobj, const_cast<void*>(bytes), length, &written);
  if (hr == E_FAIL) {
    if (DeviceState* state = StateOf(devobj)) state->WriteFailed = 1;
  }
}

void WritePadding(DEVOBJ* devobj, IPrintOemDriverUni* driver) { Write(devobj, kPadding, driver); }

void WriteInkModeCode(DEVOBJ* devobj, std::uint8_t code, IPrintOemDriverUni* driver) {
  const std::uint8_t command[2] = {kInkModeCommand, code};
  Write(devobj, command, driver);
  StateOf(devobj)->InkModeCode = code;
}

void WriteInkMode(DEVOBJ* devobj, IPrintOemDriverUni* driver) {
  WriteInkModeCode(devobj, InkModeOf(StateOf(devobj)->PrintMode), driver);
}

void WriteModeSettings(DEVOBJ* devobj, IPrintOemDriverUni* driver) {
  DeviceState& state = *StateOf(devobj);
  Write(devobj, kEnterRasterLanguage, driver);

  // Resolution from the level of the whole print-mode value (1..54).
  const std::uint8_t mode = state.PrintMode;
  if (mode >= 1 && mode <= 54) {
    switch (LevelOf(mode)) {
      case kLevel150: Write(devobj, kResolution150, driver); break;
      case kLevel300:
      case 3: Write(devobj, kResolution300, driver); break;  // levels 3 and 5 share the level below's
      case kLevel600:
      case 5: Write(devobj, kResolution600, driver); break;
      case kLevelHigh: Write(devobj, kResolutionHigh, driver); break;
      default: break;
    }
  }

  WriteInkMode(devobj, driver);

  switch (state.CompressionMethod) {
    case 2: Write(devobj, kCompressionPattern, driver); break;
    case 1: Write(devobj, kCompressionPackBits, driver); break;
    case 0: Write(devobj, kCompressionNone, driver); break;
    default: break;
  }

  const bool d2 =
      state.DCommandEnable == 0 || IsEnvelope(state.PaperSize) || (state.MediaType >= 2 && state.MediaType <= 5);
  Write(devobj, d2 ? kDCommand2 : kDCommand0, driver);

  std::uint8_t media = 0;
  switch (state.MediaType) {
    case 1: media = 1; break;
    case 2: media = 2; break;
    case 3: media = 3; break;
    case 4:
    case 5: media = 4; break;
    default: media = 0; break;
  }
  const std::uint8_t mediaCommand[3] = {'N', 0x05, media};
  Write(devobj, mediaCommand, driver);
}

void WritePageStart(DEVOBJ* devobj, IPrintOemDriverUni* driver) {
  DeviceState& state = *StateOf(devobj);
  if (state.PageHeaderDisabled != 0) return;
  WriteModeSettings(devobj, driver);
  Write(devobj, kPageStartFiller, driver);
  for (int i = 0; i < 5; ++i) WritePadding(devobj, driver);
  Write(devobj, kYCommand, driver);
  Write(devobj, kXCommand, driver);
  const std::uint32_t paperBytes = PreparePaperCommand(state.PaperSize);
  WriteBytes(devobj, PaperCommand, paperBytes, driver);
  if (IsEnvelope(state.PaperSize)) Write(devobj, kFnCommand, driver);
}

}  // namespace inkweave
