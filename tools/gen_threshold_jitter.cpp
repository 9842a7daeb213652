// Writes src/data/generated/threshold_jitter.cpp: the threshold jitter of error diffusion.
//
//   ThresholdJitter      256 bytes 0..31, read in sequence by the one-bit diffusion to raise its
//                        threshold. The first sixteen are fixed; the other 240 are uniform draws of
//                        0..31, then nudged one step at a time (random positions, never leaving 0..31)
//                        until the whole table sums to exactly 3997.
//   ThresholdJitterWide  1,024 signed 32-bit draws for the multi-level diffusion, which uses them as
//                        the threshold (value >> 4) + 200. value = 16 d + n, with d triangular on
//                        -64..64 (the sum of two uniform draws of 0..64, less 64) and n uniform 0..15
//                        (shifted away; kept so the values are whole draws). The jittered thresholds
//                        thus spread over 136..264, most of them near 200, the same scale as the
//                        map's highest threshold (192).
//
// Usage: gen-threshold-jitter <output.cpp>. Standard library only; integer arithmetic on a SplitMix64
// generator from the fixed seed below, so the output is the same everywhere.
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "tools/generator.h"

namespace {

using inkweave::tools::Appendf;

constexpr const char* kTool = "gen_threshold_jitter.cpp";

constexpr std::uint64_t kSeed = 0x5EED0717E2000001ull;
constexpr int kJitter = 256;
constexpr int kJitterWide = 1024;
constexpr int kJitterSum = 3997;
constexpr std::array<int, 16> kGivenStart = {1, 0, 30, 9, 25, 8, 26, 13, 3, 0, 14, 15, 31, 28, 15, 30};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-threshold-jitter <output.cpp>\n");
    return 2;
  }
  inkweave::tools::SplitMix64 rng{kSeed};

  std::array<int, kJitter> jitter{};
  int sum = 0;
  for (int i = 0; i < kJitter; ++i) {
    jitter[std::size_t(i)] = i < 16 ? kGivenStart[std::size_t(i)] : rng.Below(32);
    sum += jitter[std::size_t(i)];
  }
  while (sum != kJitterSum) {
    int& v = jitter[std::size_t(16 + rng.Below(kJitter - 16))];
    if (sum < kJitterSum && v < 31) {
      ++v;
      ++sum;
    } else if (sum > kJitterSum && v > 0) {
      --v;
      --sum;
    }
  }

  std::array<std::int32_t, kJitterWide> wide{};
  for (auto& v : wide) {
    const int d = rng.Below(65) + rng.Below(65) - 64;
    v = d * 16 + rng.Below(16);
  }

  std::string out = inkweave::tools::Provenance(kTool);
  Appendf(out, "// SplitMix64 seed 0x%016llX.\n", static_cast<unsigned long long>(kSeed));
  out += "#include \"src/data/tables.h\"\n\nnamespace inkweave {\n\nconst std::uint8_t ThresholdJitter[256] = {\n   ";
  inkweave::tools::AppendRows(out, kJitter, 16, "\n   ", "",
                              [&](std::string& o, std::size_t i) { Appendf(o, " %d,", jitter[i]); });
  out += "\n};\n\nconst std::int32_t ThresholdJitterWide[1024] = {\n   ";
  inkweave::tools::AppendRows(out, kJitterWide, 16, "\n   ", "",
                              [&](std::string& o, std::size_t i) { Appendf(o, " %d,", wide[i]); });
  out += "\n};\n\n}  // namespace inkweave\n";
  return inkweave::tools::WriteGenerated(kTool, argv[1], out) ? 0 : 1;
}
