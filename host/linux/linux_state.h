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
#include <compare>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/linux/kernel_links.h"
#include "host/linux/nft_filter.h"
#include "host/planes/healing.h"
#include "host/planes/plane_entries.h"

// How often each element is needed.
using Wanted = SpreadMap<FilterElement, uint32_t, FilterElementHash>;

// Whether commands are being gathered; `begun`: from the next one on.
enum class PlaneTurn : uint8_t { none, begun, gathers };

// `gone`: nothing of the table is in force. `parts`: nobody knows what is. `elements`: what is held is.
enum class TableDamage : uint8_t { none, gone, parts, elements };

struct HealingState {
    Healing mode = Healing::off;
    bool busy = false;
    uint64_t count = 0;
    std::deque<int64_t> recent;  // when the last few were, in milliseconds
    bool spell = false;          // they follow one another too fast to be told one by one
    uint64_t untold = 0;
    std::string by;  // who was at it last, where it is known
};

// The kernel's name of an interface, and of how many entries it is a part.
struct PlaneDevice {
    std::string name;
    uint32_t entries = 0;
};

// In a group; the VLAN of one of its own, else 0.
struct Membership {
    uint32_t group;
    uint16_t vid;
    auto operator<=>(const Membership&) const = default;
};

// `plain`: it is no vxlan device with the group policy extension.
enum class SpanState : uint8_t { carries, plain, absent };

struct LinuxPlane {
    Filter filter;
    int failure = ENOTCONN;  // 0 once the table was laid; else why it could not be
    std::string failureText = "the plane was not started";
    std::map<std::string, std::string> notes;
    std::string bridge;

    // What was asked for, and the elements that make it up, each with how often it is needed.
    PlaneEntries twoWay;
    PlaneEntries oneWay;
    std::unordered_map<uint32_t, PlaneDevice> devices;  // by interface
    std::set<std::string> access;
    std::set<uint16_t> ponOff;
    std::unordered_set<FilterElement, FilterElementHash> opened;  // doors
    std::map<uint32_t, std::set<Membership>> members;             // by interface
    SpanningGroups spanning = SPANNING_ALL;
    std::map<std::string, SpanState> spanPorts;                     // as it was last told, by device
    std::unordered_set<FilterElement, FilterElementHash> carriers;  // those of them that carry
    Wanted wanted;

    PlaneTurn turn = PlaneTurn::none;
    std::unordered_set<FilterElement, FilterElementHash> gathered;  // the kernel has not heard of these yet

    // What the kernel held when the filter was at this generation. A later one means that somebody else has
    // changed the filter, this table or another.
    FilterElements held;
    KindCounts heldOf = {};
    std::array<size_t, SPANNING_GROUP_MAX> plainMembers = {};  // of these, by group
    std::array<size_t, SPANNING_GROUP_MAX> vlanMembers = {};
    uint32_t generation = 0;
    bool marksMoved = false;  // what names VLANs stands under another frame mark
    bool exchanges = false;   // a table of another kind stands there
    FilterLayout layout;
    TableContent laid;
    RuleCounters counted = {};  // what the rules of the table count

    // What others have done to the table since it was laid.
    TableDamage damage = TableDamage::none;
    std::string damageText;                                     // in words that follow the table's name
    std::vector<std::string> differences;                       // of its parts
    std::unordered_set<FilterElement, FilterElementHash> lost;  // elements that are wanted
    std::vector<FilterElement> intruders;                       // elements that open something
    HealingState healing;

    uint64_t accepted = 0;
    uint64_t refused = 0;
};

inline LinuxPlane& linuxPlane(void* state) {
    return *static_cast<LinuxPlane*>(state);
}

// The needs that make up a two-way isolation within `vid` (0: all traffic), or a one-way one, with all that
// follows from them. The devices of both ports are known to the plane.
std::vector<FilterElement> twoWayElements(const LinuxPlane& plane, PortPair pair, uint16_t vid);
std::vector<FilterElement> oneWayElements(const LinuxPlane& plane, PortPair pair);
std::vector<FilterElement> accessElements(const LinuxPlane& plane, const std::string& device);
std::vector<FilterElement> ponOffElements(const LinuxPlane& plane, uint32_t vid);
// None when the group does not span.
std::vector<FilterElement> membershipElements(const LinuxPlane& plane, uint32_t ifUnit,
                                              const Membership& membership);

// Whether it is asked for, and shown; the others follow from these.
inline bool isEntry(const FilterElement& element) {
    if (element.kind == FilterKind::member) return element.vid != VID_UNKNOWN;
    return element.kind <= FilterKind::ponOff || element.kind == FilterKind::strange;
}

// Whether it stands in the kernel with all that it takes.
bool isInForce(const LinuxPlane& plane, const FilterElement& element);
// Nobody knows what is in force.
bool isUncertain(const LinuxPlane& plane);
