#include "cli/document.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <lcms2.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vips/vips8>

#include "cli/pdf_page.h"

namespace inkweave::cli {
namespace {

// Formats we accept, by libvips loader: documents and the common raster formats, not the catch-all
// or raw ones.
struct Format {
  const char* Loader;  // libvips loader nickname
  const char* Name;    // as users know it
};
constexpr Format kFormats[] = {{"pdfload", "PDF"},        {"svgload", "SVG"},    {"pngload", "PNG"},
                               {"jpegload", "JPEG"},      {"tiffload", "TIFF"},  {"webpload", "WebP"},
                               {"ppmload", "PNM"},        {"gifload", "GIF"},    {"heifload", "HEIF"},
                               {"jp2kload", "JPEG 2000"}, {"jxlload", "JPEG XL"}};

const Format* FindFormat(const std::string& loader) {
  for (const Format& f : kFormats)
    if (loader == f.Loader) return &f;
  return nullptr;
}

// The leading bytes of the formats whose loader refuses a file it cannot parse as "not a known
// format" (a TIFF cut before its directory, for one): such a file is a damaged one of that format.
struct Signature {
  const char* Loader;
  std::size_t Offset;  // bytes
  std::string_view Bytes;
};
using std::string_view_literals::operator""sv;
constexpr Signature kSignatures[] = {{"pngload", 0, "\x89PNG\r\n\x1a\n"sv},
                                     {"jpegload", 0, "\xff\xd8\xff"sv},
                                     {"tiffload", 0, "II*\0"sv},
                                     {"tiffload", 0, "MM\0*"sv},
                                     {"webpload", 8, "WEBP"sv},
                                     {"gifload", 0, "GIF8"sv},
                                     {"pdfload", 0, "%PDF-"sv}};

std::string SniffLoader(const std::string& file) {
  char head[16] = {};
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  const ssize_t n = read(fd, head, sizeof head);
  close(fd);
  const std::string_view bytes(head, n > 0 ? static_cast<std::size_t>(n) : 0);
  for (const Signature& s : kSignatures)
    if (bytes.size() >= s.Offset + s.Bytes.size() && bytes.substr(s.Offset, s.Bytes.size()) == s.Bytes) return s.Loader;
  return {};
}

// Why a file of a known format could not be decoded, from libvips' error buffer (less the file name
// that some readers put first; the message names the file already).
std::string Damaged(const std::string& file, const std::string& loader) {
  std::string why = vips_error_buffer()[0] ? TakeVipsError() : "the file is cut short or corrupt";
  if (why.rfind(file + ": ", 0) == 0) why.erase(0, file.size() + 2);
  const Format* format = FindFormat(loader);
  return std::string("damaged ") + (format ? format->Name : "file") + ": " + why;
}

// The loader named, not the one libvips would guess: a damaged file is still read as what it is.
vips::VImage Load(const std::string& file, const std::string& loader, vips::VOption* options) {
  vips::VImage out;
  vips::VImage::call(loader.c_str(), options->set("filename", file.c_str())->set("out", &out));
  return out;
}

bool IsDocument(const std::string& loader) { return loader == "pdfload" || loader == "svgload"; }
bool IsMultiPage(const std::string& loader) { return loader == "pdfload" || loader == "tiffload"; }

// Rows computed per libvips region request; see PageImage::Render.
constexpr std::int32_t kRowsPerRegion = 32;

// Raster files that state no resolution come out of libvips at 1 pixel/mm; below 50 dpi we take 72.
constexpr double kDefaultPixelsPerMm = 72.0 / 25.4;
double PixelsPerMm(const vips::VImage& image) {
  const double xres = image.xres();
  return xres >= 50.0 / 25.4 ? xres : kDefaultPixelsPerMm;
}

// Poppler reports problems of a broken PDF on stderr by itself; we report them in one line of our own.
class QuietStderr {
 public:
  QuietStderr() {
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    if (saved_ >= 0 && null >= 0) dup2(null, STDERR_FILENO);
    if (null >= 0) close(null);
  }
  ~QuietStderr() {
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
    }
  }
  QuietStderr(const QuietStderr&) = delete;
  QuietStderr& operator=(const QuietStderr&) = delete;

