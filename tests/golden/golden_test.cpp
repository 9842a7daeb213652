// Whole printer streams over the grid of modes: jobs through the plug-in's entry points (class object,
// EnablePDEV, the mode selections, bands, page and job ends), one per combination of resolution (150,
// 300, 600 dpi and the high-resolution mode), media, halftone and colour mode, plus landscape, 8-bit
// gray bands, odd band heights, multi-page jobs, halftones switched between pages and black-and-white
// pages. Each case checks
//  - the stream byte for byte, by its SHA-256 pinned in streams.sha256 (and for several pages, that the
//    shared library writes the same stream as the linked plug-in);
//  - that the plug-in takes no heap block per band or page;
//  - the printed page: decoded by our printer model (decode/, which shares no code with the plug-in),
//    every row lands once, with exactly the dots the renderers left in the plane buffers for the
//    emitter (collected stripe by stripe through the band driver's stripe observer), and nothing lands
//    below the last row; on a black-and-white page each black pixel is exactly its black dot.
//
// When a stream changes on purpose, rewrite the manifest and review the cases `git diff` lists:
//   <build>/tests/golden/golden_test --update && git diff tests/golden/streams.sha256
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "decode/decoder.h"
#include "host/host.h"
#include "src/device/memory_list.h"
#include "src/device/plane_geometry.h"
#include "src/pipeline/band_driver.h"
#include "src/plugin/render_plugin.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/plugin_library.h"
#include "tests/support/print_stream.h"
#include "tests/support/sha256.h"

namespace inkweave {
namespace {

const host::PluginEntry kLinkedPlugin{&GetClassObject, &CanUnloadNow};
const char kManifest[] = INKWEAVE_SOURCE_DIR "/tests/golden/streams.sha256";
const char kUpdateHint[] =
    "If the change is intended, run golden_test --update, review the cases git diff lists and commit the manifest.";

constexpr int kWidth = 600;  // the portrait page; the landscape surface is turned
constexpr int kHeight = 480;

struct GoldenCase {
  std::string name;
  int quality = 600;                        // 150, 300, 600
  bool highRes = false;                     // 600 plus the high-resolution command
  DWORD media = host::kCallbackMediaPlain;  // 0: no media selection
  std::string halftones = "D";              // per page: D dither, E error diffusion
  bool color = true;
  bool landscape = false;
  int bitsPerPixel = 24;  // 24 RGB or 8 gray
  int bandHeight = 64;
  bool blackWhite = false;  // the black-and-white page instead of the mixed one
  bool shared = false;      // the shared library writes the same stream
};

void PrintTo(const GoldenCase& c, std::ostream* os) { *os << c.name; }

// A small deterministic generator (the same numbers on every platform and library).
struct Lcg {
  std::uint32_t state;
  std::uint32_t Next() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  }
};

// The mixed page, RGB, row-major: a white top margin (blank bands), a photo-like area (smooth ramps
// with fine noise), saturated and gray flat patches, and text-like dark strokes on white.
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
        r = x * 255 / (width / 2) + noise;
        g = (y - height / 10) * 255 / (height / 2) - noise;
        b = 255 - (x + y) * 255 / (width / 2 + height * 6 / 10) + noise;
      } else if (x >= width / 2 && y < height * 6 / 10) {
        static const std::uint8_t kPatches[12][3] = {{255, 0, 0},     {0, 255, 0},     {0, 0, 255},     {0, 255, 255},
                                                     {255, 0, 255},   {255, 255, 0},   {0, 0, 0},       {64, 64, 64},
                                                     {128, 128, 128}, {200, 200, 200}, {250, 240, 230}, {20, 180, 60}};
        const int patch = ((x - width / 2) * 4 / (width / 2)) + 4 * ((y - height / 10) * 3 / (height / 2));
        const std::uint8_t* c = kPatches[std::clamp(patch, 0, 11)];
        r = c[0], g = c[1], b = c[2];
      } else {
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

// The black-and-white page (portrait coordinates): strokes, a checkerboard, a solid block and the last
// column and row, on a page whose width is whole bytes and whose height is whole stripes.
bool BlackAt(int x, int y) {
  return (y > 20 && y < 60 && x % 7 < 2) || (y >= 80 && y < 150 && (x + y) % 2 == 0) ||
         (y >= 160 && y < 300 && x > 40 && x < 250) || x == kWidth - 1 || y == kHeight - 1;
}

// The surface the host renders: the portrait page, or the same page turned for landscape (portrait
// row r is surface column r, portrait dot x surface row W - 1 - x).
std::vector<std::uint8_t> MakeSurface(const GoldenCase& c) {
  if (!c.blackWhite) return c.landscape ? MakePage(kHeight, kWidth) : MakePage(kWidth, kHeight);
  std::vector<std::uint8_t> rgb(static_cast<std::size_t>(kWidth) * kHeight * 3, 255);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      if (!BlackAt(x, y)) continue;
      const std::size_t at = c.landscape ? static_cast<std::size_t>(kWidth - 1 - x) * kHeight + y
                                         : static_cast<std::size_t>(y) * kWidth + x;
      std::memset(&rgb[at * 3], 0, 3);
    }
  return rgb;
}

