// How an entry of a colour table or an ink-split row prints, for the generators that draw those tables
// by inverting it: the dots each halftoner makes for flat ink amounts, and the printer model's colour
// of those dots (decode/ink.h) as CIELAB D50 relative to the paper.
//
// The dots: ordered dither follows from its matrix (each ink's dots where its value lies below the
// threshold, 1/256 of the cells per unit of ink; the three colours share the threshold, so their
// common dots, the smallest amount's, become black and never lie under colour). The error-diffusion
// renderers of the core are run once on flat patches of every ink amount on a grid of 17 (0, 16, ...,
// 240, 255): the mean ink they put down, the share of the cells holding black and the colour ink in
// those cells (their inks share one threshold map, so colour gathers under black far more than
// independently placed dots would; that moves a grey by up to 10 in b*). Each colour's ink under
// black depends on its own amount and black's only, not on the other colours', so two grids of 17
// hold the whole response.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "decode/ink.h"

namespace inkweave::tables {

// The halftoners a table prints through: the ordered dither and the four error-diffusion pairs.
enum class Screen { Dither, DiffuseLow, DiffuseMid, DiffuseHigh, DiffuseTop };

// Where a table prints: a halftoner on a medium ("N" code 0..4) at a page resolution, through an
// ink-split table under error diffusion.
struct Use {
  Screen Halftone = Screen::Dither;
  int Medium = 0;
  int Dpi = 300;   // page dots per inch: 1200 for the top pair
  int Split = -1;  // ink-split table 0..10; -1 under dither
};

struct Lab {
  double L = 0;
  double a = 0;
  double b = 0;
};

// The dots the halftoner makes for flat ink amounts of cyan, magenta, yellow and black (0 none, 255
// full; below 0 prints nothing), as the printer model reads a printed area.
decode::AreaInk DotsFor(Screen screen, const std::array<double, 4>& amounts);

// What a colour-table entry (cyan, magenta, yellow and grey component, 0..255) prints on a use; under
// error diffusion the ink split takes the grey component apart, yellow held to `yellowCap` (the
// table's black level).
Lab PrintedEntry(const Use& use, const std::array<double, 4>& entry, int yellowCap);
// What flat ink amounts print on a use (the ink split already applied).
Lab PrintedAmounts(const Use& use, const std::array<double, 4>& amounts);

// CIELAB D50 of a printed reflectance (linear ROMM RGB relative to the paper) and of an sRGB colour
// (relative colorimetric, adapted to D50), as the colour proof measures them.
Lab LabOfReflectance(const decode::Reflectance& colour);
Lab LabOfSrgb(double red, double green, double blue);  // 0..255
// The source colour with its black point compensated to the print's black: scaled in XYZ so that
// sRGB black lands on `black` and white stays paper white.
Lab CompensateBlack(const Lab& source, const Lab& black);

// The difference the generators minimise, as three residuals: lightness, chroma (over 1 + 0.045 C*)
// and hue (over 1 + 0.015 C*, C* the wanted chroma), hue counted `hueWeight` times, so that a colour
// the paper cannot reach is clipped toward the gamut at its own hue.
std::array<double, 3> Difference(const Lab& wanted, const Lab& printed, double hueWeight);

// Damped Gauss-Newton (Levenberg-Marquardt) in a box: the x in [low, high]^3 near `start` that
// minimises the sum of squared residuals, with forward-difference derivatives and `steps` steps at
// most. Deterministic.
using Residuals = std::function<std::vector<double>(const std::array<double, 3>&)>;
std::array<double, 3> MinimiseInBox(const Residuals& residuals, std::array<double, 3> start, double low, double high,
                                    int steps);

}  // namespace inkweave::tables
