// Weave round trips: pages of dot planes go stripe by stripe through EmitStripe, are wrapped as a job,
// and come back through the stream decoder and printer model (decode/, which shares no code with the
// plug-in).
//
// Invariants, for every mode 1..6, colour and monochrome, one- and two-bit dots, and page heights that
// end in every phase of the pass cycle (so that the last passes are shortened in every way):
//   - the job parses and prints without a fault;
//   - every page row that holds ink lands exactly once (one inked head row on it), and no ink lands
//     anywhere else;
//   - every dot of every plane comes back with its value;
//   - the feeds of the page add up to the paper position the emitter keeps.
//
// Then the emitter where printed pages do not reach: blank pages, the top-of-page feed at any offset and
// resolution. Failed writes are the whole-job write-fault grid's; the
// bit-depth command across pages, the whole-stream suite's pages whose halftone changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "decode/decoder.h"
#include "src/commands/command_writer.h"
#include "src/commands/printer_commands.h"
#include "src/raster/row_records.h"
#include "src/raster/weave.h"
#include "tests/support/bytes.h"
#include "tests/support/emit_driver.h"
#include "tests/support/print_stream.h"

namespace inkweave {
namespace {

using testing::DotPage;
using testing::EmitDevice;

struct Case {
  int Mode;  // 1..6
  bool Color;
  bool TwoBit;  // error diffusion in modes 2..5
  int Rows;     // page height in raster rows
  int Pixels;   // line width in pixels
};

// Random dots with blank rows and blank stretches, in the planes the page uses.
DotPage MakePage(const Case& c, int width, unsigned seed) {
  DotPage page(c.Rows, width);
  std::mt19937 random(seed);
  for (int row = 0; row < c.Rows; ++row) {
    if (random() % 5 == 0 || (row / 16) % 7 == 3) continue;  // blank rows and a blank stripe now and then
    for (int plane = c.Color ? 0 : 3; plane < 4; ++plane) {
      if (c.Color && random() % 4 == 0) continue;
      for (int h = 0; h < (c.TwoBit ? 2 : 1); ++h) {
        std::uint8_t* bytes = page.Row(h, row, plane);
        for (int i = 0; i < width; ++i) {
          const unsigned r = random();
          bytes[i] = r % 3 == 0 ? 0 : static_cast<std::uint8_t>(r >> 8);
        }
        // Mode 1 rows are widened on the wire; keep some rows whose only dot is the first or last.
        if (row % 11 == 5) {
          std::fill(bytes, bytes + width, 0);
          bytes[row % 2 ? 0 : width - 1] = row % 2 ? 0x80 : 0x01;
        }
      }
    }
  }
  return page;
}

// Compares a printed page with the dot planes that were sent.
void ExpectPrinted(const Case& c, const DotPage& page, const decode::PrintedPage& out) {
  const auto bit = [](const std::uint8_t* row, int x) { return (row[x / 8] >> (7 - x % 8)) & 1; };
  int inkedRows = 0, wrongRows = 0, firstWrong = -1;
  for (int row = 0; row < c.Rows; ++row) {
    bool ink = false, same = true;
    for (int plane = c.Color ? 0 : 3; plane < 4; ++plane)
      for (int x = 0; x < page.Width * 8; ++x) {
        const int want = bit(page.Row(0, row, plane), x) | (c.TwoBit ? bit(page.Row(1, row, plane), x) << 1 : 0);
        ink = ink || want != 0;
        same = same && decode::DotAt(out, plane, x, row) == want;
      }
    const int landed = row < static_cast<int>(out.InkCounts.size()) ? out.InkCounts[static_cast<std::size_t>(row)] : 0;
    if ((!same || landed != (ink ? 1 : 0)) && wrongRows++ == 0) firstWrong = row;
    inkedRows += ink;
  }
  EXPECT_EQ(wrongRows, 0) << "first wrong row " << firstWrong;
  EXPECT_EQ(out.InkedRows, inkedRows) << "ink landed outside the page's rows";
  EXPECT_EQ(out.RowsInkedTwice, 0);
  // Nothing lands below the page (a mode-6 page of odd height carries one blank row more).
  EXPECT_LT(out.LastPrintedRow, c.Rows + (c.Mode == 6 ? c.Rows % 2 : 0));
}

class WeaveRoundTrip : public ::testing::TestWithParam<Case> {};

TEST_P(WeaveRoundTrip, EveryRowLandsOnceWithItsDots) {
  const Case c = GetParam();
  const std::uint8_t printMode =
      static_cast<std::uint8_t>(c.Mode | (c.Color ? 0 : kPrintModeMonochrome) | (c.TwoBit ? kPrintModeFlag : 0));
  const std::uint16_t quality = c.Mode == 1 ? 150 : c.Mode <= 3 ? 300 : 600;
  EmitDevice device(printMode, c.Color ? 2 : 1, quality, c.TwoBit ? 2 : 1);
  const int width = PlaneRowBytes(LevelOf(printMode), c.Pixels);
  const DotPage page = MakePage(c, width, static_cast<unsigned>(c.Mode * 1000 + c.Rows * 4 + c.Color * 2 + c.TwoBit));
  const BandInfo band = testing::MakeBand(c.Pixels);
  std::uint16_t position = 0;
  testing::EmitJob(device, [&] {
    testing::EmitPage(device, page, band);
    position = device.State.PaperPosition;
  });

  decode::DecodeOptions options;
  options.WeaveMode = c.Mode == 3 || c.Mode == 5 ? c.Mode : 0;
  decode::Job job;
  const auto printed = testing::PrintStream(device.Spool.Stream(), options, &job);
  ASSERT_EQ(printed.size(), 1u);
  EXPECT_EQ(job.Pages[0].Stats.TotalFeed, position);
  const decode::PrintedPage& out = printed[0];
  EXPECT_EQ(out.Mode, c.Mode);

  ExpectPrinted(c, page, out);
}

// Heights that end the page in every phase of the pass cycle, half-way into the phase and at its end,
// in the first cycle (passes still filling) and the second (steady state), so that the last passes are
// shortened in every way; and a page of one row. Colour and depth alternate over the heights.
std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (int mode = 1; mode <= 6; ++mode) {
    const WeaveMode& weave = kWeaveModeTable[mode];
    std::vector<int> heights{1};
    for (int cycle = 0, row = 0; cycle < 2; ++cycle)
      for (int phase = 0; phase < weave.Phases; ++phase) {
        heights.push_back(row + weave.RowsOfPhase[phase] / 2);
        row += weave.RowsOfPhase[phase];
        if (cycle == 1) heights.push_back(row);
      }
    int k = 0;
    for (const int rows : heights) {
      const bool twoBit = mode >= 2 && mode <= 5 && k % 2 == 1;
      cases.push_back({mode, (k / 2) % 2 == 0, twoBit, rows, 120});
      ++k;
    }
  }
  // Wide rows: up to the full plane.
  cases.push_back({1, true, false, 250, 1700});
  cases.push_back({2, true, true, 250, 5000});
  cases.push_back({4, false, false, 250, 5100});
  cases.push_back({5, true, true, 250, 5100});
  cases.push_back({6, true, false, 250, 5120});
  return cases;
}

std::string CaseName(const ::testing::TestParamInfo<Case>& param) {
  const Case& c = param.param;
  return "Mode" + std::to_string(c.Mode) + (c.Color ? "Color" : "Mono") + (c.TwoBit ? "TwoBit" : "OneBit") + "Rows" +
         std::to_string(c.Rows) + (c.Pixels > 120 ? "Wide" : "");
}

INSTANTIATE_TEST_SUITE_P(Pages, WeaveRoundTrip, ::testing::ValuesIn(Cases()), CaseName);

using testing::Bytes;
using testing::Hex;

TEST(EmitStripe, BlankPages) {
  // Modes 2..6: one feed per pass flushed and no pass data. Mode 1: nothing at all.
  for (int mode = 1; mode <= 6; ++mode) {
    EmitDevice device(static_cast<std::uint8_t>(mode));
    device.State.InkModeCode = kInkModeColorOneBit;
    const BandInfo band = testing::MakeBand(800);
    testing::BeginPage(device.State);
    for (int stripe = 0; stripe < 3; ++stripe) testing::EmitOne(device, mode >= 6 ? 4 : 16, band, 0);
    testing::FinishPage(device, band);
    const auto& writes = device.Spool.Writes();
    EXPECT_EQ(writes.size(), mode == 1 ? 0u : static_cast<std::size_t>(kWeaveModeTable[mode].PassBuffers)) << mode;
    for (const auto& write : writes) EXPECT_TRUE(write.Bytes.size() == 3 && write.Bytes[0] == 'F') << mode;
    for (const PassBuffer& pass : device.State.StripeBuffers) EXPECT_EQ(pass.WritePos, pass.BufferStart);
  }
}

TEST(EmitStripe, TopOfPageFeedMultipliesOffsetByBandHeight) {
  struct Feed {
    std::uint16_t quality;
    std::uint8_t landscape;
    std::uint32_t offset;
    std::uint16_t position;  // PaperPosition before
    Bytes feed;              // empty: none
    std::uint16_t after;
  };
  // Band of 50 x 100 pixels.
  for (const Feed& c : {Feed{300, 0, 200, 0, Hex("46 2A 68"), 26666},  // 100 x 4 x 200 / 3
                        Feed{300, 0, 200, 1000, Hex("46 42 64"), 26666}, Feed{150, 0, 200, 0, Hex("46 55 D0"), 53333},
                        Feed{600, 0, 200, 0, Hex("46 15 34"), 13333}, Feed{1200, 0, 200, 0, Hex("46 15 34"), 13333},
                        Feed{200, 0, 200, 0, Hex("46 0A 1A"), 6666},
                        Feed{300, 1, 200, 0, Hex("46 15 34"), 13333},  // landscape: the width, 50
                        Feed{300, 0, 0, 0, Bytes{}, 0}}) {
    EmitDevice device(2);
    device.State.InkModeCode = kInkModeColorOneBit;
    device.State.PrintQuality = c.quality;
    device.State.Landscape = c.landscape;
    testing::BeginPage(device.State);
    device.State.BandOffset = c.offset;
    device.State.PaperPosition = c.position;
    testing::EmitOne(device, 16, testing::MakeBand(50, 100), 0);
    const std::size_t writes = device.Spool.Writes().size();
    EXPECT_EQ(device.Spool.Stream(), c.feed) << c.quality;
    EXPECT_EQ(device.State.PaperPosition, c.feed.empty() ? c.position : c.after);
    // Later stripes of the page write no top feed.
    testing::EmitOne(device, 16, testing::MakeBand(50, 100), 0);
    EXPECT_EQ(device.Spool.Writes().size(), writes);
  }
}

}  // namespace
}  // namespace inkweave
