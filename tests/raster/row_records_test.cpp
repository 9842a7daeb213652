// Row records and pass buffers: blank markers, compressed and raw records of both depths, mode-1
// widening, the pass bound and the ink test.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "src/raster/coders.h"
#include "src/raster/row_records.h"
#include "tests/support/bytes.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::FirstDifference;
using testing::Hex;
using testing::operator+;

#define EXPECT_BYTES(actual, expected) EXPECT_EQ(FirstDifference(actual, expected), "")

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

// One record per row: the pass bytes for a row (or a pair of halves) under each context. Pages code
// every row with the pattern coder, unmirrored, at most at their width: the other methods, mirroring and
// full-width raw rows are reached only here.
TEST_F(Records, WorkedRows) {
  const Bytes noise = Noise(1280, 3), a = Noise(640, 1), b = Noise(640, 2), shortNoise = Noise(64, 5);
  Bytes mirroredNoise = Hex("47 40 80");
  for (auto it = shortNoise.rbegin(); it != shortNoise.rend(); ++it) mirroredNoise.push_back(ReverseBits(*it));
  const Bytes sixAndTwo = Hex("00 00 00 00 00 00 07 07");
  struct Case {
    const char* what;
    std::uint8_t printMode, compression, mirror;
    std::int16_t stripeValue;
    Bytes row, second;  // second half: empty for a one-bit row
    Bytes held;
  };
  const Case cases[] = {
      {"a blank row", 2, 2, 0, 1, Bytes(640, 0), {}, Hex("5A")},
      {"a blank stripe's pair", 2, 2, 0, 0, Bytes(640, 0xFF), Bytes(640, 0xFF), Hex("5A")},
      {"three code bytes for two", 2, 2, 0, 1, Hex("01 02"), {}, Hex("47 02 80  01 02")},
      {"incompressible full width", 2, 2, 0, 1, noise, {}, Hex("47 00 85") + noise},
      {"compression off", 2, 0, 0, 1, sixAndTwo, {}, Hex("47 08 00") + sixAndTwo},
      {"PackBits", 2, 1, 0, 1, sixAndTwo, {}, Hex("47 05 00  FB 00  01 07 07")},
      {"any other method", 2, 7, 0, 1, sixAndTwo, {}, Hex("47 04 00  94 00  84 07")},
      {"mode 17 widens", 17, 2, 0, 1, Hex("01 80"), {}, Hex("47 04 80  00 03 C0 00")},
      {"mode 65 does not widen", 65, 2, 0, 1, Hex("01 80"), {}, Hex("47 02 80  01 80")},
      {"an incompressible pair: 2L with bit 15", 2, 2, 0, 1, a, b, Hex("47 00 85") + a + b},
      {"a pair, compression off", 2, 0, 0, 1, Hex("01 02"), Hex("03 04"), Hex("47 04 00  01 02 03 04")},
      {"a pair in PackBits", 2, 1, 0, 1, Bytes(6, 0), Bytes(6, 9), Hex("47 04 00  FB 00  FB 09")},
      // The mirrored row is 00 ... 00 80: a group run of 12, then the last four bytes.
      {"mirrored", 2, 2, 1, 1, Hex("01") + Bytes(15, 0), {}, Hex("47 06 00  AC 00  88 00 00 80")},
      {"mirrored, compression off", 2, 0, 1, 1, Hex("01 C2"), {}, Hex("47 02 00  43 80")},
      {"mirrored and raw", 2, 2, 1, 1, shortNoise, {}, mirroredNoise},
  };
  for (const Case& c : cases) {
    Clear();
    context.PrintMode = c.printMode;
    context.CompressionMethod = c.compression;
    context.MirrorOutput = c.mirror;
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

TEST_F(Records, PassBufferBound) {
  const Bytes chunk(60000, 0x47);
  for (int i = 0; i < 9; ++i) AppendToPass(pass, chunk.data(), 60000);
  ASSERT_EQ(pass.WritePos - pass.BufferStart, 540000);
  const Bytes rest(7840, 1);
  AppendToPass(pass, rest.data(), 7840);  // would reach the capacity: dropped
  EXPECT_EQ(pass.WritePos - pass.BufferStart, 540000);
  AppendToPass(pass, rest.data(), 7839);  // one byte short of it: taken
  EXPECT_EQ(pass.WritePos - pass.BufferStart, 547839);
  AppendToPass(pass, rest.data(), 1);
  EXPECT_EQ(pass.WritePos - pass.BufferStart, 547839);
  EXPECT_EQ(pass.BufferStart[547838], 1);

  PassBuffer none{0, nullptr, nullptr};
  AppendToPass(none, rest.data(), 10);  // a pass without storage takes nothing
  EXPECT_EQ(none.WritePos, nullptr);
}

TEST_F(Records, InkTest) {
  EXPECT_FALSE(PassHasInk(pass));
  const Bytes markers(429, 'Z');
  AppendToPass(pass, markers.data(), 420);
  EXPECT_FALSE(PassHasInk(pass));
  AppendToPass(pass, markers.data(), 8);  // 428: still scanned
  EXPECT_FALSE(PassHasInk(pass));
  AppendToPass(pass, markers.data(), 1);  // 429 bytes of anything count as ink
  EXPECT_TRUE(PassHasInk(pass));

  Clear();
  AppendToPass(pass, Hex("47 01 00 00 FF 5A 5A").data(), 7);
  EXPECT_TRUE(PassHasInk(pass));

  pass.RowsFilled = 12;
  EmptyPass(pass);
  EXPECT_EQ(pass.RowsFilled, 0);
  EXPECT_FALSE(PassHasInk(pass));
}

}  // namespace
}  // namespace inkweave
