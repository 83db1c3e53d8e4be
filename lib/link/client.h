// The connection to the daemon, by libportisolate (lib/interface/portisolate.h).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "common/frames.h"
#include "lib/interface/portisolate.h"

struct DaemonLink {
    std::shared_ptr<portisolate_connection> connection{};  // null until something is asked
    std::string failure{};                                 // why the last request has no answer
};

// The link's connection to the daemon below `root`, made where there is none.
portisolate_connection* connectionOf(DaemonLink& link, const std::string& root, int64_t timeoutMs);

// Sends one request and waits for its reply. Nothing, with link.failure set, when the daemon cannot be
// reached, is served by a user who is not the daemon's, does not answer in time or breaks the format.
std::optional<Reply> commandExchange(DaemonLink& link, const std::string& root, const Request& request,
                                     int64_t timeoutMs);
