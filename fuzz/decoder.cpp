// The stream decoder on any bytes: a job or an error inside the stream, never a crash; every printed page
// self-consistent, and a job cut short keeps the pages that ended before the cut. The input also
// serves as a row for the coders' round trip: what the plug-in's coders write, the decoder's read back
// to the same row.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <variant>
#include <vector>

#include "decode/decoder.h"
#include "src/raster/coders.h"

using namespace inkweave;

namespace {

void ExpectRoundTrip(const std::vector<std::uint8_t>& row, std::vector<std::uint8_t> codes, bool pattern) {
  auto decoded = pattern ? decode::DecodePattern(codes, row.size()) : decode::DecodePackBits(codes, row.size());
  const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&decoded);
  if (!bytes || *bytes != row) std::abort();  // the coders disagree
}

// Rows and counts within the page, every row whole.
void ExpectConsistent(const decode::PrintedPage& page) {
  const auto height = static_cast<std::size_t>(page.HeightRows);
  bool ok = page.HeightRows >= 0 && page.PrintCounts.size() == height && page.InkCounts.size() == height &&
            page.WidthDots <= decode::kMaxPageWidthDots && page.RowsPrinted <= page.HeightRows &&
            page.InkedRows <= page.RowsPrinted;
  for (const auto& plane : page.Bits)
    for (const auto& bits : plane) {
      ok = ok && bits.Rows.size() <= height;
      for (const auto& row : bits.Rows)
        ok = ok && (row.empty() || row.size() == static_cast<std::size_t>((page.WidthDots + 7) / 8));
    }
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto parsed = decode::ParseJob({data, size});
  if (auto* error = std::get_if<decode::Error>(&parsed)) {
    if (error->Offset > size) std::abort();
  } else {
    const decode::Job& job = std::get<decode::Job>(parsed);
    // The first half of a job that parses: the pages that ended in it, exactly.
    auto half = decode::ParseJob({data, size / 2});
    if (const auto* cut = std::get_if<decode::Job>(&half)) {
      if (cut->Pages.size() > job.Pages.size()) std::abort();
      for (std::size_t p = 0; p < cut->Pages.size(); ++p)
        if (cut->Pages[p].Passes.size() != job.Pages[p].Passes.size() ||
            cut->Pages[p].Stats.PassBytes != job.Pages[p].Stats.PassBytes)
          std::abort();
    }
    auto printed = decode::PrintJob(job);
    if (auto* pages = std::get_if<std::vector<decode::PrintedPage>>(&printed)) {
      if (pages->size() != job.Pages.size()) std::abort();
      for (const decode::PrintedPage& page : *pages) {
        ExpectConsistent(page);
        decode::GatherInk(page, -7, -3, page.WidthDots + 9, page.HeightRows + 5, 11, 5);
      }
    } else if (std::get<decode::Error>(printed).Offset > size) {
      std::abort();
    }
  }

  // A row of at most the widest plane (1,280 bytes).
  if (size == 0) return 0;
  const std::vector<std::uint8_t> row(data, data + std::min<std::size_t>(size, 1280));
  std::vector<std::uint8_t> codes(row.size() * 4 / 3 + 16 + row.size() / 127 + 2);
  const auto length = static_cast<std::uint16_t>(row.size());
  ExpectRoundTrip(row, {codes.begin(), codes.begin() + PatternEncode(codes.data(), row.data(), length)}, true);
  std::uint16_t packed = length;
  PackBitsEncode(codes.data(), row.data(), packed);
  ExpectRoundTrip(row, {codes.begin(), codes.begin() + packed}, false);
  return 0;
}
