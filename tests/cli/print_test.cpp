// Printing real documents with the program and decoding the streams back: every page must look like
// its source (darkness compared block by block after blurring both to 1/10 inch) and land where the
// source puts it (the inked area's bounding box within one block of the source's).
//
// Tolerances: the mean darkness difference per block stays under 0.12 (of 0..1) and per colour
// channel under 0.16. Halftoning and the plug-in's colour tables move single blocks further (light
// tints print no dots at all, saturated colours print darker), so single blocks are not checked.
#include <gtest/gtest.h>

#include <regex>

#include "tests/cli/page_compare.h"
#include "tests/cli/run.h"

namespace inkweave::cli::testing {
namespace {

constexpr double kMeanTolerance = 0.12;
constexpr double kChannelTolerance = 0.16;

struct Job {
  std::vector<decode::PrintedPage> Pages;
  std::vector<unsigned char> Stream;
};

Job PrintAndDecode(const ScratchDir& dir, std::vector<std::string> args) {
  const std::string out = dir / "job.prn";
  args.insert(args.begin(), "print");
  args.push_back("-o");
  args.push_back(out);
  const RunResult run = RunInkweave(args);
  EXPECT_EQ(run.Exit, 0) << run.Err;
  // Not a terminal: no progress, only the summary.
  EXPECT_TRUE(std::regex_match(run.Err, std::regex(".*/job\\.prn: [0-9]+ pages?, [0-9]+ bytes, [0-9.]+ s\n")))
      << run.Err;
  return {DecodeStream(out), ReadFile(out)};
}

void ExpectLooksLike(const SourcePage& source, const decode::PrintedPage& page, int dpi, int block) {
  const Comparison c = ComparePage(source, page, dpi, block);
  EXPECT_LT(c.MeanError, kMeanTolerance);
  EXPECT_LT(c.ChannelError, kChannelTolerance);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(c.InkBox[i], c.SourceBox[i], 1) << "box side " << i;
}

TEST(PrintDocuments, EveryPageOfAPdfWithDither) {
  ScratchDir dir;
  const Job job = PrintAndDecode(dir, {Example("testpage.pdf"), "--quality", "150"});
  ASSERT_EQ(job.Pages.size(), 2u);
  for (int p = 0; p < 2; ++p) {
    SCOPED_TRACE("page " + std::to_string(p + 1));
    EXPECT_EQ(job.Pages[p].Dpi, 150);
    EXPECT_TRUE(job.Pages[p].Color);
    ExpectLooksLike(RenderSource(Example("testpage.pdf"), p, "a4", 150, false), job.Pages[p], 150, 15);
  }
}

TEST(PrintDocuments, ChosenPageWithDiffusionOnLetter) {
  ScratchDir dir;
  const Job job = PrintAndDecode(dir, {Example("testpage.pdf"), "--quality", "300", "--halftone", "diffusion",
                                       "--paper", "letter", "--media", "photo", "--pages", "2"});
  ASSERT_EQ(job.Pages.size(), 1u);
  EXPECT_EQ(job.Pages[0].Dpi, 300);
  ExpectLooksLike(RenderSource(Example("testpage.pdf"), 1, "letter", 300, false), job.Pages[0], 300, 30);
}

TEST(PrintDocuments, PngInLandscapeMonochrome) {
  ScratchDir dir;
  const Job job = PrintAndDecode(dir, {Example("testpage.png"), "--landscape", "--mono", "--quality", "150", "--media",
                                       "glossy", "--band-height", "64"});
  ASSERT_EQ(job.Pages.size(), 1u);
  EXPECT_FALSE(job.Pages[0].Color);
  const SourcePage source = RenderSource(Example("testpage.png"), 0, "a4", 150, true);
  const Comparison c = ComparePage(source, job.Pages[0], 150, 15);
  EXPECT_EQ(c.InkOutsideColour, 0.0);  // black ink only
  EXPECT_LT(c.MeanError, kMeanTolerance);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(c.InkBox[i], c.SourceBox[i], 1) << "box side " << i;
}

TEST(PrintDocuments, HighResolutionModeOnA5) {
  ScratchDir dir;
  const Job job = PrintAndDecode(dir, {Example("testpage.png"), "--high-res", "--paper", "a5"});
  ASSERT_EQ(job.Pages.size(), 1u);
  ExpectLooksLike(RenderSource(Example("testpage.png"), 0, "a5", 600, false), job.Pages[0], 600, 60);
}

TEST(PrintDocuments, FixedScaleLandsCentred) {
  // At 100% the 360 x 240 pixel picture (72 dpi: 5 x 3.33 in) prints 750 x 500 dots at 150 dpi, centred.
  ScratchDir dir;
  const Job job = PrintAndDecode(dir, {Example("testpage.png"), "--quality", "150", "--scale", "100%"});
  ASSERT_EQ(job.Pages.size(), 1u);
  const SourcePage source = RenderSource(Example("testpage.png"), 0, "a4", 150, false, Scale{100.0});
  const Comparison c = ComparePage(source, job.Pages[0], 150, 10);
  EXPECT_NEAR(c.SourceBox[0], (1200 - 750) / 2 / 10, 1);
  EXPECT_NEAR(c.SourceBox[2] - c.SourceBox[0] + 1, 75, 1);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(c.InkBox[i], c.SourceBox[i], 1) << "box side " << i;
}

TEST(PrintDocuments, SeveralInputsMakeOneJobAndStdoutMatchesTheFile) {
  ScratchDir dir;
  const Job job =
      PrintAndDecode(dir, {Example("testpage.pdf"), Example("testpage.png"), "--quality", "150", "--pages", "1,3"});
  ASSERT_EQ(job.Pages.size(), 2u);
  const RunResult piped = RunInkweave(
      {"print", Example("testpage.pdf"), Example("testpage.png"), "--quality", "150", "--pages", "1,3", "-o", "-"});
  ASSERT_EQ(piped.Exit, 0) << piped.Err;
  EXPECT_EQ(std::vector<unsigned char>(piped.Out.begin(), piped.Out.end()), job.Stream);
  EXPECT_EQ(dir.Files(), std::vector<std::string>{"job.prn"});  // no temporary file left behind
}

TEST(PrintDocuments, ChoicesByTheirPrinterAndStandardNames) {
  // The PPD's and the IPP names, in any case, print the very stream the command-line names print;
  // --quiet leaves standard error empty.
  ScratchDir dir;
  const std::string png = Example("testpage.png");
  const auto print = [&](const std::string& name, std::vector<std::string> choices) {
    std::vector<std::string> args = {"print", png, "-q", "-o", dir / name};
    args.insert(args.end(), choices.begin(), choices.end());
    const RunResult run = RunInkweave(args);
    EXPECT_EQ(run.Exit, 0) << run.Err;
    EXPECT_EQ(run.Err, "");
    return ReadFile(dir / name);
  };
  const auto reference = print("ref.prn", {"--paper", "dl", "--quality", "150", "--media", "photo"});
  ASSERT_FALSE(reference.empty());
  for (const std::vector<std::string>& names :
       {std::vector<std::string>{"--paper", "EnvDL", "--quality", "Draft", "--media", "Photographic"},
        {"--paper", "iso_dl_110x220mm", "--quality", "150dpi", "--media", "PHOTOGRAPHIC"},
        {"--paper", "DL", "--quality", "draft", "--media", "Photo"}}) {
    SCOPED_TRACE(names[1] + " " + names[3] + " " + names[5]);
    EXPECT_EQ(print("alias.prn", names), reference);
  }
}

}  // namespace
}  // namespace inkweave::cli::testing
