#include "host/planes/sim_plane.h"

#include <fmt/format.h>

#include <map>

#include "host/planes/plane_entries.h"
#include "wire/status.h"

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

void atOnce(void*) {}

int32_t counted(SimPlane& plane, bool accepted) {
    ++(accepted ? plane.accepted : plane.refused);
    return accepted ? 0 : STATUS_NOT_FOUND;
}

int32_t add(SimPlane& plane, PlaneEntries& entries, const PlanePort& src, const PlanePort& dst,
            const PlaneIsolation& isolation) {
    entries[pairOf(src.ifUnit, dst.ifUnit)] = isolation;
    return counted(plane, true);
}

int32_t remove(SimPlane& plane, PlaneEntries& entries, PlaneEntries::const_iterator entry) {
    if (entry == entries.end()) return counted(plane, false);
    entries.erase(entry);
    return counted(plane, true);
}

int32_t addTwoWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    SimPlane& plane = simPlane(state);
    return add(plane, plane.twoWay, src, dst, isolation);
}

int32_t deleteTwoWay(void* state, uint32_t src, uint32_t dst) {
    SimPlane& plane = simPlane(state);
    return remove(plane, plane.twoWay, findTwoWay(plane.twoWay, src, dst));
}

int32_t addOneWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    SimPlane& plane = simPlane(state);
    return add(plane, plane.oneWay, src, dst, isolation);
}

int32_t deleteOneWay(void* state, uint32_t src, uint32_t dst) {
    SimPlane& plane = simPlane(state);
    return remove(plane, plane.oneWay, plane.oneWay.find(pairOf(src, dst)));
}

int32_t setPon(void* state, uint32_t vid, bool isolate, const std::set<uint32_t>& slots) {
    SimPlane& plane = simPlane(state);
    std::set<uint32_t>& off = plane.ponOff[vid];
    for (const uint32_t slot : slots) {
        if (isolate) {
            off.erase(slot);
        } else {
            off.insert(slot);
        }
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

// The two-way isolation in this order that holds traffic of the VLAN; null for none.
const PlaneIsolation* twoWayIn(const PlaneEntries& entries, uint32_t src, uint32_t dst, uint32_t vid) {
    const auto found = entries.find(pairOf(src, dst));
    if (found == entries.end() || (found->second.vid != 0 && found->second.vid != vid)) return nullptr;
    return &found->second;
}

bool ponIsolated(const SimPlane& plane, uint32_t vid, uint32_t slot) {
    const auto off = plane.ponOff.find(vid);
    return off == plane.ponOff.end() || !off->second.contains(slot);
}

// Why the traffic does not pass; empty when it does.
std::string causeOf(const SimPlane& plane, const PlanePort& src, const PlanePort& dst, uint32_t vid) {
    const PlaneIsolation* twoWay = twoWayIn(plane.twoWay, src.ifUnit, dst.ifUnit, vid);
    if (twoWay == nullptr) twoWay = twoWayIn(plane.twoWay, dst.ifUnit, src.ifUnit, vid);
    if (twoWay != nullptr) return twoWayText(*twoWay);
    if (plane.oneWay.contains(pairOf(src.ifUnit, dst.ifUnit))) return "one-way isolation";
    if (vid != 0 && src.access && dst.access &&
        (ponIsolated(plane, vid, src.slot) || ponIsolated(plane, vid, dst.slot))) {
        return fmt::format("PON isolation in VLAN {}", vid);
    }
    return {};
}

bool forwards(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid, std::string& reason) {
    const std::string cause = causeOf(simPlane(state), src, dst, vid);
    if (!cause.empty()) reason += fmt::format("{} to {}: {}", src.name, dst.name, cause);
    return cause.empty();
}

void list(void* state, std::string& text) {
    const SimPlane& plane = simPlane(state);
    listEntries(plane.twoWay, plane.oneWay, text);
    for (const auto& [vid, slots] : plane.ponOff) {
        text += fmt::format("pon-off {} slots={}\n", vid, fmt::join(slots, ","));
    }
}

void listVlans(void* state, std::string& text) {
    listWithinVlans(simPlane(state).twoWay, text);
}

PlaneCounters counters(void* state) {
    const SimPlane& plane = simPlane(state);
    return {
        .twoWay = plane.twoWay.size(),
        .oneWay = plane.oneWay.size(),
        .ponOff = plane.ponOff.size(),
        .accepted = plane.accepted,
        .refused = plane.refused,
    };
}

void inspectDirection(std::string& text, const char* kind, uint32_t src, uint32_t dst, uint32_t vid) {
    text += fmt::format("entry kind={} src={} dst={} vlan={} state=held packets=- bytes=-\n", kind, src, dst,
                        vid == 0 ? "-" : std::to_string(vid));
}

// What a simulated plane was asked for is what is in force.
void inspect(void* state, std::string& text) {
    const SimPlane& plane = simPlane(state);
    text += "plane name=sim state=ready\nnote the plane is simulated: it isolates no real port\n";
    for (const PortPair pair : sortedPairs(plane.twoWay)) {
        const uint32_t vid = plane.twoWay.at(pair).vid;
        inspectDirection(text, "bi", sourceOf(pair), targetOf(pair), vid);
        inspectDirection(text, "bi", targetOf(pair), sourceOf(pair), vid);
    }
    for (const PortPair pair : sortedPairs(plane.oneWay)) {
        inspectDirection(text, "uni", sourceOf(pair), targetOf(pair), 0);
    }
    for (const auto& [vid, slots] : plane.ponOff) {
        text += fmt::format("entry kind=pon-off src=- dst=- vlan={} state=held packets=- bytes=-\n", vid);
    }
}

int32_t noDoors(void*, const std::vector<PlanePort>&, bool, uint64_t& changed) {
    changed = 0;
    return 0;
}

int32_t nothingToDo(void*, uint64_t& changed) {
    changed = 0;
    return 0;
}

}  // namespace

Plane createSimPlane() {
    return {
        .name = "sim",
        .state = new SimPlane,
        .destroy = destroy,
        .begin = atOnce,
        .end = atOnce,
        .addTwoWay = addTwoWay,
        .deleteTwoWay = deleteTwoWay,
        .addOneWay = addOneWay,
        .deleteOneWay = deleteOneWay,
        .setPon = setPon,
        .freshCard = freshCard,
        .forwards = forwards,
        .setMember = [](void*, const PlanePort&, uint32_t, uint16_t, bool) -> int32_t { return 0; },
        .setSpanning = [](void*, SpanningGroups) -> int32_t { return 0; },
        .remoteForwards = [](void*, const PlanePort&, SpanningGroups, uint32_t,
                             std::string&) { return true; },
        .list = list,
        .listWithinVlans = listVlans,
        .counters = counters,
        .inspect = inspect,
        .sweep = nothingToDo,
        .restore = nothingToDo,
        .setDoors = noDoors,
        .shutDoor = [](void*, const PlanePort&) { return false; },
    };
}
