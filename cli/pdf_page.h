// One PDF page rendered with poppler (cairo) in strips. Every poppler render walks the whole page, so
// the page is rendered a strip at a time, each strip several bands high (as many as kStripBytes of
// pixels hold), and the bands are cut from the strip: a band never costs a render of the page of its
// own unless it is taller than a strip. A strip runs along the way the bands go: rows down the page
// for bands across it, columns across it for bands the page's height (landscape).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/large_buffer.h"

namespace inkweave::cli {

class PdfPage {
 public:
  // Page `index` (from 0) of the file, at `scale` device pixels per PDF point. Null with the reason
  // in *error when the file cannot be opened as a PDF or has no such page.
  static std::unique_ptr<PdfPage> Open(const std::string& file, int index, double scale, std::string* error);
  // The number of pages of the file; -1 with the reason in *error when it cannot be opened as a PDF.
  static int CountPages(const std::string& file, std::string* error);
  ~PdfPage();
  PdfPage(const PdfPage&) = delete;
  PdfPage& operator=(const PdfPage&) = delete;

  // Another scale for the page (its size in pixels follows). False with the reason in *error when the
  // page would be empty or too large at that scale.
  bool SetScale(double scale, std::string* error);

  // The page in pixels: its size in points times the scale, rounded to nearest (as libvips sizes it).
  std::int64_t Width() const { return width_; }
  std::int64_t Height() const { return height_; }

  // The pixels of one strip at most (cairo's ARGB, 4 bytes a pixel).
  static constexpr std::size_t kStripBytes = std::size_t{8} << 20;

  // Renders the rectangle (page pixels, inside the page) on white into dst as R, G, B bytes, one row
  // every stride bytes: from the strip that holds it, rendering that strip first when it is not the
  // last one rendered. False with the reason in *error when cairo cannot make the surface.
  bool Render(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride,
              std::string* error);
  // Renders the rectangle (x, y, w, h) of a surface on which the page lies with its top-left corner at
  // (left, top): the page where it covers the rectangle, white elsewhere.
  bool RenderOnSurface(std::int64_t left, std::int64_t top, std::int32_t x, std::int32_t y, std::int32_t w,
                       std::int32_t h, std::uint8_t* dst, std::size_t stride, std::string* error);

 private:
  PdfPage() = default;
  struct Handles;
  std::unique_ptr<Handles> handles_;
  double scale_ = 1.0;
  std::int64_t width_ = 0;
  std::int64_t height_ = 0;
  // The strip last rendered, page pixels, and its pixels (cairo ARGB32, rows strip_.W pixels long).
  struct Strip {
    std::int32_t X = 0, Y = 0, W = 0, H = 0;
  } strip_;
  host::LargeBuffer pixels_;
  std::uint32_t* Pixels() const { return reinterpret_cast<std::uint32_t*>(pixels_.Data()); }
  bool RenderStrip(const Strip& strip, std::string* error);
};

}  // namespace inkweave::cli
