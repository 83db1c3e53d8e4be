// The forwarding plane's answer to whether traffic from one interface reaches another.
#pragma once

#include <cstdint>
#include <string>

#include "lib/link/session.h"

struct ForwardAnswer {
    std::string line;    // as it came
    std::string word;    // yes, no or partly
    std::string reason;  // empty: none
};

// VLAN 0: traffic of no particular VLAN. Ends the command when the board cannot be asked or its answer cannot
// be read.
ForwardAnswer askForward(Session& session, uint32_t from, uint32_t to, uint32_t vlan);
