// Printing documents with the program and decoding the streams back: every page looks like its source
// (each colour's absorption compared block by block at 1/10 inch) and lands where the source puts it (the
// inked area's bounding box within one block of the source's); invocations that must print the very same
// stream (the choices' other names, standard output, every lossless picture format, a named input
// profile); and the page surfaces a picture's colour profile and monochrome make.
//
// Tolerances: the mean absorption difference per block and colour channel stays under 0.16 (of 0..1).
// Halftoning and the plug-in's colour tables move single blocks further (light tints print no dots at all,
// saturated colours print darker), so single blocks are not checked. The profiles are built here with
// Little CMS (Adobe RGB (1998) from its primaries, D65 white and gamma 563/256), and the reference
// conversions are Little CMS's own, independent of libvips.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <cstring>
#include <map>
#include <regex>
#include <vips/vips8>

#include "cli/document.h"
#include "host/papers.h"
#include "tests/cli/run.h"

namespace inkweave::cli::testing {
namespace {

using Args = std::vector<std::string>;

Args operator+(Args a, const Args& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// RGB pixels of a page surface as the command renders it. A landscape surface is turned the way the
// plug-in turns it: page row y is its column y, page column x its row (surface height - 1 - x).
struct SourcePage {
  int Width = 0, Height = 0;  // of the page, portrait
  std::vector<unsigned char> Rgb;
  bool Turned = false;
  int At(int x, int y, int c) const {
    const auto pixel = static_cast<std::size_t>(Turned ? (Width - 1 - x) * Height + y : y * Width + x);
    return Rgb[pixel * 3 + static_cast<std::size_t>(c)];
  }
};
SourcePage RenderSource(const std::string& file, int pageInFile, const std::string& paper, int dpi, bool landscape,
                        const Scale& scale) {
  StartLibvips();
  std::string error;
  auto pages = ListPages({file}, &error);
  const auto area = host::PrintableAreaOf(*host::FindPaper(paper), dpi);
  PageImage::Request request;
  request.Dpi = dpi;
  request.Width = landscape ? area.Height : area.Width;
  request.Height = landscape ? area.Width : area.Height;
  request.Fit = scale;
  request.InOrder = false;
  auto image = pages ? PageImage::Open((*pages)[static_cast<std::size_t>(pageInFile)], request, &error) : nullptr;
  EXPECT_TRUE(image) << error;
  const auto w = static_cast<int>(request.Width), h = static_cast<int>(request.Height);
  std::vector<unsigned char> surface(static_cast<std::size_t>(w) * h * 3);
  EXPECT_TRUE(image && image->Render(0, 0, w, h, surface.data(), static_cast<std::size_t>(w) * 3));
  return landscape ? SourcePage{h, w, std::move(surface), true} : SourcePage{w, h, std::move(surface), false};
}

// The source and the print over blocks of `block` source pixels (the print may be at a multiple of the
// source dpi): the mean difference of red, green and blue absorption (0..1); the bounding boxes of the
// blocks darker than 0.1 (left, top, right, bottom).
struct Comparison {
  double ChannelError = 0;
  int SourceBox[4], InkBox[4];
};
Comparison ComparePage(const SourcePage& source, const decode::PrintedPage& printed, int sourceDpi, int block) {
  const int factor = std::max(1, printed.Dpi / sourceDpi);
  const int bw = source.Width / block, bh = source.Height / block;
  const double fullInk = static_cast<double>(block) * block * factor * factor * (printed.BitsPerDot == 2 ? 3 : 1);
  Comparison result{0, {bw, bh, -1, -1}, {bw, bh, -1, -1}};
  const auto grow = [](int* box, int bx, int by) {
    box[0] = std::min(box[0], bx);
    box[1] = std::min(box[1], by);
    box[2] = std::max(box[2], bx);
    box[3] = std::max(box[3], by);
  };
  for (int by = 0; by < bh; ++by)
    for (int bx = 0; bx < bw; ++bx) {
      double light[3] = {0, 0, 0}, ink[4] = {0, 0, 0, 0};
      for (int y = by * block; y < (by + 1) * block; ++y)
        for (int x = bx * block; x < (bx + 1) * block; ++x)
          for (int c = 0; c < 3; ++c) light[c] += source.At(x, y, c) / (255.0 * block * block);
      for (int y = by * block * factor; y < (by + 1) * block * factor; ++y)
        for (int x = bx * block * factor; x < (bx + 1) * block * factor; ++x)
          for (int p = 0; p < 4; ++p) ink[p] += decode::DotAt(printed, p, x, y) / fullInk;
      double darkSource = 0, darkInk = 0;
      for (int c = 0; c < 3; ++c) {
        const double printedDark = 1 - (1 - std::min(1.0, ink[c])) * (1 - std::min(1.0, ink[3]));
        darkSource += (1 - light[c]) / 3;
        darkInk += printedDark / 3;
        result.ChannelError += std::fabs(1 - light[c] - printedDark) / 3 / (bw * bh);
      }
      if (darkSource > 0.1) grow(result.SourceBox, bx, by);
      if (darkInk > 0.1) grow(result.InkBox, bx, by);
    }
  return result;
}

// Prints with the arguments ("-o FILE" added unless they name an output); the stream.
std::vector<unsigned char> Stream(const ScratchDir& dir, const Args& args, bool quiet = true) {
  const bool named = std::find(args.begin(), args.end(), "-o") != args.end();
  const RunResult run = RunInkweave(Args{"print"} + args + (named ? Args{} : Args{"-o", dir / "job.prn"}));
  EXPECT_EQ(run.Exit, 0) << run.Err;
  // Quiet: no warning; else, not to a terminal, no progress, only the summary.
  EXPECT_TRUE(quiet ? run.Err.empty()
                    : std::regex_match(run.Err, std::regex(".*/job\\.prn: [0-9]+ pages?, [0-9]+ bytes, [0-9.]+ s\n")))
      << run.Err;
  return named ? std::vector<unsigned char>(run.Out.begin(), run.Out.end()) : ReadBytes(dir / "job.prn");
}

TEST(PrintDocuments, EveryPageLooksLikeItsSourceAndLandsWhereItPutsIt) {
  const std::string pdf = Example("testpage.pdf"), png = Example("testpage.png");
  const struct {
    Args Arguments;
    std::vector<int> Pages;  // the page of the file each printed page shows
  } kCases[] = {
      {{pdf, "--quality", "150"}, {0, 1}},  // dither
      {{pdf, "--quality", "300", "--halftone", "diffusion", "--paper", "letter", "--media", "photo", "--pages", "2"},
       {1}},
      {{png, "--landscape", "--mono", "--quality", "150", "--media", "glossy", "--band-height", "64"}, {0}},
      {{png, "--high-res", "--paper", "a5"}, {0}},
      // At 100% the 360 x 240 pixel picture (72 dpi: 5 x 3.33 in) prints 750 x 500 dots at 150 dpi.
      {{png, "--quality", "150", "--scale", "100%"}, {0}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::PrintToString(c.Arguments));
    const auto has = [&](const std::string& flag) { return std::ranges::find(c.Arguments, flag) != c.Arguments.end(); };
    const auto value = [&](const std::string& flag, const std::string& otherwise) {
      return has(flag) ? *(std::ranges::find(c.Arguments, flag) + 1) : otherwise;
    };
    const int dpi = std::stoi(value("--quality", "600"));
    ScratchDir dir;
    const auto pages = PrintStream(Stream(dir, c.Arguments, false));
    ASSERT_EQ(pages.size(), c.Pages.size());
    for (std::size_t p = 0; p < pages.size(); ++p) {
      EXPECT_EQ(pages[p].Dpi, has("--high-res") ? 1200 : dpi);
      EXPECT_EQ(pages[p].Color, !has("--mono"));
      const int block = dpi / 10;
      const Comparison compared = ComparePage(RenderSource(c.Arguments[0], c.Pages[p], value("--paper", "a4"), dpi,
                                                           has("--landscape"), has("--scale") ? Scale{100.0} : Scale{}),
                                              pages[p], dpi, block);
      EXPECT_LT(compared.ChannelError, 0.16);
      for (int i = 0; i < 4; ++i) EXPECT_NEAR(compared.InkBox[i], compared.SourceBox[i], 1) << "box side " << i;
    }
  }
}

constexpr int kWidth = 96, kHeight = 64, kPatch = 8;  // pixels
constexpr cmsCIExyY kD65 = {0.3127, 0.3290, 1.0};

// A picture of 8 x 8 pixel patches: every mix of four levels of red, green and blue, a grey ramp, and
// first the colour whose numbers differ most visibly between Adobe RGB and sRGB.
std::vector<std::uint8_t> Patches() {
  std::vector<std::array<std::uint8_t, 3>> colours = {{60, 160, 90}};
  for (std::uint8_t r : {0, 96, 176, 255})
    for (std::uint8_t g : {0, 96, 176, 255})
      for (std::uint8_t b : {0, 96, 176, 255}) colours.push_back({r, g, b});
  for (int v = 4; colours.size() < std::size_t{kWidth / kPatch * kHeight / kPatch}; v += 8)
    colours.push_back({static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v)});
  std::vector<std::uint8_t> rgb(std::size_t{kWidth} * kHeight * 3);
  for (std::size_t i = 0; i < rgb.size() / 3; ++i)
    std::memcpy(&rgb[i * 3], colours[i / kWidth / kPatch * (kWidth / kPatch) + i % kWidth / kPatch].data(), 3);
  return rgb;
}

// Writes the profile to `path` and closes it; its bytes.
std::string SaveProfile(cmsHPROFILE profile, const std::string& path) {
  cmsSaveProfileToFile(profile, path.c_str());
  cmsCloseProfile(profile);
  return inkweave::testing::ReadText(path);
}

std::string AdobeRgbProfile(const std::string& path) {
  const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
  cmsToneCurve* gamma = cmsBuildGamma(nullptr, 563.0 / 256.0);
  cmsToneCurve* curves[3] = {gamma, gamma, gamma};
  cmsHPROFILE profile = cmsCreateRGBProfile(&kD65, &primaries, curves);
  cmsFreeToneCurve(gamma);
  return SaveProfile(profile, path);
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

// Writes the patches through libvips, tagged with `profile` when one is given; `target` may carry save
// options ("x.webp[lossless]"). The file's name.
std::string Save(const std::string& target, const std::string& profile = {}) {
  StartLibvips();
  const auto pixels = Patches();
  vips::VImage image = vips::VImage::new_from_memory(const_cast<std::uint8_t*>(pixels.data()), pixels.size(), kWidth,
                                                     kHeight, 3, VIPS_FORMAT_UCHAR)
                           .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
  if (!profile.empty()) vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  image.write_to_file(target.c_str());
  return target.substr(0, target.find('['));
}

TEST(PrintDocuments, InvocationsThatPrintTheSameStream) {
  ScratchDir dir;
  const std::string png = Example("testpage.png"), adobe = AdobeRgbProfile(dir / "adobe.icc");
  const Args small = {"--quality", "150", "--paper", "a5", "-q"};
  const std::string reference = Save(dir / "reference.png");
  const std::string tagged = Save(dir / "tagged.png", adobe);
  SaveProfile(cmsCreate_sRGBProfile(), dir / "srgb.icc");
  // PNG (8- and 16-bit, with alpha), PPM (read through plain reads), TIFF (strips, LZW, tiles) and
  // lossless WebP: in portrait (rows streamed in order) and in landscape (the picture decoded whole).
  const vips::VImage image = vips::VImage::new_from_file(reference.c_str());
  const std::pair<std::string, vips::VImage> variants[] = {
      {"p.ppm", image},
      {"p.tif", image},
      {"p-lzw.tif[compression=lzw]", image},
      {"p-tiled.tif[tile,tile_width=32,tile_height=32]", image},
      {"p.webp[lossless]", image},
      {"p-alpha.png", image.bandjoin(255)},
      {"p-16.png", (image.cast(VIPS_FORMAT_USHORT) * 257)
                       .cast(VIPS_FORMAT_USHORT)
                       .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16))},
  };
  struct Case {
    Args A, B;
    bool Same = true;
  };
  std::vector<Case> cases = {
      // The PPD's and the IPP names, in any case, print what the command-line names print.
      {{png, "--paper", "dl", "--quality", "150", "--media", "photo", "-q"},
       {png, "--paper", "EnvDL", "--quality", "Draft", "--media", "Photographic", "-q"}},
      {{png, "--paper", "dl", "--quality", "150", "--media", "photo", "-q"},
       {png, "--paper", "iso_dl_110x220mm", "--quality", "150dpi", "--media", "PHOTOGRAPHIC", "-q"}},
      // Several inputs make one job, on standard output as in a file.
      {{Example("testpage.pdf"), png, "--quality", "150", "--pages", "1,3", "-q"},
       {Example("testpage.pdf"), png, "--quality", "150", "--pages", "1,3", "-q", "-o", "-"}},
      // A picture's profile is used (libvips reads it in every format); a named profile makes untagged
      // numbers print as the tagged picture, and wins over the picture's own.
      {Args{tagged} + small, Args{reference, "--input-profile", dir / "adobe.icc"} + small},
      {Args{tagged} + small, Args{tagged, "--input-profile", dir / "srgb.icc"} + small, false},
  };
  for (const auto& [target, variant] : variants) {
    variant.write_to_file((dir / target).c_str());
    const std::string file = dir / target.substr(0, target.find('['));
    cases.push_back({Args{reference} + small, Args{file} + small});
    cases.push_back({Args{reference, "--landscape"} + small, Args{file, "--landscape"} + small});
  }
  std::map<Args, std::vector<unsigned char>> printed;
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.B));
    if (!printed.count(c.A)) printed[c.A] = Stream(dir, c.A);
    ASSERT_FALSE(printed[c.A].empty());
    EXPECT_EQ(Stream(dir, c.B) == printed[c.A], c.Same);
  }
}

