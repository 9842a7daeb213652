// The papers the device knows: their names, platform paper number, size, and the printable area at a
// resolution.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "src/device/plane_geometry.h"

namespace inkweave::host {

// Names compared as users type them: ASCII case does not matter.
constexpr bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

struct Paper {
  std::string_view Name;     // command-line name, e.g. "a4"
  std::string_view PpdName;  // the printer description's PageSize choice, e.g. "EnvDL"
  std::string_view Title;    // e.g. "A4 (210 x 297 mm)"
  std::int16_t Code;         // platform paper size number
  double WidthMm;            // portrait width
  double HeightMm;           // portrait height
  bool Envelope;
  std::string_view PwgName = {};  // the standard (IPP) media name, e.g. "iso_dl_110x220mm"
};

// Unprintable margins of the device, mm (left, right, top, bottom).
inline constexpr double kMarginSideMm = 3.4;
inline constexpr double kMarginTopMm = 3.0;
inline constexpr double kMarginBottomMm = 5.0;
// Widest line the plug-in takes, dots: what one of its dot planes holds. The host includes this one
// header of the core for it (a constant; the host links nothing of the core and calls it only through
// its exports), so that it never offers a page the plug-in would refuse.
inline constexpr std::uint32_t kMaxLineDots = kPlaneDots;

// Every paper, the default (A4) first.
std::span<const Paper> Papers();
// By any of its names (command line, printer description, standard), in any case: "a4", "A4",
// "iso_a4_210x297mm"; "dl", "EnvDL", "iso_dl_110x220mm".
std::optional<Paper> FindPaper(std::string_view name);
std::optional<Paper> FindPaper(std::int16_t code);

struct PrintableArea {
  std::uint32_t Width;   // device pixels, portrait
  std::uint32_t Height;  // device pixels, portrait
  std::uint32_t Left;    // device pixels from the paper's left edge
  std::uint32_t Top;     // device pixels from the paper's top edge
};
PrintableArea PrintableAreaOf(const Paper& paper, int dpi);

}  // namespace inkweave::host
