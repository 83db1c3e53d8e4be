// The board of a Linux bridge: the kernel decides which interfaces there are and which trunk each is in.
// Every port of the bridge is an interface, numbered as the kernel numbers it, unless the description lists
// interfaces: then those are all, under the numbers and names given.
//
// A listed interface is known whether it is there or not: its isolation stays programmed by the device's
// name, so nothing is told when it goes. One that is not listed goes for good; its record is kept for a
// while, since the daemon asks for it while it cleans up.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "host/board/board.h"
#include "host/linux/kernel_links.h"

inline constexpr size_t VANISHED_MAX = 1024;  // records kept of interfaces that are gone
// The trunk of a port that is in one which the description does not list.
inline constexpr uint32_t TRUNK_NOT_LISTED = UINT32_MAX;

// The kernel's devices, and how they become interfaces. Only one task at a time works on it.
struct LinuxBoard {
    Board& board;
    bool listed = false;                           // the description numbers the ports
    std::map<std::string, uint32_t> devices = {};  // numbers of listed interfaces, by the kernel's name
    std::map<uint32_t, uint32_t> vlans = {};       // numbers of described VLAN interfaces, by VLAN id
    // All that is described, by number, with the trunk that it is in there.
    std::map<uint32_t, uint32_t> descriptions = {};
    KernelLinks links = {};
    uint32_t bridge = 0;                 // the kernel's index; 0: there is none
    std::deque<uint32_t> vanished = {};  // numbers of those that are gone but kept, the oldest first
    bool told = false;                   // whether the daemon is told of changes
};

// Nothing of what is described is there yet.
LinuxBoard linuxBoardOf(Board& board);
// Takes over what has become of the kernel's devices; the board's lock must not be held.
void followLinks(LinuxBoard& linuxBoard, const LinkChanges& changes);

// Tells what is described and not there, and what the bridge cannot do.
void reportLinuxBoard(LinuxBoard& linuxBoard);
