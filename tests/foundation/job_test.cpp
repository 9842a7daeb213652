// Whole jobs without bands through the plug-in library's entry points: job start, two pages, job end,
// compared byte for byte with the sequences written out here from the printer's command set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/plugin_library.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::Hex;
using testing::operator+;
using testing::Zeros;

const Bytes kEnterRaster = Hex("1B 7C 01 00 03");

Bytes Settings(const char* resolution, const char* ink, const char* media) {
  return kEnterRaster + Hex(resolution) + Hex(ink) + Hex("4D 05 44 02") + Hex(media);
}

// Job start, `pages` empty pages, job end.
Bytes ExpectedJob(const char* resolution, const char* ink, const char* media, const char* paper, int pages) {
  const Bytes settings = Settings(resolution, ink, media);
  Bytes job = Zeros(2000) + kEnterRaster + Hex("1B 40") + kEnterRaster + settings;
  for (int i = 0; i < pages; ++i) {
    job = job + settings + Hex("00 00 00") + Zeros(500) + Hex("59 00 00 58 00 00") + Hex(paper);
    job = job + Hex("0C") + Zeros(500);
  }
  return job + Hex("1B 40");
}

struct JobCase {
  std::int16_t quality;
  bool color;
  std::vector<DWORD> selections;
  const char* resolution;
  const char* ink;
};

Bytes RunJob(const JobCase& c, std::int16_t paper = DMPAPER_A4, DWORD media = 0) {
  host::HostSession session(testing::SharedPlugin());
  EXPECT_EQ(session.Load(), S_OK);
  host::DeviceSetup setup;
  setup.Quality = c.quality;
  setup.Color = c.color;
  setup.PaperSize = paper;
  setup.PageWidth = 1200;
  setup.PageHeight = 1600;
  EXPECT_EQ(session.Enable(setup), S_OK);
  if (media) {
    EXPECT_EQ(session.Command(media), S_OK);
  }
  for (DWORD id : c.selections) EXPECT_EQ(session.Command(id), S_OK);
  EXPECT_EQ(session.Command(22), S_OK);
  for (int page = 0; page < 2; ++page) {
    EXPECT_EQ(session.Command(20), S_OK);
    EXPECT_EQ(session.Command(21), S_OK);
  }
  EXPECT_EQ(session.Command(23), S_OK);
  EXPECT_EQ(session.Disable(), S_OK);
  EXPECT_EQ(session.Unload(), 0u);
  for (const host::SpoolWrite& w : session.Spool().Writes()) EXPECT_FALSE(w.Abort);
  return session.Spool().Stream();
}

class SelectionJobs : public ::testing::TestWithParam<JobCase> {};

TEST_P(SelectionJobs, ByteForByte) {
  const JobCase& c = GetParam();
  const Bytes expected = ExpectedJob(c.resolution, c.ink, "4E 05 00", "73 01", 2);
  const Bytes actual = RunJob(c);
  EXPECT_TRUE(actual == expected) << testing::FirstDifference(actual, expected);
}

