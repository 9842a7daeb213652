// inkweave info: what the device offers (papers with their printable areas, media, modes), the
// plug-in's display strings, and what the loaded plug-in answers to the host's questions.
#include <cstdio>
#include <string>

#include "cli/commands.h"
#include "cli/plugin.h"
#include "host/choices.h"
#include "host/host.h"
#include "host/papers.h"
#include "src/data/strings.h"

namespace inkweave::cli {
namespace {

using host::kQualities;

// The English display text of an id, empty when the table has none.
std::string Text(std::uint16_t id) {
  const char* text = EnglishString(id);
  return text ? text : "";
}

std::string Signature(DWORD value) {
  std::string text;
  for (int i = 0; i < 4; ++i) {
    const char c = static_cast<char>((value >> (8 * i)) & 0xFF);
    text += (c >= 0x20 && c < 0x7F) ? c : '?';
  }
  return text;
}

std::string JsonString(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

}  // namespace

int RunInfo(const std::string& pluginPath, bool json) {
  std::string error;
  auto library = OpenPlugin(pluginPath, &error);
  host::PluginInfo info;
  if (library) {
    host::HostSession session(library->Entry());
    if (const HRESULT hr = session.Load(); Failed(hr)) {
      char code[16];
      std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
      error = std::string("the plug-in would not load (") + code + ")";
      library.reset();
    } else {
      info = session.Info();
    }
  }
  if (!library) {
    ReportError(error);
    return kExitFailure;
  }

  if (json) {
    std::printf("{\n  \"plugin\": {\"signature\": %s, \"interfaceVersion\": %u, \"version\": %u},\n",
                JsonString(Signature(info.Signature)).c_str(), info.InterfaceVersion, info.Version);
    std::printf("  \"papers\": [\n");
    const auto papers = host::Papers();
    for (std::size_t i = 0; i < papers.size(); ++i) {
      const host::Paper& p = papers[i];
      std::printf("    {\"name\": %s, \"title\": %s, \"code\": %d, \"printable\": {",
                  JsonString(std::string(p.Name)).c_str(), JsonString(std::string(p.Title)).c_str(), p.Code);
      const char* separator = "";
      for (int q : kQualities) {
        const auto a = host::PrintableAreaOf(p, q);
        std::printf("%s\"%d\": [%u, %u]", separator, q, a.Width, a.Height);
        separator = ", ";
      }
      std::printf("}}%s\n", i + 1 < papers.size() ? "," : "");
    }
    std::printf("  ],\n  \"media\": [");
    bool first = true;
    for (const host::Medium& m : host::kMedia) {
      std::printf("%s{\"name\": %s, \"title\": %s, \"command\": %u}", first ? "" : ", ",
                  JsonString(std::string(m.Name)).c_str(), JsonString(Text(m.StringId)).c_str(), m.Callback);
      first = false;
    }
    std::printf("],\n  \"strings\": {");
    first = true;
    for (const StringEntry& s : EnglishStrings()) {
      std::printf("%s\"%u\": %s", first ? "" : ", ", s.Id, JsonString(s.Text).c_str());
      first = false;
    }
    std::printf("}\n}\n");
    return kExitOk;
  }

  std::printf("Plug-in\n  signature \"%s\" (0x%08X), interface version 0x%X, version 0x%X\n",
              Signature(info.Signature).c_str(), info.Signature, info.InterfaceVersion, info.Version);
  std::printf("  implements ImageProcessing %s, CommandCallback %s, FilterGraphics %s\n",
              info.ImplementsImageProcessing ? "yes" : "no", info.ImplementsCommandCallback ? "yes" : "no",
              info.ImplementsFilterGraphics ? "yes" : "no");

  std::printf("\nPapers (--paper): printable area in dots at 150 / 300 / 600 dpi\n");
  for (const host::Paper& p : host::Papers()) {
    std::printf("  %-12s %-36s", std::string(p.Name).c_str(), std::string(p.Title).c_str());
    for (int q : kQualities) {
      const auto a = host::PrintableAreaOf(p, q);
      std::printf("  %5u x %-5u%s", a.Width, a.Height, a.Width > host::kMaxLineDots ? "(too wide)" : "");
    }
    std::printf("\n");
  }
  std::printf("  margins: %.1f mm left and right, %.1f mm top, %.1f mm bottom; a line holds at most %u dots\n",
              host::kMarginSideMm, host::kMarginTopMm, host::kMarginBottomMm, host::kMaxLineDots);

  std::printf("\nMedia (--media)\n");
  for (const host::Medium& m : host::kMedia)
    std::printf("  %-8s %-20s (command %u)\n", std::string(m.Name).c_str(), Text(m.StringId).c_str(), m.Callback);

  std::printf("\nModes\n");
  std::printf("  --quality 150 | 300 | 600   print quality, dpi (default 300)\n");
  std::printf("  --high-res                  %s (600 dpi and command %u)\n",
              Text(host::ChoiceOf(host::HighRes::HighRes600).StringId).c_str(),
              static_cast<unsigned>(host::kCallbackHighResolution));
  for (const host::HalftoneChoice& h : host::kHalftones)
    std::printf("  --halftone %-16s %s (command %u%s)\n", std::string(h.Name).c_str(), Text(h.StringId).c_str(),
                static_cast<unsigned>(h.Callback), h.Method == host::kHalftones[0].Method ? ", default" : "");
  std::printf("  colour / --mono             %s / %s\n", Text(host::kColorModes[0].StringId).c_str(),
              Text(host::kColorModes[1].StringId).c_str());

  std::printf("\nString table (English)\n");
  for (const StringEntry& s : EnglishStrings()) std::printf("  %4u  %s\n", s.Id, s.Text);
  return kExitOk;
}

}  // namespace inkweave::cli
