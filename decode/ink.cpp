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
  // Colour ink per cell under black and beside it.
  double beside[3];
  for (std::size_t i = 0; i < 3; ++i)
    beside[i] = std::max(0.0, (area.Ink[i] - cells * area.UnderBlack[i]) / (1 - cells));
  const Reflectance under = ColourRoot(model, area.UnderBlack.data());
  const Reflectance apart = ColourRoot(model, beside);
  const double c = Coverage(model, area.Ink[3]);
  Reflectance root;
  for (std::size_t ch = 0; ch < 3; ++ch)
    root[ch] = c * std::pow(model.Solid[3][ch], 1.0 / model.YuleNielsen) * under[ch] + (1 - c) * apart[ch];
  return FromRoot(model, root);
}

}  // namespace inkweave::decode
