#include "host/board/board.h"

#include <algorithm>

#include "common/bytes.h"
#include "common/files.h"

namespace {

constexpr const char* KIND_NAMES[] = {"ethernet", "pon", "trunk", "vlan"};  // by IfKind
constexpr const char* ROLE_NAMES[] = {"single", "active", "standby"};       // by Role

}  // namespace

const char* kindName(IfKind kind) {
    return KIND_NAMES[static_cast<size_t>(kind)];
}

const char* roleName(Role role) {
    return ROLE_NAMES[static_cast<size_t>(role)];
}

bool parseRole(std::string_view name, Role& role) {
    const auto* found = std::find(std::begin(ROLE_NAMES), std::end(ROLE_NAMES), name);
    if (found == std::end(ROLE_NAMES)) return false;
    role = static_cast<Role>(found - std::begin(ROLE_NAMES));
    return true;
}

std::string peerPath(const Board& board) {
    const bool below = !board.peerRoot.empty() && !board.peerRoot.starts_with('/');
    return below ? rootPrefix() + "/" + board.peerRoot : board.peerRoot;
}

Interface* findInterface(Board& board, uint32_t number) {
    const auto found = board.interfaces.find(number);
    return found == board.interfaces.end() ? nullptr : &found->second;
}

Interface* findInterface(Board& board, const std::string& nameOrNumber) {
    const auto named = board.numbers.find(nameOrNumber);
    if (named != board.numbers.end()) return findInterface(board, named->second);
    uint32_t number = 0;
    return parseNumber(nameOrNumber, number) ? findInterface(board, number) : nullptr;
}

Interface* findVlan(Board& board, uint32_t vid) {
    for (auto& [number, interface] : board.interfaces) {
        if (interface.kind == IfKind::vlan && interface.vid == vid) return &interface;
    }
    return nullptr;
}

std::string addInterface(Board& board, const Interface& interface) {
    if (interface.number == 0) return "interface number 0 is not usable";
    if (interface.name.size() > INTERFACE_NAME_MAX) return "a name has at most 63 characters";
    if (board.interfaces.contains(interface.number)) return "this number is in use";
    if (board.numbers.contains(interface.name)) return "this name is in use";
    if (interface.kind == IfKind::vlan) {
        if (interface.vid == 0 || interface.vid > VLAN_ID_MAX) return "a VLAN id lies between 1 and 4095";
        if (findVlan(board, interface.vid) != nullptr) return "this VLAN has an interface";
    }
    board.numbers.emplace(interface.name, interface.number);
    board.interfaces.emplace(interface.number, interface);
    return {};
}

bool isPort(const Interface& interface) {
    return interface.kind == IfKind::ethernet || interface.kind == IfKind::pon;
}

std::string joinTrunk(Interface& trunk, Interface& port) {
    if (trunk.kind != IfKind::trunk) return "the first interface is not a trunk";
    if (!isPort(port)) return "only a port can be in a trunk";
    if (port.trunk != 0) return "the port is in a trunk already";
    if (!port.present || !trunk.present) return "an unplugged interface cannot be in a trunk";
    port.trunk = trunk.number;
    trunk.members.push_back(port.number);
    return {};
}

void leaveTrunk(Interface& trunk, Interface& port) {
    std::erase(trunk.members, port.number);
    port.trunk = 0;
}

std::set<uint32_t> presentSlots(const Board& board) {
    std::set<uint32_t> slots;
    for (const auto& [number, interface] : board.interfaces) {
        if (isPort(interface) && !board.pulled.contains(interface.slot)) slots.insert(interface.slot);
    }
    return slots;
}

uint32_t slotOf(Board& board, const Interface& interface) {
    if (interface.kind != IfKind::trunk || interface.slot != 0 || interface.members.empty()) {
        return interface.slot;
    }
    const Interface* first = findInterface(board, interface.members.front());
    return first == nullptr ? 0 : first->slot;
}

