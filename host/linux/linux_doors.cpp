#include "host/linux/linux_doors.h"

#include "host/linux/linux_reconcile.h"
#include "host/linux/linux_turn.h"
#include "host/linux/nft_doors.h"

namespace {

using Doors = std::unordered_set<FilterElement, FilterElementHash>;

bool hasDoor(const LinuxPlane& plane, const PlanePort& port) {
    return port.index != 0 && !port.trunkMember && matchesDoor(plane.layout.closed, port.device);
}

// Those of which something that is asked for does not stand.
std::set<std::string_view> devicesMissing(const LinuxPlane& plane) {
    std::set<std::string_view> devices;
    for (const auto& [element, uses] : plane.wanted) {
        if (plane.held.contains(element)) continue;
        devices.insert(deviceText(element.src));
        devices.insert(deviceText(element.dst));
    }
    return devices;
}

// One transaction; what the kernel refuses is as it was.
int32_t changeDoors(LinuxPlane& plane, const Doors& doors, bool open) {
    FilterChange change;
    for (const FilterElement& door : doors) open ? want(plane, door, change) : unwant(plane, door, change);
    const int32_t problem = commitChange(plane, change);
    if (problem == 0) {
        for (const FilterElement& door : doors) {
            if (open) plane.opened.insert(door);
            if (!open) plane.opened.erase(door);
        }
        return 0;
    }
    FilterChange undone;
    for (const FilterElement& door : doors) open ? unwant(plane, door, undone) : want(plane, door, undone);
    return problem;
}

}  // namespace

int32_t linuxSetDoors(void* state, const std::vector<PlanePort>& ports, bool open, uint64_t& changed) {
    LinuxPlane& plane = linuxPlane(state);
    changed = 0;
    if (plane.layout.closed.empty()) return 0;
    // What isolates comes before what opens.
    flushTurn(plane);
    if (plane.failure == 0) refreshIfChanged(plane);
    const std::set<std::string_view> waiting = open ? devicesMissing(plane) : std::set<std::string_view>{};
    Doors doors;
    for (const PlanePort& port : ports) {
        const FilterElement door = indexedElement(FilterKind::opened, port.index, port.device);
        if (waiting.contains(port.device)) continue;
        if (hasDoor(plane, port) && plane.opened.contains(door) != open) doors.insert(door);
    }
    if (doors.empty()) return 0;
    const int32_t problem = changeDoors(plane, doors, open);
    if (problem == 0) changed = doors.size();
    return problem;
}

bool linuxShutDoor(void* state, const PlanePort& port) {
    return isShut(linuxPlane(state), port);
}

bool isShut(const LinuxPlane& plane, const PlanePort& port) {
    return hasDoor(plane, port) &&
           !plane.held.contains(indexedElement(FilterKind::opened, port.index, port.device));
}

void adoptDoors(LinuxPlane& plane) {
    for (const auto& [element, counter] : plane.held) {
        const bool door =
            element.kind == FilterKind::opened && matchesDoor(plane.layout.closed, deviceText(element.src));
        if (door) plane.opened.insert(element);
    }
}

void keepDoors(LinuxPlane& plane, const PresentPorts& present) {
    if (plane.failure != 0 || plane.opened.empty()) return;
    Doors gone = plane.opened;
    for (const auto& [index, device] : present) gone.erase(indexedElement(FilterKind::opened, index, device));
    if (!gone.empty()) changeDoors(plane, gone, false);
}
