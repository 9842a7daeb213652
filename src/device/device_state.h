// The per-device record: created by EnablePDEV, reached through DEVOBJ::pdevOEM on every later call,
// destroyed by DisablePDEV. Every stage of the plug-in reads or writes its fields. It holds what is
// live: fields grouped by the stage that owns them, nothing that can be computed from another field.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

// PrintMode: the resolution level in the low four bits, then the monochrome bit and the mode flag
// (error diffusion below level 6).
inline constexpr std::uint8_t kPrintModeLevelMask = 0x0F;
inline constexpr std::uint8_t kPrintModeMonochrome = 16;
inline constexpr std::uint8_t kPrintModeFlag = 32;

// Resolution levels. Levels 3 and 5 are understood by the command writer and the renderers but nothing
// sets them; levels 7 to 15 count as high wherever the level is compared.
inline constexpr int kLevel150 = 1;   // 150 dpi
inline constexpr int kLevel300 = 2;   // 300 dpi
inline constexpr int kLevel600 = 4;   // 600 dpi
inline constexpr int kLevelHigh = 6;  // after the high-resolution command

inline constexpr int LevelOf(std::uint8_t printMode) { return printMode & kPrintModeLevelMask; }

// The level whose weave a whole PrintMode byte selects: m for m, m + 16, m + 32 and m + 48 with m from
// 1 to 6; 0 for any other byte (no weave, no pass buffers).
inline constexpr int WeaveLevelOf(std::uint8_t printMode) {
  const int level = LevelOf(printMode);
  return printMode < 64 && level >= kLevel150 && level <= kLevelHigh ? level : 0;
}

// Halftone methods (HalftoneMethod, ActiveHalftone).
inline constexpr std::uint8_t kHalftoneDither = 1;
inline constexpr std::uint8_t kHalftoneDiffusion = 2;

// StripeFlag: where the band driver is in the page when it calls the emitter.
inline constexpr std::uint16_t kStripeLater = 0;  // any stripe after the page's first
inline constexpr std::uint16_t kStripeFirst = 1;  // the page's first stripe
inline constexpr std::uint16_t kStripeFinal = 2;  // the page's final call

// Working buffer sizes (the plane buffers' is in plane_geometry.h).
inline constexpr std::uint32_t kToneCurveBytes = 7 * 256;   // seven 256-entry curves
inline constexpr std::uint32_t kPassBufferBytes = 547840;   // one head pass
inline constexpr std::uint32_t kRecordBufferBytes = 4800;   // one raster record
inline constexpr std::uint32_t kScratchBufferBytes = 1800;  // the emitter's work block
inline constexpr int kPassBufferRecords = 8;

// One head pass being collected.
struct PassBuffer {
  std::uint16_t RowsFilled;   // head rows placed, blank ones included
  std::uint8_t* BufferStart;  // kPassBufferBytes of storage
  std::uint8_t* WritePos;     // end of the bytes placed so far
};

struct MemoryBlock;  // a global-heap block of the memory list (device/memory_list.h)

struct DeviceState {
  // The device, from the device mode and the GDI information at creation.
  std::uint16_t ColorMode;     // 1 monochrome, 2 colour
  std::uint16_t PrintQuality;  // dpi (150, 300, 600)
  std::uint16_t PaperSize;     // platform paper size number
  std::uint8_t Landscape;      // 1 when the device mode is landscape
  std::uint32_t PageWidth;     // portrait page width, device pixels
  std::uint32_t PageHeight;    // portrait page height, device pixels
  std::uint32_t InitFailed;    // 1 when buffer set-up failed: every band is refused

  // The job: the selections of the command callbacks and what the printer was last told.
  std::int16_t MediaType;       // 0..3 from the media commands
  std::uint8_t HalftoneMethod;  // job's halftone: kHalftoneDither or kHalftoneDiffusion
  std::uint8_t ActiveHalftone;  // halftone in force for the page, settled per band
  std::uint8_t PrintMode;       // resolution level | kPrintModeMonochrome | kPrintModeFlag
  std::uint16_t InkModeCode;    // code last sent with "I"
  std::uint32_t WriteFailed;    // 1 after a spool write answered E_FAIL; the job end then aborts

  // Settings that nothing changes from their creation values. They stay named fields because real
  // code paths branch on them, which the tests drive through them: the tone-curve formulas read the
  // five adjustments, the colour-table choice LutVariant, the command writer DCommandEnable,
  // PageHeaderDisabled and CompressionMethod, the row encoder CompressionMethod and MirrorOutput.
  std::uint8_t LutVariant;           // 0
  std::int16_t BrightnessAdjust;     // 1/128 of full scale; 0
  std::int16_t ContrastAdjust;       // percent around mid-scale; 0
  std::int16_t RedGain;              // 1/128 steps; 0
  std::int16_t GreenGain;            // 1/128 steps; 0
  std::int16_t BlueGain;             // 1/128 steps; 0
  std::uint8_t CompressionMethod;    // 2 pattern run-length; 0 none and 1 run-length are understood
  std::uint8_t MirrorOutput;         // 0: rows go out unmirrored
  std::uint32_t DCommandEnable;      // 0: "D" is always sent as 44 02
  std::uint32_t PageHeaderDisabled;  // 0: the page start is written

  // Working memory, allocated once from the global heap through the memory list, freed all at once.
  MemoryBlock** MemoryList;      // head cell of the blocks owned by the state
  std::uint8_t* PlaneBuffer[2];  // kPlaneBufferBytes each: the stripe's dot planes
  std::uint8_t* ToneCurves;      // seven curves, curve k at byte 256 k
  std::int16_t* LineBuffers[4];  // (4 W + 16) bytes each: error lines of cyan, magenta, yellow, black
  PassBuffer StripeBuffers[kPassBufferRecords];
  std::uint8_t* ScratchBuffer;  // kScratchBufferBytes
  std::uint8_t* RecordBuffer;   // kRecordBufferBytes

  // The page's colour table and the choice it was last prepared for.
  const std::uint8_t* ColorLut;  // 17x17x17x4 colour table in use (constant data)
  std::uint16_t CachedMediaType;
  std::uint16_t CachedPrintQuality;
  std::uint8_t CachedLutVariant;
  std::uint8_t CachedHalftoneMethod;
  std::uint8_t CachedPrintMode;

  // The page in progress, kept by the band driver.
  std::uint32_t BandOffset;   // the band's offset on the page, pixels (y portrait, x landscape)
  std::uint16_t PageInkSeen;  // OR of the renderers' results since page start
  std::uint16_t StripeFlag;   // kStripeFirst, kStripeLater or kStripeFinal

  // The weave, kept by the raster emitter across stripes and bands.
  std::uint16_t PaperPosition;  // 1/400 in already fed on this page
  std::uint16_t CurrentPass;    // pass buffer to be flushed next
  std::uint8_t WeavePhase;      // current phase of the interleave
  std::uint16_t PhaseRow;       // rows placed in the current phase

  // Error diffusion, kept by the large renderers across stripes.
  std::int16_t ScanParity;        // serpentine parity
  std::uint32_t DiffusionCursor;  // start index of the wide jitter draws; the seeding resets it to 0
};

// The page's final emitter call: every open pass is flushed and the last ones shortened.
inline bool FinalFlush(const DeviceState& state) { return state.StripeFlag == kStripeFinal; }

// The device state behind a device object (null when there is none).
inline DeviceState* StateOf(const DEVOBJ* devobj) {
  return devobj ? static_cast<DeviceState*>(devobj->pdevOEM) : nullptr;
}

}  // namespace inkweave
