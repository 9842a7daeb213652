// The printer command writer: the single write path to the host (WriteBytes) and the fixed command
// groups built on it (mode settings, ink mode, page start, padding).
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

// Writes through the host's DrvWriteSpoolBuf. Only S_OK is success. A write that the host answers
// with E_FAIL sets WriteFailed, the one record of a failed spool write (it turns the job end into the
// abort write); other failing answers are not recorded. Every caller carries on writing either way,
// so nothing is answered.
void WriteBytes(DEVOBJ* devobj, const void* bytes, std::uint32_t length, IPrintOemDriverUni* driver);

// The one writer of the ink-mode command: "I" and the code in one write, the code then recorded in
// InkModeCode. The callers choose the code: WriteInkMode from the print mode, the raster emitter from
// the bit depth its stripe needs.
void WriteInkModeCode(DEVOBJ* devobj, std::uint8_t code, IPrintOemDriverUni* driver);

void WritePadding(DEVOBJ* devobj, IPrintOemDriverUni* driver);       // 100 zero bytes
void WriteInkMode(DEVOBJ* devobj, IPrintOemDriverUni* driver);       // "I" with the print mode's code
void WriteModeSettings(DEVOBJ* devobj, IPrintOemDriverUni* driver);  // raster language, R, I, M, D, N
void WritePageStart(DEVOBJ* devobj, IPrintOemDriverUni* driver);     // settings, padding, Y, X, paper

}  // namespace inkweave
