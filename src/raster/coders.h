// The two row coders of the "G" records: the pattern coder (method 2, repeats of one-, two- and
// four-byte units) and PackBits (method 1), plain and mirrored. Each writes its codes to a caller's
// buffer, allocates nothing and answers the number of bytes written.
#pragma once

#include <cstdint>

namespace inkweave {

// Method 2. Writes the codes of row[0, length) to out and answers their length. The output never
// exceeds 4 / 3 of the row plus 16 bytes (a literal byte between two-byte runs is the worst case).
std::uint16_t PatternEncode(std::uint8_t* out, const std::uint8_t* row, std::uint16_t length);

// Method 1 (PackBits: literals of at most 127 bytes, repeats of 3 to 128). length holds the row length
// on entry and the code length on return; the code length is also the result. At most
// length + length / 127 + 2 bytes are written.
std::uint16_t PackBitsEncode(std::uint8_t* out, const std::uint8_t* row, std::uint16_t& length);

// Method 1 over the mirrored row (read from its last byte to its first, every byte bit-reversed),
// without building the mirrored copy.
std::uint16_t PackBitsEncodeMirrored(std::uint8_t* out, const std::uint8_t* row, std::uint16_t& length);

// A byte with its bit order reversed (bit 7 <-> bit 0 ...).
std::uint8_t ReverseBits(std::uint8_t value);

}  // namespace inkweave
