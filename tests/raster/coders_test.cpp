// The row coders: the rows pages never reach written out byte for byte, and round trips through the
// printer model's decoders on random and structured rows of every even length, within the record block.
#include <gtest/gtest.h>

#include <random>

#include "decode/decoder.h"
#include "src/raster/coders.h"
#include "tests/support/bytes.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::FirstDifference;
using testing::Hex;
using testing::operator+;

Bytes Pattern(const Bytes& row) {
  Bytes out(2 * row.size() + 16);
  out.resize(PatternEncode(out.data(), row.data(), static_cast<std::uint16_t>(row.size())));
  return out;
}

Bytes PackBits(const Bytes& row) {
  Bytes out(2 * row.size() + 16);
  std::uint16_t length = static_cast<std::uint16_t>(row.size());
  const std::uint16_t result = PackBitsEncode(out.data(), row.data(), length);
  EXPECT_EQ(result, length);
  out.resize(length);
  return out;
}

Bytes PackBitsMirrored(const Bytes& row) {
  Bytes out(2 * row.size() + 16);
  std::uint16_t length = static_cast<std::uint16_t>(row.size());
  out.resize(PackBitsEncodeMirrored(out.data(), row.data(), length));
  return out;
}

Bytes Repeat(const Bytes& unit, std::size_t times) {
  Bytes out;
  for (std::size_t i = 0; i < times; ++i) out.insert(out.end(), unit.begin(), unit.end());
  return out;
}

Bytes Counting(int from, int count) {
  Bytes out;
  for (int i = 0; i < count; ++i) out.push_back(static_cast<std::uint8_t>(from + i));
  return out;
}

#define EXPECT_BYTES(actual, expected) EXPECT_EQ(FirstDifference(actual, expected), "")

Bytes BlankFullWidthCodes() {
  Bytes codes;
  for (int i = 0; i < 9; ++i) codes = codes + Hex("FF 00 00 00 00");
  return codes + Hex("FD 00 00  FC 00  EC 00  8C 00");  // 54 bytes for 1,280 blank bytes
}

// The rows printed pages never code (full-width and long unit runs, odd lengths) and the rows of the
// two settled readings; the whole-stream suite pins the codes of the rows pages print.
TEST(PatternEncode, WorkedRows) {
  const struct {
    const char* what;
    Bytes row, codes;
  } cases[] = {
      {"a blank full-width row", Bytes(1280, 0), BlankFullWidthCodes()},
      // 89 groups = 178 units: two 64-unit codes, one of 32, then 18.
      {"a long two-byte unit run", Repeat(Hex("12 34"), 180),
       Hex("FF 12 34 12 34  FF 12 34 12 34  FD 12 34  C5 12 34  03 12 34 12 34")},
      // 40 groups counted: 32 + 8, then the last group at byte level.
      {"a four-byte unit run", Repeat(Hex("01 02 03 04"), 41), Hex("FF 01 02 03 04  9F 01 02 03 04  03 01 02 03 04")},
      {"a one-byte run used up exactly has no closing code", Bytes(36, 0), Hex("FC 00 8C 00")},
      {"a two-byte unit run used up exactly", Bytes(68, 0x55), Hex("FD 55 55 8C 55")},
      {"a four-byte unit run used up exactly", Bytes(132, 0xAA), Hex("FF AA AA AA AA 8C AA")},
      {"a stretch stops where only eight bytes remain", Counting(1, 20),
       Hex("0B") + Counting(1, 12) + Hex("07") + Counting(13, 8)},
      {"groups are compared with their direct neighbour only", Repeat(Counting(1, 8), 2),
       Hex("07") + Counting(1, 8) + Hex("07") + Counting(1, 8)},
      // A last byte of its own is coded as a one-byte literal.
      {"a single byte", Hex("5A"), Hex("00 5A")},
      {"an odd length", Bytes(9, 0), Hex("9C 00  00 00")},
      {"an empty row", Bytes{}, Bytes{}},
  };
  for (const auto& c : cases) EXPECT_BYTES(Pattern(c.row), c.codes) << c.what;
}

