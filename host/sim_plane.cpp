#include "host/sim_plane.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <vector>

#include "host/statuses.h"
#include "host/text.h"

namespace {
using PortPair = uint64_t;  // source in the upper half
using Entries = std::unordered_map<PortPair, PlaneIsolation>;

PortPair pairOf(uint32_t src, uint32_t dst) {
    return static_cast<uint64_t>(src) << 32 | dst;
}
uint32_t sourceOf(PortPair pair) {
    return static_cast<uint32_t>(pair >> 32);
}
uint32_t targetOf(PortPair pair) {
    return static_cast<uint32_t>(pair);
}

struct SimPlane {
    Entries twoWay;
    Entries oneWay;
    std::map<uint32_t, std::set<uint32_t>> ponOff;  // VLAN: slots of the cards with PON isolation off
    uint64_t accepted = 0;
    uint64_t refused = 0;
};

SimPlane& simPlane(void* state) {
    return *static_cast<SimPlane*>(state);
}

void destroy(void* state) {
    delete static_cast<SimPlane*>(state);
}

int32_t counted(SimPlane& plane, bool accepted) {
    (accepted ? plane.accepted : plane.refused)++;
    return accepted ? 0 : HOST_STATUS_NOT_FOUND;
}

int32_t addTwoWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    SimPlane& plane = simPlane(state);
    plane.twoWay[pairOf(src.ifUnit, dst.ifUnit)] = isolation;
    return counted(plane, true);
}

int32_t deleteTwoWay(void* state, uint32_t src, uint32_t dst) {
    SimPlane& plane = simPlane(state);
    const bool found = plane.twoWay.erase(pairOf(src, dst)) > 0 || plane.twoWay.erase(pairOf(dst, src)) > 0;
    return counted(plane, found);
}

int32_t addOneWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    SimPlane& plane = simPlane(state);
    plane.oneWay[pairOf(src.ifUnit, dst.ifUnit)] = isolation;
    return counted(plane, true);
}

int32_t deleteOneWay(void* state, uint32_t src, uint32_t dst) {
    SimPlane& plane = simPlane(state);
    return counted(plane, plane.oneWay.erase(pairOf(src, dst)) > 0);
}

int32_t setPon(void* state, uint32_t vid, bool isolate, const std::set<uint32_t>& slots) {
    SimPlane& plane = simPlane(state);
    std::set<uint32_t>& off = plane.ponOff[vid];
    for (const uint32_t slot : slots) {
        if (isolate)
            off.erase(slot);
        else
            off.insert(slot);
    }
    if (off.empty()) plane.ponOff.erase(vid);
    return counted(plane, true);
}

void freshCard(void* state, uint32_t slot) {
    auto& ponOff = simPlane(state).ponOff;
    for (auto vlan = ponOff.begin(); vlan != ponOff.end();) {
        vlan->second.erase(slot);
        vlan = vlan->second.empty() ? ponOff.erase(vlan) : std::next(vlan);
    }
}

bool twoWayBlocks(const Entries& entries, uint32_t src, uint32_t dst, uint32_t vid, std::string& reason) {
    const auto found = entries.find(pairOf(src, dst));
    if (found == entries.end() || (found->second.vid != 0 && found->second.vid != vid)) return false;
    appendFormat(reason, "two-way isolation, group %u, ", found->second.group);
    if (found->second.vid == 0)
        reason += "all traffic";
    else
        appendFormat(reason, "VLAN %u", found->second.vid);
    return true;
}

bool ponIsolated(const SimPlane& plane, uint32_t vid, uint32_t slot) {
    const auto off = plane.ponOff.find(vid);
    return off == plane.ponOff.end() || !off->second.contains(slot);
}

