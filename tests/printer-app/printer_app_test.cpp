// The printer application end to end, as its clients see it: the app runs as a server on a free loopback
// port with a scratch state directory; a printer on a file: device writes every job's stream into a
// folder, where the printer model (decode/) puts it on paper. One test walks the IPP operations (ipptool
// with CUPS's standard test files and our own) and the app's sub-commands over each way into the app (a
// picture, a PWG raster whose colour space changes between pages, PDF): each stream holds the pages on
// the sheet, at the resolution and with the inks asked for, the rectangles where the documents put them.
// A job canceled while it prints must end its stream; the app stops cleanly, and its printers and their
// defaults survive a restart. The second test prints a PDF through a driverless CUPS queue to the app.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cups/raster.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <fstream>
#include <regex>
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
using inkweave::testing::BackgroundProcess;
using inkweave::testing::ProcessResult;
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
    static int count = 0;
    program_ = dir / ("inkweave-printer-app-test-" + std::to_string(getpid()) + "-" + std::to_string(++count));
    fs::create_symlink(INKWEAVE_PRINTER_APP, program_);
  }
  ~App() {
    if (server_) server_->Stop();
  }

  bool Start(const std::vector<std::string>& options = {}) {
    port_ = inkweave::testing::FreeLoopbackPort();
    std::vector<std::string> argv = {program_.string(), "server"}, all = options;
    all.insert(all.end(), {"state-directory=" + (dir_ / "state").string(), "server-port=" + std::to_string(port_),
                           "log-level=debug"});
    for (const std::string& option : all) argv.insert(argv.end(), {"-o", option});
    server_ = std::make_unique<BackgroundProcess>(argv, dir_ / "server.out", AppEnvironment());
    return inkweave::testing::WaitForPort(port_, 60s, server_.get());
  }

  // The shutdown sub-command; the server must then end by itself, with status 0. (PAPPL acts on it
  // within about 30 seconds.)
  void Shutdown() {
    const ProcessResult run = Command({"shutdown"});
    EXPECT_EQ(run.Exit, 0) << Describe(run);
    const auto ended = server_->Wait(90s);
    ASSERT_TRUE(ended) << "the server did not stop after the shutdown sub-command";
    EXPECT_EQ(ended->Exit, 0) << "server exit; its output:\n" << inkweave::testing::ReadText(dir_ / "server.out");
    server_.reset();
  }
  // SIGTERM, as systemd stops the service: the server must end at once, with status 0.
  void Terminate() {
    const ProcessResult ended = server_->Stop(30s);
    EXPECT_FALSE(ended.TimedOut) << "the server did not stop on SIGTERM";
    EXPECT_EQ(ended.Exit, 0) << "server exit; its output:\n" << inkweave::testing::ReadText(dir_ / "server.out");
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

  // ipptool -tv against a printer: test files and their -d/-f arguments.
  ProcessResult Ipptool(const std::string& printer, const std::vector<std::string>& args) const {
    std::vector<std::string> argv = {"ipptool", "-tv", "-T", "60"};
    argv.insert(argv.end(), args.begin(), args.end() - 1);
    argv.push_back(PrinterUri(printer));
    argv.push_back(args.back());
    return RunProcess(argv, 600s);
  }

  std::string Log() const { return inkweave::testing::ReadText(dir_ / "state/inkweave-printer-app.log"); }

 private:
  fs::path dir_;
  fs::path program_;
  int port_ = 0;
  std::unique_ptr<BackgroundProcess> server_;
};

std::string StandardTest(const std::string& name) { return (fs::path(kStandardTests) / name).string(); }
std::string OurTest(const std::string& name) { return (kOurTests / name).string(); }

// ipptool's verdict: every test PASSed and none FAILed.
void ExpectPassed(const ProcessResult& run, const std::string& what) {
  EXPECT_EQ(run.Exit, 0) << what << ": " << Describe(run);
  EXPECT_EQ(run.Out.find("[FAIL]"), std::string::npos) << what << ":\n" << run.Out;
  EXPECT_NE(run.Out.find("[PASS]"), std::string::npos) << what << ":\n" << run.Out;
}

// The last value ipptool showed for an attribute, e.g. "job-id (integer) = 3" → "3".
std::string Shown(const std::string& out, const std::string& attribute) {
  const std::regex shown("\\b" + attribute + " \\([^)]*\\) = ([^\\n]*)");
  std::string value;
  for (auto it = std::sregex_iterator(out.begin(), out.end(), shown); it != std::sregex_iterator(); ++it)
    value = (*it)[1];
  return value;
}

