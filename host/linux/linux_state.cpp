#include "host/linux/linux_state.h"

#include <algorithm>

namespace {

void appendNeed(const LinuxPlane& plane, const FilterElement& element, std::vector<FilterElement>& elements) {
    elements.push_back(element);
    for (const FilterElement& follows : consequencesOf(plane.filter, element)) elements.push_back(follows);
}

void appendDirection(const LinuxPlane& plane, const std::string& src, const std::string& dst, uint16_t vid,
                     std::vector<FilterElement>& elements) {
    if (src == dst) return;  // what a port reflects is not held
    appendNeed(plane, filterElement(vid == 0 ? FilterKind::twoWay : FilterKind::twoWayVlan, src, dst, vid),
               elements);
}

}  // namespace

std::vector<FilterElement> twoWayElements(const LinuxPlane& plane, PortPair pair, uint16_t vid) {
    const std::string& src = plane.devices.at(sourceOf(pair)).name;
    const std::string& dst = plane.devices.at(targetOf(pair)).name;
    std::vector<FilterElement> elements;
    elements.reserve(2);
    appendDirection(plane, src, dst, vid, elements);
    appendDirection(plane, dst, src, vid, elements);
    return elements;
}

std::vector<FilterElement> oneWayElements(const LinuxPlane& plane, PortPair pair) {
    const std::string& src = plane.devices.at(sourceOf(pair)).name;
    const std::string& dst = plane.devices.at(targetOf(pair)).name;
    if (src == dst) return {};
    return {filterElement(FilterKind::oneWay, src, dst, 0)};
}

std::vector<FilterElement> accessElements(const LinuxPlane& plane, const std::string& device) {
    std::vector<FilterElement> elements;
    appendNeed(plane, filterElement(FilterKind::access, device, "", 0), elements);
    return elements;
}

std::vector<FilterElement> ponOffElements(const LinuxPlane& plane, uint32_t vid) {
    std::vector<FilterElement> elements;
    appendNeed(plane, filterElement(FilterKind::ponOff, "", "", static_cast<uint16_t>(vid)), elements);
    return elements;
}

std::vector<FilterElement> membershipElements(const LinuxPlane& plane, uint32_t ifUnit,
                                              const Membership& membership) {
    std::vector<FilterElement> elements;
    if ((plane.spanning & spanningBit(membership.group)) == 0) return elements;
    const std::string& device = plane.devices.at(ifUnit).name;
    appendNeed(plane, memberElement(FilterKind::member, device, membership.group, membership.vid), elements);
    return elements;
}

bool isInForce(const LinuxPlane& plane, const FilterElement& element) {
    if (!plane.held.contains(element)) return false;
    const auto follows = consequencesOf(plane.filter, element);
    return std::all_of(follows.begin(), follows.end(),
                       [&](const FilterElement& one) { return plane.held.contains(one); });
}

bool isUncertain(const LinuxPlane& plane) {
    return plane.damage == TableDamage::gone || plane.damage == TableDamage::parts;
}
