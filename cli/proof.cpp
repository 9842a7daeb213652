// inkweave proof: print the colour target through the plug-in (our host, as the platform's driver
// drives it), decode the stream with the printer model, and measure every patch.
//
// A patch is measured over its middle (a fifth of its side left out all round, where the halftone
// settles after the patch before it). Its printed colour is the ink model's colour of the mean ink
// there; its wanted colour is the source sRGB colour as CIELAB D50, with black-point compensation to
// what the mode prints for sRGB black, so that paper white and the print's black stand for sRGB white
// and black. Monochrome proofs want the source's lightness as a neutral.
#include "cli/proof.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/plugin.h"
#include "decode/decoder.h"
#include "host/host.h"

namespace inkweave::cli {
namespace {

constexpr int kColumns = 10;    // patches across the target
constexpr double kInset = 0.2;  // share of a patch's side left out of the measurement on each side
// Dots a patch has at least each way: fewer (5 mm at 150 dpi is 30) measure the pattern of a few diffused
// dots more than the ink, by up to 5 L* in the light greys of coated paper.
constexpr int kMinPatchDots = 60;
constexpr double kGreyGoal = 3;  // |a*|, |b*| of the grey ramp
constexpr double kBlackGoal = 3;

std::vector<Patch> BuildTarget() {
  std::vector<Patch> patches;
  for (int step = 0; step <= 20; ++step) {
    const auto v = static_cast<std::uint8_t>(std::lround(255.0 * (20 - step) / 20));
    patches.push_back({"grey " + std::to_string(v), PatchGroup::GreyRamp, {v, v, v}});
  }
  // The classic 24-patch colour checker by its published sRGB values.
  const struct {
    const char* Name;
    std::uint8_t R, G, B;
  } kChecker[24] = {{"dark skin", 115, 82, 68},   {"light skin", 194, 150, 130},  {"blue sky", 98, 122, 157},
                    {"foliage", 87, 108, 67},     {"blue flower", 133, 128, 177}, {"bluish green", 103, 189, 170},
                    {"orange", 214, 126, 44},     {"purplish blue", 80, 91, 166}, {"moderate red", 193, 90, 99},
                    {"purple", 94, 60, 108},      {"yellow green", 157, 188, 64}, {"orange yellow", 224, 163, 46},
                    {"blue", 56, 61, 150},        {"green", 70, 148, 73},         {"red", 175, 54, 60},
                    {"yellow", 231, 199, 31},     {"magenta", 187, 86, 149},      {"cyan", 8, 133, 161},
                    {"white 9.5", 243, 243, 242}, {"neutral 8", 200, 200, 200},   {"neutral 6.5", 160, 160, 160},
                    {"neutral 5", 122, 122, 121}, {"neutral 3.5", 85, 85, 85},    {"black 2", 52, 52, 52}};
  for (const auto& c : kChecker) patches.push_back({c.Name, PatchGroup::Checker, {c.R, c.G, c.B}});
  const struct {
    const char* Name;
    PatchGroup Group;
    std::uint8_t R, G, B;
  } kOthers[] = {
      {"sRGB red", PatchGroup::Primary, 255, 0, 0},
      {"sRGB green", PatchGroup::Primary, 0, 255, 0},
      {"sRGB blue", PatchGroup::Primary, 0, 0, 255},
      {"sRGB cyan", PatchGroup::Primary, 0, 255, 255},
      {"sRGB magenta", PatchGroup::Primary, 255, 0, 255},
      {"sRGB yellow", PatchGroup::Primary, 255, 255, 0},
      {"skin 1", PatchGroup::Skin, 255, 224, 196},
      {"skin 2", PatchGroup::Skin, 234, 192, 160},
      {"skin 3", PatchGroup::Skin, 198, 144, 110},
      {"skin 4", PatchGroup::Skin, 160, 110, 80},
      {"skin 5", PatchGroup::Skin, 140, 97, 66},
      {"skin 6", PatchGroup::Skin, 90, 60, 45},
      {"dark red", PatchGroup::DarkTint, 96, 24, 24},
      {"dark green", PatchGroup::DarkTint, 24, 96, 24},
      {"dark blue", PatchGroup::DarkTint, 24, 24, 96},
      {"dark brown", PatchGroup::DarkTint, 80, 56, 24},
      {"light red", PatchGroup::LightTint, 255, 200, 200},
      {"light green", PatchGroup::LightTint, 200, 255, 200},
      {"light blue", PatchGroup::LightTint, 200, 200, 255},
      {"light yellow", PatchGroup::LightTint, 255, 255, 200},
      {"light cyan", PatchGroup::LightTint, 200, 255, 255},
      {"light magenta", PatchGroup::LightTint, 255, 200, 255},
  };
  for (const auto& c : kOthers) patches.push_back({c.Name, c.Group, {c.R, c.G, c.B}});
  return patches;
}

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
  return text;
}

// A page of colour patches as the host's page: patches of `Side` pixels, `Columns` across.
struct TargetPage {
  const std::vector<Colour>* Colours = nullptr;
  int Columns = kColumns;
  int Side = 0;
  int Width = 0;
  int Height = 0;
};

TargetPage LayOut(const std::vector<Colour>& colours, int columns, int dpi, double patchMm) {
  TargetPage page;
  page.Colours = &colours;
  page.Columns = columns;
  page.Side = std::max(kMinPatchDots, static_cast<int>(std::lround(patchMm * dpi / 25.4)));
  const int rows = (static_cast<int>(colours.size()) + columns - 1) / columns;
  page.Width = columns * page.Side;
  page.Height = rows * page.Side;
  return page;
}

// The rectangle (x, y, w, h) of the target page as 24-bit RGB rows; white past the last patch.
void PaintTarget(const TargetPage& target, int x, int y, int w, int h, std::uint8_t* dst, std::size_t stride) {
  const std::vector<Colour>& colours = *target.Colours;
  const Colour white = {255, 255, 255};
  for (int row = 0; row < h; ++row) {
    for (int col = 0; col < w; ++col) {
      const auto index = static_cast<std::size_t>(((y + row) / target.Side) * target.Columns + (x + col) / target.Side);
      const Colour& rgb = index < colours.size() ? colours[index] : white;
      std::copy(rgb.begin(), rgb.end(),
                dst + static_cast<std::size_t>(row) * stride + 3 * static_cast<std::size_t>(col));
    }
  }
}

// Prints the target as a one-page job; answers the printer stream.
std::optional<std::vector<std::uint8_t>> PrintTarget(const ProofSettings& settings, const TargetPage& target,
                                                     std::string* error) {
  const host::Medium* medium = host::FindMedium(settings.Media);
  if (!medium) {
    *error = "--media " + settings.Media + ": unknown paper type";
    return std::nullopt;
  }
  auto library = OpenPlugin(settings.Plugin, error);
  if (!library) return std::nullopt;
  host::HostSession session(library->Entry());
  if (const HRESULT hr = session.Load(); Failed(hr)) {
    *error = "the plug-in would not load (" + Hex(hr) + ")";
    return std::nullopt;
  }
  host::DeviceSetup setup;
  setup.Quality = static_cast<std::int16_t>(settings.HighRes ? 600 : settings.Quality);
  setup.Color = !settings.Mono;
  setup.PageWidth = static_cast<std::uint32_t>(target.Width);
  setup.PageHeight = static_cast<std::uint32_t>(target.Height);
  if (const HRESULT hr = session.Enable(setup); Failed(hr)) {
    *error = "the plug-in refused the device set-up (" + Hex(hr) + ")";
    return std::nullopt;
  }
  host::SelectModes(session, settings.Method == host::Halftone::Diffusion, settings.HighRes, medium->Callback);
  session.Command(host::kCallbackJobStart);
  host::PageSource source;
  source.Width = target.Width;
  source.Height = target.Height;
  source.Render = [&](std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst,
                      std::size_t stride) {
    PaintTarget(target, x, y, w, h, dst, stride);
    return true;
  };
  const host::PageResult result = host::PrintPage(session, source, 256);
  session.Command(host::kCallbackJobEnd);
  session.Disable();
  session.Unload();
  if (Failed(result.Status)) {
    *error = "the plug-in failed on the proof page (" + Hex(result.Status) + ")";
    return std::nullopt;
  }
  std::vector<std::uint8_t> stream;
  for (const auto& write : session.Spool().Writes())
    stream.insert(stream.end(), write.Bytes.begin(), write.Bytes.end());
  return stream;
}

std::optional<decode::PrintedPage> PutOnPaper(const std::vector<std::uint8_t>& stream, std::string* error) {
  auto job = decode::ParseJob(stream);
  if (auto* e = std::get_if<decode::Error>(&job)) {
    *error = "the proof's printer stream does not parse at byte " + std::to_string(e->Offset) + ": " + e->Message;
    return std::nullopt;
  }
  auto pages = decode::PrintJob(std::get<decode::Job>(job));
  if (auto* e = std::get_if<decode::Error>(&pages)) {
    *error = "the proof's printer stream does not print at byte " + std::to_string(e->Offset) + ": " + e->Message;
    return std::nullopt;
  }
  auto& printed = std::get<std::vector<decode::PrintedPage>>(pages);
  if (printed.size() != 1) {
    *error = "the proof's printer stream holds " + std::to_string(printed.size()) + " pages, not one";
    return std::nullopt;
  }
  return std::move(printed.front());
}

// Each patch's mean ink over its middle, as the model's colour.
std::vector<decode::Reflectance> MeasurePatches(const decode::PrintedPage& page, const TargetPage& target, int dpi) {
  const decode::InkModel model = decode::InkModelFor(page.Medium, page.Dpi);
  const int scale = std::max(1, page.Dpi / dpi);  // printed dots per target pixel each way
  const int inset = static_cast<int>(target.Side * kInset);
  const int side = target.Side - 2 * inset;
  std::vector<decode::Reflectance> measured;
  for (std::size_t i = 0; i < target.Colours->size(); ++i) {
    const int x = static_cast<int>(i % static_cast<std::size_t>(target.Columns)) * target.Side + inset;
    const int y = static_cast<int>(i / static_cast<std::size_t>(target.Columns)) * target.Side + inset;
    measured.push_back(
        decode::PrintedColour(model, decode::MeanInk(page, x * scale, y * scale, side * scale, side * scale)));
  }
  return measured;
}

// The proof's patches as printed; then what each should print: its source colour with the black point
// compensated to the printed black.
void Measure(const decode::PrintedPage& page, const TargetPage& target, bool mono, ProofReport& report) {
  const decode::InkModel model = decode::InkModelFor(page.Medium, page.Dpi);
  const auto& patches = ProofTarget();
  const std::vector<decode::Reflectance> measured = MeasurePatches(page, target, report.Dpi);
  report.DarkestL = decode::LabOfReflectance(model.Solid[3]).L;
  decode::Lab black;
  for (std::size_t i = 0; i < patches.size(); ++i) {
    PatchResult result;
    result.Source = &patches[i];
    result.Colour = measured[i];
    result.Printed = decode::LabOfReflectance(result.Colour);
    if (patches[i].Rgb == Colour{0, 0, 0}) black = result.Printed;
    report.DarkestL = std::min(report.DarkestL, result.Printed.L);
    report.Patches.push_back(result);
  }
  for (PatchResult& result : report.Patches) {
    const auto& rgb = result.Source->Rgb;
    result.Wanted = decode::CompensateBlack(decode::LabOfSrgb(rgb[0], rgb[1], rgb[2]), black);
    if (mono) result.Wanted.a = result.Wanted.b = 0;
    result.DeltaE = decode::DeltaE2000(result.Wanted, result.Printed);
  }
}

void Summarise(ProofReport& report) {
  double sum = 0, previousL = 1e9;
  int checker = 0;
  for (const PatchResult& p : report.Patches) {
    switch (p.Source->Group) {
      case PatchGroup::Checker:
        sum += p.DeltaE;
        ++checker;
        report.MaxDeltaE = std::max(report.MaxDeltaE, p.DeltaE);
        break;
      case PatchGroup::GreyRamp:
        report.GreyMaxA = std::max(report.GreyMaxA, std::fabs(p.Printed.a));
        report.GreyMaxB = std::max(report.GreyMaxB, std::fabs(p.Printed.b));
        if (p.Printed.L >= previousL) report.GreyFalls = false;
        previousL = p.Printed.L;
        if (p.Source->Rgb[0] == 0) report.BlackL = p.Printed.L;
        break;
      default: break;
    }
  }
  report.MeanDeltaE = checker ? sum / checker : 0;
}

std::string Yes(bool met) { return met ? "met" : "MISSED"; }

}  // namespace

