// The printer model on small hand-made passes: where head rows land at every nozzle pitch, what counts
// as printed, double prints and gaps, two-bit dots, the planes of a colour row, mode-1 halving, and the
// geometry errors; the ink each dot size carries and the sheet the paper command names.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/decode/streams.h"

namespace inkweave::decode {
namespace {

using namespace testing;

// A literal-coded record of `row` (pattern coder), or "Z" for an empty row.
Bytes Row(const Bytes& row) {
  if (row.empty()) return Blanks(1);
  return Coded(Bytes{static_cast<std::uint8_t>(row.size() - 1)} + row);
}

Bytes MonoPass(const std::vector<Bytes>& rows) {
  Bytes out;
  for (const Bytes& row : rows) out = out + Row(row);
  return out;
}

PrintedPage PrintOne(const std::string& resolution, const std::string& ink, const Bytes& body,
                     const DecodeOptions& options = {}) {
  auto pages = MustPrint(OnePage(resolution, ink, "05", body), options);
  if (pages.size() != 1) {
    ADD_FAILURE() << "expected one page";
    return {};
  }
  return pages[0];
}

TEST(PrintJob, HeadRowsLandAtEveryPitch) {
  struct Case {
    const char* Resolution;
    int Mode;        // 0: from the stream
    unsigned Top;    // feed that brings nozzle 0 to page row 0: 105 or 102 nozzle pitches
    unsigned Phase;  // the mode's feed per phase, 1/400 in
    int Dpi;
    int Pitch;  // page rows per nozzle
    int PhaseRows;
  };
  const Case cases[] = {
      {"01 01", 0, 280, 140, 300, 2, 105}, {"02 02", 0, 280, 70, 600, 4, 105}, {"03 03", 0, 280, 35, 1200, 8, 105},
      {"01 01", 3, 272, 68, 300, 2, 51},   {"02 02", 5, 272, 34, 600, 4, 51},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Resolution + std::string(" mode ") + std::to_string(c.Mode));
    // Nozzles 0, 2 and 4 carry a dot at x = 0, 1, 2; the second pass's nozzle 0 a dot at x = 3.
    const Bytes first = MonoPass({Hex("80 00"), {}, Hex("40 00"), {}, Hex("20 00")});
    const Bytes second = MonoPass({Hex("10 00")});
    const PrintedPage page = PrintOne(c.Resolution, "00", Feed(c.Top) + first + Feed(c.Phase) + second, {c.Mode});
    EXPECT_EQ(page.Dpi, c.Dpi);
    EXPECT_EQ(page.Mode, c.Mode == 0 ? (c.Dpi == 300 ? 2 : c.Dpi == 600 ? 4 : 6) : c.Mode);
    EXPECT_EQ(DotAt(page, 3, 0, 0), 1);
    EXPECT_EQ(DotAt(page, 3, 1, 2 * c.Pitch), 1);
    EXPECT_EQ(DotAt(page, 3, 2, 4 * c.Pitch), 1);
    EXPECT_EQ(DotAt(page, 3, 3, c.PhaseRows), 1);
    EXPECT_EQ(page.InkedRows, 4);
    EXPECT_EQ(page.HeightRows, c.PhaseRows + 1);
    EXPECT_EQ(page.WidthDots, 16);
    EXPECT_EQ(page.Stats.Passes, 2);
  }
}

TEST(PrintJob, ModeOneHalvesDoubledDots) {
  // 280 units bring nozzle 0 to row 0 at 150 dpi, pitch 1; a wire row of four bytes is two page bytes.
  const PrintedPage page = PrintOne(
      "01 00", "00",
      Feed(280) + MonoPass({Hex("C0 00 00 03"), {}, Hex("0C 30 00 00")}) + Feed(280) + MonoPass({Hex("00 00 C0 00")}));
  EXPECT_EQ(page.Dpi, 150);
  EXPECT_EQ(page.Mode, 1);
  EXPECT_EQ(page.WidthDots, 16);
  EXPECT_EQ(page.Bits[3][0].Rows[0], Hex("80 01"));
  EXPECT_EQ(page.Bits[3][0].Rows[2], Hex("24 00"));
  EXPECT_EQ(page.Bits[3][0].Rows[105], Hex("00 80"));
  // A wire dot without its twin is no mode-1 row.
  const Bytes bad = OnePage("01 00", "00", "05", Feed(280) + MonoPass({Hex("00 00"), Hex("40 00")}));
  const Error error = MustFail(bad);
  EXPECT_NE(error.Message.find("not sent twice"), std::string::npos);
  EXPECT_EQ(error.Offset, bad.size() - PageEnd().size() - JobEnd().size() - 6);
}

TEST(PrintJob, PrintedRowsGapsAndDoublePrints) {
  // 300 dpi, pitch 2. Pass A lands on rows 0, 2, 4 (its middle row blank); a feed of 4 units is 3 rows,
  // so pass B lands on 3, 5, 7. Rows 1 and 6 are never printed.
  const Bytes a = MonoPass({Hex("80"), {}, Hex("80")});
  const Bytes b = MonoPass({Hex("40"), Hex("40"), Hex("40")});
  const PrintedPage interleaved = PrintOne("01 01", "00", Feed(280) + a + Feed(4) + b);
  EXPECT_EQ(interleaved.RowsPrinted, 6);
  EXPECT_EQ(interleaved.UnprintedRows, 2);
  EXPECT_EQ(interleaved.RowsPrintedTwice, 0);
  EXPECT_EQ(interleaved.RowsInkedTwice, 0);
  EXPECT_EQ(interleaved.InkedRows, 5);
  EXPECT_EQ(interleaved.FirstPrintedRow, 0);
  EXPECT_EQ(interleaved.LastPrintedRow, 7);
  EXPECT_EQ(interleaved.PrintCounts[2], 1);  // a blank head row is a printed row of nothing
  EXPECT_EQ(interleaved.InkCounts[2], 0);
  EXPECT_EQ(interleaved.PrintCounts[6], 0);

  // A zero feed prints the same rows again: the ink is ORed and counted twice.
  const PrintedPage doubled = PrintOne("01 01", "00", Feed(280) + a + Feed(0) + b);
  EXPECT_EQ(doubled.RowsPrintedTwice, 3);
  EXPECT_EQ(doubled.RowsInkedTwice, 2);
  EXPECT_EQ(doubled.InkCounts[0], 2);
  EXPECT_EQ(doubled.Bits[3][0].Rows[0], Hex("C0"));
  EXPECT_EQ(doubled.UnprintedRows, 2);
}

TEST(PrintJob, BlankRowsAboveThePageTopAreDropped) {
  // 140 units are 105 rows at 300 dpi: nozzle h lands on 2h - 105, so nozzles 0..52 are above the paper.
  Bytes body = Feed(140) + Blanks(53) + MonoPass({Hex("80")});
  const PrintedPage page = PrintOne("01 01", "00", body);
  EXPECT_EQ(page.FirstPrintedRow, 1);
  EXPECT_EQ(page.RowsPrinted, 1);
  EXPECT_EQ(DotAt(page, 3, 0, 1), 1);
  // Ink there is an error at its record.
  const Bytes above = OnePage("01 01", "00", "05", Feed(140) + Blanks(52) + MonoPass({Hex("80")}));
  const Error error = MustFail(above);
  EXPECT_NE(error.Message.find("above the page top (page row -1)"), std::string::npos) << error.Message;
  EXPECT_EQ(error.Offset, above.size() - PageEnd().size() - JobEnd().size() - 5);
}

TEST(PrintJob, GeometryErrors) {
  // 281 units at 300 dpi are 210.75 rows.
  const Bytes head = JobStart() + ModeSettings("01 01", "00", "05") + PageStart("01 01", "00", "05");
  const Bytes fractional = head + Feed(281) + MonoPass({Hex("80")}) + PageEnd() + JobEnd();
  const Error error = MustFail(fractional);
  EXPECT_EQ(error.Offset, head.size());
  EXPECT_NE(error.Message.find("not a whole number of page rows"), std::string::npos);
  // Modes 3 and 5 use the even nozzles only.
  const Bytes odd = OnePage("01 01", "00", "05", Feed(280) + MonoPass({{}, Hex("80")}));
  EXPECT_NE(MustFail(odd, {3}).Message.find("odd nozzle"), std::string::npos);
  EXPECT_EQ(MustPrint(odd).size(), 1u);  // the same stream read as mode 2
  // Page width and row length are capped.
  const Bytes wide = OnePage("01 01", "00", "05", Feed(280) + RawRow(Bytes(1282, 0x80)));
  EXPECT_NE(MustFail(wide).Message.find("wider than the 10240-dot page limit"), std::string::npos);
  Bytes longCodes;
  for (int i = 0; i < 21; ++i) longCodes = longCodes + Hex("FF 00 00 00 00");
  const Bytes tooLong = OnePage("01 01", "00", "05", Feed(280) + Coded(longCodes));
  EXPECT_NE(MustFail(tooLong).Message.find("beyond the 2560-byte row limit"), std::string::npos);
}

TEST(PrintJob, TwoBitDotsAndColourPlanes) {
  // Two-bit mono row, raw: first bit plane C0, second A0.
  const PrintedPage mono = PrintOne("01 01", "30", Feed(280) + RawRow(Hex("C0 A0")));
  EXPECT_EQ(mono.BitsPerDot, 2);
  EXPECT_FALSE(mono.Color);
  EXPECT_EQ(DotAt(mono, 3, 0, 0), 3);
  EXPECT_EQ(DotAt(mono, 3, 1, 0), 1);
  EXPECT_EQ(DotAt(mono, 3, 2, 0), 2);
  EXPECT_EQ(DotAt(mono, 3, 3, 0), 0);
  EXPECT_EQ(DotAt(mono, 0, 0, 0), 0);
  EXPECT_EQ(DotAt(mono, 3, 0, 1), 0);
  // A colour row: black, yellow, cyan, magenta on the wire; each plane gets its own dot.
  const PrintedPage colour =
      PrintOne("01 01", "10", Feed(280) + Row(Hex("80")) + Row(Hex("40")) + Row(Hex("20")) + Row(Hex("10")));
  EXPECT_TRUE(colour.Color);
  EXPECT_EQ(colour.BitsPerDot, 1);
  EXPECT_EQ(DotAt(colour, 3, 0, 0), 1);
  EXPECT_EQ(DotAt(colour, 2, 1, 0), 1);
  EXPECT_EQ(DotAt(colour, 0, 2, 0), 1);
  EXPECT_EQ(DotAt(colour, 1, 3, 0), 1);
  EXPECT_EQ(DotAt(colour, 1, 2, 0), 0);
  EXPECT_EQ(colour.Stats.Records, 4u);
}

TEST(PrintJob, BlankPagesAndStatistics) {
  // A page of feeds only prints nothing and reports its feeds.
  const PrintedPage blank = PrintOne("01 01", "10", Feed(140) + Feed(140) + Feed(140));
  EXPECT_EQ(blank.HeightRows, 0);
  EXPECT_EQ(blank.RowsPrinted, 0);
  EXPECT_EQ(blank.Stats.Feeds, 3);
  EXPECT_EQ(blank.Stats.TotalFeed, 420);
  EXPECT_EQ(blank.Stats.Passes, 0);
  EXPECT_TRUE(blank.Color);
  EXPECT_EQ(DotAt(blank, 3, 0, 0), 0);
}

// One dot of each value in each mode carries the ink its halftoner books for it (in 1/255 of a cell).
TEST(PrintJob, DotsCarryTheInkOfTheirSizeInEveryMode) {
  const struct {
    const char* Resolution;
    const char* Ink;
    Bytes Body;
    int Expected[4];  // ink of page dots 0..3 of the black plane
  } kCases[] = {
      {"01 00", "00", Row(Hex("F0 00")), {255, 255, 0, 0}},       // 150 dpi: wire dots doubled
      {"01 01", "00", Row(Hex("C0")), {255, 255, 0, 0}},          // 300 dpi, one bit (dither)
      {"01 01", "30", RawRow(Hex("C0 A0")), {255, 248, 100, 0}},  // 300 dpi: large, medium, small
      {"02 02", "30", RawRow(Hex("C0 A0")), {255, 255, 212, 0}},  // 600 dpi: large, small
      {"02 02", "00", Row(Hex("80")), {255, 0, 0, 0}},            // 600 dpi, one bit
      {"03 03", "00", Row(Hex("00 C0")), {0, 0, 0, 0}},           // high resolution: dots 8 and 9
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.Resolution) + " I " + c.Ink);
    const PrintedPage page = PrintOne(c.Resolution, c.Ink, Feed(280) + c.Body);
    for (int x = 0; x < 4; ++x) EXPECT_NEAR(MeanInk(page, x, 0, 1, 1).Ink[3] * 255, c.Expected[x], 1e-9) << "dot " << x;
    EXPECT_NEAR(MeanInk(page, 0, 0, 1, 1).Ink[0], 0, 1e-12);  // no cyan
  }
  const PrintedPage top = PrintOne("03 03", "00", Feed(280) + Row(Hex("00 C0")));
  EXPECT_NEAR(MeanInk(top, 8, 0, 2, 1).Ink[3], 350.0 / 255, 1e-9);
  // Means over boxes: two dots of 255 in a 4 x 1 box give half a cell of ink.
  const PrintedPage one = PrintOne("01 01", "00", Feed(280) + Row(Hex("C0")));
  const InkGrid grid = GatherInk(one, 0, 0, 4, 1, 2, 1);
  ASSERT_EQ(grid.Boxes.size(), 2u);
  EXPECT_NEAR(grid.Boxes[0].Ink[3], 1.0, 1e-12);
  EXPECT_NEAR(grid.Boxes[0].BlackCells, 1.0, 1e-12);
  EXPECT_NEAR(grid.Boxes[1].Ink[3], 0.0, 1e-12);
  EXPECT_NEAR(MeanInk(one, -2, 0, 4, 1).Ink[3], 0.5, 1e-12);  // cells off the page are bare paper
}

