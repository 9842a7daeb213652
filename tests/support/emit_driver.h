// A small page driver for the raster emitter, doing what the band driver does around it: a device
// state with test-owned working buffers, the page-start fields, one EmitStripe per stripe (StripeFlag 1
// for the first, 0 after) and the final call (StripeFlag 2, no rows, ink flag 1). Writes are collected
// by the host's spool recorder.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "host/spool.h"
#include "src/commands/command_writer.h"
#include "src/commands/printer_commands.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/raster/raster.h"

namespace inkweave::testing {

struct EmitDevice {
  std::vector<std::uint8_t> Planes[2];
  std::vector<std::uint8_t> Passes[kPassBufferRecords];
  std::vector<std::uint8_t> Record;
  std::vector<std::uint8_t> Scratch;
  DeviceState State{};
  DEVOBJ Devobj{};
  host::SpoolService Spool;

  // printMode: the whole PrintMode byte; colorMode 2 colour, 1 monochrome; halftone 1 dither, 2 diffusion.
  explicit EmitDevice(std::uint8_t printMode, std::uint16_t colorMode = 2, std::uint16_t quality = 300,
                      std::uint8_t halftone = 1) {
    for (int h = 0; h < 2; ++h) {
      Planes[h].assign(kPlaneBufferBytes, 0);
      State.PlaneBuffer[h] = Planes[h].data();
    }
    for (int i = 0; i < kPassBufferRecords; ++i) {
      Passes[i].assign(kPassBufferBytes, 0);
      State.StripeBuffers[i].BufferStart = State.StripeBuffers[i].WritePos = Passes[i].data();
    }
    Record.assign(kRecordBufferBytes, 0);
    Scratch.assign(kScratchBufferBytes, 0);
    State.RecordBuffer = Record.data();
    State.ScratchBuffer = Scratch.data();
    State.PrintMode = printMode;
    State.ColorMode = colorMode;
    State.PrintQuality = quality;
    State.ActiveHalftone = halftone;
    State.HalftoneMethod = halftone;
    State.CompressionMethod = 2;
    State.PaperSize = DMPAPER_A4;
    Devobj.dwSize = sizeof(DEVOBJ);
    Devobj.pdevOEM = &State;
  }
  EmitDevice(const EmitDevice&) = delete;
  EmitDevice& operator=(const EmitDevice&) = delete;

  IPrintOemDriverUni* Driver() { return Spool.Interface(); }
  // Plane p of row n of the stripe in PlaneBuffer half h.
  std::uint8_t* PlaneRow(int h, int n, int p) {
    return Planes[h].data() + static_cast<std::size_t>(n * 4 + p) * PlaneLayoutOf(LevelOf(State.PrintMode)).PlaneBytes;
  }
};

// A portrait band record of the given line width and band height, in pixels.
inline BandInfo MakeBand(std::int32_t linePixels, std::int32_t height = 64) {
  BandInfo band{};
  band.Header.biSize = 40;
  band.Header.biWidth = linePixels;
  band.Header.biHeight = height;
  band.Header.biPlanes = 1;
  band.Header.biBitCount = 24;
  band.Stride = BandStride(linePixels);
  return band;
}

// The fields the band driver sets at page start.
inline void BeginPage(DeviceState& state) {
  state.PaperPosition = 0;
  state.PhaseRow = 0;
  state.WeavePhase = 0;
  state.StripeFlag = kStripeFirst;
  state.PageInkSeen = 0;
  for (PassBuffer& pass : state.StripeBuffers) {
    pass.RowsFilled = 0;
    pass.WritePos = pass.BufferStart;
  }
}

// One stripe as the band driver hands it over, then StripeFlag 0 for the next one.
inline void EmitOne(EmitDevice& device, int stripeHeight, const BandInfo& band, std::int16_t inkFlag) {
  device.State.PageInkSeen = static_cast<std::uint16_t>(device.State.PageInkSeen | inkFlag);
  EmitStripe(&device.Devobj, stripeHeight, band, inkFlag, device.Driver());
  device.State.StripeFlag = kStripeLater;
}

// The page's final call.
inline void FinishPage(EmitDevice& device, const BandInfo& band) {
  device.State.StripeFlag = kStripeFinal;
  EmitStripe(&device.Devobj, 0, band, 1, device.Driver());
}

// A page of dot planes: Rows raster rows of four planes of Width bytes, in two halves (the second bit
// of two-bit dots in half 1). Monochrome pages use plane 3 only.
struct DotPage {
  int Rows = 0;
  int Width = 0;  // bytes per plane row
  std::vector<std::uint8_t> Bits[2];

  DotPage(int rows, int width) : Rows(rows), Width(width) {
    for (auto& half : Bits) half.assign(static_cast<std::size_t>(rows) * 4 * width, 0);
  }
  std::uint8_t* Row(int h, int row, int plane) {
    return Bits[h].data() + (static_cast<std::size_t>(row) * 4 + plane) * Width;
  }
  const std::uint8_t* Row(int h, int row, int plane) const {
    return Bits[h].data() + (static_cast<std::size_t>(row) * 4 + plane) * Width;
  }
};

// Feeds a whole page stripe by stripe: each stripe's rows are copied into PlaneBuffer and its ink flag
// is 1 when any of its planes has a dot, as a renderer answers. Then the final call. In modes 6 and up
// a stripe holds 8 rows for a stripe height of 4 (a page of odd height gets one blank row more).
inline void EmitPage(EmitDevice& device, const DotPage& page, const BandInfo& band) {
  BeginPage(device.State);
  const PlaneLayout layout = PlaneLayoutOf(LevelOf(device.State.PrintMode));
  for (int first = 0; first < page.Rows; first += layout.OutputLines) {
    const int rows = std::min(layout.OutputLines, page.Rows - first);
    for (auto& half : device.Planes) std::fill(half.begin(), half.end(), 0);
    bool ink = false;
    for (int h = 0; h < 2; ++h)
      for (int n = 0; n < rows; ++n)
        for (int p = 0; p < 4; ++p) {
          const std::uint8_t* src = page.Row(h, first + n, p);
          std::memcpy(device.PlaneRow(h, n, p), src, static_cast<std::size_t>(page.Width));
          ink = ink || std::any_of(src, src + page.Width, [](std::uint8_t b) { return b != 0; });
        }
    EmitOne(device, (rows + layout.Scale - 1) / layout.Scale, band, ink ? 1 : 0);
  }
  FinishPage(device, band);
}

// A one-page job around what emitPage writes: the mode settings and the page start, the page, a form
// feed, a reset.
template <typename Page>
void EmitJob(EmitDevice& device, Page&& emitPage) {
  WriteModeSettings(&device.Devobj, device.Driver());
  WritePageStart(&device.Devobj, device.Driver());
  emitPage();
  WriteBytes(&device.Devobj, kFormFeed, sizeof kFormFeed, device.Driver());
  WriteBytes(&device.Devobj, kReset, sizeof kReset, device.Driver());
}

}  // namespace inkweave::testing
