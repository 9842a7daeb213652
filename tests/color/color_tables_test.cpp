// The colour tables and interpolation weights: checked-in output of the generators is current and
// pinned, the given rows hold to the byte, and every grid point keeps the promises of the separation
// (white, neutral axis, gray component, black level, monotone cube edges).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "src/data/tables.h"
#include "tests/reference/color_reference.h"
#include "tests/support/sha256.h"

namespace inkweave {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs a generator into a temporary file and compares it with the checked-in source.
void ExpectGeneratedCurrent(const std::string& generator, const std::string& name) {
  const std::string tmp = std::string(INKWEAVE_BINARY_DIR) + "/color_test_" + name + ".cpp";
  ASSERT_EQ(std::system((generator + " " + tmp).c_str()), 0) << generator;
  const std::string fresh = ReadFile(tmp);
  const std::string checkedIn = ReadFile(std::string(INKWEAVE_SOURCE_DIR) + "/src/data/generated/" + name + ".cpp");
  std::remove(tmp.c_str());
  EXPECT_FALSE(fresh.empty());
  std::string tool(name);
  for (char& c : tool)
    if (c == '_') c = '-';
  EXPECT_TRUE(fresh == checkedIn) << "src/data/generated/" << name << ".cpp is out of date; update it with\n  "
                                  << "build/tools/gen-" << tool << " src/data/generated/" << name << ".cpp";
}

TEST(GeneratedTables, CheckedInFilesMatchTheirGenerators) {
  ExpectGeneratedCurrent(GEN_COLOR_TABLES, "color_tables");
  ExpectGeneratedCurrent(GEN_INTERPOLATION_WEIGHTS, "interpolation_weights");
}

TEST(GeneratedTables, PinnedDigests) {
  static const char* const kColorTableSha[kColorTableCount] = {
      "9df241719a9c69201e2ac9f49597a31589761c8b86fec038fb213bd648a93b1f",
      "ad75f31d3eae4abf468cdb64762eb4e41eab8bc97f74e28e5506fe65ab253266",
      "dcf0fef2ebda800f97f027b2ae3f096963a7780169e4dfd6f95964036cdfb0f8",
      "c7482930c6822a54b4319637544dbe3bf906af148a2b65e87d5365bfc1c8fa7f",
      "1fa2e060b4f02e717275d965339ef7d8f1bbef1eb9870af20bb07bcc1d2a5b03",
      "cee22b7b6e9e2d39c4b1b853aa79f4d40764b6a2400f82619750c5ce251c7ec8",
      "0bdf686b6eb6c35dfe391ac14854835b9db5857670c6a3bbac7db0cf38d9920d",
      "a12365aed2d8096c8eae807914230e058aa713aa6f27ed7a8ea1ae5f03e152bd",
      "f0cfd5dcc3f0f6040d17bc681f7f205f2c3cc14925e8a42f24899ea1dbb6db17",
      "403cf445c43e6f47b9daf994e9be81af5866cc14b9786a169671a5c4b3071d06",
      "5d5bcb007f9b73d61c74b641b89cff83f21b44bf557c3cb94836be70036a78e6",
      "f48da76de444bbded7ddc88e608177d0c4689e0b08a48cd464844a488f27b1cc",
      "106e31f9688a2b24e01c8e1cb2d128919fc53524c6f052761a9328076d4eb657",
      "711aa6431464c9c8cd99a0eb4c7a49573e540a061b289c9a1d44d37f9ecce98f",
      "720464907ca60bb213a71c7743e83031b0a5f73aacf61be14731ade61857e53f",
      "06cd324c0f7d2a8a7631af21a9f8d58375bd0513ad85c5d14693723a64902478",
  };
  for (int n = 1; n <= kColorTableCount; ++n)
    EXPECT_EQ(testing::Sha256Hex(ColorTable(n), kColorTableBytes), kColorTableSha[n - 1]) << "ColorTable" << n;
  EXPECT_EQ(testing::Sha256Hex(InterpolationWeights, sizeof InterpolationWeights),
            "7d04973771d7259d533afa66abb107bc77f91039283a7eb2925c250d52fd58cb");
}

TEST(ColorTableAccessor, NumbersOneToSixteenOnly) {
  EXPECT_EQ(ColorTable(0), nullptr);
  EXPECT_EQ(ColorTable(-1), nullptr);
  EXPECT_EQ(ColorTable(17), nullptr);
  for (int a = 1; a <= kColorTableCount; ++a) {
    ASSERT_NE(ColorTable(a), nullptr);
    for (int b = a + 1; b <= kColorTableCount; ++b) EXPECT_NE(ColorTable(a), ColorTable(b));
  }
}

const std::uint8_t* Point(int table, int i, int j, int k) { return ColorTable(table) + ((i * 17 + j) * 17 + k) * 4; }

std::string Hex(const std::uint8_t* p) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02x %02x %02x %02x", p[0], p[1], p[2], p[3]);
  return buf;
}

