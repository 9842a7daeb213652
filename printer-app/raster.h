// The driver's raster callbacks: PAPPL hands PWG and Apple raster pages, and JPEG and PNG images it
// has rendered, line by line; the lines of the printable area are gathered into bands and each band is
// handed to the plug-in. Cancellation is checked before every band.
#pragma once

#include <pappl/pappl.h>

#include "printer-app/bands.h"

namespace inkweave::printerapp {

bool StartRasterJob(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device);
bool StartRasterPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device, unsigned page);
bool WriteRasterLine(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device, unsigned y,
                     const unsigned char* line);
bool EndRasterPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device, unsigned page);
bool EndRasterJob(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device);

// The PDF filter: every page (of the job's page-ranges, times its copies) rendered a band at a time
// with poppler straight into the plug-in, as `inkweave print` renders a PDF.
bool PrintPdf(pappl_job_t* job, pappl_device_t* device, void* data);

}  // namespace inkweave::printerapp
