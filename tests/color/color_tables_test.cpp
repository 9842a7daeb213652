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
      "c6afc7052c7482abf57d1ed7ad534043e64a12cb652a3b3cc2e8964dabc6b487",
      "5df5dc47ba62914a480895a26ed71c8a95114c965cd208cf72a69297b0d2c9e8",
      "22e6680ec3771655498591600a80be4ceeb522bfeb4367c90e7b668f1fdc6357",
      "2fd0adb7aa875f5becaaeeb14eaec6db2704b54dd7843536b9b07fb25e55990d",
      "f3309e79ed808f1bbeb56257819349d957b603693f03a88f94eaaa87ef7d95dc",
      "f19c326cc6ee91714bfc13896ae6acb3d2ef73d401072530b076573512a913a3",
      "4755c4bdf114b96c606fb476a6dd8ce23a8124db3e03dcb144b86ca59491ed49",
      "b07ed60980429d750884eda2a9c83839be0fe91aa0073116f27ef323628cb4e3",
      "bd0e72e9a1e622e722e93a258223958fe0f1379ee9966680d892726deb689191",
      "2d6782d12cd2956b9ef0d40bdd0dc616169f9f4568e72f4587536160ec60d50b",
      "d991d427c59db22c54c377dfda57d48f167610be7ca42f8eeb3ac47ab366a3d9",
      "58af01b361727a54c4ed79ede1d4990ad3b5e8fb0a1405a52f3935dcc61f433c",
      "f8f7ab0df307e7cf1c621e0d51349ceda063519a00632a2e22dcd1b73c99828a",
      "73b6fb2c97ab1a19f7e86465a3e960e03be45cf2dfe712f859b1c59160275551",
      "f3d677d6918f62b9e966fd5fdd32f267292fa218cb99db7d1e36b0417a846c1b",
      "bf04e16ab6db293cff595d15b92547dca635b285964805d90a9e409d3df124df",
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
