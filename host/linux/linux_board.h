// The board of a Linux bridge: the kernel decides which interfaces there are and which trunk each is in.
// Every port of the bridge is an interface, numbered as the kernel numbers it, unless the description lists
// interfaces: then those are all, under the numbers and names given.
//
// A listed interface is known whether it is there or not: its isolation stays programmed by the device's
// name, so nothing is published when it goes. So is one that the saved configuration names
// (host/linux/kept_ports.h). Any other goes for good; its record is kept for a while, since the daemon asks
// about it while it cleans up.
//
// Thread-safety
// -------------
// One task at a time works on a LinuxBoard. It takes the board's lock for each step by itself and never holds
// it while it publishes, so the lock must not be held by the caller.
#pragma once

#include <cstddef>

#include "host/board/board.h"
#include "host/linux/bridge_ports.h"
#include "host/linux/kernel_links.h"

inline constexpr size_t VANISHED_MAX = 1024;  // records kept of interfaces that are gone

// For a board that has been read and is nobody else's yet. Nothing of what is described is there at first.
LinuxBoard linuxBoardOf(Board& board);
// Takes over which ports the saved configuration names, where it has changed.
void followSaved(LinuxBoard& linuxBoard);
// Takes over what has become of the kernel's devices, and publishes it.
void followLinks(LinuxBoard& linuxBoard, const LinkChanges& changes);

// Reports what is described and not there, and what the bridge cannot do.
void reportLinuxBoard(LinuxBoard& linuxBoard);
