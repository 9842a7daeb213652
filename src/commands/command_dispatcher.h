// The command-callback dispatcher: turns the printer description's callback ids into settings and
// into the job-start, page-start, page-end and job-end sequences.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

// Callback ids with their own handling; every other id takes the default branch.
enum CommandId : std::uint32_t {
  kCmdDither = 11,
  kCmdErrorDiffusion = 12,
  kCmdNothing = 13,
  kCmdHighResolution = 14,
  kCmdMediaPlain = 15,
  kCmdMediaInkjet = 16,
  kCmdMediaGlossy = 17,
  kCmdMediaPhoto = 18,
  kCmdPageStart = 20,
  kCmdPageEnd = 21,
  kCmdJobStart = 22,
  kCmdJobEnd = 23,
};

// Values recorded by the default branch for ids 0..19; nothing reads them.
extern const std::uint32_t CommandValueTable[20];

// Always answers 1.
int HandleCommand(DEVOBJ* devobj, std::uint32_t commandId, std::uint32_t count, IPrintOemDriverUni* driver);

}  // namespace inkweave
