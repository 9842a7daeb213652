// Detects the instruction set once; a test may force a lesser one (never a greater one).
#include "src/color/instruction_set.h"

#include <atomic>

namespace inkweave {
namespace {

InstructionSet Detect() {
#if INKWEAVE_X86_KERNELS
  // The compiler's check covers the operating system's support for the AVX registers too.
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) return InstructionSet::kAvx2;
  if (__builtin_cpu_supports("sse4.1")) return InstructionSet::kSse41;
#endif
  return InstructionSet::kPortable;
}

constexpr int kNotForced = -1;
std::atomic<int> forced{kNotForced};

}  // namespace

InstructionSet DetectedInstructionSet() {
  static const InstructionSet detected = Detect();
  return detected;
}

InstructionSet ActiveInstructionSet() {
  const int set = forced.load(std::memory_order_relaxed);
  return set == kNotForced ? DetectedInstructionSet() : static_cast<InstructionSet>(set);
}

const char* InstructionSetName(InstructionSet set) {
  switch (set) {
    case InstructionSet::kPortable: return "portable";
    case InstructionSet::kSse41: return "SSE4.1";
    case InstructionSet::kAvx2: return "AVX2";
  }
  return "unknown";
}

bool detail::ForceInstructionSet(InstructionSet set) {
  if (static_cast<int>(set) > static_cast<int>(DetectedInstructionSet())) return false;
  forced.store(static_cast<int>(set), std::memory_order_relaxed);
  return true;
}

void detail::ClearForcedInstructionSet() { forced.store(kNotForced, std::memory_order_relaxed); }

}  // namespace inkweave
