// Writes src/data/generated/color_tables.cpp: the sixteen colour tables (17 x 17 x 17 grid points of
// cyan, magenta, yellow and black ink amounts, red index slowest) and the accessor ColorTable(n).
//
// Every table is drawn from a few numbers: the ink of its eight cube corners (black, red, green, blue,
// cyan, magenta, yellow; white is always no ink), the level L of its black corner (L in all four
// inks) and the ink of its mid gray (8, 8, 8). Grid point p = (i, j, k) with m = max(i, j, k) > 0:
//
//   1. q = p / m lies on one of the three cube faces next to white; V(q) is the trilinear interpolation
//      of the eight corners at q (on those faces it is bilinear between four chromatic corners);
//   2. along the ray from the black corner through q the ink runs from L to V(q) by the darkness curve
//      D(m), the table's neutral axis divided by L: ink = L D(m) + (1 - D(m)) V(q). The neutral axis is
//      the printer model's (decode/ink.h, fitted by tools/fit_ink_model.cpp) inverted: at grid step m
//      the black ink that prints the lightness of sRGB grey 16 m on the table's medium and resolution,
//      black-point compensated to the table's black, bent by 4 s (1 - s), s = m / 16, so that it meets
//      the given mid gray exactly; D(0) = 1 and D(16) = 0, so black and white stay;
//   3. cyan, magenta and yellow are truncated to whole bytes (a trace such as the cyan corner's one
//      unit of yellow then shows only at its corner, never next to ink it would pair with); the fourth byte is the gray
//      component, the smallest of the three, which the error-diffusion ink split takes away from the colours.
//
// The corner rows of the tables 01, 03, 07, 13 and 15 are the product's given rows. The other dither
// tables borrow a known table's corners at another black level (every corner ink scaled by the ratio
// of the levels): 05 from 07 at ff, 09 from 07 at c0, 11 from 13 at ff. Every error-diffusion table is
// the partner of the dither table before it: the corner inks of the dither table multiplied by the
// ratios between the given rows of tables 02 and 01 (where table 01 has no ink, the larger of the two
// amounts is kept); black, gray and white stay. docs/colour-tables.md explains the choices.
//
// The generator checks every property it promises (given rows, white, the neutral axis, the gray
// component, monotone cube edges, at most 48 per grid step) and refuses to write a table that fails.
// Usage: gen-color-tables <output.cpp>. Links the printer model (decode/, standard library only); no
// random draws (seed: none). The neutral axis uses pow through the model, so a machine whose libm
// rounds differently could move a byte that lies on a rounding edge; CheckedInFilesMatchTheirGenerators
// would say so.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "decode/ink.h"
#include "tools/generator.h"

