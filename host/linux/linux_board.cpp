#include "host/linux/linux_board.h"

#include <cstring>
#include <mutex>
#include <set>

#include "common/config_file.h"
#include "host/board/board_events.h"
#include "host/linux/kept_ports.h"
#include "host/linux/linux_plane.h"
#include "host/services/logging.h"
#include "platform/route_messages.h"

namespace {

constexpr uint32_t ONLY_SLOT = 1;
constexpr char BRIDGE_NOTE[] = "bridge";

// An interface that is not described has the kernel's number, which may be that of a described one.
Interface* entryOf(LinuxBoard& linuxBoard, const BridgePort& port) {
    Interface* entry = findInterface(linuxBoard.board, port.number);
    return port.described || !linuxBoard.descriptions.contains(port.number) ? entry : nullptr;
}

void reportProblem(const std::string& problem) {
    if (!problem.empty()) reportRemark(problem);
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
           !linuxBoard.descriptions.contains(interface->number) && !isKept(linuxBoard, *interface);
}

// An interface that is gone gives its name to one that is there.
void freeName(LinuxBoard& linuxBoard, const std::string& name) {
    Board& board = linuxBoard.board;
    const auto named = board.numbers.find(name);
    Interface* former = named == board.numbers.end() ? nullptr : findInterface(board, named->second);
    if (!isForgettable(linuxBoard, former)) return;
    board.numbers.erase(named);
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
    if (interface.present && !interface.switchId.empty()) {
        sentence = device + " belongs to the switch chip " + interface.switchId +
                   ", whose ports reach one another without passing the kernel: they cannot be isolated from "
                   "one another";
    }
    setLinuxNote(board.plane, key, sentence);
    reportProblem(sentence);
}

void noteXdp(Board& board, const BridgePort& port) {
    std::string sentence;
    if (port.xdp) {
        sentence = port.device + " has an XDP program: what that sends on passes no filter of the bridge";
    }
    setLinuxNote(board.plane, "xdp " + std::to_string(port.number), sentence);
}

void setSwitch(Board& board, Interface& interface, const BridgePort& port) {
    if (interface.switchId == port.switchId) return;
    interface.switchId = port.switchId;
    noteSwitch(board, interface, port.device);
}

// By what patterns of the saved configuration may match it beside its name. True when that changes.
bool setTexts(Board& board, Interface& interface, const BridgePort& port) {
    if (interface.alias == port.alias && interface.otherNames == port.otherNames) return false;
    interface.alias = port.alias;
    interface.otherNames = port.otherNames;
    interface.life = ++board.lives;
    return true;
}

// Null, after a report, when the board does not take the interface.
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
    const std::string refused = addInterface(board, interface);
    if (refused.empty()) return findInterface(board, port.number);
    hostReport("{} is left out: {}", port.device, refused);
    return nullptr;
}

void appear(LinuxBoard& linuxBoard, uint32_t index, const BridgePort& port) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    {
        std::lock_guard guard(board.lock);
        interface = port.described ? entryOf(linuxBoard, port) : takeKept(linuxBoard, index, port);
        if (interface == nullptr && !port.described) interface = addFound(linuxBoard, port);
        if (interface == nullptr) return;
        interface->present = true;
        interface->life = ++board.lives;
        interface->index = port.index;
        setTexts(board, *interface, port);
        setSwitch(board, *interface, port);
        noteXdp(board, port);
    }
    if (linuxBoard.publishes) reportProblem(publishNewLink(*interface, RT_CHANGE_REGISTER, {}));
}

void forgetOldest(LinuxBoard& linuxBoard) {
    std::lock_guard guard(linuxBoard.board.lock);
    while (linuxBoard.vanished.size() > VANISHED_MAX) forget(linuxBoard, linuxBoard.vanished.front());
}

// An interface that is gone and stays known.
void keep(LinuxBoard& linuxBoard, const Interface& interface) {
    if (!linuxBoard.descriptions.contains(interface.number)) {
        linuxBoard.kept.emplace(interface.name, interface.number);
    }
    hostReport("{} has left the bridge {}; what isolates it holds as soon as it is back", deviceOf(interface),
               linuxBoard.board.bridge);
}

