// The four ordered-dither renderers: bit for bit against the plain renderers of
// tests/reference/dither_reference.h on random, smooth and run-length images in both orientations
// (odd widths, width 1, first and last rows, widths past one line's planes, dirty plane buffers),
// and the behaviour the rules single out: white that is never converted, black extraction, the
// conversion memory, the gray renderers' surplus dots and unreduced rows, reads kept inside the band.
//
// Every band is allocated at exactly its size (height x stride), so that a sanitizer build catches
// any read outside it. Colour conversion uses a test-made table and curves, never the product tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "src/color/color.h"
#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"
#include "tests/reference/dither_reference.h"
#include "tests/support/instruction_sets.h"

namespace inkweave {
namespace {

// The line stride and the byte offsets of the planes below level 6.
constexpr std::size_t kLine = kLineBytes;
constexpr std::size_t kPlane = kPlaneBytes;
constexpr std::size_t kMagenta = kMagentaPlane * kPlane, kYellow = kYellowPlane * kPlane, kBlack = kBlackPlane * kPlane;

bool Dot(const std::vector<std::uint8_t>& planes, std::size_t line, std::size_t plane, int x) {
  return (planes[kLine * line + plane + static_cast<std::size_t>(x) / 8] & (0x80 >> (x % 8))) != 0;
}

// Colour table whose grid point (i, j, k) prints lightness 16i, 16j, 16k (255 at 16) in cyan,
// magenta, yellow: a pixel on the grid converts to inks equal to its own red, green, blue.
std::vector<std::uint8_t> RampTable() {
  std::vector<std::uint8_t> lut(kColorTableBytes);
  for (int i = 0; i < 17; ++i) {
    for (int j = 0; j < 17; ++j) {
      for (int k = 0; k < 17; ++k) {
        std::uint8_t* cell = &lut[static_cast<std::size_t>(((i * 17 + j) * 17 + k) * 4)];
        cell[0] = static_cast<std::uint8_t>(255 - std::min(255, 16 * i));
        cell[1] = static_cast<std::uint8_t>(255 - std::min(255, 16 * j));
        cell[2] = static_cast<std::uint8_t>(255 - std::min(255, 16 * k));
        cell[3] = 0;
      }
    }
  }
  return lut;
}

// A device state with its own planes, curves (identity unless changed) and colour table.
struct Rig {
  std::vector<std::uint8_t> planes = std::vector<std::uint8_t>(kPlaneBufferBytes, 0);
  std::vector<std::uint8_t> curves = std::vector<std::uint8_t>(kToneCurveBytes);
  std::vector<std::uint8_t> lut = RampTable();
  DeviceState state{};

  explicit Rig(std::uint16_t colorMode = 2) {
    for (std::size_t i = 0; i < curves.size(); ++i) curves[i] = static_cast<std::uint8_t>(i % 256);
    state.ColorMode = colorMode;
    state.ColorLut = lut.data();
    state.ToneCurves = curves.data();
    state.PlaneBuffer[0] = planes.data();
  }
};

// A host band of exactly height x stride bytes.
struct Band {
  std::vector<std::uint8_t> bytes;
  BandInfo info{};

