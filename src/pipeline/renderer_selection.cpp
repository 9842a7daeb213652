// Renderer selection, once per band:
//  1. the halftone method in force (error diffusion flags the print mode below level 6, except at
//     150 dpi, and re-sends the ink-mode command on every such band);
//  2. the renderer from the table below, portrait or landscape;
//  3. while no dot has been printed on the page, the seeding of the error lines.
// Dither at level 6 is deliberately turned into error diffusion when the mode is not flagged.
#include "src/pipeline/renderer_selection.h"

#include "src/commands/command_writer.h"

namespace inkweave {
namespace {

struct RendererPair {
  BandRendererFn portrait;
  BandRendererFn landscape;
};

constexpr RendererPair kDitherColor{&DitherColorPortrait, &DitherColorLandscape};
constexpr RendererPair kDitherGray{&DitherGrayPortrait, &DitherGrayLandscape};
constexpr RendererPair kDiffuseLow{&DiffuseLowPortrait, &DiffuseLowLandscape};
constexpr RendererPair kDiffuseMid{&DiffuseMidPortrait, &DiffuseMidLandscape};
constexpr RendererPair kDiffuseHigh{&DiffuseHighPortrait, &DiffuseHighLandscape};
constexpr RendererPair kDiffuseTop{&DiffuseTopPortrait, &DiffuseTopLandscape};

// Flagged means any of the bits 32, 64, 128: the monochrome bit alone does not count.
bool IsFlagged(std::uint8_t printMode) { return printMode >= kPrintModeFlag; }

const RendererPair* ChoosePair(std::uint8_t activeHalftone, std::uint8_t printMode, int bitCount) {
  const int level = LevelOf(printMode);
  const bool flagged = IsFlagged(printMode);
  if (activeHalftone == kHalftoneDither) {
    if (!flagged && level == kLevelHigh) return &kDiffuseTop;
    return bitCount == 24 ? &kDitherColor : &kDitherGray;
  }
  if (activeHalftone == kHalftoneDiffusion) {
    if (level == kLevelHigh) return &kDiffuseTop;
    if (!flagged || level == kLevel150) return &kDiffuseLow;
    if (level == kLevel600 || level == 5) return &kDiffuseHigh;
    return &kDiffuseMid;  // levels 0, 2, 3 and 7 to 15
  }
  return nullptr;
}

}  // namespace

BandRendererFn ChooseBandRenderer(std::uint8_t activeHalftone, std::uint8_t printMode, int bitCount, bool landscape) {
  const RendererPair* pair = ChoosePair(activeHalftone, printMode, bitCount);
  if (!pair) return nullptr;
  return landscape ? pair->landscape : pair->portrait;
}

BandRendererFn SelectBandRenderer(DEVOBJ* devobj, const BandInfo& band, IPrintOemDriverUni* driver) {
  DeviceState& state = *StateOf(devobj);

  // The halftone method in force.
  if (state.HalftoneMethod == kHalftoneDither) {
    state.ActiveHalftone = kHalftoneDither;
  } else if (state.HalftoneMethod == kHalftoneDiffusion) {
    state.ActiveHalftone = kHalftoneDiffusion;
    const int level = LevelOf(state.PrintMode);
    if (level != kLevel150 && level < kLevelHigh) {
      state.PrintMode |= kPrintModeFlag;
      WriteInkMode(devobj, driver);  // sent again on every band for which this holds
    }
  }

  // The renderer; dither at an unflagged level 6 becomes error diffusion.
  const int level = LevelOf(state.PrintMode);
  if (state.ActiveHalftone == kHalftoneDither && !IsFlagged(state.PrintMode) && level == kLevelHigh)
    state.ActiveHalftone = kHalftoneDiffusion;
  const BandRendererFn renderer =
      ChooseBandRenderer(state.ActiveHalftone, state.PrintMode, band.Header.biBitCount, state.Landscape != 0);

  // Seeding while the page has no dot yet.
  if (state.PageInkSeen == 0) {
    int width = state.Landscape ? band.Header.biHeight : band.Header.biWidth;
    if (level >= kLevelHigh) width *= 2;
    if (state.ActiveHalftone == kHalftoneDiffusion) SeedDiffusionLines(state, 4, width);
  }
  return renderer;
}

}  // namespace inkweave