namespace {

using inkweave::tools::Appendf;

constexpr const char* kTool = "gen_color_tables.cpp";

constexpr int kGrid = 17;
constexpr int kTables = 16;
constexpr std::size_t kTableBytes = kGrid * kGrid * kGrid * 4;
constexpr int kMaxGridStep = 48;
constexpr double kNeutralStep = 36;  // largest fall of the neutral axis in one grid step
constexpr double kWholeAllowance = 1e-7;

using Ink = std::array<int, 3>;  // cyan, magenta, yellow amounts 0..255

// Corner inks indexed by bit value 1 red, 2 green, 4 blue set (0 black ... 7 white).
enum Corner { kBlack = 0, kRed = 1, kGreen = 2, kYellow = 3, kBlue = 4, kMagenta = 5, kCyan = 6, kWhite = 7 };

struct TableModel {
  std::array<Ink, 8> corners;  // white is {0, 0, 0}, black is {L, L, L}
  int gray;                    // ink of each of the four inks at grid point (8, 8, 8)
  const char* serves;          // media and modes, for the generated comment
  int medium = 0;              // the printer model's medium ("N" code) and resolution it prints on
  int dpi = 300;
};

TableModel Given(int black, Ink red, Ink green, Ink blue, Ink cyan, Ink magenta, Ink yellow, int gray,
                 const char* serves) {
  TableModel t{};
  t.corners[kBlack] = {black, black, black};
  t.corners[kRed] = red;
  t.corners[kGreen] = green;
  t.corners[kBlue] = blue;
  t.corners[kCyan] = cyan;
  t.corners[kMagenta] = magenta;
  t.corners[kYellow] = yellow;
  t.corners[kWhite] = {0, 0, 0};
  t.gray = gray;
  t.serves = serves;
  return t;
}

int BlackLevel(const TableModel& t) { return t.corners[kBlack][0]; }

// a * num / den rounded half up (all non-negative).
int ScaleRounded(int a, int num, int den) { return (a * num + den / 2) / den; }

// A known table's corners and gray at another black level.
TableModel AtBlackLevel(const TableModel& from, int level, const char* serves) {
  TableModel t = from;
  const int old = BlackLevel(from);
  for (Ink& ink : t.corners)
    for (int& v : ink) v = ScaleRounded(v, level, old);
  t.gray = ScaleRounded(from.gray, level, old);
  t.serves = serves;
  return t;
}

// The error-diffusion partner of a dither table: chromatic corners scaled ink by ink by the ratio of
// the given rows of tables 02 and 01.
TableModel DiffusionPartner(const TableModel& dither, const TableModel& ref01, const TableModel& ref02,
                            const char* serves) {
  TableModel t = dither;
  const int level = BlackLevel(dither);
  for (int corner = kRed; corner < kWhite; ++corner) {
    for (int n = 0; n < 3; ++n) {
      const int a = ref01.corners[static_cast<std::size_t>(corner)][static_cast<std::size_t>(n)];
      const int b = ref02.corners[static_cast<std::size_t>(corner)][static_cast<std::size_t>(n)];
      int& v = t.corners[static_cast<std::size_t>(corner)][static_cast<std::size_t>(n)];
      v = a > 0 ? std::min(level, ScaleRounded(v, b, a)) : std::max(v, b);
    }
  }
  t.serves = serves;
  return t;
}

// The table's tone on its medium: what the printer model needs of it.
TableModel On(TableModel t, int medium, int dpi) {
  t.medium = medium;
  t.dpi = dpi;
  return t;
}

std::array<TableModel, kTables> Models() {
  // The given rows (black, red, green, blue, cyan, magenta, yellow corners; gray (8,8,8)).
  const TableModel t01 =
      Given(0xff, {0x00, 0xe1, 0xeb}, {0x8b, 0x00, 0xf2}, {0xec, 0xc6, 0x00}, {0xff, 0x00, 0x00}, {0x00, 0xff, 0x00},
            {0x00, 0x00, 0xff}, 0x4c, "plain paper, every mode but 4, 5, 36, 37; dither");
  const TableModel t02 =
      Given(0xff, {0x00, 0xbe, 0xec}, {0x6e, 0x00, 0xf2}, {0xd8, 0xc2, 0x00}, {0xa0, 0x00, 0x01}, {0x00, 0xe0, 0x00},
            {0x00, 0x00, 0xff}, 0x4c, "plain paper, every mode but 4, 5, 36, 37; error diffusion");
  const TableModel t03 = Given(0xff, {0x00, 0x88, 0xaa}, {0x6b, 0x00, 0xc7}, {0xa8, 0x8a, 0x00}, {0xff, 0x00, 0x01},
                               {0x00, 0xff, 0x00}, {0x00, 0x00, 0xff}, 0x40, "plain paper, modes 4, 5, 36, 37; dither");
  const TableModel t07 = Given(0xb2, {0x00, 0x5e, 0x7e}, {0x46, 0x00, 0x96}, {0x7d, 0x5f, 0x00}, {0xb2, 0x00, 0x01},
                               {0x00, 0xb2, 0x00}, {0x00, 0x00, 0xb2}, 0x2c, "inkjet paper, modes 6, 38; dither");
  const TableModel t13 =
      Given(0xc0, {0x00, 0x5a, 0x82}, {0x3e, 0x00, 0x9e}, {0x80, 0x5c, 0x00}, {0xc0, 0x00, 0x01}, {0x00, 0xc0, 0x00},
            {0x00, 0x00, 0xc0}, 0x26, "photographic paper, every mode but 4, 5, 36, 37; dither");
  const TableModel t15 =
      Given(0xff, {0x00, 0xe3, 0xeb}, {0x99, 0x00, 0xf0}, {0xeb, 0xcb, 0x00}, {0xff, 0x00, 0x00}, {0x00, 0xff, 0x00},
            {0x00, 0x00, 0xff}, 0x60, "media codes 4 and 5, every mode but 4, 5, 36, 37; dither");
  const TableModel t05 = AtBlackLevel(t07, 0xff,
                                      "inkjet paper, every mode but 6, 38; media codes 4 and 5, modes 4, 5, "
                                      "36, 37; dither");
  const TableModel t09 = AtBlackLevel(t07, 0xc0, "glossy paper, every mode but 4, 5, 36, 37; dither");
  const TableModel t11 = AtBlackLevel(t13, 0xff, "glossy and photographic paper, modes 4, 5, 36, 37; dither");

  std::array<TableModel, kTables> m{};
  m[0] = On(t01, 0, 300);
  m[1] = On(DiffusionPartner(t01, t01, t02, t02.serves), 0, 300);
  m[2] = On(t03, 0, 600);
  m[3] = On(DiffusionPartner(t03, t01, t02, "plain paper, modes 4, 5, 36, 37; error diffusion"), 0, 600);
  m[4] = On(t05, 1, 300);
  m[5] = On(DiffusionPartner(t05, t01, t02,
                             "inkjet paper, every mode but 6, 38; media codes 4 and 5, modes 4, 5, 36, 37; "
                             "error diffusion"),
            1, 300);
  m[6] = On(t07, 1, 1200);
  m[7] = On(DiffusionPartner(t07, t01, t02, "inkjet paper, modes 6, 38; error diffusion"), 1, 1200);
  m[8] = On(t09, 2, 300);
  m[9] = On(DiffusionPartner(t09, t01, t02, "glossy paper, every mode but 4, 5, 36, 37; error diffusion"), 2, 300);
  m[10] = On(t11, 2, 600);
  m[11] =
      On(DiffusionPartner(t11, t01, t02, "glossy and photographic paper, modes 4, 5, 36, 37; error diffusion"), 2, 600);
  m[12] = On(t13, 3, 300);
  m[13] =
      On(DiffusionPartner(t13, t01, t02, "photographic paper, every mode but 4, 5, 36, 37; error diffusion"), 3, 300);
  m[14] = On(t15, 4, 300);
  m[15] =
      On(DiffusionPartner(t15, t01, t02, "media codes 4 and 5, every mode but 4, 5, 36, 37; error diffusion"), 4, 300);
  return m;
}

std::size_t Offset(int i, int j, int k) { return static_cast<std::size_t>(((i * kGrid + j) * kGrid + k) * 4); }

// Whole bytes by truncation, as everywhere in the colour path; the allowance keeps values that are
// whole numbers in exact arithmetic (the given corners, the mid gray) from falling one short.
int TruncateToByte(double x) {
  const int v = static_cast<int>(x + kWholeAllowance);
  return std::clamp(v, 0, 255);
}

// Luminance of an sRGB grey level, 0..1.
double SrgbLuminance(int value) {
  const double v = value / 255.0;
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

// The neutral axis inverted through the printer model: at grid step m the black ink that prints the
// luminance of sRGB grey 16 m (black-point compensated: sRGB black is the table's black level printed),
// bent by 4 s (1 - s), s = m / 16, to pass exactly through the given mid gray. Answered as the darkness
// D(m) = ink / L along the rays from black.
std::array<double, kGrid> DarknessCurve(const TableModel& t) {
  const double level = BlackLevel(t) / 255.0;
  const inkweave::decode::InkModel model = inkweave::decode::InkModelFor(t.medium, t.dpi);
  const auto luminance = [&](double black) {  // black ink alone is neutral: every channel is Y
    return inkweave::decode::PrintedColour(model, std::array<double, 4>{0, 0, 0, black})[0];
  };
  const double blackY = luminance(level);
  std::array<double, kGrid> ink{};
  for (int m = 0; m < kGrid; ++m) {
    const double wanted = blackY + (1 - blackY) * SrgbLuminance(std::min(255, 16 * m));
    double lo = 0, hi = level;  // luminance falls as the ink rises
    for (int step = 0; step < 60; ++step) {
      const double mid = (lo + hi) / 2;
      (luminance(mid) > wanted ? lo : hi) = mid;
    }
    ink[static_cast<std::size_t>(m)] = 255 * (lo + hi) / 2;
  }
  const double miss = t.gray - ink[8];
  std::array<double, kGrid> dark{};
  double previous = BlackLevel(t);
  for (int m = 0; m < kGrid; ++m) {
    const double s = m / 16.0;
    // Out of the shadows no faster than kNeutralStep a grid step, so that no ray steeps past the grid step
    // limit where dot gain has covered the paper before the ink is full.
    const double bent = std::max(ink[static_cast<std::size_t>(m)] + miss * 4 * s * (1 - s), previous - kNeutralStep);
    dark[static_cast<std::size_t>(m)] = bent / BlackLevel(t);
    previous = bent;
  }
  dark[0] = 1;
  dark[kGrid - 1] = 0;
  return dark;
}

std::vector<std::uint8_t> BuildTable(const TableModel& t) {
  std::vector<std::uint8_t> table(kTableBytes);
  const double level = BlackLevel(t);
  const std::array<double, kGrid> darkness = DarknessCurve(t);
  for (int i = 0; i < kGrid; ++i) {
    for (int j = 0; j < kGrid; ++j) {
      for (int k = 0; k < kGrid; ++k) {
        const int m = std::max({i, j, k});
        std::array<int, 3> ink{};
        for (std::size_t n = 0; n < 3; ++n) {
          double value = level;
          if (m > 0) {
            const double q[3] = {static_cast<double>(i) / m, static_cast<double>(j) / m, static_cast<double>(k) / m};
            double v = 0.0;
            for (int corner = 0; corner < 8; ++corner) {
              double w = 1.0;
              for (int axis = 0; axis < 3; ++axis) w *= (corner >> axis & 1) ? q[axis] : 1.0 - q[axis];
              v += w * t.corners[static_cast<std::size_t>(corner)][n];
            }
            const double dark = darkness[static_cast<std::size_t>(m)];
            value = level * dark + (1.0 - dark) * v;
          }
          ink[n] = TruncateToByte(value);
        }
        std::uint8_t* p = &table[Offset(i, j, k)];
        for (std::size_t n = 0; n < 3; ++n) p[n] = static_cast<std::uint8_t>(ink[n]);
        p[3] = static_cast<std::uint8_t>(std::min({ink[0], ink[1], ink[2]}));
      }
    }
  }
  return table;
}

// The promises of docs/colour-tables.md; answers an empty string or the first broken one.
std::string Check(const TableModel& t, const std::vector<std::uint8_t>& table) {
  char buf[160];
  const int level = BlackLevel(t);
  static constexpr int kCornerGrid[8][3] = {{0, 0, 0},  {16, 0, 0},  {0, 16, 0},  {16, 16, 0},
                                            {0, 0, 16}, {16, 0, 16}, {0, 16, 16}, {16, 16, 16}};
  for (int corner = 0; corner < 8; ++corner) {
    const std::uint8_t* p = &table[Offset(kCornerGrid[corner][0], kCornerGrid[corner][1], kCornerGrid[corner][2])];
    for (std::size_t n = 0; n < 3; ++n)
      if (p[n] != t.corners[static_cast<std::size_t>(corner)][n]) {
        std::snprintf(buf, sizeof buf, "corner %d ink %zu is %d", corner, n, p[n]);
        return buf;
      }
  }
  for (int i = 0; i < kGrid; ++i) {
    const std::uint8_t* p = &table[Offset(i, i, i)];
    if (p[0] != p[1] || p[1] != p[2] || p[2] != p[3]) return "a neutral grid point is not four equal inks";
    if (i > 0 && p[0] > table[Offset(i - 1, i - 1, i - 1)]) return "the neutral axis is not monotone";
  }
  if (table[Offset(8, 8, 8)] != t.gray) return "the mid gray is missed";
  if (table[Offset(0, 0, 0)] != level) return "black is not the black level";
  for (int i = 0; i < kGrid; ++i)
    for (int j = 0; j < kGrid; ++j)
      for (int k = 0; k < kGrid; ++k) {
        const std::uint8_t* p = &table[Offset(i, j, k)];
        if (p[3] != std::min({p[0], p[1], p[2]})) return "a fourth byte is not the gray component";
        for (int n = 0; n < 4; ++n) {
          if (p[n] > level) return "an ink exceeds the black level";
          const int steps[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
          for (const auto& d : steps) {
            if (i + d[0] >= kGrid || j + d[1] >= kGrid || k + d[2] >= kGrid) continue;
            const int next = table[Offset(i + d[0], j + d[1], k + d[2]) + static_cast<std::size_t>(n)];
            if (std::abs(next - p[n]) > kMaxGridStep) {
              std::snprintf(buf, sizeof buf, "grid step at (%d,%d,%d) ink %d changes by %d", i, j, k, n, next - p[n]);
              return buf;
            }
          }
        }
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

void AppendInk(std::string& out, const char* name, const Ink& ink) {
  Appendf(out, " %s %02x %02x %02x", name, ink[0], ink[1], ink[2]);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen-color-tables <output.cpp>\n");
    return 2;
  }
  const std::array<TableModel, kTables> models = Models();
  std::string out = inkweave::tools::Provenance(kTool);
  out += "// Corner inks (cyan, magenta, yellow) and mid gray of each table; the darkness curve along the rays\n";
  out += "// from black is the neutral axis inverted through the printer model. Seed: none (no random draws).\n";
  out += "#include \"src/data/tables.h\"\n\nnamespace inkweave {\nnamespace {\n";
  for (int n = 0; n < kTables; ++n) {
    const TableModel& t = models[static_cast<std::size_t>(n)];
    const std::vector<std::uint8_t> table = BuildTable(t);
    const std::string broken = Check(t, table);
    if (!broken.empty()) {
      std::fprintf(stderr, "gen-color-tables: table %02d: %s\n", n + 1, broken.c_str());
      return 1;
    }
    Appendf(out, "\n// ColorTable%02d: %s.\n// black %02x, gray %02x;", n + 1, t.serves, BlackLevel(t), t.gray);
    AppendInk(out, "red", t.corners[kRed]);
    AppendInk(out, "green", t.corners[kGreen]);
    AppendInk(out, "blue", t.corners[kBlue]);
    out += "\n//";
    AppendInk(out, "cyan", t.corners[kCyan]);
    AppendInk(out, "magenta", t.corners[kMagenta]);
    AppendInk(out, "yellow", t.corners[kYellow]);
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
