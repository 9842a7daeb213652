// The instruction sets the core's kernels are built for, and the one in use. The library is built for
// the baseline of its target (x86-64: SSE2), with the SSE4.1 and AVX2 kernels compiled per function
// for their instruction set; the first call picks the best one the processor and the operating system
// run. Other processors, and compilers without target attributes, use the portable kernels only.
// Every path gives the same bytes: the kernels are pinned to the portable ones by the tests.
#pragma once

#include <cstdint>

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
#define INKWEAVE_X86_KERNELS 1
// A function compiled for one instruction set; it may only run once that set was chosen.
#define INKWEAVE_TARGET_SSE41 __attribute__((target("sse4.1")))
#define INKWEAVE_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define INKWEAVE_X86_KERNELS 0
#endif

namespace inkweave {

enum class InstructionSet : std::uint8_t {
  kPortable = 0,  // standard C++ only
  kSse41 = 1,     // x86-64 with SSE4.1
  kAvx2 = 2,      // x86-64 with AVX2 (and the operating system saving its registers)
};

inline constexpr InstructionSet kInstructionSets[] = {InstructionSet::kPortable, InstructionSet::kSse41,
                                                      InstructionSet::kAvx2};

// The best instruction set this processor runs with kernels for it.
InstructionSet DetectedInstructionSet();

// The instruction set the kernels use now: the detected one unless a test forced another.
InstructionSet ActiveInstructionSet();

const char* InstructionSetName(InstructionSet set);

namespace detail {

// Test seam: the kernels use `set` from now on. Answers false (and changes nothing) when the processor
// does not run it.
bool ForceInstructionSet(InstructionSet set);

// Back to the detected instruction set.
void ClearForcedInstructionSet();

}  // namespace detail
}  // namespace inkweave
