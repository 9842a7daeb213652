// The band queue between the input side's thread and the plug-in's: a page handed through it gives
// exactly the bands a direct source gives (portrait and landscape, colour and gray, a short last band);
// a failure of the input side arrives after the bands queued before it; stopping releases an input side
// that waits, and nothing it throws ends the program.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "host/band_queue.h"
#include "host/host.h"

namespace inkweave::host {
namespace {

// A pattern with edges everywhere, so that a band shifted by a row or a column changes the stream.
std::uint8_t Pixel(std::int32_t x, std::int32_t y, int channel) {
  return static_cast<std::uint8_t>((x * 7 + y * 13 + channel * 85) ^ ((x / 5 + y / 3) % 2 ? 0xFF : 0));
}

bool Draw(const BandRect& band, int bytesPerPixel, std::uint8_t* dst, std::size_t stride) {
  for (std::int32_t row = 0; row < band.Height; ++row)
    for (std::int32_t col = 0; col < band.Width; ++col)
      for (int c = 0; c < bytesPerPixel; ++c)
        dst[stride * static_cast<std::size_t>(row) + static_cast<std::size_t>(col * bytesPerPixel + c)] =
            Pixel(band.X + col, band.Y + row, c);
  return true;
}

// Every band of a page lent through a queue, in the order the host asks for them, against the pattern
// drawn straight into it: the same pixels, portrait and landscape, colour and gray, whatever the last
// band's size. (That the host asks in that order: the command's printed documents.)
TEST(BandQueue, LendsTheBandsADirectSourceGives) {
  const struct {
    std::int32_t Width, Height, BandHeight;
    bool Landscape;
    int Bytes;
  } cases[] = {
      {1200, 1000, 256, false, 3},  // a short last band
      {700, 900, 1000, false, 1},   // one band taller than the page, gray
      {1000, 700, 96, true, 3},     // landscape: columns, a narrow last one
  };
  for (const auto& c : cases) {
    const std::vector<BandRect> bands = BandsOf(c.Width, c.Height, c.BandHeight, c.Landscape);
    BandQueue queue(2);
    queue.Run([&] {
      for (const BandRect& band : bands)
        if (!queue.Put(band, c.Bytes, [&](std::uint8_t* dst, std::size_t stride, std::string*) {
              return Draw(band, c.Bytes, dst, stride);
            }))
          return;
    });
    for (const BandRect& band : bands) {
      // Every byte of the lent buffer (under ASan, a buffer short of the band's bytes fails here).
      const std::size_t stride = static_cast<std::size_t>(BandRowStride(band.Width));
      std::vector<std::uint8_t> direct(stride * band.Height, 0xFF);
      Draw(band, c.Bytes, direct.data(), stride);
      const std::uint8_t* lent = queue.Lend(band);
      ASSERT_NE(lent, nullptr) << queue.Error();
      for (std::size_t row = 0; row < static_cast<std::size_t>(band.Height); ++row)
        ASSERT_EQ(std::memcmp(lent + stride * row, &direct[stride * row], stride), 0)
            << c.Width << "x" << c.Height << (c.Landscape ? " landscape" : "") << ", band at " << band.X << ","
            << band.Y << ", row " << row;
    }
    EXPECT_EQ(queue.Lend(bands.back()), nullptr) << "nothing past the last band";
  }
}

TEST(BandQueue, FailuresArriveInBandOrderAndStoppingReleasesTheInputSide) {
  const std::vector<BandRect> bands = BandsOf(64, 100, 16, false);
  ASSERT_EQ(bands.size(), 7u);
  ASSERT_EQ(bands.back(), (BandRect{0, 96, 64, 4}));
  enum class Ending { kFill, kFail, kThrow, kEnd };
  struct Stop {
    std::size_t After;  // bands the input side queues before its ending
    Ending How;
    std::string Error;  // what Take then says
  } stops[] = {
      {3, Ending::kFill, "page 1: cannot decode"},
      {2, Ending::kFail, "page 2: cannot open it"},
      {4, Ending::kThrow, "out of memory"},
      {5, Ending::kEnd, "the input ended before the page did"},
  };
  for (const Stop& stop : stops) {
    SCOPED_TRACE(stop.Error + " after " + std::to_string(stop.After));
    BandQueue queue(3);
    queue.Run([&] {
      for (std::size_t i = 0; i < stop.After; ++i)
        ASSERT_TRUE(queue.Put(bands[i], 1, [](std::uint8_t*, std::size_t, std::string*) { return true; }));
      if (stop.How == Ending::kFill) {
        EXPECT_FALSE(queue.Put(bands[stop.After], 1, [&](std::uint8_t*, std::size_t, std::string* why) {
          *why = stop.Error;
          return false;
        }));
      }
      if (stop.How == Ending::kFail) queue.Fail(stop.Error);
      if (stop.How == Ending::kThrow) throw std::runtime_error(stop.Error);
    });
    for (std::size_t i = 0; i < stop.After; ++i) EXPECT_NE(queue.Lend(bands[i]), nullptr) << queue.Error();
    EXPECT_EQ(queue.Lend(bands[stop.After]), nullptr);
    EXPECT_EQ(queue.Error(), stop.Error);
  }

  // The plug-in's side asks for another band than the next one queued, or stops after one band while
  // the input side waits for a free slot: neither hangs, and the input side hears of it.
  for (const bool outOfOrder : {true, false}) {
    std::atomic<int> refused = 0;
    {
      BandQueue queue(1);
      queue.Run([&] {
        for (const BandRect& b : bands)
          if (!queue.Put(b, 1, [](std::uint8_t*, std::size_t, std::string*) { return true; })) ++refused;
      });
      EXPECT_EQ(queue.Lend(bands[outOfOrder ? 1 : 0]) != nullptr, !outOfOrder);
      if (outOfOrder) {
        EXPECT_EQ(queue.Error(), "the input side rendered the bands out of order");
      }
      queue.Stop();
    }
    EXPECT_GE(refused.load(), 1);
  }
}

}  // namespace
}  // namespace inkweave::host
