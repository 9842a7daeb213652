// Row decoders for the two compression methods of "G" records.
//
// Pattern coder (method 05): one control byte per code. 00..7F: c + 1 literal bytes follow. 80 and up:
// the low two bits name the unit (00 one byte, 01 two bytes, 11 four bytes; 10 is no code), the five
// bits above them hold k - 1, and the unit that follows is repeated k times.
// PackBits (method 02): 00..7F: c + 1 literal bytes; 81..FF: the next byte repeated 1 - (signed) c
// times; 80 is no code here.
// Both decoders stop with an error at the first code that is not one, that runs past the end of its
// data, or that would decode past the caller's limit.
#include <string>

#include "decode/decoder.h"
#include "decode/format.h"

namespace inkweave::decode {

namespace {

Error CodeError(std::size_t offset, const std::string& what) { return Error{offset, what}; }

}  // namespace

std::variant<std::vector<std::uint8_t>, Error> DecodePattern(std::span<const std::uint8_t> codes, std::size_t maxBytes,
                                                             std::vector<std::size_t>* boundaries) {
  std::vector<std::uint8_t> out;
  std::size_t pos = 0;
  while (pos < codes.size()) {
    const std::uint8_t control = codes[pos];
    std::size_t dataBytes = 0;
    std::size_t unit = 0;
    std::size_t count = 0;
    if (control < 0x80) {
      dataBytes = control + 1u;
    } else {
      switch (control & 3) {
        case 0: unit = 1; break;
        case 1: unit = 2; break;
        case 3: unit = 4; break;
        default: return CodeError(pos, "pattern code " + Hex(control) + " names no unit (low bits 10)");
      }
      count = ((control >> 2) & 0x1F) + 1u;
      dataBytes = unit;
    }
    if (codes.size() - pos - 1 < dataBytes) {
      return CodeError(pos, "pattern code " + Hex(control) + " needs " + std::to_string(dataBytes) +
                                " data bytes, the record holds " + std::to_string(codes.size() - pos - 1));
    }
    const std::size_t produced = control < 0x80 ? dataBytes : unit * count;
    if (out.size() + produced > maxBytes) {
      return CodeError(pos, "pattern codes decode to more than " + std::to_string(maxBytes) + " bytes");
    }
    const std::uint8_t* data = codes.data() + pos + 1;
    if (control < 0x80) {
      out.insert(out.end(), data, data + dataBytes);
    } else {
      for (std::size_t i = 0; i < count; ++i) out.insert(out.end(), data, data + unit);
    }
    pos += 1 + dataBytes;
    if (boundaries) boundaries->push_back(out.size());
  }
  return out;
}

std::variant<std::vector<std::uint8_t>, Error> DecodePackBits(std::span<const std::uint8_t> codes, std::size_t maxBytes,
                                                              std::vector<std::size_t>* boundaries) {
  std::vector<std::uint8_t> out;
  std::size_t pos = 0;
  while (pos < codes.size()) {
    const std::uint8_t control = codes[pos];
    if (control == 0x80) return CodeError(pos, "PackBits code 80 is not used by this printer");
    const std::size_t dataBytes = control < 0x80 ? control + 1u : 1u;
    if (codes.size() - pos - 1 < dataBytes) {
      return CodeError(pos, "PackBits code " + Hex(control) + " needs " + std::to_string(dataBytes) +
                                " data bytes, the record holds " + std::to_string(codes.size() - pos - 1));
    }
    const std::size_t produced = control < 0x80 ? dataBytes : 257u - control;
    if (out.size() + produced > maxBytes) {
      return CodeError(pos, "PackBits codes decode to more than " + std::to_string(maxBytes) + " bytes");
    }
    const std::uint8_t* data = codes.data() + pos + 1;
    if (control < 0x80) {
      out.insert(out.end(), data, data + dataBytes);
    } else {
      out.insert(out.end(), produced, data[0]);
    }
    pos += 1 + dataBytes;
    if (boundaries) boundaries->push_back(out.size());
  }
  return out;
}

}  // namespace inkweave::decode
