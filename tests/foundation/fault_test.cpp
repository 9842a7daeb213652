// Faults injected by the host: every spool write of a whole job refused in turn, every heap allocation
// of the device set-up refused in turn, and the bands and pages no buffer can serve. The plug-in is linked in here so
// that the heap seam reaches it; it is still driven only through its entry point and interface tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "host/host.h"
#include "src/device/memory_list.h"
#include "src/plugin/render_plugin.h"
#include "tests/support/bytes.h"

namespace inkweave {
namespace {

using testing::Hex;
using testing::operator+;

const host::PluginEntry kLinkedPlugin{&GetClassObject, &CanUnloadNow};

// The page of every job here, 200 x 260 dots.
host::DeviceSetup Page(std::int16_t quality) { return {.Quality = quality, .PageWidth = 200, .PageHeight = 260}; }

struct Session : host::HostSession {
  Session() : HostSession(kLinkedPlugin) { EXPECT_EQ(Load(), S_OK); }
};

// Declared before a session: when it goes, every heap block taken since it was made is back.
struct NoLeaks {
  const std::uint64_t global = detail::GlobalBlocksOutstanding(), local = detail::LocalBlocksOutstanding();
  ~NoLeaks() {
    EXPECT_EQ(detail::GlobalBlocksOutstanding(), global);
    EXPECT_EQ(detail::LocalBlocksOutstanding(), local);
  }
};

// A two-page job with bands: a page of diagonal colour ramps with a white stretch (blank bands and
// blank passes) in bands of 48 rows, so that feeds, ink-mode changes, blank rows and passes all go out.
struct JobSpec {
  std::int16_t quality;
  bool highRes;
  bool diffusion;
};

void RunTwoPageJob(host::HostSession& session, const JobSpec& kind) {
  host::PageSource source{
      200, 260, 24,
      [](std::int32_t x0, std::int32_t y0, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride) {
        for (std::int32_t y = y0; y < y0 + h; ++y)
          for (std::int32_t x = x0; x < x0 + w; ++x) {
            std::uint8_t* px = dst + static_cast<std::size_t>(y - y0) * stride + static_cast<std::size_t>(x - x0) * 3;
            const bool white = y >= 100 && y < 180;
            px[0] = white ? 255 : static_cast<std::uint8_t>(x + y);
            px[1] = white ? 255 : static_cast<std::uint8_t>(3 * x);
            px[2] = white ? 255 : static_cast<std::uint8_t>(2 * y);
          }
        return true;
      }};
  host::SelectModes(session, kind.diffusion, kind.highRes);
  session.Command(host::kCallbackJobStart);
  for (int page = 0; page < 2; ++page) host::PrintPage(session, source, 48);
  session.Command(host::kCallbackJobEnd);
}

// The N-th spool write of a whole job fails, for N across the job at every resolution: the job goes on
// writing exactly what a clean job writes, and ends with the abort tail instead of the reset unless the
// failed write was one of the direct writes (a form feed, the final reset), which never mark the job.
// Nothing leaks, and the next job starts clean.
TEST(WriteFaults, AnyFailedWriteOfAWholeJobEndsItWithTheAbortTail) {
  for (const JobSpec& kind :
       {JobSpec{150, false, false}, JobSpec{300, false, true}, JobSpec{600, false, false}, JobSpec{600, true, true}}) {
    SCOPED_TRACE(::testing::Message() << kind.quality << " dpi" << (kind.highRes ? " high resolution" : "")
                                      << (kind.diffusion ? ", diffusion" : ", dither"));
    std::vector<host::SpoolWrite> clean;
    {
      Session session;
      ASSERT_EQ(session.Enable(Page(kind.quality)), S_OK);
      RunTwoPageJob(session, kind);
      clean = session.Spool().Writes();
    }
    ASSERT_GT(clean.size(), 100u);
    ASSERT_EQ(clean.back().Bytes, Hex("1B 40"));
    // Every write near a page's start or end (the form feed, a direct write, and the padding after it)
    // and every 8th write in between.
    std::vector<std::uint32_t> pageEnds{0};
    for (std::uint32_t n = 1; n <= clean.size(); ++n)
      if (clean[n - 1].Bytes == Hex("0C")) pageEnds.push_back(n);
    const auto nearAPageEnd = [&](std::uint32_t n) {
      return std::any_of(pageEnds.begin(), pageEnds.end(),
                         [n](std::uint32_t end) { return n + 30 > end && n < end + 50; });
    };
    for (std::uint32_t nth = 1; nth <= clean.size(); ++nth) {
      if (nth % 8 != 0 && nth != clean.size() && !nearAPageEnd(nth)) continue;
      SCOPED_TRACE(::testing::Message() << "write " << nth << " of " << clean.size() << " fails");
      NoLeaks noLeaks;
      Session session;
      ASSERT_EQ(session.Enable(Page(kind.quality)), S_OK);
      session.Spool().SetFaults({nth, false, E_FAIL});
      RunTwoPageJob(session, kind);
      const auto& writes = session.Spool().Writes();
      ASSERT_EQ(writes.size(), clean.size());
      for (std::size_t i = 0; i + 1 < writes.size(); ++i)
        ASSERT_EQ(writes[i].Bytes, clean[i].Bytes) << "write " << i + 1;
      const bool direct = nth == clean.size() || clean[nth - 1].Bytes == Hex("0C");
      EXPECT_EQ(writes.back().Abort, !direct);
      EXPECT_EQ(writes.back().Bytes, direct ? Hex("1B 40") : Hex("00 00 0C 1B 40"));
      EXPECT_EQ(writes.back().WaitMs, direct ? 0u : 1000u);
      for (const DWORD id : {22, 20, 21, 23}) session.Command(id);
      EXPECT_FALSE(session.Spool().Writes().back().Abort) << "the next job";
    }
  }
}

// Sizes no bitmap header can describe are refused by the host itself, with the cause, before the
// plug-in sees a band and before a page is started.
TEST(HostBounds, AbsurdBandsAndPagesAreRefused) {
  Session session;
  ASSERT_EQ(session.Enable(Page(300)), S_OK);
  std::vector<std::uint8_t> bits(64, 0xFF);
  for (const auto& [width, height] : {std::pair{0x7FFFFFFF, 16}, std::pair{0x40000000, 4}, std::pair{200, 0x7FFFFFFF},
                                      std::pair{0, 16}, std::pair{200, -1}})
    EXPECT_EQ(session.ImageProcessing({bits.data(), width, height, 24, 0, 0, false}), E_FAIL)
        << width << " x " << height;
  for (const auto& [width, height] : {std::pair{0x40000000, 100}, std::pair{0x7FFFFFFF, 1}, std::pair{200, -5}}) {
    const host::PageSource source{width, height, 24, [](auto...) {
                                    ADD_FAILURE() << "a band of an absurd page was rendered";
                                    return false;
                                  }};
    const host::PageResult result = host::PrintPage(session, source, 64);
    EXPECT_EQ(result.Status, E_FAIL);
    EXPECT_FALSE(result.Problem.empty());
  }
  EXPECT_EQ(session.Spool().WriteCount(), 0u) << "no page was started";
}

// Each heap allocation of the device set-up refused in turn (the record itself, taken from the local
// heap, among them): the set-up fails, frees what it took, and every band is refused while commands are
// still answered.
TEST(HeapFaults, RefusedSetUpFreesEverythingAndRefusesBands) {
  for (std::int16_t quality : {150, 300, 600}) {
    // Counted, not assumed: a new buffer of the set-up is refused in its turn too.
    std::uint32_t allocations = 0;
    {
      Session session;
      const std::uint64_t before = detail::GlobalAllocationCount();
      ASSERT_EQ(session.Enable(Page(quality)), S_OK);
      allocations = static_cast<std::uint32_t>(detail::GlobalAllocationCount() - before);
    }
    for (std::uint32_t nth = 0; nth <= allocations; ++nth) {  // 0: the record
      SCOPED_TRACE(::testing::Message() << "quality " << quality << ", allocation " << nth);
      NoLeaks noLeaks;
      Session session;
      detail::FailLocalAllocation(nth == 0 ? 1 : 0);
      detail::FailGlobalAllocation(nth);
      EXPECT_EQ(session.Enable(Page(quality)), E_FAIL);
      detail::FailGlobalAllocation(0);
      detail::FailLocalAllocation(0);
      const auto* state = static_cast<const DeviceState*>(session.DeviceObject()->pdevOEM);
      if (nth == 0) {
        EXPECT_EQ(state, nullptr);
      } else {
        ASSERT_NE(state, nullptr) << "the host still holds the record";
        EXPECT_EQ(state->InitFailed, 1u);
        EXPECT_EQ(state->MemoryList, nullptr);
      }
      std::vector<std::uint8_t> bits(host::BandRowStride(200) * 16, 0);
      host::Band band{bits.data(), 200, 16, 24, 0, 0, false};
      EXPECT_EQ(session.ImageProcessing(band), E_FAIL);
      band.OffsetY = 16;
      EXPECT_EQ(session.ImageProcessing(band), E_FAIL);
      EXPECT_EQ(session.Command(22), S_OK) << "commands are still answered";
    }
  }
}

// Page geometry the buffers cannot serve is refused before anything is allocated: widths past the
// widest band row (among them one whose error-line size would wrap in 32 bits) and heights past a
// 32-bit band offset, in both orientations and at every quality.
TEST(HeapFaults, PagesTheBuffersCannotServeAreRefused) {
  struct Case {
    std::uint32_t width, height;
    bool accepted;
  } cases[] = {{5120, 3300, true},
               {5121, 3300, false},
               {0x40000000, 3300, false},
               {0xFFFFFFFF, 3300, false},
               {2400, 0x7FFFFFFF, true},
               {2400, 0x80000000, false},
               {0, 0, true}};
  for (const Case& c : cases)
    for (std::int16_t quality : {150, 300, 600})
      for (const bool landscape : {false, true}) {
        SCOPED_TRACE(::testing::Message()
                     << c.width << " x " << c.height << ", quality " << quality << (landscape ? ", landscape" : ""));
        NoLeaks noLeaks;
        Session session;
        EXPECT_EQ(
            session.Enable({.Quality = quality, .Landscape = landscape, .PageWidth = c.width, .PageHeight = c.height}),
            c.accepted ? S_OK : E_FAIL);
        auto* state = static_cast<DeviceState*>(session.DeviceObject()->pdevOEM);
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(state->InitFailed, c.accepted ? 0u : 1u);
        if (c.accepted) {
          // Every byte of every error line is there (the address sanitizer sees a short one).
          const std::size_t bytes = 4 * std::size_t{c.width} * (quality == 600 ? 2 : 1) + 16;
          for (std::int16_t* line : state->LineBuffers) std::memset(line, 0x5A, bytes);
        } else {
          EXPECT_EQ(state->MemoryList, nullptr);
          EXPECT_EQ(detail::GlobalBlocksOutstanding(), noLeaks.global);
        }
      }
}

}  // namespace
}  // namespace inkweave
