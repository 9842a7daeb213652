// The job parser on hand-written streams: the job and page structure, paper and job-end forms, every
// record form, how passes are told apart, and the errors of malformed streams with their offsets; and
// the command table as docs/decoder.md shows it.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/decode/streams.h"

namespace inkweave::decode {
namespace {

using namespace testing;

std::vector<std::string> Names(const std::vector<Command>& commands) {
  std::vector<std::string> names;
  for (const Command& c : commands) names.push_back(c.Name);
  return names;
}

// Black row: eight bytes 80 00 .. 00 01 as one literal.
const Bytes kBlackCodes = Hex("07 80 00 00 00 00 00 00 01");

TEST(ParseJob, WholeColourJob) {
  const Bytes cyan = Hex("00 00 00 F0 0F 00 00 00");
  // Two-bit black: first half FF 00 repeated, second half four zeros then 00 00 00 01.
  const Bytes twoBit = Hex("87 FF 00 FF 00 8C 00 03 00 00 00 01");
  const Bytes head = JobStart() + ModeSettings("01 01", "10", "05") + PageStart("01 01", "10", "05");
  const Bytes pass1 = Blanks(4) + Coded(kBlackCodes) + Blanks(1) + RawRow(cyan) + Blanks(1);
  const Bytes pass2 = Coded(twoBit) + Blanks(3);
  const Bytes body = Feed(140) + pass1 + Feed(140) + Hex("49 31") + pass2;
  const Bytes stream = head + body + PageEnd() + JobEnd();

  const Job job = MustParse(stream);
  EXPECT_TRUE(job.Ended);
  EXPECT_FALSE(job.Aborted);
  EXPECT_EQ(Names(job.Commands),
            (std::vector<std::string>{"Padding", "EnterRaster", "Reset", "EnterRaster", "EnterRaster", "R", "I", "M",
                                      "D", "N", "Padding", "Reset"}));
  EXPECT_EQ(job.Commands[0].Length, 2000u);
  EXPECT_EQ(job.Commands[5].Params, Hex("01 01"));
  ASSERT_EQ(job.Pages.size(), 1u);
  const Page& page = job.Pages[0];
  EXPECT_EQ(Names(page.Commands), (std::vector<std::string>{"EnterRaster", "R", "I", "M", "D", "N", "Padding", "Y", "X",
                                                            "s", "F", "F", "I", "FormFeed"}));
  // The page takes along its page-start group.
  EXPECT_EQ(page.Offset, JobStart().size() + ModeSettings("01 01", "10", "05").size());
  EXPECT_EQ(page.Commands[6].Length, 503u);
  EXPECT_EQ(page.EndOffset, head.size() + body.size());
  EXPECT_EQ(page.Mode, 2);
  EXPECT_EQ(page.PageSettings.Dpi, 300);
  EXPECT_EQ(page.PageSettings.InkMode, 0x10);
  EXPECT_EQ(page.PageSettings.Compression, 0x05);
  EXPECT_EQ(page.PageSettings.Paper, 0x01);
  EXPECT_EQ(page.RowBytes, 8);
  EXPECT_EQ(job.FinalSettings.InkMode, 0x31);

  ASSERT_EQ(page.Passes.size(), 2u);
  const Pass& first = page.Passes[0];
  EXPECT_EQ(first.Offset, head.size() + 3);
  EXPECT_EQ(first.FeedOffset, head.size());
  EXPECT_EQ(first.Feed, 140);
  EXPECT_EQ(first.PaperAdvance, 140);
  EXPECT_TRUE(first.Color);
  EXPECT_EQ(first.HeadRows, 2);
  EXPECT_EQ(first.Bytes, pass1.size());
  ASSERT_EQ(first.Records.size(), 8u);
  // Planes in wire order black, yellow, cyan, magenta, head row by head row.
  const int planes[] = {3, 2, 0, 1, 3, 2, 0, 1};
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(first.Records[i].Plane, planes[i]);
    EXPECT_EQ(first.Records[i].HeadRow, i / 4);
  }
  EXPECT_TRUE(first.Records[3].Blank);
  EXPECT_EQ(first.Records[4].First, Hex("80 00 00 00 00 00 00 01"));
  EXPECT_EQ(first.Records[4].Offset, head.size() + 3 + 4);
  EXPECT_TRUE(first.Records[6].Raw);
  EXPECT_EQ(first.Records[6].First, cyan);

  const Pass& second = page.Passes[1];
  EXPECT_EQ(second.PaperAdvance, 280);
  EXPECT_EQ(second.InkMode, 0x31);
  ASSERT_EQ(second.Records.size(), 4u);
  EXPECT_EQ(second.Records[0].BitsPerDot, 2);
  EXPECT_EQ(second.Records[0].First, Hex("FF 00 FF 00 FF 00 FF 00"));
  EXPECT_EQ(second.Records[0].Second, Hex("00 00 00 00 00 00 00 01"));

