#include "host/linux/bridge_ports.h"

#ifdef PORTISOLATE_NETFILTER
#include <mutex>
#include <set>

#include "host/board/board_events.h"
#include "host/linux/linux_plane.h"
#include "host/services/logging.h"
#include "platform/route_messages.h"

namespace {
constexpr uint32_t ONLY_SLOT = 1;
constexpr char BRIDGE_NOTE[] = "bridge";

// What a device of the kernel is to the board.
struct BridgePort {
    uint32_t number;
    bool described;
    IfKind kind;
    uint32_t vid;
    uint32_t trunk;  // number of the trunk that it is in, 0: none
    std::string device;
    std::string switchId;
};
using BridgePorts = std::map<uint32_t, BridgePort>;  // by the kernel's index

template <typename Map, typename Key>
uint32_t numberIn(const Map& numbers, const Key& key) {
    const auto found = numbers.find(key);
    return found == numbers.end() ? 0 : found->second;
}

// 0 when the device is no interface of this board.
uint32_t numberOf(const LinuxBoard& linuxBoard, uint32_t index, const std::string& device) {
    return linuxBoard.listed ? numberIn(linuxBoard.devices, device) : index;
}

uint32_t trunkNumber(const LinuxBoard& linuxBoard, uint32_t index, const std::string& device) {
    const uint32_t number = numberOf(linuxBoard, index, device);
    const Interface* described = linuxBoard.listed ? findInterface(linuxBoard.board, number) : nullptr;
    const bool isTrunk = !linuxBoard.listed || (described != nullptr && described->kind == IfKind::trunk);
    return isTrunk ? number : TRUNK_NOT_LISTED;
}

bool fillPlace(const LinuxBoard& linuxBoard, uint32_t index, const KernelLink& link, BridgePort& port) {
    if (link.kind == "vlan" && link.lower == linuxBoard.bridge && link.vlanId != 0) {
        port.kind = IfKind::vlan;
        port.vid = link.vlanId;
        const uint32_t described = numberIn(linuxBoard.vlans, link.vlanId);
        port.number = described != 0 || linuxBoard.listed ? described : index;
        return true;
    }
    port.number = numberOf(linuxBoard, index, link.name);
    if (link.master == linuxBoard.bridge) {
        port.kind = isTrunkDevice(link) ? IfKind::trunk : IfKind::ethernet;
        return true;
    }
    const KernelLink* master = linkAt(linuxBoard.links, link.master);
    if (master == nullptr || !isTrunkDevice(*master) || master->master != linuxBoard.bridge) return false;
    port.kind = IfKind::ethernet;
    port.trunk = trunkNumber(linuxBoard, link.master, master->name);
    return true;
}

BridgePorts portsAmong(const LinuxBoard& linuxBoard, const std::set<uint32_t>& indices) {
    BridgePorts ports;
    if (linuxBoard.bridge == 0) return ports;
    for (const uint32_t index : indices) {
        const KernelLink* link = linkAt(linuxBoard.links, index);
        BridgePort port = {};
        if (link == nullptr || !fillPlace(linuxBoard, index, *link, port) || port.number == 0) continue;
        port.described = linuxBoard.descriptions.contains(port.number);
        port.device = link->name;
        port.switchId = link->switchId;
        ports.emplace(index, port);
    }
    return ports;
}

// The port at the index, when it is still the same interface.
const BridgePort* sameIn(const BridgePorts& ports, uint32_t index, const BridgePort& port) {
    const auto found = ports.find(index);
    if (found == ports.end()) return nullptr;
    const BridgePort& other = found->second;
    return other.number == port.number && other.kind == port.kind && other.vid == port.vid ? &other : nullptr;
}

// By the numbers of the kernel, an interface that is not described may hit upon a described one's number.
Interface* entryOf(LinuxBoard& linuxBoard, const BridgePort& port) {
    Interface* entry = findInterface(linuxBoard.board, port.number);
    return port.described || !linuxBoard.descriptions.contains(port.number) ? entry : nullptr;
}

void reportProblem(const std::string& problem) {
    if (!problem.empty()) hostReport("%s", problem.c_str());
}

// The lock is held for these.

void dropName(Board& board, const Interface& interface) {
    const auto named = board.numbers.find(interface.name);
    if (named != board.numbers.end() && named->second == interface.number) board.numbers.erase(named);
}

void forget(LinuxBoard& linuxBoard, uint32_t number) {
    std::erase(linuxBoard.vanished, number);
    dropName(linuxBoard.board, linuxBoard.board.interfaces.at(number));
    linuxBoard.board.interfaces.erase(number);
}

bool isForgettable(const LinuxBoard& linuxBoard, const Interface* interface) {
    return interface != nullptr && !interface->present &&
           !linuxBoard.descriptions.contains(interface->number);
}

// An interface that is gone gives its name to one that is there.
void freeName(LinuxBoard& linuxBoard, const std::string& name) {
    Board& board = linuxBoard.board;
    Interface* former = findInterface(board, numberIn(board.numbers, name));
    if (!isForgettable(linuxBoard, former)) return;
    board.numbers.erase(name);
    former->device = name;
    former->name = name + "#" + std::to_string(former->number);
    board.numbers.emplace(former->name, former->number);
}

// Makes room for an interface: of those that are gone, none may have its number, its name or its VLAN.
void forgetFormer(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    if (isForgettable(linuxBoard, findInterface(board, port.number))) forget(linuxBoard, port.number);
    const Interface* sameVlan = port.kind == IfKind::vlan ? findVlan(board, port.vid) : nullptr;
    if (isForgettable(linuxBoard, sameVlan)) forget(linuxBoard, sameVlan->number);
    freeName(linuxBoard, port.device);
}

void noteSwitch(Board& board, const Interface& interface, const std::string& device) {
    const std::string key = "switch " + std::to_string(interface.number);
    std::string sentence;
    if (interface.present && !interface.switchId.empty())
        sentence = device + " belongs to the switch chip " + interface.switchId +
                   ", whose ports reach one another without passing the kernel: they cannot be isolated from "
                   "one another";
    setLinuxNote(board.plane, key, sentence);
    reportProblem(sentence);
}

void setSwitch(Board& board, Interface& interface, const BridgePort& port) {
    if (interface.switchId == port.switchId) return;
    interface.switchId = port.switchId;
    noteSwitch(board, interface, port.device);
}

// Null when the interface cannot be.
Interface* addFound(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    forgetFormer(linuxBoard, port);
    Interface interface;
    interface.number = port.number;
    interface.name = port.device;
    interface.kind = port.kind;
    interface.vid = port.vid;
    interface.slot = port.kind == IfKind::vlan ? 0 : ONLY_SLOT;
    interface.access = board.accessDevices.contains(port.device);
    const char* refused = addInterface(board, interface);
    if (refused == nullptr) return findInterface(board, port.number);
    hostReport("%s is left out: %s", port.device.c_str(), refused);
    return nullptr;
}

void appear(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    {
        std::lock_guard guard(board.lock);
        interface = port.described ? entryOf(linuxBoard, port) : addFound(linuxBoard, port);
        if (interface == nullptr) return;
        interface->present = true;
        setSwitch(board, *interface, port);
    }
    if (linuxBoard.told) reportProblem(publishNewLink(*interface, RT_CHANGE_REGISTER, {}));
}

void forgetOldest(LinuxBoard& linuxBoard) {
    std::lock_guard guard(linuxBoard.board.lock);
    while (linuxBoard.vanished.size() > VANISHED_MAX) forget(linuxBoard, linuxBoard.vanished.front());
}

void vanish(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    {
        std::lock_guard guard(board.lock);
        interface = entryOf(linuxBoard, port);
        if (interface == nullptr || !interface->present) return;
        interface->present = false;
        BridgePort gone = port;
        gone.switchId.clear();
        setSwitch(board, *interface, gone);
        if (!port.described) linuxBoard.vanished.push_back(port.number);
    }
    if (port.described) {
        hostReport("%s has left the bridge %s; what isolates it holds as soon as it is back",
                   port.device.c_str(), board.bridge.c_str());
        return;
    }
    if (linuxBoard.told) reportProblem(publishDelLink(*interface));
    forgetOldest(linuxBoard);
}

void rename(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    std::lock_guard guard(board.lock);
    Interface* interface = entryOf(linuxBoard, port);
    if (interface == nullptr) return;
    setSwitch(board, *interface, port);
    if (port.described || interface->name == port.device) return;
    dropName(board, *interface);
    freeName(linuxBoard, port.device);
    board.numbers[port.device] = port.number;
    interface->name = port.device;
    interface->access = board.accessDevices.contains(port.device);
    noteSwitch(board, *interface, port.device);
    const int32_t status = renameLinuxPort(board.plane, port.number, port.device);
    if (status != 0)
        hostReport("what isolates %s stays under its former name: status %d", port.device.c_str(), status);
}

void leave(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    Interface* trunk = nullptr;
    {
        std::lock_guard guard(board.lock);
        interface = entryOf(linuxBoard, port);
        if (interface == nullptr || interface->trunk != port.trunk) return;
        trunk = findInterface(board, port.trunk);
        interface->trunk = 0;
        if (trunk == nullptr) return;
        leaveTrunk(*trunk, *interface);
    }
    if (linuxBoard.told) reportProblem(publishLeave(*trunk, *interface));
}

void join(LinuxBoard& linuxBoard, const BridgePort& port, const std::string& trunkDevice) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    Interface* trunk = nullptr;
    {
        std::lock_guard guard(board.lock);
        interface = entryOf(linuxBoard, port);
        if (interface == nullptr) return;
        trunk = findInterface(board, port.trunk);
        const char* refused = trunk == nullptr ? nullptr : joinTrunk(*trunk, *interface);
        if (refused != nullptr) {
            hostReport("%s is not taken as a member of %s: %s", port.device.c_str(), trunkDevice.c_str(),
                       refused);
            return;
        }
        if (trunk == nullptr) interface->trunk = port.trunk;
    }
    // Expected where the description says so itself.
    if (port.described && linuxBoard.descriptions.at(port.number) != port.trunk)
        hostReport("%s is a member of %s and cannot be isolated by itself", port.device.c_str(),
                   trunkDevice.c_str());
    if (!linuxBoard.told) return;
    if (trunk != nullptr)
        reportProblem(publishJoin(*trunk, *interface));
    else
        reportProblem(publishNewLink(*interface, 0, {{DAX_RTA_TRUNK_JOIN, 0}}));
}