// A grid made strip by strip is the grid made whole, box for box, for grids finer and coarser than the
// dots, over rectangles reaching past the page.
TEST(GatherInk, StripsMakeTheWholeGrid) {
  std::vector<Bytes> rows;
  for (int r = 0; r < 40; ++r) rows.push_back(r % 3 ? Bytes{static_cast<std::uint8_t>(37 * r), 0xA5} : Bytes{});
  const PrintedPage page = PrintOne("01 01", "00", Feed(280) + MonoPass(rows));
  ASSERT_GT(page.HeightRows, 30);
  for (const auto& [y, h, gridRows] :
       {std::tuple{0, page.HeightRows, 7}, std::tuple{-5, 60, 60}, std::tuple{3, 20, 45}})
    for (int strip : {1, 4, 9}) {
      SCOPED_TRACE(::testing::Message() << "rows " << y << "+" << h << " in " << gridRows << ", strips of " << strip);
      const InkGrid whole = GatherInk(page, -3, y, 19, h, 5, gridRows);
      for (int first = 0; first < gridRows; first += strip) {
        const int count = std::min(strip, gridRows - first);
        const InkGrid part = GatherInkRows(page, -3, y, 19, h, 5, gridRows, first, count);
        ASSERT_EQ(part.Boxes.size(), static_cast<std::size_t>(5 * count));
        for (std::size_t b = 0; b < part.Boxes.size(); ++b) {
          const AreaInk& a = part.Boxes[b];
          const AreaInk& w = whole.Boxes[static_cast<std::size_t>(first) * 5 + b];
          ASSERT_EQ(a.Ink, w.Ink) << "box " << b << " of strip " << first;
          ASSERT_EQ(a.BlackCells, w.BlackCells);
          ASSERT_EQ(a.UnderBlack, w.UnderBlack);
        }
      }
    }
}

