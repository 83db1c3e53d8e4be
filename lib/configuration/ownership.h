// What a saved file wanted when it was brought into force last, as long as that runs. It tells what to remove
// when the file does not want it any more from what others have made, and outlives the keeper in the daemon's
// run folder. A daemon that has started anew knows nothing of it, so then nothing is owned.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "lib/configuration/configuration.h"

struct Ownership {
    std::string daemon{};  // when it was started, as the board says
    std::set<ConfigRow> rows{};
    std::set<uint32_t> ponOff{};
    bool operator==(const Ownership&) const = default;
};

// Of the daemon that answers now. What cannot be read, or belongs to another run of it, is as good as none.
Ownership readOwnership(Session& session);
// False with errno set.
bool writeOwnership(const Session& session, const Ownership& ownership);

// What of it runs and is not wanted any more.
Configuration unwanted(const Ownership& ownership, const Configuration& wanted, const Configuration& running);
// After a file was brought into force as far as that went.
void takeOwnership(Ownership& ownership, const Configuration& wanted, const Configuration& running);
