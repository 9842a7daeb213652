// Raster pictures into the page: their colour profiles honoured, monochrome pages from luminance, and
// every lossless format (read a few rows at a time, or whole for landscape) printing the same stream.
//
// The profiles are built here with Little CMS: Adobe RGB (1998) from its primaries, D65 white and
// gamma 563/256, and the reference conversions to sRGB are Little CMS's own, independent of libvips.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <cstring>
#include <vips/vips8>

#include "cli/document.h"
#include "tests/cli/page_compare.h"
#include "tests/cli/run.h"

namespace inkweave::cli::testing {
namespace {

constexpr int kWidth = 96, kHeight = 64, kPatch = 8;  // pixels

// A picture of 8 x 8 pixel patches: every mix of four levels of red, green and blue, a grey ramp, and
// first the colour whose numbers differ most visibly between Adobe RGB and sRGB.
std::vector<std::uint8_t> Patches() {
  std::vector<std::array<std::uint8_t, 3>> colours = {{60, 160, 90}};
  const std::uint8_t levels[] = {0, 96, 176, 255};
  for (std::uint8_t r : levels)
    for (std::uint8_t g : levels)
      for (std::uint8_t b : levels) colours.push_back({r, g, b});
  for (int v = 4; colours.size() < std::size_t{kWidth / kPatch * kHeight / kPatch}; v += 8)
    colours.push_back({static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v)});
  std::vector<std::uint8_t> rgb(std::size_t{kWidth} * kHeight * 3);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      std::memcpy(&rgb[(std::size_t{static_cast<std::size_t>(y)} * kWidth + x) * 3],
                  colours[static_cast<std::size_t>(y / kPatch * (kWidth / kPatch) + x / kPatch)].data(), 3);
  return rgb;
}

std::vector<std::uint8_t> ProfileBytes(cmsHPROFILE profile) {
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  std::vector<std::uint8_t> bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  return bytes;
}

std::vector<std::uint8_t> AdobeRgbProfile() {
  const cmsCIExyY white = {0.3127, 0.3290, 1.0};
  const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
  cmsToneCurve* gamma = cmsBuildGamma(nullptr, 563.0 / 256.0);
  cmsToneCurve* curves[3] = {gamma, gamma, gamma};
  cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(gamma);
  return ProfileBytes(profile);
}

// Pixels through a Little CMS transform, relative colorimetric with black-point compensation.
std::vector<std::uint8_t> Transform(const std::vector<std::uint8_t>& rgb, cmsHPROFILE from, cmsHPROFILE to,
                                    cmsUInt32Number outFormat, int outChannels) {
  cmsHTRANSFORM t = cmsCreateTransform(from, TYPE_RGB_8, to, outFormat, INTENT_RELATIVE_COLORIMETRIC,
                                       cmsFLAGS_BLACKPOINTCOMPENSATION);
  std::vector<std::uint8_t> out(rgb.size() / 3 * static_cast<std::size_t>(outChannels));
  cmsDoTransform(t, rgb.data(), out.data(), static_cast<cmsUInt32Number>(rgb.size() / 3));
  cmsDeleteTransform(t);
  cmsCloseProfile(from);
  cmsCloseProfile(to);
  return out;
}

// Writes pixels of `bands` bytes through libvips; `target` may carry save options ("x.webp[lossless]").
void Save(const std::vector<std::uint8_t>& pixels, int bands, const std::string& target,
          const std::vector<std::uint8_t>& profile = {}) {
  StartLibvips();
  vips::VImage image = vips::VImage::new_from_memory(const_cast<std::uint8_t*>(pixels.data()), pixels.size(), kWidth,
                                                     kHeight, bands, VIPS_FORMAT_UCHAR);
  image = image.copy(
      vips::VImage::option()->set("interpretation", bands == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB));
  if (!profile.empty()) vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  image.write_to_file(target.c_str());
}

std::string Path(const std::string& target) { return target.substr(0, target.find('[')); }

decode::PrintedPage Print(const ScratchDir& dir, std::vector<std::string> args) {
  args.insert(args.begin(), "print");
  for (const char* a : {"--quality", "150", "--paper", "a5", "-q", "-o"}) args.emplace_back(a);
  args.push_back(dir / "job.prn");
  const RunResult run = RunInkweave(args);
  EXPECT_EQ(run.Exit, 0) << run.Err;
  EXPECT_EQ(run.Err, "");  // no warning (and, with -q, no summary)
  auto pages = DecodeStream(dir / "job.prn");
  return pages.empty() ? decode::PrintedPage{} : pages[0];
}

std::vector<unsigned char> Stream(const ScratchDir& dir, std::vector<std::string> args) {
  Print(dir, std::move(args));
  return ReadFile(dir / "job.prn");
}

// How far two prints are apart: the mean difference of ink coverage (0..1) over blocks of 8 x 8 dots
// and the four inks, over the printed area of either.
double InkDifference(const decode::PrintedPage& a, const decode::PrintedPage& b) {
  constexpr int kBlock = 8;
  const int width = std::max(a.WidthDots, b.WidthDots), height = std::max(a.HeightRows, b.HeightRows);
  double sum = 0;
  int blocks = 0;
  for (int by = 0; by + kBlock <= height; by += kBlock)
    for (int bx = 0; bx + kBlock <= width; bx += kBlock, ++blocks)
      for (int p = 0; p < 4; ++p) {
        int inkA = 0, inkB = 0;
        for (int y = by; y < by + kBlock; ++y)
          for (int x = bx; x < bx + kBlock; ++x) {
            inkA += decode::DotAt(a, p, x, y) != 0;
            inkB += decode::DotAt(b, p, x, y) != 0;
          }
        sum += std::abs(inkA - inkB) / (4.0 * kBlock * kBlock);
      }
  return blocks ? sum / blocks : 1.0;
}

TEST(InputColour, EmbeddedProfilesAreHonouredInEveryFormat) {
  // The same picture three ways in each format: its Adobe RGB numbers tagged with the profile; converted
  // to sRGB beforehand and untagged; the Adobe RGB numbers untagged (taken as sRGB). The first two must
  // print alike, the last visibly not. JPEG at quality 100 keeps flat 8 x 8 patches within a level.
  const auto adobe = AdobeRgbProfile();
  const auto picture = Patches();
  const auto srgb = Transform(picture, cmsOpenProfileFromMem(adobe.data(), static_cast<cmsUInt32Number>(adobe.size())),
                              cmsCreate_sRGBProfile(), TYPE_RGB_8, 3);
  ASSERT_EQ((std::vector<int>{srgb[0], srgb[1], srgb[2]}), (std::vector<int>{0, 161, 85}));
  for (const char* format : {".png", ".jpg[Q=100]", ".tif", ".webp[lossless]"}) {
    SCOPED_TRACE(format);
    ScratchDir dir;
    Save(picture, 3, dir / "tagged" + format, adobe);
    Save(srgb, 3, dir / "srgb" + format);
    Save(picture, 3, dir / "plain" + format);
    const auto tagged = Print(dir, {Path(dir / "tagged" + format)});
    const double alike = InkDifference(tagged, Print(dir, {Path(dir / "srgb" + format)}));
    const double unlike = InkDifference(tagged, Print(dir, {Path(dir / "plain" + format)}));
    EXPECT_LT(alike, 0.002) << "unlike: " << unlike;
    EXPECT_GT(unlike, 0.006) << "alike: " << alike;
  }
}

TEST(InputColour, InputProfileReplacesThePicturesOwn) {
  ScratchDir dir;
  const auto adobe = AdobeRgbProfile();
  WriteFile(dir / "adobe.icc", std::string(adobe.begin(), adobe.end()));
  const auto picture = Patches();
  Save(picture, 3, dir / "tagged.png", adobe);
  Save(picture, 3, dir / "plain.png");
  // Untagged numbers with the profile named print exactly as the tagged picture; the profile named
  // also wins over the one a picture carries.
  const auto expected = Stream(dir, {dir / "tagged.png"});
  EXPECT_EQ(Stream(dir, {dir / "plain.png", "--input-profile", dir / "adobe.icc"}), expected);
  const auto srgb = ProfileBytes(cmsCreate_sRGBProfile());
  WriteFile(dir / "srgb.icc", std::string(srgb.begin(), srgb.end()));
  EXPECT_NE(Stream(dir, {dir / "tagged.png", "--input-profile", dir / "srgb.icc"}), expected);

  // Profiles that cannot serve: one line naming the profile, and no output.
  std::vector<std::uint8_t> gray(std::size_t{kWidth} * kHeight, 128);
  Save(gray, 1, dir / "gray.png");
  WriteFile(dir / "notes.icc", "not a profile");
  struct Case {
    std::string Input, Profile, Words;
    int Exit;
  } cases[] = {
      {dir / "plain.png", dir / "notes.icc", "not an ICC colour profile", 2},
      {dir / "plain.png", dir / "missing.icc", "No such file", 2},
      {dir / "gray.png", dir / "adobe.icc", "gray.png: --input-profile " + dir / "adobe.icc" + " does not fit", 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Words);
    const RunResult run = RunInkweave({"print", c.Input, "--input-profile", c.Profile, "-o", dir / "out.prn"});
    EXPECT_EQ(run.Exit, c.Exit) << run.Err;
    EXPECT_NE(run.Err.find(c.Words), std::string::npos) << run.Err;
    EXPECT_EQ(std::count(run.Err.begin(), run.Err.end(), '\n'), 1) << run.Err;
  }
  const auto files = dir.Files();
  EXPECT_EQ(std::count(files.begin(), files.end(), "out.prn"), 0);
}

TEST(InputColour, MonochromePagesAreTheLuminance) {
  // Every pixel of a monochrome page is the grey of its luminance: what Little CMS makes of the
  // colour for a grey profile with the sRGB curve, within one level. (The plug-in's own grey, from
  // 30/59/11 weights of the numbers, would print pure blue at 28 of 255 instead of 70.)
  ScratchDir dir;
  const auto picture = Patches();
  Save(picture, 3, dir / "patches.png");
  cmsToneCurve* curve = cmsBuildParametricToneCurve(
      nullptr, 4, std::array<double, 5>{2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045}.data());
  const cmsCIExyY d65 = {0.3127, 0.3290, 1.0};
  const auto expected = Transform(picture, cmsCreate_sRGBProfile(), cmsCreateGrayProfile(&d65, curve), TYPE_GRAY_8, 1);
  cmsFreeToneCurve(curve);

  std::string error;
  const auto pages = ListPages({dir / "patches.png"}, &error);
  ASSERT_TRUE(pages) << error;
  PageImage::Request request;
  request.Width = kWidth;
  request.Height = kHeight;
  request.Fit.Percent = 100.0;
  request.Dpi = 72;  // the picture's own resolution: pixels land unscaled
  request.Gray = true;
  auto image = PageImage::Open(pages->front(), request, &error);
  ASSERT_TRUE(image) << error;
  std::vector<std::uint8_t> surface(picture.size());
  ASSERT_TRUE(image->Render(0, 0, kWidth, kHeight, surface.data(), kWidth * 3)) << image->Error();
  int worst = 0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_TRUE(surface[i * 3] == surface[i * 3 + 1] && surface[i * 3] == surface[i * 3 + 2]) << "pixel " << i;
    worst = std::max(worst, std::abs(surface[i * 3] - expected[i]));
  }
  EXPECT_LE(worst, 1);
}

