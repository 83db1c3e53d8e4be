// The process shell: runs one of the daemon's exported print functions for an operator. The request is one
// line with the function's name; the printout comes back.
//
// A printout runs in a child process, with the connection as its standard output, so that neither a slow
// reader nor a table that changes under it can disturb the daemon. A child that takes longer than 2 seconds
// is ended.
#pragma once

#include <cstdint>

// Serves `listener`, the shell's socket. 0, or -1 after a report.
int32_t startProcessShell(int listener);
