// Ink on paper: the colour an area of printed dots shows.
//
// The model, per medium and page resolution (its parameters are fitted once by tools/fit_ink_model.cpp
// from the design's own evidence and written to decode/generated/ink_model.cpp; see docs/ink-model.md):
//  - Colours are reflectances relative to the bare paper (paper white = 1) in the three linear channels
//    of ROMM RGB, whose white is D50: equal channels are neutral.
//  - Dot gain: a dot spreads beyond its cell; an ink amount a (mean ink per cell, 1 = a full dot in
//    every cell) covers 1 - (1 - a)^Spread of the area, as dots of Spread cells each scattered at random.
//  - Overprints: inks are transparent layers, so two inks over each other reflect the product of their
//    solids, channel by channel (Beer-Lambert).
//  - Mixture: Demichel weights of the four coverages over the 16 overprints, averaged in the
//    Yule-Nielsen way (reflectance to the power 1/n), which with Beer-Lambert overprints reduces to
//    R^(1/n) = product over the inks of (1 - c + c S^(1/n)).
//  - Black apart: where the dots say how much colour ink lies in the cells that hold black (the dither
//    path never puts colour under black; the diffusion paths place the inks independently), the area is
//    mixed as two parts, the part black covers with the colour ink hidden under it and the rest with
//    the colour ink that shows: R^(1/n) = cK SK^(1/n) P(hidden) + (1 - cK) P(shown). Black covers the
//    cells holding it first (small dots only part of each, and the colour beside them there shows),
//    then, spreading past them, a share of the other cells with the colour in them.
#pragma once

#include <array>

namespace inkweave::decode {

using Reflectance = std::array<double, 3>;  // linear ROMM RGB relative to the paper

struct InkModel {
  std::array<Reflectance, 4> Solid{};  // a solid of cyan, magenta, yellow, black alone on the paper
  double Spread = 1.0;                 // area a full dot covers, in cells (>= 1)
  double YuleNielsen = 1.0;            // n: how far light travels in the paper between dots (>= 1)
};

// Media codes of "N" 05 m.
inline constexpr int kMediaCodes = 5;  // 0 plain, 1 inkjet, 2 glossy, 3 photographic, 4 (media 4 and 5)

// Ink over an area of the page.
struct AreaInk {
  std::array<double, 4> Ink{};         // cyan, magenta, yellow, black: mean ink per cell (1 = full dots)
  double BlackCells = -1;              // share of the cells holding a black dot; < 0: inks independent
  std::array<double, 3> UnderBlack{};  // mean cyan, magenta, yellow ink per cell over the black cells
};

// The fitted model of a medium at a page resolution (150, 300, 600, 1200); unknown media print as plain
// paper, unknown resolutions as the nearest one below.
InkModel InkModelFor(int medium, int dpi);

// The share of the area that ink amount `ink` covers.
double Coverage(const InkModel& model, double ink);

// The colour of an area holding `ink` of cyan, magenta, yellow and black (mean ink per cell), placed
// independently of each other.
Reflectance PrintedColour(const InkModel& model, const std::array<double, 4>& ink);
// The colour of an area whose dots also tell how the colour inks sit against black.
Reflectance PrintedColour(const InkModel& model, const AreaInk& area);

// The fitted models: one per medium code and resolution.
struct FittedInkModel {
  int Medium = 0;
  int Dpi = 0;
  InkModel Model;
};
extern const std::array<FittedInkModel, 4 * kMediaCodes> kFittedInkModels;

}  // namespace inkweave::decode
