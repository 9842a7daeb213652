// Shared by the CUPS and printer-app tests: writing CUPS raster streams, reading what ipptool shows, and
// reading a printer stream back through the decoder: where the ink landed.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cups/raster.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <variant>
#include <vector>

#include "decode/decoder.h"
#include "host/papers.h"
#include "tests/support/make_pdf.h"
#include "tests/support/print_stream.h"
#include "tests/support/process.h"

namespace inkweave::cupstest {

namespace fs = std::filesystem;

using inkweave::testing::ProcessResult;
using inkweave::testing::ReadText;
using inkweave::testing::TempDir;

// A page of a raster stream: its header and the colour of each pixel (R, G, B or one gray byte).
struct RasterPage {
  cups_page_header2_t Header{};
  std::function<void(unsigned x, unsigned y, std::uint8_t* pixel)> Pixel;
};

// An 8-bit page header of the given size, resolution and colour space (chunked).
inline cups_page_header2_t PageHeader(unsigned width, unsigned height, unsigned dpi, cups_cspace_t space,
                                      double pageWidthPt = 0, double pageHeightPt = 0) {
  cups_page_header2_t h{};
  const unsigned channels = (space == CUPS_CSPACE_RGB || space == CUPS_CSPACE_SRGB) ? 3 : 1;
  h.HWResolution[0] = h.HWResolution[1] = dpi;
  h.cupsWidth = width;
  h.cupsHeight = height;
  h.cupsBitsPerColor = 8;
  h.cupsBitsPerPixel = 8 * channels;
  h.cupsBytesPerLine = width * channels;
  h.cupsColorSpace = space;
  h.cupsColorOrder = CUPS_ORDER_CHUNKED;
  h.cupsNumColors = channels;
  h.PageSize[0] = static_cast<unsigned>(pageWidthPt > 0 ? pageWidthPt : width * 72.0 / dpi);
  h.PageSize[1] = static_cast<unsigned>(pageHeightPt > 0 ? pageHeightPt : height * 72.0 / dpi);
  h.cupsPageSize[0] = static_cast<float>(pageWidthPt > 0 ? pageWidthPt : width * 72.0 / dpi);
  h.cupsPageSize[1] = static_cast<float>(pageHeightPt > 0 ? pageHeightPt : height * 72.0 / dpi);
  return h;
}

inline std::vector<std::uint8_t> PageRow(const RasterPage& page, unsigned y) {
  std::vector<std::uint8_t> row(page.Header.cupsBytesPerLine);
  const unsigned channels = page.Header.cupsBitsPerPixel / 8;
  for (unsigned x = 0; x < page.Header.cupsWidth; ++x) page.Pixel(x, y, row.data() + x * channels);
  return row;
}

// Version 1 ("RaSt" in the writer's byte order): the version-1 part of the page header
// (cups_page_header_t), then the rows uncompressed. libcups writes only versions 2 and 3, so this one
// is written by hand.
inline void WriteRasterV1(const fs::path& path, const std::vector<RasterPage>& pages) {
  std::ofstream out(path, std::ios::binary);
  const std::uint32_t sync = CUPS_RASTER_SYNCv1;
  out.write(reinterpret_cast<const char*>(&sync), sizeof sync);
  for (const RasterPage& page : pages) {
    out.write(reinterpret_cast<const char*>(&page.Header), sizeof(cups_page_header_t));
    for (unsigned y = 0; y < page.Header.cupsHeight; ++y) {
      const auto row = PageRow(page, y);
      out.write(reinterpret_cast<const char*>(row.data()), static_cast<std::streamsize>(row.size()));
    }
  }
}

// Version 3 (CUPS_RASTER_WRITE) or 2 (CUPS_RASTER_WRITE_COMPRESSED) through libcups.
inline void WriteRaster(const fs::path& path, cups_mode_t mode, const std::vector<RasterPage>& pages) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0);
  cups_raster_t* raster = cupsRasterOpen(fd, mode);
  ASSERT_NE(raster, nullptr);
  for (const RasterPage& page : pages) {
    cups_page_header2_t header = page.Header;
    ASSERT_TRUE(cupsRasterWriteHeader2(raster, &header));
    for (unsigned y = 0; y < page.Header.cupsHeight; ++y) {
      auto row = PageRow(page, y);
      ASSERT_EQ(cupsRasterWritePixels(raster, row.data(), static_cast<unsigned>(row.size())), row.size());
    }
  }
  cupsRasterClose(raster);
  close(fd);
}

// The printer stream put on paper by the decoder.
inline std::vector<decode::PrintedPage> Print(const std::string& stream, decode::Job* jobOut = nullptr) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(stream.data());
  return inkweave::testing::PrintStream({bytes, stream.size()}, {}, jobOut);
}

// The last value ipptool -tv showed for an attribute, e.g. "job-id (integer) = 3" → "3".
inline std::string Shown(const std::string& out, const std::string& attribute) {
  const std::regex shown("\\b" + attribute + " \\([^)]*\\) = ([^\\n]*)");
  std::string value;
  for (auto it = std::sregex_iterator(out.begin(), out.end(), shown); it != std::sregex_iterator(); ++it)
    value = (*it)[1];
  return value;
}

