// Device state creation and release: print mode and pass buffers per quality, the portrait page,
// buffer sizes, the memory list, and the clean-up after a refused allocation.
#include <gtest/gtest.h>

#include <cstring>

#include "src/device/device_setup.h"
#include "src/device/memory_list.h"
#include "src/device/plane_geometry.h"

namespace inkweave {
namespace {

struct Device {
  DEVMODEW devmode{};
  GDIINFO gdi{};
  DEVOBJ devobj{};
  Device(std::int16_t quality, std::int16_t orientation = DMORIENT_PORTRAIT, std::uint32_t horz = 2400,
         std::uint32_t vert = 3300) {
    devmode.dmPrintQuality = quality;
    devmode.dmOrientation = orientation;
    devmode.dmPaperSize = DMPAPER_A4;
    devmode.dmColor = DMCOLOR_COLOR;
    gdi.ulHorzRes = horz;
    gdi.ulVertRes = vert;
    devobj.pPublicDM = &devmode;
  }
  DeviceState* Enable(HRESULT* hr = nullptr) {
    void* out = reinterpret_cast<void*>(std::uintptr_t{1});
    const HRESULT result = EnableDevice(&devobj, &gdi, &out);
    if (hr) *hr = result;
    devobj.pdevOEM = out;
    return static_cast<DeviceState*>(out);
  }
  void Disable() { DisableDevice(&devobj); }
};

int PassBuffersAllocated(const DeviceState& state) {
  int n = 0;
  for (const PassBuffer& pass : state.StripeBuffers) n += pass.BufferStart != nullptr;
  return n;
}

struct QualityCase {
  std::int16_t quality;
  std::uint8_t printMode;
  int passBuffers;
};

class QualityTest : public ::testing::TestWithParam<QualityCase> {};

TEST_P(QualityTest, PrintModeAndPassBuffers) {
  const QualityCase c = GetParam();
  Device device(c.quality);
  DeviceState* state = device.Enable();
  ASSERT_NE(state, nullptr);
  EXPECT_EQ(state->PrintMode, c.printMode);
  EXPECT_EQ(PassBuffersAllocated(*state), c.passBuffers);
  for (int i = 0; i < c.passBuffers; ++i)
    EXPECT_EQ(state->StripeBuffers[i].WritePos, state->StripeBuffers[i].BufferStart);
  device.Disable();
}

INSTANTIATE_TEST_SUITE_P(Qualities, QualityTest,
                         ::testing::Values(QualityCase{150, 1, 2}, QualityCase{300, 2, 2}, QualityCase{600, 4, 8},
                                           QualityCase{1200, 2, 2}, QualityCase{-4, 2, 2}, QualityCase{0, 2, 2}));

TEST(DeviceState, CreationValues) {
  Device device(300);
  HRESULT hr = E_FAIL;
  DeviceState* state = device.Enable(&hr);
  ASSERT_EQ(hr, S_OK);
  EXPECT_EQ(state->HalftoneMethod, 1);
  EXPECT_EQ(state->CompressionMethod, 2);
  EXPECT_EQ(state->ColorMode, 2);
  EXPECT_EQ(state->PrintQuality, 300);
  EXPECT_EQ(state->PaperSize, DMPAPER_A4);
  EXPECT_EQ(state->MediaType, 0);
  EXPECT_EQ(state->InitFailed, 0u);
  EXPECT_EQ(state->Landscape, 0);
  EXPECT_EQ(state->PageWidth, 2400u);
  EXPECT_EQ(state->PageHeight, 3300u);
  ASSERT_NE(state->PlaneBuffer[0], nullptr);
  ASSERT_NE(state->PlaneBuffer[1], nullptr);
  ASSERT_NE(state->ToneCurves, nullptr);
  ASSERT_NE(state->RecordBuffer, nullptr);
  ASSERT_NE(state->ScratchBuffer, nullptr);
  // Planes and curves start zeroed.
  for (const std::uint8_t* planes : state->PlaneBuffer)
    for (std::uint32_t i = 0; i < kPlaneBufferBytes; i += 97) ASSERT_EQ(planes[i], 0) << i;
  for (std::uint32_t i = 0; i < kToneCurveBytes; ++i) ASSERT_EQ(state->ToneCurves[i], 0) << i;
  device.Disable();
}

TEST(DeviceState, LandscapeHoldsThePortraitPage) {
  Device device(300, DMORIENT_LANDSCAPE, 3300, 2400);
  DeviceState* state = device.Enable();
  EXPECT_EQ(state->Landscape, 1);
  EXPECT_EQ(state->PageWidth, 2400u);
  EXPECT_EQ(state->PageHeight, 3300u);
  device.Disable();
}

TEST(MemoryList, PassBufferCountByLevelWithFlagsIgnored) {
  for (int flags : {0, 16, 32, 48}) {
    EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + 1)), 2);
    EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + 2)), 2);
    EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + 3)), 4);
    EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + 4)), 4);
    EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + 5)), 8);
    EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + 6)), 8);
  }
  for (int outside : {0, 7, 16, 23, 55, -1}) EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(outside)), 0);
}

