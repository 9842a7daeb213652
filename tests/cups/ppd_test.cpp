// The PPD: cupstestppd passes it (with and without the translations), it carries the constraints and
// the texts that the Windows driver shares, every text has every language, and its papers carry the
// names CUPS gives them.
#include <cups/cups.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "host/choices.h"
#include "host/papers.h"
#include "tests/cups/cups_support.h"

namespace inkweave::cupstest {
namespace {

// cupstestppd with a root holding our filter and profiles where the PPD names them, so that their lines
// are checked too.
RunResult TestPpd(const TempDir& dir, const fs::path& ppd) {
  const fs::path filters = dir / "root/usr/lib/cups/filter";
  const fs::path profiles = dir / ("root" INKWEAVE_ICC_INSTALL_DIR);
  fs::create_directories(filters);
  fs::create_directories(profiles.parent_path());
  if (!fs::exists(filters / "rastertoinkweave"))
    fs::create_symlink(RASTERTOINKWEAVE_PATH, filters / "rastertoinkweave");
  if (!fs::exists(profiles)) fs::create_directory_symlink(INKWEAVE_PROFILES_PATH, profiles);
  return RunProgram({CUPSTESTPPD_PATH, "-W", "translations", "-R", dir / "root", ppd.string()}, {});
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

TEST(Ppd, EveryTextHasEveryLanguage) {
  // Every option title and choice of the English PPD has a text in each of the 23 languages, and the
  // option titles (words, never numbers or names) read otherwise than in English.
  const std::string english = ReadText(INKWEAVE_PPD_EN_PATH), full = ReadText(INKWEAVE_PPD_PATH);
  std::map<std::string, std::string> texts;  // "Translation Keyword" or "Keyword Choice" → English text
  std::set<std::string> keywords;
  const std::regex openUi(R"(\*OpenUI \*(\w+)/([^:]+): PickOne)");
  for (std::sregex_iterator m(english.begin(), english.end(), openUi), end; m != end; ++m) {
    keywords.insert((*m)[1]);
    texts["Translation " + (*m)[1].str()] = (*m)[2];
  }
  const std::regex choice(R"re(\n\*(\w+) (\w+)/([^:]+): ")re");
  for (std::sregex_iterator m(english.begin(), english.end(), choice), end; m != end; ++m)
    if (keywords.count((*m)[1])) texts[(*m)[1].str() + " " + (*m)[2].str()] = (*m)[3];
  ASSERT_GT(texts.size(), 30u);

  std::smatch languagesLine;
  ASSERT_TRUE(std::regex_search(full, languagesLine, std::regex(R"re(\*cupsLanguages: "([^"]+)")re")));
  std::istringstream words(languagesLine[1].str());
  std::vector<std::string> languages{std::istream_iterator<std::string>(words), {}};
  EXPECT_EQ(languages.size(), 23u);
  for (const std::string& lang : languages) {
    for (const auto& [key, text] : texts) {
      const std::string line = "\n*" + lang + "." + key + "/";
      const std::size_t at = full.find(line);
      if (at == std::string::npos) {
        ADD_FAILURE() << lang << ": no text for " << key;
        continue;
      }
      EXPECT_EQ(full.find(line, at + 1), std::string::npos) << lang << ": two texts for " << key;
      const std::size_t start = at + line.size();
      const std::string translated = full.substr(start, full.find(':', start) - start);
      EXPECT_FALSE(translated.empty()) << lang << " " << key;
      if (key.rfind("Translation ", 0) == 0) {
        EXPECT_NE(translated, text) << lang << ": " << key << " left in English";
      }
    }
  }
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

TEST(Papers, StandardNamesAgreeWithCups) {
  // Each paper's IPP name is the one CUPS gives the PPD's page size (by its name, else by its size), and
  // names that size (to 0.01 mm).
  for (const host::Paper& paper : host::Papers()) {
    SCOPED_TRACE(std::string(paper.Name));
    const long width = std::lround(paper.WidthMm * 100), height = std::lround(paper.HeightMm * 100);
    const pwg_media_t* byName = pwgMediaForPWG(std::string(paper.PwgName).c_str());
    ASSERT_NE(byName, nullptr);
    EXPECT_NEAR(byName->width, width, 1);
    EXPECT_NEAR(byName->length, height, 1);
    const pwg_media_t* byPpd = pwgMediaForPPD(std::string(paper.PpdName).c_str());
    if (!byPpd) byPpd = pwgMediaForSize(static_cast<int>(width), static_cast<int>(height));
    ASSERT_NE(byPpd, nullptr);
    EXPECT_STREQ(byPpd->pwg, std::string(paper.PwgName).c_str());
    for (const std::string_view name : {paper.Name, paper.PpdName, paper.PwgName})
      EXPECT_EQ(host::FindPaper(name)->Code, paper.Code) << name;
  }
}

}  // namespace
}  // namespace inkweave::cupstest
