#include "host/planes/sim_plane.h"

#include <map>

#include "common/text.h"
#include "host/planes/plane_entries.h"
#include "wire/statuses.h"

namespace {
struct SimPlane {
    PlaneEntries twoWay;
    PlaneEntries oneWay;
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
    const auto found = findTwoWay(plane.twoWay, src, dst);
    if (found == plane.twoWay.end()) return counted(plane, false);
    plane.twoWay.erase(found);
    return counted(plane, true);
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

bool twoWayBlocks(const PlaneEntries& entries, uint32_t src, uint32_t dst, uint32_t vid,
                  std::string& reason) {
    const auto found = entries.find(pairOf(src, dst));
    if (found == entries.end() || (found->second.vid != 0 && found->second.vid != vid)) return false;
    describeTwoWay(found->second, reason);
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

void list(void* state, std::string& text) {
    const SimPlane& plane = simPlane(state);
    listEntries(plane.twoWay, plane.oneWay, text);
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
