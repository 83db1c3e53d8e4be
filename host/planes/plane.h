// A forwarding plane: what isolation commands finally act on. The board hands each command to the plane that
// its description chose and asks it whether traffic would pass; a plane of another kind comes as one more
// record of functions, without a change to the board or the daemon.
//
// A plane knows entries, not interfaces: all it learns about a port comes with the call.
//
// Thread-safety
// -------------
// A plane needs no lock of its own, since the board's is held during every call. It must not call back into
// the board.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "common/spanning_groups.h"

// What a plane needs to know of a port.
struct PlanePort {
    uint32_t ifUnit;
    uint32_t slot;
    bool access;              // held by the PON isolation of a VLAN
    bool trunkMember;         // its trunk carries its traffic
    const char* name;         // the operator's
    const char* device;       // the kernel's
    const char* trunkDevice;  // the kernel's name of its trunk; empty: none that is known
    const char* switchId;     // of the chip that forwards between its ports by itself; empty: none
    uint32_t index = 0;       // the kernel's number of it; 0: it is not there, or has none
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
    uint64_t twoWay;  // entries
    uint64_t oneWay;
    uint64_t ponOff;    // VLANs with PON isolation off on some card
    uint64_t accepted;  // commands so far
    uint64_t refused;
};

// The functions that return an int32_t answer 0 or a status that the daemon gets for its command; sweep and
// restore an errno value. Nothing is null.
struct Plane {
    const char* name;
    void* state;                   // the plane's own, for its functions
    void (*destroy)(void* state);  // the last call
    // The commands between the two belong together: a plane may put them in force as late as `end`, which
    // reports what could not be, and shows it as missing or left over.
    void (*begin)(void* state);
    void (*end)(void* state);
    // Two-way isolations are held by the two ports in the order of the add. An add of ports that are held
    // already replaces the entry. A delete takes the entry of exactly its ports, else that of the ports in
    // reverse.
    int32_t (*addTwoWay)(void* state, const PlanePort& src, const PlanePort& dst,
                         const PlaneIsolation& isolation);
    int32_t (*deleteTwoWay)(void* state, uint32_t src, uint32_t dst);
    int32_t (*addOneWay)(void* state, const PlanePort& src, const PlanePort& dst,
                         const PlaneIsolation& isolation);
    int32_t (*deleteOneWay)(void* state, uint32_t src, uint32_t dst);
    // Switches PON isolation of a VLAN on these cards. A card that comes up fresh has it on in every VLAN.
    int32_t (*setPon)(void* state, uint32_t vid, bool isolate, const std::set<uint32_t>& slots);
    void (*freshCard)(void* state, uint32_t slot);
    // Whether traffic from one port to another passes; if not, `reason` says why. VLAN 0: traffic of no
    // particular VLAN, held up only by what applies to all traffic.
    bool (*forwards)(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid,
                     std::string& reason);
    // A port is, or is no more, an active member of an isolation group; `vid` 0: of a plain one. Of the
    // groups that setSpanning names the plane carries the membership to other machines, where it can. What is
    // so already may be said again.
    int32_t (*setMember)(void* state, const PlanePort& port, uint32_t group, uint16_t vid, bool member);
    int32_t (*setSpanning)(void* state, SpanningGroups groups);
    // Whether what a member of these groups sends on another machine passes to the port; otherwise as
    // `forwards`.
    bool (*remoteForwards)(void* state, const PlanePort& dst, SpanningGroups groups, uint32_t vid,
                           std::string& reason);
    // Appends one line per entry, in a fixed order.
    void (*list)(void* state, std::string& text);
    // The same for two-way isolations of ports that are isolated within a VLAN. Does not ask the kernel.
    void (*listWithinVlans)(void* state, std::string& text);
    PlaneCounters (*counters)(void* state);
    // Appends what is really in force beside what was asked for, in lines of `key=value`:
    //   plane name=NAME state=ready|gone|changed|failed [heal=own|watch|off healed=N]
    //   doors packets=N bytes=N, where ports can have doors: what these held
    //   note SENTENCE
    //   spanning GROUPS, where ports carry groups to other machines
    //   span device=PORT state=carries|plain|absent, for each of these
    //   entry kind=bi|uni|pon|pon-off|span src=PORT|- dst=PORT|- vlan=VID|- [group=N]
    //         state=held|left-over|missing packets=N|- bytes=N|-
    // where PORT is the kernel's name, or the interface's number where there is none, and GROUPS are as in
    // common/spanning_groups.h. A port that does not carry groups is closed to members of those that span.
    // A two-way isolation has an entry for each direction. `pon` is the PON isolation of all VLANs that have
    // no `pon-off`. `span` is what a member of a group is kept from by members on other machines; it alone
    // has a group. What is left over was in force before the daemon started and has not been asked for since.
    void (*inspect)(void* state, std::string& text);
    // Removes what is left over; puts in force what is missing. Both count what they changed.
    int32_t (*sweep)(void* state, uint64_t& changed);
    int32_t (*restore)(void* state, uint64_t& changed);
    // Opens or shuts the doors of those of the ports that have one, all or, with an errno value, none, and
    // counts those that were not so before. Ports with shut doors do not reach one another. The door of a
    // port of which some isolation is missing stays shut.
    int32_t (*setDoors)(void* state, const std::vector<PlanePort>& ports, bool open, uint64_t& changed);
    bool (*shutDoor)(void* state, const PlanePort& port);
};
