// Writes src/data/generated/threshold_maps.cpp: the base thresholds of error diffusion.
//
// DiffusionThresholdMaps holds 271 rows of 128 bytes:
//   rows 0..127    the map of the one-bit diffusion, a 64 x 64 tile repeated twice each way, with
//                  only the thresholds 5, 50, 192 and 30 (2688, 1088, 256 and 64 cells a tile, so
//                  10752, 4352, 1024 and 256 over the map); tile row 0 starts with sixteen fixed
//                  values;
//   rows 128..255  the fine map of the multi-level diffusion, the same four thresholds in other
//                  proportions (3072, 768, 128 and 128 cells a tile), also a repeated 64 x 64 tile;
//   rows 256..270  the fine map's rows 0..14 again, for stripes that run past its last row.
//
// A tile is laid out class by class, rarest first (192, then 30, then 50; 5 fills the rest), by
// best-candidate sampling on the torus: every new cell of a class is, of eight random free cells, the
// one farthest from the cells of that class already placed. That spreads each threshold evenly over
// the tile without the regular lattice that strict farthest-point placement falls into.
//
// Usage: gen-threshold-maps <output.cpp>. Standard library only; the placement is integer arithmetic
// and a SplitMix64 generator from the fixed seeds below, so the output is the same everywhere.
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/generator.h"

namespace {

using inkweave::tools::Appendf;

constexpr const char* kTool = "gen_threshold_maps.cpp";

constexpr int kTile = 64;
constexpr int kCells = kTile * kTile;
constexpr int kMap = 128;
constexpr int kExtraRows = 15;
constexpr int kCandidates = 8;
constexpr std::uint64_t kCoarseSeed = 0x5EED0D1FF0500001ull;
constexpr std::uint64_t kFineSeed = 0x5EED0D1FF0500002ull;

constexpr std::array<int, 16> kGivenRow0 = {192, 5, 5, 5, 50, 5, 50, 50, 5, 5, 50, 50, 5, 5, 5, 5};

struct ClassCount {
  int value;
  int cells;  // per 64 x 64 tile
};

// Placement order: rarest classes first; the background value takes what is left.
constexpr std::array<ClassCount, 3> kCoarseClasses = {{{192, 256}, {30, 64}, {50, 1088}}};
constexpr std::array<ClassCount, 3> kFineClasses = {{{192, 128}, {30, 128}, {50, 768}}};
constexpr int kBackground = 5;

int TorusDelta(int a, int b) {
  int d = a > b ? a - b : b - a;
  return d > kTile / 2 ? kTile - d : d;
}

int TorusDistance2(int c1, int c2) {
  const int dy = TorusDelta(c1 / kTile, c2 / kTile);
  const int dx = TorusDelta(c1 % kTile, c2 % kTile);
  return dy * dy + dx * dx;
}

// A tile: value of every cell, 0 while unassigned. Fixed cells are given on entry.
std::vector<int> BuildTile(std::vector<int> tile, const std::array<ClassCount, 3>& classes, std::uint64_t seed) {
  inkweave::tools::SplitMix64 rng{seed};
  for (const ClassCount& cls : classes) {
    // Distance of every cell to the nearest cell of this class placed so far.
    std::vector<int> dist(kCells, 1 << 30);
    int placed = 0;
    for (int c = 0; c < kCells; ++c) {
      if (tile[std::size_t(c)] != cls.value) continue;
      ++placed;
      for (int o = 0; o < kCells; ++o) {
        const int d = TorusDistance2(c, o);
        if (d < dist[std::size_t(o)]) dist[std::size_t(o)] = d;
      }
    }
    for (; placed < cls.cells; ++placed) {
      // Best of kCandidates random free cells: the one farthest from the class (first on ties).
      int cell = -1;
      for (int k = 0; k < kCandidates;) {
        const int c = static_cast<int>(rng.Next() >> 52);  // 12 bits: 0..4095
        if (tile[std::size_t(c)] != 0) continue;
        if (cell < 0 || dist[std::size_t(c)] > dist[std::size_t(cell)]) cell = c;
        ++k;
      }
      tile[std::size_t(cell)] = cls.value;
      for (int o = 0; o < kCells; ++o) {
        const int d = TorusDistance2(cell, o);
        if (d < dist[std::size_t(o)]) dist[std::size_t(o)] = d;
      }
    }
  }
  for (int& v : tile) {
    if (v == 0) v = kBackground;
  }
  return tile;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-threshold-maps <output.cpp>\n");
    return 2;
  }
  std::vector<int> coarseStart(kCells, 0);
  for (std::size_t x = 0; x < kGivenRow0.size(); ++x) coarseStart[x] = kGivenRow0[x];
  // The fixed cells count as placed (the background ones as taken).
  const std::vector<int> coarse = BuildTile(coarseStart, kCoarseClasses, kCoarseSeed);
  const std::vector<int> fine = BuildTile(std::vector<int>(kCells, 0), kFineClasses, kFineSeed);

  std::vector<std::array<int, kMap>> rows;
  for (int y = 0; y < kMap; ++y) {
    std::array<int, kMap> row{};
    for (int x = 0; x < kMap; ++x) row[std::size_t(x)] = coarse[std::size_t((y % kTile) * kTile + x % kTile)];
    rows.push_back(row);
  }
  for (int y = 0; y < kMap + kExtraRows; ++y) {
    std::array<int, kMap> row{};
    for (int x = 0; x < kMap; ++x) row[std::size_t(x)] = fine[std::size_t((y % kTile) * kTile + x % kTile)];
    rows.push_back(row);
  }

  std::string out = inkweave::tools::Provenance(kTool);
  Appendf(out, "// Best-candidate tiles; seeds 0x%016llX (map), 0x%016llX (fine map).\n",
          static_cast<unsigned long long>(kCoarseSeed), static_cast<unsigned long long>(kFineSeed));
  out += "#include \"src/data/tables.h\"\n\nnamespace inkweave {\n\n";
  out += "const std::uint8_t DiffusionThresholdMaps[kThresholdMapRowsStored][128] = {\n";
  for (std::size_t y = 0; y < rows.size(); ++y) {
    if (y == 0) out += "    // DiffusionThresholdMap\n";
    if (y == kMap) out += "    // DiffusionThresholdMapFine\n";
    if (y == 2 * kMap) out += "    // fine map rows 0..14 again\n";
    out += "    {\n        ";
    inkweave::tools::AppendRows(out, kMap, 32, "\n        ", " ",
                                [&](std::string& o, std::size_t x) { Appendf(o, "%d,", rows[y][x]); });
    Appendf(out, "\n    },  // row %zu\n", y);
  }
  out += "};\n\n}  // namespace inkweave\n";
  return inkweave::tools::WriteGenerated(kTool, argv[1], out) ? 0 : 1;
}
