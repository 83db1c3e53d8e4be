// Ports that the saved configuration names, on a bridge whose ports are not listed: they are interfaces of
// the board whether they are there or not, so that rows can be made for them, and what isolates them holds by
// the kernel's name from their first frame on. One that is there has the kernel's number; it keeps that when
// it goes and comes back as another device. One that is absent from the start gets a number that the kernel
// does not come to.
//
// Thread-safety
// -------------
// As for all that works on a LinuxBoard; the change lock (host/board/board_events.h) is held, the board's is
// not unless it says so.
#pragma once

#include "host/linux/bridge_ports.h"

inline constexpr uint32_t KEPT_NUMBER_FIRST = 2000000001;

// Reads the names of the saved configuration if that has changed. When it cannot be read, or is not there any
// more, those that were read stay.
void readSavedNames(LinuxBoard& linuxBoard);
bool isKept(const LinuxBoard& linuxBoard, const Interface& interface);
// The interface that was kept for this port, which is back from now on; null where there is none. The board's
// lock is held.
Interface* takeKept(LinuxBoard& linuxBoard, uint32_t index, const BridgePort& port);
// Enters the saved names that the board does not know as absent interfaces.
void enterSavedNames(LinuxBoard& linuxBoard);
// Takes out the absent interfaces whose names are not saved any more, and answers them.
std::vector<uint32_t> dropUnsavedNames(LinuxBoard& linuxBoard);
