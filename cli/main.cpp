// inkweave: print documents through the render plug-in, decode printer streams into pictures and
// figures, and show what the plug-in and the device offer.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

#include "cli/commands.h"
#include "cli/document.h"
#include "cli/proof.h"
#include "host/choices.h"
#include "host/papers.h"

namespace {

using namespace inkweave::cli;

// Every choice is taken by any of its names, in any case (host::FindPaper and the like); the validator
// puts the command-line name in its place, and names the choices, with a likely one, when none fits.
template <typename Table, typename Find, typename Canonical>
CLI::Validator Choice(const char* what, const Table& table, Find find, Canonical canonical) {
  std::vector<std::string> names;
  for (const auto& entry : table) names.push_back(canonical(entry));
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : "|") + name;
  return CLI::Validator(
      [what, names, find, canonical](std::string& value) -> std::string {
        const auto found = find(value);
        if (!found) return UnknownChoice(what, value, names);
        value = canonical(*found);
        return {};
      },
      list);
}

CLI::Validator PaperChoice() {
  return Choice(
      "paper", inkweave::host::Papers(), [](std::string_view name) { return inkweave::host::FindPaper(name); },
      [](const inkweave::host::Paper& p) { return std::string(p.Name); });
}
CLI::Validator MediaChoice() {
  return Choice("paper type", inkweave::host::kMedia, inkweave::host::FindMedium,
                [](const inkweave::host::Medium& m) { return std::string(m.Name); });
}
CLI::Validator HalftoneChoice() {
  return Choice("halftone", inkweave::host::kHalftones, inkweave::host::FindHalftone,
                [](const inkweave::host::HalftoneChoice& h) { return std::string(h.Name); });
}
// A quality by its dpi or its name (draft, normal, high).
CLI::Validator QualityChoice() {
  return Choice("quality", inkweave::host::kPrintQualities, inkweave::host::FindQuality,
                [](const inkweave::host::QualityChoice& q) { return std::to_string(q.Dpi); });
}

// The first word of the command line that names no subcommand or option, as a one-line message with
// the likely one ("unknown command 'prnt'; did you mean 'print'?"); empty when every word is known.
std::string UnknownWord(const CLI::App& app, int argc, char** argv) {
  std::vector<std::string> commands;
  for (const CLI::App* sub : app.get_subcommands({})) commands.push_back(sub->get_name());
  int i = 1;
  while (i < argc && argv[i][0] == '-') ++i;  // --help, --version
  if (i == argc) return {};
  if (std::find(commands.begin(), commands.end(), argv[i]) == commands.end())
    return UnknownChoice("command", argv[i], commands);
  const CLI::App* sub = app.get_subcommand(argv[i]);
  std::vector<std::string> options;
  for (const CLI::Option* option : sub->get_options()) {
    for (const std::string& name : option->get_lnames()) options.push_back("--" + name);
    for (const std::string& name : option->get_snames()) options.push_back("-" + name);
  }
  for (int j = i + 1; j < argc; ++j) {
    const std::string word = argv[j];
    if (word == "--") break;
    if (word.size() < 2 || word[0] != '-' || (word[1] >= '0' && word[1] <= '9')) continue;
    const std::string name = word.substr(0, word.find('='));
    if (word[1] != '-' && name.size() > 2) continue;  // -qo: short flags run together
    if (std::find(options.begin(), options.end(), name) != options.end()) continue;
    std::string message = sub->get_name() + ": unknown option '" + name + "'";
    if (const std::string close = ClosestName(name, options); !close.empty())
      message += "; did you mean '" + close + "'?";
    return message;
  }
  return {};
}

