// The verbs of the board socket that answer at once.
#pragma once

#include <string>

#include "host/board/verb.h"

// The journal and the monitor are streams (host/board/board_control.cpp); `help` lists them with the verbs.
inline constexpr char JOURNAL_VERB[] = "journal";
inline constexpr char MONITOR_VERB[] = "monitor";
inline constexpr char MONITOR_CHANGES[] = "changes";

// The whole answer to a line of at least one word, carried out on the board of this process. Its lock must
// not be held. Who may not change anything is refused all but what is known to read.
std::string answerVerb(const Words& words, bool mayChange);
