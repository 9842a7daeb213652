// The printer's ICC profiles (tools/make_icc_profile.cpp): each is an RGB output profile that predicts
// what the printer model prints for colours off its measured grid, and whose inverse finds them again.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <random>

#include "cli/proof.h"
#include "decode/colorimetry.h"
#include "host/choices.h"

namespace inkweave::cli {
namespace {

struct Transforms {
  cmsHPROFILE Printer = nullptr, Lab = nullptr;
  cmsHTRANSFORM Forward = nullptr, Inverse = nullptr;
  ~Transforms() {
    if (Forward) cmsDeleteTransform(Forward);
    if (Inverse) cmsDeleteTransform(Inverse);
    if (Printer) cmsCloseProfile(Printer);
    if (Lab) cmsCloseProfile(Lab);
  }
};

TEST(IccProfile, PredictsThePrinterModelOffItsGrid) {
  // 40 colours off the grid's nodes, printed at the profiles' settings: the profile predicts each
  // within Delta E 2000 of 1 on average and 4 at most (today 0.4 to 0.6 and 1.1 to 2.8), and maps each
  // printed colour back to an RGB that prints within 3.5 of it on average (today 2.0 to 2.7: the
  // inverse's 17-level Lab grid, 8-bit RGB).
  std::mt19937 random(17);
  std::uniform_int_distribution<int> level(1, 254);
  std::vector<Colour> colours;
  while (colours.size() < 40) {
    Colour c = {static_cast<std::uint8_t>(level(random)), static_cast<std::uint8_t>(level(random)),
                static_cast<std::uint8_t>(level(random))};
    if (c[0] % 16 && c[1] % 16 && c[2] % 16) colours.push_back(c);
  }
  for (const host::Medium& medium : host::kMedia) {
    SCOPED_TRACE(std::string(medium.Name));
    Transforms t;
    const std::string path = std::string(INKWEAVE_PROFILES_PATH) + "/" + host::IccProfileName(medium);
    t.Printer = cmsOpenProfileFromFile(path.c_str(), "r");
    ASSERT_NE(t.Printer, nullptr) << path;
    EXPECT_EQ(cmsGetDeviceClass(t.Printer), cmsSigOutputClass);
    EXPECT_EQ(cmsGetColorSpace(t.Printer), cmsSigRgbData);
    EXPECT_EQ(cmsGetPCS(t.Printer), cmsSigLabData);
    t.Lab = cmsCreateLab4Profile(nullptr);
    t.Forward = cmsCreateTransform(t.Printer, TYPE_RGB_8, t.Lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
    t.Inverse = cmsCreateTransform(t.Lab, TYPE_Lab_DBL, t.Printer, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC, 0);
    ASSERT_TRUE(t.Forward && t.Inverse);

    ProofSettings settings;
    settings.Media = medium.Name;
    std::string error;
    const auto printed = PrintPatches(settings, colours, &error);
    ASSERT_TRUE(printed) << error;
    double sum = 0, worst = 0, roundTrip = 0;
    for (std::size_t i = 0; i < colours.size(); ++i) {
      const decode::Lab actual = decode::LabOfReflectance((*printed)[i]);
      cmsCIELab predicted, back;
      cmsDoTransform(t.Forward, colours[i].data(), &predicted, 1);
      const double error00 = decode::DeltaE2000(actual, {predicted.L, predicted.a, predicted.b});
      sum += error00;
      worst = std::max(worst, error00);
      const cmsCIELab wanted{actual.L, actual.a, actual.b};
      Colour rgb;
      cmsDoTransform(t.Inverse, &wanted, rgb.data(), 1);
      cmsDoTransform(t.Forward, rgb.data(), &back, 1);
      roundTrip += decode::DeltaE2000(actual, {back.L, back.a, back.b});
    }
    EXPECT_LT(sum / colours.size(), 1.0);
    EXPECT_LT(worst, 4.0);
    EXPECT_LT(roundTrip / colours.size(), 3.5);
  }
}

}  // namespace
}  // namespace inkweave::cli
