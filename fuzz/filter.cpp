// The CUPS filter on any raster stream, run as CUPS runs it (the input a file, the printer stream to
// standard output, here /dev/null), with the plug-in library it loads.
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
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
  const int fd = memfd_create("raster", 0);
  if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size)) std::abort();
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  char name[] = "rastertoinkweave", id[] = "1", user[] = "fuzz", title[] = "fuzz", copies[] = "1", options[] = "";
  char* argv[] = {name, id, user, title, copies, options, path.data(), nullptr};
  RasterFilterMain(7, argv);
  std::fflush(stdout);
  close(fd);
  return 0;
}
