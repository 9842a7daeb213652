// Golden streams: whole jobs through the plug-in's entry points (class object, EnablePDEV, the mode
// selections, bands, page and job ends), one per combination of resolution (150, 300, 600 dpi and the
// high-resolution mode), media, halftone and colour mode, plus landscape, 8-bit gray bands, an odd band
// height and two-page jobs. Each printer stream is pinned by its SHA-256 in streams.sha256, so that
// any change of a single output byte shows up here, by case.
//
// When a stream changes on purpose, rewrite the manifest and review the cases it lists:
//   tests/golden/update.sh [build-dir]     or     <build>/tests/golden/golden_test --update
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "src/plugin/render_plugin.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/sha256.h"

namespace inkweave {
namespace {

const host::PluginEntry kLinkedPlugin{&GetClassObject, &CanUnloadNow};
const char kManifest[] = INKWEAVE_SOURCE_DIR "/tests/golden/streams.sha256";
const char kUpdateHint[] =
    "If the change is intended, run tests/golden/update.sh [build-dir] (or golden_test --update), "
    "review the listed cases and commit tests/golden/streams.sha256.";

constexpr int kWidth = 600;  // surface pixels (the portrait page; the landscape surface is turned)
constexpr int kHeight = 480;

struct GoldenCase {
  std::string name;
  int quality = 600;                        // 150, 300, 600
  bool highRes = false;                     // 600 plus the high-resolution command
  DWORD media = host::kCallbackMediaPlain;  // 0: no media selection
  bool diffusion = false;
  bool color = true;
  bool landscape = false;
  int bitsPerPixel = 24;  // 24 RGB or 8 gray
  int bandHeight = 64;
  int pages = 1;
};

// A small deterministic generator (the same numbers on every platform and library).
struct Lcg {
  std::uint32_t state;
  std::uint32_t Next() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  }
};

// The synthetic page, RGB, row-major: a white top margin (blank bands), a photo-like area (smooth
// ramps with fine noise), saturated and gray flat patches, and text-like dark strokes on white.
std::vector<std::uint8_t> MakePage(int width, int height) {
  std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width) * height * 3);
  Lcg random{20240611u};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
      int r = 255, g = 255, b = 255;
      const int noise = static_cast<int>(random.Next() % 13) - 6;
      if (y < height / 10) {
        // white margin
      } else if (x < width / 2 && y < height * 6 / 10) {
        // photo-like: hue and lightness ramps with noise
        r = x * 255 / (width / 2) + noise;
        g = (y - height / 10) * 255 / (height / 2) - noise;
        b = 255 - (x + y) * 255 / (width / 2 + height * 6 / 10) + noise;
      } else if (x >= width / 2 && y < height * 6 / 10) {
        // flat patches: the primaries, secondaries, grays and black
        static const std::uint8_t kPatches[12][3] = {{255, 0, 0},     {0, 255, 0},     {0, 0, 255},     {0, 255, 255},
                                                     {255, 0, 255},   {255, 255, 0},   {0, 0, 0},       {64, 64, 64},
                                                     {128, 128, 128}, {200, 200, 200}, {250, 240, 230}, {20, 180, 60}};
        const int patch = ((x - width / 2) * 4 / (width / 2)) + 4 * ((y - height / 10) * 3 / (height / 2));
        const std::uint8_t* c = kPatches[std::clamp(patch, 0, 11)];
        r = c[0], g = c[1], b = c[2];
      } else {
        // text-like: thin dark strokes and coloured underlines on white
        const bool stroke = ((x / 2) % 7 == 0 && (y / 9) % 2 == 0) || (y % 21 == 0 && (x / 37) % 3 != 0);
        const bool underline = y % 21 == 1 && (x / 53) % 2 == 0;
        if (stroke) r = g = b = 16;
        if (underline) r = 200, g = 30, b = 40;
      }
      p[0] = static_cast<std::uint8_t>(std::clamp(r, 0, 255));
      p[1] = static_cast<std::uint8_t>(std::clamp(g, 0, 255));
      p[2] = static_cast<std::uint8_t>(std::clamp(b, 0, 255));
    }
  return rgb;
}

