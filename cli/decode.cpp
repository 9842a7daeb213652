// inkweave decode and inkweave dump: the printer model as a tool. decode puts every page of a stream
// on virtual paper, writes a preview picture (the whole sheet, or the printed area with --crop; each
// pixel the ink model's colour of the ink its dots carry, see decode/ink.h) and prints a summary per
// page. dump lists every command and row record with its byte offset.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>

#include "cli/commands.h"
#include "cli/document.h"
#include "cli/picture.h"
#include "decode/colorimetry.h"
#include "decode/decoder.h"
#include "decode/ink.h"

namespace inkweave::cli {
namespace {

constexpr const char* kPlaneNames[] = {"cyan", "magenta", "yellow", "black"};

std::optional<std::vector<std::uint8_t>> ReadStream(const std::string& path, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = path + ": cannot open it";
    return std::nullopt;
  }
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) {
    *error = path + ": cannot read it";
    return std::nullopt;
  }
  if (bytes.empty()) {
    *error = path + ": the file is empty, not a printer stream";
    return std::nullopt;
  }
  return bytes;
}

std::string Describe(const std::string& path, const decode::Error& e) {
  char where[64];
  std::snprintf(where, sizeof where, "byte %zu (0x%zX)", e.Offset, e.Offset);
  return path + ": not a valid printer stream at " + where + ": " + e.Message;
}

struct Preview {
  int Width = 0, Height = 0;
  std::vector<std::uint8_t> Rgb;
};

// The largest preview written: 3 bytes a pixel, 384 MiB. A bigger one is refused with the resolution
// that would fit, rather than taking memory in proportion to what a stream claims.
constexpr long long kMaxPreviewPixels = 128LL << 20;
// Preview pixels made at a time (whole rows, at least one): the ink sums and colours of one strip,
// about 40 MiB, are all the preview holds beside its pixels.
constexpr int kPreviewStripPixels = 1 << 18;

// The page as the paper shows it: the whole sheet (or, cropped, the printed area only), each preview
// pixel the ink model's colour of the mean ink of the dots it covers. Made strip by strip; boxes with no
// ink are the paper's colour, worked out once.
std::optional<Preview> RenderPreview(const decode::PrintedPage& page, int previewDpi, bool crop, std::string* error) {
  const int dpi = page.Dpi > 0 ? page.Dpi : 300;
  // The region of page dots shown: the sheet around the print, or the print alone.
  const int x = crop ? 0 : -page.Paper.LeftDots, y = crop ? 0 : -page.Paper.TopDots;
  const int w = std::max(1, crop ? page.WidthDots : page.Paper.WidthDots);
  const int h = std::max(1, crop ? page.HeightRows : page.Paper.HeightDots);
  const auto scaled = [&](int dots, int at) {
    return std::max(1LL, (static_cast<long long>(dots) * at + dpi - 1) / dpi);
  };
  const long long width = scaled(w, previewDpi), height = scaled(h, previewDpi);
  if (width * height > kMaxPreviewPixels) {
    int fits = previewDpi;
    while (fits > 1 && scaled(w, fits) * scaled(h, fits) > kMaxPreviewPixels) --fits;
    *error = "a preview of " + std::to_string(width) + " x " + std::to_string(height) + " pixels at " +
             std::to_string(previewDpi) + " dpi is larger than the " + std::to_string(kMaxPreviewPixels >> 20) +
             " megapixels a preview may have; use --preview-dpi " + std::to_string(fits) + " or less" +
             (crop ? "" : ", or --crop");
    return std::nullopt;
  }
  Preview preview;
  preview.Width = static_cast<int>(width);
  preview.Height = static_cast<int>(height);
  preview.Rgb.resize(static_cast<std::size_t>(width * height) * 3);
  const decode::InkModel model = decode::InkModelFor(page.Medium, page.Dpi);
  // Boxes without ink: those with dots (none inked) and those with no dot at all (upscaled previews).
  decode::AreaInk noInk;
  noInk.BlackCells = 0;
  const decode::Reflectance bare = decode::PrintedColour(model, noInk);
  const decode::Reflectance noDots = decode::PrintedColour(model, decode::AreaInk{});
  const auto colourOf = [&](const decode::AreaInk& ink) {
    const bool empty = ink.Ink == noInk.Ink && ink.UnderBlack == noInk.UnderBlack;
    if (empty && ink.BlackCells == 0) return bare;
    if (empty && ink.BlackCells == decode::AreaInk{}.BlackCells) return noDots;
    return decode::PrintedColour(model, ink);
  };
  std::vector<decode::Reflectance> colours;
  std::vector<std::uint8_t> rgb;
  const int stripRows = std::max(1, kPreviewStripPixels / preview.Width);
  for (int first = 0; first < preview.Height; first += stripRows) {
    const int rows = std::min(stripRows, preview.Height - first);
    const decode::InkGrid grid = decode::GatherInkRows(page, x, y, w, h, preview.Width, preview.Height, first, rows);
    colours.resize(grid.Boxes.size());
    std::transform(grid.Boxes.begin(), grid.Boxes.end(), colours.begin(), colourOf);
    rgb.resize(colours.size() * 3);
    decode::SrgbOfReflectances(colours, rgb);
    std::copy(rgb.begin(), rgb.end(), preview.Rgb.begin() + static_cast<std::ptrdiff_t>(first) * preview.Width * 3);
  }
  return preview;
}

