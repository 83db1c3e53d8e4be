// The table of commands, and the way from a command line to one of its rows. Help at every level is made from
// the table.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "ctl/client/session.h"

struct Command {
    const char* object;
    const char* verb;       // empty: the object is the command
    const char* signature;  // see ctl/text/args.h
    const char* help;
    const char* example;
    Exit (*run)(Session&, const Invocation&);
    const char* details = nullptr;  // more of the help, shown for the command alone
    const char* json = nullptr;     // what --json prints; what scripts rely on
};

// All commands, those of one object together.
const std::vector<Command>& commandTable();
std::vector<std::string> objectNames();
std::span<const Command> commandsOf(const std::string& object);

// Runs one command line (without the program's name) in a session of its own.
Exit runCommandLine(const std::vector<std::string>& words);