 private:
  int saved_ = -1;
};

bool StartsWithPdfHeader(const std::string& file) {
  char head[4] = {};
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool pdf = read(fd, head, sizeof head) == sizeof head && std::memcmp(head, "%PDF", sizeof head) == 0;
  close(fd);
  return pdf;
}

vips::VOption* LoadOptions(const InputPage& page, bool sequential) {
  vips::VOption* options = vips::VImage::option();
  if (IsMultiPage(page.Loader)) options->set("page", page.Page);
  if (!IsDocument(page.Loader)) {
    options->set("access", sequential ? VIPS_ACCESS_SEQUENTIAL : VIPS_ACCESS_RANDOM);
    options->set("fail_on", VIPS_FAIL_ON_ERROR);
  }
  return options;
}

// An input profile that does not fit the picture (an RGB profile for a grey scan, say).
struct ProfileMismatch {
  std::string Why;
};

// Into sRGB through the picture's colour profile: the one the user named, else the one the file
// carries; a picture without one is taken as sRGB. Relative colorimetric with black-point
// compensation, as photo editors default to; a profile made of primaries and curves has no other.
vips::VImage ToSrgb(vips::VImage image, const std::string& file, const std::string& inputProfile) {
  auto options = [] {
    return vips::VImage::option()->set("intent", VIPS_INTENT_RELATIVE)->set("black_point_compensation", true);
  };
  if (!inputProfile.empty()) {
    try {
      return image.icc_transform("srgb", options()->set("embedded", false)->set("input_profile", inputProfile.c_str()));
    } catch (const vips::VError&) {
      throw ProfileMismatch{"--input-profile " + inputProfile + " does not fit the picture (" + TakeVipsError() + ")"};
    }
  }
  if (image.get_typeof(VIPS_META_ICC_NAME) == 0) return image.colourspace(VIPS_INTERPRETATION_sRGB);
  try {
    return image.icc_transform("srgb", options()->set("embedded", true));
  } catch (const vips::VError&) {
    // Viewers show such a picture with its numbers as they stand; so do we, and say so.
    std::fprintf(stderr, "inkweave: %s: warning: its colour profile cannot be used (%s); colours taken as sRGB\n",
                 file.c_str(), TakeVipsError().c_str());
    return image.colourspace(VIPS_INTERPRETATION_sRGB);
  }
}

// Any input to 8-bit sRGB, three bands, transparency flattened on white paper.
vips::VImage ToPaperRgb(vips::VImage image, const std::string& file, const std::string& inputProfile) {
  image = ToSrgb(std::move(image), file, inputProfile).colourspace(VIPS_INTERPRETATION_sRGB);
  if (image.has_alpha()) {
    const double white = image.format() == VIPS_FORMAT_USHORT ? 65535.0 : 255.0;
    image = image.flatten(vips::VImage::option()->set("background", std::vector<double>(image.bands() - 1, white)));
  }
  if (image.format() == VIPS_FORMAT_USHORT) image = image / 257.0;
  if (image.format() != VIPS_FORMAT_UCHAR) image = image.cast(VIPS_FORMAT_UCHAR);
  if (image.bands() > 3) image = image.extract_band(0, vips::VImage::option()->set("n", 3));
  return image;
}

// sRGB pixels to the grey of their luminance, in place: CIE Y as ICC colour management measures it
// (the sRGB primaries adapted to the D50 white), encoded with the sRGB curve again. The grey thus has
// the colour's CIELAB lightness, and R = G = B, which the plug-in's own grey formula passes unchanged.
class LuminanceGray {
 public:
  LuminanceGray() {
    auto decode = [](double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); };
    auto encode = [](double y) { return y <= 0.0031308 ? 12.92 * y : 1.055 * std::pow(y, 1 / 2.4) - 0.055; };
    for (int v = 0; v < 256; ++v) linear_[v] = static_cast<std::uint16_t>(std::lround(decode(v / 255.0) * kOne));
    for (std::size_t y = 0; y < encoded_.size(); ++y)
      encoded_[y] = static_cast<std::uint8_t>(std::lround(255 * encode(static_cast<double>(y) / kOne)));
  }
  void Apply(std::uint8_t* rgb, std::size_t pixels) const {
    for (std::size_t i = 0; i < pixels; ++i, rgb += 3) {
      // Y of the D50-adapted sRGB primaries (0.2225, 0.7169, 0.0606) in 1/65536, summing to 65536.
      const std::uint32_t y = (14581u * linear_[rgb[0]] + 46983u * linear_[rgb[1]] + 3972u * linear_[rgb[2]]) >> 16;
      rgb[0] = rgb[1] = rgb[2] = encoded_[y];
    }
  }

