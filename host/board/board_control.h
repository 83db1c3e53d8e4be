// The board socket: how an operator and the tests look at the simulated board, change it, and ask what its
// forwarding plane would do. One line per connection: a verb and its words. The answer's first line is "ok"
// or "error: TEXT"; the lines that follow are the result. Verbs that change something answer when the daemon
// has handled every event that came of it.
#pragma once

#include <cstdint>

int32_t startBoardControl();
