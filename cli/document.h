// The user's documents through libvips: which pages each input holds, and each page as a lazy
// pipeline (load, sRGB, flatten on white, scale, centre in the printable area) whose pixels are
// computed only for the rectangle a band asks for. A whole 600 dpi page is never held in memory.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/options.h"

namespace inkweave::cli {

// libvips for the program: started the first time an input or a picture needs it (StartVips;
// single-threaded, no operation cache), shut down at the end. A job of PDFs never starts it, which
// saves its start (loading its modules) on every such run.
class VipsRuntime {
 public:
  explicit VipsRuntime(const char* argv0);
  ~VipsRuntime();
  VipsRuntime(const VipsRuntime&) = delete;
  VipsRuntime& operator=(const VipsRuntime&) = delete;
  bool Ok() const { return ok_; }

 private:
  bool ok_ = false;
};
bool StartVips();  // false when libvips cannot start (TakeVipsError says why)

// One page of one input file.
struct InputPage {
  std::string File;
  std::string Loader;  // libvips loader nickname, e.g. "pdfload"
  int Page = 0;        // within the file, from 0
  int PagesInFile = 1;
};

// Every page of every input, in order. Null with a one-line *error naming the file and the problem
// when an input is missing, unreadable, in a format we cannot read or holds no page.
std::optional<std::vector<InputPage>> ListPages(const std::vector<std::string>& files, std::string* error);

// One page rendered into a WIDTH x HEIGHT surface of 24-bit sRGB at the device resolution.
class PageImage {
 public:
  struct Request {
    int Dpi = 300;
    std::int64_t Width = 0;  // surface (printable area, turned for landscape), dots
    std::int64_t Height = 0;
    Scale Fit;
    bool InOrder = true;       // regions are asked for top to bottom (portrait bands): stream the decoder
    bool Gray = false;         // a monochrome page: every pixel the grey of its luminance
    std::string InputProfile;  // an ICC profile file that replaces raster pictures' own; empty: theirs, or sRGB
  };
  static std::unique_ptr<PageImage> Open(const InputPage& page, const Request& request, std::string* error);
  ~PageImage();
  PageImage(const PageImage&) = delete;
  PageImage& operator=(const PageImage&) = delete;

  // Fills the rectangle into dst (3 bytes a pixel, one row every stride bytes). False with Error()
  // set when libvips fails (a damaged file shows up here, as the pixels are decoded).
  bool Render(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride);
  const std::string& Error() const { return error_; }
  const Placement& Where() const { return placement_; }

 private:
  struct State;
  static std::unique_ptr<PageImage> OpenPdf(const InputPage& page, const Request& request, std::string* error);
  bool Fill(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride);
  bool RenderPdf(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride);
  explicit PageImage(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
  Placement placement_;
  std::string error_;
  bool gray_ = false;
};

// Null when the file is an ICC profile that can describe input pictures, else why not.
std::optional<std::string> CheckInputProfile(const std::string& path);

// The first line of libvips' error buffer (which it then clears).
std::string TakeVipsError();

}  // namespace inkweave::cli