// Runs the case's job and answers its printer stream.
std::vector<std::uint8_t> RunCase(const GoldenCase& c) {
  // The surface: the portrait page, or the same page turned for landscape.
  const int surfaceWidth = c.landscape ? kHeight : kWidth;
  const int surfaceHeight = c.landscape ? kWidth : kHeight;
  const std::vector<std::uint8_t> rgb = MakePage(surfaceWidth, surfaceHeight);

  std::vector<std::uint8_t> stream;
  host::HostSession session(kLinkedPlugin);
  session.Spool().SetKeepWrites(false);
  session.Spool().SetSink(
      [&stream](const std::uint8_t* bytes, std::size_t size) { stream.insert(stream.end(), bytes, bytes + size); });
  EXPECT_EQ(session.Load(), S_OK);
  host::DeviceSetup setup;
  setup.Quality = static_cast<std::int16_t>(c.quality);
  setup.Color = c.color;
  setup.Landscape = c.landscape;
  setup.PageWidth = static_cast<std::uint32_t>(c.landscape ? surfaceHeight : surfaceWidth);
  setup.PageHeight = static_cast<std::uint32_t>(c.landscape ? surfaceWidth : surfaceHeight);
  EXPECT_EQ(session.Enable(setup), S_OK);
  host::SelectModes(session, c.diffusion, c.highRes, c.media);
  session.Command(host::kCallbackJobStart);

  host::PageSource source;
  source.Width = surfaceWidth;
  source.Height = surfaceHeight;
  source.BitsPerPixel = static_cast<std::uint16_t>(c.bitsPerPixel);
  source.Render = [&](std::int32_t x0, std::int32_t y0, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                      std::size_t stride) {
    for (std::int32_t y = 0; y < h; ++y) {
      const std::uint8_t* from = &rgb[(static_cast<std::size_t>(y0 + y) * surfaceWidth + x0) * 3];
      std::uint8_t* to = dst + stride * static_cast<std::size_t>(y);
      if (c.bitsPerPixel == 24) {
        std::memcpy(to, from, static_cast<std::size_t>(w) * 3);
      } else {
        for (std::int32_t x = 0; x < w; ++x, from += 3)
          to[x] = static_cast<std::uint8_t>((from[0] * 30 + from[1] * 59 + from[2] * 11) / 100);
      }
    }
    return true;
  };
  for (int page = 0; page < c.pages; ++page) {
    const host::PageResult printed = host::PrintPage(session, source, c.bandHeight);
    EXPECT_EQ(printed.Status, S_OK) << c.name;
  }
  session.Command(host::kCallbackJobEnd);
  EXPECT_EQ(session.Disable(), S_OK);
  session.Unload();
  return stream;
}

std::vector<GoldenCase> Cases() {
  std::vector<GoldenCase> cases;
  struct Mode {
    const char* name;
    int quality;
    bool highRes;
  };
  const Mode modes[] = {{"r150", 150, false}, {"r300", 300, false}, {"r600", 600, false}, {"r600hr", 600, true}};
  const std::pair<const char*, DWORD> media[] = {{"plain", host::kCallbackMediaPlain},
                                                 {"inkjet", host::kCallbackMediaInkjet},
                                                 {"glossy", host::kCallbackMediaGlossy},
                                                 {"photo", host::kCallbackMediaPhoto}};
  // Every resolution x media x halftone x colour mode, portrait, 24-bit bands.
  for (const Mode& mode : modes)
    for (const auto& [mediaName, mediaId] : media)
      for (bool diffusion : {false, true})
        for (bool color : {true, false}) {
          GoldenCase c;
          c.name = std::string(mode.name) + "_" + mediaName + (diffusion ? "_diffusion" : "_dither") +
                   (color ? "_colour" : "_mono");
          c.quality = mode.quality;
          c.highRes = mode.highRes;
          c.media = mediaId;
          c.diffusion = diffusion;
          c.color = color;
          cases.push_back(c);
        }
  // Landscape, 8-bit gray bands, no media selection, an odd band height, two-page jobs.
  auto extra = [&cases](std::string name, auto&& adjust) {
    GoldenCase c;
    c.name = std::move(name);
    adjust(c);
    cases.push_back(c);
  };
  extra("r600_plain_dither_colour_landscape", [](GoldenCase& c) { c.landscape = true; });
  extra("r600_plain_diffusion_colour_landscape", [](GoldenCase& c) { c.landscape = true, c.diffusion = true; });
  extra("r600hr_plain_diffusion_colour_landscape",
        [](GoldenCase& c) { c.landscape = true, c.diffusion = true, c.highRes = true; });
  extra("r300_photo_dither_mono_landscape", [](GoldenCase& c) {
    c.landscape = true, c.quality = 300, c.media = host::kCallbackMediaPhoto, c.color = false;
  });
  extra("r600_plain_dither_colour_gray8", [](GoldenCase& c) { c.bitsPerPixel = 8; });
  extra("r600_plain_diffusion_colour_gray8", [](GoldenCase& c) { c.bitsPerPixel = 8, c.diffusion = true; });
  extra("r600_plain_dither_mono_gray8", [](GoldenCase& c) { c.bitsPerPixel = 8, c.color = false; });
  extra("r600hr_photo_diffusion_colour_gray8", [](GoldenCase& c) {
    c.bitsPerPixel = 8, c.diffusion = true, c.highRes = true, c.media = host::kCallbackMediaPhoto;
  });
  extra("r300_plain_diffusion_mono_gray8",
        [](GoldenCase& c) { c.bitsPerPixel = 8, c.diffusion = true, c.quality = 300, c.color = false; });
  extra("r600_nomedia_dither_colour", [](GoldenCase& c) { c.media = 0; });
  extra("r600_plain_dither_colour_band37", [](GoldenCase& c) { c.bandHeight = 37; });
  extra("r600hr_plain_diffusion_colour_band37",
        [](GoldenCase& c) { c.bandHeight = 37, c.diffusion = true, c.highRes = true; });
  extra("r600_plain_dither_colour_2pages", [](GoldenCase& c) { c.pages = 2; });
  extra("r600_plain_diffusion_colour_2pages", [](GoldenCase& c) { c.pages = 2, c.diffusion = true; });
  extra("r600hr_glossy_dither_colour_2pages",
        [](GoldenCase& c) { c.pages = 2, c.highRes = true, c.media = host::kCallbackMediaGlossy; });
  return cases;
}