struct RasterRect {
  int X, Y, Width, Height;          // raster pixels
  std::array<std::uint8_t, 3> Rgb;  // gray pages take the first
};

// An A4 page at 300 dpi of a PWG raster type ("srgb_8" or "sgray_8"): one rectangle on white.
cupstest::RasterPage PwgPage(const char* type, const RasterRect& r) {
  cupstest::RasterPage page;
  cupsRasterInitPWGHeader(&page.Header, pwgMediaForPWG("iso_a4_210x297mm"), type, 300, 300, "one-sided", nullptr);
  page.Pixel = [r, channels = page.Header.cupsBitsPerPixel / 8](unsigned x, unsigned y, std::uint8_t* p) {
    const bool in = static_cast<int>(x) - r.X < r.Width && static_cast<int>(y) - r.Y < r.Height &&
                    static_cast<int>(x) >= r.X && static_cast<int>(y) >= r.Y;
    for (unsigned c = 0; c < channels; ++c) p[c] = in ? r.Rgb[c] : 0xFF;
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

struct PageExpect {
  bool Color;
  std::vector<int> InkedPlanes;  // planes that must carry ink; the others of a colour page may too
  std::array<double, 4> Box;     // left, top, right, bottom in device dots of the printable area at the
                                 // job's resolution; all zero: only somewhere on the page
};

struct StreamExpect {
  std::string Label;
  int Paper;
  int Dpi;  // of the decoded page: 1200 in the high-resolution mode
  std::vector<PageExpect> Pages;
};

void ExpectStream(const std::vector<std::uint8_t>& stream, const StreamExpect& expect) {
  SCOPED_TRACE(expect.Label);
  decode::Job job;
  const auto printed = inkweave::testing::PrintStream(stream, {}, &job);
  EXPECT_TRUE(job.Ended) << "the stream does not end with the job end";
  EXPECT_FALSE(job.Aborted);
  ASSERT_EQ(printed.size(), expect.Pages.size());
  for (std::size_t i = 0; i < printed.size(); ++i) {
    SCOPED_TRACE("page " + std::to_string(i + 1));
    const decode::PrintedPage& page = printed[i];
    const PageExpect& want = expect.Pages[i];
    const decode::Settings& settings = job.Pages[i].PageSettings;
    EXPECT_EQ(settings.PaperLong ? -1 : settings.Paper, expect.Paper);
    EXPECT_EQ(page.Dpi, expect.Dpi);
    EXPECT_EQ(page.Color, want.Color);
    for (int plane : want.InkedPlanes)
      EXPECT_FALSE(cupstest::InkBox(page, {plane}).Empty()) << "no ink of plane " << plane;
    if (!want.Color) {
      EXPECT_TRUE(cupstest::InkBox(page, {0, 1, 2}).Empty()) << "colour ink on a monochrome page";
    }
    EXPECT_EQ(page.RowsInkedTwice, 0);
    const cupstest::Box box = cupstest::InkBox(page, {0, 1, 2, 3});
    EXPECT_FALSE(box.Empty()) << "no ink on the page";
    if (want.Box == std::array<double, 4>{}) continue;  // a picture: its edges may fade into white
    cupstest::ExpectRowsInkedOnce(page, box);
    const double tolerance = 2 + expect.Dpi / 150.0;
    EXPECT_NEAR(box.Left, want.Box[0], tolerance);
    EXPECT_NEAR(box.Top, want.Box[1], tolerance);
    EXPECT_NEAR(box.Right + 1, want.Box[2], tolerance);
    EXPECT_NEAR(box.Bottom + 1, want.Box[3], tolerance);
  }
}

// The box of a rectangle of an A4 raster at 300 dpi in device dots: the printable area starts at the margins.
std::array<double, 4> DeviceBox(const RasterRect& r) {
  const host::PrintableArea area = host::PrintableAreaOf(*host::FindPaper("a4"), 300);
  const double left = r.X - static_cast<double>(area.Left), top = r.Y - static_cast<double>(area.Top);
  return {left, top, left + r.Width, top + r.Height};
}

// The box of a PDF rectangle on a sheet of `paper`, in device dots at `dpi`, times `scale`.
std::array<double, 4> DeviceBox(const inkweave::testing::PdfRect& r, const host::Paper& paper, int dpi, int scale) {
  const host::PrintableArea area = host::PrintableAreaOf(paper, dpi);
  const double dots = dpi / 72.0, sheetHeight = paper.HeightMm * 72 / 25.4;
  const double left = r.X * dots - area.Left, top = (sheetHeight - r.Y - r.Height) * dots - area.Top;
  return {left * scale, top * scale, (left + r.Width * dots) * scale, (top + r.Height * dots) * scale};
}

// The one stream the printer wrote into `out` since it was last emptied, moved away to `to`.
std::vector<std::uint8_t> TakeStream(const fs::path& out, const fs::path& to) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(out)) files.push_back(entry.path());
  EXPECT_EQ(files.size(), 1u) << "streams in " << out;
  if (files.empty()) return {};
  fs::rename(files[0], to);
  return inkweave::testing::ReadBytes(to);
}

