// The task that looks whether the plane's table is whole: about once a second, and where others can touch the
// table, as soon as the kernel says that they did. It waits without the board's lock and looks under it.
#pragma once

#include "host/board/board.h"

// Never returns.
void watchTable(Board* board);
