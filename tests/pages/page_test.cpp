// Whole pages through the plug-in's entry points, put on paper by our printer model.
//
// Invariants, for every resolution (150, 300, 600 dpi and the high-resolution mode), halftone (dither,
// error diffusion), colour mode, orientation and several band heights:
//  - every emitted raster row lands on the page exactly once, at its place, and no row is inked twice;
//  - the decoded dots equal the dots the renderers left in the plane buffers for the emitter (collected
//    stripe by stripe through the band driver's stripe observer), plane by plane, bit by bit;
//  - nothing lands below the last emitted row.
// A pure black-and-white page prints each black pixel as exactly its black dot and nothing else.
// The plug-in is linked in so that the stripe observer and the heap counters reach it; it is driven
// only through its class object and interface tables, and one job is checked byte for byte against
// the shared library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "decode/decoder.h"
#include "host/host.h"
#include "src/device/memory_list.h"
#include "src/pipeline/band_driver.h"
#include "src/plugin/render_plugin.h"
#include "tests/support/emit_driver.h"
#include "tests/support/plugin_library.h"
#include "tests/support/print_stream.h"

// Allocations made by the plug-in while it takes a band (counted only inside ImageProcessing).
namespace {
bool countAllocations = false;
std::size_t allocations = 0;
}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  if (countAllocations) ++allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (countAllocations) ++allocations;
  return std::malloc(size ? size : 1);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace inkweave {
namespace {

const host::PluginEntry kLinkedPlugin{&GetClassObject, &CanUnloadNow};

enum class Halftone { kDither, kDiffusion };

struct JobConfig {
  int quality = 300;     // 150, 300, 600
  bool highRes = false;  // 600 plus the high-resolution command
  Halftone halftone = Halftone::kDither;
  bool color = true;
  bool landscape = false;
  int bandHeight = 64;
  std::uint16_t bitsPerPixel = 24;

  std::string Name() const {
    return std::to_string(quality) + (highRes ? "hr" : "") +
           (halftone == Halftone::kDither ? " dither" : " diffusion") + (color ? " colour" : " mono") +
           (landscape ? " landscape" : " portrait") + " band " + std::to_string(bandHeight) + " bpp " +
           std::to_string(bitsPerPixel);
  }
};

// A synthetic page: smooth colour ramps, hard-edged shapes, white margins and noise.
struct Image {
  int width = 0;
  int height = 0;
  int channels = 3;
  std::vector<std::uint8_t> pixels;
  const std::uint8_t* At(int x, int y) const { return &pixels[(static_cast<std::size_t>(y) * width + x) * channels]; }
};

Image MakeTestImage(int width, int height, int channels, std::uint32_t seed) {
  Image image{width, height, channels, std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * channels)};
  std::mt19937 rng(seed);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = &image.pixels[(static_cast<std::size_t>(y) * width + x) * channels];
      std::uint8_t rgb[3];
      if (y < height / 8) {
        rgb[0] = rgb[1] = rgb[2] = 255;  // white top margin: leading blank bands
      } else if (x < width / 3) {
        rgb[0] = static_cast<std::uint8_t>(x * 255 / std::max(1, width / 3));
        rgb[1] = static_cast<std::uint8_t>(y * 255 / height);
        rgb[2] = static_cast<std::uint8_t>(255 - rgb[0]);
      } else if (x < 2 * width / 3) {
        const bool inside = ((x / 24) + (y / 24)) % 2 == 0;
        rgb[0] = inside ? 20 : 255;
        rgb[1] = inside ? 180 : 255;
        rgb[2] = inside ? 60 : 255;
      } else {
        const int v = static_cast<int>(rng() % 256);
        rgb[0] = rgb[1] = rgb[2] = static_cast<std::uint8_t>(v);
      }
      if (channels == 3)
        std::memcpy(p, rgb, 3);
      else
        p[0] = static_cast<std::uint8_t>((rgb[0] * 30 + rgb[1] * 59 + rgb[2] * 11) / 100);
    }
  return image;
}

host::PageSource SourceOf(const Image& image) {
  host::PageSource source;
  source.Width = image.width;
  source.Height = image.height;
  source.BitsPerPixel = static_cast<std::uint16_t>(image.channels * 8);
  source.Render = [&image](std::int32_t x0, std::int32_t y0, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                           std::size_t stride) {
    for (std::int32_t y = 0; y < h; ++y)
      std::memcpy(dst + stride * static_cast<std::size_t>(y), image.At(x0, y0 + y),
                  static_cast<std::size_t>(w) * image.channels);
    return true;
  };
  return source;
}

