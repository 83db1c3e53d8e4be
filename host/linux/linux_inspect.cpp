#include "host/linux/linux_inspect.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include "common/text.h"
#include "host/linux/bypass.h"
#include "host/linux/linux_doors.h"
#include "host/linux/linux_reconcile.h"
#include "host/linux/linux_span.h"
#include "host/linux/linux_turn.h"
#include "host/linux/nft_doors.h"
#include "host/linux/nft_filter.h"
#include "host/linux/nft_span.h"
#include "host/services/logging.h"

namespace {

bool holds(const LinuxPlane& plane, FilterKind kind, const char* src, const char* dst, uint32_t vid) {
    return isInForce(plane, filterElement(kind, src, dst, static_cast<uint16_t>(vid)));
}

// Why the kernel would drop the traffic, by what it holds; empty when it would not.
std::string causeOf(const LinuxPlane& plane, const PlanePort& src, const PlanePort& dst, uint32_t vid) {
    std::string cause;
    const bool inVlan = vid != 0 && holds(plane, FilterKind::twoWayVlan, src.device, dst.device, vid);
    const bool inAll = holds(plane, FilterKind::twoWay, src.device, dst.device, 0);
    if (inVlan || inAll) {
        const uint16_t scope = inAll ? 0 : static_cast<uint16_t>(vid);
        for (const PortPair pair : {pairOf(src.ifUnit, dst.ifUnit), pairOf(dst.ifUnit, src.ifUnit)}) {
            const auto entry = plane.twoWay.find(pair);
            if (entry == plane.twoWay.end() || entry->second.vid != scope || !cause.empty()) continue;
            cause = twoWayText(entry->second);
        }
        if (cause.empty()) cause = "two-way isolation, left over from an earlier run";
    } else if (holds(plane, FilterKind::oneWay, src.device, dst.device, 0)) {
        cause = plane.oneWay.contains(pairOf(src.ifUnit, dst.ifUnit))
                    ? "one-way isolation"
                    : "one-way isolation, left over from an earlier run";
    } else if (vid != 0 && holds(plane, FilterKind::access, src.device, "", 0) &&
               holds(plane, FilterKind::access, dst.device, "", 0) &&
               !holds(plane, FilterKind::ponOff, "", "", vid)) {
        cause = fmt::format("PON isolation in VLAN {}", vid);
    } else {
        for (const PlanePort* port : {&dst, &src}) {
            const PlanePort& other = port == &src ? dst : src;
            const bool held = isShut(plane, *port) && matchesDoor(plane.layout.closed, other.device);
            if (held) cause = fmt::format("the door of {} is closed", port->name);
        }
        if (cause.empty()) cause = spanCause(plane, src, dst);
    }
    return cause;
}

FilterCounter countedIn(const LinuxPlane& plane, const char* chain) {
    const auto found = plane.counted.find(chain);
    return found == plane.counted.end() ? FilterCounter{} : found->second;
}

void inspectElement(const LinuxPlane& plane, const FilterElement& element, std::string& text) {
    constexpr const char* KINDS[] = {"bi", "bi", "uni", "pon", "pon-off", "span"};
    // What others have put there for a pair is shown as what it could be at most.
    const size_t kind = element.kind == FilterKind::strange ? 0 : static_cast<size_t>(element.kind);
    const auto device = [](const auto& name) {
        return name[0] == '\0' ? std::string("-") : safeText(deviceText(name));
    };
    const auto held = plane.held.find(element);
    const bool missing = !isInForce(plane, element);
    const FilterCounter counter = missing ? FilterCounter{} : held->second;
    const char* state = missing ? "missing" : plane.wanted.contains(element) ? "held" : "left-over";
    const bool member = element.kind == FilterKind::member;
    text += fmt::format("entry kind={} src={} dst={} vlan={}{} state={}", KINDS[kind],
                        member ? "-" : device(element.src), device(member ? element.src : element.dst),
                        element.vid == 0 ? "-" : std::to_string(element.vid),
                        member ? fmt::format(" group={}", element.group) : "", state);
    if (!missing && (kind <= static_cast<size_t>(FilterKind::oneWay) || member)) {
        text += fmt::format(" packets={} bytes={}\n", counter.packets, counter.bytes);
    } else {
        text += " packets=- bytes=-\n";
    }
}

std::vector<FilterElement> sortedElements(const LinuxPlane& plane) {
    std::vector<FilterElement> elements;
    for (const auto& [element, counter] : plane.held) {
        if (isEntry(element)) elements.push_back(element);
    }
    for (const auto& [element, uses] : plane.wanted) {
        if (isEntry(element) && !plane.held.contains(element)) elements.push_back(element);
    }
    std::sort(elements.begin(), elements.end(), [](const FilterElement& a, const FilterElement& b) {
        return std::tie(a.kind, a.src, a.dst, a.vid, a.group) <
               std::tie(b.kind, b.src, b.dst, b.vid, b.group);
    });
    return elements;
}

void inspectElements(const LinuxPlane& plane, std::string& text) {
    bool access = false;
    for (const FilterElement& element : sortedElements(plane)) {
        if (element.kind == FilterKind::access && !access && !isUncertain(plane)) {
            text +=
                fmt::format("entry kind=pon src=- dst=- vlan=- state=held packets={} bytes={}\n",
                            countedIn(plane, FORWARD_CHAIN).packets, countedIn(plane, FORWARD_CHAIN).bytes);
        }
        access |= element.kind == FilterKind::access;
        inspectElement(plane, element, text);
    }
}

}  // namespace

