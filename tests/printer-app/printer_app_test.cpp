// The printer application end to end, as its clients see it: the app runs once as a server on a free
// loopback port with a scratch state directory, its printer on a file: device writing every job's stream
// into a folder, where the printer model (decode/) puts it on paper. One runner walks the IPP operations
// (ipptool with CUPS's standard test files and our own) and the app's sub-commands, and prints rows of jobs,
// one for each way into the app (a picture, a PWG raster whose colour space changes between pages, PDF, and
// a PDF through a driverless CUPS queue): each stream holds the pages on the sheet, at the resolution and
// with the inks asked for, the rectangles where the documents put them. A job canceled while it prints must
// end its stream; the app stops on SIGTERM and on the shutdown sub-command, and its printers and their
// defaults survive a restart.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cups/raster.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <iostream>
#include <thread>
#include <vips/vips8>

#include "decode/decoder.h"
#include "host/papers.h"
#include "tests/cups/cups_support.h"
#include "tests/support/cupsd.h"
#include "tests/support/make_pdf.h"
#include "tests/support/print_stream.h"
#include "tests/support/process.h"

namespace inkweave::printerapp::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using cupstest::PdfBox;
using cupstest::SheetBox;
using inkweave::testing::BackgroundProcess;
using inkweave::testing::ProcessResult;
using inkweave::testing::ReadBytes;
using inkweave::testing::ReadText;
using inkweave::testing::RunProcess;

constexpr const char* kStandardTests = "/usr/share/cups/ipptool";
const fs::path kOurTests = fs::path(INKWEAVE_SOURCE_DIR) / "tests/printer-app";
// Under the sanitizers the app's processes run with full stack unwinding, so that the leaks PAPPL
// itself leaves at exit can be suppressed by the PAPPL function that makes them (lsan.supp) and no
// other leak is hidden. (Without the sanitizers these variables are not read.)
std::vector<std::string> AppEnvironment() {
  const char* asan = std::getenv("ASAN_OPTIONS");
  return {std::string("ASAN_OPTIONS=") + (asan ? asan : "") + ":fast_unwind_on_malloc=0",
          "LSAN_OPTIONS=suppressions=" + (kOurTests / "lsan.supp").string()};
}

std::string Describe(const ProcessResult& run) {
  return "exit " + std::to_string(run.Exit) + (run.Signal ? " signal " + std::to_string(run.Signal) : "") +
         (run.TimedOut ? " (timed out)" : "") + "\n" + run.Out + run.Err;
}

// The app as a server, and the programs that talk to it.
class App {
 public:
  // `dir` holds the state (dir/state) and the app's log; the program runs under a name of its own
  // (a symlink), so that the local socket PAPPL derives from it is the test's alone.
  explicit App(const fs::path& dir) : dir_(dir) {
    program_ = dir / ("inkweave-printer-app-test-" + std::to_string(getpid()));
    fs::create_symlink(INKWEAVE_PRINTER_APP, program_);
  }
  ~App() {
    if (server_) server_->Stop();
  }

  bool Start(const std::vector<std::string>& options) {
    port_ = inkweave::testing::FreeLoopbackPort();
    std::vector<std::string> argv = {program_.string(), "server"}, all = options;
    all.insert(all.end(), {"state-directory=" + (dir_ / "state").string(), "server-port=" + std::to_string(port_),
                           "log-level=debug"});
    for (const std::string& option : all) argv.insert(argv.end(), {"-o", option});
    server_ = std::make_unique<BackgroundProcess>(argv, dir_ / "server.out", AppEnvironment());
    return inkweave::testing::WaitForPort(port_, 60s, server_.get());
  }

