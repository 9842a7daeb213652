// The colour proof: a built-in target printed through the plug-in's entry points, put on paper by the
// printer model, and measured patch by patch against its source colours (CIELAB D50, Delta E 2000,
// relative to paper white with black-point compensation).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/options.h"
#include "decode/colorimetry.h"
#include "host/choices.h"

namespace inkweave::cli {

struct ProofSettings {
  int Quality = host::kDefaultQuality;  // dpi: one of host::kQualities
  bool HighRes = false;
  host::Halftone Method = host::Halftone::Dither;
  std::string Media = std::string(host::kMedia[0].Name);
  bool Mono = false;
  double PatchMm = 5.0;  // side of a patch on paper
  std::string Plugin;    // empty: the library next to the program or the one it was built with
};

using Colour = std::array<std::uint8_t, 3>;  // 8-bit RGB

// The patches of the target, in print order.
enum class PatchGroup { GreyRamp, Checker, Primary, Skin, DarkTint, LightTint };
struct Patch {
  std::string Name;
  PatchGroup Group;
  std::array<std::uint8_t, 3> Rgb;  // sRGB
};
const std::vector<Patch>& ProofTarget();

struct PatchResult {
  const Patch* Source = nullptr;
  decode::Lab Wanted;            // the source colour relative to paper white, its black compensated to the print's
  decode::Lab Printed;           // relative to paper white
  decode::Reflectance Colour{};  // the printed colour as the ink model gives it
  double DeltaE = 0;             // Delta E 2000
};

struct ProofReport {
  std::string Mode;  // e.g. "300 dpi, dither, plain paper, colour"
  int Dpi = 0;       // of the printed page
  bool Glossy = false;
  std::vector<PatchResult> Patches;
  double MeanDeltaE = 0;  // over the 24 checker patches
  double MaxDeltaE = 0;
  double GreyMaxA = 0;  // largest |a*| of the grey ramp
  double GreyMaxB = 0;
  bool GreyFalls = true;  // L* falls at every step of the ramp
  double BlackL = 0;      // L* of the source black patch as printed
  double DarkestL = 0;    // L* of the darkest the mode prints: a solid of its black dot, or a darker patch
  // Goals: black within 3 L* of the darkest; ramp falling with |a*|, |b*| <= 3; mean Delta E within
  // 5 (plain and inkjet paper) or 4 (glossy and photographic paper).
  bool BlackMet() const;
  bool GreyMet() const;
  bool MeanMet() const;
  double MeanGoal() const { return Glossy ? 4.0 : 5.0; }
  std::string Summary() const;  // one line
};

// Prints the target and measures it. Null with a one-line *error when the plug-in fails.
std::optional<ProofReport> MakeProof(const ProofSettings& settings, std::string* error);

// Prints any colours as patches (PatchMm on a side, as square a page as they make) in a one-page job
// with these settings and answers each one's printed colour on the printer model (relative to the
// paper), in order. Null with a one-line *error when the plug-in fails.
std::optional<std::vector<decode::Reflectance>> PrintPatches(const ProofSettings& settings,
                                                             const std::vector<Colour>& colours, std::string* error);

// The side-by-side picture: each patch as its source colour beside its printed colour, as sRGB.
struct Picture {
  int Width = 0;
  int Height = 0;
  std::vector<std::uint8_t> Rgb;
};
Picture ProofPicture(const ProofReport& report);

std::string ProofJson(const ProofReport& report);

struct ProofOptions {
  ProofSettings Settings;
  std::string Picture;  // -o: PNG path, empty for none
  bool Json = false;
};
int RunProof(const ProofOptions& options);

}  // namespace inkweave::cli
