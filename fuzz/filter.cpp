// The CUPS filter on any job options and raster stream, run as CUPS runs it (the options an argument, the
// input a file, the printer stream to standard output, here /dev/null), with the plug-in library it loads.
// The input is the options up to the first zero byte (an argument holds none), then the raster stream; the
// filter plans each page header before libcups reads it.
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int RasterFilterMain(int argc, char** argv);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!std::freopen("/dev/null", "w", stdout)) std::abort();
  setenv("INKWEAVE_PLUGIN", INKWEAVE_PLUGIN_BUILD_PATH, 1);
  // Held for the whole run: the filter's own dlclose must not unload an instrumented library.
  if (!dlopen(INKWEAVE_PLUGIN_BUILD_PATH, RTLD_NOW | RTLD_NODELETE)) std::abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* zero = static_cast<const std::uint8_t*>(std::memchr(data, 0, size));
  std::string options(reinterpret_cast<const char*>(data), zero ? static_cast<std::size_t>(zero - data) : 0);
  const std::size_t skip = zero ? options.size() + 1 : 0;
  const int fd = memfd_create("raster", 0);
  if (fd < 0 || write(fd, data + skip, size - skip) != static_cast<ssize_t>(size - skip)) std::abort();
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  char name[] = "rastertoinkweave", id[] = "1", user[] = "fuzz", title[] = "fuzz", copies[] = "1";
  char* argv[] = {name, id, user, title, copies, options.data(), path.data(), nullptr};
  RasterFilterMain(7, argv);
  std::fflush(stdout);
  close(fd);
  return 0;
}
