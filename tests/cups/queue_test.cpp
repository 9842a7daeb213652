// A real CUPS queue made from the PPD (a scheduler of the test's own, tests/support/cupsd.h): what IPP
// clients are told it offers (ipptool get-printer-attributes: qualities, paper types, colour modes,
// papers), and what they get through the whole filter chain (pdftopdf, gstoraster, rastertoinkweave):
// each way of choosing a quality prints at its resolution, a paper type by its IPP keyword (in
// media-col, as IPP clients send it) prints with its command, the PPD's own options take effect, and
// the PDF's rectangle lands where the PDF put it, measured from the printable area's corner.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "decode/decoder.h"
#include "host/choices.h"
#include "host/papers.h"
#include "tests/cups/cups_support.h"
#include "tests/support/cupsd.h"
#include "tests/support/make_pdf.h"

namespace inkweave::cupstest {
namespace {

using namespace std::chrono_literals;
using inkweave::testing::Cupsd;
using inkweave::testing::ProcessResult;

// The values ipptool -tv showed for an attribute, e.g. "print-quality-supported (1setOf enum) =
// draft,normal,high" → {"draft", "normal", "high"}.
std::set<std::string> Shown(const std::string& out, const std::string& attribute) {
  std::smatch m;
  std::set<std::string> values;
  if (!std::regex_search(out, m, std::regex("\\b" + attribute + " \\([^)]*\\) = ([^\\n]*)"))) return values;
  std::stringstream list(m[1].str());
  for (std::string value; std::getline(list, value, ',');) values.insert(value);
  return values;
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

TEST(CupsQueue, IppClientsSeeAndGetTheQualitiesPaperTypesAndColourModes) {
  if (!fs::exists("/usr/lib/cups/filter/gstoraster")) GTEST_SKIP() << "no gstoraster (scripts/install-deps.sh cups)";
  TempDir dir("queue");
  Cupsd::Options options;
  options.ServerBin = MakeServerBin(dir);
  std::string why;
  auto cupsd = Cupsd::Start(dir / "cupsd", options, &why);
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
  EXPECT_EQ(Shown(attributes.Out, "print-quality-supported"), (std::set<std::string>{"draft", "normal", "high"}))
      << attributes.Out;
  std::set<std::string> mediaTypes, papers;
  for (const host::Medium& m : host::kMedia) mediaTypes.insert(std::string(m.IppKeyword));
  for (const host::Paper& p : host::Papers()) papers.insert(std::string(p.PwgName));
  EXPECT_EQ(Shown(attributes.Out, "media-type-supported"), mediaTypes) << attributes.Out;
  EXPECT_EQ(Shown(attributes.Out, "media-supported"), papers) << attributes.Out;
  EXPECT_EQ(Shown(attributes.Out, "print-color-mode-supported"), (std::set<std::string>{"monochrome", "color"}))
      << attributes.Out;

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
    std::string label;
    std::vector<std::string> lp = {"lp", "-d", "inkweave"};
    for (const std::string& option : c.Options) {
      lp.insert(lp.end(), {"-o", option});
      label += option + " ";
    }
    SCOPED_TRACE(label);
    lp.push_back(dir / "doc.pdf");
    fs::remove(out / "job.prn");
    const ProcessResult printed = cupsd->Run(lp);
    ASSERT_EQ(printed.Exit, 0) << printed.Err;
    ASSERT_TRUE(cupsd->WaitForJobs(300s)) << cupsd->ErrorLog();
    const auto pages = Print(ReadText(out / "job.prn"));
    ASSERT_FALSE(pages.empty()) << cupsd->ErrorLog();
    const decode::PrintedPage& page = pages[0];
    EXPECT_EQ(page.Dpi, c.Dpi);
    EXPECT_EQ(page.Medium, c.Medium);
    EXPECT_EQ(page.Color, c.Color);
    if (!c.Color) {
      EXPECT_TRUE(InkBox(page, {0, 1, 2}).Empty()) << "colour ink on a monochrome page";
    }
    const int dpi = std::min(c.Dpi, 600), scale = c.Dpi / dpi;  // the high-resolution mode doubles the rows
    const host::PrintableArea area = host::PrintableAreaOf(*host::FindPaper("a4"), dpi);
    const double dots = dpi / 72.0, tolerance = 2 + dpi / 150.0;
    const double left = rect.X * dots - area.Left, top = (842 - rect.Y - rect.Height) * dots - area.Top;
    ExpectInkAt(page, {0, 1, 2, 3}, {left, top, left + rect.Width * dots, top + rect.Height * dots}, tolerance, scale);
  }
}

}  // namespace
}  // namespace inkweave::cupstest
