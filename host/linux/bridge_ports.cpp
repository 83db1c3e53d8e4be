#include "host/linux/bridge_ports.h"

namespace {

template <typename Map, typename Key>
uint32_t numberIn(const Map& numbers, const Key& key) {
    const auto found = numbers.find(key);
    return found == numbers.end() ? 0 : found->second;
}

// 0 when the device is no interface of this board.
uint32_t numberOf(const LinuxBoard& linuxBoard, uint32_t index, const std::string& device) {
    if (linuxBoard.listed) return numberIn(linuxBoard.devices, device);
    const uint32_t kept = numberIn(linuxBoard.kept, device);
    const uint32_t returned = numberIn(linuxBoard.returned, index);
    return kept != 0 ? kept : returned != 0 ? returned : index;
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
        if (linuxBoard.kept.contains(link.name)) port.number = 0;  // the name is a port's
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

bool isTheBridge(const LinuxBoard& linuxBoard, const KernelLink* link) {
    return link != nullptr && isBridgeDevice(*link) && link->name == linuxBoard.board.bridge;
}

bool concernsOthers(const LinuxBoard& linuxBoard, const KernelLink* link) {
    return link != nullptr && (isTrunkDevice(*link) || isTheBridge(linuxBoard, link));
}

}  // namespace

BridgePorts portsAmong(const LinuxBoard& linuxBoard, const std::set<uint32_t>& indices) {
    BridgePorts ports;
    if (linuxBoard.bridge == 0) return ports;
    for (const uint32_t index : indices) {
        const KernelLink* link = linkAt(linuxBoard.links, index);
        BridgePort port = {};
        if (link == nullptr || !fillPlace(linuxBoard, index, *link, port) || port.number == 0) continue;
        port.described = linuxBoard.descriptions.contains(port.number);
        port.index = index;
        port.device = link->name;
        port.alias = link->alias;
        port.otherNames = link->otherNames;
        port.switchId = link->switchId;
        port.xdp = link->xdp;
        ports.emplace(index, port);
    }
    return ports;
}

const BridgePort* sameIn(const BridgePorts& ports, uint32_t index, const BridgePort& port) {
    const auto found = ports.find(index);
    if (found == ports.end()) return nullptr;
    const BridgePort& other = found->second;
    return other.number == port.number && other.kind == port.kind && other.vid == port.vid ? &other : nullptr;
}

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

void takeOver(LinuxBoard& linuxBoard, const LinkChanges& changes) {
    for (const auto& [index, link] : changes) {
        if (link) {
            linuxBoard.links[index] = *link;
        } else {
            linuxBoard.links.erase(index);
        }
        if (linuxBoard.bridge == index && !isTheBridge(linuxBoard, link ? &*link : nullptr)) {
            linuxBoard.bridge = 0;
        }
    }
    for (const auto& [index, link] : changes) {
        if (link && isTheBridge(linuxBoard, &*link)) linuxBoard.bridge = index;
    }
}
