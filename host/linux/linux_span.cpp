#include "host/linux/linux_span.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/text.h"
#include "host/linux/linux_devices.h"
#include "host/linux/linux_doors.h"
#include "host/linux/linux_reconcile.h"
#include "host/linux/linux_turn.h"
#include "host/services/logging.h"

namespace {

constexpr const char* SPAN_STATES[] = {"carries", "plain", "absent"};  // by SpanState

bool isSpanPort(const LinuxPlane& plane, std::string_view device) {
    return std::ranges::find(plane.filter.span, device) != plane.filter.span.end();
}

bool carries(const LinuxPlane& plane, std::string_view device) {
    return std::ranges::any_of(plane.carriers, [&](const FilterElement& carrier) {
        return deviceText(carrier.src) == device && plane.held.contains(carrier);
    });
}

void noteOnce(LinuxPlane& plane, const std::string& what) {
    std::string& note = plane.notes["span " + what];
    if (!note.empty()) return;
    note = what + " on this machine only: what other machines hear of is membership of the groups 1 to 16";
    reportRemark(note);
}

// One that is refused by the kernel stays asked for, and is missing. A member port of a trunk is not a port
// of the bridge: what it is in holds as soon as it has left the trunk.
int32_t addMember(LinuxPlane& plane, const PlanePort& port, const Membership& membership) {
    if (std::strlen(port.device) >= FILTER_DEVICE_SIZE) {
        hostReport(
            "{} is not in group {} for other machines: the name is too long for a device of the kernel",
            port.name, membership.group);
        return ENAMETOOLONG;
    }
    setDevice(plane, port.ifUnit, port.device);
    if (plane.members[port.ifUnit].insert(membership).second) {
        if (port.trunkMember) {
            hostReport(
                "{} is in group {} for other machines when it has left its trunk; put the trunk into the "
                "group",
                port.name, membership.group);
        }
        useDevice(plane, port.ifUnit, 1);
        return exchange(plane, membershipElements(plane, port.ifUnit, membership), {});
    }
    // What the kernel has refused is tried again.
    FilterChange change;
    for (const FilterElement& element : membershipElements(plane, port.ifUnit, membership)) {
        if (!plane.held.contains(element)) change.add.push_back(element);
    }
    return change.add.empty() ? 0 : commitInTurn(plane, change);
}

int32_t deleteMember(LinuxPlane& plane, uint32_t ifUnit, const Membership& membership) {
    const auto memberships = plane.members.find(ifUnit);
    if (memberships == plane.members.end() || memberships->second.erase(membership) == 0) return 0;
    if (memberships->second.empty()) plane.members.erase(memberships);
    const std::vector<FilterElement> before = membershipElements(plane, ifUnit, membership);
    useDevice(plane, ifUnit, -1);
    return exchange(plane, {}, before);
}

std::vector<FilterElement> allMemberships(const LinuxPlane& plane) {
    std::vector<FilterElement> elements;
    for (const auto& [ifUnit, memberships] : plane.members) {
        for (const Membership& one : memberships) {
            const auto made = membershipElements(plane, ifUnit, one);
            elements.insert(elements.end(), made.begin(), made.end());
        }
    }
    return elements;
}

// A port whose door is shut is in all groups that span.
int setDoorGroups(LinuxPlane& plane) {
    FilterLayout layout = plane.layout;
    layout.spanDoors = layout.closed.empty() ? 0 : plane.spanning;
    if (layout == plane.layout) return 0;
    if (plane.failure == 0) return layLayout(plane, layout);
    plane.layout = layout;
    return 0;
}

// The first membership in one of the groups that keeps frames of the VLAN from the device; null for none.
const FilterElement* memberOf(const LinuxPlane& plane, std::string_view device, SpanningGroups groups,
                              uint32_t vid) {
    for (const uint32_t group : spanningNumbers(groups)) {
        for (const uint32_t within : {0U, vid}) {
            const auto found = plane.held.find(
                memberElement(FilterKind::member, device, group, static_cast<uint16_t>(within)));
            if (found != plane.held.end() && isInForce(plane, found->first)) return &found->first;
        }
    }
    return nullptr;
}

void tellState(LinuxPlane& plane, const std::string& device, SpanState state) {
    plane.spanPorts[device] = state;
    const std::string key = "span " + device;
    if (state == SpanState::carries) {
        if (plane.notes.erase(key) != 0) hostReport("{} carries groups to other machines", device);
        return;
    }
    const std::string cause = state == SpanState::absent
                                  ? fmt::format("there is no port {} in the bridge", device)
                                  : fmt::format(
                                        "{} is no vxlan device with the group policy extension (gbp), by "
                                        "which it would carry groups to other machines",
                                        device);
    plane.notes[key] = cause + ": what members of groups send to it is dropped";
    reportRemark(plane.notes[key]);
}

}  // namespace

void beginSpan(LinuxPlane& plane, const std::vector<std::string>& devices) {
    const std::set<std::string> sorted(devices.begin(), devices.end());
    plane.filter.span = {sorted.begin(), sorted.end()};
    if (plane.filter.span.empty()) return;
    plane.layout.spanDoors = plane.layout.closed.empty() ? 0 : plane.spanning;
    for (const std::string& device : plane.filter.span) plane.spanPorts[device] = SpanState::absent;
    if (!plane.access.empty()) noteOnce(plane, "PON isolation holds");
}

