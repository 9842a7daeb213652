// The display-string table (locale/strings.tsv) and the three files generated from it: the DLL's
// resource script, the PPD translation fragment and the English table of the string library are
// current, and the generator refuses tables it cannot carry (so every language carries its ids). (The
// built PPD's texts in every language: cupstestppd in tests/cups/ppd_test.cpp; the DLL's resources under
// Wine: windows_dll_test.cpp.)
#include <gtest/gtest.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using inkweave::testing::ReadText;
using inkweave::testing::TempDir;

const std::string kSource = INKWEAVE_SOURCE_DIR;
const std::string kTable = kSource + "/locale/strings.tsv";
const std::string kResourceScript = kSource + "/windows/generated/strings.rc";
const std::string kPpdFragment = kSource + "/cups/generated/translations.ppd";
const std::string kEnglishTable = kSource + "/src/data/generated/english_strings.cpp";

// Runs gen-strings on a table into dir (strings.rc, translations.ppd, english_strings.cpp); answers its
// exit status.
int Generate(const fs::path& table, const fs::path& dir) {
  return inkweave::testing::RunProcess(
             {INKWEAVE_GEN_STRINGS, table, dir / "strings.rc", dir / "translations.ppd", dir / "english_strings.cpp"},
             std::chrono::seconds(60))
      .Exit;
}

TEST(Strings, GeneratedFilesAreCurrent) {
  TempDir dir("strings");
  ASSERT_FALSE(dir.Path().empty());
  ASSERT_EQ(Generate(kTable, dir.Path()), 0);
  const char* how =
      "regenerate: build/tools/gen-strings locale/strings.tsv windows/generated/strings.rc "
      "cups/generated/translations.ppd src/data/generated/english_strings.cpp";
  EXPECT_EQ(ReadText(dir.Path() / "strings.rc"), ReadText(kResourceScript)) << how;
  EXPECT_EQ(ReadText(dir.Path() / "translations.ppd"), ReadText(kPpdFragment)) << how;
  EXPECT_EQ(ReadText(dir.Path() / "english_strings.cpp"), ReadText(kEnglishTable)) << how;
}

TEST(Strings, GeneratorRefusesTablesItCannotCarry) {
  TempDir dir("strings");
  ASSERT_FALSE(dir.Path().empty());
  const std::string good = ReadText(kTable);
  auto replaced = [&good](const std::string& from, const std::string& to) {
    std::string text = good;
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
  };
  const std::vector<std::pair<std::string, std::string>> bad = {
      {"missing id", replaced("de\t258\tStufe 2\n", "")},
      {"id twice", replaced("de\t258\tStufe 2\n", "de\t258\tStufe 2\nde\t258\tStufe 2\n")},
      {"unknown id", replaced("de\t258\t", "de\t273\t")},
      {"unknown language", replaced("de\t258\t", "xx\t258\t")},
      {"paper type in Arabic", good + "ar\t1000\tx\n"},
      {"colon", replaced("Stufe 2", "Stufe: 2")},
      {"quote", replaced("Stufe 2", "Stufe \"2\"")},
      {"padded", replaced("Stufe 2", "Stufe 2 ")},
      {"two fields", replaced("de\t258\tStufe 2", "de\t258")},
      {"no header", replaced("lang\tid\ttext\n", "")},
  };
  for (const auto& [what, text] : bad) {
    const fs::path table = dir.Path() / "bad.tsv";
    std::ofstream(table, std::ios::binary) << text;
    EXPECT_NE(Generate(table, dir.Path()), 0) << what;
    EXPECT_FALSE(fs::exists(dir.Path() / "strings.rc")) << what;
  }
}

}  // namespace