 private:
  static constexpr int kOne = 65535;  // linear light of white
  std::array<std::uint16_t, 256> linear_{};
  std::array<std::uint8_t, kOne + 1> encoded_{};
};

// A file read through plain read() calls: libvips maps a binary PPM whole into memory when it is
// given the file itself, and the mapped pages it has read count against the process while the
// page prints. Through a source that cannot be mapped it reads the file a few rows at a time.
struct FileSource {
  int Fd = -1;
  static gint64 Read(VipsSourceCustom*, void* buffer, gint64 length, gpointer self) {
    const ssize_t n = read(static_cast<FileSource*>(self)->Fd, buffer, static_cast<std::size_t>(length));
    return n;
  }
  static gint64 Seek(VipsSourceCustom*, gint64 offset, int whence, gpointer self) {
    return lseek(static_cast<FileSource*>(self)->Fd, offset, whence);
  }
  static void Close(gpointer self, GClosure*) {
    auto* source = static_cast<FileSource*>(self);
    if (source->Fd >= 0) close(source->Fd);
    delete source;
  }
};

vips::VImage LoadUnmapped(const std::string& file, vips::VOption* options) {
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    delete options;
    throw vips::VError(std::strerror(errno));
  }
  VipsSourceCustom* custom = vips_source_custom_new();
  auto* self = new FileSource{fd};
  g_signal_connect_data(custom, "read", G_CALLBACK(FileSource::Read), self, FileSource::Close, GConnectFlags{});
  g_signal_connect(custom, "seek", G_CALLBACK(FileSource::Seek), self);
  vips::VSource source(VIPS_SOURCE(custom), vips::STEAL);
  return vips::VImage::new_from_source(source, "", options);
}

}  // namespace

namespace {
std::string gProgram = "inkweave";  // argv[0], for libvips
std::atomic<bool> gVipsStarted = false;
}  // namespace

VipsRuntime::VipsRuntime(const char* argv0) {
  if (argv0) gProgram = argv0;
  ok_ = true;
}

VipsRuntime::~VipsRuntime() {
  if (gVipsStarted) vips_shutdown();
}

