// The board of this process: the calls of platform/hardware.h and the verbs of the board socket work on it.
#pragma once

#include "host/board/board.h"
#include "host/board/plane_kind.h"

// Exists from the first call on, until the process ends. Its lock is the caller's to take.
Board& theBoard();

// Reads the description of the board (<root>/etc/portisolate/board.conf). One without a description has no
// interfaces and a plane of the first kind. Answers how many lines were reported and left out. To be called
// once, before there are other tasks.
uint32_t loadBoard(PlaneKinds kinds);
// Takes over the ports that are followed as they are now, with what isolates them. Called once, behind
// loadBoard.
void adoptPorts();
// Starts the journal file that the description names, emptied.
void openBoardJournal();
// Starts the task that follows the board's ports, where they are followed.
void watchPorts();
