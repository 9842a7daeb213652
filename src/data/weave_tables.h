// The weave tables of every print mode: how the raster rows of a page are spread over the head passes,
// and how many pass buffers each mode uses (the device allocates them, the band driver empties them,
// the emitter fills and flushes them).
//
// A mode runs through its phases in a cycle. Each phase takes a fixed number of rows; row j of a phase
// goes to a pass buffer and a head row in it given by the phase's start table: with K residues,
// r = j mod K and t = j div K, the row goes to buffer B[r] at head row H[r] + t * step. When a phase's
// rows are placed, the phase's pass buffer is complete and is written after a feed of the phase's feed
// rows converted to 1/400 in. WeaveMap holds the resulting (buffer, head row) pair of every row; it is
// computed here at compile time from the start tables.
#pragma once

#include <array>
#include <cstdint>

namespace inkweave {

inline constexpr int kWeaveModes = 7;  // index = mode number 1..6, the resolution level (0 unused)
inline constexpr int kMaxWeavePhases = 8;
inline constexpr int kMaxPhaseRows = 106;           // rows in the longest phase
inline constexpr int kHeadRows = 106;               // head rows 0..105
inline constexpr std::uint16_t kModeOneFeed = 280;  // 1/400 in, every mode-1 pass

struct WeaveCell {
  std::uint8_t Pass;     // pass buffer 0..7
  std::uint8_t HeadRow;  // head row inside that pass
};

// The constant description of one mode's weave.
struct WeaveMode {
  int Phases;                                             // P
  int PassBuffers;                                        // buffers in use, passes flushed at page end
  std::array<std::uint8_t, kMaxWeavePhases> PassOfPhase;  // buffer flushed when the phase ends
  std::array<std::uint8_t, kMaxWeavePhases> RowsOfPhase;  // rows
  std::array<std::uint8_t, kMaxWeavePhases> FeedRows;     // rows
  std::array<std::uint16_t, kMaxWeavePhases> Feed;        // 1/400 in: feed rows x factor, truncated
  int Residues;                                           // K
  int Step;                                               // head rows between turns
  // Shortening of the last passes in the page's final call: q = k ((base - n) / k), at most cap.
  int ShortBase;  // 0: the phase's feed rows
  int ShortStep;  // k
  int ShortCap;   // rows
};

namespace detail {

constexpr WeaveMode MakeMode(int phases, int buffers, std::array<std::uint8_t, kMaxWeavePhases> passOfPhase,
                             std::array<std::uint8_t, kMaxWeavePhases> rows, int feedRows, int factorNum, int factorDen,
                             int residues, int step, int base, int k, int cap) {
  WeaveMode mode{phases, buffers, passOfPhase, rows, {}, {}, residues, step, base, k, cap};
  for (int p = 0; p < phases; ++p) {
    mode.FeedRows[p] = static_cast<std::uint8_t>(feedRows);
    mode.Feed[p] = factorDen ? static_cast<std::uint16_t>(feedRows * factorNum / factorDen) : kModeOneFeed;
  }
  return mode;
}

}  // namespace detail

// Per mode number (index 0 unused). Feed rows of mode 1 are not used: its passes always feed 280.
inline constexpr std::array<WeaveMode, kWeaveModes> kWeaveModeTable = {{
    {},
    detail::MakeMode(2, 2, {0, 1}, {105, 105}, 105, 0, 0, 1, 1, 105, 3, 105),
    detail::MakeMode(4, 2, {1, 0, 1, 0}, {105, 106, 104, 105}, 105, 4, 3, 2, 1, 0, 3, 51),
    detail::MakeMode(8, 4, {1, 2, 3, 0, 1, 2, 3, 0}, {51, 51, 51, 52, 50, 51, 51, 51}, 51, 4, 3, 4, 2, 105, 6, 24),
    detail::MakeMode(4, 4, {1, 2, 3, 0}, {105, 105, 105, 105}, 105, 2, 3, 4, 1, 0, 3, 24),
    detail::MakeMode(8, 8, {1, 2, 3, 4, 5, 6, 7, 0}, {51, 51, 51, 51, 51, 51, 51, 51}, 51, 2, 3, 8, 2, 105, 6, 12),
    detail::MakeMode(8, 8, {1, 2, 3, 4, 5, 6, 7, 0}, {105, 105, 105, 105, 105, 105, 105, 105}, 105, 1, 3, 8, 1, 0, 3,
                     12),
}};

namespace detail {

// The start table entry (B[r], H[r]) of a mode's phase.
constexpr WeaveCell StartCell(int mode, int phase, int r) {
  switch (mode) {
    case 1: return {static_cast<std::uint8_t>(phase), 0};
    case 2: {
      constexpr WeaveCell kStarts[4][2] = {{{0, 0}, {1, 53}}, {{1, 0}, {0, 53}}, {{1, 53}, {0, 1}}, {{1, 0}, {0, 53}}};
      return kStarts[phase][r];
    }
    case 3: {
      constexpr std::uint8_t kHeads[4] = {0, 26, 52, 78};
      constexpr WeaveCell kPhaseFour[4] = {{3, 26}, {2, 52}, {1, 78}, {0, 2}};
      if (phase == 4) return kPhaseFour[r];
      const int q = phase < 4 ? phase : phase - 4;
      return {static_cast<std::uint8_t>(((q - r) % 4 + 4) % 4), kHeads[r]};
    }
    case 4: {
      constexpr std::uint8_t kHeads[4] = {0, 79, 53, 27};
      return {static_cast<std::uint8_t>((phase + r) % 4), kHeads[r]};
    }
    case 5: {
      constexpr std::uint8_t kHeads[8] = {0, 64, 26, 90, 52, 14, 78, 40};
      return {static_cast<std::uint8_t>((phase + 3 * r) % 8), kHeads[r]};
    }
    default: {
      constexpr std::uint8_t kHeads[8] = {0, 92, 79, 66, 53, 40, 27, 14};
      return {static_cast<std::uint8_t>((phase + r) % 8), kHeads[r]};
    }
  }
}

using PhaseMap = std::array<WeaveCell, kMaxPhaseRows>;
using ModeMap = std::array<PhaseMap, kMaxWeavePhases>;

constexpr std::array<ModeMap, kWeaveModes> BuildWeaveMap() {
  std::array<ModeMap, kWeaveModes> map{};
  for (int mode = 1; mode < kWeaveModes; ++mode) {
    const WeaveMode& weave = kWeaveModeTable[mode];
    for (int phase = 0; phase < weave.Phases; ++phase) {
      for (int j = 0; j < weave.RowsOfPhase[phase]; ++j) {
        const WeaveCell start = StartCell(mode, phase, j % weave.Residues);
        const int turn = j / weave.Residues;
        map[mode][phase][j] = {start.Pass, static_cast<std::uint8_t>(start.HeadRow + turn * weave.Step)};
      }
    }
  }
  return map;
}

}  // namespace detail

// WeaveMap[mode][phase][row of the phase] = (pass buffer, head row).
inline constexpr std::array<detail::ModeMap, kWeaveModes> WeaveMap = detail::BuildWeaveMap();

}  // namespace inkweave