// Asks for a job's state five times a second until it has ended (completed, canceled or aborted), for up
// to five minutes; answers the last answer. Each question is a new ipptool on a new connection: one
// ipptool repeating its request on a kept-alive connection was once left waiting by the app's server.
ProcessResult WaitForJob(const App& app, const std::string& printer, const std::string& jobId) {
  const auto deadline = std::chrono::steady_clock::now() + 300s;
  for (;;) {
    ProcessResult asked = app.Ipptool(printer, {"-d", "jobid=" + jobId, OurTest("job-state.test")});
    const std::string state = Shown(asked.Out, "job-state");
    if (state == "completed" || state == "canceled" || state == "aborted" ||
        std::chrono::steady_clock::now() > deadline)
      return asked;
    std::this_thread::sleep_for(200ms);
  }
}

// Submits a job with ipptool, waits for it to end and answers the end state.
std::string PrintAndWait(const App& app, const std::string& printer, std::vector<std::string> args) {
  const ProcessResult submitted = app.Ipptool(printer, args);
  ExpectPassed(submitted, args.back());
  const std::string jobId = Shown(submitted.Out, "job-id");
  if (jobId.empty()) return "";
  const ProcessResult waited = WaitForJob(app, printer, jobId);
  ExpectPassed(waited, "job-state.test");
  return Shown(waited.Out, "job-state");
}

// A printer for a job canceled while it prints, on a socket: the test listens with a small receive buffer,
// reads the first bytes, holds the printer back until the job is canceled, then reads to the end of the
// connection.
class SlowPrinter {
 public:
  SlowPrinter() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    const int small = 16384;
    setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0 && listen(listener_, 1) == 0)
      port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Read(); });
  }
  ~SlowPrinter() {
    go_ = true;
    if (thread_.joinable()) thread_.join();
    close(listener_);
  }
  std::string Uri() const { return "socket://127.0.0.1:" + std::to_string(port_); }
  bool WaitStarted(std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!started_ && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(20ms);
    return started_;
  }
  // Lets the printer go on; what it received once the app closed the connection (or after 5 min).
  std::vector<std::uint8_t> Drain() {
    go_ = true;
    thread_.join();
    return bytes_;
  }

 private:
  void Read() {
    const auto deadline = std::chrono::steady_clock::now() + 300s;
    int fd = -1;
    while (fd < 0 && std::chrono::steady_clock::now() < deadline && !go_) {
      pollfd p{listener_, POLLIN, 0};
      if (poll(&p, 1, 100) > 0) fd = accept(listener_, nullptr, nullptr);
    }
    if (fd < 0) return;
    std::uint8_t buffer[4096];
    while (std::chrono::steady_clock::now() < deadline) {
      if (started_ && !go_) {  // hold the app back until the job is canceled
        std::this_thread::sleep_for(10ms);
        continue;
      }
      pollfd p{fd, POLLIN, 0};
      if (poll(&p, 1, 100) <= 0) continue;
      const ssize_t got = read(fd, buffer, sizeof buffer);
      if (got <= 0) break;  // the app closed the connection at the end of the job
      bytes_.insert(bytes_.end(), buffer, buffer + got);
      started_ = true;
    }
    close(fd);
  }

  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> started_{false};
  std::atomic<bool> go_{false};
  std::vector<std::uint8_t> bytes_;
  std::thread thread_;
};

bool HaveIpptool() { return RunProcess({"ipptool", "-h"}, 30s).Exit != 127; }

