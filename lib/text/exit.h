// How a command ends.
//
// A command that comes to its end answers an exit status. A step that cannot go on throws a CommandEnds with
// the status and the sentence for the operator, so the steps in between answer what they found and look at
// nothing else. The sentence is printed where a whole command ends: by runCommandLine, which catches it. Some
// callers deal with a failure themselves: a rollback, which prints it and says what is left behind, and what
// works without the daemon's help, such as completion, which drops it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

enum class Exit : int {
    done = 0,
    refused = 1,      // by the daemon or the board
    usage = 2,        // the command line makes no sense
    unreachable = 3,  // no daemon, no answer in time, or one that cannot be read
};

// Plain data to be thrown.
struct CommandEnds {
    Exit exit = Exit::done;
    std::string why;                  // empty: printed already
    std::optional<int32_t> status{};  // the daemon's, where it is one that ends the command
};

// For `throw`: the command line makes no sense.
CommandEnds misuse(std::string sentence);

// Prints why a command ends, unless that was done before. Answers the exit status.
Exit tellEnd(const CommandEnds& end);
