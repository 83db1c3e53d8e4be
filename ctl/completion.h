// What may stand in place of the last word of a command line, for shells and for whoever reads lines from a
// terminal. Objects, verbs and options come from the table of commands; the kind of an argument is told by
// its name in the command's signature, and interfaces, VLANs and group numbers are asked of the running
// daemon.
#pragma once

#include <string>
#include <vector>

#include "ctl/session.h"

// `words` without the program's name; the last one is to be completed and may be empty. Those that begin with
// it, in order. Nothing where anything may be written, such as a file.
std::vector<std::string> completions(Session& session, const std::vector<std::string>& words);

Exit runComplete(Session& session, const Invocation& invocation);
