// Whole jobs without bands through the plug-in library's entry points, with the expected bytes written
// out here from the printer's command set: the print mode each quality and run of selections leaves,
// the paper commands, and the write path's failure mark. (Jobs with bands: the whole-stream suite;
// failed writes over whole jobs: fault_test.cpp.)
#include <gtest/gtest.h>

#include <vector>

#include "src/commands/command_writer.h"
#include "tests/support/bytes.h"
#include "tests/support/emit_driver.h"
#include "tests/support/plugin_library.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::Hex;
using testing::operator+;

struct JobCase {
  std::int16_t quality;
  bool color;
  std::vector<DWORD> selections;  // before the job start
  const char* resolution;
  const char* ink;
  const char* media = "4E 05 00";
  std::int16_t paper = DMPAPER_A4;
  const char* paperBytes = "73 01";
};

Bytes RunJob(const JobCase& c) {
  host::HostSession session(testing::SharedPlugin());
  EXPECT_EQ(session.Load(), S_OK);
  EXPECT_EQ(session.Enable(
                {.PaperSize = c.paper, .Quality = c.quality, .Color = c.color, .PageWidth = 1200, .PageHeight = 1600}),
            S_OK);
  for (DWORD id : c.selections) EXPECT_EQ(session.Command(id), S_OK);
  for (DWORD id : {22, 20, 21, 20, 21, 23}) EXPECT_EQ(session.Command(id), S_OK);
  EXPECT_EQ(session.Disable(), S_OK);
  EXPECT_EQ(session.Unload(), 0u);
  for (const host::SpoolWrite& w : session.Spool().Writes()) EXPECT_FALSE(w.Abort);
  return session.Spool().Stream();
}

// A job start, two pages without bands and a job end, after each run of selections. Error diffusion
// (12) toggles a flag on the whole print mode, so a second one clears it, and at 600 dpi it takes the
// resolution down once high resolution (14) follows it; the monochrome bit joins the print mode only
// with a selection, so an unselected monochrome job still announces colour dots, and a monochrome mode
// is never flagged. Qualities the device does not know print at 300 dpi; ids that select nothing change
// nothing. The paper command is shared by every device of the process: Letter leaves its four bytes in
// it and the A4 job after it still sends just its two.
TEST(Jobs, ByteForByte) {
  const JobCase cases[] = {
      {150, true, {}, "52 01 00", "49 10"},
      {150, true, {12, 12}, "52 01 00", "49 10"},
      {150, true, {12, 14}, "52 01 00", "49 10"},
      {150, false, {}, "52 01 00", "49 10"},
      {300, true, {12}, "52 01 01", "49 31"},
      {300, false, {12, 11}, "52 01 01", "49 00"},
      {300, false, {14, 12}, "52 01 01", "49 00"},
      {600, true, {12, 14}, "52 03 03", "49 10"},
      {600, true, {14, 12}, "52 03 03", "49 10"},
      {600, true, {12, 11}, "52 02 02", "49 10"},
      {600, false, {14}, "52 03 03", "49 00"},
      {600, false, {12, 14}, "52 02 02", "49 00"},
      {1200, true, {}, "52 01 01", "49 10"},
      {-4, true, {0, 7, 10, 13, 19, 24, 0x1FF}, "52 01 01", "49 10"},
      {300, true, {18}, "52 01 01", "49 10", "4E 05 03", DMPAPER_LETTER, "73 FF E8 02"},
      {300, true, {}, "52 01 01", "49 10"},
      {300, true, {}, "52 01 01", "49 10", "4E 05 00", DMPAPER_ENV_DL, "73 0A 46 6E 00"},
      {300, true, {}, "52 01 01", "49 10", "4E 05 00", 8, "73 FF"},
      {300, true, {}, "52 01 01", "49 10", "4E 05 00", 256, "73 FF"},
  };
  const Bytes enter = Hex("1B 7C 01 00 03");
  for (const JobCase& c : cases) {
    const Bytes settings = enter + Hex(c.resolution) + Hex(c.ink) + Hex("4D 05 44 02") + Hex(c.media);
    const Bytes page = settings + Hex("00 00 00") + testing::Zeros(500) + Hex("59 00 00 58 00 00") + Hex(c.paperBytes) +
                       Hex("0C") + testing::Zeros(500);
    const Bytes expected = testing::Zeros(2000) + enter + Hex("1B 40") + enter + settings + page + page + Hex("1B 40");
    const Bytes actual = RunJob(c);
    EXPECT_TRUE(actual == expected) << "quality " << c.quality << (c.color ? " colour" : " mono") << ", paper "
                                    << c.paper << ", selections " << ::testing::PrintToString(c.selections) << ": "
                                    << testing::FirstDifference(actual, expected);
  }
}

// Only E_FAIL marks the job failed (other failures and S_FALSE do not), and a later success keeps it.
TEST(WriteBytes, OnlyEFailMarksTheJob) {
  testing::EmitDevice device(2);
  const std::uint8_t byte = 0x42;
  const std::pair<HRESULT, std::uint32_t> writes[] = {{E_OUTOFMEMORY, 0}, {S_FALSE, 0}, {E_FAIL, 1}, {S_OK, 1}};
  for (std::uint32_t n = 1; n <= std::size(writes); ++n) {
    device.Spool.SetFaults({n, false, writes[n - 1].first});
    WriteBytes(&device.Devobj, &byte, 1, device.Driver());
    EXPECT_EQ(device.State.WriteFailed, writes[n - 1].second) << "write " << n;
  }
}

}  // namespace
}  // namespace inkweave
