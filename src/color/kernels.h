// The colour stage's batch kernels, one per instruction set (instruction_set.h): the renderers convert
// the pixels of a stretch that their conversion memory cannot answer in one call.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "src/color/instruction_set.h"
#include "src/device/device_state.h"

namespace inkweave {

// A pixel as a key: red | green << 8 | blue << 16, the top byte 0.
inline constexpr std::uint32_t PixelKey(const std::uint8_t* pixel) {
  return pixel[0] | std::uint32_t{pixel[1]} << 8 | std::uint32_t{pixel[2]} << 16;
}

// The same from one 4-byte load, for a pixel whose following byte may be read too (it lies in the band).
inline std::uint32_t PixelKeyWide(const std::uint8_t* pixel) {
  if constexpr (std::endian::native != std::endian::little) return PixelKey(pixel);
  std::uint32_t v;
  std::memcpy(&v, pixel, 4);
  return v & 0xFFFFFF;
}

// What each input byte of a channel contributes to a colour pixel's cell, through the device's tone
// curve of that channel: made once per renderer call (3 KiB), so that a pixel takes three look-ups.
struct ConvertParts {
  std::uint32_t Of[3][256];
};

// Fills parts from the state's curves (nothing in monochrome or without curves, where they are not used).
void PrepareConvertParts(const DeviceState& state, ConvertParts& parts);

// Converts count pixels, given as keys, into out[i] exactly as ConvertPixel would (its packed result:
// cyan in the lowest byte), with the parts prepared from the same state.
using ConvertPreparedFn = void (*)(const std::uint32_t* keys, int count, std::uint32_t* out, const DeviceState& state,
                                   const ConvertParts& parts);

// The conversion kernel of an instruction set (the portable one for a set this build has no kernel for).
ConvertPreparedFn ConvertPreparedFor(InstructionSet set);

// The colour memory of a renderer call: the last 256 distinct colours converted, direct-mapped by a
// hash of the key. Real pages repeat colours well beyond the neighbouring pixel (text, its edges,
// flat fills, the pixel above); a colour found here is not converted again. The conversion is a pure
// function of the pixel within a call, so the memory changes nothing but the time.
// Where colours do not repeat (photographs) the look-ups only cost: after kTrial look-ups that found
// fewer than one in eight, the memory stands aside for the rest of the call.
struct ColorMemory {
  static constexpr int kEntries = 256;
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;  // no key has its top byte set
  static constexpr std::uint32_t kTrial = 2048;
  std::uint32_t Key[kEntries];
  std::uint32_t Value[kEntries];
  std::uint32_t LookUps;
  std::uint32_t Found;
};

inline void ClearColorMemory(ColorMemory& memory) {
  for (std::uint32_t& key : memory.Key) key = ColorMemory::kEmpty;
  memory.LookUps = memory.Found = 0;
}

// Converts count keys into out through the memory: the keys it holds are answered from it, the others
// converted in one call of convert(keys, count, out) and remembered.
template <class Convert>
void ConvertThroughMemory(ColorMemory& memory, const Convert& convert, const std::uint32_t* keys, int count,
                          std::uint32_t* out) {
  if (memory.LookUps >= ColorMemory::kTrial && memory.Found < memory.LookUps / 8) {
    convert(keys, count, out);
    return;
  }
  constexpr int kMost = 256;
  std::uint32_t missing[kMost];
  std::uint32_t converted[kMost];
  int slot[kMost];
  for (int done = 0; done < count; done += kMost) {
    const int n = count - done < kMost ? count - done : kMost;
    int misses = 0;
    for (int i = 0; i < n; ++i) {
      const std::uint32_t key = keys[done + i];
      const int at = static_cast<int>((key * 0x9E3779B1u) >> 24);
      if (memory.Key[at] == key) {
        out[done + i] = memory.Value[at];
      } else {
        slot[misses] = i;
        missing[misses++] = key;
      }
    }
    memory.LookUps += static_cast<std::uint32_t>(n);
    memory.Found += static_cast<std::uint32_t>(n - misses);
    if (misses == 0) continue;
    convert(missing, misses, converted);
    for (int m = 0; m < misses; ++m) {
      const int at = static_cast<int>((missing[m] * 0x9E3779B1u) >> 24);
      memory.Key[at] = missing[m];
      memory.Value[at] = converted[m];
      out[done + slot[m]] = converted[m];
    }
  }
}

}  // namespace inkweave
