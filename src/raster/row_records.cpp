// Row records and pass buffers.
//
// A plane row without dots (or any row of a blank stripe) is the one-byte marker "Z". Any other row is a
// "G" record: "G", a 16-bit little-endian length, then the data. With compression on, the row is coded
// into RecordBuffer from byte 3 and goes out compressed when the codes are no longer than the row;
// otherwise it goes out raw with bit 15 of the length set. With compression off the length is plain and
// the row raw. Two-bit rows carry both bit-planes in one record, the first half first. Mode-1 rows are
// widened (every dot doubled across) before coding. Records are built whole and appended in one copy.
#include "src/raster/row_records.h"

#include <array>
#include <cstring>

#include "src/device/plane_geometry.h"
#include "src/raster/coders.h"

namespace inkweave {
namespace {

constexpr std::uint16_t kMaxRowBytes = kPlaneBytesHigh;  // widest plane row the emitter hands over
constexpr std::uint32_t kBlankOnlyBytes = 428;           // above the largest pass of blank markers (106 x "ZZZZ")

// Byte to two bytes with every dot doubled: entry v is the widened nibble v.
constexpr std::array<std::uint8_t, 16> kWidenedNibble = [] {
  std::array<std::uint8_t, 16> table{};
  for (int v = 0; v < 16; ++v) {
    int out = 0;
    for (int bit = 0; bit < 4; ++bit)
      if (v & (1 << bit)) out |= 3 << (2 * bit);
    table[v] = static_cast<std::uint8_t>(out);
  }
  return table;
}();

// Level 1 with any of the monochrome and flag bits: 1, 17, 33, 49.
bool Widens(std::uint8_t printMode) { return (printMode & ~(kPrintModeMonochrome | kPrintModeFlag)) == kLevel150; }

// True when the row has no dot; scans from the row's end and stops at the first non-zero byte.
bool IsBlankRow(const std::uint8_t* row, std::uint16_t width) {
  std::size_t end = width;
  for (; end % 8 != 0; --end)
    if (row[end - 1] != 0) return false;
  for (; end > 0; end -= 8) {
    std::uint64_t word;
    std::memcpy(&word, row + end - 8, 8);
    if (word != 0) return false;
  }
  return true;
}

void PutHeader(PassBuffer& pass, std::uint16_t length) {
  const std::uint8_t header[3] = {kRowRecord, static_cast<std::uint8_t>(length & 0xFF),
                                  static_cast<std::uint8_t>(length >> 8)};
  AppendToPass(pass, header, 3);
}

void PutRaw(PassBuffer& pass, const std::uint8_t* row, std::uint16_t length, const RowContext& context) {
  if (context.MirrorOutput)
    AppendMirrored(pass, row, length);
  else
    AppendToPass(pass, row, length);
}

// Codes one row with the context's method; answers the code length.
std::uint16_t Compress(std::uint8_t* out, const std::uint8_t* row, std::uint16_t length, const RowContext& context) {
  if (context.CompressionMethod == 1) {
    std::uint16_t count = length;
    return context.MirrorOutput ? PackBitsEncodeMirrored(out, row, count) : PackBitsEncode(out, row, count);
  }
  if (!context.MirrorOutput) return PatternEncode(out, row, length);
  std::uint8_t mirrored[kScratchBufferBytes];
  for (std::uint16_t i = 0; i < length; ++i) mirrored[i] = ReverseBits(row[length - 1 - i]);
  return PatternEncode(out, mirrored, length);
}

void PutRecordBuffer(PassBuffer& pass, std::uint8_t* record, std::uint16_t codeLength) {
  record[0] = kRowRecord;
  record[1] = static_cast<std::uint8_t>(codeLength & 0xFF);
  record[2] = static_cast<std::uint8_t>(codeLength >> 8);
  AppendToPass(pass, record, static_cast<std::uint16_t>(3 + codeLength));
}

}  // namespace

RowContext MakeRowContext(const DeviceState& state, std::int16_t stripeValue) {
  return RowContext{state.PrintMode, state.CompressionMethod, state.MirrorOutput,
                    stripeValue,     state.RecordBuffer,      state.ScratchBuffer};
}

void WidenRow(std::uint8_t* out, const std::uint8_t* row, std::uint16_t width) {
  for (std::uint16_t i = 0; i < width; ++i) {
    *out++ = kWidenedNibble[row[i] >> 4];
    *out++ = kWidenedNibble[row[i] & 0x0F];
  }
}

void EncodeRow(PassBuffer& pass, const std::uint8_t* row, std::uint16_t width, const RowContext& context) {
  if (width > kMaxRowBytes) width = kMaxRowBytes;
  if (context.StripeValue == 0 || IsBlankRow(row, width)) {
    AppendToPass(pass, &kBlankMarker, 1);
    return;
  }
  std::uint16_t length = width;
  if (Widens(context.PrintMode)) {
    const std::uint16_t cut = width < kWidenMaxBytes ? width : kWidenMaxBytes;
    WidenRow(context.ScratchBuffer, row, cut);
    row = context.ScratchBuffer;
    length = static_cast<std::uint16_t>(2 * cut);
  }
  if (context.CompressionMethod == 0) {
    PutHeader(pass, length);
    PutRaw(pass, row, length, context);
    return;
  }
  const std::uint16_t codes = Compress(context.RecordBuffer + 3, row, length, context);
  if (codes <= length) {
    PutRecordBuffer(pass, context.RecordBuffer, codes);
  } else {
    PutHeader(pass, static_cast<std::uint16_t>(length | kRawRowFlag));
    PutRaw(pass, row, length, context);
  }
}

void EncodeRowPair(PassBuffer& pass, const std::uint8_t* first, const std::uint8_t* second, std::uint16_t width,
                   const RowContext& context) {
  if (width > kMaxRowBytes) width = kMaxRowBytes;
  if (context.StripeValue == 0 || (IsBlankRow(first, width) && IsBlankRow(second, width))) {
    AppendToPass(pass, &kBlankMarker, 1);
    return;
  }
  std::uint16_t length = width;
  if (Widens(context.PrintMode)) {
    const std::uint16_t cut = width < kWidenMaxBytes / 2 ? width : kWidenMaxBytes / 2;
    WidenRow(context.ScratchBuffer, first, cut);
    WidenRow(context.ScratchBuffer + 2 * cut, second, cut);
    first = context.ScratchBuffer;
    second = context.ScratchBuffer + 2 * cut;
    length = static_cast<std::uint16_t>(2 * cut);
  }
  const auto both = static_cast<std::uint16_t>(2 * length);

  if (context.CompressionMethod == 0) {
    PutHeader(pass, both);
    PutRaw(pass, first, length, context);
    PutRaw(pass, second, length, context);
    return;
  }
  // Both halves are coded back to back; the second one's codes start where the first one's end.
  std::uint8_t* codes = context.RecordBuffer + 3;
  const std::uint16_t firstCodes = Compress(codes, first, length, context);
  const std::uint16_t secondCodes = Compress(codes + firstCodes, second, length, context);
  const auto total = static_cast<std::uint16_t>(firstCodes + secondCodes);
  if (total <= both) {
    PutRecordBuffer(pass, context.RecordBuffer, total);
  } else {
    PutHeader(pass, static_cast<std::uint16_t>(both | kRawRowFlag));
    PutRaw(pass, first, length, context);
    PutRaw(pass, second, length, context);
  }
}

void AppendToPass(PassBuffer& pass, const std::uint8_t* bytes, std::uint16_t count) {
  if (!pass.BufferStart || !pass.WritePos) return;
  const auto held = static_cast<std::size_t>(pass.WritePos - pass.BufferStart);
  if (held + count >= kPassBufferBytes) return;
  std::memcpy(pass.WritePos, bytes, count);
  pass.WritePos += count;
}

void AppendMirrored(PassBuffer& pass, const std::uint8_t* bytes, std::uint16_t count) {
  if (!pass.BufferStart || !pass.WritePos) return;
  const auto held = static_cast<std::size_t>(pass.WritePos - pass.BufferStart);
  if (held + count >= kPassBufferBytes) return;
  for (std::uint16_t i = count; i > 0; --i) *pass.WritePos++ = ReverseBits(bytes[i - 1]);
}

bool PassHasInk(const PassBuffer& pass) {
  if (pass.WritePos == pass.BufferStart) return false;
  if (static_cast<std::size_t>(pass.WritePos - pass.BufferStart) > kBlankOnlyBytes) return true;
  for (const std::uint8_t* p = pass.WritePos; p != pass.BufferStart;)
    if (*--p != kBlankMarker) return true;
  return false;
}

void EmptyPass(PassBuffer& pass) {
  pass.RowsFilled = 0;
  pass.WritePos = pass.BufferStart;
}

}  // namespace inkweave
