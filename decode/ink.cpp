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

Reflectance PrintedColour(const InkModel& model, const std::array<double, 4>& ink) {
  Reflectance root = {1.0, 1.0, 1.0};  // R^(1/n), built ink by ink
  const double inverse = 1.0 / model.YuleNielsen;
  for (std::size_t i = 0; i < 4; ++i) {
    const double c = Coverage(model, ink[i]);
    if (c <= 0) continue;
    for (std::size_t ch = 0; ch < 3; ++ch) root[ch] *= 1.0 - c + c * std::pow(model.Solid[i][ch], inverse);
  }
  Reflectance colour;
  for (std::size_t ch = 0; ch < 3; ++ch) colour[ch] = std::pow(root[ch], model.YuleNielsen);
  return colour;
}

}  // namespace inkweave::decode
