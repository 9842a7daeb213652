// The raster emitter: weaves the dot rows of each stripe into head passes and writes them.
//
// Per stripe: the top-of-page feed (first stripe of a page that starts below the top), the bit-depth
// command "I" when the wanted depth changes, then every row of the stripe goes to its pass buffer and
// head row by the weave map of the print mode, with blank markers filling skipped head rows. A pass
// that is complete goes out as "F" with its feed and then, when it holds ink, its bytes in one write.
// A short stripe or the page's final call flushes every open pass; in the final call the last passes
// are padded at their top with blank rows and their feeds shortened to match.
//
// Modes 2..6 flush a pass when its phase ends. Mode 1 double-buffers: the pass of a phase goes out once
// the first row of the next phase has been placed, always after a feed of 280.
#include <algorithm>
#include <cstring>

#include "src/commands/command_writer.h"
#include "src/commands/printer_commands.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/raster/raster.h"
#include "src/raster/row_records.h"
#include "src/raster/weave.h"

namespace inkweave {
namespace {

// The planes of a colour row in the order they are sent.
constexpr std::uint16_t kColorPlaneOrder[4] = {kBlackPlane, kYellowPlane, kCyanPlane, kMagentaPlane};
constexpr std::uint8_t kBlankColorRow[4] = {kBlankMarker, kBlankMarker, kBlankMarker, kBlankMarker};

// What one call works with.
struct Stripe {
  DEVOBJ* Devobj;
  IPrintOemDriverUni* Driver;
  DeviceState& State;
  bool Color;
  bool TwoBit;
  std::uint16_t Stride;           // S, bytes per plane
  std::uint16_t Width;            // W, bytes per plane row
  const std::uint8_t* Planes[2];  // the current row in both halves of PlaneBuffer (plane 3 when mono)
  RowContext Context;
};

void WriteFeed(Stripe& s, std::uint16_t amount) {
  const std::uint8_t command[3] = {'F', static_cast<std::uint8_t>(amount & 0xFF),
                                   static_cast<std::uint8_t>(amount >> 8)};
  WriteBytes(s.Devobj, command, 3, s.Driver);
}

void WritePass(Stripe& s, const PassBuffer& pass) {
  WriteBytes(s.Devobj, pass.BufferStart, static_cast<std::uint32_t>(pass.WritePos - pass.BufferStart), s.Driver);
}

// Blank rows written straight to the stream, one write each.
void WriteBlankRows(Stripe& s, int rows) {
  for (int i = 0; i < rows; ++i) WriteBytes(s.Devobj, kBlankColorRow, s.Color ? 4 : 1, s.Driver);
}

void AppendBlankMarkers(Stripe& s, PassBuffer& pass, int count) {
  if (count > static_cast<int>(kScratchBufferBytes)) count = kScratchBufferBytes;
  std::memset(s.State.ScratchBuffer, kBlankMarker, static_cast<std::size_t>(count));
  AppendToPass(pass, s.State.ScratchBuffer, static_cast<std::uint16_t>(count));
}

// Encodes the current row's planes into the pass and moves on to the next row.
void PlaceRow(Stripe& s, PassBuffer& pass) {
  const int planes = s.Color ? 4 : 1;
  for (int i = 0; i < planes; ++i) {
    const std::size_t offset = s.Color ? static_cast<std::size_t>(kColorPlaneOrder[i]) * s.Stride : 0;
    if (s.TwoBit)
      EncodeRowPair(pass, s.Planes[0] + offset, s.Planes[1] + offset, s.Width, s.Context);
    else
      EncodeRow(pass, s.Planes[0] + offset, s.Width, s.Context);
  }
  ++pass.RowsFilled;
  for (const std::uint8_t*& plane : s.Planes) plane += 4 * static_cast<std::size_t>(s.Stride);
}

// A pass completed during the page: its feed, then its bytes when it holds ink.
void FlushPass(Stripe& s, PassBuffer& pass, std::uint16_t feed) {
  WriteFeed(s, feed);
  s.State.PaperPosition = static_cast<std::uint16_t>(s.State.PaperPosition + feed);
  if (PassHasInk(pass)) WritePass(s, pass);
  EmptyPass(pass);
}

void TopOfPageFeed(Stripe& s, const BandInfo& band) {
  DeviceState& state = s.State;
  if (!(state.StripeFlag == kStripeFirst || !state.StripeBuffers[0].BufferStart) || state.BandOffset == 0) return;
  // Band height (portrait) times the row pitch in 1/400 in times the band offset, computed in the
  // 32-bit arithmetic of the feed counter and divided with truncation.
  std::uint32_t value = static_cast<std::uint32_t>(state.Landscape ? band.Header.biWidth : band.Header.biHeight);
  if (state.PrintQuality == 300)
    value *= 4;
  else if (state.PrintQuality == 150)
    value *= 8;
  else if (state.PrintQuality >= 600)
    value *= 2;
  value *= state.BandOffset;
  const std::int32_t position = static_cast<std::int32_t>(value) / 3;
  WriteFeed(s, static_cast<std::uint16_t>(position - state.PaperPosition));
  state.PaperPosition = static_cast<std::uint16_t>(position);
}

// The bit depth of an inked stripe: one bit a dot under dither, at level 6 and up and at 150 dpi,
// else two; "I" goes out only when the code changes.
void ChooseBitDepth(Stripe& s, int mode, std::int16_t inkFlag) {
  DeviceState& state = s.State;
  if (inkFlag != 0) {
    const bool oneBit = state.ActiveHalftone == kHalftoneDither || mode >= kLevelHigh || mode < kLevel300;
    const std::uint8_t wanted = oneBit ? (s.Color ? kInkModeColorOneBit : kInkModeMonoOneBit)
                                       : (s.Color ? kInkModeColorTwoBit : kInkModeMonoTwoBit);
    if (wanted != state.InkModeCode) WriteInkModeCode(s.Devobj, wanted, s.Driver);
  }
  s.TwoBit = state.InkModeCode >= kInkModeMonoTwoBit;
}

// Modes 2..6: rows by the weave map; a pass goes out when its phase ends.
void WeaveRows(Stripe& s, const WeaveMode& weave, int mode, int rows) {
  DeviceState& state = s.State;
  const bool firstStripe = mode >= kLevelHigh ? (state.StripeFlag & 1) != 0 : state.StripeFlag == kStripeFirst;
  if (firstStripe) {
    state.PhaseRow = 0;
    state.WeavePhase = 0;
  }
  // A weave position that cannot belong to this mode (the mode changed within a page) restarts it.
  if (state.WeavePhase >= weave.Phases) state.WeavePhase = 0;
  if (state.PhaseRow >= weave.RowsOfPhase[state.WeavePhase]) state.PhaseRow = 0;
  state.CurrentPass = weave.PassOfPhase[state.WeavePhase];

  for (int i = 0; i < rows; ++i) {
    const WeaveCell cell = WeaveMap[mode][state.WeavePhase][state.PhaseRow];
    PassBuffer& pass = state.StripeBuffers[cell.Pass];
    if (cell.HeadRow != pass.RowsFilled) {
      const auto gap = static_cast<std::int16_t>(cell.HeadRow - pass.RowsFilled);
      const int markers = s.Color ? 4 * gap : gap;
      if (markers > 0) AppendBlankMarkers(s, pass, markers);
      pass.RowsFilled = cell.HeadRow;
    }
    PlaceRow(s, pass);
    ++state.PhaseRow;
    if (state.PhaseRow == weave.RowsOfPhase[state.WeavePhase]) {
      FlushPass(s, state.StripeBuffers[weave.PassOfPhase[state.WeavePhase]], weave.Feed[state.WeavePhase]);
      state.PhaseRow = 0;
      state.WeavePhase = static_cast<std::uint8_t>((state.WeavePhase + 1) % weave.Phases);
      state.CurrentPass = weave.PassOfPhase[state.WeavePhase];
    }
  }
}

// Mode 1: two buffers, one per phase; the previous phase's pass goes out after the next one's first row.
void ModeOneRows(Stripe& s, int rows) {
  DeviceState& state = s.State;
  bool pageFirstRow = false;
  if (state.StripeFlag == kStripeFirst) {
    state.WeavePhase = 0;
    state.PhaseRow = 0;
    state.CurrentPass = 0;
    pageFirstRow = true;
  }
  if (state.WeavePhase > 1) state.WeavePhase = 0;
  if (state.PhaseRow >= kWeaveModeTable[1].RowsOfPhase[0]) state.PhaseRow = 0;
  if (state.CurrentPass > 1) state.CurrentPass = 0;

  for (int i = 0; i < rows; ++i) {
    const WeaveCell cell = WeaveMap[1][state.WeavePhase][state.PhaseRow];
    PassBuffer& pass = state.StripeBuffers[cell.Pass];
    if (pass.RowsFilled < cell.HeadRow) {
      AppendBlankMarkers(s, pass, s.Color ? 4 : 1);
      ++pass.RowsFilled;
    }
    PlaceRow(s, pass);
    ++state.PhaseRow;
    if (state.PhaseRow == 1 && !pageFirstRow) {
      FlushPass(s, state.StripeBuffers[state.CurrentPass], kModeOneFeed);
      state.CurrentPass ^= 1;
    }
    if (state.PhaseRow == kWeaveModeTable[1].RowsOfPhase[0]) {
      state.PhaseRow = 0;
      state.WeavePhase ^= 1;
    }
    pageFirstRow = false;
  }
}

void EndPageModeOne(Stripe& s) {
  DeviceState& state = s.State;
  PassBuffer& pass = state.StripeBuffers[state.CurrentPass];
  if (!PassHasInk(pass)) {
    state.PhaseRow = 0;
    state.WeavePhase = 0;
    state.CurrentPass = 0;
    EmptyPass(pass);
    return;
  }
  int padding = 0;
  int feed = kModeOneFeed;
  if (FinalFlush(state)) {
    const ShortPass last = ShortenLastPass(kWeaveModeTable[1], 0, pass.RowsFilled, 0);
    padding = last.Padding;
    feed = last.Feed;
  }
  WriteFeed(s, static_cast<std::uint16_t>(feed));
  state.PaperPosition = static_cast<std::uint16_t>(state.PaperPosition + feed);
  WriteBlankRows(s, padding);
  WritePass(s, pass);
  state.PhaseRow = 0;
  state.CurrentPass = 0;
  state.WeavePhase = 0;
  EmptyPass(pass);
}

void EndPageWoven(Stripe& s, const WeaveMode& weave, int mode) {
  DeviceState& state = s.State;
  int shift = 0;  // Q of the pass flushed before
  for (int flushed = 0; flushed < weave.PassBuffers; ++flushed) {
    const int phase = state.WeavePhase;
    PassBuffer& pass = state.StripeBuffers[weave.PassOfPhase[phase]];
    int feed = weave.Feed[phase];
    int padding = 0;
    if (FinalFlush(state)) {
      const ShortPass last = ShortenLastPass(weave, phase, pass.RowsFilled, shift);
      padding = last.Padding;
      feed = last.Feed;
      shift = last.Shift;
    }
    WriteFeed(s, static_cast<std::uint16_t>(feed));
    state.PaperPosition = static_cast<std::uint16_t>(state.PaperPosition + feed);
    if (PassHasInk(pass)) {
      WriteBlankRows(s, padding);
      WritePass(s, pass);
    }
    EmptyPass(pass);
    state.WeavePhase = static_cast<std::uint8_t>((phase + 1) % weave.Phases);
    state.CurrentPass = weave.PassOfPhase[state.WeavePhase];
  }
  if (mode == 2 || mode == 3 || mode == 5) {
    state.PhaseRow = 0;
    state.WeavePhase = 0;
  }
}

}  // namespace

void EmitStripe(DEVOBJ* devobj, int stripeHeight, const BandInfo& band, std::int16_t inkFlag,
                IPrintOemDriverUni* driver) {
  DeviceState* state = StateOf(devobj);
  if (!state || !driver) return;
  const int mode = LevelOf(state->PrintMode);
  const PlaneLayout layout = PlaneLayoutOf(mode);

  // Plane stride and row width (plane_geometry.h); monochrome pages read plane 3 alone.
  const std::int32_t linePixels = state->Landscape ? band.Header.biHeight : band.Header.biWidth;
  Stripe s{devobj,
           driver,
           *state,
           state->ColorMode == DMCOLOR_COLOR,
           false,
           static_cast<std::uint16_t>(layout.PlaneBytes),
           static_cast<std::uint16_t>(PlaneRowBytes(mode, linePixels)),
           {state->PlaneBuffer[0], state->PlaneBuffer[1]},
           MakeRowContext(*state, inkFlag)};
  if (!s.Color)
    for (const std::uint8_t*& plane : s.Planes)
      if (plane) plane += kBlackPlane * static_cast<std::size_t>(s.Stride);

  // A stripe of 4 source lines at level 6 and up is 8 output rows.
  const int fullStripe = layout.OutputLines;
  const int rows = std::clamp(stripeHeight * layout.Scale, 0, fullStripe);

  TopOfPageFeed(s, band);
  ChooseBitDepth(s, mode, inkFlag);

  const WeaveMode* weave = FindWeaveMode(state->PrintMode);
  if (!weave) return;
  if (rows > 0 && (!s.Planes[0] || (s.TwoBit && !s.Planes[1]))) return;  // no planes to read
  if (mode == kLevel150)
    ModeOneRows(s, rows);
  else
    WeaveRows(s, *weave, mode, rows);

  if (rows == fullStripe && !FinalFlush(*state)) return;
  if (mode == kLevel150)
    EndPageModeOne(s);
  else
    EndPageWoven(s, *weave, mode);
}

}  // namespace inkweave
