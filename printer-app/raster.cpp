#include "printer-app/raster.h"

#include <memory>
#include <optional>

#include "printer-app/bands.h"
#include "printer-app/choices.h"
#include "printer-app/job_stream.h"

namespace inkweave::printerapp {
namespace {

// A raster job in progress: its stream and the page being gathered into bands.
struct RasterJob {
  std::unique_ptr<JobStream> Stream;
  cups::PagePlan Plan;
  std::optional<BandGatherer> Page;  // while a page is open: page start sent, page end not yet
  bool Stopped = false;              // canceled, or the plug-in or the device failed
  bool Failed = false;               // the plug-in or the device failed

  // Hands a band to the plug-in, unless the job is to stop. False when the job must stop.
  bool HandBand(const host::Band& band) {
    if (Stream->ShouldStop()) {
      Stopped = true;
      Failed = Stream->WriteFailed();
      return false;
    }
    if (!Stream->Band(band)) {
      Stopped = Failed = true;
      return false;
    }
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
  raster->Page.emplace(raster->Plan, [raster](const host::Band& band) { return raster->HandBand(band); });
  return true;
}

bool WriteRasterLine(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*, unsigned y, const unsigned char* line) {
  RasterJob* raster = JobOf(job);
  if (!raster || raster->Stopped || !raster->Page) return false;
  return raster->Page->Row(y, line);
}

bool EndRasterPage(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*, unsigned) {
  RasterJob* raster = JobOf(job);
  if (!raster || !raster->Page) return false;
  // The rest of the page (below a short raster) is white; the band that ends at the page height
  // makes the plug-in flush its passes. A stopped page just ends.
  if (!raster->Stopped) raster->Page->Finish();
  raster->Page.reset();
  raster->Stream->PageEnd();
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