// No page is coded in PackBits: its literal and run limits and the closing pair that stays literal.
TEST(PackBitsEncode, WorkedRows) {
  const struct {
    Bytes row, codes;
  } cases[] = {
      {Bytes{}, Hex("FF")},
      {Hex("33 33"), Hex("01 33 33")},
      {Hex("AA AA AA BB"), Hex("FE AA  00 BB")},
      {Hex("01 02 03 03"), Hex("03 01 02 03 03")},
      {Counting(0, 130), Hex("7E") + Counting(0, 127) + Hex("02") + Counting(127, 3)},
      {Counting(0, 128), Hex("7D") + Counting(0, 126) + Hex("01") + Counting(126, 2)},
      {Bytes(129, 7), Hex("81 07  00 07")},
      {Bytes(131, 7), Hex("81 07  FE 07")},
  };
  for (const auto& c : cases) EXPECT_BYTES(PackBits(c.row), c.codes) << "row of " << c.row.size();
}

// Rows of the kinds a halftoned page has: blank (kind 0), stretches of one byte, two- and four-byte
// units and noise, short (kind 1), long (kind 2) or across the whole row (kind 3); and the worst pattern
// input, one-byte literals between two-byte runs (kind 4), and noise of three values (kind 5).
Bytes MakeRow(std::mt19937& random, int kind, std::size_t length) {
  Bytes row(length, 0);
  auto next = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  for (std::size_t i = 0; kind > 0 && kind < 4 && i < length;) {
    const std::size_t n = kind == 3 ? length : std::min(length - i, 1 + next(kind == 1 ? 12 : 200));
    const std::size_t how = next(4);
    const std::uint8_t a = next(3) == 0 ? 0 : static_cast<std::uint8_t>(random());
    const std::uint8_t c = static_cast<std::uint8_t>(random());
    for (std::size_t k = 0; k < n; ++k)
      row[i + k] = how == 0   ? a
                   : how == 1 ? (k % 2 ? c : a)
                   : how == 2 ? static_cast<std::uint8_t>(random())
                              : (k % 4 == 3 ? c : a);
    i += n;
  }
  for (std::size_t i = 0; kind >= 4 && i < length; ++i)
    row[i] = static_cast<std::uint8_t>(kind == 4 ? 2 * (i / 3) + (i % 3 == 0 ? 1 : 0) : random() % 3);
  return row;
}

// Every row through the printer model's own decoders, which share no code with the coders, within the
// bounds the record block is sized for (4/3 n + 16 and n + n / 127 + 2); the worst pattern input comes
// close to its bound. The mirrored PackBits coder codes the mirrored row.
TEST(RowCoders, RoundTripEveryEvenLengthWithinTheRecordBlock) {
  std::mt19937 random(20240611);
  for (std::size_t length = 2; length <= 1280; length += 2) {
    for (int kind = 0; kind < 6; ++kind) {
      const Bytes row = MakeRow(random, kind, length);
      const Bytes pattern = Pattern(row), packbits = PackBits(row);
      ASSERT_LE(pattern.size(), length * 4 / 3 + 16) << "length " << length << " kind " << kind;
      ASSERT_LE(packbits.size(), length + length / 127 + 2) << "length " << length << " kind " << kind;
      if (kind == 4 && length == 1280) {
        EXPECT_GE(pattern.size() * 1000 / length, 1300u);
      }
      const auto unpattern = decode::DecodePattern(pattern, length);
      ASSERT_TRUE(std::holds_alternative<Bytes>(unpattern)) << std::get<decode::Error>(unpattern).Message;
      ASSERT_EQ(std::get<Bytes>(unpattern), row) << "pattern, length " << length << " kind " << kind;
      const auto unpacked = decode::DecodePackBits(packbits, length);
      ASSERT_TRUE(std::holds_alternative<Bytes>(unpacked)) << std::get<decode::Error>(unpacked).Message;
      ASSERT_EQ(std::get<Bytes>(unpacked), row) << "packbits, length " << length << " kind " << kind;
      Bytes mirrored(row.rbegin(), row.rend());
      for (auto& b : mirrored) b = ReverseBits(b);
      ASSERT_EQ(FirstDifference(PackBitsMirrored(row), PackBits(mirrored)), "") << "length " << length;
    }
  }
}

}  // namespace
}  // namespace inkweave