void loseForGood(LinuxBoard& linuxBoard, Interface& interface) {
    {
        std::lock_guard guard(linuxBoard.board.lock);
        interface.gone = true;
    }
    linuxBoard.vanished.push_back(interface.number);
    if (!linuxBoard.publishes) return;
    hostReport(
        "{} has left the bridge {} for good: it is taken out of its groups and pairs, since {} does not "
        "name it",
        interface.name, linuxBoard.board.bridge, SAVED_FILE);
    reportProblem(publishDelLink(interface));
}

// True when its name stays known to the board.
bool vanish(LinuxBoard& linuxBoard, uint32_t index, const BridgePort& port) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    bool stays = port.described;
    {
        std::lock_guard guard(board.lock);
        interface = entryOf(linuxBoard, port);
        if (interface == nullptr || !interface->present) return false;
        interface->present = false;
        interface->index = 0;
        BridgePort gone = port;
        gone.alias.clear();
        gone.otherNames.clear();
        setTexts(board, *interface, gone);
        gone.switchId.clear();
        gone.xdp = false;
        setSwitch(board, *interface, gone);
        noteXdp(board, gone);
        linuxBoard.returned.erase(index);
        stays = stays || (port.kind != IfKind::vlan && linuxBoard.saved.contains(interface->name));
        if (stays) keep(linuxBoard, *interface);
    }
    if (stays) return true;
    loseForGood(linuxBoard, *interface);
    forgetOldest(linuxBoard);
    return false;
}

// The lock is held. True when its name has changed.
bool takeName(LinuxBoard& linuxBoard, Interface& interface, const BridgePort& port) {
    Board& board = linuxBoard.board;
    if (port.described || interface.name == port.device) return false;
    dropName(board, interface);
    freeName(linuxBoard, port.device);
    board.numbers[port.device] = port.number;
    interface.name = port.device;
    interface.life = ++board.lives;
    interface.access = board.accessDevices.contains(port.device);
    noteSwitch(board, interface, port.device);
    const int32_t status = renameLinuxPort(board.plane, port.number, port.device);
    if (status != 0) {
        hostReport("what isolates {} stays under its former name: status {}", port.device, status);
    }
    return true;
}

// Who has got another alias may be another tenant's from now on.
void closeDoor(Board& board, const Interface& interface) {
    uint64_t closed = 0;
    if (board.closed.empty()) return;
    const int32_t problem =
        board.plane.setDoors(board.plane.state, {planePort(board, interface)}, false, closed);
    if (problem != 0) hostReport("the door of {} stays open: {}", interface.name, std::strerror(problem));
}

// The daemon knows no names, but who follows its events matches patterns with them.
void rename(LinuxBoard& linuxBoard, const BridgePort& port) {
    Board& board = linuxBoard.board;
    Interface* interface = nullptr;
    bool changed = false;
    {
        std::lock_guard guard(board.lock);
        interface = entryOf(linuxBoard, port);
        if (interface == nullptr) return;
        setSwitch(board, *interface, port);
        noteXdp(board, port);
        changed = setTexts(board, *interface, port);
        if (changed) closeDoor(board, *interface);
        changed = takeName(linuxBoard, *interface, port) || changed;
    }
    if (changed && linuxBoard.publishes) reportProblem(publishNewLink(*interface, 0, {}));
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
    if (linuxBoard.publishes) reportProblem(publishLeave(*trunk, *interface));
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
        const std::string refused = trunk == nullptr ? "" : joinTrunk(*trunk, *interface);
        if (!refused.empty()) {
            hostReport("{} is not taken as a member of {}: {}", port.device, trunkDevice, refused);
            return;
        }
        if (trunk == nullptr) interface->trunk = port.trunk;
    }
    // Not worth a report where the description says so itself.
    if (port.described && linuxBoard.descriptions.at(port.number) != port.trunk) {
        hostReport("{} is a member of {} and cannot be isolated by itself", port.device, trunkDevice);
    }
    if (!linuxBoard.publishes) return;
    if (trunk != nullptr) {
        reportProblem(publishJoin(*trunk, *interface));
    } else {
        reportProblem(publishNewLink(*interface, 0, {{DAX_RTA_TRUNK_JOIN, 0}}));
    }
}

// Whether the port is in the same trunk there.
bool staysIn(const BridgePorts& ports, uint32_t index, const BridgePort& port) {
    const BridgePort* other = sameIn(ports, index, port);
    return port.trunk == 0 || (other != nullptr && other->trunk == port.trunk);
}

