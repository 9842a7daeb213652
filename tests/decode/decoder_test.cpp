// The stream decoder and printer model on hand-written streams, for what the whole-stream suite never
// sends: every malformed stream and row with its offset and words, the stream forms the plug-in writes
// only for some papers and jobs, double prints and gaps, and the ink a preview gathers strip by strip.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/decode/streams.h"
#include "tests/support/files.h"

namespace inkweave::decode {
namespace {

using namespace testing;

Bytes Repeat(const Bytes& part, int times) {
  Bytes out;
  for (int i = 0; i < times; ++i) out = out + part;
  return out;
}

// A literal-coded record of `row` (pattern coder), or "Z" for an empty row.
Bytes Rows(const std::vector<Bytes>& rows) {
  Bytes out;
  for (const Bytes& row : rows)
    out = out + (row.empty() ? Blanks(1) : Coded(Bytes{static_cast<std::uint8_t>(row.size() - 1)} + row));
  return out;
}

PrintedPage PrintOne(const std::string& resolution, const std::string& ink, const Bytes& body) {
  return inkweave::testing::PrintStream(OnePage(resolution, ink, "05", body)).at(0);
}

// Black row: eight bytes 80 00 .. 00 01 as one literal.
const Bytes kBlack = Coded(Hex("07 80 00 00 00 00 00 00 01"));

// Malformed streams and rows, parsed and printed: the offset of the fault and the words that name it.
TEST(DecodeJob, MalformedStreamsNameTheOffset) {
  const Bytes head = Head("01 01", "10"), mono = Head("01 01", "00"), packed = Head("01 01", "10", "02");
  const std::size_t h = head.size(), row = h + 6 + 3;  // the codes of a record after a feed and three blanks
  const Bytes tail = PageEnd() + JobEnd();
  const auto codes = [&](const Bytes& header, const std::string& hex) {
    return header + Feed(140) + Blanks(3) + Coded(Hex(hex)) + tail;
  };
  struct Case {
    const char* Name;
    Bytes Stream;
    std::size_t Offset;
    const char* Says;
    DecodeOptions Options = {};
  };
  const Case cases[] = {
      {"unknown letter", head + Feed(140) + Hex("51 00") + tail, h + 3, "unknown command byte 51"},
      {"header cut off", head + Feed(140) + Hex("47 09"), h + 3, "cut off"},
      {"data past the end", head + Feed(140) + Hex("47 09 00 07 80"), h + 3, "runs past the end"},
      {"feed cut off", head + Hex("46 8C"), h, "cut off"},
      {"unit code 10", codes(head, "AC 00 82 00"), row + 2, "names no unit"},
      {"literal cut off", codes(head, "03 01 02"), row, "needs 4 data bytes"},
      {"run cut off", codes(head, "FC"), row, "needs 1 data bytes"},
      {"PackBits code 80", codes(packed, "00 01 80 00"), row + 2, "code 80 is not used"},
      {"wrong length", head + Feed(140) + Blanks(3) + kBlack + Blanks(3) + Coded(Hex("0B") + Bytes(12, 1)) + tail,
       h + 6 + kBlack.size() + 3, "this page's rows are 8 bytes"},
      {"partial colour row", head + Feed(140) + Blanks(3) + kBlack + Blanks(2) + Feed(140) + tail,
       h + 6 + kBlack.size() + 2, "not a whole number of colour rows"},
      {"too many head rows", head + Feed(140) + Blanks(4 * 106) + Blanks(1) + tail, h + 3 + 424, "more than 106"},
      {"absurd feed", head + Feed(9000) + Feed(9000) + tail, h + 3, "page limit"},
      {"no form feed", head + Feed(140) + Blanks(4), h + 7, "no form feed"},
      {"escape", head + Hex("1B 41") + tail, h, "unknown escape"},
      {"reset inside page", head + Feed(140) + Hex("1B 40"), h + 3, "reset inside the page that began at offset "},
      {"unknown ink mode", head + Hex("49 20") + tail, h, "unknown ink mode"},
      {"empty record", head + Feed(140) + Blanks(3) + Hex("47 00 00") + tail, h + 6, "no data"},
      {"huge raw row", head + Feed(140) + Hex("47 FF FF") + tail, h + 3, "record limit"},
      {"no resolution", JobStart() + Hex("49 10 4D 05 46 8C 00 0C 1B 40"), JobStart().size() + 4, "no resolution"},
      {"beyond the memory budget",
       head + Feed(600) + Blanks(3) + kBlack + tail,
       h + 6,
       "memory budget of",
       {0, 3 * sizeof(PlaneRow) + 1}},  // the three blank records fit, the coded one does not
      {"weave mode against the resolution",
       Head("02 02", "00") + Feed(280) + kBlack + tail,
       h - 8,
       "weave mode 3",
       {3}},  // named at the page's position commands
      // 281 units at 300 dpi are 210.75 rows.
      {"fractional feed", mono + Feed(281) + Rows({Hex("80")}) + tail, h, "not a whole number of page rows"},
      {"mode-1 dot not doubled", Head("01 00", "00") + Feed(280) + Rows({Hex("00 00"), Hex("40 00")}) + tail, h + 9,
       "not sent twice"},
      // 140 units are 105 rows at 300 dpi: nozzle h lands on 2h - 105; blank rows above the top are dropped.
      {"ink above the page top", mono + Feed(140) + Blanks(52) + Rows({Hex("80")}) + tail, h + 55,
       "above the page top (page row -1)"},
      {"odd nozzle in mode 3", mono + Feed(280) + Rows({{}, Hex("80")}) + tail, h + 4, "odd nozzle", {3}},
      {"page too wide", mono + Feed(280) + RawRow(Bytes(1282, 0x80)) + tail, h + 3, "10240-dot page limit"},
      {"pattern codes past the limit", mono + Feed(280) + Coded(Repeat(Hex("FF 00 00 00 00"), 41)) + tail, h + 206,
       "decode to more than 5120 bytes"},
      {"PackBits codes past the limit", packed + Feed(140) + Blanks(3) + Coded(Repeat(Hex("81 00"), 41)) + tail,
       row + 80, "decode to more than 5120 bytes"},
      {"row too long", mono + Feed(280) + Coded(Repeat(Hex("FF 00 00 00 00"), 21)) + tail, h + 3,
       "beyond the 2560-byte row limit"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Name);
    const Error error = MustFail(c.Stream, c.Options);
    EXPECT_EQ(error.Offset, c.Offset) << error.Message;
    EXPECT_NE(error.Message.find(c.Says), std::string::npos) << error.Message;
  }
  // Parsed within the default budget, the printed page does not fit: the error names the page.
  const Bytes stream = head + Feed(600) + Blanks(3) + kBlack + tail;
  auto printed = PrintJob(ParseStream(stream), {0, 1});
  ASSERT_TRUE(std::holds_alternative<Error>(printed));
  EXPECT_EQ(std::get<Error>(printed).Offset, ParseStream(stream).Pages[0].Offset);
}

// Offsets, settings and statistics of a two-pass colour page (what `decode --stats` shows); the second
// pass two-bit after an "I".
TEST(ParseJob, OffsetsSettingsAndStatistics) {
  const Bytes cyan = Hex("00 00 00 F0 0F 00 00 00");
  const Bytes twoBit = Hex("87 FF 00 FF 00 8C 00 03 00 00 00 01");  // halves FF 00 .. and 00 .. 01
  const Bytes head = Head("01 01", "10");
  const Bytes pass1 = Blanks(4) + kBlack + Blanks(1) + RawRow(cyan) + Blanks(1);
  const Bytes pass2 = Coded(twoBit) + Blanks(3);
  const Bytes body = Feed(140) + pass1 + Feed(140) + Hex("49 31") + pass2;
  const Job job = ParseStream(head + body + PageEnd() + JobEnd());
  EXPECT_EQ(job.FinalSettings.InkMode, 0x31);
  ASSERT_EQ(job.Pages.size(), 1u);
  const Page& page = job.Pages[0];
  EXPECT_EQ(page.Offset, JobStart().size() + ModeSettings("01 01", "10", "05").size());  // with its settings
  EXPECT_EQ(page.EndOffset, head.size() + body.size());
  EXPECT_EQ(std::tie(page.Mode, page.PageSettings.Dpi, page.RowBytes), std::make_tuple(2, 300, 8));
  ASSERT_EQ(page.Passes.size(), 2u);
  const Pass& first = page.Passes[0];
  EXPECT_EQ(std::tie(first.Offset, first.FeedOffset, first.Bytes, first.HeadRows),
            std::make_tuple(head.size() + 3, head.size(), pass1.size(), 2));
  EXPECT_EQ(first.Records.at(4).Offset, head.size() + 3 + 4);
  EXPECT_TRUE(first.Records.at(6).Raw);
  EXPECT_EQ(page.Passes[1].PaperAdvance, 280);
  EXPECT_EQ(page.Passes[1].Records.at(0).Second, Hex("00 00 00 00 00 00 00 01"));
  const StreamStats& stats = page.Stats;
  EXPECT_EQ(std::tie(stats.Passes, stats.Feeds, stats.TotalFeed), std::make_tuple(2, 2, 280));
  EXPECT_EQ(std::tie(stats.Records, stats.BlankRecords, stats.CompressedRecords, stats.RawRecords),
            std::make_tuple(std::size_t{12}, std::size_t{9}, std::size_t{2}, std::size_t{1}));
  EXPECT_EQ(std::tie(stats.CompressedSize, stats.UncompressedSize),
            std::make_tuple(kBlack.size() - 3 + cyan.size() + twoBit.size(), std::size_t{32}));
  EXPECT_EQ(stats.StreamBytes, page.EndOffset + 1 - page.Offset);
}

// The forms the plug-in writes only for some papers and jobs, and those a foreign stream may hold.
TEST(ParseJob, EnvelopesJobEndsPassesAndRecordForms) {
  // 46 6E 00 right after the paper command is the envelope's "Fn"; anywhere else a feed of 110.
  const auto page = [](const Bytes& paper, const Bytes& body) {
    return ParseStream(JobStart() + ModeSettings("01 01", "00", "05") + Hex("59 00 00 58 00 00") + paper + body +
                       PageEnd() + JobEnd())
        .Pages.at(0);
  };
  const Page dl = page(Hex("73 0A 46 6E 00"), Feed(140)), fed = page(Hex("73 01"), Feed(140) + Hex("46 6E 00"));
  EXPECT_EQ(std::tie(dl.PageSettings.Envelope, dl.Stats.TotalFeed), std::make_tuple(true, 140));
  EXPECT_EQ(std::tie(fed.PageSettings.Envelope, fed.Stats.TotalFeed), std::make_tuple(false, 250));

  // Job ends: the abort tail after a finished page; a stream cut between pages.
  const Bytes start = JobStart() + ModeSettings("01 01", "10", "05");
  const Bytes onePage = PageStart("01 01", "10", "05") + Feed(140) + Blanks(3) + kBlack + PageEnd();
  const Job aborted = ParseStream(start + onePage + Hex("00 00 0C 1B 40"));
  EXPECT_TRUE(aborted.Ended && aborted.Aborted);
  EXPECT_EQ(aborted.Commands.back().Name, "AbortTail");
  const Job cut = ParseStream(start + onePage);
  EXPECT_EQ(cut.Pages.size(), 1u);
  EXPECT_FALSE(cut.Ended);

  // Blank padding rows join the pass after them; consecutive feeds add up; "I" starts a new pass even
  // without a feed; records before any feed form a pass with no feed.
  const Bytes body = kBlack + Feed(70) + Feed(70) + Blanks(2) + kBlack + Hex("49 00") + kBlack + Feed(140) + Feed(140);
  const Page passes = ParseStream(OnePage("01 01", "00", "05", body)).Pages.at(0);
  ASSERT_EQ(passes.Passes.size(), 3u);
  EXPECT_EQ(std::tie(passes.Passes[0].Feed, passes.Passes[0].HeadRows), std::make_tuple(0, 1));
  EXPECT_EQ(std::tie(passes.Passes[1].Feed, passes.Passes[1].HeadRows), std::make_tuple(140, 3));
  EXPECT_EQ(std::tie(passes.Passes[2].Feed, passes.Passes[2].PaperAdvance), std::make_tuple(0, 140));
  EXPECT_EQ(std::tie(passes.Stats.TotalFeed, passes.Stats.Feeds), std::make_tuple(420, 4));

  // Records: a one-bit record under a two-bit "I" read by its length and flagged; compression off;
  // PackBits two-bit halves split where the codes reach half the total.
  const Bytes row = Hex("01 02 03 04 05 06 07 08");
  const auto firstPass = [](const Bytes& stream) { return ParseStream(stream).Pages.at(0).Passes.at(0); };
  const Pass mixed =
      firstPass(OnePage("01 01", "30", "05", Feed(140) + Hex("49 30") + RawRow(row + row) + Coded(Hex("07") + row)));
  EXPECT_EQ(mixed.Records.at(0).Second, row);
  EXPECT_TRUE(mixed.Records.at(1).DepthMismatch);
  EXPECT_EQ(mixed.Records.at(1).BitsPerDot, 1);
  EXPECT_EQ(firstPass(OnePage("01 01", "00", "00", Feed(140) + Record(8, row))).Records.at(0).First, row);
  const Pass packed =
      firstPass(OnePage("01 01", "00", "02", Feed(140) + Hex("49 30") + Coded(Hex("FD 11 FE 22 00 33 00 33 FA 00"))));
  EXPECT_EQ(packed.Records.at(0).First, Hex("11 11 11 11 22 22 22 33"));
  EXPECT_EQ(packed.Records.at(0).Second, Hex("33 00 00 00 00 00 00 00"));
}

TEST(PrintJob, GapsDoublePrintsAndBlankRowsAboveTheTop) {
  // 300 dpi, pitch 2. Pass A lands on rows 0, 2, 4 (its middle row blank); a feed of 4 units is 3 rows,
  // so pass B lands on 3, 5, 7. Rows 1 and 6 are never printed. A zero feed prints A's rows again.
  const Bytes a = Rows({Hex("80"), {}, Hex("80")}), b = Rows({Hex("40"), Hex("40"), Hex("40")});
  const PrintedPage interleaved = PrintOne("01 01", "00", Feed(280) + a + Feed(4) + b);
  EXPECT_EQ(std::tie(interleaved.RowsPrinted, interleaved.UnprintedRows, interleaved.RowsPrintedTwice,
                     interleaved.InkedRows, interleaved.LastPrintedRow),
            std::make_tuple(6, 2, 0, 5, 7));
  EXPECT_EQ(interleaved.PrintCounts, (std::vector<std::uint16_t>{1, 0, 1, 1, 1, 1, 0, 1}));  // a blank row printed
  EXPECT_EQ(interleaved.InkCounts[2], 0);
  const PrintedPage doubled = PrintOne("01 01", "00", Feed(280) + a + Feed(0) + b);
  EXPECT_EQ(std::tie(doubled.RowsPrintedTwice, doubled.RowsInkedTwice, doubled.UnprintedRows),
            std::make_tuple(3, 2, 2));
  EXPECT_EQ(doubled.InkCounts[0], 2);
  EXPECT_EQ(doubled.Bits[3][0].Rows[0], Hex("C0"));  // ORed
  const PrintedPage top = PrintOne("01 01", "00", Feed(140) + Blanks(53) + Rows({Hex("80")}));
  EXPECT_EQ(std::tie(top.FirstPrintedRow, top.RowsPrinted), std::make_tuple(1, 1));
  EXPECT_EQ(DotAt(top, 3, 0, 1), 1);
  const PrintedPage blank = PrintOne("01 01", "10", Feed(140) + Feed(140));  // feeds only
  EXPECT_EQ(std::tie(blank.HeightRows, blank.Stats.Passes, blank.Stats.TotalFeed), std::make_tuple(0, 0, 280));
}

// The ink of boxes, as previews gather it: two dots of 255 in a 4 x 1 box give half a cell of ink; cells
// off the page are bare paper; a grid made strip by strip is the grid made whole, box for box, for grids
// finer and coarser than the dots, over rectangles reaching past the page.
TEST(GatherInk, BoxMeansAndStripsMakeTheWholeGrid) {
  const PrintedPage one = PrintOne("01 01", "00", Feed(280) + Rows({Hex("C0")}));
  const InkGrid grid = GatherInk(one, 0, 0, 4, 1, 2, 1);
  ASSERT_EQ(grid.Boxes.size(), 2u);
  EXPECT_EQ(std::tie(grid.Boxes[0].Ink[3], grid.Boxes[0].BlackCells, grid.Boxes[1].Ink[3]),
            std::make_tuple(1.0, 1.0, 0.0));
  EXPECT_NEAR(MeanInk(one, -2, 0, 4, 1).Ink[3], 0.5, 1e-12);
  std::vector<Bytes> rows;
  for (int r = 0; r < 40; ++r) rows.push_back(r % 3 ? Bytes{static_cast<std::uint8_t>(37 * r), 0xA5} : Bytes{});
  const PrintedPage page = PrintOne("01 01", "00", Feed(280) + Rows(rows));
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
          ASSERT_EQ(std::tie(a.Ink, a.BlackCells, a.UnderBlack), std::tie(w.Ink, w.BlackCells, w.UnderBlack))
              << "box " << b << " of strip " << first;
        }
      }
    }
}

// docs/decoder.md shows the parser's own command table, between two markers.
TEST(CommandTable, IsTheOneInTheDocs) {
  const std::string table = "<!-- command table: CommandTableMarkdown() -->\n\n" + CommandTableMarkdown() +
                            "\n<!-- end of the command table -->";
  EXPECT_NE(inkweave::testing::ReadText(INKWEAVE_SOURCE_DIR "/docs/decoder.md").find(table), std::string::npos)
      << "docs/decoder.md: put this table between the markers:\n"
      << CommandTableMarkdown();
}

}  // namespace
}  // namespace inkweave::decode
