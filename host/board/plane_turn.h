// What the daemon asks of the board's forwarding plane in one turn goes there together.
#pragma once

#include "host/board/board.h"

// Before a command to the plane, with the board's lock held.
void joinTurn(const Board& board);
// At the end of a task's turn, without the lock.
void endTurn();
