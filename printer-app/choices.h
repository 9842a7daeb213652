// How the IPP printer speaks for the device: the papers by their PWG names, the media types, the
// halftone and high-resolution choices as vendor attributes, and how a job's attributes become the
// plug-in's device set-up. Every IPP-to-device choice of the printer application is made here; the
// device choices themselves (papers and margins, media commands, the page plan) are the host's and
// the CUPS filter's, so a job prints as it would through the filter.
#pragma once

#include <pappl/pappl.h>

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "cups/page_plan.h"
#include "host/choices.h"
#include "host/papers.h"

namespace inkweave::printerapp {

// The vendor attributes (job template, with -default and -supported on the printer). The halftone's
// keywords are the host's names of the halftones (host::kHalftones), as the inkweave command takes them.
inline constexpr const char* kHalftoneAttribute = "inkweave-halftone";               // keyword
inline constexpr const char* kHighResolutionAttribute = "inkweave-high-resolution";  // boolean

// The PWG self-describing name of a paper, e.g. "iso_a4_210x297mm".
std::string PwgMediaName(const host::Paper& paper);

// The halftone and high-resolution choices of a job (its attributes over the printer's defaults, as
// PAPPL hands them in the vendor options). Unknown values are reported in *warnings and ignored.
cups::JobOptions JobOptionsFrom(const pappl_pr_options_t& options, std::vector<std::string>* warnings);

// The page plan for a page whose raster header is `header` (the job's PWG or Apple raster page, or
// the header PAPPL made for an image): the media type comes from the job's media-col, the halftone
// and high resolution from its vendor attributes. An error message when the page cannot be printed.
std::variant<cups::PagePlan, std::string> PlanJobPage(const pappl_pr_options_t& options,
                                                      const cups_page_header2_t& header);

// The raster header of a page the printer application renders itself (a PDF page): the job's media
// size, resolution and colour mode, 8-bit sRGB or sGray.
cups_page_header2_t RenderedPageHeader(const pappl_pr_options_t& options);

}  // namespace inkweave::printerapp
