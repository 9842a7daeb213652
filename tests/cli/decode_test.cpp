// decode, dump and info as a user runs them: previews on disk, the summary, malformed streams named
// with their byte offset, and the plug-in's answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/cli/run.h"
#include "tests/decode/streams.h"

namespace inkweave::cli::testing {
namespace {

using ::testing::HasSubstr;

// A two-page job of the test page at 150 dpi, printed once for the suite.
class DecodeCommand : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new ScratchDir();
    const RunResult run = RunInkweave({"print", Example("testpage.pdf"), "--quality", "150", "-o", *dir_ / "job.prn"});
    ASSERT_EQ(run.Exit, 0) << run.Err;
  }
  static void TearDownTestSuite() { delete dir_; }
  static std::string Job() { return *dir_ / "job.prn"; }
  static ScratchDir* dir_;
};
ScratchDir* DecodeCommand::dir_ = nullptr;

TEST_F(DecodeCommand, PreviewPerPageAndSummary) {
  ScratchDir out;
  const RunResult run = RunInkweave({"decode", Job(), "-o", out / "preview.png", "--preview-dpi", "50"});
  ASSERT_EQ(run.Exit, 0) << run.Err;
  EXPECT_EQ(out.Files(), (std::vector<std::string>{"preview-1.png", "preview-2.png"}));
  EXPECT_THAT(run.Out, HasSubstr("page 1: "));
  EXPECT_THAT(run.Out, HasSubstr("at 150 dpi"));
  EXPECT_THAT(run.Out, HasSubstr("ink coverage: cyan"));
  EXPECT_THAT(run.Out, HasSubstr("page 2: "));
  const auto png = ReadFile(out / "preview-1.png");
  ASSERT_GT(png.size(), 8u);
  EXPECT_EQ(png[1], 'P');

  // One page asked for: the name as given.
  const RunResult one = RunInkweave({"decode", Job(), "--page", "2", "-o", out / "two.png", "--json"});
  ASSERT_EQ(one.Exit, 0) << one.Err;
  EXPECT_THAT(one.Out, HasSubstr("\"page\": 2"));
  EXPECT_THAT(one.Out, ::testing::Not(HasSubstr("\"page\": 1,")));
  EXPECT_EQ(ReadFile(out / "two.png").empty(), false);

  // The whole A4 sheet at 50 dpi (414 x 585 pixels), or with --crop the printed area only; the summary names
  // the sheet.
  const auto pngSize = [](const std::vector<unsigned char>& file) {
    const auto word = [&](std::size_t at) {
      return (file[at] << 24) | (file[at + 1] << 16) | (file[at + 2] << 8) | file[at + 3];
    };
    return std::pair<int, int>(word(16), word(20));
  };
  EXPECT_EQ(pngSize(png), std::make_pair(414, 585));
  EXPECT_THAT(run.Out, HasSubstr("sheet: A4 (210.0 x 297.0 mm), the print 3.4 mm from its left edge"));
  const RunResult crop =
      RunInkweave({"decode", Job(), "--page", "1", "--crop", "-o", out / "crop.png", "-q", "--preview-dpi", "50"});
  ASSERT_EQ(crop.Exit, 0) << crop.Err;
  const auto cropped = pngSize(ReadFile(out / "crop.png"));
  EXPECT_LT(cropped.first, 414);
  EXPECT_LT(cropped.second, 585);

  const RunResult tooFar = RunInkweave({"decode", Job(), "--page", "3"});
  EXPECT_EQ(tooFar.Exit, 2);
  EXPECT_THAT(tooFar.Err, HasSubstr("only 2 pages"));
}

TEST_F(DecodeCommand, MalformedStreamsNameTheOffset) {
  ScratchDir dir;
  const auto job = ReadFile(Job());
  // Cut in the middle of the first page, and garbage after a valid start.
  WriteFile(dir / "cut.prn", std::string(job.begin(), job.begin() + static_cast<long>(job.size() / 3)));
  std::string garbage(job.begin(), job.begin() + 64);
  garbage += std::string(32, '\x7F');
  WriteFile(dir / "garbage.prn", garbage);
  WriteFile(dir / "empty.prn", "");
  for (const std::string name : {"cut.prn", "garbage.prn"}) {
    for (const char* command : {"decode", "dump"}) {
      const RunResult run = RunInkweave({command, dir / name});
      SCOPED_TRACE(name + " " + command);
      EXPECT_EQ(run.Exit, 1);
      EXPECT_THAT(run.Err, HasSubstr("not a valid printer stream at byte "));
      EXPECT_EQ(std::count(run.Err.begin(), run.Err.end(), '\n'), 1) << run.Err;
    }
  }
  EXPECT_THAT(RunInkweave({"decode", dir / "empty.prn"}).Err, HasSubstr("the file is empty"));
  EXPECT_EQ(RunInkweave({"decode", dir / "missing.prn"}).Exit, 2);
}

