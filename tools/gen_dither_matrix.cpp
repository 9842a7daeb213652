// Writes src/data/generated/dither_matrix.cpp: the ordered-dither threshold matrix.
//
// The matrix is a 64 x 64 tile repeated twice in each direction (128 x 128). The tile's 4096 cells
// take thresholds rank / 16 with the three lowest levels merged into 2, so every threshold 3..255
// occurs 16 times and 2 occurs 48 times. The first sixteen cells of tile rows 0 and 1 are fixed
// values; the rest are placed by void-and-cluster on the torus (Gaussian filter, sigma 1.5):
//
//   1. an initial pattern holding the cells of the levels below kInitialLevel (about 11 % of the
//      tile), random from a fixed seed, with the fixed cells of those levels in it and the fixed
//      cells of higher levels kept out of it, relaxed by moving its tightest cluster to the largest
//      void until that stops changing it;
//   2. the initial pattern is taken apart level by level downwards: each level's fixed cell first,
//      then the tightest clusters among the free cells;
//   3. from the initial pattern the tile is grown level by level upwards: each level's fixed cell
//      first, then the largest voids among the free cells.
//
// Within a level the order of cells does not matter (they share one threshold), so fixing a cell's
// level is all a given value asks for. Fifteen rows follow the matrix for the gray renderers, whose
// threshold row is not reduced after a stripe's first line: they repeat rows 0..14, so a stripe that
// runs past row 127 continues the tile.
//
// Usage: gen-dither-matrix <output.cpp>. Standard library only; all arithmetic that decides the
// placement is integer (the filter weights are rounded once), so the output is the same everywhere.
#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "tools/generator.h"