  const StreamStats& stats = page.Stats;
  EXPECT_EQ(stats.Passes, 2);
  EXPECT_EQ(stats.Feeds, 2);
  EXPECT_EQ(stats.TotalFeed, 280);
  EXPECT_EQ(stats.Records, 12u);
  EXPECT_EQ(stats.BlankRecords, 9u);
  EXPECT_EQ(stats.CompressedRecords, 2u);
  EXPECT_EQ(stats.RawRecords, 1u);
  EXPECT_EQ(stats.CompressedSize, kBlackCodes.size() + cyan.size() + twoBit.size());
  EXPECT_EQ(stats.UncompressedSize, 8u + 8u + 16u);
  EXPECT_EQ(stats.PassBytes, pass1.size() + pass2.size());
  EXPECT_EQ(stats.StreamBytes, page.EndOffset + 1 - page.Offset);
}

TEST(ParseJob, PaperCommandForms) {
  auto page = [](const Bytes& paper, const Bytes& body) {
    const Bytes stream =
        JobStart() + ModeSettings("01 01", "00", "05") + Hex("59 00 00 58 00 00") + paper + body + PageEnd() + JobEnd();
    return MustParse(stream).Pages.at(0);
  };
  // DL envelope: 46 6E 00 right after the paper command is "Fn", not a feed.
  Page dl = page(Hex("73 0A 46 6E 00"), Feed(140));
  EXPECT_TRUE(dl.PageSettings.Envelope);
  EXPECT_EQ(dl.PageSettings.Paper, 0x0A);
  EXPECT_EQ(dl.Stats.TotalFeed, 140);
  EXPECT_EQ(dl.Commands[9].Name, "Fn");  // after the settings block, "Y", "X" and "s"
  // Anywhere else the same bytes are a feed of 110.
  Page fed = page(Hex("73 01"), Feed(140) + Hex("46 6E 00"));
  EXPECT_FALSE(fed.PageSettings.Envelope);
  EXPECT_EQ(fed.Stats.TotalFeed, 250);
  // Letter and Legal use the long form; other sizes send 73 FF alone.
  Page letter = page(Hex("73 FF E8 02"), Feed(140));
  EXPECT_TRUE(letter.PageSettings.PaperLong);
  EXPECT_EQ(letter.Commands[8].Length, 4u);
  Page other = page(Hex("73 FF"), Feed(140));
  EXPECT_FALSE(other.PageSettings.PaperLong);
  EXPECT_EQ(other.PageSettings.Paper, 0xFF);
  EXPECT_EQ(other.Stats.Feeds, 1);
}

TEST(ParseJob, JobEndForms) {
  const Bytes pageBytes = PageStart("01 01", "10", "05") + Feed(140) + Blanks(3) + Coded(kBlackCodes) + PageEnd();
  const Bytes start = JobStart() + ModeSettings("01 01", "10", "05");
  // Two pages and a plain reset.
  Job normal = MustParse(start + pageBytes + pageBytes + JobEnd());
  EXPECT_EQ(normal.Pages.size(), 2u);
  EXPECT_TRUE(normal.Ended);
  EXPECT_FALSE(normal.Aborted);
  // The abort tail after a finished page.
  const Bytes aborted = start + pageBytes + Hex("00 00 0C 1B 40");
  Job abortJob = MustParse(aborted);
  EXPECT_EQ(abortJob.Pages.size(), 1u);
  EXPECT_TRUE(abortJob.Aborted);
  EXPECT_TRUE(abortJob.Ended);
  EXPECT_EQ(abortJob.Commands.back().Name, "AbortTail");
  EXPECT_EQ(abortJob.Commands.back().Offset, aborted.size() - 5);
  EXPECT_EQ(abortJob.Commands[abortJob.Commands.size() - 2].Length, 500u);
  // A stream cut between pages still parses, and says it did not end.
  Job cut = MustParse(start + pageBytes);
  EXPECT_EQ(cut.Pages.size(), 1u);
  EXPECT_FALSE(cut.Ended);
}

TEST(ParseJob, RecordForms) {
  const Bytes row = Hex("01 02 03 04 05 06 07 08");
  // Compression on: bit 15 marks a raw row; two-bit raw rows carry 2L.
  {
    const Bytes body = Feed(140) + Hex("49 30") + RawRow(row + row) + Coded(Hex("07") + row);
    const Job job = MustParse(OnePage("01 01", "30", "05", body));
    const Pass& pass = job.Pages.at(0).Passes.at(0);
    ASSERT_EQ(pass.Records.size(), 2u);
    EXPECT_FALSE(pass.Color);
    EXPECT_EQ(pass.Records[0].BitsPerDot, 2);
    EXPECT_TRUE(pass.Records[0].Raw);
    EXPECT_EQ(pass.Records[0].Second, row);
    // A one-bit record under a two-bit "I" is read by its length and flagged.
    EXPECT_EQ(pass.Records[1].BitsPerDot, 1);
    EXPECT_TRUE(pass.Records[1].DepthMismatch);
    EXPECT_EQ(job.Pages[0].Stats.DepthMismatches, 1u);
  }
  // Compression off: the length has no flag and the data is raw.
  {
    const Job job = MustParse(OnePage("01 01", "00", "00", Feed(140) + Record(8, row)));
    const PlaneRow& record = job.Pages.at(0).Passes.at(0).Records.at(0);
    EXPECT_TRUE(record.Raw);
    EXPECT_EQ(record.First, row);
  }
  // PackBits, one-bit and two-bit (the halves split where the codes reach half the total).
  {
    const Bytes body = Feed(140) + Coded(Hex("F9 AA")) + Hex("49 30") + Coded(Hex("FD 11 FE 22 00 33 00 33 FA 00"));
    const Job job = MustParse(OnePage("01 01", "00", "02", body));
    const Page& page = job.Pages.at(0);
    ASSERT_EQ(page.Passes.size(), 2u);
    EXPECT_EQ(page.Passes[0].Records[0].First, Bytes(8, 0xAA));
    EXPECT_EQ(page.Passes[1].Records[0].First, Hex("11 11 11 11 22 22 22 33"));
    EXPECT_EQ(page.Passes[1].Records[0].Second, Hex("33 00 00 00 00 00 00 00"));
  }
}

TEST(ParseJob, PassesAreRunsOfRecords) {
  const Bytes black = Coded(kBlackCodes);
  // Blank padding rows join the pass after them; consecutive feeds add up; "I" starts a new pass even
  // without a feed; records before any feed form a pass with no feed.
  const Bytes body = black + Feed(70) + Feed(70) + Blanks(2) + black + Hex("49 00") + black + Feed(140) + Feed(140);
  const Job job = MustParse(OnePage("01 01", "00", "05", body));
  const Page& page = job.Pages.at(0);
  ASSERT_EQ(page.Passes.size(), 3u);
  EXPECT_EQ(page.Passes[0].Feed, 0);
  EXPECT_EQ(page.Passes[0].HeadRows, 1);
  EXPECT_EQ(page.Passes[1].Feed, 140);
  EXPECT_EQ(page.Passes[1].PaperAdvance, 140);
  EXPECT_EQ(page.Passes[1].HeadRows, 3);
  EXPECT_TRUE(page.Passes[1].Records[1].Blank);
  EXPECT_EQ(page.Passes[1].Records[2].HeadRow, 2);
  EXPECT_EQ(page.Passes[2].Feed, 0);
  EXPECT_EQ(page.Passes[2].PaperAdvance, 140);
  EXPECT_EQ(page.Stats.TotalFeed, 420);
  EXPECT_EQ(page.Stats.Feeds, 4);
}

TEST(ParseJob, ModeComesFromTheResolutionOrTheCaller) {
  const Bytes body = Feed(280) + Coded(kBlackCodes);
  EXPECT_EQ(MustParse(OnePage("01 00", "00", "05", body)).Pages.at(0).Mode, 1);
  EXPECT_EQ(MustParse(OnePage("02 02", "00", "05", body)).Pages.at(0).Mode, 4);
  EXPECT_EQ(MustParse(OnePage("03 03", "00", "05", body)).Pages.at(0).Mode, 6);
  EXPECT_EQ(MustParse(OnePage("01 01", "00", "05", body), {3}).Pages.at(0).Mode, 3);
  EXPECT_EQ(MustParse(OnePage("02 02", "00", "05", body), {5}).Pages.at(0).Mode, 5);
  EXPECT_NE(MustFail(OnePage("02 02", "00", "05", body), {3}).Message.find("weave mode 3"), std::string::npos);
}

TEST(ParseJob, MalformedStreamsNameTheOffset) {
  const Bytes head = JobStart() + ModeSettings("01 01", "10", "05") + PageStart("01 01", "10", "05");
  const std::size_t h = head.size();
  const Bytes tail = PageEnd() + JobEnd();
  const Bytes black = Coded(kBlackCodes);
  struct Case {
    const char* Name;
    Bytes Stream;
    std::size_t Offset;
    const char* Says;
  };
  const Case cases[] = {
      {"unknown letter", head + Feed(140) + Hex("51 00") + tail, h + 3, "unknown command byte 51"},
      {"header cut off", head + Feed(140) + Hex("47 09"), h + 3, "cut off"},
      {"data past the end", head + Feed(140) + Hex("47 09 00 07 80"), h + 3, "runs past the end"},
      {"feed cut off", head + Hex("46 8C"), h, "cut off"},
      {"bad code", head + Feed(140) + Blanks(3) + Coded(Hex("82 00")) + tail, h + 6 + 3, "names no unit"},
      {"wrong length", head + Feed(140) + Blanks(3) + black + Blanks(3) + Coded(Hex("0B") + Bytes(12, 1)) + tail,
       h + 6 + black.size() + 3, "this page's rows are 8 bytes"},
      {"partial colour row", head + Feed(140) + Blanks(3) + black + Blanks(2) + Feed(140) + tail,
       h + 6 + black.size() + 2, "not a whole number of colour rows"},
      {"too many head rows", head + Feed(140) + Blanks(4 * 106) + Blanks(1) + tail, h + 3 + 424, "more than 106"},
      {"absurd feed", head + Feed(9000) + Feed(9000) + tail, h + 3, "page limit"},
      {"no form feed", head + Feed(140) + Blanks(4), h + 7, "no form feed"},
      {"escape", head + Hex("1B 41") + tail, h, "unknown escape"},
      {"reset inside page", head + Feed(140) + Hex("1B 40"), h + 3, "inside the page"},
      {"resolution inside page", head + Feed(140) + Hex("52 01 01") + tail, h + 3, "inside the page"},
      {"unknown ink mode", head + Hex("49 20") + tail, h, "unknown ink mode"},
      {"empty record", head + Feed(140) + Blanks(3) + Hex("47 00 00") + tail, h + 6, "no data"},
      {"huge raw row", head + Feed(140) + Hex("47 FF FF") + tail, h + 3, "record limit"},
      {"no resolution", JobStart() + Hex("49 10 4D 05 46 8C 00 0C 1B 40"), JobStart().size() + 4, "no resolution"},
      {"no ink mode", JobStart() + Hex("52 01 01 4D 05 46 8C 00 5A 0C 1B 40"), JobStart().size() + 8,
       "before any ink-mode"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Name);
    const Error error = MustFail(c.Stream);
    EXPECT_EQ(error.Offset, c.Offset) << error.Message;
    EXPECT_NE(error.Message.find(c.Says), std::string::npos) << error.Message;
    EXPECT_LE(error.Offset, c.Stream.size());
  }
}

// The decoder's memory budget: the record that passes it is named, in parsing and in printing.
TEST(ParseJob, MemoryBeyondTheBudgetIsAnErrorAtTheRecord) {
  const Bytes head = JobStart() + ModeSettings("01 01", "10", "05") + PageStart("01 01", "10", "05");
  const Bytes stream = head + Feed(600) + Blanks(3) + Coded(kBlackCodes) + PageEnd() + JobEnd();
  DecodeOptions tight;
  tight.MemoryBudget = 3 * sizeof(PlaneRow) + 1;  // the three blank records fit, the coded one does not
  const Error error = MustFail(stream, tight);
  EXPECT_EQ(error.Offset, head.size() + 6) << error.Message;
  EXPECT_NE(error.Message.find("memory budget of"), std::string::npos) << error.Message;

  tight.MemoryBudget = 1;  // parsed within the default budget: the printed page does not fit
  auto printed = PrintJob(MustParse(stream), tight);
  ASSERT_TRUE(std::holds_alternative<Error>(printed));
  EXPECT_EQ(std::get<Error>(printed).Offset, MustParse(stream).Pages[0].Offset);
  EXPECT_NE(std::get<Error>(printed).Message.find("memory budget of"), std::string::npos);
}

// docs/decoder.md shows the parser's own command table, between two markers.
TEST(CommandTable, IsTheOneInTheDocs) {
  std::ifstream in(std::string(INKWEAVE_SOURCE_DIR) + "/docs/decoder.md", std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  const std::string doc = text.str();
  const std::string begin = "<!-- command table: CommandTableMarkdown() -->\n\n";
  const std::string end = "\n<!-- end of the command table -->";
  const std::size_t from = doc.find(begin);
  const std::size_t to = doc.find(end);
  ASSERT_NE(from, std::string::npos);
  ASSERT_NE(to, std::string::npos);
  EXPECT_EQ(doc.substr(from + begin.size(), to - from - begin.size()), CommandTableMarkdown())
      << "docs/decoder.md: put this table between the markers:\n"
      << CommandTableMarkdown();
}

}  // namespace
}  // namespace inkweave::decode
