// Finding and opening the render plug-in library.
#pragma once

#include <memory>
#include <string>

#include "host/host.h"

namespace inkweave::cli {

// --plugin PATH when given; else libinkweave.so next to the program, then the one the program was
// built with. Null with a one-line *error when none can be opened.
std::unique_ptr<host::PluginLibrary> OpenPlugin(const std::string& requested, std::string* error);

}  // namespace inkweave::cli
