// Writes src/data/generated/ink_split_tables.cpp: the eleven ink-split tables of error diffusion.
//
// Row g of a table (g = grey component, 0..255) holds what to take away from cyan, magenta and yellow,
// and (fourth value) what to take away from g itself to leave the black ink.
//
//   - Tables 8, 9 and 10 are the plain rule: row g = (g, g, g, 0), full removal of the grey component
//     into black.
//   - Tables 0..7 are measured curves known at g = 64, 128, 192 and 255, with the first g that gets
//     black ink. Black ink K(g) = g - fourth value is the monotone piecewise cubic of Fritsch and
//     Carlson through (0, 0), (first - 1, 0) and the measured rows from the first g on, rounded and
//     held at 1 or more from the first g and at most g, so black starts exactly there, never falls
//     and never exceeds the grey component. Where the measured black stops growing (the tables of the
//     highest resolution hold black at 192 from g = 192 on) the curve is flat, so the fourth value
//     grows again with g.
//   - Between the measured rows the colour that a row leaves under black is the printer model's
//     inverse (tools/table_print.h: the halftoner the table serves, then the ink model): the cyan,
//     magenta and yellow that print neutral on every medium and resolution the table serves, at the
//     lightness of a monotone cubic through the measured rows as they print on the first of them (the
//     medium the measured rows were balanced on). A measured row that prints darker than a later one
//     (the rich black at g = 192 of the tables that leave black alone at 255) is left out of that
//     curve, and the rows above it are black alone: greys can then go from paper to black through rows
//     that darken all the way. Rows past the black of the colour tables a use serves (their ink limit)
//     are never reached there and answer to the other uses.
//
// Usage: gen-ink-split-tables <output.cpp>. Links the core's halftoners and the printer model; no
// random input (seed: none). The inversion uses pow and cbrt, so a machine whose libm rounds
// differently could move a value that lies on a rounding edge; the staleness test would say so.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/generator.h"
#include "tools/table_print.h"

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
// every integer 0..255 (held at the first knot's value before it).
std::array<double, kRows> MonotoneCurve(const std::vector<Knot>& k) {
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
  std::array<double, kRows> out{};
  std::size_t seg = 0;
  for (int g = 0; g < kRows; ++g) {
    const double x = g;
    while (seg + 2 < n && x > k[seg + 1].x) ++seg;
    if (x <= k[0].x) {
      out[static_cast<std::size_t>(g)] = k[0].y;
      continue;
    }
    const double h = k[seg + 1].x - k[seg].x;
    const double t = (x - k[seg].x) / h;
    const double t2 = t * t;
    const double t3 = t2 * t;
    out[static_cast<std::size_t>(g)] = (2 * t3 - 3 * t2 + 1) * k[seg].y + (t3 - 2 * t2 + t) * h * m[seg] +
                                       (-2 * t3 + 3 * t2) * k[seg + 1].y + (t3 - t2) * h * m[seg + 1];
  }
  return out;
}

int RoundHalfAway(double y) { return static_cast<int>(y < 0 ? -std::floor(-y + 0.5) : std::floor(y + 0.5)); }

// The same, rounded half away from zero.
std::array<int, kRows> MonotoneCubic(const std::vector<Knot>& k) {
  const std::array<double, kRows> curve = MonotoneCurve(k);
  std::array<int, kRows> out{};
  for (std::size_t g = 0; g < kRows; ++g) out[g] = RoundHalfAway(curve[g]);
  return out;
}

using Table = std::array<std::array<int, 4>, kRows>;

using inkweave::tables::Screen;
using inkweave::tables::Use;

// A medium and resolution a measured table serves, and the grey component of the black that the
// colour tables print there (their black corner: 255, or the ink limit 192 or 178); rows past it are
// never reached on that use.
struct Serving {
  Use Where;
  int Black;
};

// Where each measured table prints, as the error-diffusion renderers choose it (resolution code and
// media; media 4 and 5 take the rule tables).
std::vector<Serving> UsesOf(int table) {
  switch (table) {
    case 0: {  // every medium at 150 dpi (one-bit pair) and 300 dpi (three dot sizes)
      std::vector<Serving> uses;
      for (int medium = 0; medium < 4; ++medium) {
        const int black = medium >= 2 ? 192 : 255;  // glossy and photographic tables hold black to c0
        uses.push_back({{Screen::DiffuseMid, medium, 300, table}, black});
        uses.push_back({{Screen::DiffuseLow, medium, 150, table}, black});
      }
      return uses;
    }
    case 1: return {{{Screen::DiffuseHigh, 0, 600, table}, 255}};
    case 2: return {{{Screen::DiffuseHigh, 1, 600, table}, 255}};
    case 3: return {{{Screen::DiffuseTop, 0, 1200, table}, 255}, {{Screen::DiffuseTop, 1, 1200, table}, 178}};
    case 4: return {{{Screen::DiffuseHigh, 2, 600, table}, 255}};
    case 5: return {{{Screen::DiffuseTop, 2, 1200, table}, 192}};
    case 6: return {{{Screen::DiffuseHigh, 3, 600, table}, 255}};
    default: return {{{Screen::DiffuseTop, 3, 1200, table}, 192}};
  }
}

bool IsMeasured(int g) { return std::find(kMeasuredG.begin(), kMeasuredG.end(), g) != kMeasuredG.end(); }

