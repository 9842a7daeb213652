// One-bit error diffusion: DiffuseLowPortrait and DiffuseLowLandscape.
//
// A stripe of up to 16 lines (kStripeLines) is converted pixel by pixel, split into cyan, magenta, yellow and black
// amounts, and each ink is diffused against a threshold from DiffusionThresholdMap raised by the
// ThresholdJitter sequence. Lines run serpentine (even lines left to right); each ink carries its
// error in its error line, 16-bit cells with pixel x at cell x + 2. A pixel's error goes 2/8 and 1/8
// to the next two pixels of its line and 1/8, 3/8, 1/8 to the cells two behind, one behind and below
// on the next line, with the remainder of its own division by 8 carried straight down. Amounts 0 and
// 255 bypass the threshold and pull the error 16 toward the column's floor (DiffusionSeedErrors).
//
// Deliberate details kept from the design: the last two shares of a line land one cell further on
// (end-of-line cells), the last partial byte of a left-to-right line is not stored, the map row is
// not wrapped within a stripe (rows 128 and on read the fine map stored behind the map), and the bit
// accumulators are cleared only after a stored byte.
//
// The landscape member reads the band turned by a quarter: output line l is source column
// firstLine + l, and position x is source row H - 1 - x.
#include <cstdint>

#include "src/device/plane_geometry.h"
#include "src/halftone/diffusion.h"
#include "src/halftone/halftone.h"

