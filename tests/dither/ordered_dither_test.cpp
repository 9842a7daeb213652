// The four ordered-dither renderers: bit for bit against the plain renderers of
// tests/reference/dither_reference.h, one grid over random and run-length images in both
// orientations (odd widths, width 1, first and last rows, widths past one line's planes, dirty plane
// buffers, stripes that run past the matrix, white lines never converted).
// Colour conversion uses a random table and curves, never the product tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "src/halftone/halftone.h"
#include "tests/reference/dither_reference.h"
#include "tests/reference/halftone_rig.h"
#include "tests/support/bytes.h"
#include "tests/support/instruction_sets.h"

namespace inkweave {
namespace {

using reference::Band;
using reference::Offsets;
using reference::Rig;

enum class Fill { Random, Runs };

void FillBand(Band& band, Fill fill, std::mt19937& rng) {
  const int width = band.Info.Header.biWidth;
  const int height = band.Info.Header.biHeight;
  switch (fill) {
    case Fill::Random:  // every byte, padding included
      for (auto& byte : band.Bytes) byte = static_cast<std::uint8_t>(rng());
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
            left = static_cast<int>(rng() % 16 == 0 ? 80 : rng() % 12);  // now and then a run past a stretch
          }
          std::copy_n(palette[colour], 3, band.Row(y) + 3 * x);
        }
      }
      break;
    }
  }
}

// One comparison: the line width, the band's extent along the lines and the stripe taken from it. In
// portrait the band is across x lines, in landscape lines x across. Includes width 1, the last line, odd
// widths and widths past one line's 5120 dots.
struct Case {
  int across;
  int lines;
  int firstLine;
  int lineCount;
};
const Case kCases[] = {{1, 1, 0, 1},     {1, 3, 2, 1},   {7, 16, 0, 16},  {8, 20, 16, 4}, {9, 5, 3, 2},
                       {130, 17, 1, 16}, {641, 3, 0, 3}, {2480, 2, 0, 2}, {5200, 2, 0, 2}};

TEST(DitherRenderers, MatchTheReferenceOnEveryInstructionSet) {
  // Random colour table and curves: the colour renderers only pass pixels through ConvertPixel, and a
  // conversion the memory should have spared (white first of all) reads random ink. The runs hold white,
  // black (its own plane) and colours a byte apart (the conversion memory); width 2480 runs the black pass into the
  // next line's planes; offset 120 runs the rows past the matrix within a stripe; the random fill sets the padding that
  // the gray renderers' last byte reads.
  testing::ForEachInstructionSet([](InstructionSet) {
    std::mt19937 rng(0xC0105);
    const struct {
      bool Colour;
      std::uint16_t Mode;
    } kRenderers[] = {{true, 1}, {true, 2}, {false, 2}};
    for (const auto& r : kRenderers) {
      Rig rig(r.Mode);
      for (auto& byte : rig.Lut) byte = static_cast<std::uint8_t>(rng());
      for (auto& byte : rig.Curves) byte = static_cast<std::uint8_t>(rng());
      for (const bool landscape : {false, true}) {
        const BandRendererFn renderer = r.Colour ? (landscape ? DitherColorLandscape : DitherColorPortrait)
                                                 : (landscape ? DitherGrayLandscape : DitherGrayPortrait);
        for (const Case& c : kCases) {
          for (const Fill fill : {Fill::Random, Fill::Runs}) {
            Band band(landscape ? c.lines : c.across, landscape ? c.across : c.lines, r.Colour ? 24 : 8);
            FillBand(band, fill, rng);
            for (const bool dirty : {false, true}) {
              for (const IPPARAMS& params : {Offsets(0, 0), Offsets(300, 1001), Offsets(120, 120)}) {
                SCOPED_TRACE(::testing::Message()
                             << (r.Colour ? "colour" : "gray") << (landscape ? " landscape" : " portrait") << " mode "
                             << r.Mode << " across " << c.across << " lines " << c.firstLine << "+" << c.lineCount
                             << (fill == Fill::Random ? " random" : " runs") << (dirty ? " dirty planes" : "")
                             << " offset " << params.ptOffset.x << "," << params.ptOffset.y);
                for (auto& byte : rig.Planes[0]) byte = dirty ? static_cast<std::uint8_t>(rng() & rng()) : 0;
                std::vector<std::uint8_t> expected = rig.Planes[0];
                const std::uint32_t expectedResult = (r.Colour ? reference::DitherColor : reference::DitherGray)(
                    rig.State, c.firstLine, c.across, band.Info, c.lineCount, params, landscape, expected);
                EXPECT_EQ(renderer(rig.State, c.firstLine, c.across, band.Info, c.lineCount, 0, c.across, &params),
                          expectedResult);
                // Byte b: line b / 2560, plane b % 2560 / 640.
                EXPECT_EQ(testing::FirstDifference(rig.Planes[0], expected), "");
              }
            }
          }
        }
      }
    }
  });
}

}  // namespace
}  // namespace inkweave
