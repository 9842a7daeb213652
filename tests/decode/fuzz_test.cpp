// Damaged streams: seeded random byte changes and truncations of a valid three-page job. Every case must
// come back as a job or as an error whose offset lies inside the stream; truncated jobs that still parse
// must keep the pages that ended before the cut unchanged; printed pages must be self-consistent.
#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "tests/decode/streams.h"

namespace inkweave::decode {
namespace {

using namespace testing;

constexpr std::uint32_t kSeed = 20240611;

Bytes ValidJob() {
  // Colour, one bit per dot, pattern coder, 300 dpi.
  const Bytes black = Coded(Hex("07 80 00 00 00 00 00 00 01"));
  const Bytes nothing = Coded(Hex("87 00 00 00 00"));
  const Bytes colourBody = Feed(280) + Blanks(4) + black + Blanks(1) + nothing + Blanks(1) + Blanks(1) +
                           Coded(Hex("07 01 02 03 04 05 06 07 08")) + RawRow(Hex("FF 00 FF 00 FF 00 FF 00")) +
                           Blanks(1) + Feed(140) + black + Blanks(3) + black + Blanks(3) + Feed(140) + Feed(140);
  // Monochrome, two bits per dot, PackBits, then one bit per dot.
  const Bytes monoBody = Feed(280) + Coded(Hex("FD 11 FE 22 00 33 00 33 FA 00")) + Blanks(1) +
                         RawRow(Hex("01 02 03 04 05 06 07 08 80 40 20 10 08 04 02 01")) + Feed(140) +
                         Coded(Hex("F9 00")) + Hex("49 00") + Coded(Hex("F9 AA")) + Feed(140);
  // Mode 1 on a DL envelope, rows doubled across.
  const Bytes modeOneBody = Feed(280) + Coded(Hex("03 C0 00 00 03")) + Blanks(1) + Coded(Hex("85 0C 30")) + Feed(272) +
                            Coded(Hex("03 00 F0 0F 00"));
  return JobStart() + ModeSettings("01 01", "10", "05") + PageStart("01 01", "10", "05") + colourBody + PageEnd() +
         ModeSettings("01 01", "30", "02") + Zeros(503) + Hex("59 00 00 58 00 00 73 01") + monoBody + PageEnd() +
         ModeSettings("01 00", "00", "05") + Zeros(503) + Hex("59 00 00 58 00 00 73 0A 46 6E 00") + modeOneBody +
         PageEnd() + JobEnd();
}

// Checks that hold for every printed page.
void ExpectConsistent(const PrintedPage& page) {
  ASSERT_GE(page.HeightRows, 0);
  ASSERT_EQ(page.PrintCounts.size(), static_cast<std::size_t>(page.HeightRows));
  ASSERT_EQ(page.InkCounts.size(), static_cast<std::size_t>(page.HeightRows));
  EXPECT_LE(page.WidthDots, kMaxPageWidthDots);
  EXPECT_LE(page.RowsPrinted, page.HeightRows);
  EXPECT_LE(page.InkedRows, page.RowsPrinted);
  for (const auto& plane : page.Bits) {
    for (const auto& bits : plane) {
      EXPECT_LE(bits.Rows.size(), static_cast<std::size_t>(page.HeightRows));
      for (const auto& row : bits.Rows) {
        EXPECT_TRUE(row.empty() || row.size() == static_cast<std::size_t>((page.WidthDots + 7) / 8));
      }
    }
  }
}

TEST(DecoderFuzz, DamagedStreamsGiveAJobOrAnErrorInside) {
  const Bytes valid = ValidJob();
  const Job reference = MustParse(valid);
  ASSERT_EQ(reference.Pages.size(), 3u);
  EXPECT_TRUE(reference.Ended);
  EXPECT_TRUE(reference.Pages[2].PageSettings.Envelope);
  const auto printedValid = MustPrint(valid);
  ASSERT_EQ(printedValid.size(), 3u);
  EXPECT_EQ(printedValid[0].Mode, 2);
  EXPECT_EQ(printedValid[1].BitsPerDot, 2);
  EXPECT_EQ(printedValid[2].Mode, 1);
  EXPECT_EQ(printedValid[2].Bits[3][0].Rows.at(2), Hex("24 24"));
  for (const PrintedPage& page : printedValid) ExpectConsistent(page);

  std::mt19937 random(kSeed);
  const auto started = std::chrono::steady_clock::now();
  int parsed = 0;
  int failed = 0;
  for (int n = 0; n < 4000; ++n) {
    Bytes stream = valid;
    const int kind = static_cast<int>(random() % 3);
    // 0: change a few bytes; 1: truncate; 2: both. Changes favour the raster part after the padding.
    if (kind != 1) {
      const int changes = 1 + static_cast<int>(random() % 4);
      for (int i = 0; i < changes; ++i) {
        const std::size_t at = 1900 + random() % (stream.size() - 1900);
        stream[at] = random() % 2 ? static_cast<std::uint8_t>(random()) : stream[at] ^ (1u << (random() % 8));
      }
    }
    if (kind != 0) stream.resize(random() % stream.size());
    SCOPED_TRACE("case " + std::to_string(n));

    auto result = ParseJob(stream);
    if (auto* error = std::get_if<Error>(&result)) {
      ++failed;
      ASSERT_LE(error->Offset, stream.size()) << error->Message;
      ASSERT_FALSE(error->Message.empty());
      continue;
    }
    const Job& job = std::get<Job>(result);
    if (kind == 1) {
      // A cut stream keeps every page that ended before the cut, exactly.
      ASSERT_LE(job.Pages.size(), reference.Pages.size());
      for (std::size_t p = 0; p < job.Pages.size(); ++p) {
        EXPECT_EQ(job.Pages[p].Passes.size(), reference.Pages[p].Passes.size());
        EXPECT_EQ(job.Pages[p].Stats.PassBytes, reference.Pages[p].Stats.PassBytes);
      }
      EXPECT_TRUE(stream.size() == 2007 || !job.Ended) << "a cut job is not an ended one";
    }
    auto printed = PrintJob(job);
    if (auto* error = std::get_if<Error>(&printed)) {
      ++failed;
      ASSERT_LE(error->Offset, stream.size()) << error->Message;
      continue;
    }
    ++parsed;
    const auto& pages = std::get<std::vector<PrintedPage>>(printed);
    ASSERT_EQ(pages.size(), job.Pages.size());
    for (const PrintedPage& page : pages) ExpectConsistent(page);
  }
  EXPECT_GT(parsed, 100);
  EXPECT_GT(failed, 100);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
}

}  // namespace
}  // namespace inkweave::decode
