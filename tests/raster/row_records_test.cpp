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

Bytes PatternCodes(const Bytes& row) {
  Bytes out(2 * row.size() + 16);
  out.resize(PatternEncode(out.data(), row.data(), static_cast<std::uint16_t>(row.size())));
  return out;
}

Bytes Noise(std::size_t n, unsigned seed) {
  std::mt19937 random(seed);
  Bytes row(n);
  for (std::size_t i = 0; i < n; ++i) {
    row[i] = static_cast<std::uint8_t>(random());
    if (i > 0 && row[i] == row[i - 1]) row[i] ^= 0x5A;
  }
  return row;
}

TEST_F(Records, BlankRowsAndBlankStripesAreOneMarker) {
  EncodeRow(pass, Bytes(640, 0).data(), 640, context);
  context.StripeValue = 0;
  EncodeRow(pass, Bytes(640, 0xFF).data(), 640, context);
  EncodeRowPair(pass, Bytes(640, 0xFF).data(), Bytes(640, 0xFF).data(), 640, context);
  context.StripeValue = 1;
  EncodeRowPair(pass, Bytes(640, 0).data(), Bytes(640, 0).data(), 640, context);
  EXPECT_BYTES(Held(), Hex("5A 5A 5A 5A"));
}

TEST_F(Records, TrailingZerosAreStillSent) {
  Bytes row(16, 0);
  row[0] = 0x80;
  EncodeRow(pass, row.data(), 16, context);
  // 80 00 00 00 | 00 00 00 00 | ...: a stretch of four, a group run of 8, the last four.
  EXPECT_BYTES(Held(), Hex("47 08 00  00 80 88 00  9C 00  8C 00"));
}

TEST_F(Records, CodesAsLongAsTheRowGoOutCompressed) {
  EncodeRow(pass, Hex("01 01 02 02").data(), 4, context);
  EXPECT_BYTES(Held(), Hex("47 04 00  84 01 84 02"));
  Clear();
  EncodeRow(pass, Hex("01 02").data(), 2, context);  // 3 code bytes: raw
  EXPECT_BYTES(Held(), Hex("47 02 80  01 02"));
}

TEST_F(Records, IncompressibleFullWidthRowIsRaw) {
  const Bytes row = Noise(1280, 3);
  EncodeRow(pass, row.data(), 1280, context);
  EXPECT_BYTES(Held(), Hex("47 00 85") + row);
}

TEST_F(Records, CompressionMethods) {
  const Bytes row = Hex("00 00 00 00 00 00 07 07");
  context.CompressionMethod = 0;
  EncodeRow(pass, row.data(), 8, context);
  EXPECT_BYTES(Held(), Hex("47 08 00") + row);
  Clear();
  context.CompressionMethod = 1;
  EncodeRow(pass, row.data(), 8, context);
  EXPECT_BYTES(Held(), Hex("47 05 00  FB 00  01 07 07"));
  Clear();
  context.CompressionMethod = 7;  // any other value: the pattern coder
  EncodeRow(pass, row.data(), 8, context);
  EXPECT_BYTES(Held(), Hex("47 04 00  94 00  84 07"));
}

TEST_F(Records, ModeOneRowsAreWidened) {
  Bytes out(4);
  WidenRow(out.data(), Hex("01 80").data(), 2);
  EXPECT_BYTES(out, Hex("00 03  C0 00"));
  WidenRow(out.data(), Hex("A5 3C").data(), 2);
  EXPECT_BYTES(out, Hex("CC 33  0F F0"));

  const Bytes row = Hex("01 80");
  for (std::uint8_t mode : {1, 17, 33, 49}) {
    Clear();
    context.PrintMode = mode;
    EncodeRow(pass, row.data(), 2, context);
    EXPECT_BYTES(Held(), Hex("47 04 80  00 03 C0 00")) << int(mode);
  }
  for (std::uint8_t mode : {2, 65}) {
    Clear();
    context.PrintMode = mode;
    EncodeRow(pass, row.data(), 2, context);
    EXPECT_BYTES(Held(), Hex("47 02 80  01 80")) << int(mode);
  }
}

TEST_F(Records, TwoBitRecords) {
  // A blank first half is still sent: its run codes, then the second half's codes.
  const Bytes blank(16, 0);
  const Bytes second = Hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 30 00");
  EncodeRowPair(pass, blank.data(), second.data(), 16, context);
  const Bytes codes = PatternCodes(blank) + PatternCodes(second);
  const Bytes header = {'G', static_cast<std::uint8_t>(codes.size()), 0};
  EXPECT_BYTES(Held(), header + codes);

  // Incompressible halves: 2L with bit 15, then both rows raw.
  Clear();
  const Bytes a = Noise(640, 1), b = Noise(640, 2);
  EncodeRowPair(pass, a.data(), b.data(), 640, context);
  EXPECT_BYTES(Held(), Hex("47 00 85") + a + b);

  // Compression off: 2L, both rows.
  Clear();
  context.CompressionMethod = 0;
  EncodeRowPair(pass, Hex("01 02").data(), Hex("03 04").data(), 2, context);
  EXPECT_BYTES(Held(), Hex("47 04 00  01 02 03 04"));

  // PackBits halves back to back.
  Clear();
  context.CompressionMethod = 1;
  EncodeRowPair(pass, Bytes(6, 0).data(), Bytes(6, 9).data(), 6, context);
  EXPECT_BYTES(Held(), Hex("47 04 00  FB 00  FB 09"));
}

TEST_F(Records, MirroredRows) {
  context.MirrorOutput = 1;
  const Bytes row = Hex("01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EncodeRow(pass, row.data(), 16, context);
  // The mirrored row is 00 ... 00 80: a group run of 12, then the last four bytes.
  EXPECT_BYTES(Held(), Hex("47 06 00  AC 00  88 00 00 80"));

  Clear();
  context.CompressionMethod = 0;
  EncodeRow(pass, Hex("01 C2").data(), 2, context);
  EXPECT_BYTES(Held(), Hex("47 02 00  43 80"));

  Clear();
  context.CompressionMethod = 2;
  const Bytes noise = Noise(64, 5);
  EncodeRow(pass, noise.data(), 64, context);
  Bytes expected = Hex("47 40 80");
  for (auto it = noise.rbegin(); it != noise.rend(); ++it) expected.push_back(ReverseBits(*it));
  EXPECT_BYTES(Held(), expected);
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

TEST_F(Records, MirroredAppend) {
  AppendMirrored(pass, Hex("01 02 F0").data(), 3);
  EXPECT_BYTES(Held(), Hex("0F 40 80"));
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