TEST(ColorTables, GivenRowsToTheByte) {
  struct Row {
    int table;
    const char* cells[9];  // black, red, green, blue, cyan, magenta, yellow, white, gray
  };
  static const Row kRows[] = {
      {1,
       {"ff ff ff ff", "00 e1 eb 00", "8b 00 f2 00", "ec c6 00 00", "ff 00 00 00", "00 ff 00 00", "00 00 ff 00",
        "00 00 00 00", "4c 4c 4c 4c"}},
      {2,
       {"ff ff ff ff", "00 be ec 00", "6e 00 f2 00", "d8 c2 00 00", "a0 00 01 00", "00 e0 00 00", "00 00 ff 00",
        "00 00 00 00", "4c 4c 4c 4c"}},
      {3,
       {"ff ff ff ff", "00 88 aa 00", "6b 00 c7 00", "a8 8a 00 00", "ff 00 01 00", "00 ff 00 00", "00 00 ff 00",
        "00 00 00 00", "40 40 40 40"}},
      {7,
       {"b2 b2 b2 b2", "00 5e 7e 00", "46 00 96 00", "7d 5f 00 00", "b2 00 01 00", "00 b2 00 00", "00 00 b2 00",
        "00 00 00 00", "2c 2c 2c 2c"}},
      {13,
       {"c0 c0 c0 c0", "00 5a 82 00", "3e 00 9e 00", "80 5c 00 00", "c0 00 01 00", "00 c0 00 00", "00 00 c0 00",
        "00 00 00 00", "26 26 26 26"}},
      {15,
       {"ff ff ff ff", "00 e3 eb 00", "99 00 f0 00", "eb cb 00 00", "ff 00 00 00", "00 ff 00 00", "00 00 ff 00",
        "00 00 00 00", "60 60 60 60"}},
  };
  static constexpr int kAt[9][3] = {{0, 0, 0},   {16, 0, 0},  {0, 16, 0},   {0, 0, 16}, {0, 16, 16},
                                    {16, 0, 16}, {16, 16, 0}, {16, 16, 16}, {8, 8, 8}};
  for (const Row& row : kRows)
    for (int c = 0; c < 9; ++c)
      EXPECT_EQ(Hex(Point(row.table, kAt[c][0], kAt[c][1], kAt[c][2])), row.cells[c])
          << "table " << row.table << " at (" << kAt[c][0] << "," << kAt[c][1] << "," << kAt[c][2] << ")";
}

// The black corner: full ink in every table but the ink-limited ones.
int BlackLevel(int table) {
  switch (table) {
    case 7:
    case 8: return 0xb2;
    case 9:
    case 10:
    case 13:
    case 14: return 0xc0;
    default: return 0xff;
  }
}

