// Byte sequences written out in tests: Hex("1B 7C 01 00 03"), Zeros(100), and readable diffs.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace inkweave::testing {

using Bytes = std::vector<std::uint8_t>;

// Parses hexadecimal bytes separated by white space.
inline Bytes Hex(std::string_view text) {
  Bytes out;
  std::istringstream in{std::string(text)};
  for (unsigned byte = 0; in >> std::hex >> byte;) out.push_back(static_cast<std::uint8_t>(byte));
  return out;
}

inline Bytes Zeros(std::size_t n) { return Bytes(n, 0); }

inline Bytes operator+(Bytes a, const Bytes& b) {
  a.reserve(a.size() + b.size());
  for (std::uint8_t byte : b) a.push_back(byte);  // (a range insert trips a false -Warray-bounds at -O3)
  return a;
}

// Empty when equal; otherwise where and how two streams first differ.
inline std::string FirstDifference(const Bytes& actual, const Bytes& expected) {
  std::size_t i = 0;
  while (i < actual.size() && i < expected.size() && actual[i] == expected[i]) ++i;
  if (i == actual.size() && i == expected.size()) return {};
  const auto around = [from = i >= 8 ? i - 8 : 0](const Bytes& bytes) {
    std::string out;
    char hex[4];
    for (std::size_t at = from; at < bytes.size() && at < from + 24; ++at) {
      std::snprintf(hex, sizeof hex, "%02X ", bytes[at]);
      out += hex;
    }
    return out;
  };
  return "first difference at byte " + std::to_string(i) + " (sizes " + std::to_string(actual.size()) + " and " +
         std::to_string(expected.size()) + ")\n  actual:   " + around(actual) + "\n  expected: " + around(expected);
}

}  // namespace inkweave::testing
