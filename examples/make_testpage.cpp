// Writes the project's own test page: a two-page A4 PDF (colour patches, gray and colour ramps, fine
// lines and text on page 1; a synthetic photograph and text on page 2) and the photograph alone as a
// PNG. Deterministic: the same bytes on every run (fixed seed, no dates in the PDF).
//
//   make_testpage OUTDIR     → OUTDIR/testpage.pdf, OUTDIR/testpage.png, OUTDIR/blank.png (white)
#include <cairo-pdf.h>
#include <cairo.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr double kPageWidth = 595.276;  // A4, points
constexpr double kPageHeight = 841.890;
constexpr double kPi = 3.14159265358979323846;
constexpr std::uint32_t kSeed = 0x1A2B3C4D;

// A small PRNG with a fixed seed, so the picture never changes.
struct Random {
  std::uint32_t state = kSeed;
  double Next() {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return (state & 0xFFFFFF) / static_cast<double>(0x1000000);
  }
};

void Text(cairo_t* cr, double x, double y, double size, const char* text, bool bold = false) {
  cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, size);
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_move_to(cr, x, y);
  cairo_show_text(cr, text);
}

// A landscape of sky, sun, hills, a lake and grass, with fine noise: smooth areas, edges, texture.
cairo_surface_t* MakePhoto(int width, int height) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  unsigned char* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  Random random;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double u = static_cast<double>(x) / width, v = static_cast<double>(y) / height;
      double r, g, b;
      const double hill1 = 0.55 + 0.08 * std::sin(u * 2 * kPi * 1.3 + 0.4) + 0.03 * std::sin(u * 2 * kPi * 5.1);
      const double hill2 = 0.66 + 0.05 * std::sin(u * 2 * kPi * 2.1 + 2.0);
      const double sun = std::hypot(u - 0.72, (v - 0.22) * height / width);
      if (v < hill1) {  // sky, darker blue at the top, with the sun and its glow
        r = 0.35 + 0.55 * v;
        g = 0.55 + 0.4 * v;
        b = 0.95;
        const double glow = std::exp(-sun * 9.0);
        r += glow * 0.6;
        g += glow * 0.45;
        b -= glow * 0.3;
        if (sun < 0.06) {
          r = 1.0;
          g = 0.9;
          b = 0.35;
        }
      } else if (v < hill2) {  // far hills, bluish green
        r = 0.25;
        g = 0.45 + 0.1 * std::sin(u * 40);
        b = 0.35;
      } else if (v < 0.78) {  // a lake reflecting the sky
        r = 0.2 + 0.2 * (v - 0.66);
        g = 0.4;
        b = 0.7 + 0.1 * std::sin(u * 90 + v * 300);
      } else {  // grass with flowers
        r = 0.2 + 0.25 * (1 - v);
        g = 0.55 - 0.2 * (v - 0.78);
        b = 0.1;
        if (random.Next() < 0.01) {
          r = 0.95;
          g = 0.2;
          b = 0.3;
        }
      }
      const double noise = (random.Next() - 0.5) * 0.025;
      auto clamp = [](double c) {
        return static_cast<std::uint32_t>(std::lround(std::fmin(1.0, std::fmax(0.0, c)) * 255));
      };
      auto* pixel = reinterpret_cast<std::uint32_t*>(data + y * stride + x * 4);
      *pixel = clamp(r + noise) << 16 | clamp(g + noise) << 8 | clamp(b + noise);
    }
  }
  cairo_surface_mark_dirty(surface);
  return surface;
}

