// The board socket: how an operator and the tests look at the board, change it, and ask what its forwarding
// plane would do. One line per connection: a verb and its words. The answer's first line is "ok" or
// "error: TEXT"; the lines that follow are the result. Verbs that change something answer once the daemon has
// handled every event that came of it. `journal` and `monitor` answer with lines for as long as the client
// listens.
#pragma once

#include <cstdint>

// Serves `listener`, the board's socket. 0, or -1 after a report.
int32_t startBoardControl(int listener);
