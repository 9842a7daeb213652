// Reads locale/strings.tsv for the tests: (language tag, id) → text, and the Windows language id
// each tag must carry in the DLL's resources (written out here on its own, as a check on the
// generator's table).
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>

namespace inkweave::testing {

using StringsTable = std::map<std::pair<std::string, int>, std::string>;

inline StringsTable ReadStringsTable(const std::string& path) {
  StringsTable table;
  std::ifstream in(path, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#' || line.rfind("lang\t", 0) == 0) continue;
    std::istringstream split(line);
    std::string tag, id, text;
    std::getline(split, tag, '\t');
    std::getline(split, id, '\t');
    std::getline(split, text);
    table[{tag, std::stoi(id)}] = text;
  }
  return table;
}

inline const std::map<std::string, std::uint16_t>& WindowsLanguageIds() {
  static const std::map<std::string, std::uint16_t> ids = {
      {"ar", 0x0401}, {"zh_TW", 0x0404}, {"cs", 0x0405}, {"da", 0x0406},    {"de", 0x0407}, {"el", 0x0408},
      {"en", 0x0409}, {"fi", 0x040B},    {"fr", 0x040C}, {"he", 0x040D},    {"hu", 0x040E}, {"it", 0x0410},
      {"ja", 0x0411}, {"ko", 0x0412},    {"nl", 0x0413}, {"no", 0x0414},    {"pl", 0x0415}, {"pt_BR", 0x0416},
      {"ru", 0x0419}, {"sv", 0x041D},    {"tr", 0x041F}, {"zh_CN", 0x0804}, {"pt", 0x0816}, {"es", 0x0C0A},
  };
  return ids;
}

}  // namespace inkweave::testing
