#include "cli/pdf_page.h"

#include <cairo.h>
#include <fcntl.h>
#include <poppler.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace inkweave::cli {

struct PdfPage::Handles {
  PopplerDocument* Document = nullptr;
  PopplerPage* Page = nullptr;
  ~Handles() {
    if (Page) g_object_unref(Page);
    if (Document) g_object_unref(Document);
  }
};

PdfPage::~PdfPage() = default;

namespace {

// The document, or null with the reason in *error.
PopplerDocument* OpenDocument(const std::string& file, std::string* error) {
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (error) *error = std::strerror(errno);
    return nullptr;
  }
  GError* gerror = nullptr;
  PopplerDocument* document = poppler_document_new_from_fd(fd, nullptr, &gerror);  // owns fd from here
  if (!document) {
    if (error) *error = gerror && gerror->message ? gerror->message : "not a readable PDF";
    if (gerror) g_error_free(gerror);
  }
  return document;
}

}  // namespace

int PdfPage::CountPages(const std::string& file, std::string* error) {
  PopplerDocument* document = OpenDocument(file, error);
  if (!document) return -1;
  const int pages = poppler_document_get_n_pages(document);
  g_object_unref(document);
  return pages;
}

std::unique_ptr<PdfPage> PdfPage::Open(const std::string& file, int index, double scale, std::string* error) {
  auto fail = [&](const std::string& why) -> std::unique_ptr<PdfPage> {
    if (error) *error = why;
    return nullptr;
  };
  std::unique_ptr<PdfPage> page(new PdfPage);
  page->handles_ = std::make_unique<Handles>();
  std::string why;
  page->handles_->Document = OpenDocument(file, &why);
  if (!page->handles_->Document) return fail(why);
  const int pages = poppler_document_get_n_pages(page->handles_->Document);
  if (index < 0 || index >= pages) return fail("the PDF has no page " + std::to_string(index + 1));
  page->handles_->Page = poppler_document_get_page(page->handles_->Document, index);
  if (!page->handles_->Page) return fail("cannot read page " + std::to_string(index + 1));
  if (!page->SetScale(scale, error)) return nullptr;
  return page;
}

bool PdfPage::SetScale(double scale, std::string* error) {
  auto fail = [&](const char* why) {
    if (error) *error = why;
    return false;
  };
  if (!(scale > 0) || !std::isfinite(scale)) return fail("the page scale is out of range");
  double width = 0, height = 0;
  poppler_page_get_size(handles_->Page, &width, &height);
  const double w = std::rint(width * scale), h = std::rint(height * scale);
  if (!(w >= 1) || !(h >= 1)) return fail("the page is empty");
  if (w > INT32_MAX || h > INT32_MAX) return fail("the page is too large");
  scale_ = scale;
  width_ = static_cast<std::int64_t>(w);
  height_ = static_cast<std::int64_t>(h);
  strip_ = {};
  return true;
}

bool PdfPage::RenderStrip(const Strip& strip, std::string* error) {
  const std::int32_t x = strip.X, y = strip.Y, w = strip.W, h = strip.H;
  strip_ = {};
  // Opaque white under the page, as premultiplied ARGB: poppler does not paint the background itself,
  // and over an opaque ground every pixel stays opaque, so the colour channels are the final RGB.
  const std::size_t count = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
  pixels_.Hold(count * sizeof(std::uint32_t));
  std::fill_n(Pixels(), count, 0xFFFFFFFFu);
  // libvips' loader rendered a page in tiles of 4000 x 4000 pixels, each on a surface whose origin is
  // the tile's corner. Where the strip crosses tiles it is rendered a piece per tile, with the tile's
  // transform and the piece's place in the tile as the surface's device offset, so that every path
  // lands on the same pixels as before: a page of text and graphics comes out byte for byte as it did
  // through libvips, whatever the strips. (Images in a PDF can differ by a level or two: cairo splits
  // an image's transform about the centre of the area drawn, which is now a strip, not a tile.)
  constexpr std::int32_t kTile = 4000;
  for (std::int32_t tileTop = y / kTile * kTile; tileTop < y + h; tileTop += kTile) {
    for (std::int32_t tileLeft = x / kTile * kTile; tileLeft < x + w; tileLeft += kTile) {
      const std::int32_t left = std::max(x, tileLeft), top = std::max(y, tileTop);
      const std::int32_t right = std::min(x + w, tileLeft + kTile), bottom = std::min(y + h, tileTop + kTile);
      std::uint32_t* corner = Pixels() + static_cast<std::size_t>(top - y) * static_cast<std::size_t>(w) +
                              static_cast<std::size_t>(left - x);
      cairo_surface_t* surface = cairo_image_surface_create_for_data(
          reinterpret_cast<unsigned char*>(corner), CAIRO_FORMAT_ARGB32, right - left, bottom - top, w * 4);
      cairo_surface_set_device_offset(surface, tileLeft - left, tileTop - top);
      cairo_t* cr = cairo_create(surface);
      cairo_surface_destroy(surface);
      if (cairo_status(cr) != CAIRO_STATUS_SUCCESS) {
        if (error) *error = std::string("cannot render the page: ") + cairo_status_to_string(cairo_status(cr));
        cairo_destroy(cr);
        return false;
      }
      // Page units, the origin moved to the tile's corner, drawing clipped to the piece.
      cairo_rectangle(cr, left - tileLeft, top - tileTop, right - left, bottom - top);
      cairo_clip(cr);
      cairo_scale(cr, scale_, scale_);
      cairo_translate(cr, (0.0 - tileLeft) / scale_, (0.0 - tileTop) / scale_);
      poppler_page_render(handles_->Page, cr);
      cairo_destroy(cr);
    }
  }
  strip_ = strip;
  return true;
}