// The rows the emitter read, in the order it received them: row k of the page's weave.
struct EmittedPage {
  int rowBytes = 0;  // bytes of one plane row
  bool color = true;
  std::vector<std::array<std::vector<std::uint8_t>, 4>> first;   // per emitted row, per plane
  std::vector<std::array<std::vector<std::uint8_t>, 4>> second;  // second bits, empty for one-bit rows
};

struct Observation {
  std::vector<EmittedPage> pages;
};

void ObserveStripe(const DEVOBJ* devobj, const BandInfo& band, int, int, std::int16_t inkFlag, void* context) {
  auto& observation = *static_cast<Observation*>(context);
  const DeviceState& state = *StateOf(devobj);
  if (state.StripeFlag == kStripeFirst) observation.pages.emplace_back();
  EmittedPage& page = observation.pages.back();
  const int mode = LevelOf(state.PrintMode);
  const PlaneLayout layout = PlaneLayoutOf(mode);
  const int stride = layout.PlaneBytes;
  page.rowBytes = PlaneRowBytes(mode, state.Landscape ? band.Header.biHeight : band.Header.biWidth);
  page.color = state.ColorMode == DMCOLOR_COLOR;
  const int rows = layout.OutputLines;
  // The depth the emitter will use for this stripe.
  bool twoBit;
  if (inkFlag != 0)
    twoBit = !(state.ActiveHalftone == 1 || mode >= 6 || mode < 2);
  else
    twoBit = state.InkModeCode >= 0x30;
  for (int r = 0; r < rows; ++r) {
    std::array<std::vector<std::uint8_t>, 4> first;
    std::array<std::vector<std::uint8_t>, 4> second;
    for (int p = 0; p < 4; ++p) {
      first[p].assign(page.rowBytes, 0);
      second[p].assign(page.rowBytes, 0);
      if (inkFlag == 0) continue;           // a blank stripe goes out as blank markers
      if (!page.color && p != 3) continue;  // monochrome sends the black plane only
      const std::size_t at = static_cast<std::size_t>(r) * 4 * stride + static_cast<std::size_t>(p) * stride;
      std::memcpy(first[p].data(), state.PlaneBuffer[0] + at, page.rowBytes);
      if (twoBit) std::memcpy(second[p].data(), state.PlaneBuffer[1] + at, page.rowBytes);
    }
    page.first.push_back(std::move(first));
    page.second.push_back(std::move(second));
  }
}

struct JobResult {
  std::vector<std::uint8_t> stream;
  Observation observed;
  std::size_t bandAllocations = 0;
  std::uint64_t heapAllocationsDuringPages = 0;
};

host::DeviceSetup SetupFor(const JobConfig& config, int portraitWidth, int portraitHeight) {
  host::DeviceSetup setup;
  setup.Quality = static_cast<std::int16_t>(config.quality);
  setup.Color = config.color;
  setup.Landscape = config.landscape;
  setup.PageWidth = static_cast<std::uint32_t>(portraitWidth);
  setup.PageHeight = static_cast<std::uint32_t>(portraitHeight);
  return setup;
}

