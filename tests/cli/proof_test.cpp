// The colour proof through the plug-in's entry points in every mode (resolution x halftone x media, and
// monochrome): black stays black, and the grey ramp stays neutral and keeps falling. The proof command
// as a user runs it, and the sheets the printer model reads from the stream for every paper the host
// offers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/plugin.h"
#include "cli/proof.h"
#include "host/host.h"
#include "host/papers.h"
#include "tests/cli/run.h"
#include "tests/support/print_stream.h"

namespace inkweave::cli::testing {
namespace {

using host::Halftone;
using ::testing::HasSubstr;

struct Mode {
  int Quality;
  bool HighRes;
  Halftone Method;
  const char* Media;
  bool Mono;
};

std::vector<Mode> EveryMode() {
  std::vector<Mode> modes;
  for (int quality : {150, 300, 600, 0})
    for (Halftone method : {Halftone::Dither, Halftone::Diffusion}) {
      for (const char* media : {"plain", "inkjet", "glossy", "photo"})
        modes.push_back({quality == 0 ? 600 : quality, quality == 0, method, media, false});
      modes.push_back({quality == 0 ? 600 : quality, quality == 0, method, "plain", true});
    }
  return modes;
}

// The most the mean Delta E 2000 of the 24 checker patches may reach in a mode: the goal (5 on plain and
// inkjet paper, 4 on glossy and photographic paper) where the mode meets it, else what docs/colour-proof.md
// explains it cannot better (the inks' chroma, one table serving resolutions whose dots gain unlike, the
// monochrome tone curve of the core), rounded up.
double MeanBound(const Mode& mode, double goal) {
  const std::string media = mode.Media;
  if (mode.Mono) return mode.Quality == 600 && !mode.HighRes ? 18.5 : 13.5;
  if (media == "plain") return goal;
  if (media == "inkjet") return mode.HighRes ? goal : 7.5;
  return mode.HighRes ? 11.5 : 8.0;  // glossy and photographic paper
}

// What the proof must keep showing in every mode (docs/colour-proof.md has the figures and the goals):
// black is within 3 L* of the darkest patch the mode prints, and the grey ramp falls at every step with
// |a*| and |b*| at most 3; the mean Delta E stays within its bound. Small patches keep the proof quick
// (the proof never makes them fewer than 60 dots a side) and still leave a settled middle to measure.
TEST(Proof, BlackIsBlackAndTheGreyRampNeutralAndFallingInEveryMode) {
  for (const Mode& mode : EveryMode()) {
    ProofSettings settings;
    settings.Quality = mode.Quality;
    settings.HighRes = mode.HighRes;
    settings.Method = mode.Method;
    settings.Media = mode.Media;
    settings.Mono = mode.Mono;
    settings.PatchMm = 3.5;
    std::string error;
    const auto report = MakeProof(settings, &error);
    ASSERT_TRUE(report) << error;
    SCOPED_TRACE(report->Summary());
    EXPECT_TRUE(report->BlackMet());
    EXPECT_TRUE(report->GreyMet());
    EXPECT_LE(report->MeanDeltaE, MeanBound(mode, report->MeanGoal()));
  }
}

TEST(ProofCommand, SummaryJsonAndPicture) {
  ScratchDir dir;
  const RunResult text = RunInkweave({"proof", "--quality", "150", "-o", dir / "proof.png"});
  ASSERT_EQ(text.Exit, 0) << text.Err;
  EXPECT_THAT(text.Out, HasSubstr("relative to paper white, black-point compensated"));
  EXPECT_THAT(text.Out, HasSubstr("proof 150 dpi, dither, plain paper, colour: mean dE00 "));
  EXPECT_THAT(text.Out, HasSubstr("dark skin"));
  const auto png = ReadFile(dir / "proof.png");
  ASSERT_GT(png.size(), 8u);
  EXPECT_EQ(png[1], 'P');
  const RunResult json = RunInkweave({"proof", "--high-res", "--media", "photo", "--json"});
  ASSERT_EQ(json.Exit, 0) << json.Err;
  EXPECT_THAT(json.Out, HasSubstr("\"mode\": \"high-resolution, diffusion, photo paper, colour\""));
  EXPECT_THAT(json.Out, HasSubstr("\"deltaE2000\": "));
  EXPECT_THAT(json.Out, HasSubstr("\"greyFalls\": "));
  const RunResult bad = RunInkweave({"proof", "--high-res", "--quality", "300"});
  EXPECT_EQ(bad.Exit, 2);
  EXPECT_THAT(bad.Err, HasSubstr("--high-res"));
}

// Every paper the host offers comes back from the stream as that sheet, the print at the margins the
// host leaves: a page inked in its first and last rows, so that a shared paper code must be told by the
// print's length.
TEST(Sheets, TheStreamNamesEveryPaperTheHostOffers) {
  std::string error;
  auto library = OpenPlugin("", &error);
  ASSERT_TRUE(library) << error;
  for (const host::Paper& paper : host::Papers()) {
    SCOPED_TRACE(std::string(paper.Name));
    constexpr int kDpi = 150;
    const host::PrintableArea area = host::PrintableAreaOf(paper, kDpi);
    host::HostSession session(library->Entry());
    ASSERT_EQ(session.Load(), S_OK);
    host::DeviceSetup setup;
    setup.PaperSize = paper.Code;
    setup.Quality = kDpi;
    setup.Color = false;
    setup.PageWidth = area.Width;
    setup.PageHeight = area.Height;
    ASSERT_EQ(session.Enable(setup), S_OK);
    host::SelectModes(session, false, false);
    session.Command(host::kCallbackJobStart);
    host::PageSource page;
    page.Width = static_cast<std::int32_t>(area.Width);
    page.Height = static_cast<std::int32_t>(area.Height);
    page.Render = [&](std::int32_t, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                      std::size_t stride) {
      for (std::int32_t row = 0; row < h; ++row)
        if (y + row == 0 || y + row == page.Height - 1) std::fill(dst + row * stride, dst + row * stride + 3 * w, 0);
      return true;
    };
    host::PrintPage(session, page, 256);
    session.Command(host::kCallbackJobEnd);
    session.Disable();
    session.Unload();
    std::vector<std::uint8_t> stream;
    for (const auto& write : session.Spool().Writes())
      stream.insert(stream.end(), write.Bytes.begin(), write.Bytes.end());
    const auto printed = inkweave::testing::PrintStream(stream);
    ASSERT_EQ(printed.size(), 1u);
    const decode::Sheet& sheet = printed[0].Paper;
    EXPECT_TRUE(sheet.Known);
    EXPECT_FALSE(sheet.Overrun);
    EXPECT_NEAR(sheet.WidthMm, paper.WidthMm, 0.01);
    EXPECT_NEAR(sheet.HeightMm, paper.HeightMm, 0.01);
    EXPECT_EQ(static_cast<std::uint32_t>(sheet.LeftDots), area.Left);
    EXPECT_EQ(static_cast<std::uint32_t>(sheet.TopDots), area.Top);
  }
}

}  // namespace
}  // namespace inkweave::cli::testing
