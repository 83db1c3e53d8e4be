// What a command is. Each family of commands has a file of its own and hands out its rows;
// ctl/commands/commands.h puts them together into the table, from which help and completion are made.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/fields.h"
#include "lib/link/session.h"

// A command as it was called.
struct Invocation {
    std::string object;  // in full
    std::string verb;    // in full; empty where the object is the command
    std::vector<std::string> arguments{};
    std::vector<Field> options;
};

struct Command {
    const char* object;
    const char* verb = "";       // empty: the object is the command
    const char* signature = "";  // see ctl/text/command_line.h
    const char* help;
    const char* example;
    // Answers Exit::refused where the command went on after a refusal. Throws CommandEnds where it did not.
    Exit (*run)(Session&, const Invocation&);
    const char* details = nullptr;  // more of the help, shown for the command alone
    const char* json = nullptr;     // what --json prints; what scripts rely on
};

// The number that --count gives; nothing without one.
std::optional<uint32_t> countOption(const Invocation& invocation);

// Commands side by side, those of one object together.
using Commands = std::span<const Command>;

std::vector<std::string> objectNames(Commands table);
Commands commandsOf(Commands table, const std::string& object);
// The verbs of one object's commands.
std::vector<std::string> verbNames(Commands commands);

// The command that `words` begin with, and how many of them name it.
struct FoundCommand {
    const Command* command = nullptr;
    size_t named = 0;
};
// Ends the command line when there is no such command. An object alone is found as its first command, with 1
// for `named`.
FoundCommand findCommand(Commands table, const std::vector<std::string>& words);
