#include "cli/picture.h"

#include <vips/vips8>

#include "cli/document.h"
#include "cli/output_file.h"

namespace inkweave::cli {

bool WritePng(const std::vector<std::uint8_t>& rgb, int width, int height, int dpi, const std::string& path,
              std::string* error) {
  void* buffer = nullptr;
  std::size_t size = 0;
  if (!StartVips()) {
    *error = path + ": cannot start libvips: " + TakeVipsError();
    return false;
  }
  try {
    vips::VImage image = vips::VImage::new_from_memory(const_cast<std::uint8_t*>(rgb.data()), rgb.size(), width, height,
                                                       3, VIPS_FORMAT_UCHAR);
    image = image.copy(vips::VImage::option()
                           ->set("interpretation", VIPS_INTERPRETATION_sRGB)
                           ->set("xres", dpi / 25.4)
                           ->set("yres", dpi / 25.4));
    image.write_to_buffer(".png", &buffer, &size);
  } catch (const vips::VError&) {
    *error = path + ": cannot encode the picture: " + TakeVipsError();
    return false;
  }
  auto out = OutputFile::Create(path, error);
  const bool ok = out && out->Write(static_cast<const std::uint8_t*>(buffer), size) && out->Commit(error);
  g_free(buffer);
  return ok;
}

}  // namespace inkweave::cli
