// The Windows build (./build-windows.sh → build-win/): the DLL exports exactly its two entry points
// and needs nothing beyond system DLLs; and under Wine, inkweave-hosttest.exe driving inkweave.dll
// gets the same answers and byte-identical streams as the same probes and jobs through
// libinkweave.so here, and reads back every string resource of the table in its language.
//
// Skipped, saying why, when the cross build, the MinGW objdump or wine64 is missing. The build
// directory can be moved with INKWEAVE_WINDOWS_BUILD.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "tests/support/bytes.h"
#include "tests/support/process.h"
#include "tests/support/sanitizers.h"
#include "tests/windows/strings_table.h"
#include "windows/hosttest/jobs.h"

namespace {

namespace fs = std::filesystem;
using namespace inkweave;
using inkweave::testing::ReadBytes;

fs::path WindowsBuild() {
  const char* moved = std::getenv("INKWEAVE_WINDOWS_BUILD");
  return moved && *moved ? fs::path(moved) : fs::path(INKWEAVE_SOURCE_DIR) / "build-win";
}

// The first of the candidates that exists (a bare name is looked up in PATH); empty when none.
fs::path FindProgram(std::initializer_list<const char*> candidates) {
  const char* path = std::getenv("PATH");
  for (const char* candidate : candidates) {
    const fs::path program(candidate);
    if (program.is_absolute()) {
      if (fs::exists(program)) return program;
      continue;
    }
    std::istringstream dirs(path ? path : "");
    for (std::string dir; std::getline(dirs, dir, ':');)
      if (!dir.empty() && fs::exists(fs::path(dir) / program)) return fs::path(dir) / program;
  }
  return {};
}

// A program's output (standard output and error); *status is its exit status (-1 when it did not end).
std::string RunProgram(const std::vector<std::string>& argv, int* status, const std::vector<std::string>& env = {}) {
  const inkweave::testing::ProcessResult run = inkweave::testing::RunProcess(argv, std::chrono::seconds(600), env);
  *status = run.Exit;
  return run.Out + run.Err;
}

// What objdump -p says a PE file imports and exports.
struct PeTables {
  std::set<std::string> Imports;  // DLL names, lower case
  std::set<std::string> Exports;
};

PeTables ReadPeTables(const fs::path& objdump, const fs::path& file, std::string* error) {
  PeTables tables;
  int status = 0;
  const std::string dump = RunProgram({objdump, "-p", file}, &status);
  if (status != 0) {
    *error = dump;
    return tables;
  }
  std::istringstream lines(dump);
  bool inNames = false;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t dll = line.find("DLL Name: ");
    if (dll != std::string::npos) {
      std::string name = line.substr(dll + 10);
      for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      tables.Imports.insert(name);
    }
    if (line.rfind("[Ordinal/Name Pointer] Table", 0) == 0) {
      inNames = true;
      continue;
    }
    if (inNames) {
      const std::size_t close = line.find("] ");
      if (line.empty() || close == std::string::npos) {
        inNames = false;
        continue;
      }
      tables.Exports.insert(line.substr(close + 2));
    }
  }
  return tables;
}

bool IsSystemDll(const std::string& name) {
  static const std::set<std::string> kSystem = {"kernel32.dll", "msvcrt.dll", "ucrtbase.dll", "user32.dll"};
  return kSystem.count(name) == 1 || name.rfind("api-ms-win-crt-", 0) == 0;
}

