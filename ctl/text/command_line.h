// A command line taken apart, and the signature that says which arguments and options a command takes.
//
// A signature such as "GROUP [INTERFACE...] --vlan VLAN" is the one description of a command's arguments: the
// help shows it, the given words are checked against it, and completion reads from it what may come next.
// Brackets mean optional, dots any number; an option without brackets must be given.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/fields.h"

// What holds for all commands, what belongs to one, and the rest in order.
struct CommandLine {
    std::vector<std::string> words;
    std::vector<Field> options;
    int64_t timeoutMs = 5000;
    bool json = false;
    bool help = false;
    bool version = false;
};

struct Placeholder {
    std::string text;  // as the signature has it: "[INTERFACE...]"
    std::string name;  // without its marks: "INTERFACE", or alternatives such as "active|standby"
    bool optional = false;
    bool repeats = false;
};

struct OptionShape {
    std::string name;   // with its dashes
    std::string value;  // what stands for its value; empty for an option without one
    bool required = false;
};

struct Signature {
    std::vector<Placeholder> arguments;
    std::vector<OptionShape> options;
};

// Ends the command when an option lacks its value or the time-out is none.
CommandLine parseCommandLine(const std::vector<std::string>& given);

Signature parseSignature(std::string_view text);

// What does not fit the signature, as a sentence; empty when all does.
std::string findMisfit(const Signature& signature, const std::vector<std::string>& arguments,
                       const std::vector<Field>& options);
