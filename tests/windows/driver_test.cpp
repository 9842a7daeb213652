// The driver package (windows/driver/): the printer description wires every callback the plug-in's
// command handler knows, in an order the job start can rely on; names every string id of the
// plug-in's table and no other; lists the papers and resolutions; and the INF installs the files the
// package holds, with the plug-in named in the INI.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "src/data/strings.h"
#include "tests/support/files.h"

namespace {

const std::string kDriver = std::string(INKWEAVE_SOURCE_DIR) + "/windows/driver/";

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// One "*Key: value" statement of the description with the blocks it stands in (outermost first,
// e.g. "*Feature: MediaType", "*Option: Glossy", "*Command: CmdSelect").
struct Statement {
  std::vector<std::string> Blocks;
  std::string Key;
  std::string Value;
};

// Splits the description into statements; blocks open with "{" after their header (on the same or
// the next line) and close with "}". Comments ("*%") run to the end of the line.
std::vector<Statement> ParseGpd(const std::string& text, std::string* error) {
  std::vector<Statement> statements;
  std::vector<std::string> blocks;
  std::string last;  // the latest statement, header of a block that opens next
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (Trim(line).rfind("*%", 0) == 0) continue;
    std::string piece;
    auto flush = [&] {
      const std::string statement = Trim(piece);
      piece.clear();
      if (statement.empty()) return;
      const std::size_t colon = statement.find(':');
      statements.push_back({blocks, Trim(statement.substr(0, colon)),
                            colon == std::string::npos ? "" : Trim(statement.substr(colon + 1))});
      last = statement;
    };
    for (char c : line) {
      if (c == '{' || c == '}') {
        flush();
        if (c == '{') {
          blocks.push_back(last);
        } else if (blocks.empty()) {
          *error = "unbalanced }";
          return {};
        } else {
          blocks.pop_back();
        }
      } else {
        piece += c;
      }
    }
    flush();
  }
  if (!blocks.empty()) *error = "unclosed block " + blocks.back();
  return statements;
}

std::string BlockOf(const Statement& s, const std::string& kind) {
  for (const std::string& block : s.Blocks)
    if (block.rfind(kind, 0) == 0) return Trim(block.substr(kind.size()));
  return {};
}

// One callback of the description: where it stands and when it is sent.
struct Callback {
  std::string Feature, Option, Command, Order;
};

class Gpd : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    statements_ = ParseGpd(inkweave::testing::ReadText(kDriver + "inkweave.gpd"), &error);
    ASSERT_TRUE(error.empty()) << error;
    ASSERT_FALSE(statements_.empty());
    for (const Statement& s : statements_) {
      if (s.Key != "*CallbackID") continue;
      Callback c{BlockOf(s, "*Feature:"), BlockOf(s, "*Option:"), BlockOf(s, "*Command:"), {}};
      for (const Statement& o : statements_)
        if (o.Key == "*Order" && o.Blocks == s.Blocks) c.Order = o.Value;
      const int id = std::stoi(s.Value);
      EXPECT_EQ(callbacks_.count(id) && callbacks_[id].Feature != c.Feature, false) << "callback " << id << " twice";
      callbacks_[id] = c;
    }
  }

  std::vector<std::string> Options(const std::string& feature) const {
    std::vector<std::string> options;
    for (const Statement& s : statements_)
      if (s.Key == "*Option" && BlockOf(s, "*Feature:") == feature) options.push_back(s.Value);
    return options;
  }

  // "JOB_SETUP.12" → 12, within the section.
  static int OrderIn(const std::string& order, const std::string& section) {
    EXPECT_EQ(order.rfind(section + ".", 0), 0u) << order;
    return std::stoi(order.substr(section.size() + 1));
  }

  std::vector<Statement> statements_;
  std::map<int, Callback> callbacks_;
};

TEST_F(Gpd, WiresEveryCallbackButThirteen) {
  std::set<int> ids;
  for (const auto& [id, where] : callbacks_) ids.insert(id);
  std::set<int> expected;
  for (int id = 0; id <= 23; ++id)
    if (id != 13) expected.insert(id);
  EXPECT_EQ(ids, expected);

  // The frame.
  EXPECT_EQ(callbacks_[22].Command, "CmdStartJob");
  EXPECT_EQ(callbacks_[20].Command, "CmdStartPage");
  EXPECT_EQ(callbacks_[21].Command, "CmdEndPage");
  EXPECT_EQ(callbacks_[23].Command, "CmdEndJob");
  EXPECT_EQ(callbacks_[19].Command, "CmdStartDoc");
  OrderIn(callbacks_[20].Order, "PAGE_SETUP");

  // The selections: options of their features.
  const std::map<int, std::pair<std::string, std::string>> selections = {
      {11, {"InkweaveHalftone", "Dither"}},
      {12, {"InkweaveHalftone", "Diffusion"}},
      {15, {"MediaType", "Plain"}},
      {16, {"MediaType", "Inkjet"}},
      {17, {"MediaType", "Glossy"}},
      {18, {"MediaType", "Photo"}},
      {0, {"PrintDensity", "Level1"}},
      {1, {"PrintDensity", "Level2"}},
      {2, {"PrintDensity", "Level3"}},
      {3, {"PaperThickness", "Regular"}},
      {4, {"PaperThickness", "Thick"}},
      {5, {"PaperThickness", "Thicker"}},
      {6, {"PaperThickness", "Transparency"}},
      {7, {"SleepTime", "Automatic"}},
      {8, {"SleepTime", "Manual"}},
      {9, {"ChangeSetting", "Automatic"}},
      {10, {"ChangeSetting", "Manual"}},
  };
  for (const auto& [id, where] : selections) {
    EXPECT_EQ(callbacks_[id].Feature, where.first) << id;
    EXPECT_EQ(callbacks_[id].Option, where.second) << id;
    EXPECT_EQ(callbacks_[id].Command, "CmdSelect") << id;
  }
  // Both high-resolution choices send 14.
  int highRes = 0;
  for (const Statement& s : statements_)
    if (s.Key == "*CallbackID" && s.Value == "14" && BlockOf(s, "*Feature:") == "Resolution") ++highRes;
  EXPECT_EQ(highRes, 2);
}

