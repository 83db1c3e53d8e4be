#include "host/linux/linux_state.h"

#include <algorithm>
#include <cstring>

namespace {

void appendDirection(const LinuxPlane& plane, const std::string& src, const std::string& dst, uint16_t vid,
                     std::vector<FilterElement>& elements) {
    if (src == dst) return;  // what a port reflects is not held
    elements.push_back(filterElement(vid == 0 ? FilterSet::bi : FilterSet::biVlan, src, dst, vid));
    if (vid != 0 && soleEgress(plane, dst) == vid) {
        elements.push_back(filterElement(FilterSet::biEgress, src, dst, 0));
    }
}

}  // namespace

std::string_view deviceText(const std::array<char, FILTER_DEVICE_SIZE>& device) {
    return {device.data(), strnlen(device.data(), device.size())};
}

uint16_t soleEgress(const LinuxPlane& plane, const std::string& device) {
    const auto egress = plane.egress.find(device);
    return egress == plane.egress.end() || egress->second.size() != 1 ? 0 : egress->second.front();
}

bool allOff(const std::set<uint16_t>& ponOff, const std::vector<uint16_t>& vlans) {
    return std::all_of(vlans.begin(), vlans.end(), [&](uint16_t vid) { return ponOff.contains(vid); });
}

std::vector<FilterElement> twoWayElements(const LinuxPlane& plane, PortPair pair, uint16_t vid) {
    const std::string& src = plane.devices.at(sourceOf(pair));
    const std::string& dst = plane.devices.at(targetOf(pair));
    std::vector<FilterElement> elements;
    appendDirection(plane, src, dst, vid, elements);
    appendDirection(plane, dst, src, vid, elements);
    return elements;
}

std::vector<FilterElement> oneWayElements(const LinuxPlane& plane, PortPair pair) {
    const std::string& src = plane.devices.at(sourceOf(pair));
    const std::string& dst = plane.devices.at(targetOf(pair));
    if (src == dst) return {};
    return {filterElement(FilterSet::uni, src, dst, 0)};
}

FilterElement deviceElement(FilterSet set, const std::string& device) {
    return filterElement(set, device, "", 0);
}

FilterElement ponOffElement(uint32_t vid) {
    return filterElement(FilterSet::ponOff, "", "", static_cast<uint16_t>(vid));
}
