// Writes the printer description (PPD) of the CUPS queue. The page sizes and imageable areas come
// from the host's paper table and margins, the options and their choices from the host's choices
// (host/choices.h), the option texts from the English string table (src/data/strings.h), so the PPD
// cannot drift from any of them.
//
// The translations: the fragment that tools/gen_strings writes from the plug-in's own strings
// (locale/strings.tsv: "*cupsLanguages:" and "*<lang>.Translation <Keyword>/<text>" /
// "*<lang>.<Keyword> <Choice>/<text>" lines), appended as it stands, and for every option or choice it
// does not translate (the page sizes, the qualities, "Off", the paper types Arabic and Hebrew lack) the
// text of locale/ui.tsv in that language. A text missing from both is an error: every UI text has
// every language.
//
//   make_ppd <output.ppd> [translations.ppd ui.tsv]
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/choices.h"
#include "host/papers.h"
#include "src/data/strings.h"

namespace {

namespace host = inkweave::host;
using inkweave::host::Paper;

constexpr double kPointsPerMm = 72.0 / 25.4;

struct Choice {
  std::string Name;
  std::string Text;
  std::string Code;  // PostScript
};

struct Option {
  std::string Keyword;
  std::string Text;
  int Order;
  std::string Default;
  std::vector<Choice> Choices;
};

std::string Text(std::uint16_t id) {
  const char* text = inkweave::EnglishString(id);
  if (!text) {
    std::cerr << "make_ppd: the string table has no id " << id << "\n";
    std::exit(1);
  }
  return text;
}

std::string Points(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.2f", value);
  return buffer;
}

std::string SetPageDevice(const std::string& entries) { return "<<" + entries + ">>setpagedevice"; }

struct PaperSize {
  std::string Keyword, Title, Dimensions, Area;
};

std::vector<PaperSize> PaperSizes() {
  std::vector<PaperSize> sizes;
  for (const Paper& paper : inkweave::host::Papers()) {
    const long width = std::lround(paper.WidthMm * kPointsPerMm);
    const long height = std::lround(paper.HeightMm * kPointsPerMm);
    // Left, bottom, right, top in points, from the device's fixed margins.
    const double left = inkweave::host::kMarginSideMm * kPointsPerMm;
    const double bottom = inkweave::host::kMarginBottomMm * kPointsPerMm;
    const double top = height - inkweave::host::kMarginTopMm * kPointsPerMm;
    sizes.push_back({std::string(paper.PpdName), std::string(paper.Title),
                     std::to_string(width) + " " + std::to_string(height),
                     Points(left) + " " + Points(bottom) + " " + Points(width - left) + " " + Points(top)});
  }
  return sizes;
}

// Every option the user sees, with the shared keywords.
std::vector<Option> Options(const std::vector<PaperSize>& sizes) {
  std::vector<Option> options;

  Option pageSize{"PageSize", "Page Size", 10, sizes.front().Keyword, {}};
  for (const PaperSize& s : sizes)
    pageSize.Choices.push_back({s.Keyword, s.Title, SetPageDevice("/PageSize[" + s.Dimensions + "]/ImagingBBox null")});
  Option pageRegion = pageSize;
  pageRegion.Keyword = "PageRegion";
  pageRegion.Text = "Page Region";
  options.push_back(pageSize);
  options.push_back(pageRegion);

  // Resolution: the device's print qualities.
  Option resolution{
      std::string(host::kResolutionKeyword), "Resolution", 20, std::to_string(host::kDefaultQuality) + "dpi", {}};
  for (int dpi : host::kQualities) {
    const std::string d = std::to_string(dpi);
    resolution.Choices.push_back({d + "dpi", d + " dpi", SetPageDevice("/HWResolution[" + d + " " + d + "]")});
  }
  options.push_back(resolution);

  // Print quality, what IPP clients choose (print-quality draft, normal, high): after Resolution, so
  // Draft and High set their resolution over it; the default quality, the default resolution's, leaves
  // Resolution as it is chosen ("lp -o Resolution=600dpi" prints at 600 dpi).
  Option quality{std::string(host::kQualityKeyword), "Print Quality", 25, "", {}};
  for (const host::QualityChoice& q : host::kPrintQualities) {
    const std::string d = std::to_string(q.Dpi);
    const bool normal = q.Dpi == host::kDefaultQuality;
    quality.Choices.push_back({std::string(q.PpdName), std::string(q.PpdName),
                               normal ? "" : SetPageDevice("/HWResolution[" + d + " " + d + "]")});
    if (normal) quality.Default = q.PpdName;
  }
  options.push_back(quality);

  // High resolution: a 600 dpi mode; ordered after the qualities so that choosing it also sets 600 dpi,
  // and constrained against the lower resolutions (see Constraints). The filter reads the choice from
  // the PPD.
  Option highRes{std::string(host::kHighResKeyword), "High Resolution", 30, "", {}};
  for (const host::HighResChoice& h : host::kHighResModes) {
    if (!h.Offered) continue;
    const bool on = h.Mode != host::HighRes::Off;
    highRes.Choices.push_back(
        {std::string(h.PpdName), on ? Text(h.StringId) : "Off", on ? SetPageDevice("/HWResolution[600 600]") : ""});
  }
  highRes.Default = highRes.Choices.front().Name;
  options.push_back(highRes);

  // Media type: the raster header's MediaType names the paper-type command.
  Option media{std::string(host::kMediaKeyword), "Media Type", 10, std::string(host::kMedia[0].PpdName), {}};
  for (const host::Medium& m : host::kMedia) {
    const std::string name(m.PpdName);
    media.Choices.push_back({name, Text(m.StringId), SetPageDevice("/MediaType(" + name + ")")});
  }
  options.push_back(media);

  // Halftone: no effect on the raster; the filter reads the choice from the PPD.
  Option halftone{std::string(host::kHalftoneKeyword),
                  Text(host::kHalftoneTitleId),
                  10,
                  std::string(host::kHalftones[0].PpdName),
                  {}};
  for (const host::HalftoneChoice& h : host::kHalftones)
    halftone.Choices.push_back({std::string(h.PpdName), Text(h.StringId), ""});
  options.push_back(halftone);

  // Colour: 8-bit RGB or 8-bit luminance raster.
  Option color{
      std::string(host::kColorKeyword), Text(host::kColorTitleId), 10, std::string(host::kColorModes[0].PpdName), {}};
  for (const host::ColorChoice& c : host::kColorModes) {
    const char* space = c.Color ? "1" : "0";  // CUPS_CSPACE_RGB, CUPS_CSPACE_W
    color.Choices.push_back(
        {std::string(c.PpdName), Text(c.StringId),
         SetPageDevice(std::string("/cupsColorOrder 0/cupsColorSpace ") + space + "/cupsBitsPerColor 8")});
  }
  options.push_back(color);
  return options;
}

// The printer's ICC profiles, one per paper type, for colour pages ("RGB.<MediaType>."), titled as the
// paper type is; none when the build makes none.
struct Profile {
  std::string Qualifiers;  // ColorModel.MediaType.Resolution
  std::string MediaKey;    // "MediaType <choice>", whose texts the profile's title takes
  std::string Text;
  std::string Path;
};

std::vector<Profile> Profiles() {
  std::vector<Profile> profiles;
#ifdef INKWEAVE_ICC_DIR
  for (const host::Medium& m : host::kMedia) {
    const std::string choice(m.PpdName);
    profiles.push_back({std::string(host::kColorModes[0].PpdName) + "." + choice + ".",
                        std::string(host::kMediaKeyword) + " " + choice, Text(m.StringId),
                        std::string(INKWEAVE_ICC_DIR) + "/" + host::IccProfileName(m)});
  }
#endif
  return profiles;
}

// The choices that cannot go together, both ways round: the high-resolution mode prints at 600 dpi only.
std::vector<std::string> Constraints() {
  std::vector<std::string> pairs;
  const auto both = [&](const std::string& one, const std::string& other) {
    pairs.push_back(one + " " + other);
    pairs.push_back(other + " " + one);
  };
  for (const host::HighResChoice& h : host::kHighResModes) {
    if (!h.Offered || h.Mode == host::HighRes::Off) continue;
    const std::string mode = "*" + std::string(host::kHighResKeyword) + " " + std::string(h.PpdName);
    for (const host::QualityChoice& q : host::kPrintQualities) {
      if (q.Dpi == 600) continue;
      both(mode, "*" + std::string(host::kResolutionKeyword) + " " + std::to_string(q.Dpi) + "dpi");
      if (q.Dpi != host::kDefaultQuality)
        both(mode, "*" + std::string(host::kQualityKeyword) + " " + std::string(q.PpdName));
    }
  }
  return pairs;
}

void WritePpd(std::ostream& out, const std::vector<PaperSize>& sizes, const std::vector<Option>& options) {
  out << "*PPD-Adobe: \"4.3\"\n"
         "*% Printer description of the inkweave colour inkjet queue.\n"
         "*% Generated by cups/make_ppd.cpp from the paper and string tables. Do not edit.\n"
         "*FormatVersion: \"4.3\"\n"
         "*FileVersion: \"" INKWEAVE_VERSION
         "\"\n"
         "*LanguageVersion: English\n"
         "*LanguageEncoding: ISOLatin1\n"
         "*PCFileName: \"INKWEAVE.PPD\"\n"
         "*Manufacturer: \"Inkweave\"\n"
         "*Product: \"(Inkweave Colour Inkjet)\"\n"
         "*ModelName: \"Inkweave Colour Inkjet\"\n"
         "*ShortNickName: \"Inkweave Colour Inkjet\"\n"
         "*NickName: \"Inkweave Colour Inkjet, inkweave " INKWEAVE_VERSION
         "\"\n"
         "*PSVersion: \"(3010.000) 0\"\n"
         "*LanguageLevel: \"3\"\n"
         "*ColorDevice: True\n"
         "*DefaultColorSpace: RGB\n"
         "*FileSystem: False\n"
         "*Throughput: \"1\"\n"
         "*LandscapeOrientation: Plus90\n"
         "*TTRasterizer: Type42\n"
         "*cupsVersion: 2.4\n"
         "*cupsManualCopies: True\n"
         "*cupsFilter: \"application/vnd.cups-raster 0 rastertoinkweave\"\n"
         "*cupsFilter2: \"application/vnd.cups-raster application/vnd.inkweave-printer 0 rastertoinkweave\"\n"
         "\n";
  for (const Option& option : options) {
    out << "*OpenUI *" << option.Keyword << "/" << option.Text << ": PickOne\n"
        << "*OrderDependency: " << option.Order << " AnySetup *" << option.Keyword << "\n"
        << "*Default" << option.Keyword << ": " << option.Default << "\n";
    for (const Choice& choice : option.Choices)
      out << "*" << option.Keyword << " " << choice.Name << "/" << choice.Text << ": \"" << choice.Code << "\"\n";
    out << "*CloseUI: *" << option.Keyword << "\n\n";
  }
  for (const std::string& pair : Constraints()) out << "*UIConstraints: " << pair << "\n";
  out << "\n";
  for (const Profile& profile : Profiles())
    out << "*cupsICCProfile " << profile.Qualifiers << "/" << profile.Text << ": \"" << profile.Path << "\"\n";
  out << "\n*DefaultImageableArea: " << sizes.front().Keyword << "\n";
  for (const PaperSize& s : sizes)
    out << "*ImageableArea " << s.Keyword << "/" << s.Title << ": \"" << s.Area << "\"\n";
  out << "\n*DefaultPaperDimension: " << sizes.front().Keyword << "\n";
  for (const PaperSize& s : sizes)
    out << "*PaperDimension " << s.Keyword << "/" << s.Title << ": \"" << s.Dimensions << "\"\n";
  out << "\n*DefaultFont: Courier\n"
         "*Font Courier: Standard \"(002.004S)\" Standard ROM\n"
         "*Font Courier-Bold: Standard \"(002.004S)\" Standard ROM\n"
         "*Font Helvetica: Standard \"(001.006S)\" Standard ROM\n"
         "*Font Times-Roman: Standard \"(001.007S)\" Standard ROM\n";
}

// The texts of locale/ui.tsv: English text → language → text (an empty cell is absent).
using UiTable = std::map<std::string, std::map<std::string, std::string>>;

std::optional<UiTable> ReadUiTable(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::cerr << "make_ppd: cannot read " << path << "\n";
    return std::nullopt;
  }
  UiTable table;
  std::vector<std::string> languages;
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> cells;
    std::stringstream split(line);
    for (std::string cell; std::getline(split, cell, '\t');) cells.push_back(cell);
    if (line.back() == '\t') cells.emplace_back();
    if (languages.empty()) {
      if (cells.empty() || cells[0] != "en") {
        std::cerr << "make_ppd: " << path << ":" << number << ": the header must start with en\n";
        return std::nullopt;
      }
      languages.assign(cells.begin() + 1, cells.end());
      continue;
    }
    if (cells.size() != languages.size() + 1) {
      std::cerr << "make_ppd: " << path << ":" << number << ": " << cells.size() << " cells, expected "
                << languages.size() + 1 << "\n";
      return std::nullopt;
    }
    for (std::size_t i = 0; i < languages.size(); ++i)
      if (!cells[i + 1].empty()) table[cells[0]][languages[i]] = cells[i + 1];
  }
  return table;
}