const std::vector<Patch>& ProofTarget() {
  static const std::vector<Patch> target = BuildTarget();
  return target;
}

bool ProofReport::BlackMet() const { return BlackL - DarkestL <= kBlackGoal; }
bool ProofReport::GreyMet() const { return GreyFalls && GreyMaxA <= kGreyGoal && GreyMaxB <= kGreyGoal; }
bool ProofReport::MeanMet() const { return MeanDeltaE <= MeanGoal(); }

std::string ProofReport::Summary() const {
  char text[512];
  std::snprintf(text, sizeof text,
                "proof %s: mean dE00 %.2f, max %.2f (24 patches, goal %.0f: %s); grey ramp |a*| <= %.2f, |b*| <= %.2f, "
                "L* %s (%s); black L* %.1f, darkest %.1f (%s)",
                Mode.c_str(), MeanDeltaE, MaxDeltaE, MeanGoal(), Yes(MeanMet()).c_str(), GreyMaxA, GreyMaxB,
                GreyFalls ? "falls at every step" : "does not fall at every step", Yes(GreyMet()).c_str(), BlackL,
                DarkestL, Yes(BlackMet()).c_str());
  return text;
}

std::optional<ProofReport> MakeProof(const ProofSettings& settings, std::string* error) {
  const int hostDpi = settings.HighRes ? 600 : settings.Quality;
  std::vector<Colour> colours;
  for (const Patch& patch : ProofTarget()) colours.push_back(patch.Rgb);
  const TargetPage target = LayOut(colours, kColumns, hostDpi, settings.PatchMm);
  const auto stream = PrintTarget(settings, target, error);
  if (!stream) return std::nullopt;
  const auto page = PutOnPaper(*stream, error);
  if (!page) return std::nullopt;
  ProofReport report;
  report.Dpi = hostDpi;
  report.Glossy = settings.Media == "glossy" || settings.Media == "photo";
  report.Mode = (settings.HighRes ? std::string("high-resolution") : std::to_string(settings.Quality) + " dpi") + ", " +
                (settings.HighRes || settings.Method == host::Halftone::Diffusion ? "diffusion" : "dither") + ", " +
                settings.Media + " paper, " + (settings.Mono ? "monochrome" : "colour");
  Measure(*page, target, settings.Mono, report);
  Summarise(report);
  return report;
}

