// Writes src/data/generated/color_tables.cpp: the sixteen colour tables (17 x 17 x 17 grid points of
// cyan, magenta, yellow and black ink amounts, red index slowest) and the accessor ColorTable(n).
//
// Every table is the printing of its entries inverted (tools/table_print.h: the halftoner, the ink split
// under error diffusion, the printer model's inks on paper) on every medium, resolution and halftoner
// it serves: a grid point holds the cyan, magenta and yellow that print its sRGB colour there, relative
// to paper white and with sRGB black compensated onto the black the table prints, as the colour proof
// compares them. A colour the paper cannot reach goes to the nearest it can at its own hue (hue
// differences count twice). The fourth byte is the grey component, the smallest of the three.
//
//   1. The neutral axis (grid points (m, m, m), four equal amounts) is chosen whole, by dynamic
//      programming over its 17 values: every grey input 1..254 is converted as the plug-in converts
//      it (a grid point, or the neutral case between two), printed on every use, and the axis that
//      prints closest to the wanted greys wins, at a heavy price for a grey that prints lighter than a
//      lighter input, darker than black, or further than 2.5 from neutral, and for a grid step that
//      falls less than half as much as the wanted greys do. Under error diffusion a grey
//      goes through the ink split, some of whose rows print darker than black (the rich black at 192
//      of the tables that leave black alone at 255) or off neutral (given rows): the axis steps over
//      such a row where two grid values lie far enough apart for the conversion to skip it.
//   2. Every other grid point is inverted on its own (Levenberg-Marquardt in the box of the ink
//      limit, starting from its neighbour's solution).
//   3. The given rows of tables 01, 02, 03, 07, 13 and 15 (black, the six chromatic corners, white, mid
//      grey) are set; every other table takes its black level from the ink limit of its media (b2 for
//      inkjet paper in the high-resolution mode, c0 for glossy and photographic paper outside the fine
//      modes, ff elsewhere) and its corners from the inversion.
//   4. Along each of the twelve cube edges each ink is made monotone between the edge's ends (least
//      squares, the ends held), and inks are truncated to whole bytes.
//
// The generator checks every property it promises (given rows, white, the neutral axis, the gray
// component, the ink limit, monotone cube edges) and refuses to write a table that fails. Usage: gen-color-tables
// <output.cpp>. Links the core's halftoners and the printer model, and reads the compiled ink-split tables (regenerate
// those first); no random draws (seed: none). The inversion uses pow and cbrt, so a machine whose libm rounds
// differently could move a byte that lies on a rounding edge; CheckedInFilesMatchTheirGenerators would say so.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "tools/generator.h"
#include "tools/table_print.h"

