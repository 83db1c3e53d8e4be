#include "host/linux/linux_plane.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/linux/linux_devices.h"
#include "host/linux/linux_doors.h"
#include "host/linux/linux_inspect.h"
#include "host/linux/linux_reconcile.h"
#include "host/linux/linux_span.h"
#include "host/linux/linux_state.h"
#include "host/linux/linux_turn.h"
#include "host/linux/nft_doors.h"
#include "host/services/logging.h"
#include "wire/status.h"

namespace {

int32_t counted(LinuxPlane& plane, int32_t status) {
    ++(status == 0 ? plane.accepted : plane.refused);
    return status;
}

// The daemon must not rely on an isolation that the kernel cannot keep. A one-way isolation towards a trunk
// is commanded for each of its member ports, and holds for the trunk.
int32_t refusal(bool twoWay, const PlanePort& src, const PlanePort& dst) {
    for (const PlanePort* port : {&src, &dst}) {
        if (std::strlen(port->device) >= FILTER_DEVICE_SIZE) {
            hostReport("{} is not isolated: the name is too long for a device of the kernel", port->device);
            return ENAMETOOLONG;
        }
        const bool trunkKnown = !twoWay && port == &dst && *port->trunkDevice != '\0';
        if (!port->trunkMember || trunkKnown) continue;
        hostReport("{} is a member port of a trunk and cannot be isolated by itself: isolate the trunk",
                   port->name);
        return EBUSY;
    }
    if (src.ifUnit != dst.ifUnit && *src.switchId != '\0' && std::strcmp(src.switchId, dst.switchId) == 0) {
        hostReport("{} and {} are not isolated: their switch chip forwards between them without the kernel",
                   src.name, dst.name);
        return EOPNOTSUPP;
    }
    return 0;
}

int32_t addEntry(LinuxPlane& plane, bool twoWay, const PlanePort& src, const PlanePort& dst,
                 const PlaneIsolation& isolation) {
    const int32_t refused = refusal(twoWay, src, dst);
    if (refused != 0 || src.ifUnit == dst.ifUnit) return refused;
    noteOwnMachine(plane, twoWay, isolation.group);
    setDevice(plane, src.ifUnit, src.device);
    setDevice(plane, dst.ifUnit, dst.trunkMember ? dst.trunkDevice : dst.device);
    PlaneEntries& entries = twoWay ? plane.twoWay : plane.oneWay;
    const PortPair pair = pairOf(src.ifUnit, dst.ifUnit);
    const auto former = entries.find(pair);
    const auto now = entryElements(plane, twoWay, pair, isolation);
    std::vector<FilterElement> before;
    if (former != entries.end()) before = entryElements(plane, twoWay, pair, former->second);

    const int32_t problem = exchange(plane, now, before);
    // The daemon keeps a one-way pair whose isolation was refused: it stays asked for, and is missing.
    if (problem == 0 || !twoWay) {
        countEntry(plane, pair, former == entries.end() ? 1 : 0);
        entries[pair] = isolation;
        return problem;
    }
    countEntry(plane, pair, 0);
    FilterChange undone;
    for (const FilterElement& element : before) want(plane, element, undone);
    for (const FilterElement& element : now) unwant(plane, element, undone);
    return problem;
}

// The entry goes even when the kernel refuses: nobody will ask for its release again. What the kernel then
// still holds is left over.
int32_t deleteEntry(LinuxPlane& plane, PlaneEntries& entries, PlaneEntries::const_iterator entry,
                    bool twoWay) {
    if (entry == entries.end()) return STATUS_NOT_FOUND;
    FilterChange change;
    for (const FilterElement& element : entryElements(plane, twoWay, entry->first, entry->second)) {
        unwant(plane, element, change);
    }
    countEntry(plane, entry->first, -1);
    entries.erase(entry);
    return commitInTurn(plane, change);
}

int32_t addTwoWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    LinuxPlane& plane = linuxPlane(state);
    return counted(plane, addEntry(plane, true, src, dst, isolation));
}