std::optional<std::vector<decode::Reflectance>> PrintPatches(const ProofSettings& settings,
                                                             const std::vector<Colour>& colours, std::string* error) {
  const int hostDpi = settings.HighRes ? 600 : settings.Quality;
  const int columns = std::max(1, static_cast<int>(std::ceil(std::sqrt(static_cast<double>(colours.size())))));
  const TargetPage target = LayOut(colours, columns, hostDpi, settings.PatchMm);
  const auto stream = PrintTarget(settings, target, error);
  if (!stream) return std::nullopt;
  const auto page = PutOnPaper(*stream, error);
  if (!page) return std::nullopt;
  return MeasurePatches(*page, target, hostDpi);
}

Picture ProofPicture(const ProofReport& report) {
  constexpr int kHalf = 32;  // pixels: source and print side by side in a 64 x 32 tile, 4 pixels apart
  constexpr int kGap = 4;
  Picture picture;
  const int rows = (static_cast<int>(report.Patches.size()) + kColumns - 1) / kColumns;
  picture.Width = kColumns * (2 * kHalf + kGap) + kGap;
  picture.Height = rows * (kHalf + kGap) + kGap;
  picture.Rgb.assign(static_cast<std::size_t>(picture.Width) * static_cast<std::size_t>(picture.Height) * 3, 255);
  for (std::size_t i = 0; i < report.Patches.size(); ++i) {
    const PatchResult& p = report.Patches[i];
    std::array<std::uint8_t, 3> printed{};
    decode::SrgbOfReflectances({&p.Colour, 1}, printed);
    const int x0 = kGap + static_cast<int>(i % kColumns) * (2 * kHalf + kGap);
    const int y0 = kGap + static_cast<int>(i / kColumns) * (kHalf + kGap);
    for (int y = y0; y < y0 + kHalf; ++y)
      for (int x = x0; x < x0 + 2 * kHalf; ++x) {
        const auto& rgb = x < x0 + kHalf ? p.Source->Rgb : printed;
        std::copy(rgb.begin(), rgb.end(),
                  picture.Rgb.begin() + (static_cast<std::ptrdiff_t>(y) * picture.Width + x) * 3);
      }
  }
  return picture;
}

