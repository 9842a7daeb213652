// The printer model's ink model held to its physics and to the design's evidence it was fitted to, for
// every medium and resolution: a solid of each ink prints that ink's colour, lightness falls as ink
// rises, the ink-split tables' neutral balance prints neutral, and the grey rows print sRGB mid grey. The
// fitted parameters are what the fit writes today.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "decode/colorimetry.h"
#include "decode/ink.h"
#include "src/data/tables.h"
#include "tests/support/process.h"

namespace inkweave::decode {
namespace {

constexpr int kResolutions[] = {150, 300, 600, 1200};

TEST(InkModel, FittedParametersAreWhatTheFitWrites) {
  const std::string checkedIn = INKWEAVE_SOURCE_DIR "/decode/generated/ink_model.cpp";
  const std::string fresh = ::testing::TempDir() + "ink_model_regen.cpp";
  ASSERT_EQ(inkweave::testing::RunProcess({FIT_INK_MODEL, fresh}, std::chrono::seconds(600)).Exit, 0);
  EXPECT_TRUE(inkweave::testing::ReadText(fresh) == inkweave::testing::ReadText(checkedIn))
      << "decode/generated/ink_model.cpp is stale; update it with:\n  " << FIT_INK_MODEL << " " << checkedIn;
}

// Each ink alone at full strength prints its solid: cyan, magenta and yellow in their hue sectors and
// clearly coloured, black neutral and the darkest; two inks print the product of their solids.
TEST(InkModel, SolidOfEachInkPrintsThatInksColour) {
  const struct { double HueFrom, HueTo; } kSectors[3] = {{200, 260}, {300, 360}, {80, 120}};
  for (int medium = 0; medium < kMediaCodes; ++medium) {
    for (int dpi : kResolutions) {
      SCOPED_TRACE("medium " + std::to_string(medium) + " at " + std::to_string(dpi));
      const InkModel model = InkModelFor(medium, dpi);
      const Lab black = LabOfReflectance(PrintedColour(model, std::array<double, 4>{0, 0, 0, 1}));
      for (std::size_t ink = 0; ink < 4; ++ink) {
        std::array<double, 4> amounts{};
        amounts[ink] = 1;
        const Reflectance solid = PrintedColour(model, amounts);
        for (std::size_t ch = 0; ch < 3; ++ch) EXPECT_NEAR(solid[ch], model.Solid[ink][ch], 1e-12);
        const Lab lab = LabOfReflectance(solid);
        if (ink == 3) {
          EXPECT_LT(Chroma(lab), 0.5);
          continue;
        }
        EXPECT_GT(Chroma(lab), 30) << "ink " << ink;
        EXPECT_GE(Hue(lab), kSectors[ink].HueFrom) << "ink " << ink;
        EXPECT_LT(Hue(lab), kSectors[ink].HueTo) << "ink " << ink;
        EXPECT_GT(lab.L, black.L) << "ink " << ink;
      }
      const Reflectance red = PrintedColour(model, std::array<double, 4>{0, 1, 1, 0});
      for (std::size_t ch = 0; ch < 3; ++ch) EXPECT_NEAR(red[ch], model.Solid[1][ch] * model.Solid[2][ch], 1e-12);
    }
  }
}

// More ink never lightens, and darkens wherever it covers more paper (dot gain saturates the coverage
// before the last steps): every ink alone, and all four together, in steps of 1/20 of a full dot. Every
// channel of the reflectance falls, so the lightness does.
TEST(InkModel, LightnessFallsAsCoverageRises) {
  for (int medium = 0; medium < kMediaCodes; ++medium) {
    for (int dpi : kResolutions) {
      const InkModel model = InkModelFor(medium, dpi);
      for (int ink = 0; ink <= 4; ++ink) {
        Reflectance previous = {2, 2, 2};
        double previousCoverage = -1;
        for (int step = 0; step <= 20; ++step) {
          std::array<double, 4> amounts{};
          for (int i = 0; i < 4; ++i)
            if (ink == 4 || ink == i) amounts[static_cast<std::size_t>(i)] = step / 20.0;
          const Reflectance colour = PrintedColour(model, amounts);
          const double coverage = Coverage(model, step / 20.0);
          for (std::size_t ch = 0; ch < 3; ++ch) {
            SCOPED_TRACE("medium " + std::to_string(medium) + " at " + std::to_string(dpi) + ", ink " +
                         std::to_string(ink) + ", step " + std::to_string(step) + ", channel " + std::to_string(ch));
            EXPECT_LE(colour[ch], previous[ch]);
            if (coverage > previousCoverage + 1e-4) {
              EXPECT_LT(colour[ch], previous[ch] * (1 - 1e-6));
            }
          }
          EXPECT_LE(LabOfReflectance(colour).L, LabOfReflectance(previous).L + 1e-3);
          previous = colour;
          previousCoverage = coverage;
        }
      }
    }
  }
}

// What the measured ink-split tables leave of a neutral at their given rows prints neutral on the
// medium and resolution each serves (the fit balances these against the inks' hues; docs/ink-model.md).
TEST(InkModel, InkSplitBalancePrintsNeutral) {
  const struct {
    int Table, Medium, Dpi;
  } kUses[] = {{0, 0, 300}, {1, 0, 600},  {2, 1, 600},  {4, 2, 600},
               {6, 3, 600}, {3, 0, 1200}, {5, 2, 1200}, {7, 3, 1200}};
  double worst = 0, sum = 0;
  int count = 0;
  for (const auto& use : kUses) {
    for (int g : {64, 128, 192}) {
      std::array<double, 4> ink{};
      for (std::size_t v = 0; v < 4; ++v) ink[v] = (g - InkSplitTable[use.Table][g][v]) / 255.0;
      const Lab lab = LabOfReflectance(PrintedColour(InkModelFor(use.Medium, use.Dpi), ink));
      EXPECT_LT(Chroma(lab), 6.5) << "ink split " << use.Table << " at g " << g;
      worst = std::max(worst, Chroma(lab));
      sum += Chroma(lab);
      ++count;
    }
  }
  EXPECT_LT(sum / count, 3.0) << "worst " << worst;
}

// The grey row (8, 8, 8), printed in black alone where the dither path prints it, shows the lightness
// of sRGB 128 (black-point compensated) within the fit's residuals.
TEST(InkModel, GreyRowsPrintSrgbMidGrey) {
  const struct { int Table, Medium, Dpi; } kRows[] = {{1, 0, 300}, {3, 0, 600}, {13, 3, 300}, {15, 4, 300}};
  for (const auto& row : kRows) {
    const InkModel model = InkModelFor(row.Medium, row.Dpi);
    const double grey = ColorTable(row.Table)[((8 * 17 + 8) * 17 + 8) * 4 + 3] / 255.0;
    const Lab printed = LabOfReflectance(PrintedColour(model, std::array<double, 4>{0, 0, 0, grey}));
    const Lab wanted = CompensateBlack(LabOfSrgb(128, 128, 128), LabOfReflectance(model.Solid[3]));
    EXPECT_NEAR(printed.L, wanted.L, 4.0) << "colour table " << row.Table;
  }
}

}  // namespace
}  // namespace inkweave::decode
