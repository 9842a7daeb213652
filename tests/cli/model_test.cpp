// The printer model's colour: the ink model's fitted parameters pinned, the colour proof in every mode (its neutral
// grey ramp holds the fit's balance of the inks), and the printer's ICC profiles against the model.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <random>

#include "cli/proof.h"
#include "decode/colorimetry.h"
#include "decode/ink.h"
#include "host/choices.h"
#include "tests/support/process.h"

namespace inkweave::cli {
namespace {

using decode::Lab;

TEST(InkModel, FittedParametersAreWhatTheFitWrites) {
  const std::string checkedIn = INKWEAVE_SOURCE_DIR "/decode/generated/ink_model.cpp";
  const std::string fresh = ::testing::TempDir() + "ink_model_regen.cpp";
  ASSERT_EQ(inkweave::testing::RunProcess({FIT_INK_MODEL, fresh}, std::chrono::seconds(600)).Exit, 0);
  EXPECT_TRUE(inkweave::testing::ReadText(fresh) == inkweave::testing::ReadText(checkedIn))
      << "decode/generated/ink_model.cpp is stale; update it with:\n  " << FIT_INK_MODEL << " " << checkedIn;
}

// The proof through the plug-in's entry points in every mode (resolution x halftone x media, and
// monochrome): black within 3 L* of the darkest patch the mode prints, the grey ramp falling at every
// step with |a*| and |b*| at most 3, and the mean Delta E 2000 of the 24 checker patches within the goal
// (5 on plain and inkjet paper, 4 on glossy and photographic paper) where the mode meets it, else what
// docs/colour-proof.md explains it cannot better (the inks' chroma, one table serving resolutions whose
// dots gain unlike, the monochrome tone curve of the core), rounded up. Small patches keep it quick.
TEST(Proof, BlackIsBlackAndTheGreyRampNeutralAndFallingInEveryMode) {
  for (int quality : {150, 300, 600, 0})
    for (host::Halftone method : {host::Halftone::Dither, host::Halftone::Diffusion})
      for (const std::string media : {"plain", "inkjet", "glossy", "photo", "mono"}) {
        ProofSettings settings;
        settings.Quality = quality == 0 ? 600 : quality;
        settings.HighRes = quality == 0;
        settings.Method = method;
        settings.Mono = media == "mono";
        settings.Media = settings.Mono ? "plain" : media;
        settings.PatchMm = 3.5;
        std::string error;
        const auto report = MakeProof(settings, &error);
        ASSERT_TRUE(report) << error;
        SCOPED_TRACE(report->Summary());
        EXPECT_TRUE(report->BlackMet());
        EXPECT_TRUE(report->GreyMet());
        const double bound = settings.Mono       ? (quality == 600 ? 18.5 : 13.5)
                             : media == "plain"  ? report->MeanGoal()
                             : media == "inkjet" ? (quality == 0 ? report->MeanGoal() : 7.5)
                                                 : (quality == 0 ? 11.5 : 8.0);
        EXPECT_LE(report->MeanDeltaE, bound);
      }
}

// Each profile is an RGB output profile that predicts what the printer model prints for 40 colours off its
// grid's nodes within Delta E 2000 of 1 on average and 4 at most (today 0.4 to 0.6 and 1.0 to 2.9), and
// maps each printed colour back to an RGB that prints within 3.5 of it on average (today 2.0 to 2.7: the
// inverse's 17-level Lab grid, 8-bit RGB).
TEST(IccProfile, PredictsThePrinterModelOffItsGrid) {
  std::mt19937 random(17);
  std::uniform_int_distribution<int> level(0, 126);
  std::vector<Colour> colours(40);
  for (Colour& c : colours)
    for (std::uint8_t& v : c) v = static_cast<std::uint8_t>(2 * level(random) + 1);  // odd: off every node
  for (const host::Medium& medium : host::kMedia) {
    SCOPED_TRACE(std::string(medium.Name));
    const std::string path = std::string(INKWEAVE_PROFILES_PATH) + "/" + host::IccProfileName(medium);
    cmsHPROFILE printer = cmsOpenProfileFromFile(path.c_str(), "r"), lab = cmsCreateLab4Profile(nullptr);
    ASSERT_NE(printer, nullptr) << path;
    EXPECT_EQ(std::tuple(cmsGetDeviceClass(printer), cmsGetColorSpace(printer), cmsGetPCS(printer)),
              std::tuple(cmsSigOutputClass, cmsSigRgbData, cmsSigLabData));
    cmsHTRANSFORM forward = cmsCreateTransform(printer, TYPE_RGB_8, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0),
                  inverse = cmsCreateTransform(lab, TYPE_Lab_DBL, printer, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC, 0);
    cmsCloseProfile(printer);
    cmsCloseProfile(lab);
    ASSERT_TRUE(forward && inverse);
    ProofSettings settings;
    settings.Media = medium.Name;
    std::string error;
    const auto printed = PrintPatches(settings, colours, &error);
    ASSERT_TRUE(printed) << error;
    double sum = 0, worst = 0, roundTrip = 0;
    for (std::size_t i = 0; i < colours.size(); ++i) {
      const Lab actual = decode::LabOfReflectance((*printed)[i]);
      cmsCIELab predicted, back;
      cmsDoTransform(forward, colours[i].data(), &predicted, 1);
      const double error00 = decode::DeltaE2000(actual, {predicted.L, predicted.a, predicted.b});
      sum += error00;
      worst = std::max(worst, error00);
      const cmsCIELab wanted{actual.L, actual.a, actual.b};
      Colour rgb;
      cmsDoTransform(inverse, &wanted, rgb.data(), 1);
      cmsDoTransform(forward, rgb.data(), &back, 1);
      roundTrip += decode::DeltaE2000(actual, {back.L, back.a, back.b});
    }
    cmsDeleteTransform(forward);
    cmsDeleteTransform(inverse);
    EXPECT_LT(sum / colours.size(), 1.0);
    EXPECT_LT(worst, 4.0);
    EXPECT_LT(roundTrip / colours.size(), 3.5);
  }
}

}  // namespace
}  // namespace inkweave::cli