bool forwards(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid, std::string& reason) {
    const SimPlane& plane = simPlane(state);
    std::string cause;
    if (twoWayBlocks(plane.twoWay, src.ifUnit, dst.ifUnit, vid, cause) ||
        twoWayBlocks(plane.twoWay, dst.ifUnit, src.ifUnit, vid, cause)) {
        // `cause` is complete
    } else if (plane.oneWay.contains(pairOf(src.ifUnit, dst.ifUnit))) {
        cause = "one-way isolation";
    } else if (vid != 0 && src.access && dst.access &&
               (ponIsolated(plane, vid, src.slot) || ponIsolated(plane, vid, dst.slot))) {
        appendFormat(cause, "PON isolation in VLAN %u", vid);
    } else {
        return true;
    }
    appendFormat(reason, "%s to %s: %s", src.name, dst.name, cause.c_str());
    return false;
}

std::vector<PortPair> sortedPairs(const Entries& entries) {
    std::vector<PortPair> pairs;
    pairs.reserve(entries.size());
    for (const auto& [pair, isolation] : entries) pairs.push_back(pair);
    std::sort(pairs.begin(), pairs.end());
    return pairs;
}

void list(void* state, std::string& text) {
    const SimPlane& plane = simPlane(state);
    for (const PortPair pair : sortedPairs(plane.twoWay)) {
        const PlaneIsolation& entry = plane.twoWay.at(pair);
        appendFormat(text, "bi %u %u vlan=%u group=%u serial=%u/%u\n", sourceOf(pair), targetOf(pair),
                     entry.vid, entry.group, entry.srcSerial, entry.dstSerial);
    }
    for (const PortPair pair : sortedPairs(plane.oneWay)) {
        const PlaneIsolation& entry = plane.oneWay.at(pair);
        appendFormat(text, "uni %u %u serial=%u/%u\n", sourceOf(pair), targetOf(pair), entry.srcSerial,
                     entry.dstSerial);
    }
    for (const auto& [vid, slots] : plane.ponOff) {
        appendFormat(text, "pon-off %u slots=", vid);
        const char* separator = "";
        for (const uint32_t slot : slots) {
            appendFormat(text, "%s%u", separator, slot);
            separator = ",";
        }
        text += '\n';
    }
}

PlaneCounters counters(void* state) {
    const SimPlane& plane = simPlane(state);
    return {plane.twoWay.size(), plane.oneWay.size(), plane.ponOff.size(), plane.accepted, plane.refused};
}

void inspectDirection(std::string& text, const char* kind, uint32_t src, uint32_t dst, uint32_t vid) {
    appendFormat(text, "entry kind=%s src=%u dst=%u vlan=", kind, src, dst);
    text += vid == 0 ? "-" : std::to_string(vid);
    text += " state=held packets=- bytes=-\n";
}

// What a simulated plane was told is what is in force.
void inspect(void* state, std::string& text) {
    const SimPlane& plane = simPlane(state);
    text += "plane name=sim state=ready\n";
    for (const PortPair pair : sortedPairs(plane.twoWay)) {
        const uint32_t vid = plane.twoWay.at(pair).vid;
        inspectDirection(text, "bi", sourceOf(pair), targetOf(pair), vid);
        inspectDirection(text, "bi", targetOf(pair), sourceOf(pair), vid);
    }
    for (const PortPair pair : sortedPairs(plane.oneWay))
        inspectDirection(text, "uni", sourceOf(pair), targetOf(pair), 0);
    for (const auto& [vid, slots] : plane.ponOff)
        appendFormat(text, "entry kind=pon-off src=- dst=- vlan=%u state=held packets=- bytes=-\n", vid);
}

int32_t nothingToDo(void*, uint64_t& changed) {
    changed = 0;
    return 0;
}
}  // namespace

Plane createSimPlane() {
    return {"sim",     new SimPlane, destroy, addTwoWay, deleteTwoWay, addOneWay,   deleteOneWay, setPon,
            freshCard, forwards,     list,    counters,  inspect,      nothingToDo, nothingToDo};
}