double Ratio(const decode::StreamStats& s) {
  return s.CompressedSize ? static_cast<double>(s.UncompressedSize) / static_cast<double>(s.CompressedSize) : 0.0;
}

// "12-15, 40" from the rows whose flag is set.
std::string RowRanges(const std::vector<int>& rows) {
  std::string text;
  for (std::size_t i = 0; i < rows.size();) {
    std::size_t j = i;
    while (j + 1 < rows.size() && rows[j + 1] == rows[j] + 1) ++j;
    if (!text.empty()) text += ", ";
    text += std::to_string(rows[i]);
    if (j > i) {
      text += '-';  // appended separately: "-" + std::string trips GCC 12's -O3 -Wrestrict
      text += std::to_string(rows[j]);
    }
    i = j + 1;
    if (text.size() > 200) {
      text += ", ...";
      break;
    }
  }
  return text.empty() ? "none" : text;
}

std::string PreviewName(const std::string& base, int page, bool numbered) {
  if (!numbered) return base;
  std::string stem = base, ext = ".png";
  const std::size_t dot = base.rfind('.');
  const std::size_t slash = base.rfind('/');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
    stem = base.substr(0, dot);
    ext = base.substr(dot);
  }
  return stem + "-" + std::to_string(page) + ext;
}

}  // namespace

