// Naive decoders of the two row codings, written from the wire rules alone (no code shared with the
// coders): method 2 (literals and repeats of one-, two- and four-byte units) and method 1 (PackBits).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace inkweave::reference {

// Decodes codes[0, size) into out until it holds `want` more bytes or the codes end. Answers the number
// of code bytes used, or -1 when a code is malformed, runs past the end of the codes, or would produce
// more than `want` bytes.
inline long PatternDecode(const std::uint8_t* codes, std::size_t size, std::size_t want,
                          std::vector<std::uint8_t>& out) {
  const std::size_t target = out.size() + want;
  std::size_t i = 0;
  while (i < size && out.size() < target) {
    const unsigned c = codes[i++];
    if (c < 0x80) {
      const std::size_t n = c + 1;
      if (i + n > size) return -1;
      for (std::size_t k = 0; k < n; ++k) out.push_back(codes[i + k]);
      i += n;
      continue;
    }
    const unsigned count = ((c >> 2) & 0x1F) + 1;
    unsigned unit = 0;
    switch (c & 3) {
      case 0: unit = 1; break;
      case 1: unit = 2; break;
      case 3: unit = 4; break;
      default: return -1;  // never produced
    }
    if (i + unit > size) return -1;
    for (unsigned r = 0; r < count; ++r)
      for (unsigned k = 0; k < unit; ++k) out.push_back(codes[i + k]);
    i += unit;
  }
  if (out.size() > target) return -1;
  return static_cast<long>(i);
}

// The same for PackBits: 0..127 literal of c + 1, 0x81..0xFF repeat of 1 - c (as signed), 0x80 invalid.
inline long PackBitsDecode(const std::uint8_t* codes, std::size_t size, std::size_t want,
                           std::vector<std::uint8_t>& out) {
  const std::size_t target = out.size() + want;
  std::size_t i = 0;
  while (i < size && out.size() < target) {
    const int c = static_cast<std::int8_t>(codes[i++]);
    if (c >= 0) {
      const std::size_t n = static_cast<std::size_t>(c) + 1;
      if (i + n > size) return -1;
      for (std::size_t k = 0; k < n; ++k) out.push_back(codes[i + k]);
      i += n;
    } else if (c == -128) {
      return -1;
    } else {
      if (i >= size) return -1;
      for (int r = 0; r < 1 - c; ++r) out.push_back(codes[i]);
      ++i;
    }
  }
  if (out.size() > target) return -1;
  return static_cast<long>(i);
}

}  // namespace inkweave::reference
