#include "printer-app/raster.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "printer-app/choices.h"
#include "printer-app/job_stream.h"

namespace inkweave::printerapp {
namespace {

// A raster job in progress: its stream and the band being gathered.
struct RasterJob {
  std::unique_ptr<JobStream> Stream;
  cups::PagePlan Plan;
  std::vector<std::uint8_t> Bits;  // one band at the plug-in's 24-bit row stride, white where unwritten
  std::size_t Stride = 0;          // bytes
  std::int32_t BandTop = 0;        // device row of the band being gathered
  bool PageOpen = false;           // page start sent, page end not yet
  bool Stopped = false;            // canceled, or the plug-in or the device failed
  bool Failed = false;             // the plug-in or the device failed

  std::int32_t BandRows() const {
    return std::min<std::int32_t>(kBandHeight, static_cast<std::int32_t>(Plan.Setup.PageHeight) - BandTop);
  }

  // Hands the gathered band to the plug-in and starts the next one. False when the job must stop.
  bool HandBand() {
    if (Stream->ShouldStop()) {
      Stopped = true;
      Failed = Stream->WriteFailed();
      return false;
    }
    host::Band band;
    band.Bits = Bits.data();
    band.Width = static_cast<std::int32_t>(Plan.Setup.PageWidth);
    band.Height = BandRows();
    band.BitCount = Plan.BandBits;
    band.OffsetY = BandTop;
    band.Blank = host::IsBlankBand(Bits.data(), band.Width, band.Height, Stride, Plan.BandBits);
    if (!Stream->Band(band)) {
      Stopped = Failed = true;
      return false;
    }
    BandTop += band.Height;
    std::fill(Bits.begin(), Bits.end(), 0xFF);
    return true;
  }
};

RasterJob* JobOf(pappl_job_t* job) { return static_cast<RasterJob*>(papplJobGetData(job)); }

void LogWarnings(pappl_job_t* job, const std::vector<std::string>& warnings) {
  for (const std::string& w : warnings) papplLogJob(job, PAPPL_LOGLEVEL_WARN, "%s", w.c_str());
}

}  // namespace

bool StartRasterJob(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t* device) {
  auto stream = JobStream::Start(job, device);
  if (!stream) return false;
  auto* raster = new RasterJob;
  raster->Stream = std::move(stream);
  papplJobSetData(job, raster);
  return true;
}

bool StartRasterPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*, unsigned page) {
  RasterJob* raster = JobOf(job);
  if (!raster || raster->Stopped) return false;
  auto planned = PlanJobPage(*options, options->header);
  if (auto* message = std::get_if<std::string>(&planned)) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "Page %u: %s", page + 1, message->c_str());
    papplJobSetReasons(job, PAPPL_JREASON_DOCUMENT_UNPRINTABLE_ERROR, PAPPL_JREASON_NONE);
    raster->Stopped = raster->Failed = true;
    return false;
  }
  raster->Plan = std::get<cups::PagePlan>(planned);
  LogWarnings(job, raster->Plan.Warnings);
  if (!raster->Stream->UseDevice(raster->Plan)) {
    raster->Stopped = raster->Failed = true;
    return false;
  }
  raster->Stream->PageStart();
  raster->PageOpen = true;
  raster->Stride =
      static_cast<std::size_t>(host::BandRowStride(static_cast<std::int32_t>(raster->Plan.Setup.PageWidth)));
  raster->Bits.assign(raster->Stride * kBandHeight + 16, 0xFF);
  raster->BandTop = 0;
  return true;
}

bool WriteRasterLine(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*, unsigned y, const unsigned char* line) {
  RasterJob* raster = JobOf(job);
  if (!raster || raster->Stopped) return false;
  // Raster row y is device row y - OffsetY; rows outside the printable area are not printed.
  const std::int64_t row = static_cast<std::int64_t>(y) - raster->Plan.OffsetY;
  if (row < 0 || row >= raster->Plan.Setup.PageHeight) return true;
  while (row >= raster->BandTop + raster->BandRows())  // rows the raster skipped stay white
    if (!raster->HandBand()) return false;
  const std::int64_t inBand = row - raster->BandTop;
  raster->Plan.CopyRow(line, raster->Bits.data() + raster->Stride * static_cast<std::size_t>(inBand),
                       static_cast<std::int32_t>(raster->Plan.Setup.PageWidth));
  if (inBand + 1 == raster->BandRows()) return raster->HandBand();
  return true;
}

bool EndRasterPage(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*, unsigned) {
  RasterJob* raster = JobOf(job);
  if (!raster || !raster->PageOpen) return false;
  // The rest of the page (below a short raster) is white; the band that ends at the page height
  // makes the plug-in flush its passes. A stopped page just ends.
  while (!raster->Stopped && raster->BandTop < static_cast<std::int32_t>(raster->Plan.Setup.PageHeight))
    raster->HandBand();
  raster->Stream->PageEnd();
  raster->PageOpen = false;
  return !raster->Failed;
}

bool EndRasterJob(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*) {
  std::unique_ptr<RasterJob> raster(JobOf(job));
  papplJobSetData(job, nullptr);
  if (!raster) return false;
  raster->Stream->Finish();
  return !raster->Failed && !raster->Stream->WriteFailed();
}

}  // namespace inkweave::printerapp
