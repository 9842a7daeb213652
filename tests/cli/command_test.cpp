// The inkweave command as a user runs it: one grid of invocations (every mistake a user can make, and
// what info, proof, decode and dump show), each with its exit status, the words of its one error line
// or of its output; no invocation touches an existing output file or leaves a temporary one. Then the
// outputs that are not files (devices, pipes, a closed pipe) and damaged pictures of every format.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lcms2.h>

#include <sys/stat.h>

#include <set>
#include <thread>
#include <vips/vips8>

#include "host/papers.h"
#include "tests/cli/run.h"
#include "tests/decode/streams.h"
#include "tests/support/make_pdf.h"

namespace inkweave::cli::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// One line on stderr, starting with the program's name; a likely word offered only where one is expected.
void ExpectOneLineError(const RunResult& run, int exit, const std::string& words) {
  EXPECT_EQ(run.Exit, exit) << run.Err;
  EXPECT_EQ(run.Err.rfind("inkweave: ", 0), 0u) << run.Err;
  EXPECT_EQ(std::count(run.Err.begin(), run.Err.end(), '\n'), 1) << run.Err;
  EXPECT_THAT(run.Err, HasSubstr(words));
  if (words.find("did you mean") == std::string::npos) {
    EXPECT_THAT(run.Err, Not(HasSubstr("did you mean")));
  }
}

std::set<std::string> Listing(const ScratchDir& dir) {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) files.insert(entry.path().filename());
  return files;
}

// A 44 KB stream claiming a page of 10,240 x 3,406 dots at 150 dpi (one raw row of the widest kind at
// the top and one 23 inches down).
std::string HostileStream() {
  using namespace decode::testing;
  const Bytes pass = RawRow(Bytes(2560, 0xFF)) + Blanks(3) + Blanks(4 * 105);  // black, doubled across
  const Bytes stream = Zeros(37000) + OnePage("01 00", "10", "05", Feed(280) + pass + Feed(9000) + pass);
  return {stream.begin(), stream.end()};
}

