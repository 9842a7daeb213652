// Reads the string resources of a library back, every language of every RT_STRING block.
// Declared without <windows.h> (whose types clash with platform/platform.h); resources.cpp includes
// <windows.h> and nothing of ours beyond this header.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace inkweave::hosttest {

struct StringResource {
  std::uint16_t Language;  // Windows language id, e.g. 0x0409
  std::uint16_t Id;
  std::string Text;  // UTF-8
};

// Every non-empty string of the library at path, ordered by language and id. False, with the reason
// in *error, when the library cannot be loaded or its resources read.
bool ReadStringResources(const std::string& path, std::vector<StringResource>* strings, std::string* error);

// The file version of the library's version resource, "major.minor.patch.build"; empty without one.
std::string ReadFileVersion(const std::string& path);

// The text LoadStringW gives for id in the process's own UI language (the Windows loader's choice
// among the languages); empty when there is none.
std::string LoadStringDefault(const std::string& path, std::uint16_t id);

}  // namespace inkweave::hosttest
