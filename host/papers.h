// The papers the device knows: platform paper number, size, and the printable area at a resolution.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace inkweave::host {

struct Paper {
  std::string_view Name;   // command-line name, e.g. "a4"
  std::string_view Title;  // e.g. "A4 (210 x 297 mm)"
  std::int16_t Code;       // platform paper size number
  double WidthMm;          // portrait width
  double HeightMm;         // portrait height
  bool Envelope;
};

// Unprintable margins of the device, mm (left, right, top, bottom).
inline constexpr double kMarginSideMm = 3.4;
inline constexpr double kMarginTopMm = 3.0;
inline constexpr double kMarginBottomMm = 5.0;
// Widest line a dot plane holds, dots.
inline constexpr std::uint32_t kMaxLineDots = 5120;

std::span<const Paper> Papers();
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