namespace {

using inkweave::tools::Appendf;

constexpr const char* kTool = "gen_dither_matrix.cpp";

constexpr int kTile = 64;
constexpr int kCells = kTile * kTile;
constexpr int kMatrix = 128;
constexpr int kExtraRows = 15;
constexpr int kLowestLevel = 2;    // levels 0, 1 and 2 are merged into 2
constexpr int kInitialLevel = 29;  // the initial pattern holds levels 2..28: 48 + 26 * 16 = 464 cells
constexpr std::uint32_t kSeed = 0x1D17E5EDu;
constexpr double kSigma = 1.5;
constexpr int kMaxRelaxSwaps = 100000;  // the relaxation converges long before
constexpr double kWeightScale = 1 << 20;

// The fixed values of tile rows 0 and 1, columns 0..15.
constexpr std::array<int, 16> kGivenRow0 = {66, 159, 47, 100, 196, 52, 228, 4, 76, 147, 35, 99, 200, 56, 232, 8};
constexpr std::array<int, 16> kGivenRow1 = {175, 95, 255, 127, 132, 212, 20, 180, 163, 83, 243, 115, 136, 216, 24, 184};

int CellsOfLevel(int level) { return level == kLowestLevel ? 48 : 16; }

// exp(-x) for small x >= 0 by its series; only +, * and / so every IEEE machine gives the same bits.
double ExpNeg(double x) {
  double term = 1.0;
  double sum = 1.0;
  for (int n = 1; n < 40; ++n) {
    term = term * -x / n;
    sum += term;
  }
  return sum;
}

// Filter weight by squared torus distance: q^d2 with q = exp(-1 / (2 sigma^2)), scaled and rounded.
std::vector<std::int64_t> FilterBySquaredDistance() {
  const int maxD2 = 2 * (kTile / 2) * (kTile / 2);
  const double q = ExpNeg(1.0 / (2.0 * kSigma * kSigma));
  std::vector<std::int64_t> weights(static_cast<std::size_t>(maxD2) + 1);
  double w = 1.0;
  for (int d2 = 0; d2 <= maxD2; ++d2) {
    weights[static_cast<std::size_t>(d2)] = static_cast<std::int64_t>(w * kWeightScale + 0.5);
    w *= q;
  }
  return weights;
}

int TorusDelta(int a, int b) {
  int d = a - b;
  if (d < 0) d = -d;
  return d > kTile / 2 ? kTile - d : d;
}

// The dot pattern with its filtered energy: energy[c] is the sum of the filter over all dots.
struct Pattern {
  std::vector<std::int64_t> kernel;  // by cell offset (dy * 64 + dx, torus)
  std::vector<std::uint8_t> dot;
  std::vector<std::int64_t> energy;
};

Pattern MakePattern() {
  Pattern p;
  const std::vector<std::int64_t> byD2 = FilterBySquaredDistance();
  p.kernel.resize(kCells);
  for (int dy = 0; dy < kTile; ++dy) {
    for (int dx = 0; dx < kTile; ++dx) {
      const int ty = TorusDelta(dy, 0);
      const int tx = TorusDelta(dx, 0);
      p.kernel[static_cast<std::size_t>(dy * kTile + dx)] = byD2[static_cast<std::size_t>(ty * ty + tx * tx)];
    }
  }
  p.dot.assign(kCells, 0);
  p.energy.assign(kCells, 0);
  return p;
}

void Toggle(Pattern& p, int cell, bool on) {
  p.dot[static_cast<std::size_t>(cell)] = on ? 1 : 0;
  const std::int64_t sign = on ? 1 : -1;
  const int cy = cell / kTile;
  const int cx = cell % kTile;
  for (int y = 0; y < kTile; ++y) {
    const int dy = (y - cy + kTile) % kTile;
    for (int x = 0; x < kTile; ++x) {
      const int dx = (x - cx + kTile) % kTile;
      p.energy[static_cast<std::size_t>(y * kTile + x)] += sign * p.kernel[static_cast<std::size_t>(dy * kTile + dx)];
    }
  }
}

// The dot with the highest energy among the cells allowed (ties: lowest cell).
int TightestCluster(const Pattern& p, const std::vector<std::uint8_t>& allowed) {
  int best = -1;
  for (int c = 0; c < kCells; ++c) {
    const auto i = static_cast<std::size_t>(c);
    if (p.dot[i] && allowed[i] && (best < 0 || p.energy[i] > p.energy[static_cast<std::size_t>(best)])) best = c;
  }
  return best;
}

// The empty cell with the lowest energy among the cells allowed (ties: lowest cell).
int LargestVoid(const Pattern& p, const std::vector<std::uint8_t>& allowed) {
  int best = -1;
  for (int c = 0; c < kCells; ++c) {
    const auto i = static_cast<std::size_t>(c);
    if (!p.dot[i] && allowed[i] && (best < 0 || p.energy[i] < p.energy[static_cast<std::size_t>(best)])) best = c;
  }
  return best;
}

struct Tile {
  std::vector<int> level;  // threshold of every cell
  int relaxSwaps = 0;
};

Tile BuildTile() {
  Tile tile;
  tile.level.assign(kCells, -1);
  std::vector<int> givenCellOfLevel(256, -1);
  std::vector<std::uint8_t> free(kCells, 1);  // neither fixed nor yet placed
  for (int x = 0; x < 16; ++x) {
    givenCellOfLevel[static_cast<std::size_t>(kGivenRow0[static_cast<std::size_t>(x)])] = x;
    givenCellOfLevel[static_cast<std::size_t>(kGivenRow1[static_cast<std::size_t>(x)])] = kTile + x;
    free[static_cast<std::size_t>(x)] = 0;
    free[static_cast<std::size_t>(kTile + x)] = 0;
  }

  // 1. The initial pattern: fixed low cells plus random free cells, then relaxed.
  int initialDots = 0;
  for (int level = kLowestLevel; level < kInitialLevel; ++level) initialDots += CellsOfLevel(level);
  Pattern p = MakePattern();
  for (int level = kLowestLevel; level < kInitialLevel; ++level) {
    const int cell = givenCellOfLevel[static_cast<std::size_t>(level)];
    if (cell >= 0) {
      Toggle(p, cell, true);
      --initialDots;
    }
  }
  std::mt19937 rng(kSeed);
  while (initialDots > 0) {
    const int cell = static_cast<int>(rng() >> 20);  // 12 bits: 0..4095
    if (free[static_cast<std::size_t>(cell)] && !p.dot[static_cast<std::size_t>(cell)]) {
      Toggle(p, cell, true);
      --initialDots;
    }
  }
  for (int swaps = 0; swaps < kMaxRelaxSwaps; ++swaps) {
    const int cluster = TightestCluster(p, free);
    Toggle(p, cluster, false);
    const int hole = LargestVoid(p, free);
    Toggle(p, hole, true);
    if (hole == cluster) break;
    ++tile.relaxSwaps;
  }
  const std::vector<std::uint8_t> initial = p.dot;

  // 2. Take the initial pattern apart, highest level first.
  for (int level = kInitialLevel - 1; level >= kLowestLevel; --level) {
    int left = CellsOfLevel(level);
    const int given = givenCellOfLevel[static_cast<std::size_t>(level)];
    if (given >= 0) {
      Toggle(p, given, false);
      tile.level[static_cast<std::size_t>(given)] = level;
      --left;
    }
    for (; left > 0; --left) {
      const int cell = TightestCluster(p, free);
      Toggle(p, cell, false);
      tile.level[static_cast<std::size_t>(cell)] = level;
      free[static_cast<std::size_t>(cell)] = 0;
    }
  }

  // 3. Grow from the initial pattern, lowest remaining level first.
  for (int c = 0; c < kCells; ++c) {
    if (initial[static_cast<std::size_t>(c)]) Toggle(p, c, true);
  }
  for (int level = kInitialLevel; level <= 255; ++level) {
    int left = CellsOfLevel(level);
    const int given = givenCellOfLevel[static_cast<std::size_t>(level)];
    if (given >= 0) {
      Toggle(p, given, true);
      tile.level[static_cast<std::size_t>(given)] = level;
      --left;
    }
    for (; left > 0; --left) {
      const int cell = LargestVoid(p, free);
      Toggle(p, cell, true);
      tile.level[static_cast<std::size_t>(cell)] = level;
      free[static_cast<std::size_t>(cell)] = 0;
    }
  }
  return tile;
}

// Refuses to write a tile that breaks the rules above.
bool CheckTile(const Tile& tile) {
  std::vector<int> count(256, 0);
  for (int c = 0; c < kCells; ++c) {
    const int v = tile.level[static_cast<std::size_t>(c)];
    if (v < kLowestLevel || v > 255) return false;
    ++count[static_cast<std::size_t>(v)];
  }
  for (int v = kLowestLevel; v <= 255; ++v) {
    if (count[static_cast<std::size_t>(v)] != CellsOfLevel(v)) return false;
  }
  for (int x = 0; x < 16; ++x) {
    if (tile.level[static_cast<std::size_t>(x)] != kGivenRow0[static_cast<std::size_t>(x)]) return false;
    if (tile.level[static_cast<std::size_t>(kTile + x)] != kGivenRow1[static_cast<std::size_t>(x)]) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-dither-matrix <output.cpp>\n");
    return 2;
  }
  const Tile tile = BuildTile();
  if (!CheckTile(tile)) {
    std::fprintf(stderr, "gen-dither-matrix: the tile breaks its level counts or fixed values\n");
    return 1;
  }

  std::string out = inkweave::tools::Provenance(kTool);
  Appendf(out,
          "// Void-and-cluster on a 64 x 64 torus, Gaussian sigma %.1f, seed 0x%08X, initial pattern of\n"
          "// levels 2..%d relaxed in %d swaps. The tile is repeated twice in each direction; rows 128..142\n"
          "// repeat rows 0..14 for the gray renderers.\n",
          kSigma, static_cast<unsigned>(kSeed), kInitialLevel - 1, tile.relaxSwaps);
  out += "#include \"src/data/tables.h\"\n\nnamespace inkweave {\n\n";
  out += "const std::uint8_t DitherMatrix[kDitherRowsStored][kDitherSize] = {\n";
  for (int row = 0; row < kMatrix + kExtraRows; ++row) {
    const int tileRow = (row % kMatrix) % kTile;
    Appendf(out, "    // row %d\n    {", row);
    inkweave::tools::AppendRows(out, kMatrix, 16, "\n     ", " ", [&](std::string& o, std::size_t col) {
      Appendf(o, "%3d%s", tile.level[static_cast<std::size_t>(tileRow * kTile) + col % kTile],
              col + 1 < static_cast<std::size_t>(kMatrix) ? "," : "");
    });
    out += "},\n";
  }
  out += "};\n\n}  // namespace inkweave\n";
  return inkweave::tools::WriteGenerated(kTool, argv[1], out) ? 0 : 1;
}
