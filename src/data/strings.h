// The plug-in's display strings, referred to by id from the printer descriptions: the string library
// (inkweave_strings). The table is generated from locale/strings.tsv, where every language lives, by
// tools/gen_strings.cpp; the Windows DLL carries the same table in all its languages as resources.
// English texts as the product has always shipped them (its misspellings included).
#pragma once

#include <cstdint>
#include <span>

namespace inkweave {

struct StringEntry {
  std::uint16_t Id;
  const char* Text;  // UTF-8
};

// Ids 257..272, 1000..1003 and 1030..1032 in English (United States), ascending.
std::span<const StringEntry> EnglishStrings();

// The English text of an id; null for an id the table does not hold.
inline const char* EnglishString(std::uint16_t id) {
  for (const StringEntry& entry : EnglishStrings())
    if (entry.Id == id) return entry.Text;
  return nullptr;
}

}  // namespace inkweave