// The resolution and ink-mode bytes after each run of selections, worked out by hand. Note that the
// monochrome bit joins the print mode only with a selection: an unselected monochrome job still
// announces colour dots, and 600 dpi monochrome reaches the high-resolution mode only from 4.
INSTANTIATE_TEST_SUITE_P(
    Jobs, SelectionJobs,
    ::testing::Values(
        JobCase{150, true, {}, "52 01 00", "49 10"}, JobCase{150, true, {11}, "52 01 00", "49 10"},
        JobCase{150, true, {12}, "52 01 00", "49 31"}, JobCase{150, true, {14}, "52 01 00", "49 10"},
        JobCase{150, true, {12, 12}, "52 01 00", "49 10"}, JobCase{150, true, {12, 14}, "52 01 00", "49 10"},
        JobCase{150, true, {14, 12}, "52 01 00", "49 31"}, JobCase{150, true, {11, 14, 12}, "52 01 00", "49 31"},
        JobCase{150, false, {}, "52 01 00", "49 10"}, JobCase{150, false, {11}, "52 01 00", "49 00"},
        JobCase{150, false, {12}, "52 01 00", "49 00"}, JobCase{150, false, {14}, "52 01 00", "49 00"},
        JobCase{150, false, {12, 14}, "52 01 00", "49 00"}, JobCase{300, true, {}, "52 01 01", "49 10"},
        JobCase{300, true, {11}, "52 01 01", "49 10"}, JobCase{300, true, {12}, "52 01 01", "49 31"},
        JobCase{300, true, {14}, "52 01 01", "49 10"}, JobCase{300, true, {12, 12}, "52 01 01", "49 10"},
        JobCase{300, true, {12, 14}, "52 01 01", "49 10"}, JobCase{300, true, {14, 12}, "52 01 01", "49 31"},
        JobCase{300, true, {11, 14, 12}, "52 01 01", "49 31"}, JobCase{300, false, {}, "52 01 01", "49 10"},
        JobCase{300, false, {11}, "52 01 01", "49 00"}, JobCase{300, false, {12}, "52 01 01", "49 00"},
        JobCase{300, false, {14, 12}, "52 01 01", "49 00"}, JobCase{600, true, {}, "52 02 02", "49 10"},
        JobCase{600, true, {11}, "52 02 02", "49 10"}, JobCase{600, true, {12}, "52 02 02", "49 31"},
        JobCase{600, true, {14}, "52 03 03", "49 10"}, JobCase{600, true, {12, 12}, "52 02 02", "49 10"},
        JobCase{600, true, {12, 14}, "52 03 03", "49 10"}, JobCase{600, true, {14, 12}, "52 03 03", "49 10"},
        JobCase{600, true, {11, 14, 12}, "52 03 03", "49 10"}, JobCase{600, false, {}, "52 02 02", "49 10"},
        JobCase{600, false, {11}, "52 02 02", "49 00"}, JobCase{600, false, {12}, "52 02 02", "49 00"},
        JobCase{600, false, {14}, "52 03 03", "49 00"}, JobCase{600, false, {12, 12}, "52 02 02", "49 00"},
        JobCase{600, false, {12, 14}, "52 02 02", "49 00"}, JobCase{600, false, {14, 12}, "52 03 03", "49 00"},
        JobCase{600, false, {11, 14, 12}, "52 02 02", "49 00"}));

TEST(MediaJobs, ByteForByte) {
  const char* media[] = {"4E 05 00", "4E 05 01", "4E 05 02", "4E 05 03"};
  for (DWORD id = 15; id <= 18; ++id) {
    const Bytes expected = ExpectedJob("52 01 01", "49 10", media[id - 15], "73 01", 2);
    const Bytes actual = RunJob({300, true, {}, "", ""}, DMPAPER_A4, id);
    EXPECT_TRUE(actual == expected) << "media command " << id << ": " << testing::FirstDifference(actual, expected);
  }
}

TEST(PaperJobs, ByteForByte) {
  struct Case {
    std::int16_t paper;
    const char* bytes;
  };
  const Case cases[] = {{DMPAPER_A4, "73 01"},
                        {DMPAPER_LETTER, "73 FF E8 02"},
                        {DMPAPER_LEGAL, "73 FF E8 02"},
                        {DMPAPER_A5, "73 07"},
                        {DMPAPER_ENV_10, "73 0C 46 6E 00"},
                        {DMPAPER_ENV_DL, "73 0A 46 6E 00"},
                        {DMPAPER_ENV_C5, "73 06 46 6E 00"},
                        {DMPAPER_ENV_C4, "73 01 46 6E 00"},
                        {DMPAPER_ENV_B5, "73 05 46 6E 00"},
                        {DMPAPER_ENV_MONARCH, "73 0D 46 6E 00"},
                        {DMPAPER_A3, "73 FF"},
                        {DMPAPER_EXECUTIVE, "73 03"}};
  for (const Case& c : cases) {
    const Bytes expected = ExpectedJob("52 01 01", "49 10", "4E 05 00", c.bytes, 2);
    const Bytes actual = RunJob({300, true, {}, "", ""}, c.paper);
    EXPECT_TRUE(actual == expected) << "paper " << c.paper << ": " << testing::FirstDifference(actual, expected);
  }
}

// One job spelled out in full, as the printer receives it.
TEST(SpelledOutJob, A4ColourAt300) {
  std::string text;
  for (int i = 0; i < 2000; ++i) text += "00 ";
  text += "1B 7C 01 00 03 1B 40 1B 7C 01 00 03 ";
  text += "1B 7C 01 00 03 52 01 01 49 10 4D 05 44 02 4E 05 00 ";  // settings
  std::string page = "1B 7C 01 00 03 52 01 01 49 10 4D 05 44 02 4E 05 00 00 00 00 ";
  for (int i = 0; i < 500; ++i) page += "00 ";
  page += "59 00 00 58 00 00 73 01 0C ";
  for (int i = 0; i < 500; ++i) page += "00 ";
  text += page + page + "1B 40";
  const Bytes actual = RunJob({300, true, {}, "", ""});
  const Bytes expected = Hex(text);
  EXPECT_TRUE(actual == expected) << testing::FirstDifference(actual, expected);
}

}  // namespace
}  // namespace inkweave
