// The filter run as CUPS runs it, on hand-made raster streams: every raster version and pixel format,
// odd widths, a change of device between pages, cancelling, hostile headers and malformed input (each must give an
// "ERROR:" line and a non-zero exit, never a crash or a hang). The printer stream is checked by the
// decoder: pages, every row printed once, the ink where the raster put it.
#include <sys/stat.h>

#include <algorithm>
#include <random>

#include "cups/page_plan.h"
#include "host/papers.h"
#include "tests/cups/cups_support.h"
#include "tests/support/sanitizers.h"

namespace inkweave::cupstest {
namespace {

const std::string kFilter = RASTERTOINKWEAVE_PATH;
const std::string kPluginEnv = std::string("INKWEAVE_PLUGIN=") + INKWEAVE_PLUGIN_PATH;

RunResult RunFilter(const fs::path& raster, const std::vector<std::string>& env = {kPluginEnv},
                    const std::string& options = "") {
  return RunProgram({kFilter, "7", "user", "title", "1", options}, raster, env);
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

// The box on the printed page sits where the raster put it, less the sheet's margins.
void ExpectBox(const decode::PrintedPage& page, bool color, unsigned left, unsigned top) {
  const host::PrintableArea area = host::PrintableAreaOf(*host::FindPaper("a5"), kDpi);
  const Box box = color ? InkBox(page, {0, 1}) : InkBox(page, {3});
  ExpectRowsInkedOnce(page, box);
  const int x = static_cast<int>(left - area.Left), y = static_cast<int>(top - area.Top);
  EXPECT_NEAR(box.Left, x, 2);
  EXPECT_NEAR(box.Right, x + 99, 2);
  EXPECT_NEAR(box.Top, y, 2);
  EXPECT_NEAR(box.Bottom, y + 79, 2);
  if (!color) {
    EXPECT_TRUE(InkBox(page, {0, 1, 2}).Empty()) << "a gray page printed colour";
  } else {
    EXPECT_TRUE(InkBox(page, {3}).Empty() || InkBox(page, {3}).Left >= box.Left) << "ink outside the box";
  }
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
    // Version 2 runs under error diffusion (gray pages then go to the plug-in as 24-bit bands).
    const RunResult run = RunFilter(raster, {kPluginEnv}, version == 2 ? "InkweaveHalftone=Diffusion" : "");
    ASSERT_EQ(run.Exit, 0) << run.Err;
    for (const char* line :
         {"PAGE: 1 1\n", "PAGE: 4 1\n", "page 2 needs a new device context", "page 4 needs a new device context"})
      EXPECT_NE(run.Err.find(line), std::string::npos) << line;
    EXPECT_EQ(run.Err.find("page 3 needs a new device context"), std::string::npos);
    decode::Job job;
    const auto printed = Print(run.Out, &job);
    ASSERT_EQ(printed.size(), 4u);
    EXPECT_TRUE(job.Ended);
    for (int i = 0; i < 4; ++i) ExpectBox(printed[i], spaces[i] == CUPS_CSPACE_RGB, left[i], top[i]);
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
    for (unsigned y = 0; y < 600; ++y) {
      auto row = PageRow(page, y);
      cupsRasterWritePixels(raster, row.data(), static_cast<unsigned>(row.size()));
    }
    // Wait for the job start on the output, then cancel while the filter waits for more rows.
    for (int i = 0; i < 2000 && fs::file_size(dir / "stdout") == 0; ++i) usleep(5000);
    usleep(100000);
    kill(pid, SIGTERM);
    usleep(100000);
    cupsRasterClose(raster);
    close(fd);
  };
  const RunResult run = inkweave::testing::RunProcess(
      {kFilter, "7", "user", "title", "1", ""}, std::chrono::seconds(240),
      {.Env = {kPluginEnv}, .Input = fifo, .WhileRunning = whileRunning, .Output = dir / "stdout"});
  EXPECT_EQ(run.Exit, 0) << run.Err;
  EXPECT_NE(run.Err.find("Job canceled"), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("ERROR:"), std::string::npos) << run.Err;
  decode::Job job;
  const auto printed = Print(run.Out, &job);
  EXPECT_EQ(printed.size(), 1u);
  EXPECT_TRUE(job.Ended) << "no job end after the cancel";
}

// Malformed and unsupported input: a clear error and exit status 1.
TEST(Filter, RefusesBadInputWithAClearError) {
  struct Case {
    std::string Name;
    std::function<void(const fs::path&)> Write;
    std::string Expect;
  };
  // The stream cut to `keep` bytes (counted from its end when negative).
  const auto cut = [](cups_mode_t mode, int pages, std::intmax_t keep) {
    return [=](const fs::path& path) {
      WriteRaster(path, mode, std::vector<RasterPage>(pages, BoxPage(CUPS_CSPACE_RGB, 10, 10)));
      const auto size = static_cast<std::intmax_t>(fs::file_size(path));
      fs::resize_file(path, static_cast<std::uintmax_t>(keep < 0 ? size + keep : keep));
    };
  };
  const std::intmax_t v3Page = 4 + sizeof(cups_page_header2_t) + std::intmax_t{kWidth} * 3 * kHeight;
  const std::vector<Case> cases = {
      {"empty", [](const fs::path& p) { std::ofstream{p}; }, "empty or not a CUPS raster stream"},
      {"not raster", [](const fs::path& p) { std::ofstream{p} << "%PDF-1.4 hello"; }, "not a CUPS raster stream"},
      {"header cut", cut(CUPS_RASTER_WRITE, 1, 500), "ends inside the header of page 1"},
      {"second header cut", cut(CUPS_RASTER_WRITE, 2, v3Page + 300), "ends inside the header of page 2"},
      {"page cut", cut(CUPS_RASTER_WRITE, 1, v3Page - 5000), "ends inside page 1"},
      {"compressed page cut", cut(CUPS_RASTER_WRITE_COMPRESSED, 1, -20), "ends inside page 1"},
      {"zero width",  // refused by libcups; the headers libcups takes that the filter refuses: page_plan_test
       [](const fs::path& path) {
         RasterPage page = BoxPage(CUPS_CSPACE_RGB, 0, 0);
         page.Header.cupsWidth = page.Header.cupsBytesPerLine = 0;
         WriteRasterV1(path, {page});
       },
       "invalid raster header"},
      {"200 dpi",  // a header the plan refuses, in a stream the filter does not follow as it reads
       [](const fs::path& path) {
         RasterPage page = BoxPage(CUPS_CSPACE_RGB, 0, 0);
         page.Header.HWResolution[0] = page.Header.HWResolution[1] = 200;
         WriteRasterV1(path, {page});
       },
       "ERROR: Page 1: Unsupported resolution 200x200"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Name);
    TempDir dir("bad");
    c.Write(dir / "in.ras");
    const RunResult run = RunFilter(dir / "in.ras");
    EXPECT_EQ(run.Signal, 0);
    EXPECT_EQ(run.Exit, 1);
    EXPECT_NE(run.Err.find("ERROR: "), std::string::npos) << run.Err;
    EXPECT_NE(run.Err.find(c.Expect), std::string::npos) << run.Err;
  }
}

// A version-2 stream of the pages, every group of rows coded with random codes of every kind (libcups'
// own writer uses only some): a blank rest of the row, literal runs and repeats cut by the row's end,
// groups of rows running past the page. `swapped`: in the other byte order. A page with rows over
// 1 MB gets its header only.
std::string CodedStream(const std::vector<cups_page_header2_t>& headers, bool swapped, std::mt19937& random) {
  std::string out;
  const auto put = [&out](const void* bytes, std::size_t size) { out.append(static_cast<const char*>(bytes), size); };
  const std::uint32_t sync = swapped ? CUPS_RASTER_REVSYNCv2 : CUPS_RASTER_SYNCv2;
  put(&sync, sizeof sync);
  for (cups_page_header2_t header : headers) {
    const unsigned height = header.cupsHeight, rowBytes = header.cupsBytesPerLine, pixel = header.cupsBitsPerPixel / 8;
    if (swapped)
      for (unsigned* word = &header.AdvanceDistance; word < &header.AdvanceDistance + 81; ++word)
        *word = __builtin_bswap32(*word);
    put(&header, sizeof header);
    if (rowBytes > 1000000) break;
    const auto bytes = [&](unsigned n) {
      for (unsigned i = 0; i < n; ++i) out += static_cast<char>(random());
    };
    for (unsigned rows = 0; rows < height;) {
      const unsigned group = random() % 8 == 0 ? 255 : random() % 3;
      out += static_cast<char>(group);
      rows += group + 1;
      for (unsigned left = rowBytes; left > 0;) {
        const unsigned kind = random() % 16, n = 1 + random() % 128;
        if (kind == 0) {  // the rest of the row blank
          out += static_cast<char>(128);
          break;
        }
        const bool literal = kind < 8;  // else one pixel repeated
        const unsigned count = literal ? std::max(n, 2u) : n, take = std::min(count * pixel, left);
        if (literal) {
          out += static_cast<char>(257 - count);
          bytes(take);
        } else {
          out += static_cast<char>(count - 1);
          bytes(pixel);
        }
        left -= take;
      }
    }
  }
  return out;
}

// The filter follows compressed streams coded in every way to each next page header, and refuses a
// header claiming 500 MB rows by its size before libcups allocates such a row for it (the filter runs
// with little memory, where that allocation would fail and the page pass for an invalid header).
TEST(Filter, RefusesAHostileCompressedHeaderBeforeLibcupsSetsItUp) {
  cups_page_header2_t hostile = PageHeader(500000000, 1000, kDpi, CUPS_CSPACE_W);
#if defined(INKWEAVE_ASAN)
  const std::vector<std::string> env = {kPluginEnv,
                                        "ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=256"};
  const std::vector<std::string> limit;
#else
  const std::vector<std::string> env = {kPluginEnv};
  const std::vector<std::string> limit = {"/usr/bin/prlimit", "--as=" + std::to_string(400 << 20), "--"};
#endif
  std::mt19937 random(15);
  for (const bool swapped : {false, true}) {  // RGB pixels in the writer's byte order, gray in the other
    SCOPED_TRACE(swapped ? "swapped" : "native");
    TempDir dir("coded");
    const cups_page_header2_t page = BoxPage(swapped ? CUPS_CSPACE_K : CUPS_CSPACE_RGB, 0, 0).Header;
    std::ofstream(dir / "in.ras", std::ios::binary) << CodedStream({page, page, hostile}, swapped, random);
    std::vector<std::string> argv = limit;
    for (const char* arg : {kFilter.c_str(), "7", "user", "title", "1", "", ""}) argv.push_back(arg);
    argv.back() = dir / "in.ras";
    const RunResult run = RunProgram(argv, {}, env);
    EXPECT_EQ(run.Exit, 1) << run.Err;
    EXPECT_NE(run.Err.find("ERROR: Page 3: Raster page of 500000000 x 1000 pixels at 150 dpi is larger than any "
                           "paper"),
              std::string::npos)
        << run.Err;
    EXPECT_EQ(Print(run.Out).size(), 2u);
  }
}

TEST(Filter, RefusesBadArgumentsAndAMissingPlugin) {
  TempDir dir("args");
  WriteRaster(dir / "in.ras", CUPS_RASTER_WRITE, {BoxPage(CUPS_CSPACE_RGB, 10, 10)});
  RunResult run = RunProgram({kFilter, "7", "user"}, {});
  EXPECT_EQ(run.Exit, 1);
  EXPECT_NE(run.Err.find("Usage: "), std::string::npos);
  run = RunProgram({kFilter, "7", "user", "title", "1", "", dir / "missing.ras"}, {}, {kPluginEnv});
  EXPECT_EQ(run.Exit, 1);
  EXPECT_NE(run.Err.find("ERROR: Unable to open raster file"), std::string::npos) << run.Err;
  run = RunFilter(dir / "in.ras", {"INKWEAVE_PLUGIN=" + (dir / "none.so")});
  EXPECT_EQ(run.Exit, 1);
  EXPECT_NE(run.Err.find("ERROR: Unable to load the render plug-in"), std::string::npos) << run.Err;
  // The raster as the file argument, and an unknown option value only warns.
  run = RunProgram({kFilter, "7", "user", "title", "1", "InkweaveHalftone=Stipple", dir / "in.ras"}, {}, {kPluginEnv});
  EXPECT_EQ(run.Exit, 0) << run.Err;
  EXPECT_NE(run.Err.find("WARNING: Unknown InkweaveHalftone value \"Stipple\""), std::string::npos) << run.Err;
  EXPECT_EQ(Print(run.Out).size(), 1u);
}

}  // namespace
}  // namespace inkweave::cupstest
