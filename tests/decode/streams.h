// Job streams written out by hand for the decoder tests: the job and page groups as byte strings and a
// few helpers for feeds and records. Nothing here comes from the plug-in core.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "decode/decoder.h"
#include "tests/support/bytes.h"
#include "tests/support/print_stream.h"

namespace inkweave::decode::testing {

using inkweave::testing::Bytes;
using inkweave::testing::Hex;
using inkweave::testing::ParseStream;
using inkweave::testing::Zeros;
using inkweave::testing::operator+;

// 2,000 zero bytes, raster language, reset, raster language again.
inline Bytes JobStart() { return Zeros(2000) + Hex("1B 7C 01 00 03 1B 40 1B 7C 01 00 03"); }

// Raster language, "R", "I", "M", "D" 02, "N" 05 00.
inline Bytes ModeSettings(const std::string& resolution, const std::string& ink, const std::string& compression) {
  return Hex("1B 7C 01 00 03 52 " + resolution + " 49 " + ink + " 4D " + compression + " 44 02 4E 05 00");
}

inline Bytes PageEnd() { return Hex("0C") + Zeros(500); }
inline Bytes JobEnd() { return Hex("1B 40"); }

inline Bytes Feed(unsigned units) {
  return Bytes{0x46, static_cast<std::uint8_t>(units & 0xFF), static_cast<std::uint8_t>(units >> 8)};
}

inline Bytes Blanks(std::size_t n) { return Bytes(n, 0x5A); }

// "G" with a 16-bit length word (flags included) and the data as given.
inline Bytes Record(unsigned lengthWord, const Bytes& data) {
  return Bytes{0x47, static_cast<std::uint8_t>(lengthWord & 0xFF), static_cast<std::uint8_t>(lengthWord >> 8)} + data;
}
inline Bytes Coded(const Bytes& codes) { return Record(static_cast<unsigned>(codes.size()), codes); }
inline Bytes RawRow(const Bytes& row) { return Record(static_cast<unsigned>(row.size()) | 0x8000, row); }

// The page-start group (settings, filler, padding, "Y", "X", paper A4).
inline Bytes PageStart(const std::string& resolution, const std::string& ink, const std::string& compression) {
  return ModeSettings(resolution, ink, compression) + Zeros(503) + Hex("59 00 00 58 00 00 73 01");
}

// A job up to the raster part of its first page.
inline Bytes Head(const std::string& resolution, const std::string& ink, const std::string& compression = "05") {
  return JobStart() + ModeSettings(resolution, ink, compression) + PageStart(resolution, ink, compression);
}

// A one-page job around `body` (the raster part of the page).
inline Bytes OnePage(const std::string& resolution, const std::string& ink, const std::string& compression,
                     const Bytes& body) {
  return Head(resolution, ink, compression) + body + PageEnd() + JobEnd();
}

inline Error MustFail(const Bytes& stream, const DecodeOptions& options = {}) {
  auto result = ParseJob(stream, options);
  if (auto* error = std::get_if<Error>(&result)) return *error;
  auto printed = PrintJob(std::get<Job>(result), options);
  if (auto* error = std::get_if<Error>(&printed)) return *error;
  ADD_FAILURE() << "stream decoded without an error";
  return {};
}

}  // namespace inkweave::decode::testing
