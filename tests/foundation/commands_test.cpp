// The command writer and the command dispatcher: the single write path, the command groups, the
// print-mode arithmetic of the selections, and whole jobs without bands through the plug-in library's
// entry points, with the expected bytes written out here from the printer's command set. (Failed writes
// over whole jobs, the abort tail and the form feed's direct write: fault_test.cpp.)
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "host/spool.h"
#include "src/commands/command_dispatcher.h"
#include "src/commands/command_writer.h"
#include "src/device/device_state.h"
#include "tests/support/bytes.h"
#include "tests/support/plugin_library.h"

namespace inkweave {
namespace {

using testing::Bytes;
using testing::Hex;
using testing::operator+;

struct Fixture {
  DeviceState state{};
  DEVOBJ devobj{};
  host::SpoolService spool;
  Fixture() {
    state.ColorMode = 2;
    state.PrintMode = 2;
    state.HalftoneMethod = 1;
    state.CompressionMethod = 2;
    state.PaperSize = DMPAPER_A4;
    devobj.pdevOEM = &state;
  }
  IPrintOemDriverUni* driver() { return spool.Interface(); }
  void Command(std::uint32_t id) { HandleCommand(&devobj, id, 0, driver()); }
  Bytes ModeSettings() {
    spool.Clear();
    WriteModeSettings(&devobj, driver());
    return spool.Stream();
  }
  Bytes PageStart() {
    spool.Clear();
    WritePageStart(&devobj, driver());
    return spool.Stream();
  }
};

// ---------------------------------------------------------------------------------------------------
// Selections
// ---------------------------------------------------------------------------------------------------
TEST(Selections, PrintModeArithmetic) {
  struct Case {
    std::uint8_t before, halftone;
    std::uint16_t color;
    std::vector<std::uint32_t> ids;
    std::uint8_t after, halftoneAfter;
  };
  const Case cases[] = {
      // Error diffusion toggles the flag on the whole value: 34 is not below 6, so it is cleared again.
      {2, 1, 2, {12}, 34, 2},
      {2, 1, 2, {12, 12}, 2, 2},
      {36, 2, 2, {11}, 4, 1},  // dither clears the flag
      // The monochrome bit is only ever added, and a monochrome mode is never below 6: never flagged.
      {2, 1, 1, {12, 11}, 18, 1},
      {18, 1, 2, {11}, 18, 1},
      // High resolution maps only four values and takes the flag under diffusion, loses it under dither.
      {36, 2, 2, {14}, 6, 2},
      {4, 1, 2, {14}, 6, 1},
      {4, 2, 2, {14}, 6, 2},
      {21, 1, 2, {14}, 22, 1},
      {53, 2, 2, {14}, 22, 2},
      {20, 1, 2, {14}, 20, 1},
      {2, 2, 2, {14}, 34, 2},
      {34, 1, 2, {14}, 2, 1},
      {1, 2, 2, {14}, 33, 2},
      {4, 1, 1, {14}, 22, 1},
      {6, 2, 2, {14}, 6, 2},
      {5, 2, 2, {14}, 37, 2},
  };
  for (const Case& c : cases) {
    Fixture f;
    f.state.PrintMode = c.before;
    f.state.HalftoneMethod = c.halftone;
    f.state.ColorMode = c.color;
    for (const std::uint32_t id : c.ids) f.Command(id);
    EXPECT_EQ(f.state.PrintMode, c.after) << "from " << int{c.before} << " halftone " << int{c.halftone};
    EXPECT_EQ(f.state.HalftoneMethod, c.halftoneAfter) << "from " << int{c.before};
  }
}

TEST(Selections, MediaAndTheIdsWithoutEffect) {
  Fixture f;
  for (std::uint32_t id = 15; id <= 18; ++id) {
    f.Command(id);
    EXPECT_EQ(f.state.MediaType, static_cast<std::int16_t>(id - 15));
  }
  for (std::uint32_t id : {0u, 7u, 10u, 13u, 19u, 24u, 0x1FFu}) {
    const DeviceState before = f.state;
    f.Command(id);
    EXPECT_EQ(std::memcmp(&before, &f.state, sizeof before), 0) << "id " << id << " changes nothing";
  }
  EXPECT_TRUE(f.spool.Writes().empty()) << "selections write nothing";
}

// ---------------------------------------------------------------------------------------------------
// The write path
// ---------------------------------------------------------------------------------------------------
TEST(WriteBytes, OnlyEFailMarksTheJob) {
  Fixture f;
  const std::uint8_t byte = 0x42;
  f.spool.SetFaults({1, false, E_OUTOFMEMORY});
  WriteBytes(&f.devobj, &byte, 1, f.driver());
  EXPECT_EQ(f.state.WriteFailed, 0u);
  f.spool.SetFaults({2, false, S_FALSE});
  WriteBytes(&f.devobj, &byte, 1, f.driver());
  EXPECT_EQ(f.state.WriteFailed, 0u);
  f.spool.SetFaults({3, false, E_FAIL});
  WriteBytes(&f.devobj, &byte, 1, f.driver());
  EXPECT_EQ(f.state.WriteFailed, 1u);
  WriteBytes(&f.devobj, &byte, 1, f.driver());
  EXPECT_EQ(f.state.WriteFailed, 1u) << "a later success does not clear the mark";
}

// ---------------------------------------------------------------------------------------------------
// Command groups
// ---------------------------------------------------------------------------------------------------
TEST(ModeSettings, ResolutionAndInkModeFromThePrintMode) {
  struct Case {
    std::uint8_t mode;
    const char* resolution;  // empty: none written
    const char* ink;
  };
  const Case cases[] = {
      {1, "52 01 00", "49 10"},  {2, "52 01 01", "49 10"},  {3, "52 01 01", "49 10"},  {4, "52 02 02", "49 10"},
      {5, "52 02 02", "49 10"},  {6, "52 03 03", "49 10"},  {34, "52 01 01", "49 31"}, {22, "52 03 03", "49 00"},
      {50, "52 01 01", "49 30"}, {17, "52 01 00", "49 00"}, {0, "", "49 10"},          {7, "", "49 10"},
      {55, "", "49 30"},         {54, "52 03 03", "49 30"}, {48, "", "49 30"},
  };
  for (const Case& c : cases) {
    Fixture f;
    f.state.PrintMode = c.mode;
    const Bytes expected = Hex("1B 7C 01 00 03") + Hex(c.resolution) + Hex(c.ink) + Hex("4D 05 44 02 4E 05 00");
    EXPECT_EQ(f.ModeSettings(), expected) << "print mode " << int{c.mode};
    EXPECT_EQ(f.state.InkModeCode, Hex(c.ink)[1]);
  }
}

TEST(ModeSettings, CompressionDAndMedia) {
  Fixture f;
  f.state.CompressionMethod = 1;
  EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 4D 02 44 02 4E 05 00"));
  f.state.CompressionMethod = 0;
  EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 4D 00 44 02 4E 05 00"));
  f.state.CompressionMethod = 3;
  EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 44 02 4E 05 00"));

  f.state.CompressionMethod = 2;
  const char* media[] = {"4E 05 00", "4E 05 01", "4E 05 02", "4E 05 03", "4E 05 04", "4E 05 04", "4E 05 00"};
  for (int m = 0; m <= 6; ++m) {
    f.state.MediaType = static_cast<std::int16_t>(m);
    EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 4D 05 44 02") + Hex(media[m])) << m;
  }

  // "D" 00 only when enabled, on a sheet paper, and on plain or inkjet media.
  f.state.DCommandEnable = 1;
  f.state.MediaType = 1;
  EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 4D 05 44 00 4E 05 01"));
  f.state.MediaType = 2;
  EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 4D 05 44 02 4E 05 02"));
  f.state.MediaType = 0;
  f.state.PaperSize = DMPAPER_ENV_MONARCH;
  EXPECT_EQ(f.ModeSettings(), Hex("1B 7C 01 00 03 52 01 01 49 10 4D 05 44 02 4E 05 00"));
}

TEST(PageStart, PaperCommandsPerSize) {
  struct Case {
    std::int16_t paper;
    const char* bytes;
  };
  const Case cases[] = {
      {9, "73 01"},           {1, "73 FF E8 02"},     {5, "73 FF E8 02"},     {7, "73 03"},
      {11, "73 07"},          {34, "73 05 46 6E 00"}, {28, "73 06 46 6E 00"}, {30, "73 01 46 6E 00"},
      {20, "73 0C 46 6E 00"}, {27, "73 0A 46 6E 00"}, {37, "73 0D 46 6E 00"}, {8, "73 FF"},
      {0, "73 FF"},           {256, "73 FF"},
  };
  for (const Case& c : cases) {
    Fixture f;
    f.state.PaperSize = static_cast<std::uint16_t>(c.paper);
    const Bytes expected = Hex("1B 7C 01 00 03 52 01 01 49 10 4D 05 44 02 4E 05 00 00 00 00") + testing::Zeros(500) +
                           Hex("59 00 00 58 00 00") + Hex(c.bytes);
    EXPECT_EQ(f.PageStart(), expected) << "paper " << c.paper;
  }
}

TEST(PageStart, SharedPaperBufferAfterLetter) {
  // Letter leaves its four bytes in the shared buffer; a later A4 sends just its two.
  Fixture f;
  f.state.PaperSize = DMPAPER_LETTER;
  f.PageStart();
  f.state.PaperSize = DMPAPER_A4;
  const Bytes page = f.PageStart();
  EXPECT_EQ(Bytes(page.end() - 8, page.end()), Hex("59 00 00 58 00 00 73 01"));
}

TEST(PageStart, DisabledHeaderWritesNothing) {
  Fixture f;
  f.state.PageHeaderDisabled = 1;
  EXPECT_TRUE(f.PageStart().empty());
}

// ---------------------------------------------------------------------------------------------------
// Whole jobs: job start, two empty pages, job end
// ---------------------------------------------------------------------------------------------------
struct JobCase {
  std::int16_t quality;
  bool color;
  std::vector<DWORD> selections;  // before the job start; 15..18 select the media
  const char* resolution;
  const char* ink;
  const char* media = "4E 05 00";
  std::int16_t paper = DMPAPER_A4;
  const char* paperBytes = "73 01";
};

Bytes RunJob(const JobCase& c) {
  host::HostSession session(testing::SharedPlugin());
  EXPECT_EQ(session.Load(), S_OK);
  host::DeviceSetup setup;
  setup.Quality = c.quality;
  setup.Color = c.color;
  setup.PaperSize = c.paper;
  setup.PageWidth = 1200;
  setup.PageHeight = 1600;
  EXPECT_EQ(session.Enable(setup), S_OK);
  for (DWORD id : c.selections) EXPECT_EQ(session.Command(id), S_OK);
  for (DWORD id : {22, 20, 21, 20, 21, 23}) EXPECT_EQ(session.Command(id), S_OK);
  EXPECT_EQ(session.Disable(), S_OK);
  EXPECT_EQ(session.Unload(), 0u);
  for (const host::SpoolWrite& w : session.Spool().Writes()) EXPECT_FALSE(w.Abort);
  return session.Spool().Stream();
}

// The resolution and ink-mode bytes after each run of selections, worked out by hand, for the runs the
// whole-stream suite never sends (no selection, a selection repeated, high resolution after the
// halftone). The monochrome bit joins the print mode only with a selection: an unselected monochrome job
// still announces colour dots, and 600 dpi monochrome reaches the high-resolution mode only from 4.
TEST(Jobs, ByteForByte) {
  const JobCase cases[] = {
      {150, true, {}, "52 01 00", "49 10"},
      {150, true, {12, 12}, "52 01 00", "49 10"},
      {150, true, {12, 14}, "52 01 00", "49 10"},
      {150, false, {}, "52 01 00", "49 10"},
      {300, false, {14, 12}, "52 01 01", "49 00"},
      {600, true, {12, 14}, "52 03 03", "49 10"},
      {600, true, {14, 12}, "52 03 03", "49 10"},
      {600, false, {14}, "52 03 03", "49 00"},
      {600, false, {12, 14}, "52 02 02", "49 00"},
      {300, true, {18}, "52 01 01", "49 10", "4E 05 03", DMPAPER_LETTER, "73 FF E8 02"},
      {300, true, {}, "52 01 01", "49 10", "4E 05 00", DMPAPER_ENV_DL, "73 0A 46 6E 00"},
  };
  const Bytes enter = Hex("1B 7C 01 00 03");
  for (const JobCase& c : cases) {
    const Bytes settings = enter + Hex(c.resolution) + Hex(c.ink) + Hex("4D 05 44 02") + Hex(c.media);
    const Bytes page = settings + Hex("00 00 00") + testing::Zeros(500) + Hex("59 00 00 58 00 00") + Hex(c.paperBytes) +
                       Hex("0C") + testing::Zeros(500);
    const Bytes expected = testing::Zeros(2000) + enter + Hex("1B 40") + enter + settings + page + page + Hex("1B 40");
    const Bytes actual = RunJob(c);
    EXPECT_TRUE(actual == expected) << "quality " << c.quality << (c.color ? " colour" : " mono") << " selections "
                                    << ::testing::PrintToString(c.selections) << ": "
                                    << testing::FirstDifference(actual, expected);
  }
}

}  // namespace
}  // namespace inkweave
