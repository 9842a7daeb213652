#include "decode/ink.h"

#include <algorithm>
#include <cmath>

namespace inkweave::decode {

InkModel InkModelFor(int medium, int dpi) {
  if (medium < 0 || medium >= kMediaCodes) medium = 0;
  const int resolution = dpi >= 1200 ? 1200 : dpi >= 600 ? 600 : dpi >= 300 ? 300 : 150;
  for (const FittedInkModel& fitted : kFittedInkModels)
    if (fitted.Medium == medium && fitted.Dpi == resolution) return fitted.Model;
  return {};
}

double Coverage(const InkModel& model, double ink) {
  const double a = std::clamp(ink, 0.0, 1.0);
  return 1.0 - std::pow(1.0 - a, model.Spread);
}

namespace {

// R^(1/n) of cyan, magenta and yellow at these amounts, channel by channel.
Reflectance ColourRoot(const InkModel& model, const double* ink) {
  Reflectance root = {1.0, 1.0, 1.0};
  const double inverse = 1.0 / model.YuleNielsen;
  for (std::size_t i = 0; i < 3; ++i) {
    const double c = Coverage(model, ink[i]);
    if (c <= 0) continue;
    for (std::size_t ch = 0; ch < 3; ++ch) root[ch] *= 1.0 - c + c * std::pow(model.Solid[i][ch], inverse);
  }
  return root;
}

Reflectance FromRoot(const InkModel& model, const Reflectance& root) {
  Reflectance colour;
  for (std::size_t ch = 0; ch < 3; ++ch) colour[ch] = std::pow(root[ch], model.YuleNielsen);
  return colour;
}

}  // namespace

Reflectance PrintedColour(const InkModel& model, const std::array<double, 4>& ink) {
  const Reflectance colour = ColourRoot(model, ink.data());
  const double c = Coverage(model, ink[3]);
  Reflectance root;
  for (std::size_t ch = 0; ch < 3; ++ch)
    root[ch] = colour[ch] * (1.0 - c + c * std::pow(model.Solid[3][ch], 1.0 / model.YuleNielsen));
  return FromRoot(model, root);
}

Reflectance PrintedColour(const InkModel& model, const AreaInk& area) {
  const double cells = area.BlackCells;
  if (cells <= 0 || cells >= 1) return PrintedColour(model, area.Ink);
  // Black covers c of the area: the cells holding black first (a share f of each: small dots cover
  // less than their cell), then, where it spreads past them, a share e of the other cells. Colour ink
  // in a covered part lies under black; the rest shows.
  const double c = Coverage(model, area.Ink[3]);
  const double f = std::min(1.0, c / cells);
  const double e = c > cells ? (c - cells) / (1 - cells) : 0.0;
  double under[3], shown[3];
  for (std::size_t i = 0; i < 3; ++i) {
    const double inBlack = cells * area.UnderBlack[i];
    const double beside = std::max(0.0, area.Ink[i] - inBlack);
    const double hidden = inBlack * f + beside * e;
    under[i] = c > 0 ? hidden / c : 0.0;
    shown[i] = c < 1 ? (inBlack + beside - hidden) / (1 - c) : 0.0;
  }
  const Reflectance rootUnder = ColourRoot(model, under);
  const Reflectance rootShown = ColourRoot(model, shown);
  Reflectance root;
  for (std::size_t ch = 0; ch < 3; ++ch)
    root[ch] = c * std::pow(model.Solid[3][ch], 1.0 / model.YuleNielsen) * rootUnder[ch] + (1 - c) * rootShown[ch];
  return FromRoot(model, root);
}

}  // namespace inkweave::decode
