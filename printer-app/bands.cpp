#include "printer-app/bands.h"

#include <algorithm>
#include <utility>

namespace inkweave::printerapp {

BandGatherer::BandGatherer(const cups::PagePlan& plan, Hand hand)
    : plan_(plan),
      hand_(std::move(hand)),
      height_(static_cast<std::int32_t>(plan.Setup.PageHeight)),
      stride_(static_cast<std::size_t>(host::BandRowStride(static_cast<std::int32_t>(plan.Setup.PageWidth)))),
      full_(stride_ * static_cast<std::size_t>(std::min(kBandHeight, height_)), 0xFF),
      last_(height_ % kBandHeight != 0 && height_ > kBandHeight ? stride_ * (height_ % kBandHeight) : 0, 0xFF) {}

std::int32_t BandGatherer::BandRows() const { return std::min(kBandHeight, height_ - top_); }

bool BandGatherer::Row(std::uint32_t y, const std::uint8_t* line) {
  if (failed_) return false;
  // Raster row y is device row y - OffsetY.
  const std::int64_t row = static_cast<std::int64_t>(y) - plan_.OffsetY;
  if (row < 0 || row >= height_) return true;
  while (row >= top_ + BandRows())  // rows the raster skipped stay white
    if (!HandBand()) return false;
  const std::int64_t inBand = row - top_;
  plan_.CopyRow(line, Bits().data() + stride_ * static_cast<std::size_t>(inBand),
                static_cast<std::int32_t>(plan_.Setup.PageWidth));
  return inBand + 1 < BandRows() || HandBand();
}

bool BandGatherer::Finish() {
  while (!failed_ && top_ < height_)
    if (!HandBand()) return false;
  return !failed_;
}

bool BandGatherer::HandBand() {
  std::vector<std::uint8_t>& bits = Bits();
  host::Band band;
  band.Bits = bits.data();
  band.Width = static_cast<std::int32_t>(plan_.Setup.PageWidth);
  band.Height = BandRows();
  band.BitCount = plan_.BandBits;
  band.OffsetY = top_;
  band.Blank = host::IsBlankBand(bits.data(), band.Width, band.Height, stride_, plan_.BandBits);
  if (!hand_(band)) {
    failed_ = true;
    return false;
  }
  top_ += band.Height;
  std::fill(bits.begin(), bits.end(), 0xFF);
  return true;
}

}  // namespace inkweave::printerapp
