// Everything a user can get wrong: each gives one line naming the problem, a non-zero exit, and no
// output file (an existing one is left as it was).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <thread>
#include <vips/vips8>

#include "tests/cli/page_compare.h"
#include "tests/cli/run.h"

namespace inkweave::cli::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// One line on stderr, starting with the program's name.
void ExpectOneLineError(const RunResult& run, int exit, const std::string& words) {
  EXPECT_EQ(run.Exit, exit) << run.Err;
  EXPECT_EQ(run.Err.rfind("inkweave: ", 0), 0u) << run.Err;
  EXPECT_EQ(std::count(run.Err.begin(), run.Err.end(), '\n'), 1) << run.Err;
  EXPECT_THAT(run.Err, HasSubstr(words));
}

TEST(PrintErrors, EachNamesTheProblemAndLeavesTheOutputAlone) {
  ScratchDir dir;
  WriteFile(dir / "notes.txt", "just some text\n");
  WriteFile(dir / "empty.png", "");
  // A PDF whose page tree is empty.
  WriteFile(
      dir / "empty.pdf",
      "%PDF-1.4\n1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n2 0 obj\n<< /Type /Pages /Kids [] /Count 0 >>\n"
      "endobj\nxref\n0 3\n0000000000 65535 f \n0000000009 00000 n \n0000000058 00000 n \ntrailer\n<< /Size 3 /Root 1 0 "
      "R >>\n"
      "startxref\n110\n%%EOF\n");
  // A picture whose header reads fine: the damage shows only when its pixels are decoded, mid-job, after
  // the output was opened.
  const auto png = ReadFile(Example("testpage.png"));
  WriteFile(dir / "cut.png", std::string(png.begin(), png.begin() + static_cast<long>(png.size() / 2)));
  WriteFile(dir / "fake.so", "not a library");
  const std::string page = Example("testpage.png"), out = dir / "out.prn";
  struct Case {
    std::vector<std::string> Args;  // after "print"; "-o out.prn" added unless the case names an output
    int Exit;
    std::string Words;
  } cases[] = {
      {{dir / "missing.pdf"}, 1, "missing.pdf: No such file or directory"},
      {{dir / "notes.txt"}, 1, "notes.txt: not a format inkweave can read"},
      {{dir / "empty.png"}, 1, "empty.png: the file is empty"},
      {{dir / "empty.pdf"}, 1, "empty.pdf: the PDF has no pages"},
      {{dir.Path().string()}, 1, "is a directory"},
      // Damaged midway: the decoder's reason follows the format.
      {{Example("testpage.pdf"), dir / "cut.png"}, 1, "cut.png: damaged PNG: vipspng: libpng read error"},
      {{page, "--paper", "a3"}, 2, "--paper"},
      {{page, "--quality", "200"}, 2, "--quality"},
      {{page, "--media", "cardboard"}, 2, "--media"},
      {{page, "--halftone", "stochastic"}, 2, "--halftone"},
      {{page, "--band-height", "20"}, 2, "multiple of 16"},
      {{page, "--band-height", "0"}, 2, "--band-height"},
      {{page, "--pages", "3-1"}, 2, "--pages 3-1: '3-1' runs backwards"},
      {{page, "--pages", "5"}, 2, "only 1 page"},
      {{page, "--scale", "2000%"}, 2, "--scale"},
      {{page, "--high-res", "--quality", "300"}, 2, "--high-res"},
      {{page, "--frobnicate"}, 2, "frobnicate"},
      // C4 is 5248 dots across at 600 dpi; a line holds 5120.
      {{page, "--paper", "c4", "--quality", "600"}, 2, "c4 is 5248 dots wide at 600 dpi"},
      {{page, "--paper", "c4", "--high-res"}, 2, "c4 is 5248 dots wide at 600 dpi"},
      {{page, "--plugin", dir / "fake.so"}, 1, "--plugin"},
      {{page, "-o", dir / "no/such/dir/out.prn"}, 1, "does not exist"},
      {{page, "-o", dir.Path().string()}, 1, "is a directory"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Args.back());
    WriteFile(out, "the user's earlier job");
    std::vector<std::string> args = {"print"};
    args.insert(args.end(), c.Args.begin(), c.Args.end());
    if (std::find(args.begin(), args.end(), "-o") == args.end()) args.insert(args.end(), {"-o", out});
    ExpectOneLineError(RunInkweave(args), c.Exit, c.Words);
    const auto kept = ReadFile(out);
    EXPECT_EQ(std::string(kept.begin(), kept.end()), "the user's earlier job");
  }
  if (geteuid() != 0) {  // root reads everything
    WriteFile(dir / "secret.png", "x");
    chmod((dir / "secret.png").c_str(), 0);
    ExpectOneLineError(RunInkweave({"print", dir / "secret.png", "-o", out}), 1, "Permission denied");
  }
  ExpectOneLineError(RunInkweave({"print", page}), 2, "--output");
  ExpectOneLineError(RunInkweave({"info", "--plugin", dir / "missing.so"}), 1, "--plugin");
  std::vector<std::string> files = {"cut.png", "empty.pdf", "empty.png", "fake.so", "notes.txt", "out.prn"};
  if (geteuid() != 0) files.push_back("secret.png");
  EXPECT_EQ(dir.Files(), files);  // no temporary file left behind
  // At 150 dpi C4 fits.
  EXPECT_EQ(RunInkweave({"print", page, "--paper", "c4", "--quality", "150", "-o", out}).Exit, 0);
}