int32_t deleteTwoWay(void* state, uint32_t src, uint32_t dst) {
    LinuxPlane& plane = linuxPlane(state);
    if (src == dst) return counted(plane, 0);
    return counted(plane, deleteEntry(plane, plane.twoWay, findTwoWay(plane.twoWay, src, dst), true));
}

int32_t addOneWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    LinuxPlane& plane = linuxPlane(state);
    return counted(plane, addEntry(plane, false, src, dst, isolation));
}

int32_t deleteOneWay(void* state, uint32_t src, uint32_t dst) {
    LinuxPlane& plane = linuxPlane(state);
    if (src == dst) return counted(plane, 0);
    return counted(plane, deleteEntry(plane, plane.oneWay, plane.oneWay.find(pairOf(src, dst)), false));
}

// The kernel has no cards: a VLAN is switched as a whole. As with a delete that is refused, what the kernel
// still has off then is left over.
int32_t setPon(void* state, uint32_t vid, bool isolate, const std::set<uint32_t>&) {
    LinuxPlane& plane = linuxPlane(state);
    const auto number = static_cast<uint16_t>(vid);
    const std::vector<FilterElement> elements = ponOffElements(plane, vid);
    FilterChange change;
    if (!isolate) {
        const bool former = plane.ponOff.contains(number);
        for (const FilterElement& element : elements) {
            if (former) change.add.push_back(element);
            if (!former) want(plane, element, change);
        }
        const int32_t problem = commitInTurn(plane, change);
        if (problem == 0) plane.ponOff.insert(number);
        FilterChange undone;
        for (const FilterElement& element : elements) {
            if (problem != 0 && !former) unwant(plane, element, undone);
        }
        return counted(plane, problem);
    }
    if (plane.ponOff.erase(number) != 0) {
        for (const FilterElement& element : elements) unwant(plane, element, change);
    } else if (plane.held.contains(elements.front())) {
        change.del.push_back(elements.front());
    }
    return counted(plane, commitInTurn(plane, change));
}

void freshCard(void*, uint32_t) {}

int32_t sweep(void* state, uint64_t& changed) {
    LinuxPlane& plane = linuxPlane(state);
    changed = 0;
    flushTurn(plane);
    const int problem = plane.failure != 0 ? plane.failure : refreshIfChanged(plane);
    if (problem != 0) return problem;
    std::vector<FilterElement> leftOver;
    for (const auto& [element, counter] : plane.held) {
        if (!plane.wanted.contains(element)) leftOver.push_back(element);
    }
    return commitElements(plane, false, leftOver, changed);
}

int32_t restore(void* state, uint64_t& changed) {
    LinuxPlane& plane = linuxPlane(state);
    changed = 0;
    flushTurn(plane);
    int problem = plane.failure != 0 ? plane.failure : refresh(plane);
    const size_t parts = plane.differences.size();
    if (problem == 0 && parts != 0) problem = layLayout(plane, plane.layout);
    if (problem != 0) return problem;
    changed = parts;
    std::vector<FilterElement> missing;
    for (const auto& [element, uses] : plane.wanted) {
        if (!plane.held.contains(element)) missing.push_back(element);
    }
    return commitElements(plane, true, missing, changed);
}

void begin(void* state) {
    beginTurn(linuxPlane(state));
}

void end(void* state) {
    closeTurn(linuxPlane(state));
}

void destroy(void* state) {
    LinuxPlane* plane = &linuxPlane(state);
    closeFilter(plane->filter);
    delete plane;
}

}  // namespace