// The rows the emitter read, in the order it received them: row k of the page's weave, [bit][plane]
// (the second bits zero for one-bit rows).
struct EmittedPage {
  int rowBytes = 0;
  std::vector<std::array<std::array<std::vector<std::uint8_t>, 4>, 2>> rows;
};

void ObserveStripe(const DEVOBJ* devobj, const BandInfo& band, int, int, std::int16_t inkFlag, void* context) {
  auto& pages = *static_cast<std::vector<EmittedPage>*>(context);
  const DeviceState& state = *StateOf(devobj);
  if (state.StripeFlag == kStripeFirst) pages.emplace_back();
  EmittedPage& page = pages.back();
  const int mode = LevelOf(state.PrintMode);
  const PlaneLayout layout = PlaneLayoutOf(mode);
  page.rowBytes = PlaneRowBytes(mode, state.Landscape ? band.Header.biHeight : band.Header.biWidth);
  const bool color = state.ColorMode == DMCOLOR_COLOR;
  // The depth the emitter will use for this stripe.
  const bool twoBit = inkFlag != 0 ? !(state.ActiveHalftone == 1 || mode >= 6 || mode < 2) : state.InkModeCode >= 0x30;
  for (int r = 0; r < layout.OutputLines; ++r) {
    auto& row = page.rows.emplace_back();
    for (int b = 0; b < 2; ++b)
      for (int p = 0; p < 4; ++p) {
        row[b][p].assign(page.rowBytes, 0);
        if (inkFlag == 0 || (!color && p != 3) || (b == 1 && !twoBit)) continue;  // monochrome sends black only
        const std::size_t at = static_cast<std::size_t>(r * 4 + p) * layout.PlaneBytes;
        std::memcpy(row[b][p].data(), state.PlaneBuffer[b] + at, page.rowBytes);
      }
  }
}

struct JobResult {
  std::vector<std::uint8_t> stream;
  std::vector<EmittedPage> emitted;
  std::uint64_t heapAllocationsDuringPages = 0;
};

// Runs the case's job through the linked plug-in, watching the stripes the emitter takes, or through
// `entry` unwatched; answers its printer stream.
JobResult RunCase(const GoldenCase& c, const host::PluginEntry* entry = nullptr) {
  const int surfaceWidth = c.landscape ? kHeight : kWidth;
  const int surfaceHeight = c.landscape ? kWidth : kHeight;
  const std::vector<std::uint8_t> rgb = MakeSurface(c);
  const int pages = static_cast<int>(c.halftones.size());

  JobResult result;
  if (entry == nullptr) detail::SetStripeObserver(&ObserveStripe, &result.emitted);
  host::HostSession session(entry ? *entry : kLinkedPlugin);
  session.Spool().SetKeepWrites(false);
  session.Spool().SetSink([&result](const std::uint8_t* bytes, std::size_t size) {
    result.stream.insert(result.stream.end(), bytes, bytes + size);
  });
  EXPECT_EQ(session.Load(), S_OK);
  EXPECT_EQ(session.Enable({.Quality = static_cast<std::int16_t>(c.quality),
                            .Color = c.color,
                            .Landscape = c.landscape,
                            .PageWidth = kWidth,
                            .PageHeight = kHeight}),
            S_OK);
  host::SelectModes(session, c.halftones[0] == 'E', c.highRes, c.media);
  session.Command(host::kCallbackJobStart);

  const host::PageSource source{
      surfaceWidth, surfaceHeight, static_cast<std::uint16_t>(c.bitsPerPixel),
      [&](std::int32_t x0, std::int32_t y0, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride) {
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
      }};
  const std::uint64_t heapBefore = detail::GlobalAllocationCount() + detail::LocalAllocationCount();
  for (int page = 0; page < pages; ++page) {
    const char halftone = c.halftones[static_cast<std::size_t>(page) % c.halftones.size()];
    if (page > 0 && halftone != c.halftones[static_cast<std::size_t>(page - 1) % c.halftones.size()])
      session.Command(halftone == 'E' ? host::kCallbackErrorDiffusion : host::kCallbackDither);
    EXPECT_EQ(host::PrintPage(session, source, c.bandHeight).Status, S_OK) << c.name;
  }
  result.heapAllocationsDuringPages = detail::GlobalAllocationCount() + detail::LocalAllocationCount() - heapBefore;
  session.Command(host::kCallbackJobEnd);
  EXPECT_EQ(session.Disable(), S_OK);
  session.Unload();
  detail::SetStripeObserver(nullptr, nullptr);
  return result;
}

