// The CUPS filter run as CUPS runs it on hand-made raster streams; the page plan and the job options in
// process; the PPD; and a real CUPS queue made from it. Every printer stream is put on paper by the decoder.
#include <sys/stat.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "cups/page_plan.h"
#include "host/choices.h"
#include "host/papers.h"
#include "tests/cups/cups_support.h"
#include "tests/support/cupsd.h"
#include "tests/support/make_pdf.h"
#include "tests/support/sanitizers.h"

namespace inkweave::cupstest {
namespace {

using namespace std::chrono_literals;
using cups::PagePlan;
using host::HighRes;
using inkweave::testing::Cupsd;

const std::string kFilter = RASTERTOINKWEAVE_PATH;
const std::string kPluginEnv = std::string("INKWEAVE_PLUGIN=") + INKWEAVE_PLUGIN_PATH;

// A program run to its end (killed after four minutes, failing the test), standard input from `input`.
ProcessResult RunProgram(const std::vector<std::string>& argv, const fs::path& input = {},
                         const std::vector<std::string>& env = {kPluginEnv}) {
  const ProcessResult run =
      inkweave::testing::RunProcess(argv, 240s, {.Env = env, .Input = input, .WhileRunning = {}, .Output = {}});
  EXPECT_FALSE(run.TimedOut) << argv[0] << " hung and was killed";
  return run;
}

// An A5 sheet at 150 dpi, one pixel narrower than the sheet so that rows are odd: white, with a
// 100 x 80 pixel box of full ink at (left, top).
constexpr unsigned kDpi = 150, kWidth = 873, kHeight = 1240;
RasterPage BoxPage(cups_cspace_t space, unsigned left, unsigned top) {
  RasterPage page{PageHeader(kWidth, kHeight, kDpi, space, 420, 595), {}};
  page.Pixel = [=](unsigned x, unsigned y, std::uint8_t* p) {
    const bool in = x >= left && x < left + 100 && y >= top && y < top + 80;
    if (space == CUPS_CSPACE_RGB) {
      p[0] = p[1] = in ? 0 : 255;  // blue
      p[2] = 255;
    } else {
      p[0] = (space == CUPS_CSPACE_K) == in ? 255 : 0;  // K: 255 is full ink
    }
  };
  return page;
}

// Every raster version, each stream with pages of every pixel format: the filter opens a new device
// context when a page needs other settings (colour to gray and back), and only then.
TEST(Filter, ReadsEveryRasterVersionAndPixelFormat) {
  const cups_cspace_t spaces[] = {CUPS_CSPACE_RGB, CUPS_CSPACE_W, CUPS_CSPACE_K, CUPS_CSPACE_RGB};
  const unsigned left[] = {200, 651, 200, 651}, top[] = {300, 1100, 300, 1100};
  for (const int version : {1, 2, 3}) {
    SCOPED_TRACE("version " + std::to_string(version));
    TempDir dir("formats");
    std::vector<RasterPage> pages;
    for (int i = 0; i < 4; ++i) pages.push_back(BoxPage(spaces[i], left[i], top[i]));
    const fs::path raster = dir / "in.ras";
    if (version == 1)
      WriteRasterV1(raster, pages);
    else
      WriteRaster(raster, version == 2 ? CUPS_RASTER_WRITE_COMPRESSED : CUPS_RASTER_WRITE, pages);
    // Version 2 runs under error diffusion (gray pages then go to the plug-in as 24-bit bands); version 3
    // is named as the file argument, with an option value the filter does not know (a warning only).
    const ProcessResult run =
        version == 3
            ? RunProgram({kFilter, "7", "user", "title", "1", "InkweaveHalftone=Stipple", raster})
            : RunProgram({kFilter, "7", "user", "title", "1", version == 2 ? "InkweaveHalftone=Diffusion" : ""},
                         raster);
    ASSERT_EQ(run.Exit, 0) << run.Err;
    EXPECT_EQ(run.Err.find("WARNING: Unknown InkweaveHalftone value \"Stipple\"") != std::string::npos, version == 3);
    for (const char* line : {"PAGE: 1 1\n", "PAGE: 4 1\n"}) EXPECT_NE(run.Err.find(line), std::string::npos) << line;
    decode::Job job;
    const auto printed = Print(run.Out, &job);
    ASSERT_EQ(printed.size(), 4u);
    EXPECT_TRUE(job.Ended);
    // Each box where the raster put it, less the sheet's margins: blue in cyan and magenta, gray in black only.
    for (int i = 0; i < 4; ++i) {
      const bool color = spaces[i] == CUPS_CSPACE_RGB;
      ExpectPage(printed[i], kDpi,
                 {color, color ? std::vector{0, 1} : std::vector{3},
                  SheetBox(*host::FindPaper("a5"), kDpi, {double(left[i]), double(top[i]), 100, 80})});
    }
  }
}

TEST(Filter, StopsAtABandOnSigtermAndEndsTheJob) {
  TempDir dir("cancel");
  const fs::path fifo = dir / "in.fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const RasterPage page = BoxPage(CUPS_CSPACE_RGB, 200, 300);
  const auto whileRunning = [&](pid_t pid) {
    const int fd = open(fifo.c_str(), O_WRONLY);
    cups_raster_t* raster = cupsRasterOpen(fd, CUPS_RASTER_WRITE);
    cups_page_header2_t header = page.Header;
    cupsRasterWriteHeader2(raster, &header);
    for (unsigned y = 0; y < 600; ++y) cupsRasterWritePixels(raster, PageRow(page, y).data(), header.cupsBytesPerLine);
    // Wait for the job start on the output, then cancel while the filter waits for more rows.
    for (int i = 0; i < 2000 && fs::file_size(dir / "stdout") == 0; ++i) usleep(5000);
    usleep(100000);
    kill(pid, SIGTERM);
    usleep(100000);
    cupsRasterClose(raster);
    close(fd);
  };
  const ProcessResult run = inkweave::testing::RunProcess(
      {kFilter, "7", "user", "title", "1", ""}, 240s,
      {.Env = {kPluginEnv}, .Input = fifo, .WhileRunning = whileRunning, .Output = dir / "stdout"});
  EXPECT_EQ(run.Exit, 0) << run.Err;
  EXPECT_NE(run.Err.find("Job canceled"), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("ERROR:"), std::string::npos) << run.Err;
  decode::Job job;
  const auto printed = Print(run.Out, &job);
  EXPECT_EQ(printed.size(), 1u);
  EXPECT_TRUE(job.Ended) << "no job end after the cancel";
}

// A version-2 stream written by hand, in the writer's byte order or the other, in the codes libcups' own
// writer does not use: two gray pages whose rows come in groups of 256 (the last running past the page),
// each row a blank rest, or repeats or literal runs the row's end cuts; then `last`, a header alone.
std::string HandCoded(bool swapped, const cups_page_header2_t& last) {
  const std::uint32_t sync = swapped ? CUPS_RASTER_REVSYNCv2 : CUPS_RASTER_SYNCv2;
  std::string out(reinterpret_cast<const char*>(&sync), sizeof sync);
  const cups_page_header2_t page = BoxPage(CUPS_CSPACE_K, 0, 0).Header;
  for (int n = 0; n < 3; ++n) {
    cups_page_header2_t header = n < 2 ? page : last;
    if (swapped)
      for (unsigned* word = &header.AdvanceDistance; word < &header.AdvanceDistance + 81; ++word)
        *word = __builtin_bswap32(*word);
    out.append(reinterpret_cast<const char*>(&header), sizeof header);
    for (unsigned group = 0; n < 2 && group * 256 < kHeight; ++group) {
      out += '\xff';
      if (group % 3 == 0) out += '\x80';
      for (unsigned left = kWidth; group % 3 != 0 && left > 0; left -= std::min(left, 128u)) {
        out += group % 3 == 1 ? '\x7f' : '\x81';  // 128 copies of one pixel, or 128 literal pixels
        out.append(group % 3 == 1 ? 1 : std::min(left, 128u), '\x40');
      }
    }
  }
  return out;
}

// Malformed, unsupported and hostile input: a clear error and exit status 1 (never a crash or a hang), the
// pages before it printed.
// The filter follows compressed streams, coded in every way, to each next page header; it runs with little
// memory, as a header claiming 500 MB rows must be refused by its size before libcups allocates such a row
// for it (where that allocation would fail and the page pass for an invalid header).
TEST(Filter, RefusesBadInputWithAClearError) {
#if defined(INKWEAVE_ASAN)
  const std::vector<std::string> asanEnv = {"ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=256"};
  const std::vector<std::string> limit;
#else
  const std::vector<std::string> asanEnv;
  const std::vector<std::string> limit = {"/usr/bin/prlimit", "--as=" + std::to_string(400 << 20), "--"};
#endif
  struct Case {
    std::string Name;
    std::function<void(const fs::path&)> Write;
    std::string Expect;
    std::size_t Pages = 0;                                            // printed before the error
    std::vector<std::string> Args = {"7", "user", "title", "1", ""};  // the filter's, after its name
    std::string Plugin = INKWEAVE_PLUGIN_PATH;
  };
  // The stream cut to `keep` bytes (counted from its end when negative).
  const auto cut = [](cups_mode_t mode, int pages, std::intmax_t keep) {
    return [=](const fs::path& path) {
      WriteRaster(path, mode, std::vector<RasterPage>(pages, BoxPage(CUPS_CSPACE_RGB, 10, 10)));
      const auto size = static_cast<std::intmax_t>(fs::file_size(path));
      fs::resize_file(path, static_cast<std::uintmax_t>(keep < 0 ? size + keep : keep));
    };
  };
  const auto whole = [](const fs::path& path) {
    WriteRaster(path, CUPS_RASTER_WRITE, {BoxPage(CUPS_CSPACE_RGB, 0, 0)});
  };
  // A version-1 page (a stream the filter does not follow as it reads) whose header `change` spoils.
  const auto spoiled = [](std::function<void(cups_page_header2_t&)> change) {
    return [=](const fs::path& path) {
      RasterPage page = BoxPage(CUPS_CSPACE_RGB, 0, 0);
      change(page.Header);
      WriteRasterV1(path, {page});
    };
  };
  const auto coded = [](bool swapped) {
    return [swapped](const fs::path& path) {
      inkweave::testing::WriteText(path, HandCoded(swapped, PageHeader(500000000, 1000, kDpi, CUPS_CSPACE_W)));
    };
  };
  const std::string tooLarge =
      "ERROR: Page 3: Raster page of 500000000 x 1000 pixels at 150 dpi is larger than any paper";
  const std::intmax_t v3Page = 4 + sizeof(cups_page_header2_t) + std::intmax_t{kWidth} * 3 * kHeight;
  const std::vector<Case> cases = {
      {"empty", [](const fs::path& p) { std::ofstream{p}; }, "empty or not a CUPS raster stream"},
      {"not raster", [](const fs::path& p) { std::ofstream{p} << "%PDF-1.4 hello"; }, "not a CUPS raster stream"},
      {"header cut", cut(CUPS_RASTER_WRITE, 1, 500), "ends inside the header of page 1"},
      {"second header cut", cut(CUPS_RASTER_WRITE, 2, v3Page + 300), "ends inside the header of page 2", 1},
      {"page cut", cut(CUPS_RASTER_WRITE, 1, v3Page - 5000), "ends inside page 1"},
      {"compressed page cut", cut(CUPS_RASTER_WRITE_COMPRESSED, 1, -20), "ends inside page 1"},
      // Refused by libcups; the headers libcups takes that the filter refuses: the plan's grid below.
      {"zero width", spoiled([](auto& h) { h.cupsWidth = h.cupsBytesPerLine = 0; }), "invalid raster header"},
      {"200 dpi", spoiled([](auto& h) { h.HWResolution[0] = h.HWResolution[1] = 200; }),
       "ERROR: Page 1: Unsupported resolution 200x200"},
      {"coded, a hostile header", coded(false), tooLarge, 2},
      {"coded in the other byte order, a hostile header", coded(true), tooLarge, 2},
      {"too few arguments", whole, "Usage: ", 0, {"7", "user"}},
      {"a missing file", whole, "ERROR: Unable to open raster file", 0, {"7", "user", "title", "1", "", "/none.ras"}},
      {"no plug-in", whole, "ERROR: Unable to load the render plug-in", 0, {"7", "user", "title", "1", ""}, "/none.so"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Name);
    TempDir dir("bad");
    c.Write(dir / "in.ras");
    std::vector<std::string> argv = limit, env = {"INKWEAVE_PLUGIN=" + c.Plugin};
    argv.push_back(kFilter);
    argv.insert(argv.end(), c.Args.begin(), c.Args.end());
    env.insert(env.end(), asanEnv.begin(), asanEnv.end());
    const ProcessResult run = RunProgram(argv, dir / "in.ras", env);
    EXPECT_EQ(run.Signal, 0);
    EXPECT_EQ(run.Exit, 1);
    EXPECT_NE(run.Err.find(c.Expect), std::string::npos) << run.Err;
    EXPECT_EQ(c.Pages > 0 ? Print(run.Out).size() : 0, c.Pages);  // (no stream to read when none)
  }
}

// The sheet: the nearest known paper, else the custom code with a warning; a page wider than the head
// cut to it with a warning. Where the printable area lies in the raster: at the margins of a whole-sheet
// raster (also when its imaging box is near the full width), else at the imaging box's corner. And what
// the whole chain (the queue test) leaves out: a mode the page cannot have (high resolution needs 600 dpi),
// a paper type the plug-in does not know; each replaced and warned of.
TEST(PagePlan, TakesThePaperAndPlacesThePrintableAreaInTheRaster) {
  struct Case {
    unsigned Dpi;
    double Width, Height;             // points
    std::array<float, 4> ImagingBox;  // points, all zero: none
    std::int16_t Code;
    const char* Warning;  // "": none
    const char* Media = "";
    HighRes Mode = HighRes::Off;
    std::uint32_t Callback = host::kCallbackMediaPlain;
  } cases[] = {
      {300, 595, 842, {}, 9, ""},
      {300, 612, 792, {}, 1, ""},
      {300, 600, 845, {}, 9, ""},
      {300, 842, 595, {}, cups::kPaperUser, "custom"},
      {300, 400, 400, {}, cups::kPaperUser, "custom"},
      {600, 649, 918, {}, 30, "cut off"},  // envelope C4
      {600, 595, 842, {10, 20, 585, 830}, 9, ""},
      {600, 595, 842, {3, 3, 594, 839}, 9, ""},
      {300, 595, 842, {}, 9, "High resolution", "Glossy", HighRes::Print1200, host::kCallbackMediaGlossy},
      {600, 595, 842, {}, 9, "", "photographic", HighRes::HighRes600, host::kCallbackMediaPhoto},
      {600, 595, 842, {}, 9, "Unknown media type", "Cardboard"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.Width << " x " << c.Height << " box " << c.ImagingBox[0] << " " << c.Media);
    const auto dots = [&](double points) { return static_cast<unsigned>(points * c.Dpi / 72); };
    // The raster is the imaging box when it is not near the full width, else the whole sheet.
    const bool boxed = c.ImagingBox[2] - c.ImagingBox[0] > 0 && c.ImagingBox[2] - c.ImagingBox[0] < c.Width - 6;
    cups_page_header2_t header = PageHeader(dots(boxed ? c.ImagingBox[2] - c.ImagingBox[0] : c.Width),
                                            dots(boxed ? c.ImagingBox[3] - c.ImagingBox[1] : c.Height), c.Dpi,
                                            CUPS_CSPACE_RGB, c.Width, c.Height);
    std::copy(c.ImagingBox.begin(), c.ImagingBox.end(), header.cupsImagingBBox);
    std::strcpy(header.MediaType, c.Media);
    const auto planned = cups::PlanPage(header, {host::Halftone::Dither, c.Mode});
    ASSERT_TRUE(std::holds_alternative<PagePlan>(planned)) << std::get<std::string>(planned);
    const PagePlan& plan = std::get<PagePlan>(planned);
    EXPECT_EQ(plan.MediaCallback, c.Callback);
    EXPECT_EQ(plan.HighResolution, c.Mode == HighRes::HighRes600);
    EXPECT_EQ(plan.Setup.PaperSize, c.Code);
    EXPECT_EQ(plan.Setup.Quality, c.Dpi);
    ASSERT_EQ(plan.Warnings.size(), *c.Warning ? 1u : 0u);
    for (const std::string& warning : plan.Warnings) EXPECT_NE(warning.find(c.Warning), std::string::npos) << warning;
    if (c.Code == cups::kPaperUser) continue;
    const host::PrintableArea area = host::PrintableAreaOf(*host::FindPaper(plan.PaperName), c.Dpi);
    EXPECT_EQ(plan.Setup.PageWidth, std::min<std::uint32_t>(area.Width, host::kMaxLineDots));
    EXPECT_EQ(plan.Setup.PageHeight, area.Height);
    // The raster's top edge is the imaging box's: its corner measured from the sheet's top left.
    EXPECT_EQ(plan.OffsetX, area.Left - (boxed ? std::int64_t{dots(c.ImagingBox[0])} : 0));
    EXPECT_EQ(plan.OffsetY, area.Top - (boxed ? std::int64_t{dots(c.Height - c.ImagingBox[3])} : 0));
  }
}

// An enumerated header field set to a value as raw bits.
template <typename Enum>
void SetRaw(Enum& field, unsigned value) {
  std::memcpy(&field, &value, sizeof value);
}

// Headers libcups takes but the filter cannot print, hostile ones among them: each refused with a message
// naming the cause (the filter writes it as the page's error), with no undefined arithmetic on the way
// (the sanitizers see a negative length made unsigned, an out-of-range float made integer, or an
// enumeration loaded with a value it does not hold).
TEST(PagePlan, RefusesHeadersItCannotPlan) {
  const auto refusal = [](auto change) {
    cups_page_header2_t header = PageHeader(1200, 1754, 150, CUPS_CSPACE_RGB, 595, 842);
    change(header);
    auto planned = cups::PlanPage(header, {});
    const std::string* message = std::get_if<std::string>(&planned);
    return message ? *message : std::string("planned");
  };
  struct Case {
    const char* name;
    std::function<void(cups_page_header2_t&)> change;
    const char* expect;
  } cases[] = {
      {"sheet narrower than its margins", [](auto& h) { h.cupsPageSize[0] = 10; }, "leaves no printable area"},
      {"imaging box reaching past any sheet",  // as wide as the raster: its top gives the raster's place
       [](auto& h) {
         std::copy_n(std::array<float, 4>{10, 0, 586, 1e30f}.begin(), 4, h.cupsImagingBBox);
       },
       "Imaging box"},
      // Enumerations as a stream may hold them: no enumerator has the value.
      {"colour space out of range", [](auto& h) { SetRaw(h.cupsColorSpace, 0x7FFFFFFF); }, "colour space 2147483647"},
      {"colour order out of range", [](auto& h) { SetRaw(h.cupsColorOrder, 0xFFFFFFFF); }, "colour order 4294967295"},
      {"bytes per line", [](auto& h) { h.cupsBytesPerLine += 3; }, "3603 bytes per line"},
      {"16-bit", [](auto& h) { h.cupsBitsPerColor = 16; }, "16 bits per colour"},
      {"CMYK", [](auto& h) { h.cupsColorSpace = CUPS_CSPACE_CMYK; }, "colour space 6"},
      {"200 dpi", [](auto& h) { h.HWResolution[0] = h.HWResolution[1] = 200; }, "resolution 200x200"},
      {"uneven dpi", [](auto& h) { h.HWResolution[1] = 300; }, "resolution 150x300"},
  };
  for (const Case& c : cases) EXPECT_NE(refusal(c.change).find(c.expect), std::string::npos) << c.name;
}

TEST(JobOptions, TakeThePpdDefaultsUnderTheJobsOptions) {
  TempDir dir("options");
  std::string ppd = ReadText(INKWEAVE_PPD_EN_PATH);
  ppd = std::regex_replace(ppd, std::regex("DefaultInkweaveHalftone: Dither"), "DefaultInkweaveHalftone: Diffusion");
  ppd = std::regex_replace(ppd, std::regex("DefaultInkweaveHighRes: Off"), "DefaultInkweaveHighRes: HighRes600");
  const std::string path = dir / "queue.ppd";
  inkweave::testing::WriteText(path, ppd);

  std::vector<std::string> warnings;
  cups::JobOptions options = cups::ReadJobOptions(path.c_str(), "", &warnings);
  EXPECT_EQ(options.Method, host::Halftone::Diffusion);
  EXPECT_EQ(options.Resolution, HighRes::HighRes600);
  // A queue set up with an earlier PPD may still send the mode it no longer offers; choices in any case.
  options = cups::ReadJobOptions(path.c_str(), "InkweaveHighRes=Print1200 InkweaveHalftone=dither", &warnings);
  EXPECT_EQ(options.Method, host::Halftone::Dither);
  EXPECT_EQ(options.Resolution, HighRes::Print1200);
  EXPECT_TRUE(warnings.empty());
}

// cupstestppd passes the PPD with and without translations (run with a root holding our filter and
// profiles where the PPD names them, so that their lines are checked too; a missing translation fails it).
// And what no print shows: the constraints, the texts shared with the Windows driver (misspellings kept),
// and the modes and constraints deliberately left out. (The options, papers and qualities the PPD offers,
// and what each prints: the queue test.)
TEST(Ppd, PassesCupstestppdAndCarriesTheConstraintsAndSharedTexts) {
  TempDir dir("cupstestppd");
  const fs::path filters = dir / "root/usr/lib/cups/filter";
  const fs::path profiles = dir / ("root" INKWEAVE_ICC_INSTALL_DIR);
  fs::create_directories(filters);
  fs::create_directories(profiles.parent_path());
  fs::create_symlink(RASTERTOINKWEAVE_PATH, filters / "rastertoinkweave");
  fs::create_directory_symlink(INKWEAVE_PROFILES_PATH, profiles);
  for (const char* ppd : {INKWEAVE_PPD_PATH, INKWEAVE_PPD_EN_PATH}) {
    const ProcessResult run = RunProgram({CUPSTESTPPD_PATH, "-R", dir / "root", ppd}, {}, {});
    EXPECT_EQ(run.Exit, 0) << ppd << "\n" << run.Out << run.Err;
    EXPECT_NE(run.Out.find(": PASS"), std::string::npos) << run.Out;
  }

  const std::string ppd = ReadText(INKWEAVE_PPD_EN_PATH);
  for (const char* line :
       {"*InkweaveHalftone Diffusion/Erorr Diffusion:",
        "*InkweaveHighRes HighRes600/600x600 High resolution: \"<</HWResolution[600 600]>>setpagedevice\"",
        "*UIConstraints: *InkweaveHighRes HighRes600 *Resolution 150dpi",
        "*UIConstraints: *Resolution 300dpi *InkweaveHighRes HighRes600",
        "*UIConstraints: *cupsPrintQuality Draft *InkweaveHighRes HighRes600"})
    EXPECT_NE(ppd.find(std::string(line)), std::string::npos) << line;
  for (const char* absent : {"*cupsLanguages", "Print1200", "*InkweaveHighRes HighRes600 *Resolution 600dpi",
                             "*InkweaveHighRes HighRes600 *cupsPrintQuality High"})
    EXPECT_EQ(ppd.find(absent), std::string::npos) << absent;
}

// A ServerBin of symlinks to the system's, whose filter/ also holds a copy of our filter, with the plug-in
// beside it as installed (filter/../../inkweave/): the scheduler runs it as lp, who may not reach the build tree.
fs::path MakeServerBin(const TempDir& dir) {
  const fs::path bin = dir / "serverbin";
  fs::create_directories(bin / "filter");
  for (const auto& entry : fs::directory_iterator("/usr/lib/cups"))
    if (entry.path().filename() != "filter") fs::create_symlink(entry.path(), bin / entry.path().filename());
  for (const auto& entry : fs::directory_iterator("/usr/lib/cups/filter"))
    fs::create_symlink(entry.path(), bin / "filter" / entry.path().filename());
  fs::copy_file(RASTERTOINKWEAVE_PATH, bin / "filter/rastertoinkweave");
  fs::create_directories(dir / "inkweave");
  fs::copy_file(INKWEAVE_PLUGIN_PATH, dir / "inkweave/libinkweave.so");
  return bin;
}

// A CUPS queue made from the PPD (a scheduler of the test's own): what IPP clients are told it offers, and
// what they get through the whole filter chain (pdftopdf, gstoraster, rastertoinkweave): each way of choosing
// a quality prints at its resolution, a paper type by its IPP keyword (in media-col, as IPP clients send it)
// with its command, the PPD's own options take effect, and the PDF's rectangle lands where the PDF put it.
TEST(CupsQueue, IppClientsSeeAndGetTheQualitiesPaperTypesAndColourModes) {
  if (!fs::exists("/usr/lib/cups/filter/gstoraster")) GTEST_SKIP() << "no gstoraster (scripts/install-deps.sh cups)";
  TempDir dir("queue");
  std::string why;
  auto cupsd = Cupsd::Start(dir / "cupsd", MakeServerBin(dir), &why);
  if (!cupsd) GTEST_SKIP() << "no CUPS scheduler for this test: " << why;
  const fs::path out = dir / "out";
  fs::create_directories(out);
  fs::permissions(out, fs::perms::all);  // the backend writes as lp
  const ProcessResult added = cupsd->Run(
      {"lpadmin", "-p", "inkweave", "-E", "-v", "file://" + (out / "job.prn").string(), "-P", INKWEAVE_PPD_PATH});
  ASSERT_EQ(added.Exit, 0) << added.Err << cupsd->ErrorLog();

  const std::string uri = "ipp://" + cupsd->Server() + "/printers/inkweave";
  const ProcessResult attributes =
      cupsd->Run({"ipptool", "-tv", uri, "/usr/share/cups/ipptool/get-printer-attributes.test"});
  ASSERT_EQ(attributes.Exit, 0) << attributes.Out << attributes.Err;
  const auto values = [&](const std::string& attribute) {  // "draft,normal,high" → {"draft", "normal", "high"}
    std::set<std::string> set;
    std::stringstream list(Shown(attributes.Out, attribute));
    for (std::string value; std::getline(list, value, ',');) set.insert(value);
    return set;
  };
  EXPECT_EQ(values("print-quality-supported"), (std::set<std::string>{"draft", "normal", "high"})) << attributes.Out;
  std::set<std::string> mediaTypes, papers;
  for (const host::Medium& m : host::kMedia) mediaTypes.insert(std::string(m.IppKeyword));
  for (const host::Paper& p : host::Papers()) papers.insert(std::string(p.PwgName));
  EXPECT_EQ(values("media-type-supported"), mediaTypes) << attributes.Out;
  EXPECT_EQ(values("media-supported"), papers) << attributes.Out;
  EXPECT_EQ(values("print-color-mode-supported"), (std::set<std::string>{"monochrome", "color"})) << attributes.Out;

  // Jobs: the resolution and paper type each way of asking gives.
  const inkweave::testing::PdfRect rect{72, 72, 144, 144, "0 0 1 rg"};
  std::ofstream(dir / "doc.pdf", std::ios::binary) << inkweave::testing::MakePdf(595, 842, {rect});
  struct Case {
    std::vector<std::string> Options;
    int Dpi;
    int Medium;  // the paper-type command's code
    bool Color;
  } cases[] = {
      {{}, 300, 0, true},
      {{"print-quality=3"}, 150, 0, true},
      {{"print-quality=5", "media-col={media-type=photographic-glossy}"}, 600, 2, true},
      {{"cupsPrintQuality=High"}, 600, 0, true},
      {{"Resolution=600dpi"}, 600, 0, true},  // Normal quality leaves the resolution chosen
      {{"print-quality=4", "media-col={media-type=photographic}", "print-color-mode=monochrome"}, 300, 3, false},
      {{"Resolution=600dpi", "InkweaveHalftone=Diffusion", "ColorModel=Gray", "MediaType=Inkjet"}, 600, 1, false},
      {{"InkweaveHighRes=HighRes600"}, 1200, 0, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.Options));
    std::vector<std::string> lp = {"lp", "-d", "inkweave"};
    for (const std::string& option : c.Options) lp.insert(lp.end(), {"-o", option});
    lp.push_back(dir / "doc.pdf");
    fs::remove(out / "job.prn");
    const ProcessResult printed = cupsd->Run(lp);
    ASSERT_EQ(printed.Exit, 0) << printed.Err;
    ASSERT_TRUE(cupsd->WaitForJobs(300s)) << cupsd->ErrorLog();
    const auto pages = Print(ReadText(out / "job.prn"));
    ASSERT_FALSE(pages.empty()) << cupsd->ErrorLog();
    EXPECT_EQ(pages[0].Medium, c.Medium);
    ExpectPage(pages[0], c.Dpi, {c.Color, {}, PdfBox(*host::FindPaper("a4"), c.Dpi, rect)});
  }
}

}  // namespace
}  // namespace inkweave::cupstest