// Box of the dots inked in any of the given planes (either bit of two-bit dots), in page dots; empty
// (Left > Right) when there are none.
struct Box {
  int Left = 1 << 30, Top = 1 << 30, Right = -1, Bottom = -1;
  bool Empty() const { return Left > Right; }
};
inline Box InkBox(const decode::PrintedPage& page, std::initializer_list<int> planes) {
  Box box;
  for (int plane : planes) {
    for (const decode::BitPlane& bits : page.Bits[plane]) {
      for (int y = 0; y < static_cast<int>(bits.Rows.size()); ++y) {
        const auto& row = bits.Rows[y];
        for (int i = 0; i < static_cast<int>(row.size()); ++i) {
          for (int b = 0; b < 8; ++b) {
            if (!(row[i] & (0x80 >> b))) continue;
            box.Left = std::min(box.Left, i * 8 + b);
            box.Right = std::max(box.Right, i * 8 + b);
            box.Top = std::min(box.Top, y);
            box.Bottom = std::max(box.Bottom, y);
          }
        }
      }
    }
  }
  return box;
}

// The ink of the planes lies in the box (left, top, right, bottom: dots of the printed page, right and
// bottom past the last dot) within `tolerance`; every row of it carries ink from exactly one head pass, and
// no row anywhere from two. (Blank head rows may land twice, and passes over blank paper are fed over: only
// ink counts.)
inline void ExpectInkAt(const decode::PrintedPage& page, std::initializer_list<int> planes, std::array<double, 4> at,
                        double tolerance) {
  const Box box = InkBox(page, planes);
  ASSERT_FALSE(box.Empty()) << "no ink on the page";
  EXPECT_EQ(page.RowsInkedTwice, 0);
  ASSERT_GT(static_cast<int>(page.InkCounts.size()), box.Bottom);
  int wrong = 0, first = -1;
  for (int r = box.Top; r <= box.Bottom; ++r)
    if (page.InkCounts[r] != 1 && wrong++ == 0) first = r;
  EXPECT_EQ(wrong, 0) << "rows of the box not inked exactly once, the first is row " << first;
  EXPECT_NEAR(box.Left, at[0], tolerance);
  EXPECT_NEAR(box.Top, at[1], tolerance);
  EXPECT_NEAR(box.Right + 1, at[2], tolerance);
  EXPECT_NEAR(box.Bottom + 1, at[3], tolerance);
}

// The box in dots of a page printed at `dpi` (1200: the high-resolution mode, 600 dpi across and doubled
// rows, both counted in 1200ths) of a rectangle given in dots of the whole sheet at the resolution across
// (left, top, width, height), or of a PDF rectangle (points from the sheet's bottom-left corner).
inline std::array<double, 4> SheetBox(const host::Paper& paper, int dpi, std::array<double, 4> r) {
  const host::PrintableArea area = host::PrintableAreaOf(paper, std::min(dpi, 600));
  const double scale = dpi / std::min(dpi, 600), left = r[0] - area.Left, top = r[1] - area.Top;
  return {left * scale, top * scale, (left + r[2]) * scale, (top + r[3]) * scale};
}
inline std::array<double, 4> PdfBox(const host::Paper& paper, int dpi, const inkweave::testing::PdfRect& r) {
  const double dots = std::min(dpi, 600) / 72.0, sheetHeight = paper.HeightMm * 72 / 25.4;
  return SheetBox(paper, dpi, {r.X * dots, (sheetHeight - r.Y - r.Height) * dots, r.Width * dots, r.Height * dots});
}

// A printed page: its resolution, colour or monochrome (then without colour ink), ink of each plane asked
// for, and all its ink in the box (as ExpectInkAt has it, within 2 dots and one more per 150 dpi), or where
// the box is all zero (a picture, whose edges may fade into white) only somewhere on the page.
struct PageExpect {
  bool Color;
  std::vector<int> InkedPlanes;
  std::array<double, 4> Box;
};
inline void ExpectPage(const decode::PrintedPage& page, int dpi, const PageExpect& want) {
  EXPECT_EQ(page.Dpi, dpi);
  EXPECT_EQ(page.Color, want.Color);
  for (int plane : want.InkedPlanes) EXPECT_FALSE(InkBox(page, {plane}).Empty()) << "no ink of plane " << plane;
  if (!want.Color) {
    EXPECT_TRUE(InkBox(page, {0, 1, 2}).Empty()) << "colour ink on a monochrome page";
  }
  if (want.Box != std::array<double, 4>{}) return ExpectInkAt(page, {0, 1, 2, 3}, want.Box, 2 + dpi / 150.0);
  EXPECT_EQ(page.RowsInkedTwice, 0);
  EXPECT_FALSE(InkBox(page, {0, 1, 2, 3}).Empty()) << "no ink on the page";
}

}  // namespace inkweave::cupstest
