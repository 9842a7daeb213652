// The per-device record: created by EnablePDEV, reached through DEVOBJ::pdevOEM on every later call,
// destroyed by DisablePDEV. Every stage of the plug-in reads or writes its fields; the field order is
// part of the design and is kept.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

struct DeviceState;
struct BandInfo;

// A band renderer turns one stripe of a band into dot planes. Arguments: the device state, the stripe's
// first line in the band, the dots across an output line, the band record, the lines in the stripe,
// the first pixel position (always 0), the pixels per output row, the host's image parameters.
// Answers 1 when it set any dot, else 0 (only the low 16 bits are used).
using BandRendererFn = std::uint32_t (*)(DeviceState& state, int firstLine, int width, const BandInfo& band,
                                         int lineCount, int firstPixel, int rowPixels, const IPPARAMS* params);

// One head pass being collected.
struct PassBuffer {
  std::uint16_t RowsFilled;   // head rows placed, blank ones included
  std::uint16_t PassMark;     // 720 at page start, 0 after a flush; nothing reads it
  std::uint8_t* BufferStart;  // kPassBufferBytes of storage
  std::uint8_t* WritePos;     // end of the bytes placed so far
};

// PrintMode bits.
inline constexpr std::uint8_t kPrintModeLevelMask = 0x0F;
inline constexpr std::uint8_t kPrintModeMonochrome = 16;
inline constexpr std::uint8_t kPrintModeFlag = 32;

// Working buffer sizes.
inline constexpr std::uint32_t kPlaneBufferBytes = 0x1E000;  // 122,880 bytes of dot planes
inline constexpr std::uint32_t kToneCurveBytes = 7 * 256;    // seven 256-entry curves
inline constexpr std::uint32_t kPassBufferBytes = 547840;    // one head pass
inline constexpr std::uint32_t kRecordBufferBytes = 4800;    // one raster record
inline constexpr std::uint32_t kScratchBufferBytes = 1800;   // the emitter's work block
inline constexpr int kPassBufferRecords = 8;

struct MemoryBlock;  // a global-heap block of the memory list (device/memory_list.h)

struct DeviceState {
  std::uint32_t JobEnded;         // 1 at creation and after job end; nothing reads it
  std::uint32_t LastCommandId;    // low byte of the last default-branch command id
  std::uint32_t CommandValue;     // CommandValueTable entry of that id
  std::uint16_t ColorMode;        // 1 monochrome, 2 colour
  std::uint16_t PrintQuality;     // dpi (150, 300, 600)
  std::uint16_t PaperSize;        // platform paper size number
  std::uint8_t LutVariant;        // 0; nothing sets it
  std::int16_t MediaType;         // 0..3 from the media commands
  std::int16_t BrightnessAdjust;  // 1/128 of full scale; 0, nothing sets it
  std::int16_t ContrastAdjust;    // percent around mid-scale; 0, nothing sets it
  std::int16_t RedGain;           // 1/128 steps; 0, nothing sets it
  std::int16_t GreenGain;
  std::int16_t BlueGain;
  std::uint8_t MirrorOutput;       // 0, never set
  std::uint8_t CreatedFlag;        // 1 at creation
  std::uint8_t ActiveHalftone;     // halftone in force for the page: 1 dither, 2 error diffusion
  std::uint8_t HalftoneMethod;     // job's halftone: 1 dither, 2 error diffusion
  std::uint8_t PrintMode;          // resolution level (low four bits) | 16 monochrome | 32 mode flag
  std::uint8_t CompressionMethod;  // 0 none, 1 run-length, 2 pattern run-length
  std::uint32_t DCommandEnable;    // 0, nothing sets it
  MemoryBlock** MemoryList;        // head cell of the global-heap blocks owned by the state

  // The choice ColorLut was last prepared for.
  std::uint16_t CachedMediaType;
  std::uint16_t CachedPrintQuality;
  std::uint8_t CachedLutVariant;
  std::uint8_t CachedHalftoneMethod;
  std::uint8_t CachedPrintMode;

  const std::uint8_t* ColorLut;  // 17x17x17x4 colour table in use (constant data)
  std::uint16_t BandLeft;        // first column of the band (0)
  std::uint16_t BandPixels;      // pixels per output row of the band
  std::uint8_t* PlaneBuffer[2];  // kPlaneBufferBytes each
  std::uint8_t* ToneCurves;      // seven curves, curve k at byte 256 k
  std::int16_t* LineBuffers[4];  // (4 W + 16) bytes each: error lines of cyan, magenta, yellow, black
  std::uint16_t PageInkSeen;     // OR of the renderers' results since page start
  std::uint8_t Landscape;        // 1 when the device mode is landscape
  std::uint32_t PageWidth;       // portrait page width, device pixels
  std::uint32_t PageHeight;      // portrait page height, device pixels
  std::uint16_t PageInProgress;  // 0 at page start and after the final call, 1 after each stripe
  std::uint16_t PaperPosition;   // 1/400 in already fed on this page
  PassBuffer StripeBuffers[kPassBufferRecords];
  std::uint16_t CurrentPass;         // pass buffer to be flushed next
  std::uint8_t WeavePhase;           // current phase of the interleave
  std::uint16_t PhaseRow;            // rows placed in the current phase
  std::uint16_t StripeFlag;          // 1 first stripe of the page, 0 later, 2 during the final call
  std::uint32_t PageStartMark;       // 1 at page start; nothing reads it
  std::uint32_t FinalFlush;          // 1 during the page's final call
  std::uint8_t* ScratchBuffer;       // kScratchBufferBytes
  std::uint8_t* RecordBuffer;        // kRecordBufferBytes
  std::uint32_t PageHeaderDisabled;  // 0, nothing sets it
  std::uint16_t InkModeCode;         // mode byte last sent with "I"
  std::int16_t ScanParity;           // serpentine parity of the large diffusion renderers
  std::uint32_t RendererScratch[8];
  std::uint32_t DiffusionCursor;  // start index of the wide jitter draws
  std::uint32_t BandOffset;       // the band's offset on the page, pixels (y portrait, x landscape)
  std::uint32_t WriteFailed;      // 1 after a spool write answered E_FAIL
  BandRendererFn BandRenderer;    // renderer chosen for the band
  std::uint32_t InitFailed;       // 1 when buffer set-up failed
};

// The device state behind a device object (null when there is none).
inline DeviceState* StateOf(const DEVOBJ* devobj) {
  return devobj ? static_cast<DeviceState*>(devobj->pdevOEM) : nullptr;
}

}  // namespace inkweave
