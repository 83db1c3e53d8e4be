// The journal: every call of the interface and hardware layer as one line of JSON, the way to see exactly
// what the hardware was told. It goes to the file that the board's description names and to the streams of
// calls (host/services/streams.h); the monitor gets the same calls as lines of words.
//
// Calls are numbered whether or not anybody listens, so a gap in the numbers is a gap in the journal. Nothing
// is formatted while nobody listens.
//
// Thread-safety
// -------------
// Any task may make calls at any time. Lines reach the file and every stream in the order of their numbers.
#pragma once

#include <cstdint>
#include <string>

#include "host/board/hardware_call.h"

// Writes down a call that has been answered with `status`, wherever somebody listens. Never waits.
void journalCall(const HardwareCall& call, int32_t status);
// Opens the journal file, emptied; one that was open before is closed. 0, or an errno value.
int openJournalFile(const std::string& path);
