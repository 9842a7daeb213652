// Runs a test body once per instruction set this processor has, with the core's kernels forced to it,
// so that every comparison with a plain reference covers every kernel path.
#pragma once

#include <gtest/gtest.h>

#include "src/color/instruction_set.h"

namespace inkweave::testing {

template <typename Body>
void ForEachInstructionSet(const Body& body) {
  for (const InstructionSet set : kInstructionSets) {
    if (!detail::ForceInstructionSet(set)) continue;
    SCOPED_TRACE(InstructionSetName(set));
    body(set);
  }
  detail::ClearForcedInstructionSet();
}

}  // namespace inkweave::testing
