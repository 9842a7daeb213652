// inkweave proof as a command: the patch table or JSON on standard output, the summary line, and the
// side-by-side picture.
#include <cstdio>

#include "cli/commands.h"
#include "cli/picture.h"
#include "cli/proof.h"

namespace inkweave::cli {

int RunProof(const ProofOptions& options) {
  std::string error;
  const auto report = MakeProof(options.Settings, &error);
  if (!report) {
    ReportError(error);
    return kExitFailure;
  }
  if (options.Json) {
    std::fputs(ProofJson(*report).c_str(), stdout);
  } else {
    std::printf("%-16s %-15s %-22s %-22s %6s\n", "patch", "sRGB", "source L* a* b*", "printed L* a* b*", "dE00");
    for (const PatchResult& p : report->Patches)
      std::printf("%-16s %3d %3d %3d    %6.1f %6.1f %6.1f   %6.1f %6.1f %6.1f   %6.2f\n", p.Source->Name.c_str(),
                  p.Source->Rgb[0], p.Source->Rgb[1], p.Source->Rgb[2], p.Wanted.L, p.Wanted.a, p.Wanted.b, p.Printed.L,
                  p.Printed.a, p.Printed.b, p.DeltaE);
    std::printf("CIELAB D50 relative to paper white, black-point compensated to the print's black; Delta E 2000.\n");
    std::printf("%s\n", report->Summary().c_str());
  }
  if (!options.Picture.empty()) {
    const Picture picture = ProofPicture(*report);
    if (!WritePng(picture.Rgb, picture.Width, picture.Height, 72, options.Picture, &error)) {
      ReportError(error);
      return kExitFailure;
    }
  }
  return kExitOk;
}

}  // namespace inkweave::cli
