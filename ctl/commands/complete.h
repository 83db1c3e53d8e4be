// What may come next on a command line: objects, verbs, options, and the interfaces, groups and VLANs of the
// running daemon. Serves the interactive mode and, through `complete`, the shells.
#pragma once

#include <string>
#include <vector>

#include "ctl/client/session.h"

// Words that `words`' last one, which may be empty, is the beginning of. What the daemon does not tell in
// time is left out in silence.
std::vector<std::string> completions(Session& session, const std::vector<std::string>& words);

// Prints them, one a line.
Exit runComplete(Session& session, const Invocation& invocation);
