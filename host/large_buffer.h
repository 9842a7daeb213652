// Buffers of megabytes that a job fills once a band or a strip (the band queue's slots, a PDF page's
// strip). Where one spans 2 MiB or more it is asked for in transparent huge pages, so that its first
// touch faults once per 2 MiB rather than once per 4 KiB (in a virtual machine a fault is dear). Only
// the whole huge pages inside the buffer are advised: exactly the bytes asked for are usable, and a
// read past the buffer is still a read past it.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

namespace inkweave::host {

struct FreeLargeBuffer {
  void operator()(std::uint8_t* bytes) const { std::free(bytes); }
};
using LargeBuffer = std::unique_ptr<std::uint8_t[], FreeLargeBuffer>;

// Uninitialised; throws std::bad_alloc as new does.
inline LargeBuffer AllocateLargeBuffer(std::size_t bytes) {
  constexpr std::size_t kHugePage = std::size_t{2} << 20;
  const bool huge = bytes >= kHugePage;
  void* at = nullptr;
  if (posix_memalign(&at, huge ? kHugePage : alignof(std::max_align_t), bytes > 0 ? bytes : 1) != 0)
    throw std::bad_alloc();
  if (huge) madvise(at, bytes / kHugePage * kHugePage, MADV_HUGEPAGE);  // advice: refused, nothing changes
  return LargeBuffer(static_cast<std::uint8_t*>(at));
}

}  // namespace inkweave::host