TEST_F(DecodeCommand, DumpListsEveryCommandWithItsOffset) {
  const RunResult run = RunInkweave({"dump", Job()});
  ASSERT_EQ(run.Exit, 0) << run.Err;
  EXPECT_EQ(run.Out.rfind("00000000  ", 0), 0u) << run.Out.substr(0, 200);
  EXPECT_THAT(run.Out, HasSubstr("EnterRaster"));
  EXPECT_THAT(run.Out, HasSubstr("FormFeed"));
  EXPECT_THAT(run.Out, HasSubstr(" bytes)"));  // long records abbreviated
  EXPECT_THAT(run.Out, HasSubstr("end of stream"));
  // Offsets ascend line by line.
  std::istringstream lines(run.Out);
  std::string line;
  unsigned long last = 0;
  while (std::getline(lines, line)) {
    const unsigned long offset = std::stoul(line.substr(0, 8), nullptr, 16);
    EXPECT_GE(offset, last) << line;
    last = offset;
  }
}

// A 44 KB stream claiming a page of 10,240 x 3,406 dots at 150 dpi (one raw row of the widest kind at
// the top and one 23 inches down): a preview either fits the preview budget or is refused in one line
// that says what would fit; nothing aborts.
TEST(DecodeLimits, AHostileStreamsPreviewIsMadeOrRefusedInOneLine) {
  using namespace decode::testing;
  const auto pass = [] {
    Bytes bytes = RawRow(Bytes(2560, 0xFF)) + Blanks(3);  // black, doubled across as mode 1 sends it
    return bytes + Blanks(4 * 105);
  };
  const Bytes stream = Zeros(37000) + JobStart() + ModeSettings("01 00", "10", "05") + PageStart("01 00", "10", "05") +
                       Feed(280) + pass() + Feed(9000) + pass() + PageEnd() + JobEnd();
  ScratchDir dir;
  WriteFile(dir / "hostile.prn", std::string(stream.begin(), stream.end()));
  const RunResult small =
      RunInkweave({"decode", dir / "hostile.prn", "-q", "-o", dir / "small.png", "--preview-dpi", "10"});
  EXPECT_EQ(small.Exit, 0) << small.Err;
  for (const char* dpi : {"300", "600"}) {
    const RunResult run =
        RunInkweave({"decode", dir / "hostile.prn", "-q", "-o", dir / "big.png", "--preview-dpi", dpi});
    EXPECT_EQ(run.Exit, 1) << dpi;
    EXPECT_THAT(run.Err, HasSubstr("megapixels a preview may have; use --preview-dpi 2"));
    EXPECT_EQ(std::count(run.Err.begin(), run.Err.end(), '\n'), 1) << run.Err;
  }
}

TEST(InfoCommand, PapersMediaStringsAndThePluginsAnswers) {
  const RunResult run = RunInkweave({"info"});
  ASSERT_EQ(run.Exit, 0) << run.Err;
  EXPECT_THAT(run.Out, HasSubstr("signature \"318K\""));
  EXPECT_THAT(run.Out, HasSubstr("interface version 0x10000"));
  for (const char* text : {"Plain Paper", "Inkjet Paper", "Glossy Paper", "Photographic Paper", "Erorr Diffusion",
                           "4800 x 6826", "(too wide)"})
    EXPECT_THAT(run.Out, HasSubstr(text));
  const RunResult json = RunInkweave({"info", "--json"});
  ASSERT_EQ(json.Exit, 0);
  EXPECT_THAT(json.Out, HasSubstr("\"signature\": \"318K\""));
  EXPECT_THAT(json.Out, HasSubstr("\"1003\": \"Photographic Paper\""));
}

}  // namespace
}  // namespace inkweave::cli::testing