// What carryOut works with.
struct Move {
    const BridgePorts& before;
    BridgePorts after;
    std::set<uint32_t> left;  // those that have left their trunk
};

// True when the names of some of those that are gone stay known.
bool takeOut(LinuxBoard& linuxBoard, Move& move) {
    bool kept = false;
    for (const auto& [index, port] : move.before) {
        if (staysIn(move.after, index, port)) continue;
        leave(linuxBoard, port);
        move.left.insert(index);
    }
    for (const auto& [index, port] : move.before) {
        if (sameIn(move.after, index, port) == nullptr && vanish(linuxBoard, index, port)) kept = true;
    }
    return kept;
}

// A trunk is there before its members join it, and until the last has left.
void carryOut(LinuxBoard& linuxBoard, const BridgePorts& before, const std::set<uint32_t>& concerned) {
    Move move = {before, portsAmong(linuxBoard, concerned), {}};
    // Who bears a name that was kept is the one that it was kept for.
    while (takeOut(linuxBoard, move)) move.after = portsAmong(linuxBoard, concerned);
    for (const auto& [index, port] : move.after) {
        if (sameIn(before, index, port) != nullptr) rename(linuxBoard, port);
    }
    for (const auto& [index, port] : move.after) {
        if (sameIn(before, index, port) == nullptr) appear(linuxBoard, index, port);
    }
    for (const auto& [index, port] : move.after) {
        const KernelLink* trunk = linkAt(linuxBoard.links, linuxBoard.links.at(index).master);
        const bool stayed = staysIn(before, index, port) && !move.left.contains(index);
        if (!stayed && port.trunk != 0 && trunk != nullptr) join(linuxBoard, port, trunk->name);
    }
}

// A member port of a trunk has none of its own.
void closeDoorsOfGone(Board& board) {
    std::lock_guard guard(board.lock);
    if (board.closed.empty()) return;
    std::set<std::pair<uint32_t, std::string>> present;
    for (const auto& [number, interface] : board.interfaces) {
        if (interface.present && interface.trunk == 0) present.emplace(interface.index, deviceOf(interface));
    }
    keepLinuxDoors(board.plane, present);
}

void reportBridge(LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    std::string sentence;
    if (linuxBoard.bridge == 0) {
        sentence = "there is no bridge " + board.bridge + ": its ports are followed as soon as there is one";
    } else if (!linuxBoard.links.at(linuxBoard.bridge).filtersVlans) {
        hostReport("the bridge {} does not filter VLANs: untagged frames belong to no VLAN", board.bridge);
    }
    {
        std::lock_guard guard(board.lock);
        setLinuxNote(board.plane, BRIDGE_NOTE, sentence);
    }
    reportProblem(sentence);
}

void reportAbsent(LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    std::lock_guard guard(board.lock);
    for (const auto* known : {&linuxBoard.devices, &linuxBoard.kept}) {
        for (const auto& [device, number] : *known) {
            if (board.interfaces.at(number).present) continue;
            hostReport("{} is not in the bridge {}; what isolates it holds as soon as it is", device,
                       board.bridge);
        }
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
            if (!linuxBoard.devices.emplace(device, number).second) {
                hostReport("{} takes no part in the bridge {}: its device {} is described twice",
                           interface.name, board.bridge, device);
            }
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
    readSavedNames(linuxBoard);
    carryOut(linuxBoard, before, concerned);
    closeDoorsOfGone(linuxBoard.board);
    enterSavedNames(linuxBoard);
    bridgeChanges = bridgeChanges || news.contains(linuxBoard.bridge);
    if (linuxBoard.publishes && bridgeChanges) reportBridge(linuxBoard);
}

void followSaved(LinuxBoard& linuxBoard) {
    const auto change = lockChange();
    readSavedNames(linuxBoard);
    for (const uint32_t number : dropUnsavedNames(linuxBoard)) {
        loseForGood(linuxBoard, linuxBoard.board.interfaces.at(number));
    }
    forgetOldest(linuxBoard);
    enterSavedNames(linuxBoard);
}

void reportLinuxBoard(LinuxBoard& linuxBoard) {
    reportBridge(linuxBoard);
    if (linuxBoard.bridge != 0) reportAbsent(linuxBoard);
}
