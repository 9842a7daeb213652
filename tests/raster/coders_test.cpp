// The row coders: the worked rows written out byte for byte, the limits of both codings, and round
// trips through naive decoders on random and structured rows of every even length.
#include <gtest/gtest.h>

#include <random>

#include "src/raster/coders.h"
#include "tests/reference/row_decoders.h"
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

TEST(PatternEncode, GroupRunNeverTakesTheLastFourBytes) { EXPECT_BYTES(Pattern(Bytes(16, 0)), Hex("AC 00 8C 00")); }

TEST(PatternEncode, BlankFullWidthRow) {
  Bytes expected;
  for (int i = 0; i < 9; ++i) expected = expected + Hex("FF 00 00 00 00");
  expected = expected + Hex("FD 00 00  FC 00  EC 00  8C 00");
  EXPECT_EQ(expected.size(), 54u);
  EXPECT_BYTES(Pattern(Bytes(1280, 0)), expected);
}

TEST(PatternEncode, TwoByteUnitRun) {
  EXPECT_BYTES(Pattern(Repeat(Hex("12 34"), 8)), Hex("95 12 34  03 12 34 12 34"));
  // 89 groups = 178 units: two 64-unit codes, one of 32, then 18.
  EXPECT_BYTES(Pattern(Repeat(Hex("12 34"), 180)),
               Hex("FF 12 34 12 34  FF 12 34 12 34  FD 12 34  C5 12 34  03 12 34 12 34"));
}

TEST(PatternEncode, FourByteUnitRun) {
  // 40 groups counted: 32 + 8, then the last group at byte level.
  EXPECT_BYTES(Pattern(Repeat(Hex("01 02 03 04"), 41)), Hex("FF 01 02 03 04  9F 01 02 03 04  03 01 02 03 04"));
}

TEST(PatternEncode, OneByteRunUsedUpExactlyHasNoClosingCode) {
  EXPECT_BYTES(Pattern(Bytes(36, 0)), Hex("FC 00 8C 00"));
  EXPECT_BYTES(Pattern(Bytes(68, 0x55)), Hex("FD 55 55 8C 55"));
  EXPECT_BYTES(Pattern(Bytes(132, 0xAA)), Hex("FF AA AA AA AA 8C AA"));
}

TEST(PatternEncode, StretchOfDifferingGroups) {
  // Bytes 01..14: the stretch stops where only eight bytes remain.
  EXPECT_BYTES(Pattern(Counting(1, 20)), Hex("0B") + Counting(1, 12) + Hex("07") + Counting(13, 8));
  // A B A B: groups are compared with their direct neighbour only, so nothing repeats.
  const Bytes abab = Repeat(Counting(1, 8), 2);
  EXPECT_BYTES(Pattern(abab), Hex("07") + Counting(1, 8) + Hex("07") + Counting(1, 8));
  const Bytes longAbab = Repeat(Counting(1, 8), 40);
  for (std::size_t i = 0; i < Pattern(longAbab).size();) {
    const std::uint8_t c = Pattern(longAbab)[i];
    ASSERT_LT(c, 0x80) << "repeat code at " << i;
    i += c + 2u;
  }
}

TEST(PatternEncode, ByteLevelRunsAndLiterals) {
  EXPECT_BYTES(Pattern(Hex("01 02 02 03 04 04 04 05")), Hex("00 01  84 02  00 03  88 04  00 05"));
  EXPECT_BYTES(Pattern(Hex("07 07")), Hex("84 07"));
  EXPECT_BYTES(Pattern(Hex("07 08")), Hex("01 07 08"));
}

TEST(PatternEncode, RunsDoNotReachAcrossStretches) {
  // The 07 that ends the first stretch stays in its literal; the group run starts fresh.
  const Bytes row = Hex("01 02 03 07") + Bytes(12, 0x07) + Hex("09 0A 0B 0C");
  EXPECT_BYTES(Pattern(row), Hex("03 01 02 03 07  AC 07  03 09 0A 0B 0C"));
}

TEST(PatternEncode, LongLiteralsSplitAt128) {
  Bytes row;
  for (int i = 0; i < 300; ++i) row.push_back(static_cast<std::uint8_t>(i * 7 + (i >> 8)));
  const Bytes codes = Pattern(row);
  ASSERT_EQ(codes.size(), 300u + 4u);  // 292 bytes in three literals, then the last 8 in one
  EXPECT_EQ(codes[0], 0x7F);
  EXPECT_EQ(codes[129], 0x7F);
}

TEST(PatternEncode, OddLengthsStillDecode) {
  // Rows are of even length; a last byte of its own is coded as a one-byte literal.
  EXPECT_BYTES(Pattern(Hex("5A")), Hex("00 5A"));
  EXPECT_BYTES(Pattern(Bytes(9, 0)), Hex("9C 00  00 00"));
  EXPECT_TRUE(Pattern(Bytes{}).empty());
}

TEST(PackBitsEncode, ShortRows) {
  EXPECT_BYTES(PackBits(Hex("33 33 33")), Hex("FE 33"));
  EXPECT_BYTES(PackBits(Hex("33 33")), Hex("01 33 33"));
  EXPECT_BYTES(PackBits(Hex("33")), Hex("00 33"));
  EXPECT_BYTES(PackBits(Bytes{}), Hex("FF"));
}

TEST(PackBitsEncode, LiteralsHoldAtMost127Bytes) {
  const Bytes row = Counting(0, 130);
  EXPECT_BYTES(PackBits(row), Hex("7E") + Counting(0, 127) + Hex("02") + Counting(127, 3));
  EXPECT_BYTES(PackBits(Counting(0, 129)), Hex("7E") + Counting(0, 127) + Hex("01") + Counting(127, 2));
  EXPECT_BYTES(PackBits(Counting(0, 128)), Hex("7D") + Counting(0, 126) + Hex("01") + Counting(126, 2));
}

TEST(PackBitsEncode, RunsAndTheirEnds) {
  EXPECT_BYTES(PackBits(Hex("AA AA AA BB")), Hex("FE AA  00 BB"));
  EXPECT_BYTES(PackBits(Hex("01 02 03 03")), Hex("03 01 02 03 03"));  // a closing pair stays literal
  EXPECT_BYTES(PackBits(Hex("01 02 02 02 03 04")), Hex("00 01  FE 02  01 03 04"));
  EXPECT_BYTES(PackBits(Bytes(128, 7)), Hex("81 07"));
  EXPECT_BYTES(PackBits(Bytes(129, 7)), Hex("81 07  00 07"));
  EXPECT_BYTES(PackBits(Bytes(130, 7)), Hex("81 07  01 07 07"));
  EXPECT_BYTES(PackBits(Bytes(131, 7)), Hex("81 07  FE 07"));
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
      const Bytes pattern = Pattern(row);
      Bytes decoded;
      ASSERT_EQ(reference::PatternDecode(pattern.data(), pattern.size(), length, decoded),
                static_cast<long>(pattern.size()))
          << "pattern, length " << length << " kind " << kind;
      ASSERT_EQ(decoded, row) << "pattern, length " << length << " kind " << kind;

      const Bytes packbits = PackBits(row);
      decoded.clear();
      ASSERT_EQ(reference::PackBitsDecode(packbits.data(), packbits.size(), length, decoded),
                static_cast<long>(packbits.size()))
          << "packbits, length " << length << " kind " << kind;
      ASSERT_EQ(decoded, row) << "packbits, length " << length << " kind " << kind;
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
