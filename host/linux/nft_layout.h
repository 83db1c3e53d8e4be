// What of the filter's table stands: which kinds are in use, and the chains that follow from it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/spanning_groups.h"

// What of the table stands, and what the bridge takes for a frame's VLAN.
struct FilterLayout {
    bool pairs = false;   // is anything in `pairs`
    bool ports = false;   // in `vlan_ports`
    bool access = false;  // in `access`
    bool filters = true;  // the bridge filters VLANs, or it is not known
    uint16_t tagProtocol = 0x8100;
    std::vector<std::string> closed = {};  // patterns of the doors
    SpanningGroups spanPlain = 0;          // groups with members in `span_members`
    SpanningGroups spanVlan = 0;           // the same within VLANs
    SpanningGroups spanDoors = 0;          // groups in which a port is as long as its door is shut

    bool operator==(const FilterLayout&) const = default;
};

struct ChainShape {
    const char* name;
    bool hooked;
    uint32_t hook;
    int32_t priority;
};

inline constexpr char FORWARD_CHAIN[] = "forward";
