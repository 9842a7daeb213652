// The real CUPS filter chain: Debian's cupsfilter turns a PDF written here into our printer stream
// through the PPD (pdftopdf, gstoraster, rastertoinkweave), and the decoder checks the pages.
//
// cupsfilter runs the filters it finds in ServerBin/filter. To run the uninstalled filter, the test
// builds a ServerBin of its own: filter/ holds a symlink to every system filter plus one to our
// build's rastertoinkweave, and a cups-files.conf given with -c points ServerBin at it (DataDir stays
// the system's, for the MIME types). The filter finds the plug-in of the build tree it was built in.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "host/papers.h"
#include "tests/cups/cups_support.h"
#include "tests/support/make_pdf.h"

namespace inkweave::cupstest {
namespace {

using inkweave::testing::MakePdf;
using inkweave::testing::PdfRect;

// A ServerBin whose filter/ holds the system's filters and our uninstalled one.
fs::path MakeServerBin(const TempDir& dir) {
  const fs::path filters = dir / "serverbin/filter";
  fs::create_directories(filters);
  for (const auto& entry : fs::directory_iterator("/usr/lib/cups/filter"))
    fs::create_symlink(entry.path(), filters / entry.path().filename());
  fs::create_symlink(RASTERTOINKWEAVE_PATH, filters / "rastertoinkweave");
  const fs::path conf = dir / "cups-files.conf";
  std::ofstream(conf) << "ServerBin " << (dir / "serverbin").string() << "\nDataDir /usr/share/cups\n";
  return conf;
}

struct Combination {
  std::string Paper;  // host paper name
  int Dpi;
  bool Gray;
  std::vector<std::string> Options;  // -o values
};

TEST(Cupsfilter, PrintsAPdfThroughThePpdWithEveryCombination) {
  if (!fs::exists(CUPSFILTER_PATH) || !fs::exists("/usr/lib/cups/filter/gstoraster"))
    GTEST_SKIP() << "cupsfilter or gstoraster is not installed (scripts/install-deps.sh cups)";
  TempDir dir("cupsfilter");
  const fs::path conf = MakeServerBin(dir);
  const std::vector<PdfRect> rects = {
      {72, 72, 144, 144, "0 0 1 rg"}, {300, 500, 100, 50, "1 0 0 rg"}, {200, 300, 60, 60, "0 g"}};
  const std::vector<Combination> combinations = {
      {"a4", 300, false, {"PageSize=A4", "Resolution=300dpi", "InkweaveHalftone=Dither"}},
      {"letter", 600, true, {"PageSize=Letter", "Resolution=600dpi", "InkweaveHalftone=Diffusion", "ColorModel=Gray"}},
      {"letter", 300, false, {"PageSize=Letter", "InkweaveHalftone=Diffusion", "MediaType=Glossy"}},
      {"a4", 150, true, {"PageSize=A4", "Resolution=150dpi", "ColorModel=Gray", "MediaType=Photo"}},
      {"a4", 600, false, {"PageSize=A4", "InkweaveHighRes=HighRes600"}},
  };
  for (const Combination& c : combinations) {
    std::string name = c.Paper + " " + std::to_string(c.Dpi);
    for (const std::string& o : c.Options) name += " " + o;
    SCOPED_TRACE(name);
    const host::Paper paper = *host::FindPaper(c.Paper);
    const double width = std::round(paper.WidthMm * 72 / 25.4), height = std::round(paper.HeightMm * 72 / 25.4);
    std::ofstream(dir / "in.pdf", std::ios::binary) << MakePdf(width, height, rects);

    std::vector<std::string> argv = {CUPSFILTER_PATH,   "-c", conf.string(),      "-p",
                                     INKWEAVE_PPD_PATH, "-m", "printer/inkweave", "-e"};
    for (const std::string& o : c.Options) argv.insert(argv.end(), {"-o", o});
    argv.push_back((dir / "in.pdf").string());
    const RunResult run = RunProgram(argv, {});
    ASSERT_EQ(run.Exit, 0) << run.Err;
    EXPECT_NE(run.Err.find("PAGE: 3 1"), std::string::npos);
    EXPECT_EQ(run.Err.find("ERROR:"), std::string::npos);

    const auto printed = Print(run.Out);
    ASSERT_EQ(printed.size(), rects.size());
    const host::PrintableArea area = host::PrintableAreaOf(paper, c.Dpi);
    for (std::size_t i = 0; i < printed.size(); ++i) {
      SCOPED_TRACE("page " + std::to_string(i + 1));
      const decode::PrintedPage& page = printed[i];
      const int scale = page.Dpi / c.Dpi;  // 2 in the high-resolution mode
      EXPECT_EQ(page.Color, !c.Gray);
      // The rectangle lands where the PDF put it, measured from the printable area's corner.
      const PdfRect& r = rects[i];
      const double dots = c.Dpi / 72.0;
      const double left = r.X * dots - area.Left, top = (height - r.Y - r.Height) * dots - area.Top;
      const Box box = InkBox(page, {0, 1, 2, 3});
      ExpectRowsInkedOnce(page, box);
      EXPECT_LE(page.HeightRows, static_cast<int>(area.Height + 106) * scale) << "printed far below the page";
      const double tolerance = 2 + c.Dpi / 150.0;
      EXPECT_NEAR(box.Left / scale, left, tolerance);
      EXPECT_NEAR(box.Top / scale, top, tolerance);
      EXPECT_NEAR((box.Right + 1) / scale, left + r.Width * dots, tolerance);
      EXPECT_NEAR((box.Bottom + 1) / scale, top + r.Height * dots, tolerance);
      if (c.Gray) {
        EXPECT_TRUE(InkBox(page, {0, 1, 2}).Empty());
      }
    }
  }
}

}  // namespace
}  // namespace inkweave::cupstest
