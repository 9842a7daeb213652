// The row coders and row records: the rows pages never reach written out byte for byte (full-width and
// long unit runs, odd lengths, raw records, mode-1 widening), round trips through the printer model's
// decoders on random and structured rows of every even length within the record block, and the ink
// test. The whole-stream suite pins the codes of the rows pages print. No job selects PackBits, mirroring
// or uncompressed records: the PackBits coders are held to the decoder and their bound only.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "decode/decoder.h"
#include "src/raster/coders.h"
#include "src/raster/row_records.h"
#include "tests/support/bytes.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::FirstDifference;
using testing::Hex;
using testing::operator+;

// A row through one of the coders, into a buffer of ample size.
template <typename Coder>
Bytes Code(Coder coder, const Bytes& row) {
  Bytes out(2 * row.size() + 16);
  std::uint16_t length = static_cast<std::uint16_t>(row.size());
  out.resize(coder(out.data(), row.data(), length));
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

// The rows printed pages never code (full-width and long unit runs, odd lengths) and the rows of the
// two settled readings; the whole-stream suite pins the codes of the rows pages print.
TEST(PatternEncode, WorkedRows) {
  const struct {
    const char* what;
    Bytes row, codes;
  } cases[] = {
      {"a blank full-width row", Bytes(1280, 0),
       Repeat(Hex("FF 00 00 00 00"), 9) + Hex("FD 00 00  FC 00  EC 00  8C 00")},
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
  for (const auto& c : cases) EXPECT_BYTES(Code(PatternEncode, c.row), c.codes) << c.what;
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
      const Bytes pattern = Code(PatternEncode, row), packbits = Code(PackBitsEncode, row);
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
      ASSERT_EQ(FirstDifference(Code(PackBitsEncodeMirrored, row), Code(PackBitsEncode, mirrored)), "")
          << "length " << length;
    }
  }
}

struct Records : ::testing::Test {
  std::vector<std::uint8_t> storage = std::vector<std::uint8_t>(kPassBufferBytes);
  std::vector<std::uint8_t> record = std::vector<std::uint8_t>(kRecordBufferBytes);
  std::vector<std::uint8_t> scratch = std::vector<std::uint8_t>(kScratchBufferBytes);
  PassBuffer pass{0, storage.data(), storage.data()};
  RowContext context{2, 2, 0, 1, record.data(), scratch.data()};

  Bytes Held() const { return Bytes(pass.BufferStart, pass.WritePos); }
  void Clear() { pass.WritePos = pass.BufferStart; }
};

Bytes Noise(std::size_t n, unsigned seed) {
  std::mt19937 random(seed);
  Bytes row(n);
  for (std::size_t i = 0; i < n; ++i) {
    row[i] = static_cast<std::uint8_t>(random());
    if (i > 0 && row[i] == row[i - 1]) row[i] ^= 0x5A;
  }
  return row;
}

// One record per row: the pass bytes for a row (or a pair of halves) under each context. Every page
// codes its rows with the pattern coder, unmirrored (no job selects another method or mirroring), at
// most at its width: full-width raw rows are reached only here.
TEST_F(Records, WorkedRows) {
  const Bytes noise = Noise(1280, 3), a = Noise(640, 1), b = Noise(640, 2);
  struct Case {
    const char* what;
    std::uint8_t printMode;
    std::int16_t stripeValue;
    Bytes row, second;  // second half: empty for a one-bit row
    Bytes held;
  };
  const Case cases[] = {
      {"a blank row", 2, 1, Bytes(640, 0), {}, Hex("5A")},
      {"a blank stripe's pair", 2, 0, Bytes(640, 0xFF), Bytes(640, 0xFF), Hex("5A")},
      {"three code bytes for two", 2, 1, Hex("01 02"), {}, Hex("47 02 80  01 02")},
      {"incompressible full width", 2, 1, noise, {}, Hex("47 00 85") + noise},
      {"mode 17 widens", 17, 1, Hex("01 80"), {}, Hex("47 04 80  00 03 C0 00")},
      {"mode 65 does not widen", 65, 1, Hex("01 80"), {}, Hex("47 02 80  01 80")},
      {"an incompressible pair: 2L with bit 15", 2, 1, a, b, Hex("47 00 85") + a + b},
  };
  for (const Case& c : cases) {
    Clear();
    context.PrintMode = c.printMode;
    context.StripeValue = c.stripeValue;
    const auto width = static_cast<std::uint16_t>(c.row.size());
    if (c.second.empty())
      EncodeRow(pass, c.row.data(), width, context);
    else
      EncodeRowPair(pass, c.row.data(), c.second.data(), width, context);
    EXPECT_BYTES(Held(), c.held) << c.what;
  }
  Bytes out(4);
  WidenRow(out.data(), Hex("A5 3C").data(), 2);
  EXPECT_BYTES(out, Hex("CC 33  0F F0"));
}

// A pass below 429 bytes is scanned for a record (pages' passes of blank markers); 429 bytes of anything
// count as ink. A pass with a record is ink: the whole-stream suite's pages.
TEST_F(Records, InkTest) {
  const Bytes markers(429, 'Z');
  AppendToPass(pass, markers.data(), 428);
  EXPECT_FALSE(PassHasInk(pass));
  AppendToPass(pass, markers.data(), 1);
  EXPECT_TRUE(PassHasInk(pass));
}

}  // namespace
}  // namespace inkweave