// Appends the fragment, then the texts of the UI table for whatever the fragment leaves untranslated.
// False, after saying which, when a text has no translation in a language of the fragment.
bool WriteTranslations(std::ostream& out, std::istream& fragment, const UiTable& ui,
                       const std::vector<Option>& options) {
  std::vector<std::string> languages;
  std::map<std::string, std::string> translated;  // "<lang>.<Keyword> <Choice>", "<lang>.Translation <Keyword>"
  out << "\n*% Translations (generated from locale/strings.tsv and locale/ui.tsv)\n";
  for (std::string line; std::getline(fragment, line);) {
    out << line << "\n";
    if (line.rfind("*cupsLanguages:", 0) == 0) {
      const auto open = line.find('"'), close = line.rfind('"');
      std::istringstream words(line.substr(open + 1, close - open - 1));
      for (std::string word; words >> word;) languages.push_back(word);
    } else if (line.size() > 1 && line[0] == '*' && line[1] != '%') {
      const auto end = line.find_first_of("/:");
      const auto close = line.find(':', end);
      if (end != std::string::npos && line[end] == '/' && close != std::string::npos)
        translated[line.substr(1, end - 1)] = line.substr(end + 1, close - end - 1);
    }
  }
  bool complete = true;
  for (const std::string& lang : languages) {
    out << "*%\n*% " << lang << ": the printer description's own texts\n";
    auto emit = [&](const std::string& key, const std::string& english) {
      if (translated.count(key)) return;
      const auto row = ui.find(english);
      const auto cell = row == ui.end() ? nullptr : &row->second;
      if (!cell || !cell->count(lang)) {
        std::cerr << "make_ppd: no " << lang << " text for \"" << english << "\" (" << key
                  << "): add it to locale/ui.tsv\n";
        complete = false;
        return;
      }
      out << "*" << key << "/" << cell->at(lang) << ": \"\"\n";
      translated[key] = cell->at(lang);
    };
    for (const Option& option : options) {
      emit(lang + ".Translation " + option.Keyword, option.Text);
      for (const Choice& choice : option.Choices) emit(lang + "." + option.Keyword + " " + choice.Name, choice.Text);
    }
    for (const Profile& profile : Profiles()) {
      const auto title = translated.find(lang + "." + profile.MediaKey);
      if (title != translated.end())
        out << "*" << lang << ".cupsICCProfile " << profile.Qualifiers << "/" << title->second << ": \"\"\n";
    }
  }
  return complete;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4) {
    std::cerr << "usage: make_ppd <output.ppd> [translations.ppd ui.tsv]\n";
    return 2;
  }
  const std::vector<PaperSize> sizes = PaperSizes();
  const std::vector<Option> options = Options(sizes);
  std::ostringstream text;
  WritePpd(text, sizes, options);
  if (argc == 4) {
    std::ifstream fragment(argv[2], std::ios::binary);
    if (!fragment) {
      std::cerr << "make_ppd: cannot read " << argv[2] << "\n";
      return 1;
    }
    const std::optional<UiTable> ui = ReadUiTable(argv[3]);
    if (!ui || !WriteTranslations(text, fragment, *ui, options)) return 1;
  }
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  out << text.str();
  out.close();
  if (!out) {
    std::cerr << "make_ppd: cannot write " << argv[1] << "\n";
    return 1;
  }
  return 0;
}
