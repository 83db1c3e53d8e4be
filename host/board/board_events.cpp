#include "host/board/board_events.h"

#include <cstring>

#include "host/sockets/route_bus.h"
#include "platform/route_messages.h"

namespace {

using Message = std::vector<uint8_t>;

constexpr uint32_t CHASSIS = 1;

// Held through a change of the board and its messages: one change at a time.
std::mutex gChange;

// A change is carried through to its end even when the daemon is late with a message; the answer is what went
// wrong first.
std::string firstOf(const std::string& first, const std::string& second) {
    return first.empty() ? second : first;
}

template <typename Record>
void append(Message& message, const Record& record) {
    const size_t end = message.size();
    message.resize(end + sizeof(record));
    std::memcpy(message.data() + end, &record, sizeof(record));
}

Message messageOf(uint16_t type) {
    RtMsgHdr header = {};
    header.type = type;
    Message message;
    append(message, header);
    return message;
}

Message linkMessage(uint16_t type, uint32_t ifUnit, uint32_t changeMask) {
    Message message = messageOf(type);
    RtIfInfo info = {};
    info.ifUnit = ifUnit;
    info.changeMask = changeMask;
    append(message, info);
    return message;
}

void appendAttribute(Message& message, const LinkAttribute& attribute) {
    const bool hasValue = attribute.member != 0;
    RtAttr header = {};
    header.length = static_cast<uint16_t>(sizeof(header) + (hasValue ? sizeof(attribute.member) : 0));
    header.type = attribute.type;
    append(message, header);
    if (hasValue) append(message, attribute.member);
}

std::string publish(uint32_t group, Message message) {
    const auto length = static_cast<uint32_t>(message.size());
    std::memcpy(message.data(), &length, sizeof(length));
    return publishRaw(group, message);
}

uint32_t groupOf(const Interface& interface) {
    return interface.kind == IfKind::vlan ? DAX_RTGRP_VLAN : DAX_RTGRP_LINK;
}

// A port and its trunk by name, or what is wrong with them. The lock is held.
std::string findPair(Board& board, const std::string& trunkName, const std::string& portName,
                     Interface*& trunk, Interface*& port) {
    trunk = findInterface(board, trunkName);
    if (trunk == nullptr) return "no such interface: " + trunkName;
    port = findInterface(board, portName);
    if (port == nullptr) return "no such interface: " + portName;
    return {};
}

std::string joinAndTell(Board& board, const std::string& trunkName, const std::string& portName) {
    Interface* trunk = nullptr;
    Interface* port = nullptr;
    {
        std::lock_guard guard(board.lock);
        std::string problem = findPair(board, trunkName, portName, trunk, port);
        if (!problem.empty()) return problem;
        problem = joinTrunk(*trunk, *port);
        if (!problem.empty()) return problem;
    }
    return publishJoin(*trunk, *port);
}

std::string leaveAndTell(Board& board, Interface& trunk, Interface& port) {
    {
        std::lock_guard guard(board.lock);
        leaveTrunk(trunk, port);
    }
    return publishLeave(trunk, port);
}

std::string unplug(Board& board, Interface& interface) {
    Interface* trunk = nullptr;
    {
        std::lock_guard guard(board.lock);
        if (!interface.present) return interface.name + " is unplugged already";
        trunk = findInterface(board, interface.trunk);
        interface.formerTrunk = interface.trunk;
    }
    std::string problem;
    if (trunk != nullptr) problem = leaveAndTell(board, *trunk, interface);
    {
        std::lock_guard guard(board.lock);
        interface.present = false;
    }
    return firstOf(problem, publishDelLink(interface));
}

std::string plug(Board& board, Interface& interface) {
    std::string trunkName;
    {
        std::lock_guard guard(board.lock);
        if (interface.present) return interface.name + " is plugged already";
        if (board.pulled.contains(interface.slot) && isPort(interface)) {
            return "the card of " + interface.name + " is not in its slot";
        }
        interface.present = true;
        const Interface* trunk = findInterface(board, interface.formerTrunk);
        if (trunk != nullptr && trunk->present) trunkName = trunk->name;
        interface.formerTrunk = 0;
    }
    const std::string problem = publishNewLink(interface, RT_CHANGE_REGISTER, {});
    return trunkName.empty() ? problem : firstOf(problem, joinAndTell(board, trunkName, interface.name));
}

// The interface by name or number; its address stays good without the lock.
Interface* lookUp(Board& board, const std::string& name, std::string& problem) {
    std::lock_guard guard(board.lock);
    Interface* interface = findInterface(board, name);
    if (interface == nullptr) problem = "no such interface: " + name;
    return interface;
}

}  // namespace

std::string unplugInterface(Board& board, const std::string& name) {
    std::lock_guard change(gChange);
    std::string problem;
    Interface* interface = lookUp(board, name, problem);
    return interface == nullptr ? problem : unplug(board, *interface);
}

std::string plugInterface(Board& board, const std::string& name) {
    std::lock_guard change(gChange);
    std::string problem;
    Interface* interface = lookUp(board, name, problem);
    return interface == nullptr ? problem : plug(board, *interface);
}

