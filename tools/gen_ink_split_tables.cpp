// Writes src/data/generated/ink_split_tables.cpp: the eleven ink-split tables of error diffusion.
//
// Row g of a table (g = grey component, 0..255) holds what to take away from cyan, magenta and yellow,
// and (fourth value) what to take away from g itself to leave the black ink.
//
//   - Tables 8, 9 and 10 are the plain rule: row g = (g, g, g, 0), full removal of the grey component
//     into black.
//   - Tables 0..7 are measured curves known at g = 64, 128, 192 and 255, with the first g that gets
//     black ink. Each colour column is the monotone piecewise cubic of Fritsch and Carlson through
//     (0, 0) and the four measured rows. Black ink K(g) = g - fourth value is interpolated the same
//     way through (0, 0), (first - 1, 0) and the measured rows from the first g on, then rounded and
//     held at 1 or more from the first g and at most g, so black starts exactly there, never falls
//     and never exceeds the grey component. Where the
//     measured black stops growing (the tables of the highest resolution hold black at 192 from
//     g = 192 on) the curve is flat, so the fourth value grows again with g.
//
// Fritsch-Carlson keeps each interval between knots monotone and never overshoots the knot values, so
// the curves pass exactly through every measured row and stay between their neighbours.
//
// Usage: gen-ink-split-tables <output.cpp>. Standard library only, no random input; the arithmetic is
// +, -, *, / and sqrt, all correctly rounded in IEEE double, so every machine writes the same bytes.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/generator.h"