void PagePatches(cairo_t* cr) {
  Text(cr, 40, 60, 22, "inkweave test page", true);
  Text(cr, 40, 80, 10, "Colour patches, ramps, fine lines and text. Page 1 of 2.");

  // Patches: C M Y K R G B, then 25/50/75 % tints of cyan, magenta, yellow and black.
  const double colours[][3] = {{0, 1, 1}, {1, 0, 1}, {1, 1, 0}, {0, 0, 0}, {1, 0, 0}, {0, 0.6, 0}, {0, 0, 1}};
  for (int i = 0; i < 7; ++i) {
    cairo_set_source_rgb(cr, colours[i][0], colours[i][1], colours[i][2]);
    cairo_rectangle(cr, 40 + i * 72, 100, 64, 64);
    cairo_fill(cr);
  }
  for (int ink = 0; ink < 4; ++ink) {
    for (int t = 1; t <= 3; ++t) {
      const double tint = 1.0 - 0.25 * t;
      double rgb[3] = {1, 1, 1};
      if (ink < 3)
        rgb[ink] = tint;
      else
        rgb[0] = rgb[1] = rgb[2] = tint;
      cairo_set_source_rgb(cr, rgb[0], rgb[1], rgb[2]);
      cairo_rectangle(cr, 40 + (ink * 3 + t - 1) * 42, 176, 38, 38);
      cairo_fill(cr);
    }
  }

  // Ramps: gray, then the hue circle at full saturation.
  cairo_pattern_t* gray = cairo_pattern_create_linear(40, 0, 555, 0);
  cairo_pattern_add_color_stop_rgb(gray, 0, 1, 1, 1);
  cairo_pattern_add_color_stop_rgb(gray, 1, 0, 0, 0);
  cairo_set_source(cr, gray);
  cairo_rectangle(cr, 40, 230, 515, 40);
  cairo_fill(cr);
  cairo_pattern_destroy(gray);
  cairo_pattern_t* hue = cairo_pattern_create_linear(40, 0, 555, 0);
  const double hues[][3] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}, {1, 0, 0}};
  for (int i = 0; i < 7; ++i) cairo_pattern_add_color_stop_rgb(hue, i / 6.0, hues[i][0], hues[i][1], hues[i][2]);
  cairo_set_source(cr, hue);
  cairo_rectangle(cr, 40, 280, 515, 40);
  cairo_fill(cr);
  cairo_pattern_destroy(hue);

  // Fine lines: hairlines to 2 pt, and a star of thin rays.
  cairo_set_source_rgb(cr, 0, 0, 0);
  for (int i = 0; i < 12; ++i) {
    cairo_set_line_width(cr, 0.1 + i * 0.18);
    cairo_move_to(cr, 40 + i * 14, 340);
    cairo_line_to(cr, 40 + i * 14, 470);
    cairo_stroke(cr);
  }
  cairo_set_line_width(cr, 0.25);
  for (int i = 0; i < 48; ++i) {
    const double a = i * 2 * kPi / 48;
    cairo_move_to(cr, 420, 405);
    cairo_line_to(cr, 420 + 65 * std::cos(a), 405 + 65 * std::sin(a));
  }
  cairo_stroke(cr);
  cairo_set_source_rgb(cr, 0.8, 0, 0);
  cairo_set_line_width(cr, 1.5);
  cairo_arc(cr, 420, 405, 65, 0, 2 * kPi);
  cairo_stroke(cr);

  // Text from 4 to 14 points.
  double y = 510;
  for (int size = 4; size <= 14; size += 2) {
    char line[96];
    std::snprintf(line, sizeof line, "%d pt: The quick brown fox jumps over the lazy dog. 0123456789", size);
    Text(cr, 40, y, size, line);
    y += size + 10;
  }
  // A frame just inside the printable area shows where the page lands.
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_set_line_width(cr, 1.0);
  cairo_rectangle(cr, 20, 20, kPageWidth - 40, kPageHeight - 40);
  cairo_stroke(cr);
}

void PagePhoto(cairo_t* cr, cairo_surface_t* photo) {
  Text(cr, 40, 60, 22, "Photograph", true);
  Text(cr, 40, 80, 10, "A synthetic landscape: smooth sky, edges and fine texture. Page 2 of 2.");
  const double w = 515, h = w * cairo_image_surface_get_height(photo) / cairo_image_surface_get_width(photo);
  cairo_save(cr);
  cairo_translate(cr, 40, 100);
  cairo_scale(cr, w / cairo_image_surface_get_width(photo), h / cairo_image_surface_get_height(photo));
  cairo_set_source_surface(cr, photo, 0, 0);
  cairo_paint(cr);
  cairo_restore(cr);
  // Skin-like and neutral patches under the photograph.
  const double tones[][3] = {
      {0.96, 0.80, 0.69}, {0.87, 0.65, 0.52}, {0.55, 0.38, 0.26}, {0.5, 0.5, 0.5}, {0.2, 0.2, 0.2}};
  for (int i = 0; i < 5; ++i) {
    cairo_set_source_rgb(cr, tones[i][0], tones[i][1], tones[i][2]);
    cairo_rectangle(cr, 40 + i * 104, 130 + h, 96, 96);
    cairo_fill(cr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_testpage OUTDIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  cairo_surface_t* photo = MakePhoto(360, 240);

  const std::string pdf = dir + "/testpage.pdf";
  cairo_surface_t* surface = cairo_pdf_surface_create(pdf.c_str(), kPageWidth, kPageHeight);
  cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_TITLE, "inkweave test page");
  cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_CREATOR, "inkweave make_testpage");
  cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_CREATE_DATE, "2024-01-01T00:00:00Z");
  cairo_t* cr = cairo_create(surface);
  PagePatches(cr);
  cairo_show_page(cr);
  PagePhoto(cr, photo);
  cairo_show_page(cr);
  cairo_destroy(cr);
  cairo_surface_finish(surface);
  const cairo_status_t pdfStatus = cairo_surface_status(surface);
  cairo_surface_destroy(surface);

  const std::string png = dir + "/testpage.png";
  const cairo_status_t pngStatus = cairo_surface_write_to_png(photo, png.c_str());
  cairo_surface_destroy(photo);
  cairo_surface_t* blank = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 8, 8);
  cairo_t* white = cairo_create(blank);
  cairo_set_source_rgb(white, 1, 1, 1);
  cairo_paint(white);
  cairo_destroy(white);
  const cairo_status_t blankStatus = cairo_surface_write_to_png(blank, (dir + "/blank.png").c_str());
  cairo_surface_destroy(blank);
  if (blankStatus != CAIRO_STATUS_SUCCESS) {
    std::fprintf(stderr, "make_testpage: %s\n", cairo_status_to_string(blankStatus));
    return 1;
  }
  if (pdfStatus != CAIRO_STATUS_SUCCESS || pngStatus != CAIRO_STATUS_SUCCESS) {
    std::fprintf(stderr, "make_testpage: %s\n",
                 cairo_status_to_string(pdfStatus != CAIRO_STATUS_SUCCESS ? pdfStatus : pngStatus));
    return 1;
  }
  return 0;
}
