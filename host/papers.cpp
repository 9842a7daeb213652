#include "host/papers.h"

namespace inkweave::host {
namespace {

constexpr Paper kPapers[] = {
    {"a4", "A4", "A4 (210 x 297 mm)", 9, 210.0, 297.0, false, "iso_a4_210x297mm"},
    {"letter", "Letter", "Letter (8.5 x 11 in)", 1, 215.9, 279.4, false, "na_letter_8.5x11in"},
    {"legal", "Legal", "Legal (8.5 x 14 in)", 5, 215.9, 355.6, false, "na_legal_8.5x14in"},
    {"executive", "Executive", "Executive (7.25 x 10.5 in)", 7, 184.15, 266.7, false, "na_executive_7.25x10.5in"},
    {"a5", "A5", "A5 (148 x 210 mm)", 11, 148.0, 210.0, false, "iso_a5_148x210mm"},
    {"env10", "Env10", "Envelope No. 10 (4.125 x 9.5 in)", 20, 104.775, 241.3, true, "na_number-10_4.125x9.5in"},
    {"dl", "EnvDL", "Envelope DL (110 x 220 mm)", 27, 110.0, 220.0, true, "iso_dl_110x220mm"},
    {"c5", "EnvC5", "Envelope C5 (162 x 229 mm)", 28, 162.0, 229.0, true, "iso_c5_162x229mm"},
    {"c4", "EnvC4", "Envelope C4 (229 x 324 mm)", 30, 229.0, 324.0, true, "iso_c4_229x324mm"},
    {"b5-envelope", "EnvISOB5", "Envelope B5 (176 x 250 mm)", 34, 176.0, 250.0, true, "iso_b5_176x250mm"},
    {"monarch", "EnvMonarch", "Envelope Monarch (3.875 x 7.5 in)", 37, 98.425, 190.5, true, "na_monarch_3.875x7.5in"},
};

// Whole dots in mm; none for a length of zero or less (a sheet narrower than its margins).
std::uint32_t Dots(double mm, int dpi) {
  const double dots = mm / 25.4 * dpi;
  return dots > 0 ? static_cast<std::uint32_t>(dots) : 0;
}

}  // namespace

std::span<const Paper> Papers() { return kPapers; }

std::optional<Paper> FindPaper(std::string_view name) {
  for (const Paper& p : kPapers)
    if (SameName(p.Name, name) || SameName(p.PpdName, name) || SameName(p.PwgName, name)) return p;
  return std::nullopt;
}

std::optional<Paper> FindPaper(std::int16_t code) {
  for (const Paper& p : kPapers)
    if (p.Code == code) return p;
  return std::nullopt;
}

PrintableArea PrintableAreaOf(const Paper& paper, int dpi) {
  PrintableArea area;
  area.Left = Dots(kMarginSideMm, dpi);
  area.Top = Dots(kMarginTopMm, dpi);
  area.Width = Dots(paper.WidthMm - 2 * kMarginSideMm, dpi);
  area.Height = Dots(paper.HeightMm - kMarginTopMm - kMarginBottomMm, dpi);
  return area;
}

}  // namespace inkweave::host