TEST(Command, EveryInvocationExitsWithItsWordsAndLeavesTheOutputAlone) {
  ScratchDir dir;
  const std::string page = Example("testpage.png"), pdf = Example("testpage.pdf"), out = dir / "out.prn";
  const std::string job = dir / "job.prn";  // the test page's two pages at 150 dpi
  ASSERT_EQ(RunInkweave({"print", pdf, "--quality", "150", "-q", "-o", job}).Exit, 0);
  const auto jobBytes = ReadBytes(job);
  WriteText(dir / "cut.prn", std::string(jobBytes.begin(), jobBytes.begin() + static_cast<long>(jobBytes.size() / 3)));
  WriteText(dir / "garbage.prn", std::string(jobBytes.begin(), jobBytes.begin() + 64) + std::string(32, '\x7F'));
  WriteText(dir / "hostile.prn", HostileStream());
  WriteText(dir / "notes.txt", "just some text\n");
  WriteText(dir / "empty.png", "");
  WriteText(dir / "damaged.pdf", "%PDF-1.4\nnot a document\n");
  WriteText(dir / "empty.pdf",  // a page tree without pages
            inkweave::testing::WritePdf({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [] /Count 0 >>"}));
  WriteText(dir / "fake.so", "not a library");
  // Each format cut within its header (the damage shows when the job is planned) and, where the first row
  // is not the damaged one, half way: the header reads fine, the damage shows only as the pixels are
  // decoded, mid-job, after the output was opened; the decoder's reason follows the format.
  StartLibvips();
  const vips::VImage picture = vips::VImage::new_from_file(page.c_str());
  const std::pair<std::string, std::size_t> damaged[] = {
      {"p.png", 8}, {"p.jpg", 4}, {"p.tif", 8}, {"p.webp", 0}};  // header kept
  for (const auto& [file, head] : damaged) {
    picture.write_to_file((dir / file).c_str());
    const std::string whole = inkweave::testing::ReadText(dir / file);
    if (head) WriteText(dir / ("head-" + file), whole.substr(0, head));
    WriteText(dir / ("half-" + file), whole.substr(0, whole.size() / 2));
    std::filesystem::remove(dir / file);
  }
  vips::VImage::black(8, 8).write_to_file((dir / "gray.png").c_str());
  const std::string rgbProfile = dir / "srgb.icc", printerProfile = INKWEAVE_PROFILES_PATH "/inkweave-plain.icc";
  cmsHPROFILE srgb = cmsCreate_sRGBProfile();
  cmsSaveProfileToFile(srgb, rgbProfile.c_str());
  cmsCloseProfile(srgb);
  std::set<std::string> expected = Listing(dir);
  const std::string print = "print";
  struct Case {
    std::vector<std::string> Args;
    int Exit;
    std::string Words;                  // in the error line, or in standard output when the exit is 0
    std::vector<std::string> Out = {};  // more words in standard output
  } cases[] = {
      {{print, dir / "missing.pdf", "-o", out}, 1, "missing.pdf: No such file or directory"},
      {{print, dir / "notes.txt", "-o", out}, 1, "notes.txt: not a format inkweave can read"},
      {{print, dir / "empty.png", "-o", out}, 1, "empty.png: the file is empty"},
      {{print, dir / "empty.pdf", "-o", out}, 1, "empty.pdf: the PDF has no pages"},
      {{print, dir / "damaged.pdf", "-o", out}, 1, "damaged.pdf: cannot read it: "},
      {{print, dir.Path().string(), "-o", out}, 1, "is a directory"},
      {{print, pdf, dir / "half-p.png", "-o", out}, 1, "half-p.png: damaged PNG: vipspng: libpng read error"},
      {{print, dir / "head-p.png", "-o", out}, 1, "head-p.png: damaged PNG: "},
      {{print, dir / "head-p.jpg", "-o", out}, 1, "head-p.jpg: damaged JPEG: "},
      {{print, dir / "head-p.tif", "-o", out}, 1, "head-p.tif: damaged TIFF: "},
      {{print, dir / "half-p.jpg", "--quality", "150", "-o", out}, 1, "half-p.jpg: damaged JPEG: "},
      {{print, dir / "half-p.tif", "--quality", "150", "-o", out}, 1, "half-p.tif: damaged TIFF: "},
      {{print, dir / "half-p.webp", "--quality", "150", "-o", out}, 1, "half-p.webp: damaged WebP: "},
      {{print, page, "-o", out, "--paper", "a3"}, 2, "unknown paper 'a3' (a4, letter,"},  // too short to guess at
      {{print, page, "-o", out, "--paper", "Lettr"}, 2, "did you mean 'letter'?"},
      {{print, page, "-o", out, "--quality", "1200"}, 2, "unknown quality '1200' (150, 300, 600)"},
      {{print, page, "-o", out, "--media", "glosy"}, 2, "unknown paper type 'glosy'; did you mean 'glossy'?"},
      {{print, page, "-o", out, "--halftone=difusion"}, 2, "did you mean 'diffusion'?"},
      {{print, page, "-o", out, "--band-height", "20"}, 2, "multiple of 16"},
      {{print, page, "-o", out, "--band-height", "0"}, 2, "--band-height"},
      // The offending item quoted whole: a lost quote or a changed reason fails here.
      {{print, page, "-o", out, "--pages", "3-1"}, 2, "--pages 3-1: '3-1' runs backwards"},
      {{print, page, "-o", out, "--pages", ""}, 2, "--pages : no pages named (write e.g. 1-3,7)"},
      {{print, page, "-o", out, "--pages", "1, a"}, 2, "--pages 1, a: 'a' is not a page number (pages count from 1)"},
      {{print, page, "-o", out, "--pages", "0"}, 2, "--pages 0: '0' is not a page number (pages count from 1)"},
      {{print, page, "-o", out, "--pages=-2"}, 2, "--pages -2: '-2' is not a page range (write e.g. 2-5 or 3-)"},
      {{print, page, "-o", out, "--pages", "1,,2"}, 2, "--pages 1,,2: empty item (write e.g. 1-3,7)"},
      {{print, page, "-o", out, "--pages", "5"}, 2, "only 1 page"},
      {{print, page, "-o", out, "--scale", "2000%"}, 2, "--scale"},
      {{print, page, "-o", out, "--input-profile", dir / "notes.txt"}, 2, "notes.txt: not an ICC colour profile"},
      {{print, page, "-o", out, "--input-profile", dir / "missing.icc"}, 2, "missing.icc: No such file"},
      {{print, dir / "gray.png", "--input-profile", rgbProfile, "-o", out},
       1,
       "gray.png: --input-profile " + rgbProfile + " does not fit the picture ("},
      {{print, page, "--input-profile", printerProfile, "-o", out}, 2, "a profile that cannot describe input pictures"},
      {{print, page, "-o", out, "--high-res", "--quality", "300"}, 2, "--high-res"},
      {{print, page, "-o", out, "--papr", "a4"}, 2, "print: unknown option '--papr'; did you mean '--paper'?"},
      {{print, page, "-o", out, "--frobnicate"}, 2, "frobnicate"},
      // C4 is 5248 dots across at 600 dpi; a line holds 5120.
      {{print, page, "-o", out, "--paper", "c4", "--quality", "600"}, 2, "c4 is 5248 dots wide at 600 dpi"},
      {{print, page, "-o", out, "--plugin", dir / "fake.so"}, 1, "--plugin"},
      {{print, page, "-o", dir / "no/such/dir/out.prn"}, 1, "does not exist"},
      {{print, page, "-o", dir.Path().string()}, 1, "is a directory"},
      {{print, page}, 2, "--output"},
      // One edit in four letters, case and swapped letters; a long name sharing only a start is no match.
      {{"prnt", page, "-o", out}, 2, "unknown command 'prnt'; did you mean 'print'?"},
      {{"POROF"}, 2, "unknown command 'POROF'; did you mean 'proof'?"},
      {{"dekode-all"}, 2, "unknown command 'dekode-all' (print, decode"},
      {{"info", "--plugin", dir / "missing.so"}, 1, "--plugin"},
      {{"info"},
       0,
       "signature \"318K\"",
       {"interface version 0x10000", "Plain Paper", "Inkjet Paper", "Glossy Paper", "Photographic Paper",
        "Erorr Diffusion", "4800 x 6826", "(too wide)"}},
      {{"info", "--json"}, 0, "\"signature\": \"318K\"", {"\"1003\": \"Photographic Paper\""}},
      {{"proof", "--quality", "150", "-o", dir / "proof.png"},
       0,
       "proof 150 dpi, dither, plain paper, colour: mean dE00 ",
       {"relative to paper white, black-point compensated", "dark skin"}},
      {{"proof", "--high-res", "--media", "photo", "--json"},
       0,
       "\"mode\": \"high-resolution, diffusion, photo paper, colour\"",
       {"\"deltaE2000\": ", "\"greyFalls\": "}},
      {{"proof", "--high-res", "--quality", "300"}, 2, "--high-res"},
      {{"decode", job, "-o", dir / "preview.png", "--preview-dpi", "50"},
       0,
       "sheet: A4 (210.0 x 297.0 mm), the print 3.4 mm from its left edge",
       {"page 1: ", "at 150 dpi", "ink coverage: cyan", "page 2: "}},
      {{"decode", job, "--page", "1", "--crop", "-o", dir / "crop.png", "-q", "--preview-dpi", "50"}, 0, ""},
      {{"decode", job, "--page", "2", "-o", dir / "two.png", "--json"}, 0, "\"page\": 2"},  // the name as given
      {{"decode", job, "--page", "3"}, 2, "only 2 pages"},
      {{"decode", job, "--previw-dpi", "100"}, 2, "did you mean '--preview-dpi'?"},
      {{"decode", dir / "cut.prn"}, 1, "not a valid printer stream at byte "},
      {{"dump", dir / "cut.prn"}, 1, "not a valid printer stream at byte "},
      {{"decode", dir / "garbage.prn"}, 1, "not a valid printer stream at byte "},
      {{"decode", dir / "empty.png"}, 1, "the file is empty"},
      {{"decode", dir / "missing.prn"}, 2, "missing.prn"},
      // A hostile stream's preview either fits the preview budget or is refused saying what would fit.
      {{"decode", dir / "hostile.prn", "-q", "-o", dir / "small.png", "--preview-dpi", "10"}, 0, ""},
      {{"decode", dir / "hostile.prn", "-o", dir / "big.png", "--preview-dpi", "300"},
       1,
       "megapixels a preview may have; use --preview-dpi 2"},
      {{"dump", job}, 0, "00000000  ", {"EnterRaster", "FormFeed", " bytes)", "end of stream"}},  // long ones cut
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.Args));
    WriteText(out, "the user's earlier job");
    const RunResult run = RunInkweave(c.Args);
    if (c.Exit != 0) {
      ExpectOneLineError(run, c.Exit, c.Words);
    } else {
      EXPECT_EQ(run.Exit, 0) << run.Err;
      EXPECT_THAT(run.Out, HasSubstr(c.Words));
    }
    for (const std::string& words : c.Out) EXPECT_THAT(run.Out, HasSubstr(words));
    EXPECT_EQ(inkweave::testing::ReadText(out), "the user's earlier job");
  }
  // Previews one per page, or by the name given for one page; nothing else left behind.
  expected.insert({"out.prn", "crop.png", "preview-1.png", "preview-2.png", "proof.png", "small.png", "two.png"});
  EXPECT_EQ(Listing(dir), expected);
  // The whole A4 sheet at 50 dpi (414 x 585 pixels), or with --crop the printed area only.
  const auto size = [&](const std::string& name) {
    const vips::VImage image = vips::VImage::new_from_file((dir / name).c_str());
    return std::make_pair(image.width(), image.height());
  };
  EXPECT_EQ(size("preview-1.png"), std::make_pair(414, 585));
  EXPECT_TRUE(size("crop.png").first < 414 && size("crop.png").second < 585);
}

// Every paper the host offers, printed from a picture as tall as the page (so that a paper code two
// sheets share is told by the print's length), comes back from the stream as that sheet, the print at
// the margins the host leaves.
TEST(Command, EveryPaperComesBackAsItsSheet) {
  ScratchDir dir;
  StartLibvips();
  vips::VImage::black(2, 400).write_to_file((dir / "column.png").c_str());
  for (const host::Paper& paper : host::Papers()) {
    SCOPED_TRACE(std::string(paper.Name));
    const auto area = host::PrintableAreaOf(paper, 150);
    const std::string name(paper.Name);
    ASSERT_EQ(
        RunInkweave({"print", dir / "column.png", "--paper", name, "--quality", "150", "-q", "-o", dir / "p.prn"}).Exit,
        0);
    char sheet[160];
    std::snprintf(sheet, sizeof sheet,
                  "(%.1f x %.1f mm), the print %.1f mm from its left edge and %.1f mm from its top", paper.WidthMm,
                  paper.HeightMm, area.Left * 25.4 / 150, area.Top * 25.4 / 150);
    EXPECT_THAT(RunInkweave({"decode", dir / "p.prn"}).Out, HasSubstr(sheet));
  }
}

TEST(Command, DevicesPipesAndAClosedPipe) {
  ScratchDir dir;
  const std::string in = Example("testpage.png");
  ASSERT_EQ(RunInkweave({"print", in, "--quality", "150", "-q", "-o", dir / "job.prn"}).Exit, 0);
  const auto expected = ReadBytes(dir / "job.prn");
  // A device is written directly, not replaced.
  const RunResult device = RunInkweave({"print", in, "--quality", "150", "-o", "/dev/null"});
  EXPECT_EQ(device.Exit, 0) << device.Err;
  EXPECT_THAT(device.Err, HasSubstr("/dev/null: 1 page, " + std::to_string(expected.size()) + " bytes"));
  // A named pipe gets the whole stream (a file put in its place would leave the reader without it).
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::vector<unsigned char> received;
  std::thread reader([&] { received = ReadBytes(fifo); });
  const RunResult piped = RunInkweave({"print", in, "--quality", "150", "-q", "-o", fifo});
  reader.join();
  EXPECT_EQ(piped.Exit, 0) << piped.Err;
  EXPECT_EQ(received, expected);
  // A reader that stops after 10 bytes: one clear line and a failure, not death by SIGPIPE.
  const std::string command = "{ '" INKWEAVE_CLI "' print '" + Example("testpage.pdf") + "' -o - 2>'" + dir / "err" +
                              "'; echo $? >'" + dir / "code" + "'; } | head -c 10 >'" + dir / "out" + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  ExpectOneLineError(
      {std::stoi(inkweave::testing::ReadText(dir / "code")), 0, false, "", inkweave::testing::ReadText(dir / "err")}, 1,
      "standard output: write failed: the program reading it closed the pipe");
  EXPECT_EQ(ReadBytes(dir / "out").size(), 10u);
}

}  // namespace
}  // namespace inkweave::cli::testing