bool StartVips() {
  static const bool started = [] {
    // A page read out of order (landscape bands are columns of the picture) needs the whole picture
    // decoded first; above this size it goes to a temporary file, which is deleted when closed, rather
    // than into memory. The user's own setting wins.
    setenv("VIPS_DISC_THRESHOLD", "16m", 0);
    if (VIPS_INIT(gProgram.c_str()) != 0) return false;
    vips_concurrency_set(1);  // regions are computed on the calling thread anyway
    vips_cache_set_max(0);    // nothing is computed twice, so keep nothing
    // Pixel buffers of more than a few rows go back to the system when freed: left to itself, glibc
    // raises its threshold after the first large free and keeps later buffers on a heap that only grows
    // (some 6 MiB more at the peak of a 600 dpi scan; the price is about 0.4 s of system time a page).
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // libvips warns on stderr about what then fails; the failure is reported once, in one line.
    g_log_set_handler(
        "VIPS", G_LOG_LEVEL_WARNING, [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    gVipsStarted = true;
    return true;
  }();
  return started;
}

std::string TakeVipsError() {
  std::string text = vips_error_buffer();
  vips_error_clear();
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  // The last line is usually the cause; earlier lines repeat the operation names.
  if (const std::size_t nl = text.find('\n'); nl != std::string::npos) text = text.substr(0, nl);
  return text.empty() ? "unknown libvips error" : text;
}

std::optional<std::string> CheckInputProfile(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return std::string(std::strerror(errno));
  if (S_ISDIR(st.st_mode)) return std::string("is a directory");
  cmsHPROFILE profile = cmsOpenProfileFromFile(path.c_str(), "r");
  if (!profile) return std::string("not an ICC colour profile");
  const cmsColorSpaceSignature space = cmsGetColorSpace(profile);
  const bool input = cmsIsIntentSupported(profile, INTENT_RELATIVE_COLORIMETRIC, LCMS_USED_AS_INPUT) != 0;
  const cmsProfileClassSignature kind = cmsGetDeviceClass(profile);
  cmsCloseProfile(profile);
  if (space != cmsSigRgbData && space != cmsSigGrayData && space != cmsSigCmykData)
    return std::string("not a profile of RGB, grey or CMYK pictures");
  if (!input || kind == cmsSigLinkClass || kind == cmsSigAbstractClass)
    return std::string("a profile that cannot describe input pictures");
  return std::nullopt;
}

std::optional<std::vector<InputPage>> ListPages(const std::vector<std::string>& files, std::string* error) {
  std::vector<InputPage> pages;
  for (const std::string& file : files) {
    auto fail = [&](const std::string& why) -> std::optional<std::vector<InputPage>> {
      if (error) *error = file + ": " + why;
      return std::nullopt;
    };
    struct stat st {};
    if (stat(file.c_str(), &st) != 0) return fail(std::strerror(errno));
    if (S_ISDIR(st.st_mode)) return fail("is a directory");
    if (access(file.c_str(), R_OK) != 0) return fail(std::strerror(errno));
    if (st.st_size == 0) return fail("the file is empty");

    // A PDF goes to poppler without libvips (told as libvips' loader tells it, by its first bytes).
    std::string loader;
    if (StartsWithPdfHeader(file)) {
      loader = "pdfload";
    } else if (!StartVips()) {
      return fail("cannot start libvips: " + TakeVipsError());
    } else if (const char* type = vips_foreign_find_load(file.c_str())) {
      const char* nick = vips_nickname_find(g_type_from_name(type));
      loader = nick ? nick : "";
    }
    if (loader != "pdfload") vips_error_clear();
    if (!FindFormat(loader)) loader = SniffLoader(file);
    if (!FindFormat(loader)) return fail("not a format inkweave can read (PDF, PNG, JPEG, TIFF, WebP, SVG, PNM, GIF)");

    int count = 1;
    if (loader == "pdfload") {
      // Counted by poppler: libvips reports a document of 10,000 pages or more as one page.
      std::string why;
      count = PdfPage::CountPages(file, &why);
      if (count < 0) return fail("cannot read it: " + why);
      if (count < 1) return fail("the PDF has no pages");
      for (int i = 0; i < count; ++i) pages.push_back({file, loader, i, count});
      continue;
    }
    try {
      QuietStderr quiet;
      vips::VImage header = Load(file, loader, vips::VImage::option());
      if (header.width() < 1 || header.height() < 1) return fail("the image is empty");
      if (IsMultiPage(loader)) count = vips_image_get_n_pages(header.get_image());
    } catch (const vips::VError&) {
      return fail(Damaged(file, loader));
    }
    if (count < 1) return fail("the document has no pages");
    for (int i = 0; i < count; ++i) pages.push_back({file, loader, i, count});
  }
  return pages;
}

struct PageImage::State {
  // A PDF page is rendered by poppler a band at a time, placed at (Left, Top) of the surface, which is
  // white elsewhere; every other input is a libvips pipeline read a region at a time.
  std::string File, Loader;
  std::unique_ptr<PdfPage> Pdf;
  std::int64_t Left = 0, Top = 0, Width = 0, Height = 0;
  vips::VImage Image;
  VipsRegion* Region = nullptr;
  ~State() {
    if (Region) g_object_unref(Region);
  }
};

PageImage::PageImage(std::unique_ptr<State> state) : state_(std::move(state)) {}
PageImage::~PageImage() = default;

std::unique_ptr<PageImage> PageImage::Open(const InputPage& page, const Request& request, std::string* error) {
  if (page.Loader == "pdfload") return OpenPdf(page, request, error);
  auto state = std::make_unique<State>();
  state->File = page.File;
  state->Loader = page.Loader;
  Placement placement;
  try {
    QuietStderr quiet;
    // The page's natural size in device dots decides the placement.
    vips::VImage header = Load(page.File, page.Loader, LoadOptions(page, false));
    const double perMm = PixelsPerMm(header);
    const double dotsPerPixel = request.Dpi / 25.4 / perMm;
    placement = PlacePage(header.width() * dotsPerPixel, header.height() * dotsPerPixel, request.Width, request.Height,
                          request.Fit);

    vips::VImage image;
    if (IsDocument(page.Loader)) {
      // Documents are rendered at the final scale (an SVG pixel is 1/72 in at scale 1).
      const double scale = placement.Factor * dotsPerPixel;
      image = Load(page.File, page.Loader, LoadOptions(page, false)->set("scale", scale));
      image = ToPaperRgb(image, page.File, "");
    } else {
      vips::VOption* options = LoadOptions(page, request.InOrder);
      image = ToPaperRgb(
          page.Loader == "ppmload" ? LoadUnmapped(page.File, options) : Load(page.File, page.Loader, options),
          page.File, request.InputProfile);
      const double h = static_cast<double>(placement.Width) / image.width();
      const double v = static_cast<double>(placement.Height) / image.height();
      if (h != 1.0 || v != 1.0) image = image.resize(h, vips::VImage::option()->set("vscale", v));
    }
    image =
        image.embed(static_cast<int>(placement.Left), static_cast<int>(placement.Top), static_cast<int>(request.Width),
                    static_cast<int>(request.Height), vips::VImage::option()->set("extend", VIPS_EXTEND_WHITE));
    state->Image = image;
    state->Region = vips_region_new(state->Image.get_image());
    if (!state->Region) throw vips::VError(TakeVipsError());
  } catch (const vips::VError&) {
    if (error) *error = page.File + ": " + Damaged(page.File, page.Loader);
    return nullptr;
  } catch (const ProfileMismatch& mismatch) {
    if (error) *error = page.File + ": " + mismatch.Why;
    return nullptr;
  }
  std::unique_ptr<PageImage> result(new PageImage(std::move(state)));
  result->placement_ = placement;
  result->gray_ = request.Gray;
  return result;
}

std::unique_ptr<PageImage> PageImage::OpenPdf(const InputPage& page, const Request& request, std::string* error) {
  // The page's natural size is its size in points, rounded to whole points as libvips' loader sized
  // it, at 72 points to the inch (in the same steps as for any input: dots per mm over pixels per mm).
  std::string why;
  auto pdf = PdfPage::Open(page.File, page.Page, 1.0, &why);
  if (!pdf) {
    if (error) *error = page.File + ": cannot read it: " + why;
    return nullptr;
  }
  const double dotsPerPixel = request.Dpi / 25.4 / (72.0 / 25.4);
  const Placement placement =
      PlacePage(static_cast<double>(pdf->Width()) * dotsPerPixel, static_cast<double>(pdf->Height()) * dotsPerPixel,
                request.Width, request.Height, request.Fit);
  if (!pdf->SetScale(placement.Factor * dotsPerPixel, &why)) {
    if (error) *error = page.File + ": cannot read it: " + why;
    return nullptr;
  }
  auto state = std::make_unique<State>();
  state->Pdf = std::move(pdf);
  state->Left = placement.Left;
  state->Top = placement.Top;
  state->Width = request.Width;
  state->Height = request.Height;
  std::unique_ptr<PageImage> result(new PageImage(std::move(state)));
  result->placement_ = placement;
  result->gray_ = request.Gray;
  return result;
}

bool PageImage::Render(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                       std::size_t stride) {
  if (!Fill(x, y, w, h, dst, stride)) return false;
  if (gray_) {
    static const LuminanceGray luminance;
    for (std::int32_t row = 0; row < h; ++row)
      luminance.Apply(dst + stride * static_cast<std::size_t>(row), static_cast<std::size_t>(w));
  }
  return true;
}

bool PageImage::Fill(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                     std::size_t stride) {
  if (state_->Pdf) return RenderPdf(x, y, w, h, dst, stride);
  // A few rows at a time: every operation of the pipeline keeps a buffer as tall as the rows asked
  // of it, in its own format (RGBA, float after the colour transform), at the width of the source.
  const std::size_t rowBytes = static_cast<std::size_t>(w) * 3;
  for (std::int32_t top = 0; top < h; top += kRowsPerRegion) {
    const std::int32_t rows = std::min(kRowsPerRegion, h - top);
    VipsRect rect{x, y + top, w, rows};
    if (vips_region_prepare(state_->Region, &rect) != 0) {
      error_ = Damaged(state_->File, state_->Loader);
      return false;
    }
    for (std::int32_t row = 0; row < rows; ++row)
      std::memcpy(dst + stride * static_cast<std::size_t>(top + row),
                  VIPS_REGION_ADDR(state_->Region, x, y + top + row), rowBytes);
  }
  return true;
}

bool PageImage::RenderPdf(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                          std::size_t stride) {
  return state_->Pdf->RenderOnSurface(state_->Left, state_->Top, x, y, w, h, dst, stride, &error_);
}

}  // namespace inkweave::cli
