// The rows of a raster page gathered into the bands handed to the plug-in: kBandHeight rows of the
// printable area each (fewer in the last), white where the raster has no row. Each band is handed in
// a buffer of exactly its bytes, so that a read past a band is a read past its buffer.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "cups/page_plan.h"
#include "host/host.h"

namespace inkweave::printerapp {

// Rows per band handed to the plug-in.
inline constexpr int kBandHeight = 128;

class BandGatherer {
 public:
  // Takes a band to the plug-in; false when the page must stop.
  using Hand = std::function<bool(const host::Band&)>;

  BandGatherer(const cups::PagePlan& plan, Hand hand);

  // Raster row y (BytesPerLine bytes of the plan). Rows outside the printable area are skipped; each
  // band the row completes, and the bands of rows the raster skipped, are handed. False when a hand
  // fails (nothing more is handed then).
  bool Row(std::uint32_t y, const std::uint8_t* line);
  // The bands of the page not handed yet, white where no row came. False when a hand fails.
  bool Finish();

 private:
  std::int32_t BandRows() const;  // rows of the band being gathered
  std::vector<std::uint8_t>& Bits() { return BandRows() < kBandHeight && !last_.empty() ? last_ : full_; }
  bool HandBand();

  cups::PagePlan plan_;
  Hand hand_;
  std::int32_t height_;                    // device rows of the page
  std::size_t stride_;                     // bytes per band row
  std::vector<std::uint8_t> full_, last_;  // a full band, and a shorter last one
  std::int32_t top_ = 0;                   // device row of the band being gathered
  bool failed_ = false;
};

}  // namespace inkweave::printerapp