  Band(int width, int height, int bitCount) {
    info.Header.biSize = 40;
    info.Header.biWidth = width;
    info.Header.biHeight = height;
    info.Header.biPlanes = 1;
    info.Header.biBitCount = static_cast<std::uint16_t>(bitCount);
    info.Stride = BandStride(width);
    bytes.assign(static_cast<std::size_t>(height) * static_cast<std::size_t>(info.Stride), 0);
    info.Bits = bytes.data();
  }
  std::uint8_t* Row(int r) { return bytes.data() + static_cast<std::ptrdiff_t>(r) * info.Stride; }
  void SetPixel(int x, int y, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    std::uint8_t* p = Row(y) + 3 * x;
    p[0] = r;
    p[1] = g;
    p[2] = b;
  }
};

IPPARAMS Offsets(int x, int y) {
  IPPARAMS params{};
  params.dwSize = sizeof(IPPARAMS);
  params.ptOffset.x = x;
  params.ptOffset.y = y;
  return params;
}

using Renderer = std::uint32_t (*)(DeviceState&, int, int, const BandInfo&, int, int, int, const IPPARAMS*);

std::uint32_t Render(Renderer renderer, Rig& rig, const Band& band, int firstLine, int width, int lineCount,
                     const IPPARAMS& params) {
  return renderer(rig.state, firstLine, width, band.info, lineCount, 0, width, &params);
}

// ---------------------------------------------------------------------------------------------------
// Against the reference.

enum class Fill { Random, Smooth, Runs };

void FillBand(Band& band, Fill fill, std::mt19937& rng) {
  const int width = band.info.Header.biWidth;
  const int height = band.info.Header.biHeight;
  switch (fill) {
    case Fill::Random:  // every byte, padding included
      for (auto& byte : band.bytes) byte = static_cast<std::uint8_t>(rng());
      break;
    case Fill::Smooth:
      for (int y = 0; y < height; ++y) {
        for (std::ptrdiff_t i = 0; i < band.info.Stride; ++i) {
          band.Row(y)[i] = static_cast<std::uint8_t>(
              127.5 + 127.5 * std::sin(0.021 * static_cast<double>(i) + 0.37 * y + 1.3 * (i % 3)));
        }
      }
      break;
    case Fill::Runs: {  // runs of a few colours, white and black among them, some a byte apart
      const std::uint8_t palette[6][3] = {{255, 255, 255}, {0, 0, 0},     {200, 40, 90},
                                          {200, 40, 91},   {201, 40, 90}, {128, 128, 128}};
      for (int y = 0; y < height; ++y) {
        int left = 0;
        int colour = 0;
        for (int x = 0; x < width; ++x) {
          if (left-- == 0) {
            colour = static_cast<int>(rng() % 6);
            left = static_cast<int>(rng() % 12);
          }
          band.SetPixel(x, y, palette[colour][0], palette[colour][1], palette[colour][2]);
        }
      }
      break;
    }
  }
}

const char* FillName(Fill fill) { return fill == Fill::Random ? "random" : fill == Fill::Smooth ? "smooth" : "runs"; }

// Band geometry of one comparison: the band's size and the stripe taken from it.
struct Case {
  int bandWidth;
  int bandHeight;
  int firstLine;
  int lineCount;
};

// Portrait: lines are rows, width is the band width. Includes width 1, the last row, odd widths and
// widths past one line's 5120 dots.
const std::vector<Case> kPortraitCases = {{1, 1, 0, 1},   {1, 3, 2, 1},    {7, 16, 0, 16},
                                          {8, 20, 16, 4}, {9, 5, 3, 2},    {130, 17, 1, 16},
                                          {641, 3, 0, 3}, {2480, 2, 0, 2}, {5200, 2, 0, 2}};
// Landscape: lines are columns, width is the band height.
const std::vector<Case> kLandscapeCases = {{1, 1, 0, 1}, {3, 1, 2, 1},     {16, 7, 0, 16}, {20, 8, 16, 4},
                                           {5, 9, 3, 2}, {17, 130, 1, 16}, {3, 641, 0, 3}, {2, 2480, 0, 2}};

void CompareWithReference(bool colour, bool landscape, Rig& rig, const Band& band, const Case& c,
                          const IPPARAMS& params, bool dirtyPlanes, std::mt19937& rng) {
  const Renderer renderer = colour ? (landscape ? DitherColorLandscape : DitherColorPortrait)
                                   : (landscape ? DitherGrayLandscape : DitherGrayPortrait);
  const int width = landscape ? c.bandHeight : c.bandWidth;
  if (dirtyPlanes) {
    for (auto& byte : rig.planes) byte = static_cast<std::uint8_t>(rng() & rng());
  } else {
    std::fill(rig.planes.begin(), rig.planes.end(), 0);
  }
  std::vector<std::uint8_t> expected = rig.planes;
  const std::uint32_t expectedResult =
      colour
          ? reference::DitherColor(rig.state, c.firstLine, width, band.info, c.lineCount, params, landscape, expected)
          : reference::DitherGray(rig.state, c.firstLine, width, band.info, c.lineCount, params, landscape, expected);
  const std::uint32_t result = Render(renderer, rig, band, c.firstLine, width, c.lineCount, params);

  EXPECT_EQ(result, expectedResult);
  const auto mismatch = std::mismatch(rig.planes.begin(), rig.planes.end(), expected.begin());
  if (mismatch.first != rig.planes.end()) {
    const auto at = static_cast<std::size_t>(mismatch.first - rig.planes.begin());
    ADD_FAILURE() << "first differing byte " << at << ": line " << at / kLine << ", plane " << at % kLine / kPlane
                  << ", byte " << at % kPlane << ": got 0x" << std::hex << int{*mismatch.first} << ", expected 0x"
                  << int{*mismatch.second};
  }
}

TEST(DitherColor, MatchesTheReferenceOnEveryInstructionSet) {
  testing::ForEachInstructionSet([](InstructionSet) {
    std::mt19937 rng(0xC0105);
    for (const std::uint16_t mode : {1, 2}) {
      Rig rig(mode);
      // Random colour table and curves: the renderer only passes pixels through ConvertPixel.
      for (auto& byte : rig.lut) byte = static_cast<std::uint8_t>(rng());
      for (auto& byte : rig.curves) byte = static_cast<std::uint8_t>(rng());
      for (const bool landscape : {false, true}) {
        const auto& cases = landscape ? kLandscapeCases : kPortraitCases;
        for (const Case& c : cases) {
          for (const Fill fill : {Fill::Random, Fill::Smooth, Fill::Runs}) {
            Band band(c.bandWidth, c.bandHeight, 24);
            FillBand(band, fill, rng);
            for (const bool dirty : {false, true}) {
              for (const IPPARAMS& params : {Offsets(0, 0), Offsets(300, 1001)}) {
                std::ostringstream what;
                what << (landscape ? "landscape" : "portrait") << " mode " << mode << " band " << c.bandWidth << "x"
                     << c.bandHeight << " lines " << c.firstLine << "+" << c.lineCount << " " << FillName(fill)
                     << (dirty ? " dirty planes" : "") << " offset " << params.ptOffset.x << "," << params.ptOffset.y;
                SCOPED_TRACE(what.str());
                CompareWithReference(true, landscape, rig, band, c, params, dirty, rng);
              }
            }
          }
        }
      }
    }
  });
}

TEST(DitherGray, MatchesTheReference) {
  std::mt19937 rng(0x6A4);
  Rig rig;
  for (int i = 0; i < 256; ++i) rig.curves[6 * 256 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(rng());
  for (const bool landscape : {false, true}) {
    const auto& cases = landscape ? kLandscapeCases : kPortraitCases;
    for (const Case& c : cases) {
      for (const Fill fill : {Fill::Random, Fill::Smooth}) {
        Band band(c.bandWidth, c.bandHeight, 8);
        FillBand(band, fill, rng);
        for (const bool dirty : {false, true}) {
          for (const IPPARAMS& params : {Offsets(0, 0), Offsets(300, 1001), Offsets(120, 125)}) {
            std::ostringstream what;
            what << (landscape ? "landscape" : "portrait") << " band " << c.bandWidth << "x" << c.bandHeight
                 << " lines " << c.firstLine << "+" << c.lineCount << " " << FillName(fill)
                 << (dirty ? " dirty planes" : "") << " offset " << params.ptOffset.x << "," << params.ptOffset.y;
            SCOPED_TRACE(what.str());
            CompareWithReference(false, landscape, rig, band, c, params, dirty, rng);
          }
        }
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------------
// Colour renderers.

TEST(DitherColor, WhiteIsNeverConvertedAndSetsNothing) {
  // No colour table at all: a single conversion would fault.
  for (const Renderer renderer : {DitherColorPortrait, DitherColorLandscape}) {
    Rig rig(2);
    rig.state.ColorLut = nullptr;
    Band band(100, 16, 24);
    std::fill(band.bytes.begin(), band.bytes.end(), 0xFF);
    EXPECT_EQ(Render(renderer, rig, band, 0, renderer == DitherColorPortrait ? 100 : 16, 16, Offsets(0, 0)), 0u);
    EXPECT_TRUE(std::all_of(rig.planes.begin(), rig.planes.end(), [](std::uint8_t b) { return b == 0; }));
  }
}

TEST(DitherColor, BlackPrintsInTheBlackPlaneOnly) {
  for (const bool landscape : {false, true}) {
    Rig rig;
    Band band(21, 21, 24);  // all pixels (0, 0, 0)
    EXPECT_EQ(Render(landscape ? DitherColorLandscape : DitherColorPortrait, rig, band, 0, 21, 16, Offsets(5, 9)), 1u);
    for (std::size_t line = 0; line < 16; ++line) {
      for (int x = 0; x < 24; ++x) {
        EXPECT_FALSE(Dot(rig.planes, line, 0, x) || Dot(rig.planes, line, kMagenta, x) ||
                     Dot(rig.planes, line, kYellow, x));
        EXPECT_EQ(Dot(rig.planes, line, kBlack, x), x < 21) << "line " << line << " x " << x;
      }
    }
  }
}

TEST(DitherColor, DotsSharedByAllThreeInksBecomeBlack) {
  // On the ramp table (64, 128, 192) converts to inks 64, 128, 192.
  Rig rig;
  Band band(128, 1, 24);
  for (int x = 0; x < 128; ++x) band.SetPixel(x, 0, 64, 128, 192);
  Render(DitherColorPortrait, rig, band, 0, 128, 1, Offsets(0, 7));
  for (int x = 0; x < 128; ++x) {
    const int t = DitherMatrix[7][x];
    SCOPED_TRACE("threshold " + std::to_string(t));
    EXPECT_EQ(Dot(rig.planes, 0, kBlack, x), t > 192);
    EXPECT_EQ(Dot(rig.planes, 0, 0, x), t > 64 && t <= 192);
    EXPECT_EQ(Dot(rig.planes, 0, kMagenta, x), t > 128 && t <= 192);
    EXPECT_FALSE(Dot(rig.planes, 0, kYellow, x));
  }
}

TEST(DitherColor, Width2400LeavesTheNextLineItsOwnDots) {
  // The black pass of line 0 runs over 2400 bytes, into line 1's planes; line 1 must still come out
  // exactly as its own pixels say, and nothing past the stripe may change.
  Rig rig;
  Band band(2400, 2, 24);
  std::mt19937 rng(2400);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 2400; ++x) {
      band.SetPixel(x, y, static_cast<std::uint8_t>(rng() % 16 * 16), static_cast<std::uint8_t>(rng() % 16 * 16),
                    static_cast<std::uint8_t>(rng() % 16 * 16));
    }
  }
  Render(DitherColorPortrait, rig, band, 0, 2400, 2, Offsets(0, 0));
  for (std::size_t line = 0; line < 2; ++line) {
    for (int x = 0; x < 2400; ++x) {
      const std::uint8_t* p = band.Row(static_cast<int>(line)) + 3 * x;
      const int t = DitherMatrix[line][x % 128];
      bool ink[3];
      for (int n = 0; n < 3; ++n) ink[n] = p[n] < t;  // grid pixels: inks = pixel
      const bool black = ink[0] && ink[1] && ink[2];
      ASSERT_EQ(Dot(rig.planes, line, kBlack, x), black) << "line " << line << " x " << x;
      ASSERT_EQ(Dot(rig.planes, line, 0, x), ink[0] && !black) << "line " << line << " x " << x;
      ASSERT_EQ(Dot(rig.planes, line, kMagenta, x), ink[1] && !black) << "line " << line << " x " << x;
      ASSERT_EQ(Dot(rig.planes, line, kYellow, x), ink[2] && !black) << "line " << line << " x " << x;
    }
    for (std::size_t plane = 0; plane < kLine; plane += kPlane) {  // the 40 bytes past 2400 dots
      for (std::size_t i = 300; i < kPlane; ++i) ASSERT_EQ(rig.planes[kLine * line + plane + i], 0);
    }
  }
  EXPECT_TRUE(std::all_of(rig.planes.begin() + 2 * kLine, rig.planes.end(), [](std::uint8_t b) { return b == 0; }));
}

TEST(DitherColor, ConversionMemoryStartsWhiteAndLastsTheWholeCall) {
  // A table that puts ink on white, so a converted white pixel shows: inks 55 print nearly everywhere.
  Rig rig;
  std::uint8_t* white = &rig.lut[kColorTableBytes - 4];
  white[0] = white[1] = white[2] = 200;
  Band band(64, 2, 24);
  std::fill(band.bytes.begin(), band.bytes.end(), 0xFF);
  band.SetPixel(32, 0, 0, 0, 0);  // the first pixel that is not white
  for (int call = 0; call < 2; ++call) {
    std::fill(rig.planes.begin(), rig.planes.end(), 0);
    Render(DitherColorPortrait, rig, band, 0, 64, 2, Offsets(0, 0));
    for (int x = 0; x < 64; ++x) {
      const bool converted = x > 32;
      EXPECT_EQ(Dot(rig.planes, 0, kBlack, x), x == 32 || (converted && DitherMatrix[0][x] > 55)) << "x " << x;
      // Line 1 starts with the memory of line 0's last pixel: a converted white.
      EXPECT_EQ(Dot(rig.planes, 1, kBlack, x), DitherMatrix[1][x] > 55) << "line 1 x " << x;
    }
  }
}

TEST(DitherColor, APixelDifferingInOneByteIsConverted) {
  // Black, then a pixel that differs in red only (no cyan), green only (no magenta), blue only (no
  // yellow); each follows a black pixel.
  Rig rig;
  Band band(6, 1, 24);
  band.SetPixel(1, 0, 255, 0, 0);
  band.SetPixel(3, 0, 0, 255, 0);
  band.SetPixel(5, 0, 0, 0, 255);
  Render(DitherColorPortrait, rig, band, 0, 6, 1, Offsets(0, 0));
  for (int x = 0; x < 6; x += 2) EXPECT_TRUE(Dot(rig.planes, 0, kBlack, x)) << "x " << x;
  EXPECT_FALSE(Dot(rig.planes, 0, 0, 1) || Dot(rig.planes, 0, kBlack, 1));
  EXPECT_TRUE(Dot(rig.planes, 0, kMagenta, 1) && Dot(rig.planes, 0, kYellow, 1));
  EXPECT_FALSE(Dot(rig.planes, 0, kMagenta, 3) || Dot(rig.planes, 0, kBlack, 3));
  EXPECT_TRUE(Dot(rig.planes, 0, 0, 3) && Dot(rig.planes, 0, kYellow, 3));
  EXPECT_FALSE(Dot(rig.planes, 0, kYellow, 5) || Dot(rig.planes, 0, kBlack, 5));
  EXPECT_TRUE(Dot(rig.planes, 0, 0, 5) && Dot(rig.planes, 0, kMagenta, 5));
}

TEST(DitherColor, LandscapePutsSourceRowZeroAtTheRightEnd) {
  Rig rig;
  Band band(2, 5, 24);  // column 1: black in row 0 only; all else white
  std::fill(band.bytes.begin(), band.bytes.end(), 0xFF);
  band.SetPixel(1, 0, 0, 0, 0);
  EXPECT_EQ(Render(DitherColorLandscape, rig, band, 0, 5, 2, Offsets(0, 0)), 1u);
  for (int x = 0; x < 5; ++x) {
    EXPECT_FALSE(Dot(rig.planes, 0, kBlack, x));
    EXPECT_EQ(Dot(rig.planes, 1, kBlack, x), x == 4);
  }
}

// ---------------------------------------------------------------------------------------------------
// Gray renderers.

TEST(DitherGray, LastByteKeepsTheDotsOfTheBytesPastTheWidth) {
  // Width 10: two bytes of dots; dots 10..15 come from the row's padding (black here), not masked.
  Rig rig;
  Band band(10, 2, 8);
  std::fill(band.bytes.begin(), band.bytes.end(), 0);
  std::fill(band.Row(0), band.Row(0) + 10, 0xFF);  // the row's own pixels white
  EXPECT_EQ(Render(DitherGrayPortrait, rig, band, 0, 10, 1, Offsets(0, 0)), 1u);
  EXPECT_EQ(rig.planes[kBlack], 0x00);
  EXPECT_EQ(rig.planes[kBlack + 1], 0x3F);
}

TEST(DitherGray, SurplusDotsOutsideTheBandAreWhite) {
  Rig rig;
  {
    // Width 1, stride 4: row 0's surplus dots read row 1; the last row's would lie past the band.
    Band band(1, 2, 8);  // all black
    EXPECT_EQ(Render(DitherGrayPortrait, rig, band, 0, 1, 2, Offsets(0, 0)), 1u);
    EXPECT_EQ(rig.planes[kBlack], 0xFF);
    EXPECT_EQ(rig.planes[kLine + kBlack], 0xF0);
  }
  {
    // Landscape, width 3: dots 3..7 would be rows -1..-5, before the band.
    Band band(2, 3, 8);
    EXPECT_EQ(Render(DitherGrayLandscape, rig, band, 0, 3, 2, Offsets(0, 0)), 1u);
    EXPECT_EQ(rig.planes[kBlack], 0xE0);
    EXPECT_EQ(rig.planes[kLine + kBlack], 0xE0);
  }
}

TEST(DitherGray, StoresWholeBytesOfTheBlackPlaneOnly) {
  Rig rig;
  std::fill(rig.planes.begin(), rig.planes.end(), 0xA5);
  Band band(16, 1, 8);
  std::fill(band.bytes.begin(), band.bytes.end(), 0xFF);  // white: curve 6 gives 255, no dot
  EXPECT_EQ(Render(DitherGrayPortrait, rig, band, 0, 16, 1, Offsets(0, 0)), 0u);
  for (std::size_t i = 0; i < kLine; ++i) {
    const bool stored = i == kBlack || i == kBlack + 1;
    ASSERT_EQ(rig.planes[i], stored ? 0x00 : 0xA5) << "byte " << i;
  }
}

TEST(DitherGray, RowsRunOnPastTheMatrixWithinAStripe) {
  // The stripe starts at dither row 120: lines 8..15 use the stored rows 128..135.
  Rig rig;
  for (int i = 0; i < 256; ++i) rig.curves[6 * 256 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(i);
  Band band(128, 16, 8);
  std::mt19937 rng(120);
  for (auto& byte : band.bytes) byte = static_cast<std::uint8_t>(rng());
  Render(DitherGrayPortrait, rig, band, 0, 128, 16, Offsets(0, 120));
  for (std::size_t line = 0; line < 16; ++line) {
    for (int x = 0; x < 128; ++x) {
      ASSERT_EQ(Dot(rig.planes, line, kBlack, x), band.Row(static_cast<int>(line))[x] < DitherMatrix[120 + line][x])
          << "line " << line << " x " << x;
    }
  }
}

// ---------------------------------------------------------------------------------------------------

TEST(DitherRenderers, NoLinesTouchNothing) {
  for (const Renderer renderer : {DitherColorPortrait, DitherColorLandscape, DitherGrayPortrait, DitherGrayLandscape}) {
    Rig rig;
    std::fill(rig.planes.begin(), rig.planes.end(), 0x5A);
    Band band(8, 8, 24);
    for (const int lines : {0, -1}) {
      EXPECT_EQ(Render(renderer, rig, band, 0, 8, lines, Offsets(0, 0)), 0u);
      EXPECT_TRUE(std::all_of(rig.planes.begin(), rig.planes.end(), [](std::uint8_t b) { return b == 0x5A; }));
    }
  }
}

}  // namespace
}  // namespace inkweave
