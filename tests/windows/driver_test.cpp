// The driver package (windows/driver/) and the display-string table (locale/strings.tsv). The printer
// description wires every callback the plug-in's command handler knows, each selection from its option,
// in an order the job start can rely on; names every string id of the plug-in's table and no other; and
// keeps printable lines within a dot plane. The three files generated from the string table (the DLL's
// resource script, the PPD translation fragment and the English table of the string library) are current.
// (The built PPD's texts in every language: cupstestppd in the CUPS tests; the DLL's resources under
// Wine: windows_dll_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "src/data/strings.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using inkweave::testing::ReadText;

const std::string kSource = INKWEAVE_SOURCE_DIR;
const std::string kDriver = kSource + "/windows/driver/";

// A callback of the printer description: the feature and command it stands in (the last of each before
// it; the frame's commands come before any feature) and the order that command is sent in.
struct Callback {
  std::string Feature, Command, Order;
};

// "JOB_SETUP.12" → 12, within the section.
int OrderIn(const std::string& order, const std::string& section) {
  EXPECT_EQ(order.rfind(section + ".", 0), 0u) << order;
  return order.size() > section.size() ? std::stoi(order.substr(section.size() + 1)) : -1;
}

TEST(Gpd, WiresEveryCallbackNamesEveryStringAndFitsTheHead) {
  const std::string gpd = ReadText(kDriver + "inkweave.gpd");
  EXPECT_EQ(std::count(gpd.begin(), gpd.end(), '{'), std::count(gpd.begin(), gpd.end(), '}')) << "unbalanced blocks";
  std::map<int, std::vector<Callback>> callbacks;
  std::map<std::string, std::vector<int>> byFeature;  // the callbacks of a feature's options, in order
  std::set<int> named;
  std::string resourceDll;
  Callback at;
  const std::regex statement(R"(\*(\w+): *("[^"]*"|[\w.=]+)(?:\((\d+))?)");
  std::istringstream lines(gpd);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("*%") != std::string::npos) continue;  // a comment
    for (std::sregex_iterator m(line.begin(), line.end(), statement), end; m != end; ++m) {
      const std::string key = (*m)[1], value = (*m)[2];
      if (key == "Feature") at = {value, "", ""};
      if (key == "Command") at.Command = value, at.Order.clear();
      if (key == "Order") at.Order = value;
      if (key == "ResourceDLL") resourceDll = value;
      if (key == "rcNameID" && value[0] != '=') named.insert(std::stoi(value));
      if (key == "PrintableArea") {  // no line wider than a dot plane holds at 600 dpi (10240 master units)
        const int width = std::stoi((*m)[3]);
        EXPECT_LE(width, 10240) << line;
        EXPECT_EQ(width % 8, 0) << line;  // whole pixels at 150 dpi
      }
      if (key != "CallbackID") continue;
      callbacks[std::stoi(value)].push_back(at);
      if (!at.Feature.empty()) byFeature[at.Feature].push_back(std::stoi(value));
    }
  }

  std::set<int> ids, expected;
  for (const auto& [id, where] : callbacks) ids.insert(id);
  for (int id = 0; id <= 23; ++id)
    if (id != 13) expected.insert(id);
  EXPECT_EQ(ids, expected);
  for (const auto& [id, command] : std::map<int, std::string>{
           {19, "CmdStartDoc"}, {20, "CmdStartPage"}, {21, "CmdEndPage"}, {22, "CmdStartJob"}, {23, "CmdEndJob"}}) {
    ASSERT_EQ(callbacks[id].size(), 1u) << id;
    EXPECT_EQ(callbacks[id][0].Command, command) << id;
  }
  OrderIn(callbacks[20][0].Order, "PAGE_SETUP");
  // The selections, option by option of their features; both high-resolution choices send 14.
  EXPECT_EQ(byFeature, (std::map<std::string, std::vector<int>>{{"InkweaveHalftone", {11, 12}},
                                                                {"MediaType", {15, 16, 17, 18}},
                                                                {"PrintDensity", {0, 1, 2}},
                                                                {"PaperThickness", {3, 4, 5, 6}},
                                                                {"SleepTime", {7, 8}},
                                                                {"ChangeSetting", {9, 10}},
                                                                {"Resolution", {14, 14}}}));

  // The job start writes the mode settings from the selections, so they all come first; the high-
  // resolution command precedes the halftone one (a monochrome device reaches the high-resolution mode
  // only before the halftone selection has added the monochrome bit).
  const int jobStart = OrderIn(callbacks[22][0].Order, "JOB_SETUP");
  for (const auto& [id, where] : callbacks) {
    for (const Callback& c : where) {
      if (c.Feature.empty()) continue;
      EXPECT_EQ(c.Command, "CmdSelect") << id;
      EXPECT_LT(OrderIn(c.Order, "JOB_SETUP"), jobStart) << "callback " << id;
    }
  }
  EXPECT_LT(OrderIn(callbacks[14][0].Order, "JOB_SETUP"), OrderIn(callbacks[11][0].Order, "JOB_SETUP"));
  EXPECT_LT(OrderIn(callbacks[14][0].Order, "JOB_SETUP"), OrderIn(callbacks[12][0].Order, "JOB_SETUP"));

  std::set<int> table;
  for (const inkweave::StringEntry& entry : inkweave::EnglishStrings()) table.insert(entry.Id);
  EXPECT_EQ(named, table);
  EXPECT_EQ(resourceDll, "\"inkweave.dll\"");

  // The plug-in INI names the DLL.
  EXPECT_NE(ReadText(kDriver + "inkweave.ini").find("[OEMFiles]\nOEMDriverFile1=inkweave.dll\n"), std::string::npos);
}

// gen-strings on the table writes the checked-in files.
TEST(Strings, GeneratedFilesAreCurrent) {
  inkweave::testing::TempDir dir("strings");
  const auto run =
      inkweave::testing::RunProcess({INKWEAVE_GEN_STRINGS, kSource + "/locale/strings.tsv", dir / "strings.rc",
                                     dir / "translations.ppd", dir / "english_strings.cpp"},
                                    std::chrono::seconds(60));
  ASSERT_EQ(run.Exit, 0) << run.Err;
  for (const char* generated :
       {"windows/generated/strings.rc", "cups/generated/translations.ppd", "src/data/generated/english_strings.cpp"})
    EXPECT_EQ(ReadText(dir / fs::path(generated).filename()), ReadText(kSource + "/" + generated))
        << "regenerate: build/tools/gen-strings locale/strings.tsv windows/generated/strings.rc "
           "cups/generated/translations.ppd src/data/generated/english_strings.cpp";
}

}  // namespace