namespace {

using inkweave::tools::Appendf;

constexpr const char* kTool = "gen_ink_split_tables.cpp";

constexpr int kTables = 11;
constexpr int kMeasuredTables = 8;
constexpr int kRows = 256;

struct MeasuredTable {
  std::array<std::array<int, 4>, 4> rows;  // at g = 64, 128, 192, 255: cyan, magenta, yellow, black
  int firstBlack;                          // first g with black ink
};

constexpr std::array<int, 4> kMeasuredG = {64, 128, 192, 255};

constexpr std::array<MeasuredTable, kMeasuredTables> kMeasured = {{
    {{{{25, 12, -6, 60}, {76, 55, 33, 69}, {144, 128, 109, 41}, {255, 255, 255, 0}}}, 53},
    {{{{22, 11, -9, 64}, {61, 29, -2, 105}, {131, 109, 80, 67}, {255, 255, 255, 0}}}, 88},
    {{{{21, 1, -9, 64}, {65, 28, 11, 95}, {136, 107, 89, 60}, {255, 255, 255, 0}}}, 72},
    {{{{34, 20, 2, 51}, {108, 100, 87, 34}, {192, 192, 192, 0}, {255, 255, 241, 63}}}, 38},
    {{{{22, 8, -18, 64}, {66, 39, 5, 95}, {134, 113, 79, 60}, {255, 255, 255, 0}}}, 72},
    {{{{34, 24, 3, 51}, {109, 102, 88, 34}, {192, 192, 192, 0}, {255, 255, 240, 63}}}, 38},
    {{{{20, 10, -9, 64}, {59, 29, -2, 105}, {129, 109, 80, 67}, {255, 255, 255, 0}}}, 88},
    {{{{32, 22, 9, 43}, {106, 106, 95, 27}, {192, 192, 192, 0}, {255, 255, 243, 63}}}, 35},
}};

struct Knot {
  double x;
  double y;
};

// The monotone cubic of Fritsch and Carlson through the knots (x strictly rising), evaluated at
// every integer 0..255 and rounded half away from zero.
std::array<int, kRows> MonotoneCubic(const std::vector<Knot>& k) {
  const std::size_t n = k.size();
  std::vector<double> delta(n - 1);
  for (std::size_t i = 0; i + 1 < n; ++i) delta[i] = (k[i + 1].y - k[i].y) / (k[i + 1].x - k[i].x);
  std::vector<double> m(n);
  m[0] = delta[0];
  m[n - 1] = delta[n - 2];
  for (std::size_t i = 1; i + 1 < n; ++i) {
    m[i] = (delta[i - 1] * delta[i] > 0) ? (delta[i - 1] + delta[i]) / 2 : 0.0;
  }
  for (std::size_t i = 0; i + 1 < n; ++i) {
    if (delta[i] == 0) {
      m[i] = 0;
      m[i + 1] = 0;
      continue;
    }
    const double a = m[i] / delta[i];
    const double b = m[i + 1] / delta[i];
    if (a < 0) m[i] = 0;
    if (b < 0) m[i + 1] = 0;
    const double s = a * a + b * b;
    if (s > 9) {
      const double tau = 3 / std::sqrt(s);
      m[i] = tau * a * delta[i];
      m[i + 1] = tau * b * delta[i];
    }
  }
  std::array<int, kRows> out{};
  std::size_t seg = 0;
  for (int g = 0; g < kRows; ++g) {
    const double x = g;
    while (seg + 2 < n && x > k[seg + 1].x) ++seg;
    if (x <= k[0].x) {
      out[static_cast<std::size_t>(g)] = static_cast<int>(k[0].y);
      continue;
    }
    const double h = k[seg + 1].x - k[seg].x;
    const double t = (x - k[seg].x) / h;
    const double t2 = t * t;
    const double t3 = t2 * t;
    const double y = (2 * t3 - 3 * t2 + 1) * k[seg].y + (t3 - 2 * t2 + t) * h * m[seg] +
                     (-2 * t3 + 3 * t2) * k[seg + 1].y + (t3 - t2) * h * m[seg + 1];
    out[static_cast<std::size_t>(g)] = static_cast<int>(y < 0 ? -std::floor(-y + 0.5) : std::floor(y + 0.5));
  }
  return out;
}

using Table = std::array<std::array<int, 4>, kRows>;

Table MeasuredCurves(const MeasuredTable& t) {
  Table table{};
  for (int ink = 0; ink < 3; ++ink) {
    std::vector<Knot> knots = {{0, 0}};
    for (std::size_t r = 0; r < 4; ++r) knots.push_back({double(kMeasuredG[r]), double(t.rows[r][std::size_t(ink)])});
    const auto curve = MonotoneCubic(knots);
    for (int g = 0; g < kRows; ++g) table[std::size_t(g)][std::size_t(ink)] = curve[std::size_t(g)];
  }
  // Black ink through (0, 0), (first - 1, 0) and the measured rows from the first g on.
  std::vector<Knot> knots = {{0, 0}, {double(t.firstBlack - 1), 0}};
  for (std::size_t r = 0; r < 4; ++r) {
    if (kMeasuredG[r] >= t.firstBlack) {
      knots.push_back({double(kMeasuredG[r]), double(kMeasuredG[r] - t.rows[r][3])});
    }
  }
  const auto black = MonotoneCubic(knots);
  for (int g = 0; g < kRows; ++g) {
    int k = black[std::size_t(g)];
    if (g >= t.firstBlack && k < 1) k = 1;
    if (g < t.firstBlack) k = 0;
    if (k > g) k = g;
    table[std::size_t(g)][3] = g - k;
  }
  return table;
}

Table RuleTable() {
  Table table{};
  for (int g = 0; g < kRows; ++g) table[std::size_t(g)] = {g, g, g, 0};
  return table;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-ink-split-tables <output.cpp>\n");
    return 2;
  }
  std::vector<Table> tables;
  for (const auto& t : kMeasured) tables.push_back(MeasuredCurves(t));
  for (int i = kMeasuredTables; i < kTables; ++i) tables.push_back(RuleTable());

  std::string out = inkweave::tools::Provenance(kTool);
  out +=
      "// Tables 0..7: Fritsch-Carlson monotone cubics through the measured rows; 8..10: (g, g, g, 0).\n"
      "// No random input (seed: none).\n"
      "#include \"src/data/tables.h\"\n\n"
      "namespace inkweave {\n\n"
      "const std::int16_t InkSplitTable[11][256][4] = {\n";
  for (int t = 0; t < kTables; ++t) {
    Appendf(out, "    {  // table %d\n", t);
    for (int g = 0; g < kRows; g += 4) {
      out += "        ";
      inkweave::tools::AppendRows(out, 4, 4, "", " ", [&](std::string& o, std::size_t j) {
        const auto& row = tables[std::size_t(t)][std::size_t(g) + j];
        Appendf(o, "{%d, %d, %d, %d},", row[0], row[1], row[2], row[3]);
      });
      Appendf(out, "  // g %d\n", g);
    }
    out += "    },\n";
  }
  out += "};\n\n}  // namespace inkweave\n";
  return inkweave::tools::WriteGenerated(kTool, argv[1], out) ? 0 : 1;
}