// A trunk is there before its members join it, and until the last has left.
void carryOut(LinuxBoard& linuxBoard, const BridgePorts& before, const BridgePorts& after) {
    const auto stays = [](const BridgePorts& ports, uint32_t index, const BridgePort& port) {
        const BridgePort* other = sameIn(ports, index, port);
        return port.trunk == 0 || (other != nullptr && other->trunk == port.trunk);
    };
    for (const auto& [index, port] : before) {
        if (!stays(after, index, port)) leave(linuxBoard, port);
    }
    for (const auto& [index, port] : before) {
        if (sameIn(after, index, port) == nullptr) vanish(linuxBoard, port);
    }
    for (const auto& [index, port] : after) {
        if (sameIn(before, index, port) != nullptr) rename(linuxBoard, port);
    }
    for (const auto& [index, port] : after) {
        if (sameIn(before, index, port) == nullptr) appear(linuxBoard, port);
    }
    for (const auto& [index, port] : after) {
        const KernelLink* trunk = linkAt(linuxBoard.links, linuxBoard.links.at(index).master);
        if (!stays(before, index, port) && trunk != nullptr) join(linuxBoard, port, trunk->name);
    }
}

bool isTheBridge(const LinuxBoard& linuxBoard, const KernelLink* link) {
    return link != nullptr && isBridgeDevice(*link) && link->name == linuxBoard.board.bridge;
}

