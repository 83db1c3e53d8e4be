#include "host/linux/linux_devices.h"

#include "host/linux/linux_reconcile.h"
#include "host/linux/linux_turn.h"

namespace {

// What the entries of an interface make up.
std::vector<FilterElement> elementsOf(const LinuxPlane& plane, uint32_t ifUnit) {
    std::vector<FilterElement> elements;
    for (const auto& [other, device] : plane.devices) {
        for (const PortPair pair : {pairOf(ifUnit, other), pairOf(other, ifUnit)}) {
            for (const bool twoWay : {true, false}) {
                const PlaneEntries& entries = twoWay ? plane.twoWay : plane.oneWay;
                const auto entry = entries.find(pair);
                if (entry == entries.end()) continue;
                const auto made = entryElements(plane, twoWay, pair, entry->second);
                elements.insert(elements.end(), made.begin(), made.end());
            }
        }
    }
    const auto member = plane.members.find(ifUnit);
    if (member == plane.members.end()) return elements;
    for (const Membership& membership : member->second) {
        const auto made = membershipElements(plane, ifUnit, membership);
        elements.insert(elements.end(), made.begin(), made.end());
    }
    return elements;
}

}  // namespace

int32_t exchange(LinuxPlane& plane, const std::vector<FilterElement>& now,
                 const std::vector<FilterElement>& before) {
    FilterChange change;
    for (const FilterElement& element : now) want(plane, element, change);
    for (const FilterElement& element : before) unwant(plane, element, change);
    return commitInTurn(plane, change);
}

std::vector<FilterElement> entryElements(const LinuxPlane& plane, bool twoWay, PortPair pair,
                                         const PlaneIsolation& isolation) {
    return twoWay ? twoWayElements(plane, pair, isolation.vid) : oneWayElements(plane, pair);
}

int32_t setDevice(LinuxPlane& plane, uint32_t ifUnit, const std::string& device) {
    const auto [known, added] = plane.devices.try_emplace(ifUnit, PlaneDevice{device});
    if (added || known->second.name == device) return 0;
    const std::vector<FilterElement> before = elementsOf(plane, ifUnit);
    known->second.name = device;
    return exchange(plane, elementsOf(plane, ifUnit), before);
}

void useDevice(LinuxPlane& plane, uint32_t ifUnit, int32_t more) {
    const auto device = plane.devices.find(ifUnit);
    device->second.entries += static_cast<uint32_t>(more);
    if (device->second.entries == 0) plane.devices.erase(device);
}

void countEntry(LinuxPlane& plane, PortPair pair, int32_t more) {
    for (const uint32_t ifUnit : {sourceOf(pair), targetOf(pair)}) useDevice(plane, ifUnit, more);
}
