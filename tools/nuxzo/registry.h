// Lookup side of the registries in tool.h (used by main and the file commands).
#pragma once

#include <map>
#include <string>

#include "tool.h"

namespace nuxzo {

struct Format {
    std::string name, suffix;
    CompressFn compress = nullptr;
    DetectFn detect = nullptr;
    DecompressFn decompress = nullptr;
};

struct Command {
    std::string usage;
    CommandFn fn;
};

std::map<std::string, Format>& formats();
std::map<std::string, Command>& commands();

}  // namespace nuxzo
