// The journal: every call of the interface and hardware layer as one line of JSON, the way to see exactly
// what the hardware was told. It goes to the file that the board's description names and to the streams of
// calls (host/services/streams.h); the monitor gets the same calls as lines of words.
//
// Calls are numbered whether or not anybody listens, so a gap in the numbers is a gap in the journal. Nothing
// is formatted while nobody listens. A line for which the disk has no room is left out.
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
// Opens the journal file, emptied. 0, or an errno value; either way `path` is what is opened anew from here
// on. To be called once.
int openJournalFile(const std::string& path);
// Goes on in a file of that path which is made where it is missing, so that the old one can be moved away
// first. Where that fails the old one is kept. May be called by a handler of signals; does nothing without a
// path.
void reopenJournalFile();
