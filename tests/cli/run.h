// Running the inkweave program from a test, scratch directories for its files, libvips started once for
// the test program, and printed streams decoded back.
#pragma once

#include <string>
#include <vector>

#include "cli/document.h"
#include "tests/support/files.h"
#include "tests/support/print_stream.h"
#include "tests/support/process.h"

namespace inkweave::cli::testing {

using RunResult = inkweave::testing::ProcessResult;
using ScratchDir = inkweave::testing::TempDir;

// Runs the inkweave program with these arguments, standard input from /dev/null.
inline RunResult RunInkweave(const std::vector<std::string>& args) {
  std::vector<std::string> argv = {INKWEAVE_CLI};
  argv.insert(argv.end(), args.begin(), args.end());
  return inkweave::testing::RunProcess(argv, std::chrono::seconds(600));
}

inline std::string Example(const std::string& name) { return std::string(INKWEAVE_SOURCE_DIR) + "/examples/" + name; }
using inkweave::testing::PrintStream;
using inkweave::testing::ReadBytes;
using inkweave::testing::WriteText;

inline void StartLibvips() {
  static VipsRuntime vips("cli_test");
  StartVips();
}

}  // namespace inkweave::cli::testing
