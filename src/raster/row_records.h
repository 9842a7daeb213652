// Row records and pass buffers: one plane row becomes the blank marker "Z" or a "G" record (compressed
// when that is no longer than the raw row, raw otherwise), appended to the pass buffer that collects
// one head pass.
#pragma once

#include <cstdint>

#include "src/device/device_state.h"

namespace inkweave {

inline constexpr std::uint8_t kBlankMarker = 'Z';
inline constexpr std::uint8_t kRowRecord = 'G';
inline constexpr std::uint16_t kRawRowFlag = 0x8000;  // length bit 15: raw row, compression on

// Mode-1 rows are widened in ScratchBuffer; rows wider than this (half of it for two-bit rows) are cut
// to fit. A 150 dpi row is at most a few hundred bytes, so the cut is never reached in practice.
inline constexpr std::uint16_t kWidenMaxBytes = kScratchBufferBytes / 2;  // bytes before widening

// What every row of a stripe is encoded with, set up once per stripe.
struct RowContext {
  std::uint8_t PrintMode;          // whole PrintMode byte; 1, 17, 33 and 49 widen the rows
  std::uint8_t CompressionMethod;  // 0 raw, 1 PackBits, any other value the pattern coder
  std::uint8_t MirrorOutput;       // non-zero: rows go out mirrored
  std::int16_t StripeValue;        // 0: blank stripe, every row is "Z"
  std::uint8_t* RecordBuffer;      // kRecordBufferBytes: "G", length, codes from byte 3
  std::uint8_t* ScratchBuffer;     // kScratchBufferBytes: widened rows
};

// The context of a stripe from the device state.
[[nodiscard]] RowContext MakeRowContext(const DeviceState& state, std::int16_t stripeValue);

// Appends the record of one one-bit plane row of width bytes.
void EncodeRow(PassBuffer& pass, const std::uint8_t* row, std::uint16_t width, const RowContext& context);

// Appends the record of one two-bit plane row: first and second bit of every dot, width bytes each.
void EncodeRowPair(PassBuffer& pass, const std::uint8_t* first, const std::uint8_t* second, std::uint16_t width,
                   const RowContext& context);

// Bounded append: the bytes are copied only when the pass then holds fewer than kPassBufferBytes;
// otherwise they are dropped.
void AppendToPass(PassBuffer& pass, const std::uint8_t* bytes, std::uint16_t count);

// Appends the bytes from the last to the first, each with its bits reversed (same bound).
void AppendMirrored(PassBuffer& pass, const std::uint8_t* bytes, std::uint16_t count);

// Whether the pass holds anything but blank markers.
[[nodiscard]] bool PassHasInk(const PassBuffer& pass);

// Empties a pass after its flush.
void EmptyPass(PassBuffer& pass);

// Widens a row for mode 1: every dot doubled across, width bytes in, 2 * width bytes out.
void WidenRow(std::uint8_t* out, const std::uint8_t* row, std::uint16_t width);

}  // namespace inkweave
