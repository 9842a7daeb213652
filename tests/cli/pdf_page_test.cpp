// PDF pages rendered in strips with poppler (cli/pdf_page.cpp): bands and strips that equal the page
// rendered whole, and the printer stream of the test page's first page pinned to the one libvips' PDF
// loader (which the command used before) gave (so a pixel that moves, or a page a pixel smaller, changes
// it); and a long PDF through the print command: every page counts, and what poppler prints by itself is
// shown once, naming the file.
#include <gtest/gtest.h>

#include <algorithm>

#include "cli/pdf_page.h"
#include "tests/cli/run.h"
#include "tests/support/make_pdf.h"
#include "tests/support/sha256.h"

namespace inkweave::cli::testing {
namespace {

TEST(PdfPage, BandsCutFromStripsEqualThePageRenderedWhole) {
  // 150 dpi on A4: a strip holds many bands, so most bands are cut from a strip rendered for an earlier
  // one; text and rules must not shift by a pixel at a band's or a strip's edge, down the page (rows)
  // or across it (columns the page's height, as landscape bands ask).
  const double scale = 2.0833333;
  std::string error;
  auto whole = PdfPage::Open(Example("testpage.pdf"), 0, scale, &error);
  ASSERT_TRUE(whole) << error;
  const int width = static_cast<int>(whole->Width()), height = static_cast<int>(whole->Height());
  const std::size_t stride = static_cast<std::size_t>(width) * 3;
  std::vector<std::uint8_t> reference(stride * static_cast<std::size_t>(height));
  ASSERT_TRUE(whole->Render(0, 0, width, height, reference.data(), stride, &error)) << error;
  ASSERT_NE(std::count(reference.begin(), reference.end(), 0xFF), static_cast<std::ptrdiff_t>(reference.size()));
  for (const auto& [step, columns] : {std::pair{32, false}, std::pair{7, false}, std::pair{100, true}}) {
    SCOPED_TRACE(std::to_string(step) + (columns ? " columns" : " rows"));
    auto page = PdfPage::Open(Example("testpage.pdf"), 0, scale, &error);
    ASSERT_TRUE(page) << error;
    std::vector<std::uint8_t> banded(reference.size());
    for (int at = 0; at < (columns ? width : height); at += step) {
      const int x = columns ? at : 0, y = columns ? 0 : at;
      const int w = columns ? std::min(step, width - at) : width, h = columns ? height : std::min(step, height - at);
      ASSERT_TRUE(
          page->Render(x, y, w, h, banded.data() + stride * y + static_cast<std::size_t>(x) * 3, stride, &error))
          << error;
    }
    EXPECT_TRUE(banded == reference);
  }
}

// The stream of the test page's first page (text and graphics) at 600 dpi: first pinned when the page
// still went through libvips' PDF loader, re-pinned when the colour tables' neutral axis came from the
// printer model and again when the whole tables did. A change of the page rendering that moves a single
// pixel of it changes this stream.
TEST(PdfPage, FirstTestPageStreamUnchangedFromTheLibvipsLoader) {
  ScratchDir dir;
  const RunResult run =
      RunInkweave({"print", Example("testpage.pdf"), "--pages", "1", "--quality", "600", "-o", dir / "p1.prn"});
  ASSERT_EQ(run.Exit, 0) << run.Err;
  const std::vector<unsigned char> stream = ReadBytes(dir / "p1.prn");
  EXPECT_EQ(inkweave::testing::Sha256Hex(stream.data(), stream.size()),
            "b8305db2bcbe5e4fc49d0b5f05c8bb82c0f4763c3355a701293232e79f223771");
}

// A PDF of `pages` pages of 200 x 200 points, each with a blue square and text in a TrueType font whose
// embedded program is garbage (poppler prints a warning of its own each time it renders a page).
std::string MakePdf(int pages) {
  std::string kids;
  for (int i = 0; i < pages; ++i) kids += std::to_string(7 + i) + " 0 R ";
  std::vector<std::string> objects = {
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) + " >>",
      inkweave::testing::PdfStream("BT /F1 24 Tf 20 150 Td (Hello) Tj ET 0 0 1 rg 10 10 100 100 re f"),
      "<< /Type /Font /Subtype /TrueType /BaseFont /Junk /FirstChar 32 /LastChar 126 /FontDescriptor 5 0 R >>",
      "<< /Type /FontDescriptor /FontName /Junk /Flags 32 /FontBBox [0 0 1000 1000] /ItalicAngle 0 /Ascent 800 "
      "/Descent -200 /CapHeight 700 /StemV 80 /FontFile2 6 0 R >>",
      inkweave::testing::PdfStream(std::string(170, 'g'))};
  objects.resize(
      objects.size() + static_cast<std::size_t>(pages),
      "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Contents 3 0 R /Resources << /Font << /F1 4 0 R "
      ">> >> >>");
  return inkweave::testing::WritePdf(objects);
}

TEST(PrintPdf, EveryPageOfALongDocumentCountsAndPopplersWarningComesOnce) {
  ScratchDir dir;
  WriteText(dir / "long.pdf", MakePdf(10000));
  // Poppler warns for every strip of both pages; the warning comes once, after the job, naming the file.
  const RunResult run =
      RunInkweave({"print", dir / "long.pdf", "--quality", "300", "--pages", "3,10000", "-q", "-o", dir / "long.prn"});
  ASSERT_EQ(run.Exit, 0) << run.Err;
  EXPECT_EQ(PrintStream(ReadBytes(dir / "long.prn")).size(), 2u);
  EXPECT_EQ(std::count(run.Err.begin(), run.Err.end(), '\n'), 1) << run.Err;
  EXPECT_EQ(run.Err.rfind("inkweave: warning: " + dir / "long.pdf" + ": ", 0), 0u) << run.Err;
  const RunResult past = RunInkweave({"print", dir / "long.pdf", "--pages", "10001", "-o", dir / "past.prn"});
  EXPECT_EQ(past.Exit, 2);
  EXPECT_EQ(past.Err, "inkweave: --pages: page 10001 asked for, but the job has only 10000 pages\n");
}

}  // namespace
}  // namespace inkweave::cli::testing
