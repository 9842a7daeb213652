// The printer's fixed command byte strings.
#pragma once

#include <cstdint>

namespace inkweave {

inline constexpr std::uint8_t kEnterRasterLanguage[5] = {0x1B, 0x7C, 0x01, 0x00, 0x03};
inline constexpr std::uint8_t kReset[2] = {0x1B, 0x40};
inline constexpr std::uint8_t kFormFeed[1] = {0x0C};
inline constexpr std::uint8_t kAbortTail[5] = {0x00, 0x00, 0x0C, 0x1B, 0x40};
inline constexpr std::uint8_t kResolution150[3] = {'R', 0x01, 0x00};
inline constexpr std::uint8_t kResolution300[3] = {'R', 0x01, 0x01};
inline constexpr std::uint8_t kResolution600[3] = {'R', 0x02, 0x02};
inline constexpr std::uint8_t kResolutionHigh[3] = {'R', 0x03, 0x03};
inline constexpr std::uint8_t kCompressionPattern[2] = {'M', 0x05};
inline constexpr std::uint8_t kCompressionPackBits[2] = {'M', 0x02};
inline constexpr std::uint8_t kCompressionNone[2] = {'M', 0x00};
inline constexpr std::uint8_t kDCommand0[2] = {'D', 0x00};
inline constexpr std::uint8_t kDCommand2[2] = {'D', 0x02};
inline constexpr std::uint8_t kYCommand[3] = {'Y', 0x00, 0x00};
inline constexpr std::uint8_t kXCommand[3] = {'X', 0x00, 0x00};
inline constexpr std::uint8_t kFnCommand[3] = {'F', 'n', 0x00};
inline constexpr std::uint8_t kPageStartFiller[3] = {0x00, 0x00, 0x00};
inline constexpr std::uint8_t kPadding[100] = {};

// The ink-mode command "I" and its codes: one or two bits per dot, colour or monochrome.
inline constexpr std::uint8_t kInkModeCommand = 'I';
inline constexpr std::uint8_t kInkModeColorOneBit = 0x10;
inline constexpr std::uint8_t kInkModeMonoOneBit = 0x00;
inline constexpr std::uint8_t kInkModeColorTwoBit = 0x31;
inline constexpr std::uint8_t kInkModeMonoTwoBit = 0x30;

// The paper command buffer, shared by every device and patched before it is sent.
extern std::uint8_t PaperCommand[4];

}  // namespace inkweave