TEST(PrinterApp, ServesIppEverywherePrintsEveryFormatCancelsAndKeepsItsState) {
  ASSERT_TRUE(HaveIpptool()) << "ipptool is missing (scripts/install-deps.sh pappl)";
  cupstest::TempDir dir("printer-app");
  App app(dir.Path());
  ASSERT_TRUE(app.Start()) << inkweave::testing::ReadText(dir / "server.out");
  fs::create_directories(dir / "out");
  fs::create_directories(dir / "streams");
  SlowPrinter slow;

  // Two printers: one writing a file per job, one on a socket.
  for (const auto& [name, uri] : {std::pair{"inkweave", "file://" + (dir / "out")}, std::pair{"slow", slow.Uri()}}) {
    const ProcessResult added = app.Command({"add", "-d", name, "-m", "inkweave", "-v", uri});
    ASSERT_EQ(added.Exit, 0) << Describe(added);
  }
  const ProcessResult drivers = app.Command({"drivers"});
  EXPECT_NE(drivers.Out.find("inkweave \"inkweave Colour Inkjet\""), std::string::npos) << Describe(drivers);

  // What the printer says of itself.
  ExpectPassed(app.Ipptool("inkweave", {StandardTest("get-printer-attributes.test")}), "get-printer-attributes");
  ExpectPassed(app.Ipptool("inkweave", {"-d", "halftone=dither", OurTest("capabilities.test")}), "capabilities");

  // The documents.
  WriteImage(dir / "chart.png", 400, 600, {80, 80, 80});  // dark gray
  const RasterRect pwgRects[] = {
      {300, 400, 600, 300, {255, 0, 0}}, {1200, 2000, 400, 500, {0, 0, 0}}, {100, 3000, 2000, 200, {0, 0, 255}}};
  cupstest::WriteRaster(
      dir / "pages.pwg", CUPS_RASTER_WRITE_PWG,
      {PwgPage("srgb_8", pwgRects[0]), PwgPage("sgray_8", pwgRects[1]), PwgPage("srgb_8", pwgRects[2])});
  const host::Paper a5 = *host::FindPaper("a5");
  const std::vector<inkweave::testing::PdfRect> pdfRects = {{40, 60, 150, 100, "0 0 1 rg"}, {200, 400, 80, 120, "0 g"}};
  std::ofstream(dir / "doc.pdf", std::ios::binary)
      << inkweave::testing::MakePdf(std::round(a5.WidthMm * 72 / 25.4), std::round(a5.HeightMm * 72 / 25.4), pdfRects);

  ExpectPassed(app.Ipptool("inkweave", {"-f", dir / "chart.png", StandardTest("validate-job.test")}), "validate-job");

  // Every format, with the standard print-job test (the printer's defaults: A4, 300 dpi, colour) or
  // with options.
  struct Job {
    std::string Label;
    std::vector<std::string> Args;  // ipptool -f/-d arguments and the test file
    StreamExpect Expect;
  };
  const std::vector<Job> jobs = {
      {"png",
       {"-f", dir / "chart.png", "-d", "jobname=png", "-d", "quality=3", "-d", "colormode=monochrome", "-d",
        "mediasize=na_letter_8.5x11in", "-d", "mediatype=photographic-glossy", "-d", "halftone=diffusion", "-d",
        "highres=false", OurTest("print-job-options.test")},
       {"png", kLetter, 150, {{false, {3}, {}}}}},
      {"pwg",
       {"-f", dir / "pages.pwg", StandardTest("print-job.test")},
       {"pwg",
        kA4,
        300,
        {{true, {1, 2}, DeviceBox(pwgRects[0])},
         {false, {3}, DeviceBox(pwgRects[1])},
         {true, {0, 1}, DeviceBox(pwgRects[2])}}}},
      {"pdf",
       {"-f", dir / "doc.pdf", "-d", "jobname=pdf", "-d", "quality=5", "-d", "colormode=color", "-d",
        "mediasize=iso_a5_148x210mm", "-d", "mediatype=photographic", "-d", "halftone=dither", "-d", "highres=true",
        OurTest("print-job-options.test")},
       {"pdf",
        kA5,
        1200,
        {{true, {0, 1}, DeviceBox(pdfRects[0], a5, 600, 2)}, {true, {3}, DeviceBox(pdfRects[1], a5, 600, 2)}}}},
  };
  for (const Job& job : jobs) {
    SCOPED_TRACE(job.Label);
    EXPECT_EQ(PrintAndWait(app, "inkweave", job.Args), "completed") << app.Log();
    ExpectStream(TakeStream(dir / "out", dir / ("streams/" + job.Label + ".prn")), job.Expect);
  }

  // Cancel-Job while the job prints: 12 pages are asked for, the stream stops early but ends whole.
  // PAPPL prints a PWG raster as it arrives, so the Print-Job request lasts as long as the job.
  const std::vector<cupstest::RasterPage> many(12, PwgPage("srgb_8", {0, 0, 2480, 3508, {120, 60, 200}}));
  cupstest::WriteRaster(dir / "many.pwg", CUPS_RASTER_WRITE_PWG, many);
  {
    BackgroundProcess submit(
        {"ipptool", "-tv", "-T", "300", "-f", dir / "many.pwg", app.PrinterUri("slow"), StandardTest("print-job.test")},
        dir / "submit.out");
    ASSERT_TRUE(slow.WaitStarted(120s)) << "the job never started writing\n" << app.Log();
    const ProcessResult canceled = app.Ipptool("slow", {StandardTest("cancel-current-job.test")});
    ExpectPassed(canceled, "cancel-current-job");
    const std::vector<std::uint8_t> stream = slow.Drain();
    EXPECT_TRUE(submit.Wait(120s)) << "the Print-Job request did not end after the cancel";
    const ProcessResult waited = WaitForJob(app, "slow", Shown(canceled.Out, "job-id"));
    EXPECT_EQ(Shown(waited.Out, "job-state"), "canceled") << waited.Out;
    decode::Job parsed;
    const auto printed = inkweave::testing::PrintStream(stream, {}, &parsed);
    EXPECT_TRUE(parsed.Ended) << "a canceled job must still end its stream";
    EXPECT_LT(printed.size(), many.size());
  }

  // The state lasts: a changed default and both printers are there after a restart.
  const ProcessResult modified =
      app.Command({"modify", "-d", "inkweave", "-o", "inkweave-halftone-default=diffusion"}, true);
  EXPECT_EQ(modified.Exit, 0) << Describe(modified);
  app.Terminate();
  ASSERT_TRUE(app.Start()) << inkweave::testing::ReadText(dir / "server.out");
  const ProcessResult printers = app.Command({"printers"});
  EXPECT_EQ(printers.Out, "inkweave\nslow\n") << Describe(printers);
  ExpectPassed(app.Ipptool("inkweave", {"-d", "halftone=diffusion", OurTest("capabilities.test")}),
               "capabilities after the restart");
  app.Shutdown();
}

