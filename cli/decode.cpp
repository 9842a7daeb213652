// inkweave decode and inkweave dump: the printer model as a tool. decode puts every page of a stream
// on virtual paper, writes a preview picture (white paper, ideal cyan, magenta, yellow and black inks,
// a two-bit dot's size as its ink strength, box-filtered down to the preview resolution) and prints
// a summary per page. dump lists every command and row record with its byte offset.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vips/vips8>

#include "cli/commands.h"
#include "cli/document.h"
#include "cli/output_file.h"
#include "decode/decoder.h"

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

// Ink strength per preview pixel: the dots' values summed over the box each pixel covers.
struct Preview {
  int Width = 0, Height = 0;
  std::vector<std::uint8_t> Rgb;
};

Preview RenderPreview(const decode::PrintedPage& page, int previewDpi) {
  Preview preview;
  const int dpi = page.Dpi > 0 ? page.Dpi : 300;
  const auto scaled = [&](int dots) {
    return static_cast<int>((static_cast<long long>(dots) * previewDpi + dpi - 1) / dpi);
  };
  preview.Width = std::max(1, scaled(page.WidthDots));
  preview.Height = std::max(1, scaled(page.HeightRows));
  const std::size_t pixels = static_cast<std::size_t>(preview.Width) * static_cast<std::size_t>(preview.Height);
  auto toPixel = [&](int dot) { return static_cast<int>(static_cast<long long>(dot) * previewDpi / dpi); };
  // How many page dots fall in each preview column and row.
  std::vector<int> perColumn(static_cast<std::size_t>(preview.Width)), perRow(static_cast<std::size_t>(preview.Height));
  for (int x = 0; x < page.WidthDots; ++x)
    ++perColumn[static_cast<std::size_t>(std::min(toPixel(x), preview.Width - 1))];
  for (int y = 0; y < page.HeightRows; ++y)
    ++perRow[static_cast<std::size_t>(std::min(toPixel(y), preview.Height - 1))];

  std::array<std::vector<std::uint32_t>, 4> ink;
  for (int p = 0; p < 4; ++p) {
    ink[static_cast<std::size_t>(p)].assign(pixels, 0);
    const auto& first = page.Bits[static_cast<std::size_t>(p)][0].Rows;
    const auto& second = page.Bits[static_cast<std::size_t>(p)][1].Rows;
    for (std::size_t r = 0; r < first.size() || r < second.size(); ++r) {
      const std::vector<std::uint8_t>* b0 = r < first.size() ? &first[r] : nullptr;
      const std::vector<std::uint8_t>* b1 = r < second.size() ? &second[r] : nullptr;
      const std::size_t bytes = std::max(b0 ? b0->size() : 0, b1 ? b1->size() : 0);
      if (bytes == 0) continue;
      const int py = std::min(toPixel(static_cast<int>(r)), preview.Height - 1);
      std::uint32_t* row = ink[static_cast<std::size_t>(p)].data() +
                           static_cast<std::size_t>(py) * static_cast<std::size_t>(preview.Width);
      for (std::size_t i = 0; i < bytes; ++i) {
        const std::uint8_t lo = b0 && i < b0->size() ? (*b0)[i] : 0;
        const std::uint8_t hi = b1 && i < b1->size() ? (*b1)[i] : 0;
        if ((lo | hi) == 0) continue;
        for (int bit = 0; bit < 8; ++bit) {
          const int value = ((lo >> (7 - bit)) & 1) + 2 * ((hi >> (7 - bit)) & 1);
          if (!value) continue;
          const int x = static_cast<int>(i) * 8 + bit;
          if (x >= page.WidthDots) break;
          row[std::min(toPixel(x), preview.Width - 1)] += static_cast<std::uint32_t>(value);
        }
      }
    }
  }
  // Ideal subtractive inks on white paper.
  const double full = page.BitsPerDot == 2 ? 3.0 : 1.0;
  preview.Rgb.resize(pixels * 3);
  for (int y = 0; y < preview.Height; ++y) {
    for (int x = 0; x < preview.Width; ++x) {
      const std::size_t i =
          static_cast<std::size_t>(y) * static_cast<std::size_t>(preview.Width) + static_cast<std::size_t>(x);
      const double area =
          full * std::max(1, perColumn[static_cast<std::size_t>(x)] * perRow[static_cast<std::size_t>(y)]);
      double cover[4];
      for (int p = 0; p < 4; ++p) cover[p] = std::min(1.0, ink[static_cast<std::size_t>(p)][i] / area);
      for (int c = 0; c < 3; ++c)
        preview.Rgb[i * 3 + static_cast<std::size_t>(c)] =
            static_cast<std::uint8_t>(std::lround(255.0 * (1.0 - cover[c]) * (1.0 - cover[3])));
    }
  }
  return preview;
}

