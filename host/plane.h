// A forwarding plane: what isolation commands finally act on. The board hands each command to the plane that
// its description chose and asks it whether traffic would pass; a plane of another kind comes as one more
// record of functions, without a change to the board or the daemon.
//
// A plane knows entries, not interfaces: all it learns about a port comes with the call. It needs no lock of
// its own, the board's lock is held during every call.
#pragma once

#include <cstdint>
#include <set>
#include <string>

// What a plane needs to know of a port.
struct PlanePort {
    uint32_t ifUnit;
    uint32_t slot;
    bool pon;
    const char* name;
};

// One isolation as the daemon commanded it. Two-way ones bear a VLAN (0: all traffic) and the group that
// asked first; serial numbers are 0 when they are not in use.
struct PlaneIsolation {
    uint16_t vid;
    uint16_t srcSerial;
    uint16_t dstSerial;
    uint32_t group;
};

struct PlaneCounters {
    uint64_t twoWay;  // entries held
    uint64_t oneWay;
    uint64_t ponOff;    // VLANs with PON isolation off on some card
    uint64_t accepted;  // commands so far
    uint64_t refused;
};

struct Plane {
    const char* name;
    void* state;
    // Two-way isolations are held by the two ports in the order of the add. An add of ports that are held
    // already replaces the entry. A delete takes the entry of exactly its ports, else that of the ports in
    // reverse.
    int32_t (*addTwoWay)(void* state, uint32_t src, uint32_t dst, const PlaneIsolation& isolation);
    int32_t (*deleteTwoWay)(void* state, uint32_t src, uint32_t dst);
    int32_t (*addOneWay)(void* state, uint32_t src, uint32_t dst, const PlaneIsolation& isolation);
    int32_t (*deleteOneWay)(void* state, uint32_t src, uint32_t dst);
    // Switches PON isolation of a VLAN on these cards. A card that comes up fresh has it on in every VLAN.
    int32_t (*setPon)(void* state, uint32_t vid, bool isolate, const std::set<uint32_t>& slots);
    void (*freshCard)(void* state, uint32_t slot);
    // Whether traffic from one port to another passes; if not, `reason` says why. VLAN 0: traffic of no
    // particular VLAN, held up only by what applies to all traffic.
    bool (*forwards)(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid,
                     std::string& reason);
    // One line per entry, in a fixed order.
    void (*list)(void* state, std::string& text);
    PlaneCounters (*counters)(void* state);
};
