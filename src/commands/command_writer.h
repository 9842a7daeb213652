// The printer command writer: the single write path to the host (WriteBytes) and the fixed command
// groups built on it (mode settings, ink mode, page start, padding).
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

// Writes through the host's DrvWriteSpoolBuf. Answers 1 on S_OK, else 0; E_FAIL sets WriteFailed.
int WriteBytes(DEVOBJ* devobj, const void* bytes, std::uint32_t length, IPrintOemDriverUni* driver);

void WritePadding(DEVOBJ* devobj, IPrintOemDriverUni* driver);       // 100 zero bytes
void WriteInkMode(DEVOBJ* devobj, IPrintOemDriverUni* driver);       // "I" m, m recorded in InkModeCode
void WriteModeSettings(DEVOBJ* devobj, IPrintOemDriverUni* driver);  // raster language, R, I, M, D, N
void WritePageStart(DEVOBJ* devobj, IPrintOemDriverUni* driver);     // settings, padding, Y, X, paper

}  // namespace inkweave