TEST(ImageInputs, EveryLosslessFormatPrintsTheSameStream) {
  // PNG (8- and 16-bit, with alpha), PPM (read through plain reads), TIFF (strips, LZW, tiles) and
  // lossless WebP: one picture, one stream, in portrait (rows streamed in order) and in landscape
  // (the picture decoded whole first).
  ScratchDir dir;
  const auto picture = Patches();
  Save(picture, 3, dir / "reference.png");
  StartLibvips();
  const vips::VImage reference = vips::VImage::new_from_file((dir / "reference.png").c_str());
  const std::pair<std::string, vips::VImage> variants[] = {
      {"p.ppm", reference},
      {"p.tif", reference},
      {"p-lzw.tif[compression=lzw]", reference},
      {"p-tiled.tif[tile,tile_width=32,tile_height=32]", reference},
      {"p.webp[lossless]", reference},
      {"p-alpha.png", reference.bandjoin(255)},
      {"p-16.png", (reference.cast(VIPS_FORMAT_USHORT) * 257)
                       .cast(VIPS_FORMAT_USHORT)
                       .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16))},
  };
  for (const auto& [target, image] : variants) image.write_to_file((dir / target).c_str());
  for (const std::vector<std::string>& mode : {std::vector<std::string>{}, {"--landscape"}}) {
    std::vector<std::string> args = {dir / "reference.png"};
    args.insert(args.end(), mode.begin(), mode.end());
    const auto expected = Stream(dir, args);
    for (const auto& variant : variants) {
      SCOPED_TRACE(variant.first + (mode.empty() ? "" : " landscape"));
      args[0] = Path(dir / variant.first);
      EXPECT_EQ(Stream(dir, args), expected);
    }
  }
}

}  // namespace
}  // namespace inkweave::cli::testing