// Runs a job of `pages` copies of the image (the surface: the landscape page in landscape).
// With `stream` the spool writes go into a buffer reserved beforehand, so that the host allocates
// nothing while the plug-in writes.
JobResult RunJob(const host::PluginEntry& entry, const JobConfig& config, const Image& image, int pages = 1,
                 bool observe = true, bool stream = false) {
  JobResult result;
  if (observe) detail::SetStripeObserver(&ObserveStripe, &result.observed);
  {
    host::HostSession session(entry);
    if (stream) {
      result.stream.reserve(std::size_t{64} << 20);
      session.Spool().SetKeepWrites(false);
      session.Spool().SetSink([&result](const std::uint8_t* bytes, std::size_t size) {
        result.stream.insert(result.stream.end(), bytes, bytes + size);
      });
    }
    EXPECT_EQ(session.Load(), S_OK);
    const int portraitWidth = config.landscape ? image.height : image.width;
    const int portraitHeight = config.landscape ? image.width : image.height;
    EXPECT_EQ(session.Enable(SetupFor(config, portraitWidth, portraitHeight)), S_OK);
    host::SelectModes(session, config.halftone == Halftone::kDiffusion, config.highRes);
    session.Command(host::kCallbackJobStart);
    const std::uint64_t heapBefore = detail::GlobalAllocationCount() + detail::LocalAllocationCount();
    for (int page = 0; page < pages; ++page) {
      host::PageSource source = SourceOf(image);
      auto render = source.Render;
      source.Render = [&](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                          std::size_t stride) {
        const bool ok = render(x, y, w, h, dst, stride);
        countAllocations = true;  // from here until the next band is fetched: the plug-in's work
        return ok;
      };
      const host::PageResult printed = host::PrintPage(session, source, config.bandHeight);
      countAllocations = false;
      EXPECT_EQ(printed.Status, S_OK);
    }
    result.heapAllocationsDuringPages = detail::GlobalAllocationCount() + detail::LocalAllocationCount() - heapBefore;
    result.bandAllocations = allocations;
    allocations = 0;
    session.Command(host::kCallbackJobEnd);
    EXPECT_EQ(session.Disable(), S_OK);
    if (!stream) result.stream = session.Spool().Stream();
  }
  detail::SetStripeObserver(nullptr, nullptr);
  return result;
}

std::vector<decode::PrintedPage> Decode(const std::vector<std::uint8_t>& stream) {
  return testing::PrintStream(stream);
}

bool Bit(const std::vector<std::uint8_t>& row, int x) { return (row[x / 8] >> (7 - x % 8)) & 1; }

// Compares a decoded page with the rows the emitter read; answers the number of mismatching dots.
long ComparePage(const decode::PrintedPage& printed, const EmittedPage& emitted) {
  long mismatches = 0;
  const int rows = static_cast<int>(emitted.first.size());
  const int dots = emitted.rowBytes * 8;
  for (int row = 0; row < rows; ++row) {
    for (int p = 0; p < 4; ++p) {
      const auto& first = emitted.first[row][p];
      const auto& second = emitted.second[row][p];
      for (int x = 0; x < dots; ++x) {
        const int expected = Bit(first, x) + 2 * Bit(second, x);
        const int actual = decode::DotAt(printed, p, x, row);
        if (expected != actual && ++mismatches <= 5)
          ADD_FAILURE() << "row " << row << " plane " << p << " dot " << x << ": decoded " << actual << ", emitted "
                        << expected;
      }
    }
    if (row < static_cast<int>(printed.InkCounts.size()) && printed.InkCounts[row] > 1)
      ADD_FAILURE() << "row " << row << " inked " << printed.InkCounts[row] << " times";
  }
  // Nothing below the last emitted row.
  for (int row = rows; row < static_cast<int>(printed.InkCounts.size()); ++row)
    if (printed.InkCounts[row] != 0) {
      ADD_FAILURE() << "ink on row " << row << " below the " << rows << " emitted rows";
      break;
    }
  return mismatches;
}

// ---------------------------------------------------------------------------------------------------
// Every mode, decoded dots against the renderers' dots
// ---------------------------------------------------------------------------------------------------
class WholePages : public ::testing::TestWithParam<JobConfig> {};

TEST_P(WholePages, EveryRowLandsOnceWithTheRenderersDots) {
  const JobConfig config = GetParam();
  SCOPED_TRACE(config.Name());
  // The portrait page: 300 x 232 pixels (neither a multiple of 16 in height nor of 8 in width).
  const int portraitWidth = 300;
  const int portraitHeight = 232;
  const Image image = config.landscape ? MakeTestImage(portraitHeight, portraitWidth, config.bitsPerPixel / 8, 7)
                                       : MakeTestImage(portraitWidth, portraitHeight, config.bitsPerPixel / 8, 7);
  const JobResult job = RunJob(kLinkedPlugin, config, image);
  ASSERT_EQ(job.observed.pages.size(), 1u);
  const auto pages = Decode(job.stream);
  ASSERT_EQ(pages.size(), 1u);
  const decode::PrintedPage& page = pages[0];
  const EmittedPage& emitted = job.observed.pages[0];
  EXPECT_GE(static_cast<int>(emitted.first.size()), portraitHeight * (config.highRes ? 2 : 1));
  EXPECT_EQ(page.RowsInkedTwice, 0);
  EXPECT_GT(page.InkedRows, 0);
  EXPECT_EQ(ComparePage(page, emitted), 0);
}

