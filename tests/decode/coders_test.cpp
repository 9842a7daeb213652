// The row decoders on the coders' worked rows, their code limits and their malformed codes.
#include <gtest/gtest.h>

#include "decode/decoder.h"
#include "tests/support/bytes.h"

namespace inkweave::decode {
namespace {

using inkweave::testing::Bytes;
using inkweave::testing::Hex;
using inkweave::testing::Zeros;
using inkweave::testing::operator+;

Bytes Pattern(const Bytes& codes, std::vector<std::size_t>* boundaries = nullptr) {
  auto result = DecodePattern(codes, 5120, boundaries);
  if (auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->Offset << ": " << error->Message;
    return {};
  }
  return std::get<Bytes>(result);
}

Bytes PackBits(const Bytes& codes) {
  auto result = DecodePackBits(codes, 5120);
  if (auto* error = std::get_if<Error>(&result)) {
    ADD_FAILURE() << error->Offset << ": " << error->Message;
    return {};
  }
  return std::get<Bytes>(result);
}

Bytes Counting(std::uint8_t from, std::uint8_t to) {
  Bytes out;
  for (int b = from; b <= to; ++b) out.push_back(static_cast<std::uint8_t>(b));
  return out;
}

TEST(PatternDecoder, WorkedRows) {
  // Three groups of zeros, then the last four bytes at byte level.
  EXPECT_EQ(Pattern(Hex("AC 00 8C 00")), Zeros(16));
  // A whole blank row of 1,280 bytes in 54 code bytes.
  Bytes blank;
  for (int i = 0; i < 9; ++i) blank = blank + Hex("FF 00 00 00 00");
  blank = blank + Hex("FD 00 00 FC 00 EC 00 8C 00");
  ASSERT_EQ(blank.size(), 54u);
  EXPECT_EQ(Pattern(blank), Zeros(1280));
  // Six two-byte units, then a literal of four.
  Bytes pairs;
  for (int i = 0; i < 8; ++i) pairs = pairs + Hex("12 34");
  EXPECT_EQ(Pattern(Hex("95 12 34 03 12 34 12 34")), pairs);
  // 36 zero bytes: the large codes use the run up, no closing code.
  EXPECT_EQ(Pattern(Hex("FC 00 8C 00")), Zeros(36));
  // Bytes 01..14: a literal of twelve, then one of eight.
  EXPECT_EQ(Pattern(Hex("0B") + Counting(1, 12) + Hex("07") + Counting(13, 20)), Counting(1, 20));
}

TEST(PatternDecoder, UnitsAndCountLimits) {
  EXPECT_EQ(Pattern(Hex("80 7E")), Hex("7E"));
  EXPECT_EQ(Pattern(Hex("FC 55")), Bytes(32, 0x55));
  EXPECT_EQ(Pattern(Hex("81 AB CD")), Hex("AB CD"));
  EXPECT_EQ(Pattern(Hex("85 AB CD")), Hex("AB CD AB CD"));
  EXPECT_EQ(Pattern(Hex("87 01 02 03 04")), Hex("01 02 03 04 01 02 03 04"));
  EXPECT_EQ(Pattern(Hex("FF 01 02 03 04")).size(), 128u);
  EXPECT_EQ(Pattern(Hex("7F") + Bytes(128, 9)), Bytes(128, 9));
  EXPECT_EQ(Pattern(Hex("00 42")), Hex("42"));
}

TEST(PatternDecoder, BoundariesFollowEveryCode) {
  std::vector<std::size_t> boundaries;
  Pattern(Hex("AC 00 8C 00 01 05 06"), &boundaries);
  EXPECT_EQ(boundaries, (std::vector<std::size_t>{12, 16, 18}));
}

TEST(PatternDecoder, MalformedCodes) {
  struct Case {
    Bytes Codes;
    std::size_t Offset;
    const char* Says;
  };
  const Case cases[] = {
      {Hex("AC 00 82 00"), 2, "names no unit"},          // unit code 10
      {Hex("03 01 02"), 0, "needs 4 data bytes"},        // literal past the end
      {Hex("AC 00 87 01 02"), 2, "needs 4 data bytes"},  // four-byte unit cut off
      {Hex("FC"), 0, "needs 1 data bytes"},
  };
  for (const Case& c : cases) {
    auto result = DecodePattern(c.Codes, 5120);
    ASSERT_TRUE(std::holds_alternative<Error>(result)) << inkweave::testing::HexText(c.Codes);
    EXPECT_EQ(std::get<Error>(result).Offset, c.Offset);
    EXPECT_NE(std::get<Error>(result).Message.find(c.Says), std::string::npos) << std::get<Error>(result).Message;
  }
  // Output beyond the caller's limit stops at the code that would pass it.
  auto big = DecodePattern(Hex("FF 00 00 00 00 FF 00 00 00 00"), 200);
  ASSERT_TRUE(std::holds_alternative<Error>(big));
  EXPECT_EQ(std::get<Error>(big).Offset, 5u);
}

TEST(PackBitsDecoder, WorkedRowsAndLimits) {
  EXPECT_EQ(PackBits(Hex("FE 77")), Hex("77 77 77"));
  EXPECT_EQ(PackBits(Hex("01 77 77")), Hex("77 77"));
  EXPECT_EQ(PackBits(Hex("81 00")), Zeros(128));
  EXPECT_EQ(PackBits(Hex("FF 05 00 06")), Hex("05 05 06"));
  EXPECT_EQ(PackBits(Hex("7E") + Bytes(127, 3) + Hex("00 04")), Bytes(127, 3) + Hex("04"));
}

TEST(PackBitsDecoder, MalformedCodes) {
  auto unused = DecodePackBits(Hex("00 01 80 00"), 5120);
  ASSERT_TRUE(std::holds_alternative<Error>(unused));
  EXPECT_EQ(std::get<Error>(unused).Offset, 2u);
  auto cut = DecodePackBits(Hex("FE"), 5120);
  ASSERT_TRUE(std::holds_alternative<Error>(cut));
  EXPECT_EQ(std::get<Error>(cut).Offset, 0u);
  auto big = DecodePackBits(Hex("81 00 81 00"), 200);
  ASSERT_TRUE(std::holds_alternative<Error>(big));
  EXPECT_EQ(std::get<Error>(big).Offset, 2u);
}

}  // namespace
}  // namespace inkweave::decode