int RunDecode(const DecodeOptions& options) {
  std::string error;
  auto stream = ReadStream(options.Stream, &error);
  if (!stream) {
    ReportError(error);
    return kExitFailure;
  }
  auto parsed = decode::ParseJob(*stream);
  if (auto* e = std::get_if<decode::Error>(&parsed)) {
    ReportError(Describe(options.Stream, *e));
    return kExitFailure;
  }
  const decode::Job& job = std::get<decode::Job>(parsed);
  auto printed = decode::PrintJob(job);
  if (auto* e = std::get_if<decode::Error>(&printed)) {
    ReportError(Describe(options.Stream, *e));
    return kExitFailure;
  }
  const auto& pages = std::get<std::vector<decode::PrintedPage>>(printed);
  if (pages.empty()) {
    ReportError(options.Stream + ": the stream holds no page");
    return kExitFailure;
  }
  if (options.Page > static_cast<int>(pages.size())) {
    ReportError("--page " + std::to_string(options.Page) + ": the stream has only " + std::to_string(pages.size()) +
                (pages.size() == 1 ? " page" : " pages"));
    return kExitUsage;
  }

  const bool numbered = options.Page == 0 && pages.size() > 1;
  if (options.Json)
    std::printf("{\"stream\": \"%s\", \"bytes\": %zu, \"ended\": %s, \"pages\": [", options.Stream.c_str(),
                stream->size(), job.Ended ? "true" : "false");
  bool firstJson = true;
  for (std::size_t index = 0; index < pages.size(); ++index) {
    const int number = static_cast<int>(index) + 1;
    if (options.Page && number != options.Page) continue;
    const decode::PrintedPage& page = pages[index];
    const decode::StreamStats& s = page.Stats;
    const auto coverage = decode::MeanInk(page, 0, 0, page.WidthDots, page.HeightRows).Ink;
    const double mmPerDot = page.Dpi > 0 ? 25.4 / page.Dpi : 0;
    std::vector<int> twice, never;
    if (options.Stats || options.Json) {
      for (std::size_t r = 0; r < page.PrintCounts.size(); ++r) {
        const int row = static_cast<int>(r);
        if (page.PrintCounts[r] > 1) twice.push_back(row);
        if (page.PrintCounts[r] == 0 && row > page.FirstPrintedRow && row < page.LastPrintedRow) never.push_back(row);
      }
    }
    if (options.Json) {
      std::printf(
          "%s\n  {\"page\": %d, \"dpi\": %d, \"widthDots\": %d, \"heightRows\": %d, \"mode\": %d, \"color\": %s, "
          "\"bitsPerDot\": %d, \"passes\": %d, \"feeds\": %d, \"feedUnits\": %ld, \"bytes\": %zu, \"passBytes\": %zu, "
          "\"compressionRatio\": %.3f, \"records\": %zu, \"blankRecords\": %zu, \"rawRecords\": %zu, "
          "\"coverage\": {\"cyan\": %.5f, \"magenta\": %.5f, \"yellow\": %.5f, \"black\": %.5f}, "
          "\"rowsPrinted\": %d, \"rowsPrintedTwice\": %d, \"rowsInkedTwice\": %d, \"rowsNeverPrinted\": %d, "
          "\"firstPrintedRow\": %d, \"lastPrintedRow\": %d, \"medium\": %d, \"dotInk\": [%d, %d, %d], "
          "\"sheet\": {\"name\": \"%s\", \"known\": %s, \"widthMm\": %.1f, \"heightMm\": %.1f, \"leftMm\": %.1f, "
          "\"topMm\": %.1f}}",
          firstJson ? "" : ",", number, page.Dpi, page.WidthDots, page.HeightRows, page.Mode,
          page.Color ? "true" : "false", page.BitsPerDot, s.Passes, s.Feeds, s.TotalFeed, s.StreamBytes, s.PassBytes,
          Ratio(s), s.Records, s.BlankRecords, s.RawRecords, coverage[0], coverage[1], coverage[2], coverage[3],
          page.RowsPrinted, page.RowsPrintedTwice, page.RowsInkedTwice, page.UnprintedRows, page.FirstPrintedRow,
          page.LastPrintedRow, page.Medium, page.DotInk[1], page.DotInk[2], page.DotInk[3], page.Paper.Name.c_str(),
          page.Paper.Known ? "true" : "false", page.Paper.WidthMm, page.Paper.HeightMm, page.Paper.LeftDots * mmPerDot,
          page.Paper.TopDots * mmPerDot);
      firstJson = false;
    } else if (!options.Quiet) {
      std::printf("page %d: %.1f x %.1f mm (%d x %d dots at %d dpi), mode %d, %s, %d-bit dots\n", number,
                  page.WidthDots * mmPerDot, page.HeightRows * mmPerDot, page.WidthDots, page.HeightRows, page.Dpi,
                  page.Mode, page.Color ? "colour" : "monochrome", page.BitsPerDot);
      std::printf("  sheet: %s (%.1f x %.1f mm), the print %.1f mm from its left edge and %.1f mm from its top\n",
                  page.Paper.Name.c_str(), page.Paper.WidthMm, page.Paper.HeightMm, page.Paper.LeftDots * mmPerDot,
                  page.Paper.TopDots * mmPerDot);
      std::printf("  %d passes, %d feeds (%.1f mm), %zu bytes, compression %.2f:1\n", s.Passes, s.Feeds,
                  s.TotalFeed * 25.4 / 400.0, s.StreamBytes, Ratio(s));
      std::printf("  ink coverage: cyan %.1f%%, magenta %.1f%%, yellow %.1f%%, black %.1f%%\n", coverage[0] * 100,
                  coverage[1] * 100, coverage[2] * 100, coverage[3] * 100);
      std::printf("  rows: %d printed, %d printed twice (%d inked twice), %d never printed\n", page.RowsPrinted,
                  page.RowsPrintedTwice, page.RowsInkedTwice, page.UnprintedRows);
      if (options.Stats) {
        std::printf(
            "  records: %zu (%zu coded, %zu raw, %zu blank), %zu data bytes for %zu decoded, %zu depth mismatches\n",
            s.Records, s.CompressedRecords, s.RawRecords, s.BlankRecords, s.CompressedSize, s.UncompressedSize,
            s.DepthMismatches);
        std::printf("  first printed row %d, last %d, inked rows %d\n", page.FirstPrintedRow, page.LastPrintedRow,
                    page.InkedRows);
        std::printf("  rows printed twice: %s\n  rows never printed: %s\n", RowRanges(twice).c_str(),
                    RowRanges(never).c_str());
      }
    }
    if (!options.Preview.empty()) {
      const std::string path = PreviewName(options.Preview, number, numbered);
      const std::optional<Preview> preview = RenderPreview(page, options.PreviewDpi, options.Crop, &error);
      if (!preview || !WritePng(preview->Rgb, preview->Width, preview->Height, options.PreviewDpi, path, &error)) {
        if (options.Json) std::printf("]}\n");
        ReportError(error);
        return kExitFailure;
      }
    }
  }
  if (options.Json) std::printf("\n]}\n");
  return kExitOk;
}

