// The row decoders over one grid: the coders' worked rows and every code's limits, then malformed codes
// with the offset and the words of their error.
#include <gtest/gtest.h>

#include "decode/decoder.h"
#include "tests/support/bytes.h"

namespace inkweave::decode {
namespace {

using inkweave::testing::Bytes;
using inkweave::testing::Hex;
using inkweave::testing::HexText;
using inkweave::testing::Zeros;
using inkweave::testing::operator+;
using Decoder = std::variant<Bytes, Error> (*)(std::span<const std::uint8_t>, std::size_t, std::vector<std::size_t>*);

Bytes Counting(std::uint8_t from, std::uint8_t to) {
  Bytes out;
  for (int b = from; b <= to; ++b) out.push_back(static_cast<std::uint8_t>(b));
  return out;
}

Bytes Repeat(const Bytes& part, int times) {
  Bytes out;
  for (int i = 0; i < times; ++i) out = out + part;
  return out;
}

TEST(RowDecoders, WorkedRowsAndCodeLimits) {
  const struct {
    Decoder Decode;
    Bytes Codes, Row;
  } kCases[] = {
      // Pattern coder: three groups of zeros, then the last four bytes at byte level.
      {DecodePattern, Hex("AC 00 8C 00"), Zeros(16)},
      // A whole blank row of 1,280 bytes in 54 code bytes.
      {DecodePattern, Repeat(Hex("FF 00 00 00 00"), 9) + Hex("FD 00 00 FC 00 EC 00 8C 00"), Zeros(1280)},
      {DecodePattern, Hex("95 12 34 03 12 34 12 34"), Repeat(Hex("12 34"), 8)},  // six two-byte units, a literal
      {DecodePattern, Hex("FC 00 8C 00"), Zeros(36)},  // the large codes use the run up: no closing code
      {DecodePattern, Hex("0B") + Counting(1, 12) + Hex("07") + Counting(13, 20), Counting(1, 20)},
      {DecodePattern, Hex("80 7E"), Hex("7E")},
      {DecodePattern, Hex("FC 55"), Bytes(32, 0x55)},
      {DecodePattern, Hex("81 AB CD"), Hex("AB CD")},
      {DecodePattern, Hex("85 AB CD"), Hex("AB CD AB CD")},
      {DecodePattern, Hex("87 01 02 03 04"), Repeat(Hex("01 02 03 04"), 2)},
      {DecodePattern, Hex("FF 01 02 03 04"), Repeat(Hex("01 02 03 04"), 32)},
      {DecodePattern, Hex("7F") + Bytes(128, 9), Bytes(128, 9)},
      {DecodePattern, Hex("00 42"), Hex("42")},
      {DecodePackBits, Hex("FE 77"), Hex("77 77 77")},
      {DecodePackBits, Hex("01 77 77"), Hex("77 77")},
      {DecodePackBits, Hex("81 00"), Zeros(128)},
      {DecodePackBits, Hex("FF 05 00 06"), Hex("05 05 06")},
      {DecodePackBits, Hex("7E") + Bytes(127, 3) + Hex("00 04"), Bytes(127, 3) + Hex("04")},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(HexText(c.Codes));
    const auto result = c.Decode(c.Codes, 5120, nullptr);
    ASSERT_TRUE(std::holds_alternative<Bytes>(result)) << std::get<Error>(result).Message;
    EXPECT_EQ(std::get<Bytes>(result), c.Row);
  }
  std::vector<std::size_t> boundaries;  // the decoded length after every code
  DecodePattern(Hex("AC 00 8C 00 01 05 06"), 5120, &boundaries);
  EXPECT_EQ(boundaries, (std::vector<std::size_t>{12, 16, 18}));
}

TEST(RowDecoders, MalformedCodesNameTheirOffset) {
  const struct {
    Decoder Decode;
    Bytes Codes;
    std::size_t Limit, Offset;
    const char* Says;
  } kCases[] = {
      {DecodePattern, Hex("AC 00 82 00"), 5120, 2, "names no unit"},  // unit code 10
      {DecodePattern, Hex("03 01 02"), 5120, 0, "needs 4 data bytes"},
      {DecodePattern, Hex("AC 00 87 01 02"), 5120, 2, "needs 4 data bytes"},  // a four-byte unit cut off
      {DecodePattern, Hex("FC"), 5120, 0, "needs 1 data bytes"},
      {DecodePattern, Repeat(Hex("FF 00 00 00 00"), 2), 200, 5, ""},  // stops at the code that passes the limit
      {DecodePackBits, Hex("00 01 80 00"), 5120, 2, ""},              // the unused code 80
      {DecodePackBits, Hex("FE"), 5120, 0, ""},
      {DecodePackBits, Hex("81 00 81 00"), 200, 2, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(HexText(c.Codes));
    const auto result = c.Decode(c.Codes, c.Limit, nullptr);
    ASSERT_TRUE(std::holds_alternative<Error>(result));
    EXPECT_EQ(std::get<Error>(result).Offset, c.Offset);
    EXPECT_NE(std::get<Error>(result).Message.find(c.Says), std::string::npos) << std::get<Error>(result).Message;
  }
}

}  // namespace
}  // namespace inkweave::decode
