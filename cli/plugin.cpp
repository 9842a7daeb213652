#include "cli/plugin.h"

#include <unistd.h>

#include <climits>
#include <vector>

namespace inkweave::cli {
namespace {

std::string ProgramDirectory() {
  char buffer[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) return {};
  std::string path(buffer, static_cast<std::size_t>(n));
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

std::unique_ptr<host::PluginLibrary> OpenPlugin(const std::string& requested, std::string* error) {
  std::string why;
  if (!requested.empty()) {
    // A bare name would make dlopen search the system paths; the user meant a file.
    const std::string path = requested.find('/') == std::string::npos ? "./" + requested : requested;
    auto library = host::PluginLibrary::Open(path, &why);
    if (!library && error) *error = "--plugin " + requested + ": " + why;
    return library;
  }
  std::vector<std::string> candidates;
  if (const std::string dir = ProgramDirectory(); !dir.empty()) {
    candidates.push_back(dir + "/libinkweave.so");
    candidates.push_back(dir + "/../lib/libinkweave.so");
    candidates.push_back(dir + "/../lib/inkweave/libinkweave.so");  // installed: <prefix>/bin, <prefix>/lib/inkweave
  }
#ifdef INKWEAVE_BUILT_PLUGIN
  candidates.push_back(INKWEAVE_BUILT_PLUGIN);
#endif
  for (const std::string& path : candidates) {
    if (access(path.c_str(), F_OK) != 0) continue;
    if (auto library = host::PluginLibrary::Open(path, &why)) return library;
    if (error) *error = "cannot load the plug-in " + path + ": " + why;
    return nullptr;
  }
  if (error) *error = "cannot find the plug-in libinkweave.so next to the program; name it with --plugin PATH";
  return nullptr;
}

}  // namespace inkweave::cli