// A case from its name, "r<dpi>[hr]_<media>_<halftone>_<colour>[_<variant>...]": "nomedia" sends no
// media selection; "switching" changes the halftone between pages; the variants are "landscape",
// "gray8" (8-bit gray bands), "band<rows>", "2pages" (two pages, also through the shared library) and
// "bw" (the black-and-white page).
GoldenCase Parse(const std::string& name) {
  std::vector<std::string> words;
  std::istringstream in(name);
  for (std::string word; std::getline(in, word, '_');) words.push_back(word);
  const std::map<std::string, DWORD> media = {{"nomedia", 0},
                                              {"plain", host::kCallbackMediaPlain},
                                              {"inkjet", host::kCallbackMediaInkjet},
                                              {"glossy", host::kCallbackMediaGlossy},
                                              {"photo", host::kCallbackMediaPhoto}};
  GoldenCase c{.name = name, .quality = std::stoi(words[0].substr(1, 3)), .highRes = words[0].size() > 4};
  c.media = media.at(words[1]);
  c.halftones = words[2] == "dither" ? "D" : words[2] == "diffusion" ? "E" : c.quality == 150 ? "DEED" : "DED";
  c.color = words[3] == "colour";
  for (std::size_t i = 4; i < words.size(); ++i) {
    c.landscape |= words[i] == "landscape";
    c.blackWhite |= words[i] == "bw";
    if (words[i] == "gray8") c.bitsPerPixel = 8;
    if (words[i].starts_with("band")) c.bandHeight = std::stoi(words[i].substr(4));
    if (words[i] == "2pages") c.halftones += c.halftones, c.shared = true;
  }
  return c;
}

std::vector<GoldenCase> Cases() {
  std::vector<GoldenCase> cases;
  // Every resolution x media x halftone x colour mode, portrait, 24-bit bands.
  for (const char* mode : {"r150", "r300", "r600", "r600hr"})
    for (const char* media : {"plain", "inkjet", "glossy", "photo"})
      for (const char* halftone : {"dither", "diffusion"})
        for (const char* color : {"colour", "mono"})
          cases.push_back(Parse(std::string(mode) + "_" + media + "_" + halftone + "_" + color));
  // Every renderer pair across the band in landscape; 8-bit gray bands; no media selection and odd
  // band heights; several pages; halftones switched between pages (the ink-mode command each sends); and
  // the black-and-white page, each black pixel its black dot in every mode's largest dot.
  const char* const variants[] = {"r600_plain_dither_colour_landscape",
                                  "r600_plain_diffusion_colour_landscape",
                                  "r600hr_plain_diffusion_colour_landscape",
                                  "r300_photo_dither_mono_landscape",
                                  "r300_plain_diffusion_colour_landscape",
                                  "r150_plain_diffusion_mono_landscape",
                                  "r600_plain_dither_colour_gray8",
                                  "r600_plain_diffusion_colour_gray8",
                                  "r600_plain_dither_mono_gray8",
                                  "r600hr_photo_diffusion_colour_gray8",
                                  "r300_plain_diffusion_mono_gray8",
                                  "r300_plain_dither_mono_gray8_landscape",
                                  "r600_nomedia_dither_colour",
                                  "r600_plain_dither_colour_band37",
                                  "r600hr_plain_diffusion_colour_band37",
                                  "r300_plain_diffusion_mono_band48_landscape",
                                  "r600_plain_dither_colour_2pages",
                                  "r600_plain_diffusion_colour_2pages",
                                  "r600hr_glossy_dither_colour_2pages",
                                  "r150_plain_switching_colour",
                                  "r300_plain_switching_colour",
                                  "r150_plain_dither_colour_bw",
                                  "r150_plain_diffusion_mono_bw_landscape",
                                  "r300_plain_dither_mono_bw_landscape",
                                  "r300_plain_diffusion_colour_bw",
                                  "r300_plain_diffusion_colour_bw_landscape",
                                  "r600_plain_dither_colour_bw_landscape",
                                  "r600_plain_diffusion_mono_bw",
                                  "r600_plain_diffusion_colour_bw_landscape"};
  for (const char* name : variants) cases.push_back(Parse(name));
  return cases;
}

bool Bit(const std::vector<std::uint8_t>& row, int x) { return (row[x / 8] >> (7 - x % 8)) & 1; }

