// Writes src/data/generated/interpolation_weights.cpp: the trilinear weights of the colour conversion.
//
// Entry (fr * 16 + fg) * 16 + fb holds, for the 4-bit fractions fr, fg, fb of red, green and blue, the
// weights of the eight corners of a grid cell. Byte b belongs to the corner one grid step further in
// red if bit value 1 of b is set, in green if 2 is set, in blue if 4 is set; its value is
// floor(255 wr wg wb) with the axis factor f / 16 for a corner further along the axis and 1 - f / 16
// otherwise, computed exactly as floor(255 ar ag ab / 4096) with a = f or 16 - f. Byte 0 is stored
// for completeness; the conversion takes the base corner's weight as 255 minus the other seven.
//
// Usage: gen-interpolation-weights <output.cpp>. Standard library only, integer arithmetic, no random
// draws (seed: none).
#include <cstdio>
#include <string>

#include "tools/generator.h"

namespace {

constexpr const char* kTool = "gen_interpolation_weights.cpp";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-interpolation-weights <output.cpp>\n");
    return 2;
  }
  std::string out = inkweave::tools::Provenance(kTool);
  out += "// Byte b of entry (fr * 16 + fg) * 16 + fb: floor(255 wr wg wb) for the corner b (bit 1 red,\n";
  out += "// 2 green, 4 blue further). Integer arithmetic; seed: none (no random draws).\n";
  out += "#include \"src/data/tables.h\"\n\nnamespace inkweave {\n\n";
  out += "const std::uint8_t InterpolationWeights[4096][8] = {\n";
  for (int fr = 0; fr < 16; ++fr) {
    for (int fg = 0; fg < 16; ++fg) {
      inkweave::tools::Appendf(out, "    // fr %d, fg %d, fb 0..15\n    ", fr, fg);
      inkweave::tools::AppendRows(out, 16, 4, "\n    ", " ", [&](std::string& o, std::size_t fb) {
        const int f[3] = {fr, fg, static_cast<int>(fb)};
        o += "{";
        inkweave::tools::AppendRows(o, 8, 8, "", ",", [&](std::string& bytes, std::size_t b) {
          int product = 255;
          for (int axis = 0; axis < 3; ++axis) product *= (b >> axis & 1) ? f[axis] : 16 - f[axis];
          inkweave::tools::Appendf(bytes, "%d", product / 4096);
        });
        o += "},";
      });
      out += "\n";
    }
  }
  out += "};\n\n}  // namespace inkweave\n";
  return inkweave::tools::WriteGenerated(kTool, argv[1], out) ? 0 : 1;
}
