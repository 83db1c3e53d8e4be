// The table of commands, and the way from a command line to one of its rows.
#pragma once

#include <string>
#include <vector>

#include "ctl/commands/command.h"

// All commands, those of one object together, in the order of the help.
const std::vector<Command>& commandTable();

// Runs one command line (without the program's name) in a session of its own. Here a command that ends early
// is caught, and the reason printed.
Exit runCommandLine(const std::vector<std::string>& words);
