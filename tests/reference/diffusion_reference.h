// Deliberately plain error-diffusion renderers for the tests, written from the rules one pixel and
// one ink at a time: no templates, no pointer walks, no shared helpers with the fast code. They write
// into the device's own buffers (error lines and PlaneBuffer) exactly as the renderers do, so a test
// runs both on copies of one device and compares every byte.
#pragma once

#include <cstdint>
#include <functional>

#include "src/color/color.h"
#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"

namespace inkweave::reference {

// The ink-split table by colour mode, resolution code and media, spelled out row by row.
inline int DiffusionSplitTable(const DeviceState& state) {
  const int code = state.PrintMode & 15;
  const int media = state.MediaType;
  if (state.ColorMode != 2) return 8;
  if (code == 4 || code == 5) {
    if (media == 1) return 2;
    if (media == 2) return 4;
    if (media == 3) return 6;
    if (media == 4 || media == 5) return 9;
    return 1;
  }
  if (code == 6) {
    if (media == 2) return 5;
    if (media == 3) return 7;
    if (media == 4 || media == 5) return 10;
    return 3;
  }
  if (media == 4 || media == 5) return 8;
  return 0;
}

// Threshold of map row `row` (not wrapped), column x: rows 128 and on read the fine map behind it.
inline int DiffusionMapThreshold(int row, long x) {
  const int column = static_cast<int>(x % 128);
  if (row < 128) return DiffusionThresholdMaps[row][column];
  return DiffusionThresholdMaps[128 + (row - 128)][column];
}

// The three source bytes of pixel x on stripe line `line` of the band.
inline const std::uint8_t* DiffusionSourcePixel(const BandInfo& band, int line, long x, int height, bool landscape) {
  if (landscape) return band.Bits + (static_cast<long>(height) - 1 - x) * band.Stride + 3L * line;
  return band.Bits + static_cast<long>(line) * band.Stride + 3 * x;
}

struct DiffusionInks {
  int Amount[4];  // cyan, magenta, yellow, black
};

// Converts with ConvertPixel and splits through table t, yellow capped.
inline DiffusionInks DiffusionSplit(const std::uint8_t out[4], int table, int yellowCap) {
  const int g = 255 - out[3];
  DiffusionInks inks;
  inks.Amount[0] = (255 - out[0]) - InkSplitTable[table][g][0];
  inks.Amount[1] = (255 - out[1]) - InkSplitTable[table][g][1];
  int yellow = (255 - out[2]) - InkSplitTable[table][g][2];
  if (yellow > yellowCap) yellow = yellowCap;
  inks.Amount[2] = yellow;
  inks.Amount[3] = g - InkSplitTable[table][g][3];
  return inks;
}

// Called for every pixel and ink of the one-bit reference: position, ink, the cell read, the error
// left, and whether a dot was set.
using LowTrace = std::function<void(long x, int ink, int incoming, int error, bool dot)>;

// DiffuseLowPortrait / DiffuseLowLandscape from the rules. `position` is the band's vertical (portrait)
// or horizontal (landscape) offset on the page.
inline std::uint32_t DiffuseLowReference(DeviceState& state, int firstLine, int height, const BandInfo& band,
                                         int lineCount, int first, int count, long position, bool landscape,
                                         const LowTrace& trace = nullptr) {
  if (lineCount < 1) return 0;
  const int table = DiffusionSplitTable(state);
  std::uint8_t black[4] = {0, 0, 0, 0};
  std::uint8_t converted[4];
  ConvertPixel(black, converted, state);
  const int yellowCap = 255 - converted[2];
  const int startRow = static_cast<int>(((position + firstLine) % 128 + 128) % 128);

  std::uint8_t key[3] = {255, 255, 255};
  std::uint8_t out[4] = {255, 255, 255, 255};
  std::uint8_t jitterIndex = static_cast<std::uint8_t>(lineCount);
  std::uint8_t bits[4] = {0, 0, 0, 0};
  std::uint32_t result = 0;
  const int order[4] = {3, 0, 1, 2};

  for (int l = 0; l < lineCount; ++l) {
    const bool leftToRight = l % 2 == 0;
    std::int16_t pendingNear[4] = {0, 0, 0, 0};
    std::int16_t pendingFar[4] = {0, 0, 0, 0};
    std::uint8_t* planeLine = state.PlaneBuffer[0] + long{kLineBytes} * l;
    for (long i = 0; i < count; ++i) {
      const long x = leftToRight ? first + i : first + count - 1 - i;
      int threshold = DiffusionMapThreshold(startRow + l, x);

      const std::uint8_t* p = DiffusionSourcePixel(band, firstLine + l, x, height, landscape);
      if (p[0] != key[0] || p[1] != key[1] || p[2] != key[2]) {
        const std::uint8_t pixel[4] = {p[0], p[1], p[2], 0};
        ConvertPixel(pixel, out, state);
        key[0] = p[0];
        key[1] = p[1];
        key[2] = p[2];
      }
      const DiffusionInks inks = DiffusionSplit(out, table, yellowCap);

      for (const int ink : order) {
        std::int16_t* line = state.LineBuffers[ink];
        const int amount = inks.Amount[ink];
        const int floor = DiffusionSeedErrors[(4 * x + ink) % 256];
        if (amount != 0 && amount != 255) {
          threshold += ThresholdJitter[jitterIndex];
          jitterIndex = static_cast<std::uint8_t>(jitterIndex + 1);
        }
        const int incoming = line[x + 2];
        const int q = incoming / 8;
        const int r = incoming - 8 * q;
        int v = q + amount;
        bool dot = false;
        if (amount == 0) {
          if (v <= floor) {
            v = v + 16;
            if (v > 0) v = 0;
          } else {
            v = v - 16;
          }
        } else if (amount == 255) {
          dot = true;
          v = v - 255;
          if (v > floor) {
            v = v - 16;
          } else {
            v = v + 16;
          }
        } else if (v >= threshold) {
          dot = true;
          v = v - 255;
        }
        const int e = v;
        if (trace) trace(x, ink, incoming, e, dot);

        if (leftToRight) {
          line[x + 3] = static_cast<std::int16_t>(line[x + 3] + 2 * e);
          line[x + 4] = static_cast<std::int16_t>(line[x + 4] + e);
          line[x] = static_cast<std::int16_t>(e + pendingNear[ink]);
        } else {
          line[x + 1] = static_cast<std::int16_t>(line[x + 1] + 2 * e);
          line[x] = static_cast<std::int16_t>(line[x] + e);
          line[x + 4] = static_cast<std::int16_t>(e + pendingNear[ink]);
        }
        pendingNear[ink] = static_cast<std::int16_t>(3 * e + pendingFar[ink]);
        pendingFar[ink] = static_cast<std::int16_t>(r + e);

        const int bit = 7 - static_cast<int>(x % 8);
        if (dot) {
          bits[ink] = static_cast<std::uint8_t>(bits[ink] | (1 << bit));
          result = 1;
        } else {
          bits[ink] = static_cast<std::uint8_t>(bits[ink] & ~(1 << bit));
        }
      }

      const bool byteDone = leftToRight ? x % 8 == 7 : x % 8 == 0;
      if (byteDone) {
        for (int ink = 0; ink < 4; ++ink) {
          planeLine[long{kPlaneBytes} * ink + x / 8] = bits[ink];
          bits[ink] = 0;
        }
      }
    }
    for (int ink = 0; ink < 4; ++ink) {
      std::int16_t* line = state.LineBuffers[ink];
      if (leftToRight) {
        line[first + count + 1] = pendingNear[ink];
        line[first + count + 2] = pendingFar[ink];
      } else {
        line[first + 2] = pendingNear[ink];
        line[first + 1] = pendingFar[ink];
      }
    }
  }
  return result;
}

// The three quantisers of the multi-level pairs.
enum class MultiKind { Mid, High, Top };

// DiffuseMid*, DiffuseHigh* and DiffuseTop* from the rules, with this project's choices for what the
// rules leave open: the previous row of output line L sits in interleave slot (ScanParity + L) & 1
// (cell 2 (X + 2) + slot), the two guard positions at each end of the row being written are zeroed
// before the line, every byte a line touches is stored, and the top pair renders each source line and
// pixel twice with map row 2 (position + firstLine) mod 128 and the parity advanced by output lines.
inline std::uint32_t DiffuseMultiReference(MultiKind kind, DeviceState& state, int firstLine, int height,
                                           const BandInfo& band, int lineCount, int first, int count, long position,
                                           bool landscape) {
  const int scale = kind == MultiKind::Top ? 2 : 1;
  const long planeBytes = kind == MultiKind::Top ? kPlaneBytesHigh : kPlaneBytes;
  const int outputLines = lineCount > 0 ? lineCount * scale : 0;
  const int parity = state.ScanParity & 1;
  state.ScanParity = static_cast<std::int16_t>((parity + outputLines) % 2);
  if (outputLines == 0) return 0;

  const int table = DiffusionSplitTable(state);
  std::uint8_t black[4] = {0, 0, 0, 0};
  std::uint8_t converted[4];
  ConvertPixel(black, converted, state);
  const int yellowCap = 255 - converted[2];
  const long rowStart = kind == MultiKind::Top ? (2 * (position + firstLine)) % 128 : (position + firstLine) % 128;
  const long dotFirst = static_cast<long>(first) * scale;
  const long dots = static_cast<long>(count) * scale;

  std::uint8_t key[3] = {255, 255, 255};
  std::uint8_t out[4] = {255, 255, 255, 255};
  unsigned jitter = state.DiffusionCursor % 1024;
  std::uint32_t result = 0;
  const int order[4] = {3, 0, 1, 2};

  for (int L = 0; L < outputLines; ++L) {
    const int previous = (parity + L) % 2;
    const int current = 1 - previous;
    const bool leftToRight = L % 2 == 0;
    auto cellOf = [](long X, int slot) { return 2 * (X + 2) + slot; };
    for (int ink = 0; ink < 4; ++ink) {
      state.LineBuffers[ink][cellOf(dotFirst - 2, current)] = 0;
      state.LineBuffers[ink][cellOf(dotFirst - 1, current)] = 0;
      state.LineBuffers[ink][cellOf(dotFirst + dots, current)] = 0;
      state.LineBuffers[ink][cellOf(dotFirst + dots + 1, current)] = 0;
    }
    for (long i = 0; i < dots; ++i) {
      const long X = leftToRight ? dotFirst + i : dotFirst + dots - 1 - i;
      const long before1 = leftToRight ? X - 1 : X + 1;
      const long before2 = leftToRight ? X - 2 : X + 2;
      const std::uint8_t* p = DiffusionSourcePixel(band, firstLine + L / scale, X / scale, height, landscape);
      if (p[0] != key[0] || p[1] != key[1] || p[2] != key[2]) {
        const std::uint8_t pixel[4] = {p[0], p[1], p[2], 0};
        ConvertPixel(pixel, out, state);
        key[0] = p[0];
        key[1] = p[1];
        key[2] = p[2];
      }
      const DiffusionInks inks = DiffusionSplit(out, table, yellowCap);
      for (const int ink : order) {
        const std::int16_t* cells = state.LineBuffers[ink];
        const int a = inks.Amount[ink];
        int t = DiffusionThresholdMaps[128 + rowStart + L][X % 128];
        const bool evenColumn = L % 2 == 0 && X % 4 == 0 && a >= 31 && a <= 165;
        const bool oddColumn = L % 2 == 1 && X % 4 == 2 && a >= 121 && a <= 199;
        if (evenColumn || oddColumn) {
          t = (ThresholdJitterWide[jitter] >> 4) + 200;
          jitter = (jitter + 1) % 1024;
        }
        const std::int16_t E = static_cast<std::int16_t>(
            4 * cells[cellOf(X, previous)] + 2 * cells[cellOf(X - 1, previous)] + 2 * cells[cellOf(X + 1, previous)] +
            cells[cellOf(X - 2, previous)] + cells[cellOf(X + 2, previous)] + 4 * cells[cellOf(before1, current)] +
            2 * cells[cellOf(before2, current)]);
        const int f = DiffusionSeedErrors[(4 * X + ink) % 256];
        int v = a + E / 16;
        bool firstBit = false;
        bool secondBit = false;
        if (kind == MultiKind::Top) {
          if (a == 0) {
            v = v > f ? v - 16 : (v + 16 < 0 ? v + 16 : 0);
          } else if (v >= t + 5) {
            firstBit = true;
            v -= 350;
          }
        } else if (a == 0) {
          v = v <= f ? (v + 32 < 0 ? v + 32 : 0) : v - 32;
        } else if (a == 255) {
          firstBit = true;
          secondBit = kind == MultiKind::Mid;
          v -= 255;
          v = v <= f ? v + 32 : v - 32;
        } else if (kind == MultiKind::Mid) {
          if (v >= t + 255) {
            firstBit = secondBit = true;
            v -= 255;
          } else if (v >= t + 208) {
            firstBit = true;
            v -= 248;
          } else if (v >= t + 5) {
            secondBit = true;
            v -= 100;
          }
        } else {
          if (v >= t + 200) {
            firstBit = true;
            v -= 255;
          } else if (v >= t + 5) {
            secondBit = true;
            v -= 212;
          }
        }
        state.LineBuffers[ink][cellOf(X, current)] = static_cast<std::int16_t>(v);

        const long byte = planeBytes * 4 * L + planeBytes * ink + X / 8;
        const std::uint8_t bit = static_cast<std::uint8_t>(0x80 >> (X % 8));
        // A line's bytes are written whole: the first touch of a byte clears it.
        const bool firstTouch = leftToRight ? (X % 8 == 0 || X == dotFirst) : (X % 8 == 7 || X == dotFirst + dots - 1);
        if (firstTouch) {
          state.PlaneBuffer[0][byte] = 0;
          if (kind != MultiKind::Top) state.PlaneBuffer[1][byte] = 0;
        }
        if (firstBit) state.PlaneBuffer[0][byte] |= bit;
        if (secondBit) state.PlaneBuffer[1][byte] |= bit;
        if (firstBit || secondBit) result = 1;
      }
    }
  }
  return result;
}

}  // namespace inkweave::reference
