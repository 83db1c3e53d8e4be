// The saved configuration: the file that is brought into force at every start, taken line by line. What
// cannot be applied just now is pending; it keeps nothing else from being applied.
#pragma once

#include <string>
#include <vector>

#include "lib/configuration/resolution.h"

struct Saved {
    bool there = false;  // false: nothing was saved
    std::string text{};  // of the file
    ConfigFile file{};
    Resolution resolution{};              // what of it could be read and resolved
    std::vector<std::string> mistakes{};  // the rest, each with its place
};

// Ends the command when the file cannot be read at all, or has no line: what is in force then has to stay.
// The limits of `standing` are asked for here.
Saved readSaved(Session& session, Standing standing);
// The same for a file that is not to end the command: what would have ended it is a mistake.
Saved lookAtSaved(Session& session, const Standing& standing);

// What of it does not run. A row that is wanted as created only may be active.
Configuration lacking(const Configuration& wanted, const Configuration& running);
// A running configuration with what is lacking added; nothing is removed.
Configuration joined(const Configuration& running, const Configuration& lacks);
// What is pending, a line each.
std::vector<std::string> pendingLines(Session& session, const Saved& saved, const Configuration& running);
