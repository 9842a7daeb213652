#include "src/plugin/string_table.h"

namespace inkweave {
namespace {

constexpr StringEntry kEnglish[] = {
    {257, "Level 1 (Darkest)"},
    {258, "Level 2"},
    {259, "Level 3 (Lightest)"},
    {260, "Regular"},
    {261, "Thick Paper"},
    {262, "Sleep Time"},
    {263, "Automatic"},
    {264, "Manual Settings"},
    {265, "Change Setting"},
    {266, "Halftone Settings"},
    {267, "Thicker Paper"},
    {268, "Tranparency"},
    {269, "Dither"},
    {270, "Erorr Diffusion"},
    {271, "600x600 High resolution"},
    {272, "1200x1200 Print"},
    {1000, "Plain Paper"},
    {1001, "Inkjet Paper"},
    {1002, "Glossy Paper"},
    {1003, "Photographic Paper"},
    {1030, "Color Mode Setting"},
    {1031, "Color"},
    {1032, "Monochrome"},
};

}  // namespace

std::span<const StringEntry> EnglishStrings() { return kEnglish; }

const char* EnglishString(std::uint16_t id) {
  for (const StringEntry& entry : kEnglish)
    if (entry.Id == id) return entry.Text;
  return nullptr;
}

}  // namespace inkweave
