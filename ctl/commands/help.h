// Help at every level, made from the table of commands.
#pragma once

#include <string>
#include <vector>

#include "ctl/commands/command.h"

// "group add GROUP INTERFACE..."
std::string usageOf(const Command& command);

// Prints the help for what `words` name: a command, an object, or everything where they are empty. Ends the
// command line when they name nothing.
void printHelp(Commands table, const std::vector<std::string>& words);