TEST(ColorTables, WhiteNeutralsBlackAndGrayComponentAtEveryGridPoint) {
  for (int t = 1; t <= kColorTableCount; ++t) {
    SCOPED_TRACE("table " + std::to_string(t));
    EXPECT_EQ(Hex(Point(t, 16, 16, 16)), "00 00 00 00");
    const int level = BlackLevel(t);
    for (int n = 0; n < 4; ++n) EXPECT_EQ(Point(t, 0, 0, 0)[n], level);
    for (int i = 0; i < 17; ++i) {
      const std::uint8_t* p = Point(t, i, i, i);
      EXPECT_TRUE(p[0] == p[1] && p[1] == p[2] && p[2] == p[3]) << "neutral " << i << ": " << Hex(p);
      if (i > 0) {
        EXPECT_LE(p[0], Point(t, i - 1, i - 1, i - 1)[0]) << "neutral axis rises at " << i;
      }
    }
    for (int i = 0; i < 17; ++i)
      for (int j = 0; j < 17; ++j)
        for (int k = 0; k < 17; ++k) {
          const std::uint8_t* p = Point(t, i, j, k);
          ASSERT_EQ(p[3], std::min({p[0], p[1], p[2]})) << "(" << i << "," << j << "," << k << ")";
          for (int n = 0; n < 4; ++n) ASSERT_LE(p[n], level) << "ink limit at (" << i << "," << j << "," << k << ")";
        }
  }
}

TEST(ColorTables, MonotoneAlongTheTwelveEdges) {
  static constexpr int kCorner[8][3] = {{0, 0, 0},  {16, 0, 0},  {0, 16, 0},  {16, 16, 0},
                                        {0, 0, 16}, {16, 0, 16}, {0, 16, 16}, {16, 16, 16}};
  for (int t = 1; t <= kColorTableCount; ++t) {
    SCOPED_TRACE("table " + std::to_string(t));
    int edges = 0;
    for (int a = 0; a < 8; ++a)
      for (int axis = 0; axis < 3; ++axis) {
        if (a >> axis & 1) continue;
        ++edges;
        for (int n = 0; n < 4; ++n) {
          bool rises = false, falls = false;
          for (int s = 1; s < 17; ++s) {
            int g0[3] = {kCorner[a][0], kCorner[a][1], kCorner[a][2]};
            int g1[3] = {g0[0], g0[1], g0[2]};
            g0[axis] = s - 1;
            g1[axis] = s;
            const int d = Point(t, g1[0], g1[1], g1[2])[n] - Point(t, g0[0], g0[1], g0[2])[n];
            rises |= d > 0;
            falls |= d < 0;
          }
          EXPECT_FALSE(rises && falls) << "ink " << n << " along the edge from corner " << a << ", axis " << axis;
        }
      }
    EXPECT_EQ(edges, 12);
  }
}

TEST(InterpolationWeights, WorkedExamples) {
  auto entry = [](int fr, int fg, int fb) {
    const std::uint8_t* w = InterpolationWeights[(fr * 16 + fg) * 16 + fb];
    return std::array<int, 8>{w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]};
  };
  EXPECT_EQ(entry(8, 0, 0), (std::array<int, 8>{127, 127, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(entry(1, 0, 0), (std::array<int, 8>{239, 15, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(entry(15, 15, 15), (std::array<int, 8>{0, 0, 0, 14, 0, 14, 14, 210}));
  EXPECT_EQ(entry(0, 0, 0), (std::array<int, 8>{255, 0, 0, 0, 0, 0, 0, 0}));
  // The base weight used for (8, 0, 0) absorbs the rounding.
  const std::array<int, 8> w = entry(8, 0, 0);
  EXPECT_EQ(255 - (w[1] + w[2] + w[3] + w[4] + w[5] + w[6] + w[7]), 128);
}

TEST(InterpolationWeights, EveryEntryFollowsTheRule) {
  for (int fr = 0; fr < 16; ++fr)
    for (int fg = 0; fg < 16; ++fg)
      for (int fb = 0; fb < 16; ++fb) {
        int sum = 0;
        for (int corner = 0; corner < 8; ++corner) {
          const int w = InterpolationWeights[(fr * 16 + fg) * 16 + fb][corner];
          ASSERT_EQ(w, reference::WeightByRule(fr, fg, fb, corner)) << fr << "," << fg << "," << fb << " b" << corner;
          sum += w;
        }
        ASSERT_LE(sum, 255);  // the base weight used is never negative
      }
}

}  // namespace
}  // namespace inkweave