TEST(PrinterApp, DriverlessCupsQueuePrintsAPdf) {
  cupstest::TempDir dir("printer-app");
  std::string why;
  auto cupsd = inkweave::testing::Cupsd::Start(dir / "cupsd", {}, &why);
  if (!cupsd) GTEST_SKIP() << "no CUPS scheduler for this test: " << why;
  // The app as the README starts it: its printer comes from the printer-device option.
  App app(dir.Path());
  fs::create_directories(dir / "out");
  ASSERT_TRUE(app.Start({"printer-device=file://" + (dir / "out")})) << inkweave::testing::ReadText(dir / "server.out");

  // The queue is made from what the printer answers over IPP; the PDF goes to it as a PDF.
  const ProcessResult added =
      cupsd->Run({"lpadmin", "-p", "inkweave", "-E", "-v", app.PrinterUri("inkweave"), "-m", "everywhere"});
  ASSERT_EQ(added.Exit, 0) << Describe(added) << cupsd->ErrorLog();
  const host::Paper letter = *host::FindPaper("letter");
  const std::vector<inkweave::testing::PdfRect> rects = {{72, 72, 144, 144, "1 0 0 rg"}, {300, 500, 100, 50, "0 g"}};
  std::ofstream(dir / "doc.pdf", std::ios::binary) << inkweave::testing::MakePdf(612, 792, rects);
  const ProcessResult printed = cupsd->Run(
      {"lp", "-d", "inkweave", "-o", "media=na_letter_8.5x11in", "-o", "print-color-mode=color", dir / "doc.pdf"});
  ASSERT_EQ(printed.Exit, 0) << Describe(printed);
  ASSERT_TRUE(cupsd->WaitForJobs(300s)) << cupsd->ErrorLog();
  const ProcessResult waited = WaitForJob(app, "inkweave", "1");
  const std::string schedulerLog = cupsd->ErrorLog();  // how the queue's job went, the end of it
  EXPECT_EQ(Shown(waited.Out, "job-state"), "completed")
      << waited.Out << app.Log() << "\nThe scheduler's log, its end:\n"
      << schedulerLog.substr(schedulerLog.size() - std::min<std::size_t>(schedulerLog.size(), 20000));
  ExpectStream(TakeStream(dir / "out", dir / "cups.prn"), {"cups",
                                                           kLetter,
                                                           300,
                                                           {{true, {1, 2}, DeviceBox(rects[0], letter, 300, 1)},
                                                            {true, {3}, DeviceBox(rects[1], letter, 300, 1)}}});
  app.Terminate();
}

}  // namespace
}  // namespace inkweave::printerapp::testing