std::vector<JobConfig> AllModes() {
  std::vector<JobConfig> configs;
  for (int q : {150, 300, 600, 1200})
    for (Halftone h : {Halftone::kDither, Halftone::kDiffusion})
      for (bool color : {true, false})
        for (bool landscape : {false, true})
          for (int band : {64, 48}) {
            JobConfig c;
            c.quality = q == 1200 ? 600 : q;
            c.highRes = q == 1200;
            c.halftone = h;
            c.color = color;
            c.landscape = landscape;
            c.bandHeight = band;
            configs.push_back(c);
          }
  // Gray bands under dither, both orientations.
  for (bool landscape : {false, true}) {
    JobConfig c;
    c.color = false;
    c.bitsPerPixel = 8;
    c.landscape = landscape;
    configs.push_back(c);
  }
  return configs;
}

INSTANTIATE_TEST_SUITE_P(Modes, WholePages, ::testing::ValuesIn(AllModes()),
                         [](const ::testing::TestParamInfo<JobConfig>& param) {
                           std::string name = param.param.Name();
                           for (char& ch : name)
                             if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           return name;
                         });

// ---------------------------------------------------------------------------------------------------
// Pure black and white: each black pixel is exactly its black dot
// ---------------------------------------------------------------------------------------------------
TEST(BlackAndWhite, EachBlackPixelIsItsBlackDot) {
  // 296 x 224: a width that is a multiple of 8 (the low diffusion pair leaves a partial last byte of
  // its left-to-right lines unstored) and a height that is a multiple of 16.
  const int width = 296;
  const int height = 224;
  for (int q : {150, 300, 600})
    for (Halftone h : {Halftone::kDither, Halftone::kDiffusion})
      for (bool color : {true, false})
        for (bool landscape : {false, true}) {
          JobConfig config;
          config.quality = q;
          config.halftone = h;
          config.color = color;
          config.landscape = landscape;
          SCOPED_TRACE(config.Name());
          // Text-like strokes, a checkerboard and solid blocks.
          Image portrait{width, height, 3,
                         std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 3, 255)};
          for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
              const bool black = (y > 20 && y < 60 && x % 7 < 2) || (y >= 80 && y < 150 && (x + y) % 2 == 0) ||
                                 (y >= 160 && x > 40 && x < 250) || (x == width - 1) || (y == height - 1);
              if (black) std::memset(&portrait.pixels[(static_cast<std::size_t>(y) * width + x) * 3], 0, 3);
            }
          Image surface = portrait;
          if (landscape) {  // the landscape surface: portrait row r is surface column r, dot x surface row W-1-x
            surface = {height, width, 3, std::vector<std::uint8_t>(portrait.pixels.size())};
            for (int r = 0; r < height; ++r)
              for (int x = 0; x < width; ++x)
                std::memcpy(&surface.pixels[(static_cast<std::size_t>(width - 1 - x) * height + r) * 3],
                            portrait.At(x, r), 3);
          }
          const JobResult job = RunJob(kLinkedPlugin, config, surface, 1, false);
          const auto pages = Decode(job.stream);
          ASSERT_EQ(pages.size(), 1u);
          const decode::PrintedPage& page = pages[0];
          // The largest dot: one bit, both bits for the three-size pair (300 dpi diffusion), the first
          // bit alone for the two-size pair (600 dpi diffusion).
          int largest = 1;
          if (h == Halftone::kDiffusion && q == 300) largest = 3;
          long wrong = 0;
          for (int y = 0; y < height + 16; ++y)
            for (int x = 0; x < width + 16; ++x) {
              const bool black = y < height && x < width && portrait.At(x, y)[0] == 0;
              for (int p = 0; p < 4; ++p) {
                const int expected = p == 3 && black ? largest : 0;
                const int actual = decode::DotAt(page, p, x, y);
                if (actual != expected && ++wrong <= 5)
                  ADD_FAILURE() << "plane " << p << " at (" << x << ", " << y << "): " << actual << ", expected "
                                << expected;
              }
            }
          EXPECT_EQ(wrong, 0);
        }
}

