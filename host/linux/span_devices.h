// Ports of the bridge that lead to other machines, by name: the kernel's number of each, and whether it can
// carry groups there.
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct SpanDevice {
    uint32_t index;
    bool carries;
};
using SpanDevices = std::map<std::string, SpanDevice>;