// The manifest: one line per case, "<sha256 hex>  <case name>".
std::map<std::string, std::string> ReadManifest() {
  std::map<std::string, std::string> digests;
  std::ifstream in(kManifest);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string digest, name;
    if (fields >> digest >> name) digests[name] = digest;
  }
  return digests;
}

class GoldenStream : public ::testing::TestWithParam<GoldenCase> {};

// Every instruction set the processor has writes the pinned stream.
TEST_P(GoldenStream, MatchesManifest) {
  const GoldenCase& c = GetParam();
  const auto manifest = ReadManifest();
  const auto pinned = manifest.find(c.name);
  ASSERT_NE(pinned, manifest.end()) << "case " << c.name << " is not in " << kManifest << ". " << kUpdateHint;
  testing::ForEachInstructionSet([&](InstructionSet) {
    const std::vector<std::uint8_t> stream = RunCase(c);
    ASSERT_FALSE(stream.empty()) << c.name;
    EXPECT_EQ(testing::Sha256Hex(stream.data(), stream.size()), pinned->second)
        << "the printer stream of case " << c.name << " (" << stream.size() << " bytes) changed. " << kUpdateHint;
  });
}

INSTANTIATE_TEST_SUITE_P(Jobs, GoldenStream, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<GoldenCase>& param) { return param.param.name; });

// Rewrites the manifest from today's code; prints the cases that changed, were added or dropped.
int UpdateManifest() {
  const auto before = ReadManifest();
  std::ostringstream text;
  int changed = 0;
  std::map<std::string, bool> seen;
  for (const GoldenCase& c : Cases()) {
    const std::vector<std::uint8_t> stream = RunCase(c);
    const std::string digest = testing::Sha256Hex(stream.data(), stream.size());
    text << digest << "  " << c.name << "\n";
    seen[c.name] = true;
    const auto old = before.find(c.name);
    if (old == before.end()) {
      std::cout << "added:   " << c.name << "\n", ++changed;
    } else if (old->second != digest) {
      std::cout << "changed: " << c.name << "\n", ++changed;
    }
  }
  for (const auto& [name, digest] : before)
    if (!seen.count(name)) std::cout << "dropped: " << name << "\n", ++changed;
  std::ofstream out(kManifest, std::ios::trunc);
  out << text.str();
  if (!out) {
    std::cerr << "cannot write " << kManifest << "\n";
    return 1;
  }
  std::cout << changed << " of " << seen.size() << " cases changed; wrote " << kManifest << "\n";
  return 0;
}

}  // namespace
}  // namespace inkweave

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "--update") == 0) return inkweave::UpdateManifest();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
