// Writes the plug-in's display strings, kept in locale/strings.tsv, in the three forms they are used:
//
//   - windows/generated/strings.rc: the resource script compiled into inkweave.dll, one STRINGTABLE
//     per language under its LANGUAGE statement, UTF-8 text under `#pragma code_page(65001)`;
//   - cups/generated/translations.ppd: the PPD fragment of localisation lines that the CUPS PPD
//     appends (`*cupsLanguages` and, per language, the translations of the options whose display
//     text has a string id; the options and their choices are the host's, host/choices.h);
//   - src/data/generated/english_strings.cpp: the English table of the string library
//     (src/data/strings.h) that the inkweave command and the PPD generator print from.
//
// The table is checked before anything is written: known languages and ids only, no id twice, every
// language complete (Arabic and Hebrew carry neither 1000-1003 nor anything else missing), and no
// text that either format cannot carry as it stands (quotes, backslashes, colons, slashes).
//
// Usage: gen-strings <strings.tsv> <strings.rc> <translations.ppd> <english_strings.cpp>. Standard
// library and our own headers only; the output depends on the table alone (languages in the fixed order
// below, ids ascending).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/choices.h"
#include "tools/generator.h"

namespace {

constexpr const char* kTool = "gen_strings.cpp";
constexpr const char* kSource = "locale/strings.tsv";

struct Language {
  std::string_view Tag;  // PPD language tag (en: English (United States), the PPD's own language)
  std::string_view Name;
  int Primary;      // Windows primary language id
  int Sub;          // Windows sublanguage id
  bool PaperTypes;  // carries ids 1000-1003
};

// The 24 languages, in the order the resource script lists them.
constexpr Language kLanguages[] = {
    {"ar", "Arabic (Saudi Arabia)", 0x01, 0x01, false},
    {"zh_TW", "Chinese (Traditional, Taiwan)", 0x04, 0x01, true},
    {"cs", "Czech", 0x05, 0x01, true},
    {"da", "Danish", 0x06, 0x01, true},
    {"de", "German", 0x07, 0x01, true},
    {"el", "Greek", 0x08, 0x01, true},
    {"en", "English (United States)", 0x09, 0x01, true},
    {"fi", "Finnish", 0x0B, 0x01, true},
    {"fr", "French", 0x0C, 0x01, true},
    {"he", "Hebrew", 0x0D, 0x01, false},
    {"hu", "Hungarian", 0x0E, 0x01, true},
    {"it", "Italian", 0x10, 0x01, true},
    {"ja", "Japanese", 0x11, 0x01, true},
    {"ko", "Korean", 0x12, 0x01, true},
    {"nl", "Dutch", 0x13, 0x01, true},
    {"no", "Norwegian (Bokmal)", 0x14, 0x01, true},
    {"pl", "Polish", 0x15, 0x01, true},
    {"pt_BR", "Portuguese (Brazil)", 0x16, 0x01, true},
    {"ru", "Russian", 0x19, 0x01, true},
    {"sv", "Swedish", 0x1D, 0x01, true},
    {"tr", "Turkish", 0x1F, 0x01, true},
    {"zh_CN", "Chinese (Simplified, PRC)", 0x04, 0x02, true},
    {"pt", "Portuguese (Portugal)", 0x16, 0x02, true},
    {"es", "Spanish (Modern Sort)", 0x0A, 0x03, true},
};

constexpr int kIds[] = {257, 258, 259, 260, 261,  262,  263,  264,  265,  266,  267, 268,
                        269, 270, 271, 272, 1000, 1001, 1002, 1003, 1030, 1031, 1032};
bool IsPaperType(int id) { return id >= 1000 && id <= 1003; }

// The PPD lines: main keyword (with "Translation" for an option's own title), option, string id.
struct PpdLine {
  std::string_view Keyword;
  std::string_view Option;
  int Id;
};

// Every option and choice of the printer description whose display text has a string id.
std::vector<PpdLine> PpdLines() {
  namespace host = inkweave::host;
  std::vector<PpdLine> lines;
  lines.push_back({"Translation", host::kColorKeyword, host::kColorTitleId});
  for (const host::ColorChoice& c : host::kColorModes) lines.push_back({host::kColorKeyword, c.PpdName, c.StringId});
  lines.push_back({"Translation", host::kHalftoneKeyword, host::kHalftoneTitleId});
  for (const host::HalftoneChoice& h : host::kHalftones)
    lines.push_back({host::kHalftoneKeyword, h.PpdName, h.StringId});
  for (const host::Medium& m : host::kMedia) lines.push_back({host::kMediaKeyword, m.PpdName, m.StringId});
  for (const host::HighResChoice& h : host::kHighResModes)
    if (h.StringId != 0 && h.Offered) lines.push_back({host::kHighResKeyword, h.PpdName, h.StringId});
  return lines;
}
constexpr std::size_t kPpdLineMax = 255;     // bytes, the PPD limit
constexpr std::size_t kTranslationMax = 80;  // bytes, kept well inside the PPD's limit

using Table = std::map<std::string, std::map<int, std::string>>;  // tag → id → text

bool Fail(const std::string& message) {
  std::fprintf(stderr, "gen-strings: %s\n", message.c_str());
  return false;
}

bool ReadTable(const char* path, Table* table) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return Fail(std::string("cannot read ") + path);
  std::string line;
  int number = 0;
  bool header = false;
  while (std::getline(in, line)) {
    ++number;
    const std::string where = std::string(path) + ":" + std::to_string(number) + ": ";
    if (!line.empty() && line.back() == '\r') return Fail(where + "CR line ending");
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> fields;
    std::stringstream split(line);
    for (std::string field; std::getline(split, field, '\t');) fields.push_back(field);
    if (fields.size() != 3) return Fail(where + "expected 3 tab-separated fields");
    if (!header) {
      if (fields[0] != "lang" || fields[1] != "id" || fields[2] != "text") return Fail(where + "bad header");
      header = true;
      continue;
    }
    const auto language = std::find_if(std::begin(kLanguages), std::end(kLanguages),
                                       [&](const Language& l) { return l.Tag == fields[0]; });
    if (language == std::end(kLanguages)) return Fail(where + "unknown language " + fields[0]);
    const int id = std::atoi(fields[1].c_str());
    if (std::find(std::begin(kIds), std::end(kIds), id) == std::end(kIds) || std::to_string(id) != fields[1])
      return Fail(where + "unknown string id " + fields[1]);
    const std::string& text = fields[2];
    if (text.empty() || text.front() == ' ' || text.back() == ' ') return Fail(where + "empty or padded text");
    if (text.find_first_of("\"\\:/") != std::string::npos)
      return Fail(where + "text holds a quote, backslash, colon or slash");
    if (!(*table)[fields[0]].emplace(id, text).second) return Fail(where + "id given twice");
  }
  if (!header) return Fail(std::string(path) + ": no header line");