// Every dot of the first `rows` rows and `dots` dots of each plane against expected(plane, x, row).
template <typename Expected>
void ExpectDots(const decode::PrintedPage& printed, int rows, int dots, const Expected& expected) {
  long wrong = 0;
  for (int row = 0; row < rows; ++row)
    for (int p = 0; p < 4; ++p)
      for (int x = 0; x < dots; ++x) {
        const int want = expected(p, x, row), actual = decode::DotAt(printed, p, x, row);
        if (actual != want && ++wrong <= 5)
          ADD_FAILURE() << "plane " << p << " at (" << x << ", " << row << "): " << actual << ", expected " << want;
      }
  EXPECT_EQ(wrong, 0);
}

// The printed page against the rows the emitter read: every dot, each row inked at most once, nothing
// below the last row.
void ExpectPrintedAsEmitted(const decode::PrintedPage& printed, const EmittedPage& emitted) {
  const int rows = static_cast<int>(emitted.rows.size());
  ExpectDots(printed, rows, emitted.rowBytes * 8, [&](int p, int x, int row) {
    return Bit(emitted.rows[row][0][p], x) + 2 * Bit(emitted.rows[row][1][p], x);
  });
  EXPECT_EQ(printed.RowsInkedTwice, 0);
  for (int row = rows; row < static_cast<int>(printed.InkCounts.size()); ++row)
    ASSERT_EQ(printed.InkCounts[static_cast<std::size_t>(row)], 0) << "ink below the " << rows << " emitted rows";
}

// A black-and-white page: each black pixel is exactly its largest black dot (both bits for the
// three-size pair at 300 dpi diffusion, one bit elsewhere), and there is no other ink.
void ExpectBlackAndWhite(const GoldenCase& c, const decode::PrintedPage& printed) {
  const int largest = c.halftones[0] == 'E' && c.quality == 300 ? 3 : 1;
  ExpectDots(printed, kHeight + 16, kWidth + 16,
             [&](int p, int x, int y) { return p == 3 && y < kHeight && x < kWidth && BlackAt(x, y) ? largest : 0; });
}

class GoldenStream : public ::testing::TestWithParam<GoldenCase> {};

// Every instruction set the processor has writes the pinned stream.
TEST_P(GoldenStream, MatchesManifestAndPrintsAsRendered) {
  const GoldenCase& c = GetParam();
  std::map<std::string, std::string> manifest;  // one line per case, "<sha256 hex>  <case name>"
  std::ifstream in(kManifest);
  for (std::string digest, name; in >> digest >> name;) manifest[name] = digest;
  const auto pinned = manifest.find(c.name);
  ASSERT_NE(pinned, manifest.end()) << "case " << c.name << " is not in " << kManifest << ". " << kUpdateHint;
  if (c.shared) {
    const std::vector<std::uint8_t> stream = RunCase(c, &testing::SharedPlugin()).stream;
    EXPECT_EQ(testing::Sha256Hex(stream.data(), stream.size()), pinned->second) << "the shared library's stream";
  }
  testing::ForEachInstructionSet([&](InstructionSet) {
    const JobResult job = RunCase(c);
    EXPECT_EQ(job.heapAllocationsDuringPages, 0u) << "no heap block per band or page";
    EXPECT_EQ(testing::Sha256Hex(job.stream.data(), job.stream.size()), pinned->second)
        << "the printer stream of case " << c.name << " (" << job.stream.size() << " bytes) changed. " << kUpdateHint;

    const std::vector<decode::PrintedPage> pages = testing::PrintStream(job.stream);
    ASSERT_EQ(pages.size(), c.halftones.size());
    ASSERT_EQ(job.emitted.size(), pages.size());
    for (std::size_t n = 0; n < pages.size(); ++n) {
      SCOPED_TRACE("page " + std::to_string(n));
      if (c.bandHeight % (c.highRes ? 4 : 16) != 1) {  // else each band's single last line is dropped
        EXPECT_GE(static_cast<int>(job.emitted[n].rows.size()), kHeight * (c.highRes ? 2 : 1));
      }
      ExpectPrintedAsEmitted(pages[n], job.emitted[n]);
      if (c.blackWhite) ExpectBlackAndWhite(c, pages[n]);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Jobs, GoldenStream, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<GoldenCase>& param) { return param.param.name; });

// Rewrites the manifest from today's code; `git diff` then lists the cases whose stream changed.
int UpdateManifest() {
  std::ofstream out(kManifest, std::ios::trunc);
  for (const GoldenCase& c : Cases()) {
    const std::vector<std::uint8_t> stream = RunCase(c).stream;
    out << testing::Sha256Hex(stream.data(), stream.size()) << "  " << c.name << "\n";
  }
  if (!out) std::cerr << "cannot write " << kManifest << "\n";
  return out ? 0 : 1;
}

}  // namespace
}  // namespace inkweave

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "--update") == 0) return inkweave::UpdateManifest();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
