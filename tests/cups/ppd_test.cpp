// The PPD: cupstestppd passes it (with and without the translations, every option and choice having a
// text in each of its languages), it carries the constraints and the texts that the Windows driver
// shares, and the PPD maker refuses a translation table that lacks a text.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/cups/cups_support.h"

namespace inkweave::cupstest {
namespace {

// cupstestppd with a root holding our filter and profiles where the PPD names them, so that their lines
// are checked too; a missing translation fails it.
RunResult TestPpd(const TempDir& dir, const fs::path& ppd) {
  const fs::path filters = dir / "root/usr/lib/cups/filter";
  const fs::path profiles = dir / ("root" INKWEAVE_ICC_INSTALL_DIR);
  fs::create_directories(filters);
  fs::create_directories(profiles.parent_path());
  if (!fs::exists(filters / "rastertoinkweave"))
    fs::create_symlink(RASTERTOINKWEAVE_PATH, filters / "rastertoinkweave");
  if (!fs::exists(profiles)) fs::create_directory_symlink(INKWEAVE_PROFILES_PATH, profiles);
  return RunProgram({CUPSTESTPPD_PATH, "-R", dir / "root", ppd.string()}, {});
}

TEST(Ppd, PassesCupstestppd) {
  TempDir dir("cupstestppd");
  for (const char* ppd : {INKWEAVE_PPD_PATH, INKWEAVE_PPD_EN_PATH}) {
    const RunResult run = TestPpd(dir, ppd);
    EXPECT_EQ(run.Exit, 0) << ppd << "\n" << run.Out << run.Err;
    EXPECT_NE(run.Out.find(": PASS"), std::string::npos) << run.Out;
  }
}

// What no print shows: the constraints, the texts shared with the Windows driver (misspellings kept), and
// the modes and constraints that are deliberately left out. (The options, papers and qualities the PPD
// offers, and what each prints: queue_test.cpp.)
TEST(Ppd, CarriesTheConstraintsAndSharedTexts) {
  const std::string ppd = ReadText(INKWEAVE_PPD_EN_PATH);
  for (const char* line :
       {"*InkweaveHalftone Diffusion/Erorr Diffusion:",
        "*InkweaveHighRes HighRes600/600x600 High resolution: \"<</HWResolution[600 600]>>setpagedevice\"",
        "*UIConstraints: *InkweaveHighRes HighRes600 *Resolution 150dpi",
        "*UIConstraints: *Resolution 300dpi *InkweaveHighRes HighRes600",
        "*UIConstraints: *cupsPrintQuality Draft *InkweaveHighRes HighRes600"})
    EXPECT_NE(ppd.find(std::string(line)), std::string::npos) << line;
  for (const char* absent : {"*cupsLanguages", "Print1200", "*InkweaveHighRes HighRes600 *Resolution 600dpi",
                             "*InkweaveHighRes HighRes600 *cupsPrintQuality High"})
    EXPECT_EQ(ppd.find(absent), std::string::npos) << absent;
}

TEST(Ppd, MakePpdRefusesAMissingTranslation) {
  // A language of the fragment that the UI table lacks, or a table without some text: no PPD.
  TempDir dir("fragment");
  std::ofstream(dir / "fragment.ppd") << "*cupsLanguages: \"de\"\n*de.ColorModel RGB/Farbe: \"\"\n";
  struct Case {
    const char* Table;
    const char* Words;
  } cases[] = {
      {"en\tfr\nPage Size\tTaille de page\n", "no de text for \"Page Size\""},
      {"en\tde\nPage Size\tSeitengr\xc3\xb6\xc3\x9f"
       "e\n",
       "no de text for \"Page Region\""},
      {"en\tde\tfr\nPage Size\tSeitengröße\n", "2 cells, expected 3"},
  };
  for (const Case& c : cases) {
    std::ofstream(dir / "ui.tsv") << c.Table;
    const RunResult make = RunProgram({MAKE_PPD_PATH, dir / "out.ppd", dir / "fragment.ppd", dir / "ui.tsv"}, {});
    EXPECT_EQ(make.Exit, 1) << c.Words;
    EXPECT_NE(make.Err.find(c.Words), std::string::npos) << make.Err;
  }
}

}  // namespace
}  // namespace inkweave::cupstest
