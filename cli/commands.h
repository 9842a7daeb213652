// The subcommands of the inkweave program. Each answers the process exit code and reports problems
// as one line on stderr.
#pragma once

#include <string>

#include "cli/options.h"

namespace inkweave::cli {

// Exit codes.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;  // the job or the decode failed
inline constexpr int kExitUsage = 2;    // bad option or option value
inline constexpr int kExitInterrupted = 130;

int RunPrint(const PrintOptions& options);

struct DecodeOptions {
  std::string Stream;
  std::string Preview;  // empty: no picture
  int Page = 0;         // 0: every page
  int PreviewDpi = 100;
  bool Crop = false;   // the preview shows the printed area only, not the whole sheet
  bool Stats = false;  // per-row detail on top of the summary
  bool Json = false;
  bool Quiet = false;
};
int RunDecode(const DecodeOptions& options);
int RunDump(const std::string& stream, bool full);
int RunInfo(const std::string& plugin, bool json);

// Writes one error line: "inkweave: <message>".
void ReportError(const std::string& message);

// Set by SIGINT/SIGTERM; the band loop stops at the next band.
bool Interrupted();
void InstallInterruptHandlers();

}  // namespace inkweave::cli
