// The command-callback dispatcher: turns the printer description's callback ids into settings and
// into the job-start, page-start, page-end and job-end sequences.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

// Callback ids with their own handling; every other id (13 among them) does nothing.
enum CommandId : std::uint32_t {
  kCmdDither = 11,
  kCmdErrorDiffusion = 12,
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

// Acts on one callback id. It cannot fail: unknown ids do nothing, and a failed write is recorded in
// WriteFailed by the write path.
void HandleCommand(DEVOBJ* devobj, std::uint32_t commandId, std::uint32_t count, IPrintOemDriverUni* driver);

}  // namespace inkweave
