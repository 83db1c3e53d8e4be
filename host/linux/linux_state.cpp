#include "host/linux/linux_state.h"

namespace {

void appendNeed(const FilterElement& element, std::vector<FilterElement>& elements) {
    elements.push_back(element);
    for (const FilterElement& follows : consequencesOf(element)) elements.push_back(follows);
}

void appendDirection(const std::string& src, const std::string& dst, uint16_t vid,
                     std::vector<FilterElement>& elements) {
    if (src == dst) return;  // what a port reflects is not held
    appendNeed(filterElement(vid == 0 ? FilterKind::twoWay : FilterKind::twoWayVlan, src, dst, vid),
               elements);
}

}  // namespace

std::vector<FilterElement> twoWayElements(const LinuxPlane& plane, PortPair pair, uint16_t vid) {
    const std::string& src = plane.devices.at(sourceOf(pair)).name;
    const std::string& dst = plane.devices.at(targetOf(pair)).name;
    std::vector<FilterElement> elements;
    elements.reserve(2);
    appendDirection(src, dst, vid, elements);
    appendDirection(dst, src, vid, elements);
    return elements;
}

std::vector<FilterElement> oneWayElements(const LinuxPlane& plane, PortPair pair) {
    const std::string& src = plane.devices.at(sourceOf(pair)).name;
    const std::string& dst = plane.devices.at(targetOf(pair)).name;
    if (src == dst) return {};
    return {filterElement(FilterKind::oneWay, src, dst, 0)};
}

std::vector<FilterElement> accessElements(const std::string& device) {
    std::vector<FilterElement> elements;
    appendNeed(filterElement(FilterKind::access, device, "", 0), elements);
    return elements;
}

std::vector<FilterElement> ponOffElements(uint32_t vid) {
    std::vector<FilterElement> elements;
    appendNeed(filterElement(FilterKind::ponOff, "", "", static_cast<uint16_t>(vid)), elements);
    return elements;
}