TEST(MemoryList, BlocksLinkInFrontAndFreeAllAtOnce) {
  DeviceState state{};
  const std::uint64_t before = detail::GlobalBlocksOutstanding();
  state.MemoryList = static_cast<MemoryBlock**>(GlobalHeapAlloc(sizeof(MemoryBlock*)));
  *state.MemoryList = nullptr;
  void* a = AllocFromList(state.MemoryList, 10);
  void* b = AllocFromList(state.MemoryList, 0);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  // The payload lies just behind the 8-byte link; the newest block heads the list.
  EXPECT_EQ(static_cast<void*>(*state.MemoryList + 1), b);
  EXPECT_EQ(static_cast<void*>((*state.MemoryList)->Previous + 1), a);

  detail::FailGlobalAllocation(1);
  MemoryBlock* head = *state.MemoryList;
  EXPECT_EQ(AllocFromList(state.MemoryList, 16), nullptr);
  EXPECT_EQ(*state.MemoryList, head) << "a refused allocation leaves the list unchanged";

  FreeMemoryList(state);
  EXPECT_EQ(state.MemoryList, nullptr);
  EXPECT_EQ(detail::GlobalBlocksOutstanding(), before);
  FreeMemoryList(state);  // a second release finds nothing to free
  EXPECT_EQ(state.MemoryList, nullptr);
}

// The global allocations of a successful set-up, counted rather than assumed, so that a new buffer
// is refused in its turn too.
std::uint32_t SetUpAllocations(std::int16_t quality) {
  const std::uint64_t before = detail::GlobalAllocationCount();
  Device device(quality);
  device.Enable();
  device.Disable();
  return static_cast<std::uint32_t>(detail::GlobalAllocationCount() - before);
}

// Every global allocation of the set-up may be refused; each time all earlier blocks are freed,
// InitFailed is set and the host still holds the record.
TEST(DeviceState, RefusedAllocationFreesEverything) {
  for (std::int16_t quality : {150, 300, 600}) {
    const std::uint32_t allocations = SetUpAllocations(quality);
    EXPECT_GE(allocations, quality == 600 ? 18u : 12u);  // head, 4 lines, 2 planes, curves, passes, record, scratch
    for (std::uint32_t nth = 1; nth <= allocations; ++nth) {
      SCOPED_TRACE(::testing::Message() << "quality " << quality << ", allocation " << nth);
      const std::uint64_t globalBefore = detail::GlobalBlocksOutstanding();
      const std::uint64_t localBefore = detail::LocalBlocksOutstanding();
      Device device(quality);
      detail::FailGlobalAllocation(nth);
      HRESULT hr = S_OK;
      DeviceState* state = device.Enable(&hr);
      detail::FailGlobalAllocation(0);
      EXPECT_EQ(hr, E_FAIL);
      ASSERT_NE(state, nullptr);
      EXPECT_EQ(state->InitFailed, 1u);
      EXPECT_EQ(state->MemoryList, nullptr);
      EXPECT_EQ(detail::GlobalBlocksOutstanding(), globalBefore);
      device.Disable();
      EXPECT_EQ(detail::LocalBlocksOutstanding(), localBefore);
    }
  }
}

// Page geometry the buffers cannot serve is refused before anything is allocated: widths past the
// widest band row (among them one whose error-line size would wrap in 32 bits) and heights past a
// 32-bit band offset, in both orientations and at every quality.
TEST(DeviceState, RefusesPagesItsBuffersCannotServe) {
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
      for (std::int16_t orientation : {DMORIENT_PORTRAIT, DMORIENT_LANDSCAPE}) {
        SCOPED_TRACE(::testing::Message()
                     << c.width << " x " << c.height << ", quality " << quality << ", orientation " << orientation);
        const bool landscape = orientation == DMORIENT_LANDSCAPE;
        const std::uint64_t globalBefore = detail::GlobalBlocksOutstanding();
        Device device(quality, orientation, landscape ? c.height : c.width, landscape ? c.width : c.height);
        HRESULT hr = S_OK;
        DeviceState* state = device.Enable(&hr);
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(hr, c.accepted ? S_OK : E_FAIL);
        EXPECT_EQ(state->InitFailed, c.accepted ? 0u : 1u);
        if (c.accepted) {
          // Every byte of every error line is there (the address sanitizer sees a short one).
          const std::size_t bytes = 4 * std::size_t{c.width} * (quality == 600 ? 2 : 1) + 16;
          for (std::int16_t* line : state->LineBuffers) std::memset(line, 0x5A, bytes);
        } else {
          EXPECT_EQ(state->MemoryList, nullptr);
          EXPECT_EQ(detail::GlobalBlocksOutstanding(), globalBefore);
        }
        device.Disable();
        EXPECT_EQ(detail::GlobalBlocksOutstanding(), globalBefore);
      }
}

TEST(DeviceState, RefusedRecordLeavesTheHostNothing) {
  Device device(300);
  detail::FailLocalAllocation(1);
  HRESULT hr = S_OK;
  DeviceState* state = device.Enable(&hr);
  detail::FailLocalAllocation(0);
  EXPECT_EQ(hr, E_FAIL);
  EXPECT_EQ(state, nullptr);
}

}  // namespace
}  // namespace inkweave
