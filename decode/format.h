// Wire-format constants and small helpers shared by the decoder's files (not by the core).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>

namespace inkweave::decode {

// Command bytes.
inline constexpr std::uint8_t kEscape = 0x1B;
inline constexpr std::uint8_t kFormFeed = 0x0C;
inline constexpr std::uint8_t kRecord = 0x47;  // "G"
inline constexpr std::uint8_t kBlank = 0x5A;   // "Z"
inline constexpr std::uint8_t kFeed = 0x46;    // "F"
inline constexpr std::uint8_t kInk = 0x49;     // "I"
inline constexpr std::array<std::uint8_t, 5> kEnterRaster = {0x1B, 0x7C, 0x01, 0x00, 0x03};

// Compression codes of "M".
inline constexpr int kPatternCoder = 0x05;
inline constexpr int kPackBits = 0x02;
inline constexpr int kNoCompression = 0x00;

// Planes of a colour head row in wire order: black, yellow, cyan, magenta.
inline constexpr std::array<int, 4> kColorPlaneOrder = {3, 2, 0, 1};

// The feed unit is 1/400 inch.
inline constexpr int kFeedUnitsPerInch = 400;

inline std::string Hex(unsigned value) {
  static const char digits[] = "0123456789ABCDEF";
  std::string text;
  text += digits[(value >> 4) & 0xF];
  text += digits[value & 0xF];
  return text;
}

inline bool IsColorInk(int code) { return code == 0x10 || code == 0x31; }
inline int InkBits(int code) { return code == 0x30 || code == 0x31 ? 2 : 1; }

// The weave mode of a page printed at `dpi` (1 at 150, 2 at 300, 4 at 600, 6 in the high-resolution
// mode), or 3 and 5 when the caller asks for them at 300 and 600 dpi; else the reason there is none.
inline std::variant<int, std::string> ResolveMode(int dpi, int wanted) {
  int natural = 0;
  switch (dpi) {
    case 150: natural = 1; break;
    case 300: natural = 2; break;
    case 600: natural = 4; break;
    case 1200: natural = 6; break;
    default: return std::string("page has no resolution command before it");
  }
  if (wanted == 0 || wanted == natural) return natural;
  if ((wanted == 3 && natural == 2) || (wanted == 5 && natural == 4)) return wanted;
  return "weave mode " + std::to_string(wanted) + " cannot print a page at " + std::to_string(dpi) + " dpi";
}

}  // namespace inkweave::decode