  // Stops the server by the shutdown sub-command (PAPPL acts on it within about 30 seconds) or by
  // SIGTERM, as systemd stops the service: either way it must end by itself, with status 0.
  void Stop(bool shutdown) {
    if (shutdown) {
      EXPECT_EQ(Command({"shutdown"}).Exit, 0);
    }
    const auto ended = shutdown ? server_->Wait(90s) : std::optional(server_->Stop(30s));
    ASSERT_TRUE(ended && !ended->TimedOut) << "the server did not stop";
    EXPECT_EQ(ended->Exit, 0) << "server exit; its output:\n" << ReadText(dir_ / "server.out");
    server_.reset();
  }

  // A sub-command against this server, over IPP (-u) or through its local socket.
  ProcessResult Command(std::vector<std::string> args, bool local = false) const {
    if (!local) args.insert(args.begin() + 1, {"-u", "ipp://localhost:" + std::to_string(port_)});
    args.insert(args.begin(), program_.string());
    return RunProcess(args, 120s, AppEnvironment());
  }

  std::string PrinterUri(const std::string& printer) const {
    return "ipp://localhost:" + std::to_string(port_) + "/ipp/print/" + printer;
  }

  // ipptool -tv against a printer (-f/-d arguments, then the test file); every test must PASS and none FAIL.
  ProcessResult Ipptool(const std::string& printer, std::vector<std::string> args) const {
    args.insert(args.end() - 1, PrinterUri(printer));
    args.insert(args.begin(), {"ipptool", "-tv", "-T", "60"});
    const ProcessResult run = RunProcess(args, 600s);
    EXPECT_EQ(run.Exit, 0) << args.back() << ": " << Describe(run);
    EXPECT_EQ(run.Out.find("[FAIL]"), std::string::npos) << args.back() << ":\n" << run.Out;
    EXPECT_NE(run.Out.find("[PASS]"), std::string::npos) << args.back() << ":\n" << run.Out;
    return run;
  }

  std::string Log() const { return ReadText(dir_ / "state/inkweave-printer-app.log"); }

 private:
  fs::path dir_;
  fs::path program_;
  int port_ = 0;
  std::unique_ptr<BackgroundProcess> server_;
};

std::string StandardTest(const std::string& name) { return (fs::path(kStandardTests) / name).string(); }
std::string OurTest(const std::string& name) { return (kOurTests / name).string(); }

// An A4 page at 300 dpi of a PWG raster type ("srgb_8" or "sgray_8"): one rectangle (pixels) of colour
// `rgb` on white (gray pages take its first value).
cupstest::RasterPage PwgPage(const char* type, std::array<double, 4> r, std::array<std::uint8_t, 3> rgb) {
  cupstest::RasterPage page;
  cupsRasterInitPWGHeader(&page.Header, pwgMediaForPWG("iso_a4_210x297mm"), type, 300, 300, "one-sided", nullptr);
  page.Pixel = [=, channels = page.Header.cupsBitsPerPixel / 8](unsigned x, unsigned y, std::uint8_t* p) {
    const double dx = x - r[0], dy = y - r[1];
    for (unsigned c = 0; c < channels; ++c) p[c] = dx >= 0 && dx < r[2] && dy >= 0 && dy < r[3] ? rgb[c] : 0xFF;
  };
  return page;
}

// A picture of `width` x `height` pixels, white, with a rectangle of colour `rgb` in its middle half.
void WriteImage(const fs::path& path, int width, int height, std::array<double, 3> rgb) {
  static const bool started = VIPS_INIT("printer_app_test") == 0;
  ASSERT_TRUE(started);
  vips::VImage white = vips::VImage::black(width, height, vips::VImage::option()->set("bands", 3)) + 255;
  vips::VImage patch = vips::VImage::black(width / 2, height / 2, vips::VImage::option()->set("bands", 3)) +
                       std::vector<double>(rgb.begin(), rgb.end());
  white.insert(patch, width / 4, height / 4).cast(VIPS_FORMAT_UCHAR).write_to_file(path.c_str());
}

// The sheet as the paper command names it: its "s" parameter, -1 for the long form.
constexpr int kA4 = 0x01, kLetter = -1, kA5 = 0x07;