std::string joinTrunkEvent(Board& board, const std::string& trunkName, const std::string& portName) {
    std::lock_guard change(gChange);
    return joinAndTell(board, trunkName, portName);
}

std::string leaveTrunkEvent(Board& board, const std::string& trunkName, const std::string& portName) {
    std::lock_guard change(gChange);
    Interface* trunk = nullptr;
    Interface* port = nullptr;
    {
        std::lock_guard guard(board.lock);
        std::string problem = findPair(board, trunkName, portName, trunk, port);
        if (!problem.empty()) return problem;
        if (port->trunk == 0 || port->trunk != trunk->number) {
            return port->name + " is not a member of " + trunk->name;
        }
    }
    return leaveAndTell(board, *trunk, *port);
}

std::string addVlan(Board& board, uint32_t vid, uint32_t number, const std::string& name) {
    std::lock_guard change(gChange);
    Interface* added = nullptr;
    {
        std::lock_guard guard(board.lock);
        Interface* former = findVlan(board, vid);
        if (former != nullptr && !former->present && former->number == number && former->name == name) {
            former->present = true;
            added = former;
        } else {
            Interface vlan;
            vlan.kind = IfKind::vlan;
            vlan.vid = vid;
            vlan.number = number;
            vlan.name = name;
            std::string problem = addInterface(board, vlan);
            if (!problem.empty()) return problem;
            added = findInterface(board, number);
        }
    }
    return publishNewLink(*added, RT_CHANGE_REGISTER, {});
}

std::string deleteVlan(Board& board, uint32_t vid) {
    std::lock_guard change(gChange);
    Interface* vlan = nullptr;
    {
        std::lock_guard guard(board.lock);
        vlan = findVlan(board, vid);
        if (vlan == nullptr || !vlan->present) return "this VLAN has no interface";
    }
    return unplug(board, *vlan);
}

std::string pullCard(Board& board, uint32_t slot) {
    std::lock_guard change(gChange);
    std::vector<uint32_t> taken;
    {
        std::lock_guard guard(board.lock);
        if (board.pulled.contains(slot)) return "the card is pulled already";
        bool described = false;
        for (const auto& [number, interface] : board.interfaces) {
            if (!isPort(interface) || interface.slot != slot) continue;
            described = true;
            if (interface.present) taken.push_back(number);
        }
        if (!described) return "no port is described in this slot";
        board.pulled[slot] = taken;
        board.plane.freshCard(board.plane.state, slot);
    }
    std::string problem;
    for (const uint32_t number : taken) {
        problem = firstOf(problem, unplug(board, board.interfaces.at(number)));
    }
    return problem;
}

std::string pushCard(Board& board, uint32_t slot) {
    std::lock_guard change(gChange);
    std::vector<uint32_t> returning;
    {
        std::lock_guard guard(board.lock);
        const auto pulled = board.pulled.find(slot);
        if (pulled == board.pulled.end()) return "no card was pulled from this slot";
        returning = pulled->second;
        board.pulled.erase(pulled);
    }
    std::string problem;
    for (const uint32_t number : returning) {
        problem = firstOf(problem, plug(board, board.interfaces.at(number)));
    }
    return firstOf(problem, publishCardUp(slot));
}

std::unique_lock<std::mutex> lockChange() {
    return std::unique_lock(gChange);
}

std::string publishNewLink(const Interface& interface, uint32_t changeMask,
                           const std::vector<LinkAttribute>& attributes) {
    Message message = linkMessage(DAX_RTM_NEWLINK, interface.number, changeMask);
    for (const LinkAttribute& attribute : attributes) appendAttribute(message, attribute);
    return publish(groupOf(interface), message);
}

std::string publishDelLink(const Interface& interface) {
    return publish(groupOf(interface), linkMessage(DAX_RTM_DELLINK, interface.number, 0));
}

std::string publishJoin(const Interface& trunk, const Interface& port) {
    const std::string problem = publishNewLink(port, 0, {{DAX_RTA_TRUNK_JOIN, 0}});
    return firstOf(problem, publishNewLink(trunk, 0, {{DAX_RTA_MEMBER_ADD, port.number}}));
}

std::string publishLeave(const Interface& trunk, const Interface& port) {
    return publishNewLink(trunk, 0, {{DAX_RTA_MEMBER_DEL, port.number}});
}

std::string publishInterfaceReset(const Interface& interface) {
    return publish(DAX_RTGRP_SYSTEM_GROUP, linkMessage(DAX_RTM_IF_RESET, interface.number, 0));
}

std::string publishCardUp(uint32_t slot) {
    Message message = messageOf(DAX_RTM_CARD_UP);
    append(message, RtCardInfo{{CHASSIS, slot, 0, 0}});
    return publish(DAX_RTGRP_CARD, message);
}

std::string publishPlain(uint32_t group, uint16_t type) {
    return publish(group, messageOf(type));
}

std::string publishRaw(uint32_t group, const std::vector<uint8_t>& messages) {
    const int problem = publishToRoute(group, messages);
    if (problem != 0) return std::string("not published: ") + std::strerror(problem);
    return settle();
}

std::string settle() {
    return settleRoute(SETTLE_TIMEOUT) ? std::string() : "the daemon did not handle the events in time";
}