std::string ProofJson(const ProofReport& report) {
  std::string json = "{\"mode\": \"" + report.Mode + "\", \"comparison\": \"CIELAB D50 relative to paper white, " +
                     "black-point compensated; Delta E 2000\", \"patches\": [";
  char text[512];
  for (std::size_t i = 0; i < report.Patches.size(); ++i) {
    const PatchResult& p = report.Patches[i];
    std::snprintf(text, sizeof text,
                  "%s\n  {\"name\": \"%s\", \"srgb\": [%d, %d, %d], \"source\": [%.2f, %.2f, %.2f], "
                  "\"printed\": [%.2f, %.2f, %.2f], \"deltaE2000\": %.2f}",
                  i ? "," : "", p.Source->Name.c_str(), p.Source->Rgb[0], p.Source->Rgb[1], p.Source->Rgb[2],
                  p.Wanted.L, p.Wanted.a, p.Wanted.b, p.Printed.L, p.Printed.a, p.Printed.b, p.DeltaE);
    json += text;
  }
  std::snprintf(text, sizeof text,
                "\n], \"summary\": {\"meanDeltaE2000\": %.2f, \"maxDeltaE2000\": %.2f, \"meanGoal\": %.1f, "
                "\"greyMaxA\": %.2f, \"greyMaxB\": %.2f, \"greyFalls\": %s, \"blackL\": %.2f, \"darkestL\": %.2f, "
                "\"goals\": {\"black\": %s, \"grey\": %s, \"mean\": %s}}}\n",
                report.MeanDeltaE, report.MaxDeltaE, report.MeanGoal(), report.GreyMaxA, report.GreyMaxB,
                report.GreyFalls ? "true" : "false", report.BlackL, report.DarkestL,
                report.BlackMet() ? "true" : "false", report.GreyMet() ? "true" : "false",
                report.MeanMet() ? "true" : "false");
  return json + text;
}

}  // namespace inkweave::cli
