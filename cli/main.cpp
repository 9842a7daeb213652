// inkweave: print documents through the render plug-in, decode printer streams into pictures and
// figures, and show what the plug-in and the device offer.
#include <CLI/CLI.hpp>
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

std::vector<std::string> PaperNames() {
  std::vector<std::string> names;
  for (const auto& p : inkweave::host::Papers()) names.emplace_back(p.Name);
  return names;
}

std::vector<std::string> MediaNames() {
  std::vector<std::string> names;
  for (const auto& m : inkweave::host::kMedia) names.emplace_back(m.Name);
  return names;
}

std::vector<std::string> HalftoneNames() {
  std::vector<std::string> names;
  for (const auto& h : inkweave::host::kHalftones) names.emplace_back(h.Name);
  return names;
}

std::vector<int> Qualities() { return {std::begin(inkweave::host::kQualities), std::end(inkweave::host::kQualities)}; }

// CLI11's messages, as one line.
std::string OneLine(std::string text) {
  for (char& c : text)
    if (c == '\n') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

}  // namespace

int main(int argc, char** argv) {
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
  printCmd->add_option("--paper", print.Paper, "Paper size")->check(CLI::IsMember(PaperNames()))->capture_default_str();
  printCmd->add_option("--quality", print.Quality, "Print quality in dpi")
      ->check(CLI::IsMember(Qualities()))
      ->capture_default_str();
  printCmd->add_flag("--high-res", print.HighRes, "The 600 dpi high-resolution mode");
  printCmd->add_option("--media", print.Media, "Paper type")->check(CLI::IsMember(MediaNames()))->capture_default_str();
  printCmd->add_option("--halftone", halftone, "dither or diffusion")
      ->check(CLI::IsMember(HalftoneNames()))
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
  printCmd->add_flag("-q,--quiet", print.Quiet, "No progress");
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
  proofCmd->add_option("--quality", proof.Settings.Quality, "Print quality in dpi")
      ->check(CLI::IsMember(Qualities()))
      ->capture_default_str();
  proofCmd->add_flag("--high-res", proof.Settings.HighRes, "The 600 dpi high-resolution mode");
  proofCmd->add_option("--media", proof.Settings.Media, "Paper type")
      ->check(CLI::IsMember(MediaNames()))
      ->capture_default_str();
  proofCmd->add_option("--halftone", proofHalftone, "dither or diffusion")
      ->check(CLI::IsMember(HalftoneNames()))
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
    ReportError(OneLine(e.what()) + " (see inkweave --help)");
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