std::array<double, 4> AmountsOf(const Table& table, int g) {
  std::array<double, 4> amounts{};
  for (std::size_t v = 0; v < 4; ++v) amounts[v] = g - table[std::size_t(g)][v];
  return amounts;
}

// The lightness the rows follow on a use: a monotone cubic through paper white at g = 0 and every
// measured row up to the use's black (or the first measured row past it) that prints lighter than
// all such measured rows after it.
std::array<double, kRows> LightnessCurve(const Table& table, const Serving& use) {
  std::vector<int> rows;
  for (int g : kMeasuredG) {
    rows.push_back(g);
    if (g >= use.Black) break;
  }
  std::vector<Knot> knots = {{0, 100}};
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const double lightness = inkweave::tables::PrintedAmounts(use.Where, AmountsOf(table, rows[r])).L;
    bool lighterThanLater = true;
    for (std::size_t later = r + 1; later < rows.size(); ++later)
      lighterThanLater &= lightness > inkweave::tables::PrintedAmounts(use.Where, AmountsOf(table, rows[later])).L;
    if (lighterThanLater) knots.push_back({double(rows[r]), lightness});
  }
  return MonotoneCurve(knots);
}

// The rows between the measured ones. Each keeps the black of the black curve, and its cyan, magenta and
// yellow print neutral on every use that reaches the row (whose black lies at or above it) at the
// lightness curve of the first use (the medium the measured rows were balanced on); each row's colours
// start from the row before's. Where the measured row at 192 prints darker than black at 255 (the
// tables that leave black alone at 255), greys must be able to leave that rich row aside and reach
// black through rows that darken all the way:
//  - the rows above 192 are black alone, as much as prints the first use's way from the row at 191
//    down to black (never less black than the row before, never more than g);
//  - where some use's colour tables stop at the rich black (glossy and photographic paper, black c0),
//    the rows between 128 and 192 darken toward it on every use: black as the row at 192 has it (at
//    most g), and on the first use down to just lighter than the first row above 192 can print, so
//    that its greys go on from there to its own black.
void InvertColours(Table& table, const std::vector<Serving>& uses) {
  constexpr double kLightnessWeight = 2;  // per unit of L* on the first use, against 1 per unit of a* and b*
  constexpr double kFloorMargin = 0.3;    // L* the way to the rich black keeps above the rows after it
  const Serving& first = uses.front();
  const auto printed = [&](const std::array<double, 4>& amounts, const Serving& use) {
    return inkweave::tables::PrintedAmounts(use.Where, amounts);
  };
  std::array<double, kRows> lightness = LightnessCurve(table, first);
  const bool richBlackAside = printed(AmountsOf(table, 192), first).L < printed(AmountsOf(table, 255), first).L;
  const bool endAtRichBlack =
      richBlackAside && std::any_of(uses.begin(), uses.end(), [](const Serving& u) { return u.Black == 192; });
  if (endAtRichBlack) {
    const double from = printed(AmountsOf(table, 128), first).L;
    const double to = printed({0, 0, 0, 193}, first).L + kFloorMargin;
    for (int g = 129; g < 192; ++g) lightness[std::size_t(g)] = from + (to - from) * (g - 128) / 63.0;
  }
  std::array<double, 3> colour = {0, 0, 0};
  int blackBefore = 0;
  for (int g = 1; g < kRows; ++g) {
    const auto row = std::size_t(g);
    if (IsMeasured(g)) {
      blackBefore = g - table[row][3];
      continue;
    }
    if (richBlackAside && g > 192) {
      const double from = printed(AmountsOf(table, 191), first).L;
      const double wanted = from + (printed(AmountsOf(table, 255), first).L - from) * (g - 192) / 63.0;
      int black = blackBefore;
      while (black < g && printed({0, 0, 0, double(black)}, first).L > wanted) ++black;
      table[row] = {g, g, g, g - black};
      blackBefore = black;
      continue;
    }
    const int black = endAtRichBlack && g > 128 ? std::min(192 - table[192][3], g) : g - table[row][3];
    table[row][3] = g - black;
    const auto residuals = [&](const std::array<double, 3>& x) {
      std::vector<double> r;
      for (const Serving& use : uses) {
        if (g > use.Black) continue;
        const auto lab = printed({x[0], x[1], x[2], double(black)}, use);
        r.push_back(lab.a);
        r.push_back(lab.b);
        if (&use == &first) r.push_back(kLightnessWeight * (lab.L - lightness[row]));
      }
      return r;
    };
    colour = inkweave::tables::MinimiseInBox(residuals, colour, 0, 255, 40);
    for (std::size_t i = 0; i < 3; ++i) table[row][i] = g - RoundHalfAway(colour[i]);
    blackBefore = black;
  }
}

Table MeasuredCurves(const MeasuredTable& t, int index) {
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
  InvertColours(table, UsesOf(index));
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
  for (int i = 0; i < kMeasuredTables; ++i) tables.push_back(MeasuredCurves(kMeasured[std::size_t(i)], i));
  for (int i = kMeasuredTables; i < kTables; ++i) tables.push_back(RuleTable());

  std::string out = inkweave::tools::Provenance(kTool);
  out +=
      "// Tables 0..7: the measured rows; black a Fritsch-Carlson monotone cubic through them, the colour\n"
      "// between them the printer model's neutral; 8..10: (g, g, g, 0).\n"
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
