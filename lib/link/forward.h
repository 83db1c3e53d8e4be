// The forwarding plane's answer to whether traffic from one interface reaches another.
#pragma once

#include <cstdint>
#include <string>

#include "common/spanning_groups.h"
#include "lib/link/session.h"

struct ForwardAnswer {
    std::string line;    // as it came
    std::string word;    // yes, no or partly
    std::string reason;  // empty: none
};

// VLAN 0: traffic of no particular VLAN. Ends the command when the board cannot be asked or its answer cannot
// be read.
ForwardAnswer askForward(Session& session, uint32_t from, uint32_t to, uint32_t vlan);
// The same for traffic of members of these groups on other machines.
ForwardAnswer askRemoteForward(Session& session, SpanningGroups groups, uint32_t to, uint32_t vlan);