namespace {

using inkweave::tables::Lab;
using inkweave::tables::Screen;
using inkweave::tables::Use;
using inkweave::tools::Appendf;

constexpr const char* kTool = "gen_color_tables.cpp";

constexpr int kGrid = 17;
constexpr int kTables = 16;
constexpr std::size_t kTableBytes = kGrid * kGrid * kGrid * 4;
constexpr double kHueWeight = 2;      // hue differences count twice: clipping keeps the hue
constexpr double kSmoothness = 0.03;  // per unit of ink away from the neighbours drawn before
constexpr double kReached = 1;        // squared difference below which the neighbour's way is kept
constexpr double kSwitch = 0.7;       // another region must print this much closer to be taken

using Ink = std::array<int, 3>;  // cyan, magenta, yellow amounts 0..255

// Corner inks indexed by bit value 1 red, 2 green, 4 blue set (0 black ... 7 white).
enum Corner { kBlack = 0, kRed = 1, kGreen = 2, kYellow = 3, kBlue = 4, kMagenta = 5, kCyan = 6, kWhite = 7 };
constexpr int kCornerGrid[8][3] = {{0, 0, 0},  {16, 0, 0},  {0, 16, 0},  {16, 16, 0},
                                   {0, 0, 16}, {16, 0, 16}, {0, 16, 16}, {16, 16, 16}};

// A use of a table and its weight: the print modes it covers (150 and 300 dpi share a dither use).
struct Serving {
  Use Where;
  double Weight = 1;
};

struct TableModel {
  int Black = 0xff;              // the black corner's amount in all four inks: the ink limit
  bool GivenCorners = false;     // corners from the given rows
  std::array<Ink, 8> Corners{};  // the given chromatic corners (black and white implied)
  int Gray = -1;                 // the given mid gray (8, 8, 8), or -1
  std::vector<Serving> Uses;     // where the table prints
  const char* Serves = "";       // media and modes, for the generated comment
};

TableModel Given(int black, Ink red, Ink green, Ink blue, Ink cyan, Ink magenta, Ink yellow, int gray) {
  TableModel t;
  t.Black = black;
  t.GivenCorners = true;
  t.Corners[kBlack] = {black, black, black};
  t.Corners[kRed] = red;
  t.Corners[kGreen] = green;
  t.Corners[kBlue] = blue;
  t.Corners[kCyan] = cyan;
  t.Corners[kMagenta] = magenta;
  t.Corners[kYellow] = yellow;
  t.Corners[kWhite] = {0, 0, 0};
  t.Gray = gray;
  return t;
}

TableModel Drawn(int black) {
  TableModel t;
  t.Black = black;
  return t;
}

TableModel For(TableModel t, std::vector<Serving> uses, const char* serves) {
  t.Uses = std::move(uses);
  t.Serves = serves;
  return t;
}

// The printer-model media codes.
enum Medium { kPlain = 0, kInkjet = 1, kGlossy = 2, kPhoto = 3, kOther = 4 };

Serving Dither(int medium, int dpi, double weight = 1) { return {{Screen::Dither, medium, dpi, -1}, weight}; }
Serving Diffused(Screen screen, int medium, int split) {
  const int dpi = screen == Screen::DiffuseTop    ? 1200
                  : screen == Screen::DiffuseHigh ? 600
                  : screen == Screen::DiffuseMid  ? 300
                                                  : 150;
  return {{screen, medium, dpi, split}, 1};
}

// Where each table prints (the colour-table choice by media and print mode, the halftoner by mode, the
// ink split by mode and media) and what is given of it. The high-resolution mode diffuses whatever the
// halftone, with the dither table when dither was asked. Media codes 4 and 5, which no command selects,
// are left out of tables they share with inkjet paper.
std::array<TableModel, kTables> Models() {
  const Screen low = Screen::DiffuseLow, mid = Screen::DiffuseMid, high = Screen::DiffuseHigh, top = Screen::DiffuseTop;
  std::array<TableModel, kTables> m{};
  m[0] = For(Given(0xff, {0x00, 0xe1, 0xeb}, {0x8b, 0x00, 0xf2}, {0xec, 0xc6, 0x00}, {0xff, 0x00, 0x00},
                   {0x00, 0xff, 0x00}, {0x00, 0x00, 0xff}, 0x4c),
             {Dither(kPlain, 300, 2), Diffused(top, kPlain, 3)},
             "plain paper, every mode but 4, 5, 36, 37; dither (diffused in the high-resolution mode)");
  m[1] = For(Given(0xff, {0x00, 0xbe, 0xec}, {0x6e, 0x00, 0xf2}, {0xd8, 0xc2, 0x00}, {0xa0, 0x00, 0x01},
                   {0x00, 0xe0, 0x00}, {0x00, 0x00, 0xff}, 0x4c),
             {Diffused(low, kPlain, 0), Diffused(mid, kPlain, 0), Diffused(top, kPlain, 3)},
             "plain paper, every mode but 4, 5, 36, 37; error diffusion");
  m[2] = For(Given(0xff, {0x00, 0x88, 0xaa}, {0x6b, 0x00, 0xc7}, {0xa8, 0x8a, 0x00}, {0xff, 0x00, 0x01},
                   {0x00, 0xff, 0x00}, {0x00, 0x00, 0xff}, 0x40),
             {Dither(kPlain, 600)}, "plain paper, modes 4, 5, 36, 37; dither");
  m[3] = For(Drawn(0xff), {Diffused(high, kPlain, 1)}, "plain paper, modes 4, 5, 36, 37; error diffusion");
  m[4] = For(Drawn(0xff), {Dither(kInkjet, 300, 2), Dither(kInkjet, 600)},
             "inkjet paper, every mode but 6, 38; media codes 4 and 5, modes 4, 5, 36, 37; dither");
  m[5] = For(Drawn(0xff), {Diffused(low, kInkjet, 0), Diffused(mid, kInkjet, 0), Diffused(high, kInkjet, 2)},
             "inkjet paper, every mode but 6, 38; media codes 4 and 5, modes 4, 5, 36, 37; error diffusion");
  m[6] = For(Given(0xb2, {0x00, 0x5e, 0x7e}, {0x46, 0x00, 0x96}, {0x7d, 0x5f, 0x00}, {0xb2, 0x00, 0x01},
                   {0x00, 0xb2, 0x00}, {0x00, 0x00, 0xb2}, 0x2c),
             {Diffused(top, kInkjet, 3)}, "inkjet paper, modes 6, 38; dither (diffused)");
  m[7] = For(Drawn(0xb2), {Diffused(top, kInkjet, 3)}, "inkjet paper, modes 6, 38; error diffusion");
  m[8] = For(Drawn(0xc0), {Dither(kGlossy, 300, 2), Diffused(top, kGlossy, 5)},
             "glossy paper, every mode but 4, 5, 36, 37; dither (diffused in the high-resolution mode)");
  m[9] = For(Drawn(0xc0), {Diffused(low, kGlossy, 0), Diffused(mid, kGlossy, 0), Diffused(top, kGlossy, 5)},
             "glossy paper, every mode but 4, 5, 36, 37; error diffusion");
  m[10] = For(Drawn(0xff), {Dither(kGlossy, 600), Dither(kPhoto, 600)},
              "glossy and photographic paper, modes 4, 5, 36, 37; dither");
  m[11] = For(Drawn(0xff), {Diffused(high, kGlossy, 4), Diffused(high, kPhoto, 6)},
              "glossy and photographic paper, modes 4, 5, 36, 37; error diffusion");
  m[12] = For(Given(0xc0, {0x00, 0x5a, 0x82}, {0x3e, 0x00, 0x9e}, {0x80, 0x5c, 0x00}, {0xc0, 0x00, 0x01},
                    {0x00, 0xc0, 0x00}, {0x00, 0x00, 0xc0}, 0x26),
              {Dither(kPhoto, 300, 2), Diffused(top, kPhoto, 7)},
              "photographic paper, every mode but 4, 5, 36, 37; dither (diffused in the high-resolution mode)");
  m[13] = For(Drawn(0xc0), {Diffused(low, kPhoto, 0), Diffused(mid, kPhoto, 0), Diffused(top, kPhoto, 7)},
              "photographic paper, every mode but 4, 5, 36, 37; error diffusion");
  m[14] = For(Given(0xff, {0x00, 0xe3, 0xeb}, {0x99, 0x00, 0xf0}, {0xeb, 0xcb, 0x00}, {0xff, 0x00, 0x00},
                    {0x00, 0xff, 0x00}, {0x00, 0x00, 0xff}, 0x60),
              {Dither(kOther, 300, 2)}, "media codes 4 and 5, every mode but 4, 5, 36, 37; dither");
  m[15] = For(Drawn(0xff), {Diffused(low, kOther, 8), Diffused(mid, kOther, 8)},
              "media codes 4 and 5, every mode but 4, 5, 36, 37; error diffusion");
  return m;
}

std::size_t Offset(int i, int j, int k) { return static_cast<std::size_t>(((i * kGrid + j) * kGrid + k) * 4); }

// The sRGB value of grid index i (16 i; 16 stands for full intensity).
int SrgbOfGrid(int i) { return std::min(255, 16 * i); }

// One use as the inversion needs it: its weight, and what the table's black prints there.
struct UseSpace {
  Use Where;
  double Weight;
  Lab Black;
};

std::vector<UseSpace> SpacesOf(const TableModel& t) {
  std::vector<UseSpace> spaces;
  const double b = t.Black;
  for (const Serving& s : t.Uses)
    spaces.push_back({s.Where, s.Weight, inkweave::tables::PrintedEntry(s.Where, {b, b, b, b}, t.Black)});
  return spaces;
}

// ---------------------------------------------------------------------------------------------------
// The neutral axis
// ---------------------------------------------------------------------------------------------------

// Grey inputs as each use prints them and wants them.
struct GreyCurves {
  double Weight;
  std::vector<double> L, A, B;      // printed, by the neutral entry v = 0..black (four inks v)
  std::array<double, 256> WantedL;  // by grey input, black compensated
  double BlackL;
  std::vector<double> Cost;  // GreyCost of input x at entry v, at x * (black + 1) + v
};

constexpr double kPenalty = 10000;     // per squared unit of a broken promise
constexpr double kFall = 0.1;          // L* a grey falls at least by, from one input to the next darker
constexpr double kGridFall = 0.5;      // share of the wanted fall from one grid point to the next it keeps
constexpr double kNeutralLimit = 2.5;  // |a*|, |b*| a grey may reach before it costs the penalty
constexpr double kBlackMargin = 0.5;   // L* a grey other than black keeps above black

double GreyCost(const GreyCurves& c, int input, int v) {
  const auto i = static_cast<std::size_t>(v);
  const double dl = c.L[i] - c.WantedL[static_cast<std::size_t>(input)];
  const double overA = std::max(0.0, std::fabs(c.A[i]) - kNeutralLimit);
  const double overB = std::max(0.0, std::fabs(c.B[i]) - kNeutralLimit);
  const double belowBlack = std::max(0.0, c.BlackL + kBlackMargin - c.L[i]);
  return c.Weight * (dl * dl + c.A[i] * c.A[i] + c.B[i] * c.B[i] +
                     kPenalty * (overA * overA + overB * overB + belowBlack * belowBlack));
}

// A darker input that prints no darker than the input after it (by kFall where their entries differ).
double OrderCost(const GreyCurves& c, int darkerV, int v) {
  if (darkerV == v) return 0;
  const double over = std::max(0.0, c.L[static_cast<std::size_t>(darkerV)] - c.L[static_cast<std::size_t>(v)] + kFall);
  return c.Weight * kPenalty * over * over;
}

// The entry grey input 16 m + f takes between grid values a (at m) and b (at m + 1), as the conversion
// computes it: the grid point itself at f = 0, else the neutral case (the top cell stretched over 15).
int NeutralEntry(int m, int f, int a, int b) {
  if (f == 0) return a;
  const int d = m < 15 ? 16 : 15;
  if (f >= d) return b;
  return (b * f + a * (d - f)) / d;
}

// What cell m costs with grid values a and b: its inputs 16 m .. 16 m + 16 (the grid inputs once, at the
// cell they start; black and white cost nothing) and the order of each input against the one before.
double CellCost(const std::vector<GreyCurves>& curves, int m, int a, int b) {
  double cost = 0;
  for (const GreyCurves& c : curves) {
    // The grid point above prints at least half as much lighter as it should: no grey steps flat.
    const std::size_t lighter = static_cast<std::size_t>(std::min(255, 16 * (m + 1)));
    const double wanted = c.WantedL[lighter] - c.WantedL[static_cast<std::size_t>(16 * m)];
    const double shortfall = kGridFall * wanted - (c.L[static_cast<std::size_t>(b)] - c.L[static_cast<std::size_t>(a)]);
    if (shortfall > 0) cost += c.Weight * kPenalty * shortfall * shortfall;
    int previous = a;
    for (int f = 0; f <= 16; ++f) {
      const int input = 16 * m + f;
      if (input > 255) break;
      const int v = input == 255 ? 0 : NeutralEntry(m, f, a, b);
      if (f < 16 && input > 0 && input < 255) cost += c.Cost[static_cast<std::size_t>(input) * c.L.size() + v];
      if (f > 0) cost += OrderCost(c, previous, v);
      previous = v;
    }
  }
  return cost;
}

std::array<int, kGrid> NeutralAxis(const TableModel& t, const std::vector<UseSpace>& spaces) {
  std::vector<GreyCurves> curves;
  for (const UseSpace& s : spaces) {
    GreyCurves c;
    c.Weight = s.Weight;
    for (int v = 0; v <= t.Black; ++v) {
      const Lab lab = inkweave::tables::PrintedEntry(s.Where, {double(v), double(v), double(v), double(v)}, t.Black);
      c.L.push_back(lab.L);
      c.A.push_back(lab.a);
      c.B.push_back(lab.b);
    }
    for (int x = 0; x < 256; ++x)
      c.WantedL[static_cast<std::size_t>(x)] =
          inkweave::tables::CompensateBlack(inkweave::tables::LabOfSrgb(x, x, x), s.Black).L;
    c.BlackL = s.Black.L;
    for (int x = 0; x < 256; ++x)
      for (int v = 0; v <= t.Black; ++v) c.Cost.push_back(GreyCost(c, x, v));
    curves.push_back(std::move(c));
  }
  // best[m][v]: the least cost of grid values 0..m with value v at m; the axis never rises.
  const int values = t.Black + 1;
  constexpr double kNone = std::numeric_limits<double>::infinity();
  std::vector<std::vector<double>> best(kGrid, std::vector<double>(static_cast<std::size_t>(values), kNone));
  std::vector<std::vector<int>> from(kGrid, std::vector<int>(static_cast<std::size_t>(values), -1));
  best[0][static_cast<std::size_t>(t.Black)] = 0;
  for (int m = 0; m + 1 < kGrid; ++m) {
    for (int a = 0; a < values; ++a) {
      const double base = best[static_cast<std::size_t>(m)][static_cast<std::size_t>(a)];
      if (base == kNone) continue;
      for (int b = 0; b <= a; ++b) {
        if (m + 1 == kGrid - 1 && b != 0) continue;  // white holds no ink
        if (m + 1 == 8 && t.Gray >= 0 && b != t.Gray) continue;
        const double cost = base + CellCost(curves, m, a, b);
        double& slot = best[static_cast<std::size_t>(m + 1)][static_cast<std::size_t>(b)];
        if (cost < slot) {
          slot = cost;
          from[static_cast<std::size_t>(m + 1)][static_cast<std::size_t>(b)] = a;
        }
      }
    }
  }
  std::array<int, kGrid> axis{};
  axis[kGrid - 1] = 0;
  for (int m = kGrid - 1; m > 0; --m)
    axis[static_cast<std::size_t>(m - 1)] =
        from[static_cast<std::size_t>(m)][static_cast<std::size_t>(axis[static_cast<std::size_t>(m)])];
  return axis;
}

// ---------------------------------------------------------------------------------------------------
// The colours
// ---------------------------------------------------------------------------------------------------

using Entry = std::array<double, 3>;  // cyan, magenta, yellow, continuous

// Entries every 32 units of each ink, as each use prints them: the starting points of the inversion,
// so that it finds the best of the ink box's regions (with black or without, one colour or two) rather
// than the one its neighbour lay in.
struct Candidates {
  std::vector<Entry> Entries;
  std::vector<double> Printed;  // L*, a*, b* of each entry on each use, entry by entry
};

double Cost(const std::vector<double>& r) {
  double sum = 0;
  for (double v : r) sum += v * v;
  return sum;
}

Candidates CandidatesOf(const TableModel& t, const std::vector<UseSpace>& spaces) {
  Candidates c;
  std::vector<double> levels;
  for (int v = 0; v < t.Black; v += 32) levels.push_back(v);
  levels.push_back(t.Black);
  for (double cyan : levels)
    for (double magenta : levels)
      for (double yellow : levels) {
        c.Entries.push_back({cyan, magenta, yellow});
        const double grey = std::min({cyan, magenta, yellow});
        for (const UseSpace& s : spaces) {
          const Lab lab = inkweave::tables::PrintedEntry(s.Where, {cyan, magenta, yellow, grey}, t.Black);
          c.Printed.insert(c.Printed.end(), {lab.L, lab.a, lab.b});
        }
      }
  return c;
}

// What an entry must print for a grid point, as residuals: its colour on every use, and a pull toward
// entries near it (kSmoothness per unit of ink), which decides where the print hardly tells entries apart.
struct Wanted {
  const TableModel& Table;
  const std::vector<UseSpace>& Spaces;
  std::vector<Lab> Colours;  // by use
  Entry Near;

