#include "decode/colorimetry.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace inkweave::decode {
namespace {

// ROMM RGB: primaries and white (D50) as xyY, linear.
cmsHPROFILE CreateLinearRommProfile() {
  const cmsCIExyYTRIPLE primaries = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
  cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
  cmsToneCurve* curves[3] = {linear, linear, linear};
  cmsHPROFILE profile = cmsCreateRGBProfile(cmsD50_xyY(), &primaries, curves);
  cmsFreeToneCurve(linear);
  return profile;
}

// Transforms made once and kept for the process (lcms transforms may be shared between threads).
struct Transforms {
  cmsHTRANSFORM RommToLab = nullptr;
  cmsHTRANSFORM SrgbToLab = nullptr;
  cmsHTRANSFORM RommToSrgb = nullptr;
  Transforms() {
    cmsHPROFILE romm = CreateLinearRommProfile();
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    cmsHPROFILE lab = cmsCreateLab4Profile(cmsD50_xyY());
    const cmsUInt32Number exact = cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE;
    RommToLab = cmsCreateTransform(romm, TYPE_RGB_DBL, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, exact);
    SrgbToLab = cmsCreateTransform(srgb, TYPE_RGB_8, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, exact);
    RommToSrgb = cmsCreateTransform(romm, TYPE_RGB_DBL, srgb, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC, 0);
    cmsCloseProfile(romm);
    cmsCloseProfile(srgb);
    cmsCloseProfile(lab);
  }
};

const Transforms& Shared() {
  static const Transforms transforms;
  return transforms;
}

Lab FromCms(const cmsCIELab& lab) { return {lab.L, lab.a, lab.b}; }
cmsCIELab ToCms(const Lab& lab) { return {lab.L, lab.a, lab.b}; }

}  // namespace

Lab LabOfReflectance(const Reflectance& colour) {
  const double rgb[3] = {std::max(0.0, colour[0]), std::max(0.0, colour[1]), std::max(0.0, colour[2])};
  cmsCIELab lab;
  cmsDoTransform(Shared().RommToLab, rgb, &lab, 1);
  return FromCms(lab);
}

Lab LabOfSrgb(std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
  const std::uint8_t rgb[3] = {red, green, blue};
  cmsCIELab lab;
  cmsDoTransform(Shared().SrgbToLab, rgb, &lab, 1);
  return FromCms(lab);
}

void SrgbOfReflectances(std::span<const Reflectance> colours, std::span<std::uint8_t> rgb) {
  static_assert(sizeof(Reflectance) == 3 * sizeof(double));
  const auto count = static_cast<cmsUInt32Number>(std::min(colours.size(), rgb.size() / 3));
  if (count > 0) cmsDoTransform(Shared().RommToSrgb, colours.data(), rgb.data(), count);
}

Lab CompensateBlack(const Lab& source, const Lab& black) {
  const cmsCIEXYZ* white = cmsD50_XYZ();
  cmsCIEXYZ in, bk;
  const cmsCIELab sourceLab = ToCms(source), blackLab = ToCms(black);
  cmsLab2XYZ(white, &in, &sourceLab);
  cmsLab2XYZ(white, &bk, &blackLab);
  const cmsCIEXYZ out = {in.X * (1 - bk.X / white->X) + bk.X, in.Y * (1 - bk.Y / white->Y) + bk.Y,
                         in.Z * (1 - bk.Z / white->Z) + bk.Z};
  cmsCIELab lab;
  cmsXYZ2Lab(white, &lab, &out);
  return FromCms(lab);
}

double DeltaE2000(const Lab& one, const Lab& two) {
  const cmsCIELab a = ToCms(one), b = ToCms(two);
  return cmsCIE2000DeltaE(&a, &b, 1.0, 1.0, 1.0);
}

double Hue(const Lab& colour) {
  const double degrees = std::atan2(colour.b, colour.a) * 180.0 / std::numbers::pi;
  return degrees < 0 ? degrees + 360.0 : degrees;
}

}  // namespace inkweave::decode
