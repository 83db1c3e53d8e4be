// The verbs that look at the board and its forwarding plane: `list`, `forward`, `matrix`, `hardware` and
// `plane`. Each is a VerbFunction (host/board/verb.h).
#pragma once

#include "host/board/verb.h"

std::string listVerb(Board& board, const Words& words, std::string& result);
std::string forwardVerb(Board& board, const Words& words, std::string& result);
std::string matrixVerb(Board& board, const Words& words, std::string& result);
std::string hardwareVerb(Board& board, const Words& words, std::string& result);
// Shows what is in force; `plane sweep` and `plane restore` change it.
std::string planeVerb(Board& board, const Words& words, std::string& result);