TEST(WindowsDll, ExportsTwoEntryPointsAndNeedsOnlySystemDlls) {
  const fs::path dll = WindowsBuild() / "inkweave.dll";
  const fs::path exe = WindowsBuild() / "inkweave-hosttest.exe";
  if (!fs::exists(dll)) GTEST_SKIP() << "no Windows build at " << dll << ": run ./build-windows.sh";
  const fs::path objdump = FindProgram({"x86_64-w64-mingw32-objdump"});
  if (objdump.empty()) GTEST_SKIP() << "x86_64-w64-mingw32-objdump not found: ./scripts/install-deps.sh windows";

  std::string error;
  const PeTables tables = ReadPeTables(objdump, dll, &error);
  ASSERT_TRUE(error.empty()) << error;
  EXPECT_EQ(tables.Exports, (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject"}));
  EXPECT_TRUE(tables.Imports.count("kernel32.dll"));
  for (const std::string& name : tables.Imports) {
    EXPECT_TRUE(IsSystemDll(name) && name != "user32.dll") << "inkweave.dll needs " << name;
  }

  // The host test program is as self-contained (it also reads strings through USER32).
  if (fs::exists(exe)) {
    const PeTables program = ReadPeTables(objdump, exe, &error);
    for (const std::string& name : program.Imports) EXPECT_TRUE(IsSystemDll(name)) << "the host test needs " << name;
  }
}

TEST(WindowsDll, DriverPackageHoldsTheCurrentFiles) {
  const fs::path package = WindowsBuild() / "driver";
  if (!fs::exists(package)) GTEST_SKIP() << "no Windows build at " << WindowsBuild() << ": run ./build-windows.sh";
  const fs::path sources = fs::path(INKWEAVE_SOURCE_DIR) / "windows" / "driver";
  for (const char* file : {"inkweave.gpd", "inkweave.ini"})
    EXPECT_TRUE(ReadBytes(package / file) == ReadBytes(sources / file)) << file << ": run ./build-windows.sh";
  // The INF as the build writes it: the template with the project's version in DriverVer.
  std::vector<std::uint8_t> inf = ReadBytes(sources / "inkweave.inf.in");
  std::string text(inf.begin(), inf.end());
  const std::string placeholder = "@PROJECT_VERSION@";
  ASSERT_NE(text.find(placeholder), std::string::npos);
  text.replace(text.find(placeholder), placeholder.size(), INKWEAVE_VERSION);
  EXPECT_TRUE(ReadBytes(package / "inkweave.inf") == std::vector<std::uint8_t>(text.begin(), text.end()))
      << "inkweave.inf: run ./build-windows.sh";
  EXPECT_TRUE(ReadBytes(package / "inkweave.dll") == ReadBytes(WindowsBuild() / "inkweave.dll"));
}

// The Windows name of a local file under Wine's Z: drive.
std::string WinePath(const fs::path& path) {
  std::string name = "Z:" + fs::absolute(path).string();
  for (char& c : name)
    if (c == '/') c = '\\';
  return name;
}

// Under the sanitizers (slow, and nothing of the Windows side is instrumented) the comparison is left
// to the plain build.
#if defined(INKWEAVE_ASAN)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

TEST(WindowsDll, UnderWineAnswersAndWritesAsTheLinuxLibrary) {
  if (kSanitized) GTEST_SKIP() << "the Wine comparison runs in the build without sanitizers";
  const fs::path dll = WindowsBuild() / "inkweave.dll";
  const fs::path exe = WindowsBuild() / "inkweave-hosttest.exe";
  if (!fs::exists(dll) || !fs::exists(exe))
    GTEST_SKIP() << "no Windows build at " << WindowsBuild() << ": run ./build-windows.sh";
  const fs::path wine = FindProgram({"wine64", "/usr/lib/wine/wine64", "wine"});
  if (wine.empty()) GTEST_SKIP() << "wine64 not found: ./scripts/install-deps.sh windows";
  const fs::path wineserver = FindProgram({"wineserver64", "/usr/lib/wine/wineserver64", "wineserver"});

  // A fresh, headless Wine prefix of our own.
  inkweave::testing::TempDir temp("wine");
  ASSERT_FALSE(temp.Path().empty());
  const fs::path out = temp.Path() / "out";
  fs::create_directory(out);
  // Headless: no display for Wine to open.
  const std::vector<std::string> headless = {"env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY"};
  const std::vector<std::string> env = {"WINEPREFIX=" + (temp.Path() / "prefix").string(), "WINEDEBUG=-all",
                                        "WINEDLLOVERRIDES=mscoree,mshtml=", "LC_ALL=C", "LANG=C"};
  const auto wineRun = [&](std::vector<std::string> args, int* status) {
    args.insert(args.begin(), headless.begin(), headless.end());
    return RunProgram(args, status, env);
  };
  int status = 0;
  const auto start = std::chrono::steady_clock::now();
  std::string log = wineRun({wine, "wineboot", "--init"}, &status);
  const auto booted = std::chrono::steady_clock::now();
  ASSERT_EQ(status, 0) << "wineboot --init failed:\n" << log;
  log = wineRun({wine, exe, WinePath(dll), WinePath(out)}, &status);
  const auto ran = std::chrono::steady_clock::now();
  if (!wineserver.empty()) wineRun({wineserver, "-k"}, &status);
  using seconds = std::chrono::duration<double>;
  std::cout << "wineboot --init " << seconds(booted - start).count() << " s, inkweave-hosttest "
            << seconds(ran - booted).count() << " s\n";
  std::vector<std::string> report;
  std::istringstream reportText(inkweave::testing::ReadText(out / "report.txt"));
  for (std::string line; std::getline(reportText, line);) report.push_back(line);
  ASSERT_FALSE(report.empty()) << "inkweave-hosttest wrote no report:\n" << log;

  std::vector<std::string> probes, jobs, strings, loaded, version;
  for (const std::string& line : report) {
    const std::size_t space = line.find(' ');
    const std::string kind = line.substr(0, space), rest = line.substr(space + 1);
    if (kind == "probe") probes.push_back(rest);
    if (kind == "job") jobs.push_back(line);
    if (kind == "string") strings.push_back(rest);
    if (kind == "loadstring") loaded.push_back(rest);
    if (kind == "version") version.push_back(rest);
  }

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

  // Every string resource, in its language, is the table's; nothing more.
  std::vector<std::string> expected;
  const auto table = inkweave::testing::ReadStringsTable(std::string(INKWEAVE_SOURCE_DIR) + "/locale/strings.tsv");
  std::map<std::pair<std::uint16_t, int>, std::string> ordered;
  for (const auto& [key, text] : table)
    ordered[{inkweave::testing::WindowsLanguageIds().at(key.first), key.second}] = text;
  char prefix[32];
  for (const auto& [key, text] : ordered) {
    std::snprintf(prefix, sizeof prefix, "%04X %d ", key.first, key.second);
    expected.push_back(prefix + text);
  }
  EXPECT_EQ(strings.size(), 22u * 23u + 2u * 19u);
  EXPECT_EQ(strings, expected);

  // The version resource carries the project's version.
  EXPECT_EQ(version, std::vector<std::string>{std::string(INKWEAVE_VERSION) + ".0"});

  // LoadStringW in Wine's English (C locale) answers the English texts.
  ASSERT_FALSE(loaded.empty());
  for (const std::string& line : loaded) {
    const std::size_t space = line.find(' ');
    EXPECT_EQ(line.substr(space + 1), table.at({"en", std::stoi(line.substr(0, space))})) << line;
  }
}

}  // namespace
