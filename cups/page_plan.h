// How one CUPS raster page becomes a page of the plug-in: the device context it needs (paper,
// quality, colour, printable area), the selections sent before the job start (media, halftone, high
// resolution), and where the printable area lies in the raster.
//
// The raster page is the whole sheet; the device prints only its printable area (the sheet less the
// host's fixed margins). Device pixel (x, y) of the printable area is raster pixel
// (x + OffsetX, y + OffsetY); pixels outside the raster print white.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <cups/raster.h>

#include "host/choices.h"
#include "host/host.h"
#include "host/papers.h"

namespace inkweave::cups {

// The platform's paper size number for "any other size".
inline constexpr std::int16_t kPaperUser = 256;
// Largest raster page the filter takes, inches per side (no paper is anywhere near).
inline constexpr std::uint32_t kMaxPageInches = 60;
// Papers whose sides are within this of the page's are taken for that paper, mm.
inline constexpr double kPaperToleranceMm = 5.0;

// The queue's choices for the two options of our own: the PPD's defaults (as the queue was set up),
// overridden by the job's options (argv[5] of the filter).
struct JobOptions {
  host::Halftone Method = host::Halftone::Dither;  // host::kHalftoneKeyword
  host::HighRes Resolution = host::HighRes::Off;   // host::kHighResKeyword
};
// ppdPath may be null (no PPD: the job's options over the built-in defaults). Unknown values and an
// unreadable PPD are reported in *warnings and leave the defaults in place.
JobOptions ReadJobOptions(const char* ppdPath, const char* optionText, std::vector<std::string>* warnings);

struct PagePlan {
  host::DeviceSetup Setup;  // paper code, quality, colour, printable area in device pixels
  std::string PaperName;    // host paper name, or "custom"
  std::uint32_t MediaCallback = host::kCallbackMediaPlain;
  host::Halftone Method = host::Halftone::Dither;
  bool HighResolution = false;  // send the high-resolution command (600 dpi only)

  std::uint32_t RasterWidth = 0;   // pixels
  std::uint32_t RasterHeight = 0;  // pixels
  std::uint32_t BytesPerLine = 0;  // bytes
  int Channels = 3;                // 3 RGB, 1 gray
  // Bits per pixel of the bands handed to the plug-in: 24 for RGB; for gray, 8 under dither (the gray
  // renderer) but 24 (R = G = B) whenever error diffusion runs (diffusion, or high resolution, which
  // always diffuses): the diffusion renderers read three bytes per pixel whatever the band's depth.
  std::uint16_t BandBits = 24;
  bool InvertGray = false;   // K: 0 is white
  std::int64_t OffsetX = 0;  // raster column of the printable area's left edge, pixels
  std::int64_t OffsetY = 0;  // raster row of the printable area's top edge, pixels

  std::vector<std::string> Warnings;

  // Whether a page of this plan can be printed in a device context opened for other.
  bool SameDevice(const PagePlan& other) const;
  // One raster row (BytesPerLine bytes) into a band row of `width` device pixels at BandBits: the
  // printable columns, gray inverted for K and spread to R = G = B for 24-bit bands; columns outside
  // the raster white. A null raster (a row outside it) gives a white row.
  void CopyRow(const std::uint8_t* raster, std::uint8_t* band, std::int32_t width) const;
};

// Checks the header (before anything is allocated) and plans the page. An error message otherwise.
std::variant<PagePlan, std::string> PlanPage(const cups_page_header2_t& header, const JobOptions& options);

// The known paper nearest to a page of width x height mm (portrait), if within kPaperToleranceMm.
std::optional<host::Paper> NearestPaper(double widthMm, double heightMm);

}  // namespace inkweave::cups