// The surface a page is rendered to: Adobe RGB numbers tagged with their profile become what Little CMS
// makes of them in sRGB, and a monochrome page is the grey of each pixel's luminance (what Little CMS
// makes of the colour for a grey profile with the sRGB curve; the plug-in's own grey, from 30/59/11
// weights of the numbers, would print pure blue at 28 of 255 instead of 70), each within one level.
TEST(InputColour, SurfacesAreTheirColoursInSrgbOrTheLuminance) {
  ScratchDir dir;
  const std::string adobe = AdobeRgbProfile(dir / "adobe.icc");
  const auto picture = Patches();
  cmsToneCurve* curve = cmsBuildParametricToneCurve(
      nullptr, 4, std::array<double, 5>{2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045}.data());
  const struct {
    std::string File;
    bool Gray;
    std::vector<std::uint8_t> Expected;
  } kCases[] = {
      {Save(dir / "tagged.png", adobe), false,
       Transform(picture, cmsOpenProfileFromFile((dir / "adobe.icc").c_str(), "r"), cmsCreate_sRGBProfile(), TYPE_RGB_8,
                 3)},
      {Save(dir / "patches.png"), true,
       Transform(picture, cmsCreate_sRGBProfile(), cmsCreateGrayProfile(&kD65, curve), TYPE_GRAY_8, 1)},
  };
  cmsFreeToneCurve(curve);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.File);
    std::string error;
    const auto pages = ListPages({c.File}, &error);
    ASSERT_TRUE(pages) << error;
    PageImage::Request request;
    request.Width = kWidth;
    request.Height = kHeight;
    request.Fit.Percent = 100.0;
    request.Dpi = 72;  // the picture's own resolution: pixels land unscaled
    request.Gray = c.Gray;
    auto image = PageImage::Open(pages->front(), request, &error);
    ASSERT_TRUE(image) << error;
    std::vector<std::uint8_t> surface(picture.size());
    ASSERT_TRUE(image->Render(0, 0, kWidth, kHeight, surface.data(), kWidth * 3)) << image->Error();
    const std::size_t channels = c.Gray ? 1 : 3;
    int worst = 0;
    for (std::size_t i = 0; i < surface.size(); ++i)
      worst = std::max(worst, std::abs(surface[i] - c.Expected[i / 3 * channels + i % 3 % channels]));
    EXPECT_LE(worst, 1);
  }
}

}  // namespace
}  // namespace inkweave::cli::testing
