// What a forwarding plane was asked for, by the numbers of the interfaces: the same for every plane.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/planes/plane.h"
#include "host/planes/spread_map.h"

using PortPair = uint64_t;  // source in the upper half
// Two-way isolations by the two ports in the order of the add, one-way ones by source and target.
using PlaneEntries = SpreadMap<PortPair, PlaneIsolation>;

inline PortPair pairOf(uint32_t src, uint32_t dst) {
    return static_cast<uint64_t>(src) << 32 | dst;
}
inline uint32_t sourceOf(PortPair pair) {
    return static_cast<uint32_t>(pair >> 32);
}
inline uint32_t targetOf(PortPair pair) {
    return static_cast<uint32_t>(pair);
}

// By source, then by target.
std::vector<PortPair> sortedPairs(const PlaneEntries& entries);
// Appends one line per entry, two-way ones first, in the order of the ports.
void listEntries(const PlaneEntries& twoWay, const PlaneEntries& oneWay, std::string& text);
// The two-way entries of pairs of ports with an entry within a VLAN, in the same form.
void listWithinVlans(const PlaneEntries& twoWay, std::string& text);
// The entry that a delete of the ports in this order takes: that order's, else the reverse one's; `end` for
// none.
PlaneEntries::const_iterator findTwoWay(const PlaneEntries& entries, uint32_t src, uint32_t dst);
// "two-way isolation, group 5, VLAN 10"
std::string twoWayText(const PlaneIsolation& isolation);
