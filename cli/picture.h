// Writing RGB pictures as PNG files (previews, proofs), through libvips and the output file that
// replaces its target only when complete.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace inkweave::cli {

// rgb: width x height pixels of three bytes; dpi: the resolution recorded in the file.
bool WritePng(const std::vector<std::uint8_t>& rgb, int width, int height, int dpi, const std::string& path,
              std::string* error);

}  // namespace inkweave::cli
