// The sheet under a page: the paper command names it, the printer puts the print on it.
//
// Paper codes of "s" (the envelope codes are followed by "Fn"): 01 A4 (C4 envelope with "Fn"), the long
// form FF E8 02 Letter or Legal, 03 Executive, 07 A5, 05 B5 envelope, 06 C5 envelope, 0C No. 10
// envelope, 0A DL envelope, 0D Monarch envelope; FF names no size. Where one code names two sheets the
// smaller is taken unless the print runs past it. The printer starts every page 3.4 mm from the
// sheet's left edge and 3 mm below its top edge (its unprintable margins; 5 mm stay free at the bottom).
#include <algorithm>
#include <cmath>
#include <vector>

#include "decode/decoder.h"

namespace inkweave::decode {
namespace {

constexpr double kLeftMarginMm = 3.4;
constexpr double kTopMarginMm = 3.0;
constexpr double kBottomMarginMm = 5.0;
constexpr double kMmPerInch = 25.4;

struct SheetSize {
  const char* Name;
  double WidthMm;
  double HeightMm;
};

constexpr SheetSize kA4 = {"A4", 210.0, 297.0};
constexpr SheetSize kC4 = {"C4 envelope", 229.0, 324.0};
constexpr SheetSize kLetter = {"Letter", 215.9, 279.4};
constexpr SheetSize kLegal = {"Legal", 215.9, 355.6};

// The sheets a paper command can mean, smallest first.
std::vector<SheetSize> Candidates(const Settings& settings) {
  if (settings.PaperLong) return {kLetter, kLegal};
  switch (settings.Paper) {
    case 0x01: return settings.Envelope ? std::vector<SheetSize>{kC4} : std::vector<SheetSize>{kA4, kC4};
    case 0x03: return {{"Executive", 184.15, 266.7}};
    case 0x07: return {{"A5", 148.0, 210.0}};
    case 0x05: return {{"B5 envelope", 176.0, 250.0}};
    case 0x06: return {{"C5 envelope", 162.0, 229.0}};
    case 0x0C: return {{"No. 10 envelope", 104.775, 241.3}};
    case 0x0A: return {{"DL envelope", 110.0, 220.0}};
    case 0x0D: return {{"Monarch envelope", 98.425, 190.5}};
    default: return {};
  }
}

// Whole dots of a length, rounded down (as the host measures its printable area).
int Dots(double mm, int dpi) { return static_cast<int>(mm * dpi / kMmPerInch + 1e-9); }

}  // namespace

Sheet FindSheet(const Settings& settings, int dpi, int widthDots, int heightRows) {
  Sheet sheet;
  if (dpi <= 0) dpi = 300;
  sheet.LeftDots = Dots(kLeftMarginMm, dpi);
  sheet.TopDots = Dots(kTopMarginMm, dpi);
  // The print with the margins around it: what a sheet must hold.
  const int neededWidth = sheet.LeftDots + widthDots;
  const int neededHeight = sheet.TopDots + heightRows;
  const auto holds = [&](const SheetSize& size) {
    return Dots(size.WidthMm, dpi) >= neededWidth && Dots(size.HeightMm, dpi) >= neededHeight;
  };
  const std::vector<SheetSize> candidates = Candidates(settings);
  if (candidates.empty()) {
    sheet.Name = "unknown";
    sheet.WidthDots = neededWidth + sheet.LeftDots;
    sheet.HeightDots = neededHeight + Dots(kBottomMarginMm, dpi);
  } else {
    const auto fits = std::find_if(candidates.begin(), candidates.end(), holds);
    const SheetSize& size = fits != candidates.end() ? *fits : candidates.back();
    sheet.Name = size.Name;
    sheet.Known = true;
    sheet.Overrun = fits == candidates.end();
    sheet.WidthMm = size.WidthMm;
    sheet.HeightMm = size.HeightMm;
    sheet.WidthDots = std::max(Dots(size.WidthMm, dpi), neededWidth);
    sheet.HeightDots = std::max(Dots(size.HeightMm, dpi), neededHeight);
  }
  if (!sheet.Known || sheet.Overrun) {
    sheet.WidthMm = sheet.WidthDots * kMmPerInch / dpi;
    sheet.HeightMm = sheet.HeightDots * kMmPerInch / dpi;
  }
  return sheet;
}

}  // namespace inkweave::decode
