// What the user asked for on the command line, and the parsers for the option values that are more
// than a name: page ranges ("1-3,7") and the scale ("fit" or "80%").
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/choices.h"
#include "host/papers.h"

namespace inkweave::cli {

// One inclusive range of page numbers, counted from 1 over the whole job.
struct PageRange {
  int First = 1;
  int Last = 1;
};

// Page selection: empty means every page.
struct PageSelection {
  std::vector<PageRange> Ranges;
  bool Contains(int page) const;
  int Highest() const;  // 0 when empty
};

// "1-3,7", "2-" (to the end), "5". Null with *error set on anything else.
std::optional<PageSelection> ParsePages(std::string_view text, std::string* error);

// "fit" → null percent; "100%" or "100" → 100. Accepts 1 to 1000 percent.
struct Scale {
  std::optional<double> Percent;  // null: fit the printable area
};
std::optional<Scale> ParseScale(std::string_view text, std::string* error);

// The name among `names` that `typed` most likely misspells (a few letters changed, missing, extra or
// swapped, in any case), for a "did you mean" hint; empty when none is close.
std::string ClosestName(std::string_view typed, const std::vector<std::string>& names);

// The one-line message for a value that is none of the choices: "unknown paper 'a3'; did you mean
// 'a4'? (a4, letter, ...)".
std::string UnknownChoice(std::string_view what, std::string_view typed, const std::vector<std::string>& names);

struct PrintOptions {
  std::vector<std::string> Inputs;
  std::string Output;
  std::string Paper = std::string(host::Papers().front().Name);
  int Quality = host::kDefaultQuality;  // dpi
  bool HighRes = false;
  std::string Media = std::string(host::kMedia[0].Name);
  host::Halftone Method = host::Halftone::Dither;
  bool Mono = false;
  bool Landscape = false;
  int BandHeight = 256;  // rows
  PageSelection Pages;
  Scale Fit;
  bool Quiet = false;
  std::string Plugin;        // empty: the library next to the program or the one it was built with
  std::string InputProfile;  // ICC profile for raster pictures, in place of their own; empty: theirs, or sRGB

  int Dpi() const { return HighRes ? 600 : Quality; }
};

// Where a page of DocumentWidth x DocumentHeight dots (its natural size at the device resolution)
// lands in a printable area of AreaWidth x AreaHeight dots: scaled to fit (keeping its aspect) or by a
// fixed percentage, and centred. Width and Height are the scaled size; Left and Top may be negative
// when the page is larger than the area (it is then cropped about its centre).
struct Placement {
  double Factor = 1.0;  // scaled size / natural size
  std::int64_t Width = 0;
  std::int64_t Height = 0;
  std::int64_t Left = 0;
  std::int64_t Top = 0;
};
Placement PlacePage(double documentWidth, double documentHeight, std::int64_t areaWidth, std::int64_t areaHeight,
                    const Scale& scale);

}  // namespace inkweave::cli
