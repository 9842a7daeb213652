// The printer application's bands, gathered from the raster rows PAPPL hands, where the whole-page runs
// of the printer-app test cannot look: a hand that fails stops the page (no band after it, and the rows
// and the end say so), and each band comes in a buffer of exactly its bytes (under AddressSanitizer the
// byte after a band is unaddressable, so that the sanitizer runs catch a plug-in reading past one).
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "printer-app/bands.h"
#include "tests/support/sanitizers.h"

#if defined(INKWEAVE_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace inkweave::printerapp {
namespace {

TEST(PrinterBands, AFailedHandStopsThePageAndEachBandFillsItsBuffer) {
  cups::PagePlan plan;
  plan.Setup.PageWidth = plan.RasterWidth = 11;
  plan.Setup.PageHeight = plan.RasterHeight = 400;
  plan.BytesPerLine = 33;
  const std::size_t stride = static_cast<std::size_t>(host::BandRowStride(11));
  std::vector<std::int32_t> heights;
  BandGatherer bands(plan, [&](const host::Band& band) {
    [[maybe_unused]] const std::size_t bytes = stride * static_cast<std::size_t>(band.Height);
#if defined(INKWEAVE_ASAN)
    EXPECT_EQ(__asan_region_is_poisoned(const_cast<std::uint8_t*>(band.Bits), bytes), nullptr);
    EXPECT_TRUE(__asan_address_is_poisoned(band.Bits + bytes)) << "the band's buffer goes on after it";
#endif
    heights.push_back(band.Height);
    return heights.size() < 3;  // the third fails
  });
  const std::vector<std::uint8_t> line(33, 0x80);
  std::uint32_t y = 0;
  while (y < 400 && bands.Row(y, line.data())) ++y;
  EXPECT_EQ(y, 3u * 128 - 1) << "the row that completed the failed band";
  EXPECT_FALSE(bands.Row(y + 1, line.data()));
  EXPECT_FALSE(bands.Finish());
  EXPECT_EQ(heights, (std::vector<std::int32_t>{128, 128, 128})) << "bands handed after the failed one";
}

}  // namespace
}  // namespace inkweave::printerapp