// ---------------------------------------------------------------------------------------------------
// The ink-mode command, memory, and the shared library
// ---------------------------------------------------------------------------------------------------
std::vector<std::vector<int>> InkModesPerPage(const std::vector<std::uint8_t>& stream) {
  std::vector<std::vector<int>> out;
  auto parsed = decode::ParseJob(stream);
  if (!std::holds_alternative<decode::Job>(parsed)) {
    ADD_FAILURE() << "stream does not parse";
    return out;
  }
  for (const decode::Page& page : std::get<decode::Job>(parsed).Pages) {
    out.emplace_back();
    for (const decode::Command& c : page.Commands)
      if (c.Name == "I") out.back().push_back(c.Params.at(0));
  }
  return out;
}

TEST(InkMode, WrittenOnlyWhenTheDepthChanges) {
  // 150 dpi: error diffusion flags the mode (the page start announces two-bit dots, 0x31) but renders
  // one-bit dots, so the emitter switches to 0x10 once, at the page's first inked stripe, and not again.
  const Image image = MakeTestImage(200, 160, 3, 3);
  host::HostSession session(kLinkedPlugin);
  ASSERT_EQ(session.Load(), S_OK);
  host::DeviceSetup setup = SetupFor({}, 200, 160);
  setup.Quality = 150;
  ASSERT_EQ(session.Enable(setup), S_OK);
  session.Command(host::kCallbackDither);
  session.Command(host::kCallbackJobStart);
  host::PrintPage(session, SourceOf(image), 32);
  session.Command(host::kCallbackErrorDiffusion);
  host::PrintPage(session, SourceOf(image), 32);
  host::PrintPage(session, SourceOf(image), 32);
  session.Command(host::kCallbackDither);
  host::PrintPage(session, SourceOf(image), 32);
  session.Command(host::kCallbackJobEnd);
  const auto modes = InkModesPerPage(session.Spool().Stream());
  const std::vector<std::vector<int>> expected = {{0x10}, {0x31, 0x10}, {0x31, 0x10}, {0x10}};
  EXPECT_EQ(modes, expected);

  // 300 dpi: the band set-up re-sends 0x31 on every band under diffusion; the emitter, which wants the
  // same depth, writes nothing of its own.
  host::HostSession other(kLinkedPlugin);
  ASSERT_EQ(other.Load(), S_OK);
  ASSERT_EQ(other.Enable(SetupFor({}, 200, 160)), S_OK);
  other.Command(host::kCallbackDither);
  other.Command(host::kCallbackJobStart);
  host::PrintPage(other, SourceOf(image), 64);  // three bands
  other.Command(host::kCallbackErrorDiffusion);
  host::PrintPage(other, SourceOf(image), 64);
  other.Command(host::kCallbackDither);
  host::PrintPage(other, SourceOf(image), 64);
  other.Command(host::kCallbackJobEnd);
  const std::vector<std::vector<int>> expected300 = {{0x10}, {0x31, 0x31, 0x31, 0x31}, {0x10}};
  EXPECT_EQ(InkModesPerPage(other.Spool().Stream()), expected300);
}

TEST(Memory, FlatAcrossATwentyPageJob) {
  const Image image = MakeTestImage(240, 320, 3, 11);
  for (Halftone h : {Halftone::kDither, Halftone::kDiffusion}) {
    JobConfig config;
    config.halftone = h;
    const JobResult job = RunJob(kLinkedPlugin, config, image, 20, false, true);
    EXPECT_EQ(job.heapAllocationsDuringPages, 0u) << "no heap block per band or page";
    EXPECT_EQ(job.bandAllocations, 0u) << "no allocation while the plug-in takes a band";
    EXPECT_EQ(Decode(job.stream).size(), 20u);
  }
}

TEST(SharedLibrary, StreamsMatchTheLinkedPlugin) {
  const Image image = MakeTestImage(300, 232, 3, 5);
  for (Halftone h : {Halftone::kDither, Halftone::kDiffusion}) {
    JobConfig config;
    config.halftone = h;
    config.quality = 600;
    const JobResult linked = RunJob(kLinkedPlugin, config, image, 2, false);
    const JobResult shared = RunJob(testing::SharedPlugin(), config, image, 2, false);
    EXPECT_TRUE(linked.stream == shared.stream) << "the shared library's stream differs";
  }
}

}  // namespace
}  // namespace inkweave
