// What may come next on a command line: objects, verbs, options, and the interfaces, groups and VLANs of the
// running daemon. Serves the interactive mode and, through `complete`, the shells.
//
// This is code of our own, since no library completes behind abbreviated verbs or asks a daemon. What the
// daemon does not answer in time is left out in silence, since nobody waits longer for a key, and a complaint
// would be written into the line that is being typed.
#pragma once

#include <string>
#include <vector>

#include "ctl/commands/command.h"

// Words that begin with the last one of `words`, which may be empty.
std::vector<std::string> completions(Session& session, Commands table, const std::vector<std::string>& words);
