// inkweave-hosttest.exe: our host driver, built for Windows, driving inkweave.dll the way the
// platform's printer driver does (LoadLibrary, GetProcAddress, the class factory and IPrintOemUni).
//
//   inkweave-hosttest <inkweave.dll> <output folder>
//
// Writes into the output folder one <job>.bin per job of the standard job list (every byte the DLL
// wrote to the spool) and report.txt, UTF-8, one fact per line:
//   probe <question> <answer>          the answers of the entry points and objects
//   job <name> <status> <bytes> <writes> <abort writes> <bands>
//   string <language> <id> <text>      every string resource, read per language
//   loadstring <id> <text>             LoadStringW in the process's UI language
//   version <major.minor.patch.build>  the file version of the version resource
// The Linux tests run the same probes and jobs through libinkweave.so and compare.
#include <cstdio>
#include <fstream>
#include <string>

#include "host/host.h"
#include "windows/hosttest/jobs.h"
#include "windows/hosttest/resources.h"

namespace {

using namespace inkweave;

// The ids read through LoadStringW.
constexpr std::uint16_t kLoadStrings[] = {257, 268, 270, 272, 1000, 1003, 1030, 1032};

std::string Join(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  const char last = folder.back();
  return folder + (last == '\\' || last == '/' ? "" : "\\") + name;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: inkweave-hosttest <inkweave.dll> <output folder>\n");
    return 2;
  }
  const std::string dll = argv[1];
  const std::string folder = argv[2];
  std::ofstream report(Join(folder, "report.txt"), std::ios::binary | std::ios::trunc);
  if (!report) {
    std::fprintf(stderr, "inkweave-hosttest: cannot write %s\n", Join(folder, "report.txt").c_str());
    return 1;
  }

  std::string error;
  std::unique_ptr<host::PluginLibrary> library = host::PluginLibrary::Open(dll, &error);
  if (!library) {
    std::fprintf(stderr, "inkweave-hosttest: %s\n", error.c_str());
    return 1;
  }

  for (const std::string& line : hosttest::ProbeObjects(library->Entry())) report << "probe " << line << "\n";

  int failures = 0;
  for (const hosttest::Job& job : hosttest::StandardJobs()) {
    const hosttest::JobResult result = hosttest::RunJob(library->Entry(), job);
    std::ofstream stream(Join(folder, job.Name + ".bin"), std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(result.Stream.data()),
                 static_cast<std::streamsize>(result.Stream.size()));
    if (!stream.good()) ++failures;
    const std::string line = hosttest::JobLine(job, result);
    report << line << "\n";
    std::printf("%s\n", line.c_str());
  }
  library.reset();

  std::vector<hosttest::StringResource> strings;
  if (!hosttest::ReadStringResources(dll, &strings, &error)) {
    std::fprintf(stderr, "inkweave-hosttest: %s\n", error.c_str());
    ++failures;
  }
  char prefix[64];
  for (const hosttest::StringResource& s : strings) {
    std::snprintf(prefix, sizeof prefix, "string %04X %u ", s.Language, s.Id);
    report << prefix << s.Text << "\n";
  }
  for (const std::uint16_t id : kLoadStrings) {
    std::snprintf(prefix, sizeof prefix, "loadstring %u ", id);
    report << prefix << hosttest::LoadStringDefault(dll, id) << "\n";
  }
  report << "version " << hosttest::ReadFileVersion(dll) << "\n";
  report.flush();
  if (!report.good()) ++failures;
  std::printf("%zu strings read\n", strings.size());
  return failures == 0 ? 0 : 1;
}
