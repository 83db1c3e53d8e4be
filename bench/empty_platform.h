// A platform that does nothing, for measuring the daemon alone: every call answers at once with success, no
// text is formatted, the one lock is not locked. Only the memory pools are real, since their cost is part of
// every row.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct Device {
    uint32_t trunk = 0;  // the one interface that is a trunk, 0: none
    std::vector<uint32_t> members;
};

extern Device device;

// The daemon with these options and empty tables; memory of the one before is given back. Ends the process
// when it does not start.
void startDaemon(const std::map<std::string, std::string>& options);
