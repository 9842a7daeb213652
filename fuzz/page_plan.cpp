// The CUPS filter's page planning on any raster header (and job options): a plan or a message, never
// undefined arithmetic; a plan's row copy stays inside the raster row and the band row.
#include <cstdint>
#include <cstring>
#include <string>
#include <variant>
#include <vector>

#include "cups/page_plan.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  cups_page_header2_t header;
  if (size < sizeof header) return -1;
  std::memcpy(&header, data, sizeof header);
  const std::string options(reinterpret_cast<const char*>(data) + sizeof header, size - sizeof header);
  std::vector<std::string> warnings;
  const inkweave::cups::JobOptions job = inkweave::cups::ReadJobOptions(nullptr, options.c_str(), &warnings);
  auto planned = inkweave::cups::PlanPage(header, job);
  if (auto* plan = std::get_if<inkweave::cups::PagePlan>(&planned)) {
    std::vector<std::uint8_t> raster(plan->BytesPerLine), band(plan->Setup.PageWidth * (plan->BandBits / 8));
    plan->CopyRow(raster.data(), band.data(), static_cast<std::int32_t>(plan->Setup.PageWidth));
  }
  return 0;
}
