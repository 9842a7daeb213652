// The option values that are parsed by hand: page ranges, the scale, and where a page lands.
#include <gtest/gtest.h>

#include "cli/options.h"

namespace inkweave::cli {
namespace {

TEST(PagesOption, RangesListsAndOpenEnds) {
  std::string error;
  auto pages = ParsePages("1-3,7, 9-", &error);
  ASSERT_TRUE(pages) << error;
  for (int p : {1, 2, 3, 7, 9, 10, 500}) EXPECT_TRUE(pages->Contains(p)) << p;
  for (int p : {4, 5, 6, 8}) EXPECT_FALSE(pages->Contains(p)) << p;
  EXPECT_EQ(pages->Highest(), 9);  // an open end asks for no page beyond its start
  EXPECT_TRUE(PageSelection{}.Contains(12345));
}

TEST(PagesOption, RejectsWhatIsNotAPageListWithTheWholeMessage) {
  // The offending item quoted whole: a lost quote or a changed reason fails here.
  const struct {
    const char* Text;
    const char* Error;
  } kBad[] = {
      {"", "--pages : no pages named (write e.g. 1-3,7)"},
      {"0", "--pages 0: '0' is not a page number (pages count from 1)"},
      {"2.5", "--pages 2.5: '2.5' is not a page number (pages count from 1)"},
      {"1, a", "--pages 1, a: 'a' is not a page number (pages count from 1)"},
      {"-2", "--pages -2: '-2' is not a page range (write e.g. 2-5 or 3-)"},
      {"1-2-3", "--pages 1-2-3: '1-2-3' is not a page range (write e.g. 2-5 or 3-)"},
      {"3-1", "--pages 3-1: '3-1' runs backwards"},
      {"1,,2", "--pages 1,,2: empty item (write e.g. 1-3,7)"},
      {"1,", "--pages 1,: empty item (write e.g. 1-3,7)"},
  };
  for (const auto& bad : kBad) {
    std::string error;
    EXPECT_FALSE(ParsePages(bad.Text, &error)) << bad.Text;
    EXPECT_EQ(error, bad.Error);
  }
}

TEST(ScaleOption, FitOrPercentWithinLimits) {
  std::string error;
  EXPECT_FALSE(ParseScale("fit", &error)->Percent);
  EXPECT_DOUBLE_EQ(*ParseScale("100%", &error)->Percent, 100.0);
  EXPECT_DOUBLE_EQ(*ParseScale("37.5", &error)->Percent, 37.5);
  for (const char* bad : {"0%", "1001%", "%", "big", "-5%", "nan", "inf"}) EXPECT_FALSE(ParseScale(bad, &error)) << bad;
}

TEST(Suggestions, CloseNamesOnlyAndTheClosest) {
  const std::vector<std::string> names = {"print", "proof", "decode", "--paper", "--pages", "--preview-dpi"};
  struct Case {
    const char* Typed;
    const char* Expected;
  } cases[] = {
      {"prnt", "print"},
      {"PRINT", "print"},
      {"porof", "proof"},  // missing, case, swapped
      {"decdoe", "decode"},
      {"--papr", "--paper"},
      {"--pagse", "--pages"},  // one edit in four letters
      {"--preveiw-dpi", "--preview-dpi"},
      {"prin", "print"},  // one edit in four letters
      {"pr", ""},
      {"dump", ""},
      {"", ""},  // too short or too far
      {"--pa", ""},
      {"dekode-all", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(ClosestName(c.Typed, names), c.Expected) << c.Typed;
}

TEST(Placement, FitKeepsAspectAndCentres) {
  // A landscape picture into a portrait area: the width fits exactly, centred vertically.
  Placement p = PlacePage(600, 400, 2400, 3413, Scale{});
  EXPECT_EQ(p.Width, 2400);
  EXPECT_EQ(p.Height, 1600);
  EXPECT_EQ(p.Left, 0);
  EXPECT_EQ(p.Top, (3413 - 1600) / 2);
  // A tall page: the height fits exactly and never comes out a dot over.
  p = PlacePage(100, 1000, 2400, 3413, Scale{});
  EXPECT_EQ(p.Height, 3413);
  EXPECT_LE(p.Width, 2400);
}

TEST(Placement, FixedScaleCropsAboutTheCentre) {
  const Placement p = PlacePage(3000, 4000, 2400, 3413, Scale{100.0});
  EXPECT_EQ(p.Width, 3000);
  EXPECT_EQ(p.Height, 4000);
  EXPECT_EQ(p.Left, -300);
  EXPECT_LT(p.Top, 0);
  const Placement half = PlacePage(1000, 1000, 2400, 3413, Scale{50.0});
  EXPECT_EQ(half.Width, 500);
  EXPECT_EQ(half.Left, 950);
}

}  // namespace
}  // namespace inkweave::cli
