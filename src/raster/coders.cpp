// The row coders.
//
// Pattern coder (method 2). The row is walked in four-byte groups aligned to its start. Where a group
// equals the next one, the whole run of equal groups becomes repeat codes of a one-, two- or four-byte
// unit; a group run never takes the row's last four bytes. Stretches of differing groups and the last
// eight bytes or fewer are coded byte by byte: literals of up to 128 bytes and repeats of 2 to 32 bytes,
// never reaching across the stretch's ends. Control bytes:
//   0x00..0x7F            literal of c + 1 bytes
//   0x80 + 4 (k - 1)      one byte repeated k times (k = 1..32)
//   0x81 + 4 (k - 1)      two-byte unit repeated k times
//   0x83 + 4 (k - 1)      four-byte unit repeated k times
//
// PackBits (method 1): literals of at most 127 bytes, repeats of 3 to 128; a pair of equal bytes at the
// row's end stays literal. The mirrored variant codes the row read backwards with every byte's bits
// reversed, reading through an accessor instead of building a copy.
#include "src/raster/coders.h"

#include <array>
#include <cstring>

namespace inkweave {
namespace {

constexpr std::array<std::uint8_t, 256> kReversedBits = [] {
  std::array<std::uint8_t, 256> table{};
  for (int v = 0; v < 256; ++v) {
    int r = 0;
    for (int bit = 0; bit < 8; ++bit)
      if (v & (1 << bit)) r |= 0x80 >> bit;
    table[v] = static_cast<std::uint8_t>(r);
  }
  return table;
}();

constexpr int kLiteralMax = 128;  // bytes in one pattern literal
constexpr int kRepeatMax = 32;    // units in one pattern repeat
constexpr std::uint8_t kRepeatOne = 0x80;
constexpr std::uint8_t kRepeatTwo = 0x81;
constexpr std::uint8_t kRepeatFour = 0x83;
constexpr std::uint8_t kRepeatFull = 0x7C;  // 4 (32 - 1): the count bits of a 32-unit repeat

bool SameGroup(const std::uint8_t* a, const std::uint8_t* b) { return std::memcmp(a, b, 4) == 0; }

std::uint8_t RepeatCode(std::uint8_t unit, int count) { return static_cast<std::uint8_t>(unit + 4 * (count - 1)); }

std::uint8_t* PutLiteral(std::uint8_t* out, const std::uint8_t* bytes, int count) {
  while (count > 0) {
    const int n = count < kLiteralMax ? count : kLiteralMax;
    *out++ = static_cast<std::uint8_t>(n - 1);
    std::memcpy(out, bytes, static_cast<std::size_t>(n));
    out += n;
    bytes += n;
    count -= n;
  }
  return out;
}

std::uint8_t* PutByteRun(std::uint8_t* out, std::uint8_t value, int count) {
  *out++ = RepeatCode(kRepeatOne, count);
  *out++ = value;
  return out;
}

// Byte level over row[begin, end): literals and runs of equal adjacent bytes.
std::uint8_t* EncodeBytes(std::uint8_t* out, const std::uint8_t* row, int begin, int end) {
  if (end - begin == 1) return PutLiteral(out, row + begin, 1);  // only from rows of odd length
  int literal = begin;
  int run = -1;  // start of the current run, -1 outside a run
  for (int i = begin + 1; i < end; ++i) {
    if (row[i] == row[i - 1]) {
      if (run < 0) {
        out = PutLiteral(out, row + literal, i - 1 - literal);
        run = i - 1;
      } else if (i - run == kRepeatMax) {  // cannot happen inside a stretch; keeps every code valid
        out = PutByteRun(out, row[run], kRepeatMax);
        run = -1;
        literal = i;
      }
    } else if (run >= 0) {
      out = PutByteRun(out, row[run], i - run);
      run = -1;
      literal = i;
    }
  }
  if (run >= 0) return PutByteRun(out, row[run], end - run);
  return PutLiteral(out, row + literal, end - literal);
}

// g equal four-byte groups starting at unit.
std::uint8_t* EncodeGroupRun(std::uint8_t* out, const std::uint8_t* unit, int groups) {
  if (unit[0] != unit[2] || unit[1] != unit[3]) {
    int left = groups;
    for (; left > kRepeatMax; left -= kRepeatMax) {
      *out++ = kRepeatFour + kRepeatFull;
      std::memcpy(out, unit, 4);
      out += 4;
    }
    *out++ = RepeatCode(kRepeatFour, left);
    std::memcpy(out, unit, 4);
    return out + 4;
  }
  if (unit[0] == unit[1]) {
    // 4g bytes of one value, from the largest unit down.
    const std::uint8_t value = unit[0];
    int left = 4 * groups;
    for (; left - 1 >= 127; left -= 128) {
      *out++ = kRepeatFour + kRepeatFull;
      std::memset(out, value, 4);
      out += 4;
    }
    for (; left >= 64; left -= 64) {
      *out++ = kRepeatTwo + kRepeatFull;
      *out++ = value;
      *out++ = value;
    }
    for (; left >= 32; left -= 32) out = PutByteRun(out, value, kRepeatMax);
    if (left > 0) out = PutByteRun(out, value, left);
    return out;
  }
  // 2g copies of a two-byte unit.
  int left = 2 * groups;
  for (; left >= 64; left -= 64) {
    *out++ = kRepeatFour + kRepeatFull;
    std::memcpy(out, unit, 4);
    out += 4;
  }
  for (; left >= 32; left -= 32) {
    *out++ = kRepeatTwo + kRepeatFull;
    *out++ = unit[0];
    *out++ = unit[1];
  }
  if (left > 0) {
    *out++ = RepeatCode(kRepeatTwo, left);
    *out++ = unit[0];
    *out++ = unit[1];
  }
  return out;
}

// PackBits over any byte source: at(i) is byte i of the row being coded.
template <typename Reader>
std::uint16_t PackBits(std::uint8_t* out, Reader at, std::uint16_t& length) {
  const int n = length;
  std::uint8_t* p = out;
  if (n < 3) {
    *p++ = static_cast<std::uint8_t>(n - 1);
    for (int i = 0; i < n; ++i) *p++ = at(i);
    length = static_cast<std::uint16_t>(p - out);
    return length;
  }

  int literalStart = 0;
  int literalCount = 0;
  int run = 0;  // bytes in the current run, 0 outside a run
  std::uint8_t runByte = 0;
  auto closeLiteral = [&] {
    if (literalCount == 0) return;
    *p++ = static_cast<std::uint8_t>(literalCount - 1);
    for (int k = 0; k < literalCount; ++k) *p++ = at(literalStart + k);
    literalCount = 0;
  };
  auto putRun = [&](int count) {
    *p++ = static_cast<std::uint8_t>(1 - count);
    *p++ = runByte;
  };

  for (int i = 1; i <= n - 2; ++i) {
    if (run == 0) {
      const std::uint8_t here = at(i);
      if (at(i - 1) == here && at(i + 1) == here) {
        closeLiteral();
        run = 2;
        runByte = here;
      } else {
        if (literalCount == 127) closeLiteral();
        if (literalCount == 0) literalStart = i - 1;
        ++literalCount;
      }
    } else if (at(i) == at(i - 1) && run < 128) {
      ++run;
    } else {
      putRun(run);
      run = 0;
    }
  }

  // The last byte (inside a run) or the last two (outside one).
  if (run > 0) {
    const std::uint8_t last = at(n - 1);
    if (last == runByte && run < 128) {
      putRun(run + 1);
    } else {
      putRun(run);
      *p++ = 0;
      *p++ = last;
    }
  } else {
    if (literalCount >= 126) closeLiteral();
    if (literalCount == 0) literalStart = n - 2;
    literalCount += 2;
    closeLiteral();
  }
  length = static_cast<std::uint16_t>(p - out);
  return length;
}

}  // namespace

std::uint8_t ReverseBits(std::uint8_t value) { return kReversedBits[value]; }

std::uint16_t PatternEncode(std::uint8_t* out, const std::uint8_t* row, std::uint16_t length) {
  std::uint8_t* const start = out;
  const int n = length;
  int pos = 0;
  while (n - pos > 8) {
    if (SameGroup(row + pos, row + pos + 4)) {
      // A run of equal groups; a further group counts only while more than 4 bytes remain from it.
      int next = pos + 8;
      int groups = 2;
      while (n - next > 4 && SameGroup(row + next, row + pos)) {
        ++groups;
        next += 4;
      }
      out = EncodeGroupRun(out, row + pos, groups);
      pos = next;
    } else {
      // A stretch of differing groups, ending before the first group of an equal pair or where fewer
      // than nine bytes remain.
      int stop = pos + 4;
      while (n - stop > 8 && !SameGroup(row + stop, row + stop + 4)) stop += 4;
      out = EncodeBytes(out, row, pos, stop);
      pos = stop;
    }
  }
  if (n - pos > 0) out = EncodeBytes(out, row, pos, n);
  return static_cast<std::uint16_t>(out - start);
}

std::uint16_t PackBitsEncode(std::uint8_t* out, const std::uint8_t* row, std::uint16_t& length) {
  return PackBits(
      out, [row](int i) { return row[i]; }, length);
}

std::uint16_t PackBitsEncodeMirrored(std::uint8_t* out, const std::uint8_t* row, std::uint16_t& length) {
  const int last = length - 1;
  return PackBits(
      out, [row, last](int i) { return kReversedBits[row[last - i]]; }, length);
}

}  // namespace inkweave
