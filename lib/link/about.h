// What the board says of the daemon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lib/link/session.h"

struct About {
    std::string version{};
    std::string since{};                // seconds since 1970, as the board writes them
    std::optional<uint32_t> clients{};  // of the command socket, where the board tells
    uint64_t refused = 0;               // commands that the plane has refused
};

// Ends the command when the board does not answer. What it does not tell, or not in digits, is not there.
About readAbout(Session& session);