bool linuxForwards(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid,
                   std::string& reason) {
    LinuxPlane& plane = linuxPlane(state);
    flushTurn(plane);
    if (plane.failure != 0 || refreshIfChanged(plane) != 0 || isUncertain(plane)) return true;
    const std::string cause = causeOf(plane, src, dst, vid);
    if (cause.empty()) return true;
    reason += fmt::format("{} to {}: {}", src.name, dst.name, cause);
    return false;
}

void linuxList(void* state, std::string& text) {
    const LinuxPlane& plane = linuxPlane(state);
    listEntries(plane.twoWay, plane.oneWay, text);
    for (const uint16_t vid : plane.ponOff) text += fmt::format("pon-off {} slots=-\n", vid);
}

void linuxListWithinVlans(void* state, std::string& text) {
    listWithinVlans(linuxPlane(state).twoWay, text);
}

PlaneCounters linuxCounters(void* state) {
    const LinuxPlane& plane = linuxPlane(state);
    return {
        .twoWay = plane.twoWay.size(),
        .oneWay = plane.oneWay.size(),
        .ponOff = plane.ponOff.size(),
        .accepted = plane.accepted,
        .refused = plane.refused,
    };
}

void linuxInspect(void* state, std::string& text) {
    LinuxPlane& plane = linuxPlane(state);
    flushTurn(plane);
    const int problem = plane.failure != 0 ? plane.failure : refresh(plane);
    constexpr const char* CONDITIONS[] = {"ready", "gone", "changed", "changed"};
    const char* condition = problem != 0 ? "failed" : CONDITIONS[static_cast<size_t>(plane.damage)];
    constexpr const char* MODES[] = {"watch", "watch", "off"};
    const char* mode = plane.filter.owns ? "own" : MODES[static_cast<size_t>(plane.healing.mode)];
    text +=
        fmt::format("plane name=linux state={} heal={} healed={}\n", condition, mode, plane.healing.count);
    if (plane.failure != 0) {
        text += fmt::format("note {}\n", plane.failureText);
    } else if (problem != 0) {
        text += fmt::format("note the kernel did not answer: {}\n", std::strerror(problem));
    } else if (plane.damage != TableDamage::none) {
        text += fmt::format("note the kernel's filter table {} {}\n", FILTER_TABLE, plane.damageText);
    }
    if (problem == 0 && !plane.layout.closed.empty()) {
        const FilterCounter held = countedIn(plane, DOOR_CHAIN);
        const FilterCounter remote = countedIn(plane, SPAN_IN_CHAIN);
        text += fmt::format("doors packets={} bytes={}\n", held.packets + remote.packets,
                            held.bytes + remote.bytes);
    }
    if (problem == 0) inspectSpan(plane, text);
    for (const auto& [key, sentence] : plane.notes) text += fmt::format("note {}\n", safeText(sentence));
    for (const std::string& sentence : bypassesOf(plane.bridge)) {
        text += fmt::format("note {}\n", safeText(sentence));
    }
    if (problem == 0) inspectElements(plane, text);
}

std::string linuxFailure(LinuxPlane& plane) {
    constexpr char CONSEQUENCE[] = "every isolation will be refused";
    const int problem = plane.failure;
    if (!plane.filter.span.empty() && (plane.filter.markMask & GROUP_BITS) != 0) {
        return fmt::format(
            "the frame mark takes some of the 16 bits by which other machines hear of groups, choose "
            "another: {}",
            CONSEQUENCE);
    }
    if (problem == EPERM && plane.filter.socket != nullptr && probeOwner(plane.filter)) {
        return fmt::format("the kernel's filter table {} belongs to another program, which has to end: {}",
                           FILTER_TABLE, CONSEQUENCE);
    }
    if (problem == EPERM || problem == EACCES) {
        return fmt::format(
            "no permission to change the kernel's packet filter, the capability "
            "CAP_NET_ADMIN is needed: {}",
            CONSEQUENCE);
    }
    if (problem == EPROTONOSUPPORT || problem == EAFNOSUPPORT || problem == EOPNOTSUPP || problem == ENOENT) {
        return fmt::format(
            "the kernel has no packet filter for bridges (nf_tables with its bridge family): {}",
            CONSEQUENCE);
    }
    return fmt::format("the kernel's packet filter refused the table {}, {}: {}", FILTER_TABLE,
                       std::strerror(problem), CONSEQUENCE);
}

void reportStart(LinuxPlane& plane) {
    const auto leftOver = std::count_if(plane.held.begin(), plane.held.end(), [&](const auto& held) {
        return !plane.wanted.contains(held.first) && isEntry(held.first);
    });
    if (leftOver > 0) {
        hostReport(
            "{} elements of an earlier run are kept in the kernel's filter table {} until they are asked "
            "for again or swept: `portisolatectl plane sweep`",
            leftOver, FILTER_TABLE);
    }
    if (plane.filter.seesPvid) return;
    plane.notes["pvid"] =
        "this kernel cannot tell in which VLAN untagged frames came in (nft_meta_bridge is missing): on a "
        "bridge that filters VLANs, ports that are isolated within some VLAN do not reach one another with "
        "untagged frames at all";
    reportRemark(plane.notes["pvid"]);
}
