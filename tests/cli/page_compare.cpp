#include "tests/cli/page_compare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "cli/document.h"
#include "host/papers.h"
#include "tests/cli/run.h"

namespace inkweave::cli::testing {

void StartLibvips() {
  static VipsRuntime vips("cli_test");
  cli::StartVips();
}

SourcePage RenderSource(const std::string& file, int pageInFile, const std::string& paper, int dpi, bool landscape,
                        const Scale& scale) {
  StartLibvips();
  std::string error;
  auto pages = ListPages({file}, &error);
  EXPECT_TRUE(pages) << error;
  if (!pages) return {};
  const auto area = host::PrintableAreaOf(*host::FindPaper(paper), dpi);
  PageImage::Request request;
  request.Dpi = dpi;
  request.Width = landscape ? area.Height : area.Width;
  request.Height = landscape ? area.Width : area.Height;
  request.Fit = scale;
  request.InOrder = false;
  auto image = PageImage::Open((*pages)[static_cast<std::size_t>(pageInFile)], request, &error);
  EXPECT_TRUE(image) << error;
  if (!image) return {};
  const auto w = static_cast<int>(request.Width), h = static_cast<int>(request.Height);
  std::vector<unsigned char> surface(static_cast<std::size_t>(w) * h * 3);
  EXPECT_TRUE(image->Render(0, 0, w, h, surface.data(), static_cast<std::size_t>(w) * 3)) << image->Error();
  SourcePage page;
  if (!landscape) {
    page.Width = w;
    page.Height = h;
    page.Rgb = std::move(surface);
    return page;
  }
  // The plug-in prints landscape column c as page row c, its row r at page dot (height - 1 - r).
  page.Width = h;
  page.Height = w;
  page.Rgb.resize(surface.size());
  for (int y = 0; y < page.Height; ++y)
    for (int x = 0; x < page.Width; ++x)
      for (int c = 0; c < 3; ++c)
        page.Rgb[(static_cast<std::size_t>(y) * page.Width + x) * 3 + c] =
            surface[(static_cast<std::size_t>(h - 1 - x) * w + y) * 3 + c];
  return page;
}

std::vector<decode::PrintedPage> DecodeStream(const std::string& path) {
  const auto bytes = ReadFile(path);
  auto job = decode::ParseJob(bytes);
  if (auto* e = std::get_if<decode::Error>(&job)) {
    ADD_FAILURE() << path << ": " << e->Message << " at " << e->Offset;
    return {};
  }
  auto printed = decode::PrintJob(std::get<decode::Job>(job));
  if (auto* e = std::get_if<decode::Error>(&printed)) {
    ADD_FAILURE() << path << ": " << e->Message << " at " << e->Offset;
    return {};
  }
  return std::get<std::vector<decode::PrintedPage>>(printed);
}

Comparison ComparePage(const SourcePage& source, const decode::PrintedPage& printed, int sourceDpi, int block) {
  Comparison result;
  const int factor = std::max(1, printed.Dpi / sourceDpi);  // decoded dots per source pixel, each way
  const double full = printed.BitsPerDot == 2 ? 3.0 : 1.0;
  const int bw = source.Width / block, bh = source.Height / block;
  int boxS[4] = {bw, bh, -1, -1}, boxI[4] = {bw, bh, -1, -1};
  double sum = 0, sumChannel = 0, colour = 0;
  for (int by = 0; by < bh; ++by) {
    for (int bx = 0; bx < bw; ++bx) {
      double src[3] = {0, 0, 0};
      for (int y = by * block; y < (by + 1) * block; ++y)
        for (int x = bx * block; x < (bx + 1) * block; ++x)
          for (int c = 0; c < 3; ++c) src[c] += source.Rgb[(static_cast<std::size_t>(y) * source.Width + x) * 3 + c];
      double ink[4] = {0, 0, 0, 0};
      for (int y = by * block * factor; y < (by + 1) * block * factor; ++y)
        for (int x = bx * block * factor; x < (bx + 1) * block * factor; ++x)
          for (int p = 0; p < 4; ++p) ink[p] += decode::DotAt(printed, p, x, y);
      const double dots = static_cast<double>(block) * block * factor * factor;
      double darkS = 0, darkI = 0;
      for (int c = 0; c < 3; ++c) {
        const double s = 1.0 - src[c] / (255.0 * block * block);
        const double i =
            1.0 - (1.0 - std::min(1.0, ink[c] / (dots * full))) * (1.0 - std::min(1.0, ink[3] / (dots * full)));
        darkS += s / 3;
        darkI += i / 3;
        sumChannel += std::fabs(s - i) / 3;
        colour += ink[c] / (dots * full);
      }
      sum += std::fabs(darkS - darkI);
      auto grow = [bx, by](int* box) {
        box[0] = std::min(box[0], bx);
        box[1] = std::min(box[1], by);
        box[2] = std::max(box[2], bx);
        box[3] = std::max(box[3], by);
      };
      if (darkS > 0.1) grow(boxS);
      if (darkI > 0.1) grow(boxI);
    }
  }
  result.Blocks = bw * bh;
  result.MeanError = sum / std::max(1, result.Blocks);
  result.ChannelError = sumChannel / std::max(1, result.Blocks);
  result.InkOutsideColour = colour / std::max(1, result.Blocks);
  std::copy(boxS, boxS + 4, result.SourceBox);
  std::copy(boxI, boxI + 4, result.InkBox);
  return result;
}

}  // namespace inkweave::cli::testing