bool PdfPage::Render(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                     std::size_t stride, std::string* error) {
  if (w < 1 || h < 1) return true;
  const bool inStrip = x >= strip_.X && y >= strip_.Y && x + w <= strip_.X + strip_.W && y + h <= strip_.Y + strip_.H;
  if (!inStrip) {
    // A new strip from this rectangle on, as many of its heights (its widths, for a rectangle the
    // page's height) long as the strip's pixels allow, up to the page's edge.
    const std::int64_t pageWidth = width_, pageHeight = height_;
    Strip strip{x, y, w, h};
    const bool across = h == pageHeight && w < pageWidth;
    const std::int64_t side = across ? h : w, step = across ? w : h;
    const std::int64_t steps = std::max<std::int64_t>(1, static_cast<std::int64_t>(kStripBytes / 4) / (side * step));
    if (across)
      strip.W = static_cast<std::int32_t>(std::min(steps * step, pageWidth - x));
    else
      strip.H = static_cast<std::int32_t>(std::min(steps * step, pageHeight - y));
    if (!RenderStrip(strip, error)) return false;
  }

  for (std::int32_t row = 0; row < h; ++row) {
    const std::uint32_t* in = Pixels() + static_cast<std::size_t>(y - strip_.Y + row) * strip_.W + (x - strip_.X);
    std::uint8_t* out = dst + stride * static_cast<std::size_t>(row);
    for (std::int32_t col = 0; col < w; ++col, out += 3) {
      const std::uint32_t argb = in[col];
      out[0] = static_cast<std::uint8_t>(argb >> 16);
      out[1] = static_cast<std::uint8_t>(argb >> 8);
      out[2] = static_cast<std::uint8_t>(argb);
    }
  }
  return true;
}

bool PdfPage::RenderOnSurface(std::int64_t left, std::int64_t top, std::int32_t x, std::int32_t y, std::int32_t w,
                              std::int32_t h, std::uint8_t* dst, std::size_t stride, std::string* error) {
  // The part of the rectangle the page covers, in surface pixels; white around it.
  const std::int64_t coverLeft = std::max<std::int64_t>(x, left);
  const std::int64_t coverTop = std::max<std::int64_t>(y, top);
  const std::int64_t coverRight = std::min<std::int64_t>(std::int64_t{x} + w, left + width_);
  const std::int64_t coverBottom = std::min<std::int64_t>(std::int64_t{y} + h, top + height_);
  const bool covered = coverLeft < coverRight && coverTop < coverBottom;
  const std::size_t rowBytes = static_cast<std::size_t>(w) * 3;
  for (std::int32_t row = 0; row < h; ++row) {
    std::uint8_t* line = dst + stride * static_cast<std::size_t>(row);
    if (!covered || y + row < coverTop || y + row >= coverBottom) {
      std::memset(line, 0xFF, rowBytes);
      continue;
    }
    const std::size_t before = static_cast<std::size_t>(coverLeft - x) * 3;
    const std::size_t after = static_cast<std::size_t>(coverRight - x) * 3;
    std::memset(line, 0xFF, before);
    std::memset(line + after, 0xFF, rowBytes - after);
  }
  if (!covered) return true;
  std::uint8_t* at =
      dst + stride * static_cast<std::size_t>(coverTop - y) + static_cast<std::size_t>(coverLeft - x) * 3;
  return Render(static_cast<std::int32_t>(coverLeft - left), static_cast<std::int32_t>(coverTop - top),
                static_cast<std::int32_t>(coverRight - coverLeft), static_cast<std::int32_t>(coverBottom - coverTop),
                at, stride, error);
}

}  // namespace inkweave::cli
