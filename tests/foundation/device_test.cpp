// Device state creation and release: print mode and pass buffers per quality, the memory list, and the
// pages whose size the buffers cannot serve (refused allocations: fault_test.cpp).
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

// The print mode and the pass buffers each print quality sets up (qualities the device does not know
// print at 300 dpi); every pass buffer starts empty.
TEST(DeviceState, PrintModeAndPassBuffersPerQuality) {
  const struct {
    std::int16_t quality;
    std::uint8_t printMode;
    int passBuffers;
  } cases[] = {{150, 1, 2}, {300, 2, 2}, {600, 4, 8}, {1200, 2, 2}, {-4, 2, 2}, {0, 2, 2}};
  for (const auto& c : cases) {
    Device device(c.quality);
    DeviceState* state = device.Enable();
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->PrintMode, c.printMode) << c.quality;
    int allocated = 0;
    for (const PassBuffer& pass : state->StripeBuffers) {
      allocated += pass.BufferStart != nullptr;
      EXPECT_EQ(pass.WritePos, pass.BufferStart);
    }
    EXPECT_EQ(allocated, c.passBuffers) << c.quality;
    device.Disable();
  }
}

TEST(MemoryList, PassBufferCountByLevelWithFlagsIgnored) {
  for (int flags : {0, 16, 32, 48})
    for (int level = 1; level <= 6; ++level)
      EXPECT_EQ(PassBufferCount(static_cast<std::int16_t>(flags + level)), level <= 2 ? 2 : level <= 4 ? 4 : 8);
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

}  // namespace
}  // namespace inkweave