// The job start writes the mode settings from the selections, so they all come first; the high-
// resolution command precedes the halftone one (a monochrome device reaches the high-resolution mode
// only before the halftone selection has added the monochrome bit).
TEST_F(Gpd, SelectionsPrecedeTheJobStart) {
  const int jobStart = OrderIn(callbacks_[22].Order, "JOB_SETUP");
  for (const auto& [id, where] : callbacks_) {
    if (where.Command != "CmdSelect") continue;
    EXPECT_LT(OrderIn(where.Order, "JOB_SETUP"), jobStart) << "callback " << id;
  }
  EXPECT_LT(OrderIn(callbacks_[14].Order, "JOB_SETUP"), OrderIn(callbacks_[11].Order, "JOB_SETUP"));
  EXPECT_LT(OrderIn(callbacks_[14].Order, "JOB_SETUP"), OrderIn(callbacks_[12].Order, "JOB_SETUP"));
}

TEST_F(Gpd, NamesEveryStringOfThePluginAndNoOther) {
  std::set<int> named;
  for (const Statement& s : statements_)
    if (s.Key == "*rcNameID" && !s.Value.empty() && s.Value[0] != '=') named.insert(std::stoi(s.Value));
  std::set<int> table;
  for (const inkweave::StringEntry& entry : inkweave::EnglishStrings()) table.insert(entry.Id);
  EXPECT_EQ(named, table);

  std::string resourceDll;
  for (const Statement& s : statements_)
    if (s.Key == "*ResourceDLL") resourceDll = s.Value;
  EXPECT_EQ(resourceDll, "\"inkweave.dll\"");
}

TEST_F(Gpd, ListsThePapersResolutionsAndModes) {
  EXPECT_EQ(Options("PaperSize"), (std::vector<std::string>{"A4", "LETTER", "LEGAL", "EXECUTIVE", "A5", "ENV_10",
                                                            "ENV_DL", "ENV_C5", "ENV_C4", "ENV_B5", "ENV_MONARCH"}));
  EXPECT_EQ(Options("Resolution"),
            (std::vector<std::string>{"Option1", "Option2", "Option3", "HighRes600", "Print1200"}));
  EXPECT_EQ(Options("ColorMode"), (std::vector<std::string>{"Color", "Mono"}));
  EXPECT_EQ(Options("InkweaveHalftone"), (std::vector<std::string>{"Dither", "Diffusion"}));
  EXPECT_EQ(Options("MediaType"), (std::vector<std::string>{"Plain", "Inkjet", "Glossy", "Photo"}));

  std::multiset<std::string> dpi;
  for (const Statement& s : statements_)
    if (s.Key == "*DPI") dpi.insert(s.Value);
  EXPECT_EQ(dpi, (std::multiset<std::string>{"PAIR(150, 150)", "PAIR(300, 300)", "PAIR(600, 600)", "PAIR(600, 600)",
                                             "PAIR(600, 600)"}));

  // No printable line wider than a dot plane holds at 600 dpi (5120 dots, 10240 master units).
  for (const Statement& s : statements_) {
    if (s.Key != "*PrintableArea") continue;
    const int width = std::stoi(s.Value.substr(s.Value.find('(') + 1));
    EXPECT_LE(width, 10240) << BlockOf(s, "*Option:");
    EXPECT_EQ(width % 8, 0) << BlockOf(s, "*Option:");  // whole pixels at 150 dpi
  }
}

TEST(DriverPackage, InfInstallsThePackagesFilesOnUnidrv) {
  const std::string inf = inkweave::testing::ReadText(kDriver + "inkweave.inf.in");
  ASSERT_FALSE(inf.empty());
  EXPECT_NE(inf.find("DataFile=inkweave.gpd"), std::string::npos);
  EXPECT_NE(inf.find("Include=NTPRINT.INF"), std::string::npos);
  EXPECT_NE(inf.find("Needs=UNIDRV.OEM"), std::string::npos);
  EXPECT_NE(inf.find("Class=Printer"), std::string::npos);

  // Every copied file is in the package (the DLL comes from the build) and has a source disk.
  const std::size_t files = inf.find("[INKWEAVE_FILES]");
  ASSERT_NE(files, std::string::npos);
  std::istringstream section(inf.substr(files + 17, inf.find("\n[", files) - files - 17));
  std::set<std::string> copied;
  for (std::string line; std::getline(section, line);)
    if (!Trim(line).empty()) copied.insert(Trim(line));
  EXPECT_EQ(copied, (std::set<std::string>{"inkweave.gpd", "inkweave.ini", "inkweave.dll"}));
  for (const std::string& file : copied) {
    EXPECT_NE(inf.find(file + "=1"), std::string::npos) << file;
    if (file != "inkweave.dll") {
      EXPECT_FALSE(inkweave::testing::ReadText(kDriver + file).empty()) << file;
    }
  }

  const std::string ini = inkweave::testing::ReadText(kDriver + "inkweave.ini");
  EXPECT_NE(ini.find("[OEMFiles]\nOEMDriverFile1=inkweave.dll\n"), std::string::npos);
}

}  // namespace