// Arguments and the words their error line must hold.
struct ErrorCase {
  std::vector<std::string> Args;
  std::string Words;
};

TEST(PrintErrors, MisspeltWordsGetTheLikelyOne) {
  ScratchDir dir;
  const std::string in = Example("testpage.png"), out = dir / "out.prn";
  const ErrorCase cases[] = {
      {{"prnt", in, "-o", out}, "unknown command 'prnt'; did you mean 'print'?"},
      {{"print", in, "-o", out, "--papr", "a4"}, "print: unknown option '--papr'; did you mean '--paper'?"},
      {{"print", in, "-o", out, "--halftone=difusion"}, "did you mean 'diffusion'?"},
      {{"print", in, "-o", out, "--media", "glosy"}, "unknown paper type 'glosy'; did you mean 'glossy'?"},
      {{"print", in, "-o", out, "--paper", "Lettr"}, "did you mean 'letter'?"},
      {{"decode", in, "--previw-dpi", "100"}, "did you mean '--preview-dpi'?"},
      {{"print", in, "-o", out, "--paper", "a3"}, "unknown paper 'a3' (a4, letter,"},  // too short to guess at
      {{"print", in, "-o", out, "--quality", "1200"}, "unknown quality '1200' (150, 300, 600)"},
      {{"frobnicate"}, "unknown command 'frobnicate' (print, decode"},
  };
  for (const ErrorCase& c : cases) {
    SCOPED_TRACE(c.Args[0] + " " + c.Args.back());
    const RunResult run = RunInkweave(c.Args);
    ExpectOneLineError(run, 2, c.Words);
    if (c.Words.find("did you mean") == std::string::npos) {
      EXPECT_THAT(run.Err, Not(HasSubstr("did you mean")));
    }
  }
  EXPECT_TRUE(dir.Files().empty());
}