void adoptCarriers(LinuxPlane& plane) {
    for (const auto& [element, counter] : plane.held) {
        if (element.kind != FilterKind::carrier || !isSpanPort(plane, deviceText(element.src))) continue;
        plane.carriers.insert(element);
        plane.spanPorts[std::string(deviceText(element.src))] = SpanState::carries;
    }
}

void noteOwnMachine(LinuxPlane& plane, bool twoWay, uint32_t group) {
    if (plane.filter.span.empty()) return;
    if (!twoWay) noteOnce(plane, "one-way pairs hold");
    if (twoWay && group > SPANNING_GROUP_MAX) noteOnce(plane, "groups above 16 hold");
}

int32_t linuxSetMember(void* state, const PlanePort& port, uint32_t group, uint16_t vid, bool member) {
    LinuxPlane& plane = linuxPlane(state);
    if (plane.filter.span.empty()) return 0;
    if (group == 0 || group > SPANNING_GROUP_MAX) {
        if (member) noteOwnMachine(plane, true, group);
        return 0;
    }
    const Membership membership = {group, vid};
    if (!member) return deleteMember(plane, port.ifUnit, membership);
    // What comes in there is of the groups of its sender.
    if (isSpanPort(plane, port.device)) {
        noteOnce(plane, fmt::format("the groups of {} hold", port.device));
        return 0;
    }
    return addMember(plane, port, membership);
}

int32_t linuxSetSpanning(void* state, SpanningGroups groups) {
    LinuxPlane& plane = linuxPlane(state);
    if (groups == plane.spanning) return 0;
    const std::vector<FilterElement> before = allMemberships(plane);
    plane.spanning = groups;
    if (plane.filter.span.empty()) return 0;
    const int32_t problem = exchange(plane, allMemberships(plane), before);
    flushTurn(plane);
    const int doors = setDoorGroups(plane);
    return problem != 0 ? problem : doors;
}

bool linuxRemoteForwards(void* state, const PlanePort& dst, SpanningGroups groups, uint32_t vid,
                         std::string& reason) {
    LinuxPlane& plane = linuxPlane(state);
    flushTurn(plane);
    if (plane.failure != 0 || refreshIfChanged(plane) != 0 || isUncertain(plane)) return true;
    const FilterElement* member = memberOf(plane, dst.device, groups, vid);
    if (member == nullptr) {
        if ((groups & plane.layout.spanDoors) == 0 || !isShut(plane, dst)) return true;
        reason += fmt::format("from other machines to {}: the door of {} is closed", dst.name, dst.name);
        return false;
    }
    reason += fmt::format("from other machines to {}: group {}, {}", dst.name, member->group,
                          member->vid == 0 ? "all traffic" : fmt::format("VLAN {}", member->vid));
    if (!plane.wanted.contains(*member)) reason += ", left over from an earlier run";
    return false;
}

std::string spanCause(const LinuxPlane& plane, const PlanePort& src, const PlanePort& dst) {
    if (!isSpanPort(plane, dst.device) || carries(plane, dst.device)) return {};
    for (uint32_t group = 1; group <= SPANNING_GROUP_MAX; ++group) {
        if (!plane.held.contains(memberElement(FilterKind::sender, src.device, group))) continue;
        return fmt::format("{} does not carry groups to other machines, and {} is in group {}", dst.name,
                           src.name, group);
    }
    if (plane.layout.spanDoors == 0 || !isShut(plane, src)) return {};
    return fmt::format("the door of {} is closed", src.name);
}

void inspectSpan(const LinuxPlane& plane, std::string& text) {
    if (plane.filter.span.empty()) return;
    text += fmt::format("spanning {}\n", spanningText(plane.spanning));
    for (const auto& [device, state] : plane.spanPorts) {
        const bool open = carries(plane, device);
        const SpanState shown = state == SpanState::carries && !open ? SpanState::absent : state;
        text += fmt::format("span device={} state={}\n", safeText(device),
                            SPAN_STATES[static_cast<size_t>(shown)]);
    }
}

void followSpan(LinuxPlane& plane, const SpanDevices& devices) {
    if (plane.filter.span.empty() || plane.failure != 0) return;
    std::unordered_set<FilterElement, FilterElementHash> carriers;
    for (const std::string& device : plane.filter.span) {
        const auto found = devices.find(device);
        const bool there = found != devices.end();
        const SpanState state = !there                  ? SpanState::absent
                                : found->second.carries ? SpanState::carries
                                                        : SpanState::plain;
        if (state == SpanState::carries) {
            carriers.insert(indexedElement(FilterKind::carrier, found->second.index, device));
        }
        const bool told = state == SpanState::carries || plane.notes.contains("span " + device);
        if (plane.spanPorts[device] != state || !told) tellState(plane, device, state);
    }
    if (carriers == plane.carriers) return;
    const std::vector<FilterElement> now(carriers.begin(), carriers.end());
    const std::vector<FilterElement> before(plane.carriers.begin(), plane.carriers.end());
    flushTurn(plane);
    const int32_t problem = exchange(plane, now, before);
    flushTurn(plane);
    plane.carriers = std::move(carriers);
    if (problem == 0) return;
    hostReport("the kernel refused to note which ports carry groups to other machines: {}",
               std::strerror(problem));
}
