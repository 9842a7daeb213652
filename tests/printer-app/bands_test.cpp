// The printer application's bands, gathered from the raster rows PAPPL hands: every device row of the
// printable area carries the raster row that falls on it (white where none came), in bands of 128 rows
// and a shorter last one, each band in a buffer of exactly its bytes. Under AddressSanitizer the byte
// after each band must be unaddressable, so that the sanitizer runs catch a plug-in reading past one.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "printer-app/bands.h"
#include "tests/support/sanitizers.h"

#if defined(INKWEAVE_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace inkweave::printerapp {
namespace {

// Raster row y: every byte (y % 251), never white.
std::uint8_t Shade(std::int64_t y) { return static_cast<std::uint8_t>(y % 251); }

TEST(PrinterBands, EveryRowLandsInItsBandAndEachBandInABufferOfItsSize) {
  struct Case {
    std::string Name;
    std::int32_t PageHeight;   // device rows
    std::uint32_t RasterRows;  // raster rows of the page
    std::int64_t OffsetY;      // raster row of the first device row
    int Channels, BandBits;    // raster bytes per pixel, band bits per pixel
    int Step = 1;              // every Step-th raster row is handed
    int FailAt = -1;           // the hand of this band fails
  };
  const std::vector<Case> cases = {
      {"bands of 128 only", 256, 256, 0, 3, 24},
      {"a short last band", 300, 340, 17, 3, 24},
      {"one short band", 100, 100, 0, 1, 8},
      {"one row", 1, 1, 0, 1, 24},
      {"raster below the top and short", 300, 200, -30, 1, 24},
      {"rows skipped", 400, 400, 5, 3, 24, 3},
      {"the second hand fails", 300, 300, 0, 3, 24, 1, 1},
  };
  constexpr std::int32_t kWidth = 11;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Name);
    cups::PagePlan plan;
    plan.Setup.PageWidth = kWidth;
    plan.Setup.PageHeight = c.PageHeight;
    plan.RasterWidth = kWidth;
    plan.RasterHeight = c.RasterRows;
    plan.Channels = c.Channels;
    plan.BytesPerLine = kWidth * c.Channels;
    plan.BandBits = static_cast<std::uint16_t>(c.BandBits);
    plan.OffsetY = c.OffsetY;
    const std::size_t stride = static_cast<std::size_t>(host::BandRowStride(kWidth));

    std::vector<std::vector<std::uint8_t>> rows;  // device rows as handed, the band's row bytes
    std::vector<std::int32_t> heights;
    BandGatherer bands(plan, [&](const host::Band& band) {
      EXPECT_EQ(band.Width, kWidth);
      EXPECT_EQ(band.BitCount, c.BandBits);
      EXPECT_EQ(band.OffsetY, static_cast<std::int32_t>(rows.size()));
#if defined(INKWEAVE_ASAN)
      const std::size_t bytes = stride * static_cast<std::size_t>(band.Height);
      EXPECT_EQ(__asan_region_is_poisoned(const_cast<std::uint8_t*>(band.Bits), bytes), nullptr);
      EXPECT_TRUE(__asan_address_is_poisoned(band.Bits + bytes)) << "the band's buffer goes on after it";
#endif
      if (static_cast<int>(heights.size()) == c.FailAt) return false;
      heights.push_back(band.Height);
      for (std::int32_t r = 0; r < band.Height; ++r)
        rows.emplace_back(band.Bits + stride * r, band.Bits + stride * r + kWidth * c.BandBits / 8);
      return true;
    });
    bool handed = true;
    for (std::uint32_t y = 0; y < c.RasterRows && handed; y += c.Step) {
      const std::vector<std::uint8_t> line(plan.BytesPerLine, Shade(y));
      handed = bands.Row(y, line.data());
    }
    EXPECT_EQ(bands.Finish(), c.FailAt < 0);
    if (c.FailAt >= 0) {
      EXPECT_FALSE(handed);
      EXPECT_EQ(static_cast<int>(heights.size()), c.FailAt) << "bands handed after the failed one";
      continue;
    }

    ASSERT_EQ(static_cast<std::int32_t>(rows.size()), c.PageHeight);
    for (std::size_t i = 0; i < heights.size(); ++i)
      EXPECT_EQ(heights[i], i + 1 < heights.size() ? 128 : (c.PageHeight - 1) % 128 + 1) << "band " << i;
    for (std::int32_t r = 0; r < c.PageHeight; ++r) {
      const std::int64_t y = r + c.OffsetY;
      const bool fed = y >= 0 && y < c.RasterRows && y % c.Step == 0;
      const std::vector<std::uint8_t> expected(rows[r].size(), fed ? Shade(y) : 0xFF);
      EXPECT_EQ(rows[r], expected) << "device row " << r;
    }
  }
}

}  // namespace
}  // namespace inkweave::printerapp
