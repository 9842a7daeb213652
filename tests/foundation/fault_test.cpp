// Faults injected by the host: every spool write of a job refused in turn, and every heap allocation
// of the device set-up refused in turn. The plug-in is linked in here so that the heap seam reaches it;
// it is still driven only through its entry point and interface tables.
#include <gtest/gtest.h>

#include "host/host.h"
#include "src/device/memory_list.h"
#include "src/plugin/render_plugin.h"
#include "tests/support/bytes.h"

namespace inkweave {
namespace {

using testing::Hex;
using testing::operator+;

const host::PluginEntry kLinkedPlugin{&GetClassObject, &CanUnloadNow};

host::DeviceSetup SmallPage(std::int16_t quality) {
  host::DeviceSetup setup;
  setup.Quality = quality;
  setup.PageWidth = 800;
  setup.PageHeight = 1000;
  return setup;
}

// A one-page job without bands: job start writes 29 times, page start 15, page end 6 (the form feed
// first), job end once.
constexpr std::uint32_t kJobWrites = 29 + 15 + 6 + 1;
constexpr std::uint32_t kFormFeedWrite = 29 + 15 + 1;

void RunOnePageJob(host::HostSession& session) {
  session.Command(22);
  session.Command(20);
  session.Command(21);
  session.Command(23);
}

TEST(WriteFaults, EveryRecordedFailureTurnsTheJobEndIntoTheAbortWrite) {
  for (std::uint32_t nth = 1; nth <= kJobWrites; ++nth) {
    SCOPED_TRACE(::testing::Message() << "write " << nth << " fails");
    host::HostSession session(kLinkedPlugin);
    ASSERT_EQ(session.Load(), S_OK);
    ASSERT_EQ(session.Enable(SmallPage(300)), S_OK);
    session.Spool().SetFaults({nth, false, E_FAIL});
    RunOnePageJob(session);
    const auto& writes = session.Spool().Writes();
    ASSERT_EQ(writes.size(), kJobWrites);
    const host::SpoolWrite& last = writes.back();
    // The direct writes (form feed, final reset) never mark the job.
    const bool recorded = nth != kFormFeedWrite && nth != kJobWrites;
    if (recorded) {
      EXPECT_TRUE(last.Abort);
      EXPECT_EQ(last.WaitMs, 1000u);
      EXPECT_EQ(last.Bytes, Hex("00 00 0C 1B 40"));
    } else {
      EXPECT_FALSE(last.Abort);
      EXPECT_EQ(last.Bytes, Hex("1B 40"));
    }
    // The job goes on writing after the failure: nothing stops early.
    EXPECT_EQ(writes[kFormFeedWrite - 1].Bytes, Hex("0C"));
  }
}

TEST(WriteFaults, OtherFailingAnswersDoNotAbort) {
  for (HRESULT code : {E_OUTOFMEMORY, E_NOTIMPL, S_FALSE}) {
    host::HostSession session(kLinkedPlugin);
    ASSERT_EQ(session.Load(), S_OK);
    ASSERT_EQ(session.Enable(SmallPage(300)), S_OK);
    session.Spool().SetFaults({3, true, code});  // every write from the third on
    RunOnePageJob(session);
    EXPECT_FALSE(session.Spool().Writes().back().Abort) << code;
  }
}

TEST(WriteFaults, TheNextJobStartsClean) {
  host::HostSession session(kLinkedPlugin);
  ASSERT_EQ(session.Load(), S_OK);
  ASSERT_EQ(session.Enable(SmallPage(300)), S_OK);
  session.Spool().SetFaults({5, false, E_FAIL});
  RunOnePageJob(session);
  EXPECT_TRUE(session.Spool().Writes().back().Abort);
  RunOnePageJob(session);
  EXPECT_FALSE(session.Spool().Writes().back().Abort);
}

TEST(HeapFaults, RefusedSetUpFreesEverythingAndRefusesBands) {
  for (std::int16_t quality : {150, 300, 600}) {
    const std::uint32_t allocations = quality == 600 ? 18 : 12;
    for (std::uint32_t nth = 1; nth <= allocations; ++nth) {
      SCOPED_TRACE(::testing::Message() << "quality " << quality << ", allocation " << nth);
      const std::uint64_t globalBefore = detail::GlobalBlocksOutstanding();
      const std::uint64_t localBefore = detail::LocalBlocksOutstanding();
      {
        host::HostSession session(kLinkedPlugin);
        ASSERT_EQ(session.Load(), S_OK);
        detail::FailGlobalAllocation(nth);
        EXPECT_EQ(session.Enable(SmallPage(quality)), E_FAIL);
        detail::FailGlobalAllocation(0);
        EXPECT_NE(session.DeviceObject()->pdevOEM, nullptr) << "the host still holds the record";
        EXPECT_EQ(detail::GlobalBlocksOutstanding(), globalBefore);

        std::vector<std::uint8_t> bits(host::BandRowStride(800) * 16, 0);
        host::Band band{bits.data(), 800, 16, 24, 0, 0, false};
        EXPECT_EQ(session.ImageProcessing(band), E_FAIL);
        band.OffsetY = 16;
        EXPECT_EQ(session.ImageProcessing(band), E_FAIL);
        EXPECT_EQ(session.Command(22), S_OK) << "commands are still answered";
        EXPECT_EQ(session.Disable(), S_OK);
      }
      EXPECT_EQ(detail::LocalBlocksOutstanding(), localBefore);
      EXPECT_EQ(detail::GlobalBlocksOutstanding(), globalBefore);
    }
  }
}

TEST(HeapFaults, RefusedRecord) {
  host::HostSession session(kLinkedPlugin);
  ASSERT_EQ(session.Load(), S_OK);
  detail::FailLocalAllocation(1);
  EXPECT_EQ(session.Enable(SmallPage(300)), E_FAIL);
  detail::FailLocalAllocation(0);
  EXPECT_EQ(session.DeviceObject()->pdevOEM, nullptr);
  std::vector<std::uint8_t> bits(host::BandRowStride(800) * 16, 0);
  EXPECT_EQ(session.ImageProcessing({bits.data(), 800, 16, 24, 0, 0, false}), E_FAIL);
}

TEST(HeapFaults, DeviceContextsReleaseAllTheirMemory) {
  const std::uint64_t globalBefore = detail::GlobalBlocksOutstanding();
  const std::uint64_t localBefore = detail::LocalBlocksOutstanding();
  for (std::int16_t quality : {150, 300, 600}) {
    host::HostSession session(kLinkedPlugin);
    ASSERT_EQ(session.Load(), S_OK);
    ASSERT_EQ(session.Enable(SmallPage(quality)), S_OK);
    RunOnePageJob(session);
  }
  EXPECT_EQ(detail::GlobalBlocksOutstanding(), globalBefore);
  EXPECT_EQ(detail::LocalBlocksOutstanding(), localBefore);
}

}  // namespace
}  // namespace inkweave
