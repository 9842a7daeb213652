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

// Prints with the arguments into dir/job.prn; the pages decoded back and the stream.
std::pair<std::vector<decode::PrintedPage>, std::vector<unsigned char>> Print(const ScratchDir& dir,
                                                                              std::vector<std::string> args) {
  args.insert(args.begin(), "print");
  args.insert(args.end(), {"-o", dir / "job.prn"});
  const RunResult run = RunInkweave(args);
  EXPECT_EQ(run.Exit, 0) << run.Err;
  // Not a terminal: no progress, only the summary.
  EXPECT_TRUE(std::regex_match(run.Err, std::regex(".*/job\\.prn: [0-9]+ pages?, [0-9]+ bytes, [0-9.]+ s\n")))
      << run.Err;
  return {DecodeStream(dir / "job.prn"), ReadFile(dir / "job.prn")};
}

TEST(PrintDocuments, EveryPageLooksLikeItsSourceAndLandsWhereItPutsIt) {
  const std::string pdf = Example("testpage.pdf"), png = Example("testpage.png");
  const struct {
    std::vector<std::string> Args;
    std::vector<std::pair<std::string, int>> Sources;  // file and page of each printed page
    const char* Paper;
    int Dpi;
    bool Landscape, Mono;
    Scale Scaled;
  } kCases[] = {
      {{pdf, "--quality", "150"}, {{pdf, 0}, {pdf, 1}}, "a4", 150, false, false, {}},  // dither
      {{pdf, "--quality", "300", "--halftone", "diffusion", "--paper", "letter", "--media", "photo", "--pages", "2"},
       {{pdf, 1}},
       "letter",
       300,
       false,
       false,
       {}},
      {{png, "--landscape", "--mono", "--quality", "150", "--media", "glossy", "--band-height", "64"},
       {{png, 0}},
       "a4",
       150,
       true,
       true,
       {}},
      {{png, "--high-res", "--paper", "a5"}, {{png, 0}}, "a5", 600, false, false, {}},
      // At 100% the 360 x 240 pixel picture (72 dpi: 5 x 3.33 in) prints 750 x 500 dots at 150 dpi, centred.
      {{png, "--quality", "150", "--scale", "100%"}, {{png, 0}}, "a4", 150, false, false, Scale{100.0}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::PrintToString(c.Args));
    ScratchDir dir;
    const auto pages = Print(dir, c.Args).first;
    ASSERT_EQ(pages.size(), c.Sources.size());
    for (std::size_t p = 0; p < pages.size(); ++p) {
      if (c.Args[1] != "--high-res") {
        EXPECT_EQ(pages[p].Dpi, c.Dpi);
      }
      EXPECT_EQ(pages[p].Color, !c.Mono);
      const int block = c.Dpi / 10;
      const SourcePage source =
          RenderSource(c.Sources[p].first, c.Sources[p].second, c.Paper, c.Dpi, c.Landscape, c.Scaled);
      const Comparison compared = ComparePage(source, pages[p], c.Dpi, block);
      EXPECT_LT(compared.MeanError, kMeanTolerance);
      if (c.Mono) {
        EXPECT_EQ(compared.InkOutsideColour, 0.0);  // black ink only
      } else {
        EXPECT_LT(compared.ChannelError, kChannelTolerance);
      }
      for (int i = 0; i < 4; ++i) EXPECT_NEAR(compared.InkBox[i], compared.SourceBox[i], 1) << "box side " << i;
      if (c.Scaled.Percent) {
        EXPECT_NEAR(compared.SourceBox[0], (1200 - 750) / 2 / block, 1);
        EXPECT_NEAR(compared.SourceBox[2] - compared.SourceBox[0] + 1, 750 / block, 1);
      }
    }
  }
}

TEST(PrintDocuments, SeveralInputsMakeOneJobAndStdoutMatchesTheFile) {
  ScratchDir dir;
  const std::vector<std::string> args = {
      Example("testpage.pdf"), Example("testpage.png"), "--quality", "150", "--pages", "1,3"};
  const auto [pages, stream] = Print(dir, args);
  ASSERT_EQ(pages.size(), 2u);
  std::vector<std::string> piped = {"print", "-o", "-"};
  piped.insert(piped.end(), args.begin(), args.end());
  const RunResult run = RunInkweave(piped);
  ASSERT_EQ(run.Exit, 0) << run.Err;
  EXPECT_EQ(std::vector<unsigned char>(run.Out.begin(), run.Out.end()), stream);
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
