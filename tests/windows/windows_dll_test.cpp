// The Windows build (./build-windows.sh → build-win/): under Wine (which finds only system DLLs),
// inkweave-hosttest.exe driving inkweave.dll gets the same answers and
// byte-identical streams as the same probes and jobs through libinkweave.so here, and reads back every
// string resource of the table in its language.
//
// Skipped, saying why, when the cross build or wine64 is missing. The build
// directory can be moved with INKWEAVE_WINDOWS_BUILD.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/sanitizers.h"
#include "windows/hosttest/jobs.h"

namespace {

namespace fs = std::filesystem;
using namespace inkweave;
using inkweave::testing::ReadBytes;
using inkweave::testing::ReadText;

fs::path WindowsBuild() {
  const char* moved = std::getenv("INKWEAVE_WINDOWS_BUILD");
  return moved && *moved ? fs::path(moved) : fs::path(INKWEAVE_SOURCE_DIR) / "build-win";
}

// The first of the programs that is there (bare names looked up in PATH); empty when none.
std::string FindProgram(const std::string& candidates) {
  const std::string script = "for p in " + candidates + "; do command -v $p && exit; done";
  const std::string found = inkweave::testing::RunProcess({"sh", "-c", script}, std::chrono::seconds(30)).Out;
  return found.substr(0, found.find('\n'));
}

// The Windows name of a local file under Wine's Z: drive.
std::string WinePath(const fs::path& path) {
  std::string name = "Z:" + fs::absolute(path).string();
  std::replace(name.begin(), name.end(), '/', '\\');
  return name;
}

TEST(WindowsDll, UnderWineAnswersAndWritesAsTheLinuxLibrary) {
#if defined(INKWEAVE_ASAN)  // slow, and nothing of the Windows side is instrumented
  GTEST_SKIP() << "the Wine comparison runs in the build without sanitizers";
#endif
  const fs::path dll = WindowsBuild() / "inkweave.dll";
  const fs::path exe = WindowsBuild() / "inkweave-hosttest.exe";
  if (!fs::exists(dll) || !fs::exists(exe))
    GTEST_SKIP() << "no Windows build at " << WindowsBuild() << ": run ./build-windows.sh";
  const std::string wine = FindProgram("wine64 /usr/lib/wine/wine64 wine");
  if (wine.empty()) GTEST_SKIP() << "wine64 not found: ./scripts/install-deps.sh windows";
  const std::string wineserver = FindProgram("wineserver64 /usr/lib/wine/wineserver64 wineserver");

  // A fresh, headless Wine prefix of our own.
  inkweave::testing::TempDir temp("wine");
  const fs::path out = temp.Path() / "out";
  fs::create_directory(out);
  // Headless: no display for Wine to open.
  const std::vector<std::string> headless = {"env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY"};
  const std::vector<std::string> env = {"WINEPREFIX=" + (temp.Path() / "prefix").string(), "WINEDEBUG=-all",
                                        "WINEDLLOVERRIDES=mscoree,mshtml=", "LC_ALL=C", "LANG=C"};
  const auto wineRun = [&](std::vector<std::string> args) {
    args.insert(args.begin(), headless.begin(), headless.end());
    const inkweave::testing::ProcessResult run = inkweave::testing::RunProcess(args, std::chrono::seconds(600), env);
    return std::pair{run.Exit, run.Out + run.Err};
  };
  const auto [booted, bootLog] = wineRun({wine, "wineboot", "--init"});
  ASSERT_EQ(booted, 0) << "wineboot --init failed:\n" << bootLog;
  const std::string log = wineRun({wine, exe, WinePath(dll), WinePath(out)}).second;
  if (!wineserver.empty()) wineRun({wineserver, "-k"});
  std::map<std::string, std::vector<std::string>> report;  // by kind: the lines ("job" lines whole), less the kind
  std::istringstream reportText(ReadText(out / "report.txt"));
  for (std::string line; std::getline(reportText, line);) {
    const std::string kind = line.substr(0, line.find(' '));
    report[kind].push_back(kind == "job" ? line : line.substr(std::min(line.size(), kind.size() + 1)));
  }
  ASSERT_FALSE(report.empty()) << "inkweave-hosttest wrote no report:\n" << log;
  const std::vector<std::string>&probes = report["probe"], &jobs = report["job"], &strings = report["string"],
        &version = report["version"];

  // The same probes and jobs through the Linux shared object.
  std::string error;
  const auto library = host::PluginLibrary::Open(INKWEAVE_PLUGIN_PATH, &error);
  ASSERT_TRUE(library) << error;
  EXPECT_EQ(probes, hosttest::ProbeObjects(library->Entry()));

  const std::vector<hosttest::Job> list = hosttest::StandardJobs();
  ASSERT_EQ(jobs.size(), list.size()) << log;
  for (std::size_t i = 0; i < list.size(); ++i) {
    SCOPED_TRACE(list[i].Name);
    const hosttest::JobResult onLinux = hosttest::RunJob(library->Entry(), list[i]);
    const std::vector<std::uint8_t> windows = ReadBytes(out / (list[i].Name + ".bin"));
    EXPECT_GT(onLinux.Stream.size(), 10000u);
    EXPECT_TRUE(windows == onLinux.Stream) << inkweave::testing::FirstDifference(windows, onLinux.Stream)
                                           << " (run ./build-windows.sh if the sources changed since)";
    EXPECT_EQ(jobs[i], hosttest::JobLine(list[i], onLinux));
  }

  // Every string resource (each language's Windows id in front: the generator's, as the checked-in
  // resource script has it) is the table's, nothing more.
  std::multiset<std::string> table, resources;
  std::istringstream tsv(ReadText(std::string(INKWEAVE_SOURCE_DIR) + "/locale/strings.tsv"));
  for (std::string line; std::getline(tsv, line);) {
    if (line.empty() || line[0] == '#' || line.rfind("lang\t", 0) == 0) continue;
    const std::size_t tab = line.find('\t'), text = line.find('\t', tab + 1) + 1;
    table.insert(std::to_string(std::stoi(line.substr(tab + 1))) + " " + line.substr(text));
  }
  for (const std::string& line : strings) resources.insert(line.substr(std::min<std::size_t>(line.size(), 5)));
  EXPECT_EQ(resources, table);

  // The version resource carries the project's version.
  EXPECT_EQ(version, std::vector<std::string>{std::string(INKWEAVE_VERSION) + ".0"});
}

}  // namespace