bool isAccess(const Interface& interface) {
    return interface.kind == IfKind::pon || interface.access;
}

bool isSpan(const Board& board, const Interface& interface) {
    return std::find(board.span.begin(), board.span.end(), deviceOf(interface)) != board.span.end();
}

const std::string& deviceOf(const Interface& interface) {
    return interface.device.empty() ? interface.name : interface.device;
}

PlanePort planePort(Board& board, const Interface& interface) {
    const Interface* trunk = findInterface(board, interface.trunk);
    return {
        .ifUnit = interface.number,
        .slot = slotOf(board, interface),
        .access = isAccess(interface),
        .trunkMember = interface.trunk != 0,
        .name = interface.name.c_str(),
        .device = deviceOf(interface).c_str(),
        .trunkDevice = trunk == nullptr ? "" : deviceOf(*trunk).c_str(),
        .switchId = interface.switchId.c_str(),
        .index = interface.index,
    };
}

namespace {

// The ports that traffic of an interface runs over: itself, or the members of a trunk that has some.
std::vector<PlanePort> carriers(Board& board, const Interface& interface) {
    std::vector<PlanePort> ports;
    for (const uint32_t number : interface.members) {
        const Interface* member = findInterface(board, number);
        if (member != nullptr && member->present) ports.push_back(planePort(board, *member));
    }
    if (ports.empty()) ports.push_back(planePort(board, interface));
    return ports;
}

// An entry that names a trunk blocks the traffic of each of its members.
bool carrierForwards(const Plane& plane, const PlanePort& srcPort, const PlanePort& dstPort,
                     const PlanePort& src, const PlanePort& dst, uint32_t vid, std::string& reason) {
    const bool srcExpanded = srcPort.ifUnit != src.ifUnit;
    const bool dstExpanded = dstPort.ifUnit != dst.ifUnit;
    return plane.forwards(plane.state, srcPort, dstPort, vid, reason) &&
           (!srcExpanded || plane.forwards(plane.state, src, dstPort, vid, reason)) &&
           (!dstExpanded || plane.forwards(plane.state, srcPort, dst, vid, reason)) &&
           (!srcExpanded || !dstExpanded || plane.forwards(plane.state, src, dst, vid, reason));
}

}  // namespace

Forwarding boardForwards(Board& board, const Interface& src, const Interface& dst, uint32_t vid,
                         std::string& reason) {
    reason.clear();
    for (const Interface* end : {&src, &dst}) {
        if (end->present) continue;
        reason = end->name + " is not plugged";
        return Forwarding::no;
    }
    const PlanePort srcSelf = planePort(board, src);
    const PlanePort dstSelf = planePort(board, dst);
    const std::vector<PlanePort> dstPorts = carriers(board, dst);
    bool passes = false;
    bool blocked = false;
    for (const PlanePort& srcPort : carriers(board, src)) {
        for (const PlanePort& dstPort : dstPorts) {
            if (srcPort.ifUnit == dstPort.ifUnit) continue;
            std::string why;
            const bool forwards = carrierForwards(board.plane, srcPort, dstPort, srcSelf, dstSelf, vid, why);
            (forwards ? passes : blocked) = true;
            if (!forwards && reason.empty()) reason = why;
        }
    }
    if (!blocked) return Forwarding::yes;
    return passes ? Forwarding::partly : Forwarding::no;
}

Forwarding remoteForwards(Board& board, SpanningGroups groups, const Interface& dst, uint32_t vid,
                          std::string& reason) {
    reason.clear();
    const Interface* trunk = findInterface(board, dst.trunk);
    const Interface& carrier = trunk == nullptr ? dst : *trunk;
    if (!dst.present || !carrier.present) {
        reason = (dst.present ? carrier : dst).name + " is not plugged";
        return Forwarding::no;
    }
    const Plane& plane = board.plane;
    const bool passes = plane.remoteForwards(plane.state, planePort(board, carrier), groups, vid, reason);
    return passes ? Forwarding::yes : Forwarding::no;
}
