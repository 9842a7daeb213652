// What a printed page should look like: the source page rendered the way the command renders it, and
// a comparison of the decoded ink with it block by block.
#pragma once

#include <string>
#include <vector>

#include "cli/options.h"
#include "decode/decoder.h"

namespace inkweave::cli::testing {

// libvips started once for the test program.
void StartLibvips();

// RGB pixels of a page surface, portrait (a landscape surface is turned the way the plug-in turns it).
struct SourcePage {
  int Width = 0, Height = 0;
  std::vector<unsigned char> Rgb;
};
SourcePage RenderSource(const std::string& file, int pageInFile, const std::string& paper, int dpi, bool landscape,
                        const Scale& scale = {});

std::vector<decode::PrintedPage> DecodeStream(const std::string& path);

struct Comparison {
  double MeanError = 0;     // mean |darkness difference| over all blocks, 0..1
  double ChannelError = 0;  // the same per red, green and blue absorption
  int Blocks = 0;
  // Bounding boxes of the blocks with darkness above 0.1, in blocks: left, top, right, bottom.
  int SourceBox[4] = {0, 0, 0, 0};
  int InkBox[4] = {0, 0, 0, 0};
  double InkOutsideColour = 0;  // cyan + magenta + yellow coverage over the page (monochrome checks)
};
// Blocks of `block` source pixels square; the decoded page may be at a multiple of the source dpi.
Comparison ComparePage(const SourcePage& source, const decode::PrintedPage& printed, int sourceDpi, int block);

}  // namespace inkweave::cli::testing
