// The choices a job offers besides the paper (host/papers.h): print quality, colour, halftone, paper
// type and the high-resolution modes. Each is declared once here with every name it goes by (the inkweave
// command's option value, the printer description's choice, the IPP keyword), the id of its display
// string and the selection command that sends it; the command, the CUPS filter, the PPD generator and
// the string generator read them from here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/host.h"
#include "host/papers.h"

namespace inkweave::host {

// Print qualities (dmPrintQuality): the device context is set up at one of them. Each is a resolution
// and the IPP print-quality it answers, named as the printer description's cupsPrintQuality names it.
struct QualityChoice {
  int Dpi;
  std::string_view Name;     // command line, e.g. "draft" (the dpi is accepted too)
  std::string_view PpdName;  // choice of kQualityKeyword, e.g. "Draft"
  int IppQuality;            // IPP print-quality: 3 draft, 4 normal, 5 high
};
inline constexpr QualityChoice kPrintQualities[] = {
    {150, "draft", "Draft", 3},
    {300, "normal", "Normal", 4},
    {600, "high", "High", 5},
};
inline constexpr int kDefaultQuality = 300;
// The resolutions alone, dpi.
inline constexpr std::array<int, std::size(kPrintQualities)> kQualities = [] {
  std::array<int, std::size(kPrintQualities)> dpi{};
  for (std::size_t i = 0; i < dpi.size(); ++i) dpi[i] = kPrintQualities[i].Dpi;
  return dpi;
}();

// The printer description's option keywords (the PPD's and the platform's printer description's).
inline constexpr std::string_view kColorKeyword = "ColorModel";
inline constexpr std::string_view kHalftoneKeyword = "InkweaveHalftone";
inline constexpr std::string_view kMediaKeyword = "MediaType";
inline constexpr std::string_view kHighResKeyword = "InkweaveHighRes";
inline constexpr std::string_view kQualityKeyword = "cupsPrintQuality";
inline constexpr std::string_view kResolutionKeyword = "Resolution";
// Display strings of the option titles that have one.
inline constexpr std::uint16_t kColorTitleId = 1030;
inline constexpr std::uint16_t kHalftoneTitleId = 266;

// Colour (the default) or black ink only (dmColor); the command line's --mono is Gray.
struct ColorChoice {
  bool Color;
  std::string_view PpdName;  // choice of kColorKeyword
  std::uint16_t StringId;    // display string
};
inline constexpr ColorChoice kColorModes[] = {
    {true, "RGB", 1031},
    {false, "Gray", 1032},
};

enum class Halftone { Dither, Diffusion };  // in the order of kHalftones

struct HalftoneChoice {
  Halftone Method;
  std::string_view Name;         // command line, e.g. "diffusion"
  std::string_view PpdName;      // choice of kHalftoneKeyword, e.g. "Diffusion"
  std::string_view Description;  // for messages, e.g. "error diffusion"
  std::uint16_t StringId;        // display string
  DWORD Callback;                // the selection command
};
inline constexpr HalftoneChoice kHalftones[] = {
    {Halftone::Dither, "dither", "Dither", "dither", 269, kCallbackDither},
    {Halftone::Diffusion, "diffusion", "Diffusion", "error diffusion", 270, kCallbackErrorDiffusion},
};

// Paper types. The first is the default, and what a job that names none prints on. The printer
// description's choice names are those CUPS turns into the standard IPP media-type keywords.
struct Medium {
  std::string_view Name;        // command line, e.g. "glossy"
  std::string_view PpdName;     // choice of kMediaKeyword, e.g. "Glossy"
  std::string_view IppKeyword;  // IPP media-type, e.g. "photographic-glossy"
  std::uint16_t StringId;       // display string
  DWORD Callback;               // the selection command
};
inline constexpr Medium kMedia[] = {
    {"plain", "Plain", "stationery", 1000, kCallbackMediaPlain},
    {"inkjet", "Inkjet", "stationery-inkjet", 1001, kCallbackMediaInkjet},
    {"glossy", "Glossy", "photographic-glossy", 1002, kCallbackMediaGlossy},
    {"photo", "Photographic", "photographic", 1003, kCallbackMediaPhoto},
};

// The file name of the printer's ICC profile for a paper type (the CUPS queue installs one for each).
inline std::string IccProfileName(const Medium& medium) { return "inkweave-" + std::string(medium.Name) + ".icc"; }

// The high-resolution modes. Both on-modes print at 600 dpi with the high-resolution command; the
// command line's --high-res is HighRes600. The printer description offers Off and HighRes600 only:
// Print1200 prints exactly as HighRes600 does (not at 1200 dpi), and is still read from a queue set up
// with it.
enum class HighRes { Off, HighRes600, Print1200 };  // in the order of kHighResModes

struct HighResChoice {
  HighRes Mode;
  std::string_view PpdName;  // choice of kHighResKeyword
  std::uint16_t StringId;    // display string; 0: none (the PPD says "Off")
  bool Offered;              // a choice of the printer description
};
inline constexpr HighResChoice kHighResModes[] = {
    {HighRes::Off, "Off", 0, true},
    {HighRes::HighRes600, "HighRes600", 271, true},
    {HighRes::Print1200, "Print1200", 272, false},
};

static_assert(kHalftones[static_cast<int>(Halftone::Diffusion)].Method == Halftone::Diffusion);
static_assert(kHighResModes[static_cast<int>(HighRes::Print1200)].Mode == HighRes::Print1200);

constexpr const HalftoneChoice& ChoiceOf(Halftone method) { return kHalftones[static_cast<int>(method)]; }
constexpr const HighResChoice& ChoiceOf(HighRes mode) { return kHighResModes[static_cast<int>(mode)]; }

// By any of its names, in any case (SameName); null for a name that is none of them. A quality is
// also found by its dpi ("600", "600dpi").
constexpr const HalftoneChoice* FindHalftone(std::string_view name) {
  for (const HalftoneChoice& h : kHalftones)
    if (SameName(h.Name, name) || SameName(h.PpdName, name)) return &h;
  return nullptr;
}
constexpr const Medium* FindMedium(std::string_view name) {
  for (const Medium& m : kMedia)
    if (SameName(m.Name, name) || SameName(m.PpdName, name) || SameName(m.IppKeyword, name)) return &m;
  return nullptr;
}
constexpr const QualityChoice* FindQuality(std::string_view name) {
  if (name.size() > 3 && SameName(name.substr(name.size() - 3), "dpi")) name.remove_suffix(3);
  int dpi = name.empty() ? -1 : 0;
  for (char c : name) {
    if (c < '0' || c > '9' || dpi > 10000) {
      dpi = -1;
      break;
    }
    dpi = dpi * 10 + (c - '0');
  }
  for (const QualityChoice& q : kPrintQualities)
    if (SameName(q.Name, name) || SameName(q.PpdName, name) || dpi == q.Dpi) return &q;
  return nullptr;
}

}  // namespace inkweave::host