struct StreamExpect {
  int Paper;
  int Dpi;  // of the decoded page: 1200 in the high-resolution mode
  std::vector<cupstest::PageExpect> Pages;
};

void ExpectStream(const std::vector<std::uint8_t>& stream, const StreamExpect& expect) {
  decode::Job job;
  const auto printed = inkweave::testing::PrintStream(stream, {}, &job);
  EXPECT_TRUE(job.Ended) << "the stream does not end with the job end";
  EXPECT_FALSE(job.Aborted);
  ASSERT_EQ(printed.size(), expect.Pages.size());
  for (std::size_t i = 0; i < printed.size(); ++i) {
    SCOPED_TRACE("page " + std::to_string(i + 1));
    const decode::Settings& settings = job.Pages[i].PageSettings;
    EXPECT_EQ(settings.PaperLong ? -1 : settings.Paper, expect.Paper);
    cupstest::ExpectPage(printed[i], expect.Dpi, expect.Pages[i]);
  }
}

// The one stream the printer wrote into `out` since it was last emptied, taken out of it.
std::vector<std::uint8_t> TakeStream(const fs::path& out) {
  const std::vector<fs::path> files(fs::directory_iterator(out), fs::directory_iterator{});
  EXPECT_EQ(files.size(), 1u) << "streams in " << out;
  const std::vector<std::uint8_t> stream = files.empty() ? std::vector<std::uint8_t>{} : ReadBytes(files[0]);
  for (const fs::path& file : files) fs::remove(file);
  return stream;
}

// Asks for a job's state five times a second until it has ended (completed, canceled or aborted), for up
// to five minutes; answers the last state. Each question is a new ipptool on a new connection: one
// ipptool repeating its request on a kept-alive connection was once left waiting by the app's server.
std::string WaitForJob(const App& app, const std::string& printer, const std::string& jobId) {
  const auto deadline = std::chrono::steady_clock::now() + 300s;
  for (;;) {
    const std::string state =
        cupstest::Shown(app.Ipptool(printer, {"-d", "jobid=" + jobId, OurTest("job-state.test")}).Out, "job-state");
    if (state == "completed" || state == "canceled" || state == "aborted" ||
        std::chrono::steady_clock::now() > deadline)
      return state;
    std::this_thread::sleep_for(200ms);
  }
}

// The end of a connection that loopback `listener` accepts within five minutes (-1 when none comes), whose
// reads give up after five minutes without a byte.
int Accept(int listener) {
  pollfd p{listener, POLLIN, 0};
  const int fd = poll(&p, 1, 300000) > 0 ? accept(listener, nullptr, nullptr) : -1;
  const timeval patience{300, 0};
  if (fd >= 0) setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  return fd;
}

