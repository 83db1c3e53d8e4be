// The task that follows the kernel: it takes what route netlink tells of the network devices, carries it over
// to the board (host/linux/bridge_ports.h), and looks about once a second whether the plane's table is whole.
// When the kernel tells more than can be taken, everything is read anew and compared, so that nothing is
// lost.
#pragma once

#include <cstdint>

#include "host/board/board.h"

// Starts the plane of a board that has a bridge and takes the first picture of its ports.
void startLinuxBoard(Board& board);
// Starts the task, where there is a bridge to follow.
void watchLinuxBoard();
// True once everything that the kernel has told so far is handled; false after `timeout` milliseconds.
bool settleLinuxBoard(uint32_t timeout);
