// Buffers of megabytes that a job fills once a band or a strip (the band queue's slots, a PDF page's
// strip), kept from one band or strip to the next. Where one spans 2 MiB or more it is asked for in transparent huge
// pages, so that its first touch faults once per 2 MiB rather than once per 4 KiB (in a virtual machine a fault is
// dear). Only the whole huge pages inside the buffer are advised: exactly the bytes asked for are usable, and a read
// past the buffer is still a read past it.
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

struct LargeBuffer {
  std::unique_ptr<std::uint8_t[], FreeLargeBuffer> Bytes;
  std::size_t Size = 0;  // what Bytes holds

  std::uint8_t* Data() const { return Bytes.get(); }

  // Exactly `size` bytes, uninitialised: the buffer as it is when its size is that already, else a new
  // one (the old one freed first). Throws std::bad_alloc as new does.
  std::uint8_t* Hold(std::size_t size) {
    if (Bytes && Size == size) return Bytes.get();
    Bytes.reset();
    Size = 0;
    constexpr std::size_t kHugePage = std::size_t{2} << 20;
    const bool huge = size >= kHugePage;
    void* at = nullptr;
    if (posix_memalign(&at, huge ? kHugePage : alignof(std::max_align_t), size > 0 ? size : 1) != 0)
      throw std::bad_alloc();
    if (huge) madvise(at, size / kHugePage * kHugePage, MADV_HUGEPAGE);  // advice: refused, nothing changes
    Bytes.reset(static_cast<std::uint8_t*>(at));
    Size = size;
    return Bytes.get();
  }
};

}  // namespace inkweave::host
