// The raster emitter driven as the band driver drives it, where printed pages do not reach (the weave
// round trips and the whole-stream suite cover the rest): blank pages, the bit-depth command in
// monochrome, the widest highest-resolution rows, the top-of-page feed at any offset and resolution.
// Failed writes are the whole-job write-fault grid's.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "src/raster/row_records.h"
#include "src/raster/weave.h"
#include "tests/support/bytes.h"
#include "tests/support/emit_driver.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::EmitDevice;
using testing::FirstDifference;
using testing::Hex;
using testing::operator+;

#define EXPECT_BYTES(actual, expected) EXPECT_EQ(FirstDifference(actual, expected), "")

std::vector<Bytes> Writes(const EmitDevice& device) {
  std::vector<Bytes> out;
  for (const auto& write : device.Spool.Writes()) out.push_back(write.Bytes);
  return out;
}

// Fills plane p of stripe rows [0, rows) with value.
void Fill(EmitDevice& device, int rows, int plane, std::uint8_t value, int bytes, int half = 0) {
  for (int n = 0; n < rows; ++n) std::fill_n(device.PlaneRow(half, n, plane), bytes, value);
}

TEST(EmitStripe, BlankPages) {
  // Modes 2..6: one feed per pass flushed and no pass data. Mode 1: nothing at all.
  for (int mode = 1; mode <= 6; ++mode) {
    EmitDevice device(static_cast<std::uint8_t>(mode));
    device.State.InkModeCode = kInkModeColorOneBit;
    const BandInfo band = testing::MakeBand(800);
    testing::BeginPage(device.State);
    for (int stripe = 0; stripe < 3; ++stripe) testing::EmitOne(device, mode >= 6 ? 4 : 16, band, 0);
    testing::FinishPage(device, band);
    const std::vector<Bytes> actual = Writes(device);
    EXPECT_EQ(actual.size(), mode == 1 ? 0u : static_cast<std::size_t>(kWeaveModeTable[mode].PassBuffers)) << mode;
    for (const Bytes& write : actual) EXPECT_EQ(write.size() == 3 && write[0] == 'F', true) << mode;
    for (const PassBuffer& pass : device.State.StripeBuffers) EXPECT_EQ(pass.WritePos, pass.BufferStart);
  }
}

TEST(EmitStripe, BitDepthFollowsTheHalftoneAcrossPages) {
  for (const std::uint16_t colorMode : {2, 1}) {
    const std::uint8_t mono = colorMode == 2 ? 0 : kPrintModeMonochrome;
    EmitDevice device(static_cast<std::uint8_t>(2 | mono), colorMode);
    device.State.InkModeCode = colorMode == 2 ? kInkModeColorOneBit : kInkModeMonoOneBit;
    const BandInfo band = testing::MakeBand(64);
    auto page = [&](std::uint8_t halftone, std::uint8_t printMode) {
      device.State.ActiveHalftone = halftone;
      device.State.PrintMode = static_cast<std::uint8_t>(printMode | mono);
      device.Spool.Clear();
      testing::BeginPage(device.State);
      device.ClearPlanes();
      testing::EmitOne(device, 16, band, 0);  // a blank stripe considers no depth
      Fill(device, 16, 3, 0xCC, 8, 1);        // second bits only
      testing::EmitOne(device, 16, band, 1);
      return Writes(device);
    };
    EXPECT_TRUE(page(1, 2).empty());  // dithered: one bit, as already sent
    std::vector<Bytes> writes = page(2, 2 | kPrintModeFlag);
    ASSERT_FALSE(writes.empty());
    EXPECT_BYTES(writes[0], colorMode == 2 ? Hex("49 31") : Hex("49 30"));
    EXPECT_EQ(device.State.InkModeCode, colorMode == 2 ? 0x31 : 0x30);
    // The rows are two-bit records: the second half's dots reach the pass.
    EXPECT_GT(device.State.StripeBuffers[0].WritePos - device.State.StripeBuffers[0].BufferStart, 32);
    EXPECT_TRUE(page(2, 2 | kPrintModeFlag).empty());  // the code persists across pages
    writes = page(1, 2);
    ASSERT_FALSE(writes.empty());
    EXPECT_BYTES(writes[0], colorMode == 2 ? Hex("49 10") : Hex("49 00"));
  }
}

// The highest resolution caps a row at 1,280 bytes; three rows of the stripe height take six.
TEST(EmitStripe, HighestResolutionRowsAreCappedAtThePlane) {
  std::mt19937 random(11);
  EmitDevice wide(6);
  wide.State.InkModeCode = kInkModeColorOneBit;
  testing::BeginPage(wide.State);
  Bytes noise(1280);
  for (auto& b : noise) b = static_cast<std::uint8_t>(random() | 1);
  for (std::size_t i = 1; i < noise.size(); ++i)
    if (noise[i] == noise[i - 1]) noise[i] ^= 0x10;
  std::copy(noise.begin(), noise.end(), wide.PlaneRow(0, 0, 3));
  testing::EmitOne(wide, 3, testing::MakeBand(6000), 1);
  EXPECT_EQ(wide.State.PhaseRow, 6);  // short stripe: flushed; mode 6 keeps its phase and row count
  const std::vector<Bytes> writes = Writes(wide);
  ASSERT_EQ(writes.size(), 8u + 1);  // eight feeds and the one pass with ink
  EXPECT_BYTES(writes[8], Hex("47 00 85") + noise + Hex("5A 5A 5A"));
}

TEST(EmitStripe, TopOfPageFeedMultipliesOffsetByBandHeight) {
  struct Case {
    std::uint16_t quality;
    std::uint8_t landscape;
    std::uint32_t offset;
    std::uint16_t position;  // PaperPosition before
    Bytes feed;              // empty: none
    std::uint16_t after;
  };
  // Band of 50 x 100 pixels.
  for (const Case& c : {Case{300, 0, 200, 0, Hex("46 2A 68"), 26666},  // 100 x 4 x 200 / 3
                        Case{300, 0, 200, 1000, Hex("46 42 64"), 26666}, Case{150, 0, 200, 0, Hex("46 55 D0"), 53333},
                        Case{600, 0, 200, 0, Hex("46 15 34"), 13333}, Case{1200, 0, 200, 0, Hex("46 15 34"), 13333},
                        Case{200, 0, 200, 0, Hex("46 0A 1A"), 6666},
                        Case{300, 1, 200, 0, Hex("46 15 34"), 13333},  // landscape: the width, 50
                        Case{300, 0, 0, 0, Bytes{}, 0}}) {
    EmitDevice device(2);
    device.State.InkModeCode = kInkModeColorOneBit;
    device.State.PrintQuality = c.quality;
    device.State.Landscape = c.landscape;
    testing::BeginPage(device.State);
    device.State.BandOffset = c.offset;
    device.State.PaperPosition = c.position;
    testing::EmitOne(device, 16, testing::MakeBand(50, 100), 0);
    const std::vector<Bytes> actual = Writes(device);
    ASSERT_EQ(actual.size(), c.feed.empty() ? 0u : 1u) << c.quality;
    if (!c.feed.empty()) {
      EXPECT_BYTES(actual[0], c.feed) << c.quality;
    }
    EXPECT_EQ(device.State.PaperPosition, c.feed.empty() ? c.position : c.after);
    // Later stripes of the page write no top feed.
    testing::EmitOne(device, 16, testing::MakeBand(50, 100), 0);
    EXPECT_EQ(Writes(device).size(), actual.size());
  }
}

}  // namespace
}  // namespace inkweave