TEST(PrinterApp, ServesIppEverywherePrintsEveryFormatCancelsAndKeepsItsState) {
  ASSERT_NE(RunProcess({"ipptool", "-h"}, 30s).Exit, 127) << "ipptool is missing (scripts/install-deps.sh pappl)";
  cupstest::TempDir dir("printer-app");
  fs::create_directories(dir / "out");
  // The app as the README starts it: its printer comes from the printer-device option (and, once the
  // state has it, from the state).
  App app(dir.Path());
  const std::vector<std::string> options = {"printer-device=file://" + (dir / "out")};
  ASSERT_TRUE(app.Start(options)) << ReadText(dir / "server.out");
  // A second printer for the canceled job, on a socket the test listens on with a small receive buffer:
  // what the test does not read holds the app back.
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int small = 16384;
  sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
  socklen_t length = sizeof address;
  ASSERT_EQ(setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  const std::string slowUri = "socket://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  const ProcessResult added = app.Command({"add", "-d", "slow", "-m", "inkweave", "-v", slowUri});
  ASSERT_EQ(added.Exit, 0) << Describe(added);

  // What the printer says of itself.
  app.Ipptool("inkweave", {StandardTest("get-printer-attributes.test")});
  app.Ipptool("inkweave", {"-d", "halftone=dither", OurTest("capabilities.test")});

  // The documents.
  WriteImage(dir / "chart.png", 400, 600, {80, 80, 80});  // dark gray
  const std::array<double, 4> pwgRects[] = {{300, 400, 600, 300}, {1200, 2000, 400, 500}, {100, 3000, 2000, 200}};
  cupstest::WriteRaster(dir / "pages.pwg", CUPS_RASTER_WRITE_PWG,
                        {PwgPage("srgb_8", pwgRects[0], {255, 0, 0}), PwgPage("sgray_8", pwgRects[1], {0, 0, 0}),
                         PwgPage("srgb_8", pwgRects[2], {0, 0, 255})});
  const host::Paper a4 = *host::FindPaper("a4"), a5 = *host::FindPaper("a5");
  const std::vector<inkweave::testing::PdfRect> pdfRects = {{40, 60, 150, 100, "0 0 1 rg"}, {200, 400, 80, 120, "0 g"}};
  std::ofstream(dir / "doc.pdf", std::ios::binary)
      << inkweave::testing::MakePdf(std::round(a5.WidthMm * 72 / 25.4), std::round(a5.HeightMm * 72 / 25.4), pdfRects);

  app.Ipptool("inkweave", {"-f", dir / "chart.png", StandardTest("validate-job.test")});

  // Every format, with the standard print-job test (the printer's defaults: A4, 300 dpi, colour) or
  // with options; the last through a CUPS queue made from what the printer answers over IPP.
  struct Job {
    std::string Label;
    std::vector<std::string> Args;  // ipptool -f/-d arguments and the test file; lp's for the CUPS queue
    StreamExpect Expect;
  };
  const std::vector<Job> jobs = {
      {"png",
       {"-f", dir / "chart.png", "-d", "jobname=png", "-d", "quality=3", "-d", "colormode=monochrome", "-d",
        "mediasize=na_letter_8.5x11in", "-d", "mediatype=photographic-glossy", "-d", "halftone=diffusion", "-d",
        "highres=false", OurTest("print-job-options.test")},
       {kLetter, 150, {{false, {3}, {}}}}},
      {"pwg",
       {"-f", dir / "pages.pwg", StandardTest("print-job.test")},
       {kA4,
        300,
        {{true, {1, 2}, SheetBox(a4, 300, pwgRects[0])},
         {false, {3}, SheetBox(a4, 300, pwgRects[1])},
         {true, {0, 1}, SheetBox(a4, 300, pwgRects[2])}}}},
      {"pdf",
       {"-f", dir / "doc.pdf", "-d", "jobname=pdf", "-d", "quality=5", "-d", "colormode=color", "-d",
        "mediasize=iso_a5_148x210mm", "-d", "mediatype=photographic", "-d", "halftone=dither", "-d", "highres=true",
        OurTest("print-job-options.test")},
       {kA5, 1200, {{true, {0, 1}, PdfBox(a5, 1200, pdfRects[0])}, {true, {3}, PdfBox(a5, 1200, pdfRects[1])}}}},
      {"cups",
       {"-o", "media=iso_a5_148x210mm", "-o", "print-color-mode=color", dir / "doc.pdf"},
       {kA5, 300, {{true, {0, 1}, PdfBox(a5, 300, pdfRects[0])}, {true, {3}, PdfBox(a5, 300, pdfRects[1])}}}},
  };
  std::unique_ptr<inkweave::testing::Cupsd> cupsd;
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const Job& job = jobs[i];
    SCOPED_TRACE(job.Label);
    std::string jobId = std::to_string(i + 1), schedulerLog;  // the printer's jobs are numbered from 1
    if (job.Label == "cups") {
      std::string why;
      cupsd = inkweave::testing::Cupsd::Start(dir / "cupsd", "/usr/lib/cups", &why);
      if (!cupsd) {
        std::cout << "no CUPS scheduler for the driverless queue's job: " << why << "\n";
        continue;
      }
      const ProcessResult queue =
          cupsd->Run({"lpadmin", "-p", "inkweave", "-E", "-v", app.PrinterUri("inkweave"), "-m", "everywhere"});
      ASSERT_EQ(queue.Exit, 0) << Describe(queue) << cupsd->ErrorLog();
      std::vector<std::string> lp = {"lp", "-d", "inkweave"};
      lp.insert(lp.end(), job.Args.begin(), job.Args.end());
      const ProcessResult printed = cupsd->Run(lp);
      ASSERT_EQ(printed.Exit, 0) << Describe(printed);
      EXPECT_TRUE(cupsd->WaitForJobs(300s)) << cupsd->ErrorLog();
      schedulerLog = cupsd->ErrorLog();  // how the queue's job went, the end of it
      schedulerLog = "\nThe scheduler's log, its end:\n" +
                     schedulerLog.substr(schedulerLog.size() - std::min<std::size_t>(schedulerLog.size(), 20000));
    } else {
      jobId = cupstest::Shown(app.Ipptool("inkweave", job.Args).Out, "job-id");
    }
    EXPECT_EQ(WaitForJob(app, "inkweave", jobId), "completed") << app.Log() << schedulerLog;
    ExpectStream(TakeStream(dir / "out"), job.Expect);
  }

  // Cancel-Job while the job prints: 12 pages are asked for, the stream stops early but ends whole.
  // PAPPL prints a PWG raster as it arrives, so the Print-Job request lasts as long as the job.
  const std::vector<cupstest::RasterPage> many(12, PwgPage("srgb_8", {0, 0, 2480, 3508}, {120, 60, 200}));
  cupstest::WriteRaster(dir / "many.pwg", CUPS_RASTER_WRITE_PWG, many);
  {
    BackgroundProcess submit(
        {"ipptool", "-tv", "-T", "300", "-f", dir / "many.pwg", app.PrinterUri("slow"), StandardTest("print-job.test")},
        dir / "submit.out");
    std::uint8_t buffer[4096];
    const int connection = Accept(listener);
    ssize_t got = read(connection, buffer, sizeof buffer);
    ASSERT_GT(got, 0) << "the job never started writing\n" << app.Log();
    std::vector<std::uint8_t> stream(buffer, buffer + got);
    const ProcessResult canceled = app.Ipptool("slow", {StandardTest("cancel-current-job.test")});
    while ((got = read(connection, buffer, sizeof buffer)) > 0) stream.insert(stream.end(), buffer, buffer + got);
    EXPECT_EQ(got, 0) << "the app did not close the canceled job's connection";
    close(connection);
    close(listener);
    EXPECT_TRUE(submit.Wait(120s)) << "the Print-Job request did not end after the cancel";
    EXPECT_EQ(WaitForJob(app, "slow", cupstest::Shown(canceled.Out, "job-id")), "canceled") << app.Log();
    decode::Job parsed;
    const auto printed = inkweave::testing::PrintStream(stream, {}, &parsed);
    EXPECT_TRUE(parsed.Ended) << "a canceled job must still end its stream";
    EXPECT_LT(printed.size(), many.size());
  }

  // The state lasts: a changed default and both printers are there after a restart (the printer of the
  // printer-device option not added twice).
  const ProcessResult modified =
      app.Command({"modify", "-d", "inkweave", "-o", "inkweave-halftone-default=diffusion"}, true);
  EXPECT_EQ(modified.Exit, 0) << Describe(modified);
  app.Stop(false);
  ASSERT_TRUE(app.Start(options)) << ReadText(dir / "server.out");
  const ProcessResult printers = app.Command({"printers"});
  EXPECT_EQ(printers.Out, "inkweave\nslow\n") << Describe(printers);
  app.Ipptool("inkweave", {"-d", "halftone=diffusion", OurTest("capabilities.test")});  // after the restart
  app.Stop(true);
}

}  // namespace
}  // namespace inkweave::printerapp::testing
