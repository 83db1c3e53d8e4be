// The board of this process, as the daemon reaches it: the calls of platform/hardware.h work on it.
#pragma once

#include "host/board/board.h"

Board& theBoard();

// Reads the description of the board; one without description has no interfaces.
void loadBoard();
// Starts the journal file that the description names. The file of a running board is emptied, so this is for
// a process that has the board's sockets.
void openBoardJournal();