  for (const Language& language : kLanguages) {
    const auto& strings = (*table)[std::string(language.Tag)];
    for (int id : kIds) {
      const bool wanted = language.PaperTypes || !IsPaperType(id);
      if (wanted != (strings.count(id) == 1))
        return Fail(std::string(language.Tag) + ": id " + std::to_string(id) + (wanted ? " missing" : " not wanted"));
    }
  }
  return true;
}

std::string ResourceScript(const Table& table) {
  std::ostringstream out;
  out << inkweave::tools::Provenance(kTool, kSource)
      << "// The display strings that the printer description refers to by id, in 24 languages.\n"
         "#pragma code_page(65001)\n";
  char language[64];
  for (const Language& l : kLanguages) {
    std::snprintf(language, sizeof language, "LANGUAGE 0x%02X, 0x%02X", l.Primary, l.Sub);
    out << "\n// " << l.Name << "\n" << language << "\nSTRINGTABLE\nBEGIN\n";
    for (const auto& [id, text] : table.at(std::string(l.Tag))) out << "  " << id << ", \"" << text << "\"\n";
    out << "END\n";
  }
  return out.str();
}

bool PpdFragment(const Table& table, std::string* fragment) {
  std::ostringstream out;
  out << inkweave::tools::Provenance(kTool, kSource, "*%")
      << "*% Translations of the inkweave options, appended to the PPD.\n";
  std::string languages;
  for (const Language& l : kLanguages)
    if (l.Tag != "en") {
      if (!languages.empty()) languages += ' ';
      languages.append(l.Tag);
    }
  out << "*cupsLanguages: \"" << languages << "\"\n";
  for (const Language& l : kLanguages) {
    if (l.Tag == "en") continue;
    out << "*%\n*% " << l.Name << "\n";
    const auto& strings = table.at(std::string(l.Tag));
    for (const PpdLine& p : PpdLines()) {
      const auto text = strings.find(p.Id);
      if (text == strings.end()) continue;  // left untranslated (Arabic and Hebrew paper types)
      // Appended piece by piece: GCC 12 at -O3 reports a false -Wrestrict for `"literal" + std::string`.
      std::string line = "*";
      line.append(l.Tag).append(".").append(p.Keyword).append(" ").append(p.Option).append("/");
      line.append(text->second).append(": \"\"");
      if (text->second.size() > kTranslationMax) return Fail(line + ": translation too long");
      if (line.size() > kPpdLineMax) return Fail(line + ": line too long");
      out << line << "\n";
    }
  }
  *fragment = out.str();
  return true;
}

// The English rows as the string library's table.
std::string EnglishTable(const Table& table) {
  std::string out = inkweave::tools::Provenance(kTool, kSource);
  out +=
      "// The display strings in English (United States), the language of the printer descriptions.\n"
      "#include \"src/data/strings.h\"\n\n"
      "namespace inkweave {\n"
      "namespace {\n\n"
      "constexpr StringEntry kEnglish[] = {\n";
  for (const auto& [id, text] : table.at("en")) inkweave::tools::Appendf(out, "    {%d, \"%s\"},\n", id, text.c_str());
  out +=
      "};\n\n"
      "}  // namespace\n\n"
      "std::span<const StringEntry> EnglishStrings() { return kEnglish; }\n\n"
      "}  // namespace inkweave\n";
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: gen-strings <strings.tsv> <strings.rc> <translations.ppd> <english_strings.cpp>\n");
    return 2;
  }
  Table table;
  std::string fragment;
  if (!ReadTable(argv[1], &table) || !PpdFragment(table, &fragment)) return 1;
  using inkweave::tools::WriteGenerated;
  const bool written = WriteGenerated(kTool, argv[2], ResourceScript(table)) &&
                       WriteGenerated(kTool, argv[3], fragment) && WriteGenerated(kTool, argv[4], EnglishTable(table));
  return written ? 0 : 1;
}
