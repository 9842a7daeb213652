// The option values that are parsed by hand: page ranges, the scale, and where a page lands (the messages
// of the values refused are in the command grid).
#include <gtest/gtest.h>

#include <tuple>

#include "cli/options.h"

namespace inkweave::cli {
namespace {

TEST(PagesAndScale, RangesListsOpenEndsAndPercentsWithinLimits) {
  std::string error;
  auto pages = ParsePages("1-3,7, 9-", &error);
  ASSERT_TRUE(pages) << error;
  for (int p : {1, 2, 3, 7, 9, 10, 500}) EXPECT_TRUE(pages->Contains(p)) << p;
  for (int p : {4, 5, 6, 8}) EXPECT_FALSE(pages->Contains(p)) << p;
  EXPECT_EQ(pages->Highest(), 9);  // an open end asks for no page beyond its start
  EXPECT_TRUE(PageSelection{}.Contains(12345));
  EXPECT_FALSE(ParseScale("fit", &error)->Percent);
  EXPECT_DOUBLE_EQ(*ParseScale("100%", &error)->Percent, 100.0);
  EXPECT_DOUBLE_EQ(*ParseScale("37.5", &error)->Percent, 37.5);
  for (const char* bad : {"0%", "1001%", "%", "big", "-5%", "nan", "inf"}) EXPECT_FALSE(ParseScale(bad, &error)) << bad;
}

TEST(Placement, FitKeepsAspectAndCentresAFixedScaleCropsAboutTheCentre) {
  const struct {
    int Width, Height;
    Scale Fit;
    std::int64_t Left, Top, PlacedWidth, PlacedHeight;
  } kCases[] = {
      {600, 400, {}, 0, (3413 - 1600) / 2, 2400, 1600},  // a landscape picture: the width fits, centred
      {100, 1000, {}, (2400 - 341) / 2, 0, 341, 3413},   // a tall page: the height fits, never a dot over
      {3000, 4000, Scale{100.0}, -300, (3413 - 4000) / 2, 3000, 4000},
      {1000, 1000, Scale{50.0}, 950, (3413 - 500) / 2, 500, 500},
  };
  for (const auto& c : kCases) {
    const Placement p = PlacePage(c.Width, c.Height, 2400, 3413, c.Fit);
    EXPECT_EQ(std::tie(p.Left, p.Top, p.Width, p.Height), std::tie(c.Left, c.Top, c.PlacedWidth, c.PlacedHeight))
        << c.Width << " x " << c.Height;
  }
}

}  // namespace
}  // namespace inkweave::cli