// A bridge's or a trunk's change is one of its ports, too.
bool concernsOthers(const LinuxBoard& linuxBoard, const KernelLink* link) {
    return link != nullptr && (isTrunkDevice(*link) || isTheBridge(linuxBoard, link));
}

void takeOver(LinuxBoard& linuxBoard, const LinkChanges& changes) {
    for (const auto& [index, link] : changes) {
        if (link)
            linuxBoard.links[index] = *link;
        else
            linuxBoard.links.erase(index);
        if (linuxBoard.bridge == index && !isTheBridge(linuxBoard, link ? &*link : nullptr))
            linuxBoard.bridge = 0;
    }
    for (const auto& [index, link] : changes) {
        if (link && isTheBridge(linuxBoard, &*link)) linuxBoard.bridge = index;
    }
}

// What of the changes is news.
LinkChanges newsIn(const LinuxBoard& linuxBoard, const LinkChanges& changes) {
    LinkChanges news;
    for (const auto& [index, link] : changes) {
        const KernelLink* former = linkAt(linuxBoard.links, index);
        const bool same = link ? former != nullptr && *former == *link : former == nullptr;
        if (!same) news.emplace(index, link);
    }
    return news;
}

std::set<uint32_t> concernedBy(const LinuxBoard& linuxBoard, const LinkChanges& news) {
    std::set<uint32_t> concerned;
    bool all = false;
    for (const auto& [index, link] : news) {
        concerned.insert(index);
        all = all || concernsOthers(linuxBoard, link ? &*link : nullptr) ||
              concernsOthers(linuxBoard, linkAt(linuxBoard.links, index));
    }
    if (!all) return concerned;
    for (const auto& [index, link] : linuxBoard.links) concerned.insert(index);
    return concerned;
}