Plane createLinuxPlane() {
    return {
        .name = "linux",
        .state = new LinuxPlane,
        .destroy = destroy,
        .begin = begin,
        .end = end,
        .addTwoWay = addTwoWay,
        .deleteTwoWay = deleteTwoWay,
        .addOneWay = addOneWay,
        .deleteOneWay = deleteOneWay,
        .setPon = setPon,
        .freshCard = freshCard,
        .forwards = linuxForwards,
        .setMember = linuxSetMember,
        .setSpanning = linuxSetSpanning,
        .remoteForwards = linuxRemoteForwards,
        .list = linuxList,
        .listWithinVlans = linuxListWithinVlans,
        .counters = linuxCounters,
        .inspect = linuxInspect,
        .sweep = sweep,
        .restore = restore,
        .setDoors = linuxSetDoors,
        .shutDoor = linuxShutDoor,
    };
}

std::string startLinuxPlane(const Plane& handle, const LinuxPlaneStart& start) {
    LinuxPlane& plane = linuxPlane(handle.state);
    plane.filter.markMask = start.frameMark;
    plane.layout.filters = start.vlans.filters;
    plane.layout.tagProtocol = start.vlans.tagProtocol;
    plane.access = start.access;
    plane.bridge = start.bridge;
    plane.healing.mode = start.healing;
    plane.layout.closed = doorPatterns(start.closed);
    beginSpan(plane, start.span);
    const bool overlaps = !start.span.empty() && (start.frameMark & GROUP_BITS) != 0;
    plane.failure = overlaps ? EINVAL : openFilter(plane.filter);
    if (plane.failure == 0) plane.failure = layFirst(plane);
    if (plane.failure == 0) adoptDoors(plane);
    if (plane.failure == 0) adoptCarriers(plane);
    if (plane.failure == 0) plane.failure = reconcile(plane);
    plane.failureText = plane.failure == 0 ? "" : linuxFailure(plane);
    if (plane.failure == 0) reportStart(plane);
    return plane.failureText;
}

int32_t renameLinuxPort(const Plane& handle, uint32_t ifUnit, const std::string& device) {
    LinuxPlane& plane = linuxPlane(handle.state);
    if (!plane.devices.contains(ifUnit)) return 0;
    const int32_t problem = setDevice(plane, ifUnit, device);
    flushTurn(plane);
    return problem;
}

void setLinuxVlans(const Plane& handle, const BridgeVlans& vlans) {
    LinuxPlane& plane = linuxPlane(handle.state);
    FilterLayout layout = plane.layout;
    layout.filters = vlans.filters;
    layout.tagProtocol = vlans.tagProtocol;
    if (plane.failure != 0 || layout == plane.layout) return;
    // Without a port whose frames are marked it is not in any rule yet.
    const int problem = layout.ports ? layLayout(plane, layout) : 0;
    if (problem == 0) {
        plane.layout = layout;
    } else {
        hostReport("the filter does not know the VLANs of the bridge: {}", std::strerror(problem));
    }
}

void setLinuxSpan(const Plane& handle, const SpanDevices& devices) {
    followSpan(linuxPlane(handle.state), devices);
}

void watchLinuxTable(const Plane& handle, const std::string& by) {
    LinuxPlane& plane = linuxPlane(handle.state);
    plane.healing.by = by;
    if (plane.failure == 0 && refreshIfChanged(plane) == 0) trimTable(plane);
}

uint32_t watchedPort(const Plane& handle) {
    const LinuxPlane& plane = linuxPlane(handle.state);
    const bool watches = plane.failure == 0 && plane.healing.mode != Healing::off && !plane.filter.owns;
    return watches ? portOf(plane.filter) : 0;
}

void keepLinuxDoors(const Plane& handle, const std::set<std::pair<uint32_t, std::string>>& present) {
    keepDoors(linuxPlane(handle.state), present);
}

void setLinuxNote(const Plane& handle, const std::string& key, const std::string& sentence) {
    auto& notes = linuxPlane(handle.state).notes;
    if (sentence.empty()) {
        notes.erase(key);
    } else {
        notes[key] = sentence;
    }
}
