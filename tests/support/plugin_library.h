// The plug-in shared library under test, opened once per test program.
#pragma once

#include <gtest/gtest.h>

#include "host/host.h"

namespace inkweave::testing {

inline const host::PluginEntry& SharedPlugin() {
  static std::unique_ptr<host::PluginLibrary> library = [] {
    std::string error;
    auto lib = host::PluginLibrary::Open(INKWEAVE_PLUGIN_PATH, &error);
    if (!lib) ADD_FAILURE() << "cannot open the plug-in library: " << error;
    return lib;
  }();
  static const host::PluginEntry none{};
  return library ? library->Entry() : none;
}

}  // namespace inkweave::testing