void reportBridge(LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    std::string sentence;
    if (linuxBoard.bridge == 0)
        sentence = "there is no bridge " + board.bridge + ": its ports are followed as soon as there is one";
    else if (!linuxBoard.links.at(linuxBoard.bridge).filtersVlans)
        hostReport("the bridge %s does not filter VLANs: untagged frames belong to no VLAN",
                   board.bridge.c_str());
    {
        std::lock_guard guard(board.lock);
        setLinuxNote(board.plane, BRIDGE_NOTE, sentence);
    }
    reportProblem(sentence);
}

void reportAbsent(LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    std::lock_guard guard(board.lock);
    for (const auto& [device, number] : linuxBoard.devices) {
        if (board.interfaces.at(number).present) continue;
        hostReport("%s is not in the bridge %s; what isolates it holds as soon as it is", device.c_str(),
                   board.bridge.c_str());
    }
}
}  // namespace

LinuxBoard linuxBoardOf(Board& board) {
    LinuxBoard linuxBoard = {board};
    for (auto& [number, interface] : board.interfaces) {
        linuxBoard.descriptions.emplace(number, interface.trunk);
        if (interface.kind == IfKind::vlan) {
            linuxBoard.vlans.emplace(interface.vid, number);
        } else {
            linuxBoard.listed = true;
            const std::string device = deviceOf(interface);
            if (!linuxBoard.devices.emplace(device, number).second)
                hostReport("%s has no part in the bridge %s: its device %s is described twice",
                           interface.name.c_str(), board.bridge.c_str(), device.c_str());
        }
        interface.present = false;
        interface.trunk = 0;
        interface.members.clear();
    }
    return linuxBoard;
}

void followLinks(LinuxBoard& linuxBoard, const LinkChanges& changes) {
    const LinkChanges news = newsIn(linuxBoard, changes);
    if (news.empty()) return;
    const auto change = lockChange();
    const std::set<uint32_t> concerned = concernedBy(linuxBoard, news);
    const BridgePorts before = portsAmong(linuxBoard, concerned);
    bool bridgeChanges = news.contains(linuxBoard.bridge);
    takeOver(linuxBoard, news);
    carryOut(linuxBoard, before, portsAmong(linuxBoard, concerned));
    bridgeChanges = bridgeChanges || news.contains(linuxBoard.bridge);
    if (linuxBoard.told && bridgeChanges) reportBridge(linuxBoard);
}

void reportLinuxBoard(LinuxBoard& linuxBoard) {
    reportBridge(linuxBoard);
    if (linuxBoard.bridge != 0) reportAbsent(linuxBoard);
}
#endif
