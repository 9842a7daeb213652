// The plug-in through our host, as a faulty or hostile host could drive it: any device set-up (the
// refused ones included), then callback ids 0 to 30 and bands of any geometry, bit count and offset in
// any order, each band in a buffer of exactly its size. Nothing may read or write outside its memory.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "host/host.h"
#include "src/plugin/render_plugin.h"

using namespace inkweave;

namespace {

struct Input {
  const std::uint8_t* At;
  std::size_t Left;
  std::uint8_t Byte() { return Left ? (--Left, *At++) : 0; }
  std::uint16_t Word() { return static_cast<std::uint16_t>(Byte() | Byte() << 8); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in{data, size};
  host::HostSession session({&GetClassObject, &CanUnloadNow});
  if (session.Load() != S_OK) std::abort();
  session.Spool().SetKeepWrites(false);
  constexpr std::int16_t kQualities[] = {150, 300, 600, 1200, -3};
  host::DeviceSetup setup;
  setup.Quality = kQualities[in.Byte() % 5];
  const std::uint8_t flags = in.Byte();
  setup.Color = flags & 1;
  setup.Landscape = flags & 2;
  setup.PageWidth = flags & 4 ? 0x40000000u : in.Word() % 5200u;  // past the widest page at times
  setup.PageHeight = flags & 8 ? 0x80000000u : in.Word();
  session.Enable(setup);  // when refused, every band must be refused too

  constexpr std::uint16_t kBitCounts[] = {24, 8, 1, 4, 32};
  while (in.Left) {
    const std::uint8_t op = in.Byte();
    if (op < 0xC0) {
      session.Command(op % 31);
      continue;
    }
    host::Band band;
    band.Width = in.Word() % 700 - 2;  // a few empty and negative ones
    band.Height = in.Byte() % 80 - 1;
    band.BitCount = kBitCounts[in.Byte() % 5];
    band.OffsetX = op & 1 ? 0x7FFFFFF0 : in.Word() % 1200;
    band.OffsetY = op & 2 ? -1 : in.Word() % 1200;
    band.Blank = op & 4;
    const std::size_t bytes =
        band.Width > 0 && band.Height > 0 ? static_cast<std::size_t>(host::BandRowStride(band.Width) * band.Height) : 1;
    std::vector<std::uint8_t> bits(bytes);
    std::uint32_t seed = in.Byte() * 2654435761u + 1;  // pixels: a pattern from one byte of input
    for (std::uint8_t& b : bits) b = static_cast<std::uint8_t>((seed = seed * 1103515245u + 12345u) >> 24);
    band.Bits = bits.data();
    session.ImageProcessing(band);
  }
  session.Disable();
  session.Unload();
  return 0;
}
