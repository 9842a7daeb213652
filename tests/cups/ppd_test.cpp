// The PPD: cupstestppd passes it (with and without the translations), it carries the option keywords
// and texts that the Windows driver shares, and English stands in for every text a language lacks.
#include <gtest/gtest.h>

#include <fstream>

#include "host/papers.h"
#include "tests/cups/cups_support.h"

namespace inkweave::cupstest {
namespace {

// cupstestppd with a root holding our filter, so that the filter lines are checked too.
RunResult TestPpd(const TempDir& dir, const fs::path& ppd) {
  const fs::path filters = dir / "root/usr/lib/cups/filter";
  fs::create_directories(filters);
  if (!fs::exists(filters / "rastertoinkweave"))
    fs::create_symlink(RASTERTOINKWEAVE_PATH, filters / "rastertoinkweave");
  return RunProgram({CUPSTESTPPD_PATH, "-R", (dir / "root").string(), ppd.string()}, {}, dir.Path());
}

TEST(Ppd, PassesCupstestppd) {
  TempDir dir("cupstestppd");
  for (const char* ppd : {INKWEAVE_PPD_PATH, INKWEAVE_PPD_EN_PATH}) {
    const RunResult run = TestPpd(dir, ppd);
    EXPECT_EQ(run.ExitCode, 0) << ppd << "\n" << run.Out << run.Err;
    EXPECT_NE(run.Out.find(": PASS"), std::string::npos) << run.Out;
  }
}

TEST(Ppd, CarriesTheSharedKeywordsAndTexts) {
  const std::string ppd = ReadFile(INKWEAVE_PPD_EN_PATH);
  for (const char* line :
       {"*OpenUI *ColorModel/Color Mode Setting: PickOne",
        "*ColorModel RGB/Color:",
        "*ColorModel Gray/Monochrome:",
        "*OpenUI *InkweaveHalftone/Halftone Settings: PickOne",
        "*InkweaveHalftone Dither/Dither:",
        "*InkweaveHalftone Diffusion/Erorr Diffusion:",
        "*OpenUI *MediaType/Media Type: PickOne",
        "*MediaType Plain/Plain Paper:",
        "*MediaType Inkjet/Inkjet Paper:",
        "*MediaType Glossy/Glossy Paper:",
        "*MediaType Photo/Photographic Paper:",
        "*OpenUI *Resolution/Resolution: PickOne",
        "*Resolution 150dpi/150 dpi:",
        "*Resolution 300dpi/300 dpi:",
        "*Resolution 600dpi/600 dpi:",
        "*OpenUI *InkweaveHighRes/High Resolution: PickOne",
        "*InkweaveHighRes Off/Off:",
        "*InkweaveHighRes HighRes600/600x600 High resolution: \"<</HWResolution[600 600]>>setpagedevice\"",
        "*InkweaveHighRes Print1200/1200x1200 Print: \"<</HWResolution[600 600]>>setpagedevice\"",
        "*cupsFilter2: \"application/vnd.cups-raster application/vnd.inkweave-printer 0 rastertoinkweave\""})
    EXPECT_NE(ppd.find(std::string(line)), std::string::npos) << line;
  EXPECT_EQ(ppd.find("*cupsLanguages"), std::string::npos);
  for (const host::Paper& paper : host::Papers()) {
    std::string entry("/");
    entry.append(paper.Title).append(": \"<</PageSize[");
    EXPECT_NE(ppd.find(entry), std::string::npos) << paper.Title;
  }
}

TEST(Ppd, FillsUntranslatedTextsWithEnglish) {
  TempDir dir("fragment");
  std::ofstream(dir / "fragment.ppd") << "*cupsLanguages: \"de he\"\n"
                                         "*de.Translation ColorModel/Farbmoduseinstellung: \"\"\n"
                                         "*de.ColorModel RGB/Farbe: \"\"\n"
                                         "*he.MediaType Plain/\xd7\xa0\xd7\x99\xd7\x99\xd7\xa8: \"\"\n";
  const RunResult make =
      RunProgram({MAKE_PPD_PATH, (dir / "out.ppd").string(), (dir / "fragment.ppd").string()}, {}, dir.Path());
  ASSERT_EQ(make.ExitCode, 0) << make.Err;
  const std::string ppd = ReadFile(dir / "out.ppd");
  EXPECT_NE(ppd.find("*de.ColorModel RGB/Farbe: \"\""), std::string::npos);
  EXPECT_EQ(ppd.find("*de.ColorModel RGB/Color"), std::string::npos);
  EXPECT_NE(ppd.find("*de.ColorModel Gray/Monochrome: \"\""), std::string::npos);
  EXPECT_NE(ppd.find("*he.Translation PageSize/Page Size: \"\""), std::string::npos);
  EXPECT_NE(ppd.find("*he.MediaType Inkjet/Inkjet Paper: \"\""), std::string::npos);
  const RunResult run = TestPpd(dir, dir / "out.ppd");
  EXPECT_EQ(run.ExitCode, 0) << run.Out << run.Err;
}

}  // namespace
}  // namespace inkweave::cupstest
