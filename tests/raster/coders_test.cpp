// The row coders: the worked rows written out byte for byte, the limits of both codings, and round
// trips through naive decoders on random and structured rows of every even length.
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

TEST(PatternEncode, WorkedRows) {
  const struct {
    const char* what;
    Bytes row, codes;
  } cases[] = {
      {"a group run never takes the last four bytes", Bytes(16, 0), Hex("AC 00 8C 00")},
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
      {"byte-level runs and literals", Hex("01 02 02 03 04 04 04 05"), Hex("00 01  84 02  00 03  88 04  00 05")},
      {"runs do not reach across stretches", Hex("01 02 03 07") + Bytes(12, 0x07) + Hex("09 0A 0B 0C"),
       Hex("03 01 02 03 07  AC 07  03 09 0A 0B 0C")},
      // Rows are of even length; a last byte of its own is coded as a one-byte literal.
      {"a single byte", Hex("5A"), Hex("00 5A")},
      {"an odd length", Bytes(9, 0), Hex("9C 00  00 00")},
      {"an empty row", Bytes{}, Bytes{}},
  };
  for (const auto& c : cases) EXPECT_BYTES(Pattern(c.row), c.codes) << c.what;

  // A B A B over a long row: never a repeat code.
  const Bytes longAbab = Pattern(Repeat(Counting(1, 8), 40));
  for (std::size_t i = 0; i < longAbab.size(); i += longAbab[i] + 2u) ASSERT_LT(longAbab[i], 0x80) << "at " << i;
  // Long literals split at 128: 292 bytes in three literals, then the last 8 in one.
  Bytes row;
  for (int i = 0; i < 300; ++i) row.push_back(static_cast<std::uint8_t>(i * 7 + (i >> 8)));
  const Bytes codes = Pattern(row);
  ASSERT_EQ(codes.size(), 300u + 4u);
  EXPECT_EQ(codes[0], 0x7F);
  EXPECT_EQ(codes[129], 0x7F);
}

TEST(PackBitsEncode, WorkedRows) {
  const struct {
    Bytes row, codes;
  } cases[] = {
      {Hex("33 33 33"), Hex("FE 33")},
      {Hex("33 33"), Hex("01 33 33")},
      {Hex("33"), Hex("00 33")},
      {Bytes{}, Hex("FF")},
      // Literals hold at most 127 bytes.
      {Counting(0, 130), Hex("7E") + Counting(0, 127) + Hex("02") + Counting(127, 3)},
      {Counting(0, 129), Hex("7E") + Counting(0, 127) + Hex("01") + Counting(127, 2)},
      {Counting(0, 128), Hex("7D") + Counting(0, 126) + Hex("01") + Counting(126, 2)},
      // Runs and their ends: a closing pair stays literal.
      {Hex("AA AA AA BB"), Hex("FE AA  00 BB")},
      {Hex("01 02 03 03"), Hex("03 01 02 03 03")},
      {Hex("01 02 02 02 03 04"), Hex("00 01  FE 02  01 03 04")},
      {Bytes(128, 7), Hex("81 07")},
      {Bytes(129, 7), Hex("81 07  00 07")},
      {Bytes(130, 7), Hex("81 07  01 07 07")},
      {Bytes(131, 7), Hex("81 07  FE 07")},
  };
  for (const auto& c : cases) EXPECT_BYTES(PackBits(c.row), c.codes) << "row of " << c.row.size();
}

TEST(PackBitsEncode, MirroredCodesTheMirroredRow) {
  std::mt19937 random(7);
  for (int length : {1, 2, 3, 17, 128, 640, 1280}) {
    Bytes row(static_cast<std::size_t>(length));
    for (auto& b : row) b = static_cast<std::uint8_t>(random() % 4 == 0 ? 0 : random() % 3);
    Bytes mirrored(row.rbegin(), row.rend());
    for (auto& b : mirrored) b = ReverseBits(b);
    EXPECT_BYTES(PackBitsMirrored(row), PackBits(mirrored)) << "length " << length;
  }
  EXPECT_EQ(ReverseBits(0x01), 0x80);
  EXPECT_EQ(ReverseBits(0xC2), 0x43);
}

