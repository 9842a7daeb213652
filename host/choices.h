// The choices a job offers besides the paper (host/papers.h): print quality, colour, halftone, paper
// type and the high-resolution modes. Each is declared once here with every name it goes by (the inkweave
// command's option value, the printer description's choice, the IPP keyword), the id of its display
// string and the selection command that sends it; the command, the CUPS filter, the PPD generator and
// the string generator read them from here.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/host.h"

namespace inkweave::host {

// Print qualities, dpi (dmPrintQuality); the device context is set up at one of them.
inline constexpr int kQualities[] = {150, 300, 600};
inline constexpr int kDefaultQuality = 300;

// The printer description's option keywords (the PPD's and the platform's printer description's).
inline constexpr std::string_view kColorKeyword = "ColorModel";
inline constexpr std::string_view kHalftoneKeyword = "InkweaveHalftone";
inline constexpr std::string_view kMediaKeyword = "MediaType";
inline constexpr std::string_view kHighResKeyword = "InkweaveHighRes";
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

// Paper types. The first is the default, and what a job that names none prints on.
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
    {"photo", "Photo", "photographic", 1003, kCallbackMediaPhoto},
};

// The high-resolution modes of the printer description. Both on-choices print at 600 dpi with the
// high-resolution command; the command line's --high-res is HighRes600.
enum class HighRes { Off, HighRes600, Print1200 };  // in the order of kHighResModes

struct HighResChoice {
  HighRes Mode;
  std::string_view PpdName;  // choice of kHighResKeyword
  std::uint16_t StringId;    // display string; 0: none (the PPD says "Off")
};
inline constexpr HighResChoice kHighResModes[] = {
    {HighRes::Off, "Off", 0},
    {HighRes::HighRes600, "HighRes600", 271},
    {HighRes::Print1200, "Print1200", 272},
};

static_assert(kHalftones[static_cast<int>(Halftone::Diffusion)].Method == Halftone::Diffusion);
static_assert(kHighResModes[static_cast<int>(HighRes::Print1200)].Mode == HighRes::Print1200);

constexpr const HalftoneChoice& ChoiceOf(Halftone method) { return kHalftones[static_cast<int>(method)]; }
constexpr const HighResChoice& ChoiceOf(HighRes mode) { return kHighResModes[static_cast<int>(mode)]; }

// By command-line name; null for a name that is none of them.
constexpr const HalftoneChoice* FindHalftone(std::string_view name) {
  for (const HalftoneChoice& h : kHalftones)
    if (h.Name == name) return &h;
  return nullptr;
}
constexpr const Medium* FindMedium(std::string_view name) {
  for (const Medium& m : kMedia)
    if (m.Name == name) return &m;
  return nullptr;
}

}  // namespace inkweave::host