// Ink coverage of each plane: the dots' strength over the printed area, 0..1.
std::array<double, 4> Coverage(const decode::PrintedPage& page) {
  std::array<double, 4> coverage{};
  const double area = static_cast<double>(page.WidthDots) * page.HeightRows * (page.BitsPerDot == 2 ? 3 : 1);
  if (area <= 0) return coverage;
  for (int p = 0; p < 4; ++p) {
    std::uint64_t sum = 0;
    for (int b = 0; b < 2; ++b)
      for (const auto& row : page.Bits[static_cast<std::size_t>(p)][static_cast<std::size_t>(b)].Rows)
        for (std::uint8_t byte : row) sum += static_cast<std::uint64_t>(__builtin_popcount(byte)) * (b ? 2u : 1u);
    coverage[static_cast<std::size_t>(p)] = static_cast<double>(sum) / area;
  }
  return coverage;
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

bool WritePreview(const Preview& preview, const std::string& path, int previewDpi, std::string* error) {
  void* buffer = nullptr;
  std::size_t size = 0;
  try {
    vips::VImage image =
        vips::VImage::new_from_memory(const_cast<std::uint8_t*>(preview.Rgb.data()), preview.Rgb.size(), preview.Width,
                                      preview.Height, 3, VIPS_FORMAT_UCHAR);
    image = image.copy(vips::VImage::option()
                           ->set("interpretation", VIPS_INTERPRETATION_sRGB)
                           ->set("xres", previewDpi / 25.4)
                           ->set("yres", previewDpi / 25.4));
    image.write_to_buffer(".png", &buffer, &size);
  } catch (const vips::VError&) {
    *error = path + ": cannot encode the preview: " + TakeVipsError();
    return false;
  }
  auto out = OutputFile::Create(path, error);
  const bool ok = out && out->Write(static_cast<const std::uint8_t*>(buffer), size) && out->Commit(error);
  g_free(buffer);
  return ok;
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
    const auto coverage = Coverage(page);
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
          "\"firstPrintedRow\": %d, \"lastPrintedRow\": %d}",
          firstJson ? "" : ",", number, page.Dpi, page.WidthDots, page.HeightRows, page.Mode,
          page.Color ? "true" : "false", page.BitsPerDot, s.Passes, s.Feeds, s.TotalFeed, s.StreamBytes, s.PassBytes,
          Ratio(s), s.Records, s.BlankRecords, s.RawRecords, coverage[0], coverage[1], coverage[2], coverage[3],
          page.RowsPrinted, page.RowsPrintedTwice, page.RowsInkedTwice, page.UnprintedRows, page.FirstPrintedRow,
          page.LastPrintedRow);
      firstJson = false;
    } else if (!options.Quiet) {
      std::printf("page %d: %.1f x %.1f mm (%d x %d dots at %d dpi), mode %d, %s, %d-bit dots\n", number,
                  page.WidthDots * mmPerDot, page.HeightRows * mmPerDot, page.WidthDots, page.HeightRows, page.Dpi,
                  page.Mode, page.Color ? "colour" : "monochrome", page.BitsPerDot);
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
      if (!WritePreview(RenderPreview(page, options.PreviewDpi), path, options.PreviewDpi, &error)) {
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
  std::vector<Line> lines;
  for (const decode::Command& c : job.Commands) lines.push_back({c.Offset, c.Length, c.Name});
  for (std::size_t p = 0; p < job.Pages.size(); ++p) {
    const decode::Page& page = job.Pages[p];
    for (const decode::Command& c : page.Commands) lines.push_back({c.Offset, c.Length, c.Name});
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