// Rows of the kinds a halftoned page has: blank, solid, runs, repeated units, noise and mixtures.
Bytes MakeRow(std::mt19937& random, int kind, std::size_t length) {
  Bytes row(length, 0);
  auto next = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  switch (kind) {
    case 0: break;
    case 1: std::fill(row.begin(), row.end(), 0xFF); break;
    case 2:
      for (auto& b : row) b = static_cast<std::uint8_t>(random());
      break;
    case 3: {
      const std::uint8_t a = static_cast<std::uint8_t>(random()), c = static_cast<std::uint8_t>(random());
      for (std::size_t i = 0; i < length; ++i) row[i] = i % 2 ? c : a;
      break;
    }
    case 4: {
      std::uint8_t unit[4];
      for (auto& b : unit) b = static_cast<std::uint8_t>(random());
      for (std::size_t i = 0; i < length; ++i) row[i] = unit[i % 4];
      break;
    }
    default:
      // Stretches of runs, units and noise at random offsets.
      for (std::size_t i = 0; i < length;) {
        const std::size_t n = std::min<std::size_t>(length - i, 1 + next(kind == 5 ? 12 : 200));
        const int how = next(4);
        const std::uint8_t a = static_cast<std::uint8_t>(next(3) == 0 ? 0 : random());
        const std::uint8_t c = static_cast<std::uint8_t>(random());
        for (std::size_t k = 0; k < n; ++k)
          row[i + k] = how == 0   ? a
                       : how == 1 ? (k % 2 ? c : a)
                       : how == 2 ? static_cast<std::uint8_t>(random())
                                  : (k % 4 == 3 ? c : a);
        i += n;
      }
  }
  return row;
}

TEST(RowCoders, RoundTripEveryEvenLength) {
  std::mt19937 random(20240611);
  for (std::size_t length = 2; length <= 1280; length += 2) {
    for (int kind = 0; kind < 7; ++kind) {
      const Bytes row = MakeRow(random, kind, length);
      // Through the printer model's own decoders, which share no code with the coders.
      const auto pattern = decode::DecodePattern(Pattern(row), length);
      ASSERT_TRUE(std::holds_alternative<Bytes>(pattern)) << std::get<decode::Error>(pattern).Message;
      ASSERT_EQ(std::get<Bytes>(pattern), row) << "pattern, length " << length << " kind " << kind;
      const auto packbits = decode::DecodePackBits(PackBits(row), length);
      ASSERT_TRUE(std::holds_alternative<Bytes>(packbits)) << std::get<decode::Error>(packbits).Message;
      ASSERT_EQ(std::get<Bytes>(packbits), row) << "packbits, length " << length << " kind " << kind;
    }
  }
}

TEST(RowCoders, OutputStaysWithinTheRecordBlock) {
  // The worst pattern input alternates one-byte literals with two-byte runs; both coders must stay within
  // the bounds the record block is sized for (4/3 n + 16 and n + n / 127 + 2).
  std::mt19937 random(99);
  std::size_t worstPattern = 0;
  for (int trial = 0; trial < 400; ++trial) {
    const std::size_t length = trial < 200 ? 1280 : 1800;
    Bytes row(length);
    for (std::size_t i = 0; i < length; ++i) {
      const int shape = trial % 4;
      const std::size_t k = i / 3;  // shape 0: x0 y0 y0 x1 y1 y1 ...
      row[i] = shape == 0 ? static_cast<std::uint8_t>(2 * k + (i % 3 == 0 ? 1 : 0))
                          : static_cast<std::uint8_t>(random() % (shape + 1));
    }
    const Bytes pattern = Pattern(row);
    worstPattern = std::max(worstPattern, pattern.size() * 1000 / length);
    EXPECT_LE(pattern.size(), length * 4 / 3 + 16);
    EXPECT_LE(PackBits(row).size(), length + length / 127 + 2);
  }
  EXPECT_GE(worstPattern, 1300u);  // the adversarial shape does reach close to the bound
}

}  // namespace
}  // namespace inkweave
