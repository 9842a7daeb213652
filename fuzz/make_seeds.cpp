// Writes the seed corpora of the fuzzers: make-fuzz-seeds DIR fills DIR/{decoder,plugin,filter}. The
// streams are printed by the plug-in through our host (small pages in every mode), the filter's seeds are
// job options and the rasters CUPS sends for such pages, and the plug-in seeds are host scripts of
// fuzz/plugin.cpp.
#include <cups/raster.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "src/plugin/render_plugin.h"

using namespace inkweave;
namespace fs = std::filesystem;

namespace {

void Write(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool Stripes(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h, std::uint8_t* dst, std::size_t stride) {
  for (std::int32_t r = 0; r < h; ++r)
    for (std::int32_t c = 0; c < 3 * w; ++c)
      dst[static_cast<std::size_t>(r) * stride + static_cast<std::size_t>(c)] =
          static_cast<std::uint8_t>((x + y + r) * 5 + c * 3);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const fs::path dir = argv[1];
  for (const char* name : {"decoder", "plugin", "filter"}) fs::create_directories(dir / name);
  int n = 0;  // variants: 0 dither, 1 diffusion in landscape, 2 monochrome, 3 diffusion (high resolution at 600)
  for (std::int16_t quality : {150, 300, 600})
    for (int variant = 0; variant < 4; ++variant) {
      host::HostSession session({&GetClassObject, &CanUnloadNow});
      session.Load();
      session.Enable({DMPAPER_A4, quality, variant != 2, variant == 1, 96, 120});
      host::SelectModes(session, variant & 1, quality == 600 && variant == 3, host::kCallbackMediaGlossy);
      session.Command(host::kCallbackJobStart);
      host::PrintPage(session, {variant == 1 ? 120 : 96, variant == 1 ? 96 : 120, 24, Stripes}, 32);
      session.Command(host::kCallbackJobEnd);
      Write(dir / "decoder" / std::to_string(n++), session.Spool().Stream());
    }

  // Quality, flags, page width and height, then commands and bands (fuzz/plugin.cpp).
  Write(dir / "plugin" / "job",
        {1, 1, 96, 0, 120, 0, 12, 22, 20, 0xC0, 96, 0, 32, 0, 0, 0, 0, 7, 0xC0, 96, 0, 32, 0, 0, 0, 32, 0, 9, 21, 23});
  Write(dir / "plugin" / "landscape", {2, 3, 96, 0, 120, 0, 14, 11, 22, 20, 0xC0, 32, 0, 96, 1, 0, 0, 0, 0, 3, 21, 23});

  // Sheets of half an inch each way (small pages make quick runs): job options and the raster, compressed
  // above 150 dpi.
  for (unsigned dpi : {150u, 300u, 600u})
    for (cups_cspace_t space : {CUPS_CSPACE_RGB, CUPS_CSPACE_SW, CUPS_CSPACE_K}) {
      const unsigned channels = space == CUPS_CSPACE_RGB ? 3 : 1;
      cups_page_header2_t header{};
      header.HWResolution[0] = header.HWResolution[1] = dpi;
      header.cupsWidth = header.cupsHeight = dpi / 2;
      header.cupsBitsPerColor = 8, header.cupsBitsPerPixel = 8 * channels, header.cupsBytesPerLine = dpi / 2 * channels;
      header.cupsColorSpace = space, header.cupsColorOrder = CUPS_ORDER_CHUNKED, header.cupsNumColors = channels;
      header.PageSize[0] = header.PageSize[1] = 36;
      header.cupsPageSize[0] = header.cupsPageSize[1] = 36;
      const int fd = open((dir / "filter" / (std::to_string(dpi) + "-" + std::to_string(space))).c_str(),
                          O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const char options[] = "InkweaveHalftone=Diffusion";  // with its zero byte
      if (write(fd, options, sizeof options) != sizeof options) return 1;
      cups_raster_t* raster = cupsRasterOpen(fd, dpi == 150 ? CUPS_RASTER_WRITE : CUPS_RASTER_WRITE_COMPRESSED);
      cupsRasterWriteHeader2(raster, &header);
      std::vector<std::uint8_t> row(header.cupsBytesPerLine);
      for (unsigned y = 0; y < header.cupsHeight; ++y) {
        for (std::size_t i = 0; i < row.size(); ++i) row[i] = static_cast<std::uint8_t>(i / 16 * 40 + y / 8 * 8);
        cupsRasterWritePixels(raster, row.data(), header.cupsBytesPerLine);
      }
      cupsRasterClose(raster);
      close(fd);
    }
  return 0;
}
