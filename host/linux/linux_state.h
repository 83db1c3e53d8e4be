// The record of the Linux plane: what was asked for, what the kernel holds, and the elements of the filter's
// sets that tie the two. The plane's three sources work on it: linux_plane.cpp takes commands,
// linux_reconcile.cpp brings the kernel to what was asked for, linux_inspect.cpp describes both.
//
// Thread-safety
// -------------
// The board's lock is held for all of it.
#pragma once

#include <array>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/linux/kernel_links.h"
#include "host/linux/nft_filter.h"
#include "host/planes/plane_entries.h"

// How often each element is needed.
using Wanted = std::unordered_map<FilterElement, uint32_t, FilterElementHash>;

// `gone`: nothing of the table is in force. `parts`: nobody knows what is. `elements`: what is held is.
enum class TableDamage : uint8_t { none, gone, parts, elements };

struct LinuxPlane {
    Filter filter;
    int failure = ENOTCONN;  // 0 once the table was laid; else why it could not be
    std::string failureText = "the plane was not started";
    std::map<std::string, std::string> notes;

    // What was asked for, and the elements that make it up, each with how often it is needed.
    PlaneEntries twoWay;
    PlaneEntries oneWay;
    std::unordered_map<uint32_t, std::string> devices;  // by interface
    std::set<std::string> access;
    std::set<uint16_t> ponOff;
    EgressVlans egress;
    bool egressKnown = false;  // until then what an earlier run knew is in force
    Wanted wanted;

    // What the kernel held when the filter was at this generation. A later one means that somebody else has
    // changed the filter, this table or another.
    FilterElements held;
    uint32_t generation = 0;
    TableContent laid;
    FilterCounter pon = {};

    // What others have done to the table since it was laid.
    TableDamage damage = TableDamage::none;
    std::string damageText;                                     // in words that follow the table's name
    std::vector<std::string> differences;                       // of its parts
    std::unordered_set<FilterElement, FilterElementHash> lost;  // elements that are wanted

    uint64_t accepted = 0;
    uint64_t refused = 0;
};

inline LinuxPlane& linuxPlane(void* state) {
    return *static_cast<LinuxPlane*>(state);
}

// The name in an element, without the zeros behind it.
std::string_view deviceText(const std::array<char, FILTER_DEVICE_SIZE>& device);
// The one VLAN of all that leaves a device untagged; 0: there are several, or none is known.
uint16_t soleEgress(const LinuxPlane& plane, const std::string& device);
// Whether PON isolation is off in each of these VLANs.
bool allOff(const std::set<uint16_t>& ponOff, const std::vector<uint16_t>& vlans);

// The elements that make up a two-way isolation within `vid` (0: all traffic), or a one-way one. The devices
// of both ports are known to the plane.
std::vector<FilterElement> twoWayElements(const LinuxPlane& plane, PortPair pair, uint16_t vid);
std::vector<FilterElement> oneWayElements(const LinuxPlane& plane, PortPair pair);
FilterElement deviceElement(FilterSet set, const std::string& device);
FilterElement ponOffElement(uint32_t vid);