// The sheet comes from the paper command: the smaller of a shared code unless the print runs past it,
// the envelope sizes told by "Fn", and the print placed at the printer's margins.
TEST(FindSheet, PaperCommandNamesTheSheet) {
  const struct {
    int Paper;
    bool Long, Envelope;
    int WidthDots, HeightRows;  // the print at 300 dpi
    const char* Name;
    double WidthMm, HeightMm;
    bool Overrun;
  } kCases[] = {
      {0x01, false, false, 2400, 3400, "A4", 210, 297, false},
      {0x01, false, false, 2400, 3600, "C4 envelope", 229, 324, false},  // runs past A4
      {0x01, false, true, 100, 100, "C4 envelope", 229, 324, false},
      {0xFF, true, false, 2400, 3200, "Letter", 215.9, 279.4, false},
      {0xFF, true, false, 2400, 3300, "Legal", 215.9, 355.6, false},
      {0x07, false, false, 100, 100, "A5", 148, 210, false},
      {0x0A, false, true, 100, 100, "DL envelope", 110, 220, false},
      {0x0D, false, true, 1200, 100, "Monarch envelope", 1200 * 25.4 / 300 + 2 * 3.4 + 0.02, 190.5, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.Name);
    Settings settings;
    settings.Paper = c.Paper;
    settings.PaperLong = c.Long;
    settings.Envelope = c.Envelope;
    const Sheet sheet = FindSheet(settings, 300, c.WidthDots, c.HeightRows);
    EXPECT_EQ(sheet.Name, c.Name);
    EXPECT_TRUE(sheet.Known);
    EXPECT_EQ(sheet.Overrun, c.Overrun);
    EXPECT_NEAR(sheet.HeightMm, c.HeightMm, 0.01);
    if (!c.Overrun) {
      EXPECT_NEAR(sheet.WidthMm, c.WidthMm, 0.01);
    }
    EXPECT_GE(sheet.WidthDots, sheet.LeftDots + c.WidthDots);
    EXPECT_EQ(sheet.LeftDots, 40);  // 3.4 mm
    EXPECT_EQ(sheet.TopDots, 35);   // 3 mm
  }
  Settings unknown;
  unknown.Paper = 0xFF;
  const Sheet loose = FindSheet(unknown, 600, 1000, 2000);
  EXPECT_EQ(loose.Name, "unknown");
  EXPECT_FALSE(loose.Known);
  EXPECT_EQ(loose.WidthDots, 2 * loose.LeftDots + 1000);
  // A page of a stream carries its sheet and its medium.
  const PrintedPage page = PrintOne("01 01", "00", Feed(280) + Row(Hex("80")));
  EXPECT_EQ(page.Paper.Name, "A4");
  EXPECT_EQ(page.Medium, 0);
}

}  // namespace
}  // namespace inkweave::decode