TEST(PrintOutputs, DevicesPipesAndAClosedPipe) {
  ScratchDir dir;
  const std::string in = Example("testpage.png");
  const RunResult file = RunInkweave({"print", in, "--quality", "150", "-q", "-o", dir / "job.prn"});
  ASSERT_EQ(file.Exit, 0) << file.Err;
  const auto expected = ReadFile(dir / "job.prn");

  // A device is written directly, not replaced.
  const RunResult device = RunInkweave({"print", in, "--quality", "150", "-o", "/dev/null"});
  EXPECT_EQ(device.Exit, 0) << device.Err;
  EXPECT_THAT(device.Err, HasSubstr("/dev/null: 1 page, " + std::to_string(expected.size()) + " bytes"));

  // A named pipe gets the whole stream, and stays a pipe.
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::vector<unsigned char> received;
  std::thread reader([&] { received = ReadFile(fifo); });
  const RunResult piped = RunInkweave({"print", in, "--quality", "150", "-q", "-o", fifo});
  reader.join();
  EXPECT_EQ(piped.Exit, 0) << piped.Err;
  EXPECT_EQ(received, expected);
  struct stat st {};
  EXPECT_TRUE(stat(fifo.c_str(), &st) == 0 && S_ISFIFO(st.st_mode));

  // A reader that stops after 10 bytes: one clear line and a failure, not death by SIGPIPE.
  const std::string command = "{ '" INKWEAVE_CLI "' print '" + Example("testpage.pdf") + "' -o - 2>'" + dir / "err" +
                              "'; echo $? >'" + dir / "code" + "'; } | head -c 10 >'" + dir / "out" + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const auto code = ReadFile(dir / "code"), err = ReadFile(dir / "err");
  EXPECT_EQ(std::string(code.begin(), code.end()), "1\n");
  RunResult closed;
  closed.Exit = 1, closed.Err = std::string(err.begin(), err.end());
  ExpectOneLineError(closed, 1, "standard output: write failed: the program reading it closed the pipe");
  EXPECT_EQ(ReadFile(dir / "out").size(), 10u);
}

TEST(PrintErrors, DamagedFilesAreCalledDamaged) {
  // Each format cut early (within its header, half way, just before its end) or with bytes overwritten:
  // one line naming the file and calling it a damaged file of its format, whether the damage shows when
  // the job is planned or only as the pixels are decoded.
  ScratchDir dir;
  StartLibvips();
  const vips::VImage picture = vips::VImage::new_from_file(Example("testpage.png").c_str());
  struct Damage {
    std::string Name;
    std::function<std::string(std::string)> Apply;
  };
  auto cut = [](double share) {
    return [share](std::string bytes) { return bytes.substr(0, static_cast<std::size_t>(bytes.size() * share)); };
  };
  auto overwrite = [](std::size_t at, std::string with) {
    return [at, with](std::string bytes) { return bytes.replace(std::min(at, bytes.size()), with.size(), with); };
  };
  struct Case {
    std::string Target, Format;
    std::vector<Damage> Damages;
  } cases[] = {
      {"p.png",
       "PNG",
       {{"cut after the signature", [](std::string b) { return b.substr(0, 8); }},
        {"cut in the header", [](std::string b) { return b.substr(0, 30); }},
        {"cut half way", cut(0.5)},
        {"pixels overwritten", overwrite(200, std::string(64, '\xff'))}}},
      {"p.jpg",
       "JPEG",
       {{"cut after its marker", [](std::string b) { return b.substr(0, 4); }},
        {"cut half way", cut(0.5)},
        {"frame header overwritten", overwrite(2, std::string(200, '\0'))}}},
      {"p.tif",
       "TIFF",
       {{"cut after its magic", [](std::string b) { return b.substr(0, 8); }},
        {"cut half way", cut(0.5)},
        {"cut before its end", cut(0.99)},
        {"directory past the end", overwrite(4, std::string("\xff\xff\xff\x0f", 4))}}},
      {"p-lzw.tif[compression=lzw]", "TIFF", {{"cut half way", cut(0.5)}}},
      {"p.webp", "WebP", {{"cut half way", cut(0.5)}}},
  };
  for (const Case& c : cases) {
    const std::string file = dir / c.Target.substr(0, c.Target.find('['));
    picture.write_to_file((dir / c.Target).c_str());
    const auto whole = ReadFile(file);
    const std::string extension = file.substr(file.rfind('.'));
    for (const Damage& damage : c.Damages) {
      SCOPED_TRACE(c.Target + ", " + damage.Name);
      const std::string damaged = dir / "damaged" + extension;
      WriteFile(damaged, damage.Apply(std::string(whole.begin(), whole.end())));
      ExpectOneLineError(RunInkweave({"print", damaged, "--quality", "150", "-o", dir / "out.prn"}), 1,
                         "damaged" + extension + ": damaged " + c.Format + ": ");
    }
  }
  const auto files = dir.Files();
  EXPECT_EQ(std::count(files.begin(), files.end(), "out.prn"), 0);
}

}  // namespace
}  // namespace inkweave::cli::testing
