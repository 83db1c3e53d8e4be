// What a file is resolved against, and what it comes to (lib/configuration/resolution.h).
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lib/configuration/configuration.h"

struct DaemonLimits {
    uint32_t groups = 16;  // the highest number
    uint32_t portsPerGroup = 64;
    uint32_t pairsPerSource = 64;
};

// What a file is resolved against.
struct Standing {
    Configuration running{};
    std::set<ConfigRow> owned{};  // rows that a file wanted before
    bool ownsAll = false;         // all of them may be given up
    DaemonLimits limits{};
};

// Where a row comes from.
struct Origin {
    Place place;
    std::string policy{};  // empty: of none
    bool pattern = false;
};

// What a policy uses.
struct PolicyUse {
    std::string name;
    std::set<uint32_t> groups;
    size_t pairs = 0;  // of ports, two rows each
};

struct Resolution {
    Configuration wanted{};
    std::map<ConfigRow, Origin> origins{};
    std::vector<PolicyUse> policies{};
    std::vector<std::string> notes{};  // of what is right, and may not be meant so
};
