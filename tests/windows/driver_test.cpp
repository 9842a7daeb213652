// The driver package (windows/driver/): the printer description wires every callback the plug-in's
// command handler knows, each selection from its option, in an order the job start can rely on; names
// every string id of the plug-in's table and no other; keeps printable lines within a dot plane; and the
// INF copies exactly the package's files.
#include <gtest/gtest.h>

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

// "JOB_SETUP.12" → 12, within the section.
int OrderIn(const std::string& order, const std::string& section) {
  EXPECT_EQ(order.rfind(section + ".", 0), 0u) << order;
  return order.size() > section.size() ? std::stoi(order.substr(section.size() + 1)) : -1;
}

TEST(Gpd, WiresEveryCallbackNamesEveryStringAndFitsTheHead) {
  std::string error;
  const std::vector<Statement> statements = ParseGpd(inkweave::testing::ReadText(kDriver + "inkweave.gpd"), &error);
  ASSERT_TRUE(error.empty()) << error;

  // Each callback: where it stands and when it is sent.
  struct Callback {
    std::string Feature, Command, Order;
  };
  std::map<int, std::vector<Callback>> callbacks;
  std::map<std::string, std::vector<int>> byFeature;  // the callbacks of a feature's options, in order
  std::set<int> named;
  std::string resourceDll;
  for (const Statement& s : statements) {
    if (s.Key == "*ResourceDLL") resourceDll = s.Value;
    if (s.Key == "*rcNameID" && !s.Value.empty() && s.Value[0] != '=') named.insert(std::stoi(s.Value));
    if (s.Key == "*PrintableArea") {  // no line wider than a dot plane holds at 600 dpi (10240 master units)
      const int width = std::stoi(s.Value.substr(s.Value.find('(') + 1));
      EXPECT_LE(width, 10240) << BlockOf(s, "*Option:");
      EXPECT_EQ(width % 8, 0) << BlockOf(s, "*Option:");  // whole pixels at 150 dpi
    }
    if (s.Key != "*CallbackID") continue;
    Callback c{BlockOf(s, "*Feature:"), BlockOf(s, "*Command:"), {}};
    for (const Statement& o : statements)
      if (o.Key == "*Order" && o.Blocks == s.Blocks) c.Order = o.Value;
    callbacks[std::stoi(s.Value)].push_back(c);
    if (!c.Feature.empty()) byFeature[c.Feature].push_back(std::stoi(s.Value));
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
}

// Every file the INF copies has a source disk and is in the package (the DLL comes from the build).
TEST(DriverPackage, InfCopiesThePackagesFiles) {
  const std::string inf = inkweave::testing::ReadText(kDriver + "inkweave.inf.in");
  const std::size_t files = inf.find("[INKWEAVE_FILES]");
  ASSERT_NE(files, std::string::npos);
  std::istringstream section(inf.substr(files + 17, inf.find("\n[", files) - files - 17));
  std::set<std::string> copied;
  for (std::string line; std::getline(section, line);)
    if (!Trim(line).empty()) copied.insert(Trim(line));
  EXPECT_EQ(copied, (std::set<std::string>{"inkweave.gpd", "inkweave.ini", "inkweave.dll"}));
  for (const std::string& file : copied) {
    EXPECT_NE(inf.find(file + "=1"), std::string::npos) << file;
  }
  EXPECT_NE(inkweave::testing::ReadText(kDriver + "inkweave.ini").find("[OEMFiles]\nOEMDriverFile1=inkweave.dll\n"),
            std::string::npos);
}

}  // namespace
