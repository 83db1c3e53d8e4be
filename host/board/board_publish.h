// The verb `publish`: an event as the operator words it, without a change of the board.
#pragma once

#include "host/board/verb.h"

// A VerbFunction (host/board/verb.h).
std::string publishVerb(Board& board, const Words& words, std::string& result);

// The interface of this name or number, copied. An event may be about a number that is not described; it is
// then taken for that of a port. False for a name that is not described.
bool findPublished(Board& board, const std::string& name, Interface& interface);
