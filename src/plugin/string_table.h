// The plug-in's display strings, referred to by id from the printer description. English texts as
// the product has always shipped them (its misspellings included).
#pragma once

#include <cstdint>
#include <span>

namespace inkweave {

struct StringEntry {
  std::uint16_t Id;
  const char* Text;  // UTF-8
};

// Ids 257..272, 1000..1003 and 1030..1032 in English (United States).
std::span<const StringEntry> EnglishStrings();
// The English text of an id; null for an id the table does not hold.
const char* EnglishString(std::uint16_t id);

}  // namespace inkweave
