// The stream decoder on any bytes: a job or an error inside the stream, never a crash. The input also
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto parsed = decode::ParseJob({data, size});
  if (auto* error = std::get_if<decode::Error>(&parsed)) {
    if (error->Offset > size) std::abort();
  } else if (auto printed = decode::PrintJob(std::get<decode::Job>(parsed));
             auto* pages = std::get_if<std::vector<decode::PrintedPage>>(&printed)) {
    for (const decode::PrintedPage& page : *pages)
      decode::GatherInk(page, -7, -3, page.WidthDots + 9, page.HeightRows + 5, 11, 5);
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
