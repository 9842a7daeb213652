// The memory list and the platform heaps behind it.
#include "src/device/memory_list.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "src/data/weave_tables.h"

namespace inkweave {
namespace {

struct HeapSeam {
  std::atomic<std::uint32_t> failIn{0};  // allocations until the one that fails; 0 = never
  std::atomic<std::uint64_t> count{0};
  std::atomic<std::uint64_t> freed{0};
};
HeapSeam globalSeam;
HeapSeam localSeam;

// Counts the allocation against the seam; answers false when this one is to fail.
bool PassesSeam(HeapSeam& seam) {
  std::uint32_t left = seam.failIn.load();
  if (left != 0) {
    seam.failIn.store(left - 1);
    if (left == 1) return false;
  }
  seam.count.fetch_add(1);
  return true;
}

}  // namespace

void* LocalHeapAlloc(std::size_t size) {
  if (!PassesSeam(localSeam)) return nullptr;
#if defined(_WIN32)
  return LocalAlloc(LMEM_FIXED | LMEM_ZEROINIT, size);
#else
  return std::calloc(1, size);
#endif
}

void LocalHeapFree(void* block) {
  if (block) localSeam.freed.fetch_add(1);
#if defined(_WIN32)
  LocalFree(block);
#else
  std::free(block);
#endif
}

void* GlobalHeapAlloc(std::size_t size) {
  if (!PassesSeam(globalSeam)) return nullptr;
#if defined(_WIN32)
  return GlobalAlloc(GMEM_FIXED, size);
#else
  return std::malloc(size);
#endif
}

void GlobalHeapFree(void* block) {
  if (block) globalSeam.freed.fetch_add(1);
#if defined(_WIN32)
  GlobalFree(block);
#else
  std::free(block);
#endif
}

void* AllocFromList(MemoryBlock** listHead, std::uint32_t size) {
  auto* block = static_cast<MemoryBlock*>(GlobalHeapAlloc(std::size_t{size} + sizeof(MemoryBlock)));
  if (!block) return nullptr;
  block->Previous = *listHead;
  *listHead = block;
  return block + 1;
}

void FreeMemoryList(DeviceState& state) {
  if (state.MemoryList) {
    MemoryBlock* block = *state.MemoryList;
    while (block) {
      MemoryBlock* previous = block->Previous;
      GlobalHeapFree(block);
      block = previous;
    }
    GlobalHeapFree(state.MemoryList);
  }
  state.MemoryList = nullptr;
}

int PassBufferCount(std::int16_t printMode) {
  if (printMode < 0 || printMode > 0xFF) return 0;
  const int level = WeaveLevelOf(static_cast<std::uint8_t>(printMode));
  return level ? kWeaveModeTable[level].PassBuffers : 0;
}

namespace detail {
void FailGlobalAllocation(std::uint32_t nth) { globalSeam.failIn.store(nth); }
void FailLocalAllocation(std::uint32_t nth) { localSeam.failIn.store(nth); }
std::uint64_t GlobalAllocationCount() { return globalSeam.count.load(); }
std::uint64_t LocalAllocationCount() { return localSeam.count.load(); }
std::uint64_t GlobalBlocksOutstanding() { return globalSeam.count.load() - globalSeam.freed.load(); }
std::uint64_t LocalBlocksOutstanding() { return localSeam.count.load() - localSeam.freed.load(); }
}  // namespace detail

}  // namespace inkweave
