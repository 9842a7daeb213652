// The device's memory list: every working buffer comes from the platform's global heap through this
// list and is freed only all at once. The state record itself comes from the local heap.
#pragma once

#include <cstdint>

#include "src/device/device_state.h"

namespace inkweave {

// A global-heap block: the link to the previous block, then the caller's payload.
struct MemoryBlock {
  MemoryBlock* Previous;
};

// Allocates size + 8 bytes from the global heap, links the block in front of the list and answers the
// payload address; null (list unchanged) when the heap refuses.
[[nodiscard]] void* AllocFromList(MemoryBlock** listHead, std::uint32_t size);

// Frees every block from the head onward, then the head cell; MemoryList becomes null.
void FreeMemoryList(DeviceState& state);

// Pass buffers that the weave of a print mode uses (flag bits ignored): 2 at levels 1 and 2, 4 at 3
// and 4, 8 at 5 and 6; 0 for a value that selects no weave.
[[nodiscard]] int PassBufferCount(std::int16_t printMode);

// The platform heaps. Fixed, zero-filled local memory for the state record; fixed global memory for
// buffers.
[[nodiscard]] void* LocalHeapAlloc(std::size_t size);
void LocalHeapFree(void* block);
[[nodiscard]] void* GlobalHeapAlloc(std::size_t size);
void GlobalHeapFree(void* block);

namespace detail {

// Test seam: make the n-th heap allocation from now fail (1 = the next one; 0 = none). Global and
// local allocations are counted separately.
void FailGlobalAllocation(std::uint32_t nth);
void FailLocalAllocation(std::uint32_t nth);
// Allocations made so far (successful ones), for tests that check nothing is allocated per band.
std::uint64_t GlobalAllocationCount();
std::uint64_t LocalAllocationCount();
// Blocks allocated and not yet freed.
std::uint64_t GlobalBlocksOutstanding();
std::uint64_t LocalBlocksOutstanding();

}  // namespace detail
}  // namespace inkweave