// CLI11's messages, as one line.
std::string OneLine(std::string text) {
  for (char& c : text)
    if (c == '\n') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  // A closed pipe or socket on the output is a failed write, reported as such, not a silent death.
  std::signal(SIGPIPE, SIG_IGN);
  CLI::App app{"inkweave: print documents through the inkjet render plug-in and look at what it prints"};
  app.require_subcommand(1);
  app.set_version_flag("--version", "inkweave " INKWEAVE_VERSION);

  // print
  PrintOptions print;
  std::string pages, scale = "fit", halftone(inkweave::host::kHalftones[0].Name);
  CLI::App* printCmd =
      app.add_subcommand("print", "Print documents (PDF, PNG, JPEG, TIFF, WebP, SVG, PNM) to a printer stream");
  printCmd->add_option("INPUT", print.Inputs, "Documents, printed in order as one job")->required();
  printCmd->add_option("-o,--output", print.Output, "The printer stream to write ('-' for standard output)")
      ->required();
  printCmd->add_option("--paper", print.Paper, "Paper size (also its PPD or IPP name, e.g. A4, iso_a4_210x297mm)")
      ->transform(PaperChoice())
      ->capture_default_str();
  printCmd->add_option("--quality", print.Quality, "Print quality in dpi, or draft, normal, high")
      ->transform(QualityChoice())
      ->capture_default_str();
  printCmd->add_flag("--high-res", print.HighRes, "The 600 dpi high-resolution mode");
  printCmd->add_option("--media", print.Media, "Paper type (also its IPP name, e.g. stationery)")
      ->transform(MediaChoice())
      ->capture_default_str();
  printCmd->add_option("--halftone", halftone, "dither or diffusion")
      ->transform(HalftoneChoice())
      ->capture_default_str();
  printCmd->add_flag("--mono", print.Mono, "Print in black only");
  printCmd->add_flag("--landscape", print.Landscape, "Landscape orientation");
  printCmd->add_option("--band-height", print.BandHeight, "Rows per band handed to the plug-in (a multiple of 16)")
      ->check(CLI::Range(16, 2048))
      ->capture_default_str();
  printCmd->add_option("--pages", pages, "Pages of the job to print, e.g. 1-3,7 (counted over all inputs)");
  printCmd
      ->add_option("--scale", scale,
                   "'fit' the printable area, or a percentage of the natural size (100% = no scaling)")
      ->capture_default_str();
  printCmd->add_option("--input-profile", print.InputProfile,
                       "ICC profile of the pictures' colours, in place of their own (raster images; default: "
                       "the profile each carries, else sRGB)");
  printCmd->add_flag("-q,--quiet", print.Quiet, "No progress and no summary");
  printCmd->add_option("--plugin", print.Plugin, "The plug-in library to use");

  // decode
  DecodeOptions decode;
  CLI::App* decodeCmd =
      app.add_subcommand("decode", "Decode a printer stream: a summary per page and a preview picture");
  decodeCmd->add_option("STREAM", decode.Stream, "The printer stream")->required()->check(CLI::ExistingFile);
  decodeCmd->add_option("-o,--output", decode.Preview, "Preview PNG (several pages: NAME-1.png, NAME-2.png, ...)");
  decodeCmd->add_option("--page", decode.Page, "Only this page (from 1)")->check(CLI::PositiveNumber);
  decodeCmd->add_option("--preview-dpi", decode.PreviewDpi, "Resolution of the preview")
      ->check(CLI::Range(10, 600))
      ->capture_default_str();
  decodeCmd->add_flag("--crop", decode.Crop, "Show the printed area only, not the whole sheet");
  decodeCmd->add_flag("--stats", decode.Stats, "Also the rows printed twice or never, and the passes per page");
  decodeCmd->add_flag("--json", decode.Json, "The summary as JSON");
  decodeCmd->add_flag("-q,--quiet", decode.Quiet, "No summary");

  // proof
  ProofOptions proof;
  std::string proofHalftone(inkweave::host::kHalftones[0].Name);
  CLI::App* proofCmd = app.add_subcommand(
      "proof", "Print a colour target through the plug-in and measure it on the printer model (CIELAB, Delta E 2000)");
  proofCmd->add_option("--quality", proof.Settings.Quality, "Print quality in dpi, or draft, normal, high")
      ->transform(QualityChoice())
      ->capture_default_str();
  proofCmd->add_flag("--high-res", proof.Settings.HighRes, "The 600 dpi high-resolution mode");
  proofCmd->add_option("--media", proof.Settings.Media, "Paper type")->transform(MediaChoice())->capture_default_str();
  proofCmd->add_option("--halftone", proofHalftone, "dither or diffusion")
      ->transform(HalftoneChoice())
      ->capture_default_str();
  proofCmd->add_flag("--mono", proof.Settings.Mono, "Print in black only");
  proofCmd->add_option("-o,--output", proof.Picture, "Side-by-side PNG: each source patch beside its print");
  proofCmd->add_flag("--json", proof.Json, "The measurements as JSON");
  proofCmd->add_option("--plugin", proof.Settings.Plugin, "The plug-in library to use");

  // dump
  std::string dumpStream;
  bool dumpFull = false;
  CLI::App* dumpCmd = app.add_subcommand("dump", "List every command of a printer stream with its byte offset");
  dumpCmd->add_option("STREAM", dumpStream, "The printer stream")->required()->check(CLI::ExistingFile);
  dumpCmd->add_flag("--full", dumpFull, "Show pass data whole instead of abbreviated");

  // info
  std::string infoPlugin;
  bool infoJson = false;
  CLI::App* infoCmd = app.add_subcommand("info", "Papers, media, modes, the string table and the plug-in's answers");
  infoCmd->add_option("--plugin", infoPlugin, "The plug-in library to ask");
  infoCmd->add_flag("--json", infoJson, "As JSON");

  try {
    app.parse(argc, argv);
    if (printCmd->parsed()) {
      std::string error;
      if (print.BandHeight % 16 != 0)
        throw CLI::ValidationError("--band-height", std::to_string(print.BandHeight) + " is not a multiple of 16");
      if (print.HighRes && printCmd->count("--quality") && print.Quality != 600)
        throw CLI::ValidationError(
            "--high-res", "is a 600 dpi mode; it cannot be combined with --quality " + std::to_string(print.Quality));
      print.Method = inkweave::host::FindHalftone(halftone)->Method;
      if (!pages.empty() || printCmd->count("--pages")) {
        auto selection = ParsePages(pages, &error);
        if (!selection) throw CLI::ValidationError(error);
        print.Pages = *selection;
      }
      auto fit = ParseScale(scale, &error);
      if (!fit) throw CLI::ValidationError(error);
      print.Fit = *fit;
    }
    if (proofCmd->parsed()) {
      if (proof.Settings.HighRes && proofCmd->count("--quality") && proof.Settings.Quality != 600)
        throw CLI::ValidationError("--high-res", "is a 600 dpi mode; it cannot be combined with --quality " +
                                                     std::to_string(proof.Settings.Quality));
      proof.Settings.Method = inkweave::host::FindHalftone(proofHalftone)->Method;
    }
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    const std::string unknown = UnknownWord(app, argc, argv);
    ReportError((unknown.empty() ? OneLine(e.what()) : unknown) + " (see inkweave --help)");
    return kExitUsage;
  }

  VipsRuntime vips(argv[0]);
  if (!vips.Ok()) {
    ReportError("cannot start libvips: " + TakeVipsError());
    return kExitFailure;
  }
  // Memory running out is one line and a failure exit, like any other failure (an output file being
  // written is removed as its owner unwinds).
  try {
    if (printCmd->parsed()) return RunPrint(print);
    if (decodeCmd->parsed()) return RunDecode(decode);
    if (dumpCmd->parsed()) return RunDump(dumpStream, dumpFull);
    if (proofCmd->parsed()) return RunProof(proof);
    return RunInfo(infoPlugin, infoJson);
  } catch (const std::bad_alloc&) {
    ReportError("out of memory");
  } catch (const std::exception& e) {
    ReportError(std::string("internal error: ") + e.what());
  }
  return kExitFailure;
}