namespace inkweave {
namespace {

using detail::ConversionCache;
using detail::InkAmounts;

struct LowStripe {
  DeviceState* State;
  ConversionCache Cache;
  const std::uint8_t* Source;  // the band's first row
  std::int16_t* Error[4];      // error lines by ink
  std::uint8_t JitterIndex;    // wraps at 256
  std::uint8_t Bits[4];        // bit accumulators by ink
  std::uint32_t Result;
};

// One stripe line in the direction kStep (+1 left to right, -1 right to left) over positions
// first..first + count - 1; the plane line starts at `planes`.
template <int kStep>
void DiffuseLowLine(LowStripe& s, const std::uint8_t* mapRow, detail::SourceLine src, std::uint8_t* planes, int first,
                    int count) {
  int pendingNear[4] = {0, 0, 0, 0};
  int pendingFar[4] = {0, 0, 0, 0};
  const int begin = kStep > 0 ? first : first + count - 1;
  const int end = kStep > 0 ? first + count : first - 1;
  for (int x = begin; x != end; x += kStep) {
    int threshold = mapRow[x & 127];
    const InkAmounts& inks = detail::AmountsOf(s.Cache, s.Source + (src.Origin + src.Step * x), *s.State);
    const std::uint8_t mask = static_cast<std::uint8_t>(0x80u >> (x & 7));
    for (const int ink : detail::kInkOrder) {
      const int amount = inks.Amount[ink];
      const int floor = DiffusionSeedErrors[(4 * x + ink) & 255];
      if (amount != 0 && amount != 255) threshold += ThresholdJitter[s.JitterIndex++];

      std::int16_t* cell = s.Error[ink] + x + 2;  // this pixel's cell
      const int e0 = *cell;
      const int q = e0 / 8;
      const int r = e0 - 8 * q;
      int v = q + amount;
      bool dot;
      if (amount == 0) {
        dot = false;
        if (v <= floor) {
          v += 16;
          if (v > 0) v = 0;
        } else {
          v -= 16;
        }
      } else if (amount == 255) {
        dot = true;
        v -= 255;
        v = v > floor ? v - 16 : v + 16;
      } else if (v < threshold) {
        dot = false;
      } else {
        dot = true;
        v -= 255;
      }

      // Spread: the cell itself now belongs to the pixel two behind on the next line.
      const int e = v;
      if constexpr (kStep > 0) {
        cell[1] = detail::Wrap16(cell[1] + 2 * e);
        cell[2] = detail::Wrap16(cell[2] + e);
        cell[-2] = detail::Wrap16(e + pendingNear[ink]);
      } else {
        cell[-1] = detail::Wrap16(cell[-1] + 2 * e);
        cell[-2] = detail::Wrap16(cell[-2] + e);
        cell[2] = detail::Wrap16(e + pendingNear[ink]);
      }
      pendingNear[ink] = detail::Wrap16(3 * e + pendingFar[ink]);
      pendingFar[ink] = detail::Wrap16(r + e);

      if (dot) {
        s.Bits[ink] |= mask;
        s.Result = 1;
      } else {
        s.Bits[ink] &= static_cast<std::uint8_t>(~mask);
      }
    }

    if ((kStep > 0 && (x & 7) == 7) || (kStep < 0 && (x & 7) == 0)) {
      for (int ink = 0; ink < 4; ++ink) {
        planes[ink * kPlaneBytes + (x >> 3)] = s.Bits[ink];
        s.Bits[ink] = 0;
      }
    }
  }

  // End-of-line cells, one cell further on than the spread pattern would put them.
  for (int ink = 0; ink < 4; ++ink) {
    if constexpr (kStep > 0) {
      s.Error[ink][first + count + 1] = detail::Wrap16(pendingNear[ink]);
      s.Error[ink][first + count + 2] = detail::Wrap16(pendingFar[ink]);
    } else {
      s.Error[ink][first + 2] = detail::Wrap16(pendingNear[ink]);
      s.Error[ink][first + 1] = detail::Wrap16(pendingFar[ink]);
    }
  }
}

std::uint32_t DiffuseLow(DeviceState& state, int firstLine, int height, const BandInfo& band, int lineCount,
                         int firstPixel, int rowPixels, const IPPARAMS* params, bool landscape) {
  if (lineCount < 1) return 0;
  if (!detail::DiffusionBuffersPresent(state, false) || band.Bits == nullptr || firstPixel < 0) return 0;
  if (lineCount > kStripeLines) lineCount = kStripeLines;

  // A line never reaches past its plane or past the cells the device allocated (x + 4 at most).
  std::int64_t last = std::int64_t{firstPixel} + (rowPixels > 0 ? rowPixels : 0);
  std::int64_t limit = detail::ErrorCellsAllocated(state) - 4;
  if (limit > kPlaneDots) limit = kPlaneDots;
  if (std::int64_t{firstPixel} > limit) return 0;
  if (last > limit) last = limit;
  const int first = firstPixel;
  const int count = static_cast<int>(last - first);

  LowStripe s;
  s.State = &state;
  s.Cache = detail::StartConversion(state);
  s.Source = band.Bits;
  for (int ink = 0; ink < 4; ++ink) {
    s.Error[ink] = state.LineBuffers[ink];
    s.Bits[ink] = 0;
  }
  s.JitterIndex = static_cast<std::uint8_t>(lineCount);
  s.Result = 0;

  const int mapRow = detail::StripeMapRow(detail::BandPosition(params, landscape), firstLine);
  for (int l = 0; l < lineCount; ++l) {
    const detail::SourceLine src = detail::SourceLineOf(band, firstLine + l, height, landscape);
    std::uint8_t* planes = state.PlaneBuffer[0] + l * kLineBytes;
    const std::uint8_t* map = DiffusionThresholdMaps[mapRow + l];
    if ((l & 1) == 0) {
      DiffuseLowLine<+1>(s, map, src, planes, first, count);
    } else {
      DiffuseLowLine<-1>(s, map, src, planes, first, count);
    }
  }
  return s.Result;
}

}  // namespace

std::uint32_t DiffuseLowPortrait(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                 int firstPixel, int rowPixels, const IPPARAMS* params) {
  return DiffuseLow(state, firstLine, width, band, lineCount, firstPixel, rowPixels, params, false);
}

std::uint32_t DiffuseLowLandscape(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                  int firstPixel, int rowPixels, const IPPARAMS* params) {
  return DiffuseLow(state, firstLine, width, band, lineCount, firstPixel, rowPixels, params, true);
}

}  // namespace inkweave
