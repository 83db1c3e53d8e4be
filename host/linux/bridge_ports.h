// Which of the kernel's devices are ports of the board's bridge, and which interfaces they are. A picture of
// the devices and no more: what a change means for the board is host/linux/linux_board.h.
//
// Thread-safety
// -------------
// One task at a time works on a LinuxBoard. It alone adds interfaces to a board with a bridge and takes them
// out, so looking one up here needs no lock.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/board/board.h"
#include "host/linux/kernel_links.h"

// The trunk of a port that is in one which the description does not list.
inline constexpr uint32_t TRUNK_NOT_LISTED = UINT32_MAX;

// The kernel's devices, and how they become interfaces.
struct LinuxBoard {
    Board& board;
    bool listed = false;                           // the description numbers the ports
    std::map<std::string, uint32_t> devices = {};  // numbers of listed interfaces, by the kernel's name
    std::map<uint32_t, uint32_t> vlans = {};       // numbers of described VLAN interfaces, by VLAN id
    // All that is described, by number, with the trunk that it is in there.
    std::map<uint32_t, uint32_t> descriptions = {};
    KernelLinks links = {};
    uint32_t bridge = 0;                 // the kernel's index; 0: there is none
    std::deque<uint32_t> vanished = {};  // numbers of those that are gone for good, the oldest first
    // Where no ports are listed, those that the saved configuration names are known all the same
    // (host/linux/kept_ports.h).
    std::set<std::string> saved = {};            // by the kernel's name
    std::string savedVersion = {};               // of the file that they were read from
    std::map<std::string, uint32_t> kept = {};   // numbers of those that are absent
    std::map<uint32_t, uint32_t> returned = {};  // numbers of those that came back, by the kernel's index
    bool publishes = false;                      // changes are published; the daemon reads its route socket
};

// A device of the kernel as an interface of the board.
struct BridgePort {
    uint32_t index;
    uint32_t number;
    bool described;
    IfKind kind;
    uint32_t vid;
    uint32_t trunk;  // number of the trunk that it is in, 0: none
    std::string device;
    std::string alias;
    std::vector<std::string> otherNames;
    std::string switchId;
    bool xdp;
};
using BridgePorts = std::map<uint32_t, BridgePort>;  // by the kernel's index

// The interfaces among the devices of these indices.
BridgePorts portsAmong(const LinuxBoard& linuxBoard, const std::set<uint32_t>& indices);
// The port at the index, when it is the same interface as `port`; null otherwise.
const BridgePort* sameIn(const BridgePorts& ports, uint32_t index, const BridgePort& port);

// Those of the changes that are not in the picture yet.
LinkChanges newsIn(const LinuxBoard& linuxBoard, const LinkChanges& changes);
// The devices for which such changes may matter: a change of a bridge or of a trunk is one of its ports, too.
std::set<uint32_t> concernedBy(const LinuxBoard& linuxBoard, const LinkChanges& news);
// Puts the changes into the picture.
void takeOver(LinuxBoard& linuxBoard, const LinkChanges& changes);