  Wanted(const TableModel& t, const std::vector<UseSpace>& spaces, int i, int j, int k, const Entry& near)
      : Table(t), Spaces(spaces), Near(near) {
    for (const UseSpace& s : spaces)
      Colours.push_back(inkweave::tables::CompensateBlack(
          inkweave::tables::LabOfSrgb(SrgbOfGrid(i), SrgbOfGrid(j), SrgbOfGrid(k)), s.Black));
  }
  std::vector<double> operator()(const Entry& x) const {
    std::vector<double> r;
    r.reserve(3 * Spaces.size() + 3);
    const double grey = std::min({x[0], x[1], x[2]});
    for (std::size_t u = 0; u < Spaces.size(); ++u) {
      const Lab printed = inkweave::tables::PrintedEntry(Spaces[u].Where, {x[0], x[1], x[2], grey}, Table.Black);
      const double w = std::sqrt(Spaces[u].Weight);
      for (double d : inkweave::tables::Difference(Colours[u], printed, kHueWeight)) r.push_back(w * d);
    }
    for (std::size_t n = 0; n < 3; ++n) r.push_back(kSmoothness * (x[n] - Near[n]));
    return r;
  }
  Entry From(const Entry& start) const { return inkweave::tables::MinimiseInBox(*this, start, 0, Table.Black, 12); }
};

// The entry that prints the grid point's colour best on every use: refined from the neighbour's
// solution, and where that does not reach the colour, also from the nearest candidate (in CIELAB),
// which is kept only if it prints clearly closer: colours the paper cannot reach then move along the
// gamut with their neighbours rather than jump between its regions.
Entry Invert(const Wanted& wanted, const Candidates& candidates, const Entry& neighbour) {
  const Entry fromNeighbour = wanted.From(neighbour);
  const double neighbourCost = Cost(wanted(fromNeighbour));
  if (neighbourCost < kReached) return fromNeighbour;
  std::size_t best = 0;
  double bestDistance = std::numeric_limits<double>::infinity();
  const std::size_t uses = wanted.Spaces.size();
  for (std::size_t c = 0; c < candidates.Entries.size(); ++c) {
    double distance = 0;
    for (std::size_t u = 0; u < uses; ++u) {
      const double* lab = &candidates.Printed[3 * (c * uses + u)];
      const Lab& w = wanted.Colours[u];
      const double dl = lab[0] - w.L, da = lab[1] - w.a, db = lab[2] - w.b;
      distance += wanted.Spaces[u].Weight * (dl * dl + da * da + db * db);
    }
    if (distance < bestDistance) {
      bestDistance = distance;
      best = c;
    }
  }
  const Entry fromCandidate = wanted.From(candidates.Entries[best]);
  return Cost(wanted(fromCandidate)) < kSwitch * neighbourCost ? fromCandidate : fromNeighbour;
}

// Least-squares monotone values (pool adjacent violators), rising or falling.
void MakeMonotone(std::vector<double>& values, bool rising) {
  if (!rising) std::reverse(values.begin(), values.end());
  struct Block {
    double Sum;
    int Count;
  };
  std::vector<Block> blocks;
  for (double v : values) {
    blocks.push_back({v, 1});
    while (blocks.size() > 1 &&
           blocks[blocks.size() - 2].Sum * blocks.back().Count > blocks.back().Sum * blocks[blocks.size() - 2].Count) {
      const Block last = blocks.back();
      blocks.pop_back();
      blocks.back().Sum += last.Sum;
      blocks.back().Count += last.Count;
    }
  }
  std::size_t at = 0;
  for (const Block& b : blocks)
    for (int n = 0; n < b.Count; ++n) values[at++] = b.Sum / b.Count;
  if (!rising) std::reverse(values.begin(), values.end());
}

// The twelve cube edges, each as its 17 grid points (entry indexes) from one corner to the other.
std::vector<std::vector<std::size_t>> Edges() {
  std::vector<std::vector<std::size_t>> edges;
  for (int a = 0; a < 8; ++a)
    for (int axis = 0; axis < 3; ++axis) {
      if (a >> axis & 1) continue;
      std::vector<std::size_t> points;
      for (int s = 0; s < kGrid; ++s) {
        int g[3] = {kCornerGrid[a][0], kCornerGrid[a][1], kCornerGrid[a][2]};
        g[axis] = s;
        points.push_back(Offset(g[0], g[1], g[2]) / 4);
      }
      edges.push_back(std::move(points));
    }
  return edges;
}

// Each of the twelve edges: every ink monotone from one corner to the other, the corners held: the
// points between are held between the corners' values and made monotone among themselves.
void MonotoneEdges(std::vector<Entry>& grid) {
  for (const std::vector<std::size_t>& points : Edges()) {
    for (std::size_t n = 0; n < 3; ++n) {
      const double first = grid[points.front()][n], last = grid[points.back()][n];
      std::vector<double> between;
      for (std::size_t q = 1; q + 1 < points.size(); ++q)
        between.push_back(std::clamp(grid[points[q]][n], std::min(first, last), std::max(first, last)));
      MakeMonotone(between, last >= first);
      for (std::size_t q = 1; q + 1 < points.size(); ++q) grid[points[q]][n] = between[q - 1];
    }
  }
}

std::vector<std::uint8_t> BuildTable(const TableModel& t) {
  const std::vector<UseSpace> spaces = SpacesOf(t);
  const std::array<int, kGrid> axis = NeutralAxis(t, spaces);
  const Candidates candidates = CandidatesOf(t, spaces);
  std::vector<Entry> grid(kGrid * kGrid * kGrid);
  Entry start = {double(t.Black), double(t.Black), double(t.Black)};
  for (int i = 0; i < kGrid; ++i)
    for (int j = 0; j < kGrid; ++j)
      for (int k = 0; k < kGrid; ++k) {
        Entry& e = grid[Offset(i, j, k) / 4];
        if (i == j && j == k) {
          const double v = axis[static_cast<std::size_t>(i)];
          e = {v, v, v};
          continue;
        }
        // From the neighbour already drawn: the one before along blue, else along green, else along red;
        // held near the mean of the neighbours drawn before, where the print hardly tells entries apart.
        if (k > 0)
          start = grid[Offset(i, j, k - 1) / 4];
        else if (j > 0)
          start = grid[Offset(i, j - 1, 0) / 4];
        else if (i > 0)
          start = grid[Offset(i - 1, 0, 0) / 4];
        Entry near{};
        int count = 0;
        const int before[3][3] = {{i - 1, j, k}, {i, j - 1, k}, {i, j, k - 1}};
        for (const auto& b : before) {
          if (b[0] < 0 || b[1] < 0 || b[2] < 0) continue;
          const Entry& n = grid[Offset(b[0], b[1], b[2]) / 4];
          for (std::size_t c = 0; c < 3; ++c) near[c] += n[c];
          ++count;
        }
        for (double& c : near) c /= count;
        e = Invert(Wanted(t, spaces, i, j, k, near), candidates, start);
      }
  // The given corners and the neutral axis, before the edges are made monotone toward them and again
  // after, exactly.
  const auto setFixed = [&] {
    for (int i = 0; i < kGrid; ++i) {
      const double v = axis[static_cast<std::size_t>(i)];
      grid[Offset(i, i, i) / 4] = {v, v, v};
    }
    if (!t.GivenCorners) return;
    for (int c = 0; c < 8; ++c) {
      Entry& e = grid[Offset(kCornerGrid[c][0], kCornerGrid[c][1], kCornerGrid[c][2]) / 4];
      for (std::size_t n = 0; n < 3; ++n) e[n] = t.Corners[static_cast<std::size_t>(c)][n];
    }
  };
  setFixed();
  MonotoneEdges(grid);
  setFixed();
  // Whole bytes; then along each edge whose grey component (the smallest ink) would rise and fall, as
  // where one ink falls to its corner's trace while another leaves its own, the smallest ink is
  // lowered to the grey component's monotone fit.
  for (Entry& e : grid)
    for (std::size_t n = 0; n < 3; ++n) e[n] = std::clamp(std::floor(e[n] + 1e-7), 0.0, double(t.Black));
  for (const std::vector<std::size_t>& points : Edges()) {
    const auto grey = [&](std::size_t p) { return std::min({grid[p][0], grid[p][1], grid[p][2]}); };
    const double first = grey(points.front()), last = grey(points.back());
    std::vector<double> between;
    for (std::size_t q = 1; q + 1 < points.size(); ++q)
      between.push_back(std::clamp(grey(points[q]), std::min(first, last), std::max(first, last)));
    MakeMonotone(between, last >= first);
    for (std::size_t q = 1; q + 1 < points.size(); ++q) {
      Entry& e = grid[points[q]];
      const double target = std::floor(between[q - 1]);
      const double smallest = std::min({e[0], e[1], e[2]});
      if (smallest > target)
        for (double& ink : e)
          if (ink == smallest) ink = target;
    }
  }
  std::vector<std::uint8_t> table(kTableBytes);
  for (std::size_t p = 0; p < grid.size(); ++p) {
    std::uint8_t* q = &table[4 * p];
    for (std::size_t n = 0; n < 3; ++n) q[n] = static_cast<std::uint8_t>(grid[p][n]);
    q[3] = std::min({q[0], q[1], q[2]});
  }
  return table;
}

// The promises of docs/colour-tables.md; answers an empty string or the first broken one.
// A grid point's four bytes as hex, "cc mm yy kk".
std::string Hex(const std::vector<std::uint8_t>& table, Corner corner) {
  const std::uint8_t* p = &table[Offset(kCornerGrid[corner][0], kCornerGrid[corner][1], kCornerGrid[corner][2])];
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02x %02x %02x %02x", p[0], p[1], p[2], p[3]);
  return buf;
}

std::string Check(const TableModel& t, const std::vector<std::uint8_t>& table) {
  char buf[160];
  const int level = t.Black;
  for (int corner = 0; corner < 8; ++corner) {
    if (!t.GivenCorners) break;
    const std::uint8_t* p = &table[Offset(kCornerGrid[corner][0], kCornerGrid[corner][1], kCornerGrid[corner][2])];
    for (std::size_t n = 0; n < 3; ++n)
      if (p[n] != t.Corners[static_cast<std::size_t>(corner)][n]) {
        std::snprintf(buf, sizeof buf, "corner %d ink %zu is %d", corner, n, p[n]);
        return buf;
      }
  }
  if (Hex(table, kWhite) != "00 00 00 00") return "white holds ink";
  for (int i = 0; i < kGrid; ++i) {
    const std::uint8_t* p = &table[Offset(i, i, i)];
    if (p[0] != p[1] || p[1] != p[2] || p[2] != p[3]) return "a neutral grid point is not four equal inks";
    if (i > 0 && p[0] > table[Offset(i - 1, i - 1, i - 1)]) return "the neutral axis is not monotone";
  }
  if (t.Gray >= 0 && table[Offset(8, 8, 8)] != t.Gray) return "the mid gray is missed";
  if (table[Offset(0, 0, 0)] != level) return "black is not the black level";
  for (int i = 0; i < kGrid; ++i)
    for (int j = 0; j < kGrid; ++j)
      for (int k = 0; k < kGrid; ++k) {
        const std::uint8_t* p = &table[Offset(i, j, k)];
        if (p[3] != std::min({p[0], p[1], p[2]})) return "a fourth byte is not the gray component";
        for (int n = 0; n < 4; ++n)
          if (p[n] > level) return "an ink exceeds the black level";
      }
  // The twelve edges: from corner a to a neighbouring corner b, each ink moves one way only.
  for (int a = 0; a < 8; ++a)
    for (int axis = 0; axis < 3; ++axis) {
      if (a >> axis & 1) continue;
      for (int n = 0; n < 4; ++n) {
        int rising = 0;
        int falling = 0;
        for (int s = 1; s < kGrid; ++s) {
          int g0[3], g1[3];
          for (int x = 0; x < 3; ++x) {
            g0[x] = x == axis ? s - 1 : kCornerGrid[a][x];
            g1[x] = x == axis ? s : kCornerGrid[a][x];
          }
          const int d = table[Offset(g1[0], g1[1], g1[2]) + static_cast<std::size_t>(n)] -
                        table[Offset(g0[0], g0[1], g0[2]) + static_cast<std::size_t>(n)];
          rising |= d > 0;
          falling |= d < 0;
        }
        if (rising && falling) {
          std::snprintf(buf, sizeof buf, "ink %d is not monotone along the edge from corner %d, axis %d", n, a, axis);
          return buf;
        }
      }
    }
  return {};
}

void AppendInk(std::string& out, const char* name, const std::vector<std::uint8_t>& table, Corner corner) {
  Appendf(out, " %s %s", name, Hex(table, corner).substr(0, 8).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-color-tables <output.cpp>\n");
    return 2;
  }
  const std::array<TableModel, kTables> models = Models();
  std::string out = inkweave::tools::Provenance(kTool);
  out += "// Each table is the printing of its entries inverted on the media, resolutions and halftoners it\n";
  out += "// serves; corner inks (cyan, magenta, yellow) and mid gray noted. Seed: none (no random draws).\n";
  out += "#include \"src/data/tables.h\"\n\nnamespace inkweave {\nnamespace {\n";
  for (int n = 0; n < kTables; ++n) {
    const TableModel& t = models[static_cast<std::size_t>(n)];
    const std::vector<std::uint8_t> table = BuildTable(t);
    const std::string broken = Check(t, table);
    if (!broken.empty()) {
      std::fprintf(stderr, "gen-color-tables: table %02d: %s\n", n + 1, broken.c_str());
      return 1;
    }
    Appendf(out, "\n// ColorTable%02d: %s.\n// black %02x, gray %02x;", n + 1, t.Serves, t.Black,
            table[Offset(8, 8, 8)]);
    AppendInk(out, "red", table, kRed);
    AppendInk(out, "green", table, kGreen);
    AppendInk(out, "blue", table, kBlue);
    out += "\n//";
    AppendInk(out, "cyan", table, kCyan);
    AppendInk(out, "magenta", table, kMagenta);
    AppendInk(out, "yellow", table, kYellow);
    Appendf(out, "\nconst std::uint8_t ColorTable%02d[kColorTableBytes] = {\n", n + 1);
    for (int i = 0; i < kGrid; ++i)
      for (int j = 0; j < kGrid; ++j) {
        Appendf(out, "    // red %d, green %d\n   ", i, j);
        inkweave::tools::AppendRows(out, kGrid, 9, "\n   ", "", [&](std::string& o, std::size_t k) {
          const std::uint8_t* p = &table[Offset(i, j, static_cast<int>(k))];
          Appendf(o, " 0x%02x,0x%02x,0x%02x,0x%02x,", p[0], p[1], p[2], p[3]);
        });
        out += "\n";
      }
    out += "};\n";
  }
  out += "\nconstexpr const std::uint8_t* kColorTables[kColorTableCount] = {\n    ";
  inkweave::tools::AppendRows(out, kTables, 4, "\n    ", " ",
                              [](std::string& o, std::size_t n) { Appendf(o, "ColorTable%02zu,", n + 1); });
  out += "\n};\n\n}  // namespace\n\n";
  out += "const std::uint8_t* ColorTable(int number) {\n";
  out += "  if (number < 1 || number > kColorTableCount) return nullptr;\n";
  out += "  return kColorTables[number - 1];\n}\n\n}  // namespace inkweave\n";

  return inkweave::tools::WriteGenerated(kTool, argv[1], out) ? 0 : 1;
}