int RunDump(const std::string& path, bool full) {
  std::string error;
  auto stream = ReadStream(path, &error);
  if (!stream) {
    ReportError(error);
    return kExitFailure;
  }
  auto parsed = decode::ParseJob(*stream);
  if (auto* e = std::get_if<decode::Error>(&parsed)) {
    ReportError(Describe(path, *e));
    return kExitFailure;
  }
  const decode::Job& job = std::get<decode::Job>(parsed);

  // Everything with an offset, then in stream order.
  struct Line {
    std::size_t Offset, Length;
    std::string Label;
  };
  // A letter command with its title from the decoder's command table: "R resolution", "F feed".
  auto named = [](const decode::Command& c) {
    const decode::CommandDescriptor* command = decode::FindCommand(c.Name);
    if (!command || command->Title.empty() || c.Name.size() > 2) return c.Name;
    std::string text = c.Name;
    return text.append(" ").append(command->Title);
  };
  std::vector<Line> lines;
  for (const decode::Command& c : job.Commands) lines.push_back({c.Offset, c.Length, named(c)});
  for (std::size_t p = 0; p < job.Pages.size(); ++p) {
    const decode::Page& page = job.Pages[p];
    for (const decode::Command& c : page.Commands) lines.push_back({c.Offset, c.Length, named(c)});
    for (std::size_t k = 0; k < page.Passes.size(); ++k)
      for (const decode::PlaneRow& r : page.Passes[k].Records) {
        char label[64];
        std::snprintf(label, sizeof label, "%c %s row %d", r.Blank ? 'Z' : 'G', kPlaneNames[r.Plane & 3], r.HeadRow);
        lines.push_back({r.Offset, r.WireBytes, label});
      }
  }
  std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.Offset < b.Offset; });

  constexpr std::size_t kShown = 16;
  for (const Line& line : lines) {
    std::printf("%08zX  %-18s", line.Offset, line.Label.c_str());
    const std::size_t end = std::min(stream->size(), line.Offset + line.Length);
    const std::size_t shown = full ? end - line.Offset : std::min(kShown, end - line.Offset);
    for (std::size_t i = 0; i < shown; ++i) std::printf(" %02X", (*stream)[line.Offset + i]);
    if (shown < end - line.Offset) std::printf(" ... (%zu bytes)", end - line.Offset);
    std::printf("\n");
  }
  std::printf("%08zX  end of stream (%zu bytes, %zu %s)\n", stream->size(), stream->size(), job.Pages.size(),
              job.Pages.size() == 1 ? "page" : "pages");
  return kExitOk;
}

}  // namespace inkweave::cli
