// One print job's printer stream: the render plug-in, driven through our host as the platform's
// printer driver drives it, with every byte it writes going to the printer through PAPPL's device.
//
// A device context of the plug-in fixes paper, quality, colour and the selections; a page that needs
// another ends the job in the current context and opens a new one, as the CUPS filter does. Jobs of
// different printers run on different threads, and the plug-in keeps one writable buffer shared by all
// its device contexts, so every call into the plug-in is made under one process-wide lock.
#pragma once

#include <pappl/pappl.h>

#include <memory>
#include <string>

#include "cups/page_plan.h"
#include "host/host.h"

namespace inkweave::printerapp {

class JobStream {
 public:
  // Loads the plug-in (once per process) and a plug-in object for the job. Null with the reason
  // logged to the job when the plug-in cannot be loaded.
  static std::unique_ptr<JobStream> Start(pappl_job_t* job, pappl_device_t* device);
  ~JobStream();  // Finish()
  JobStream(const JobStream&) = delete;
  JobStream& operator=(const JobStream&) = delete;

  // Makes the device context fit the page: opens one (EnablePDEV, selections, job start) or keeps
  // the current one. False, logged to the job, when the plug-in refuses the set-up.
  bool UseDevice(const cups::PagePlan& plan);
  void PageStart();
  void PageEnd();
  // One band of the current page. False when the plug-in refused it (logged to the job).
  bool Band(const host::Band& band);
  // A whole page, rendered a band at a time by the source (page start and end included).
  host::PageResult PrintPage(const host::PageSource& source, std::int32_t bandHeight);
  // Ends the job in the open device context (job end, DisablePDEV) and flushes the device.
  void Finish();

  // Whether the job should stop: canceled, or the printer can no longer be written to.
  bool ShouldStop() const;
  bool WriteFailed() const { return writeFailed_; }
  pappl_job_t* Job() const { return job_; }

 private:
  JobStream(pappl_job_t* job, pappl_device_t* device, host::PluginEntry entry);
  void CloseDevice();

  pappl_job_t* job_;
  pappl_device_t* device_;
  host::HostSession session_;
  cups::PagePlan plan_;
  bool open_ = false;
  bool writeFailed_ = false;
};

// The plug-in library: $INKWEAVE_PLUGIN; the installed layout (<prefix>/bin and
// <prefix>/lib/inkweave); the path it was installed to; the build tree's library.
std::string PluginPath();

}  // namespace inkweave::printerapp
