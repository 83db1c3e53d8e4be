// Whether daemon, plane, saved configuration and peer board are as they should be.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib/configuration/configuration.h"
#include "lib/configuration/resolution.h"
#include "lib/link/about.h"
#include "lib/link/peer.h"
#include "lib/link/plane.h"
#include "lib/text/listing.h"

struct Status {
    About about;
    std::string since;  // local time
    PlaneReport plane;
    Configuration running{};
    bool saved = false;
    std::vector<std::string> pending;
    size_t unsaved = 0;  // rows that run and the saved configuration does not want
    std::vector<PolicyUse> policies;
    std::string role;
    PeerLink link;
    std::string boards;  // empty: there is no peer
    std::vector<std::string> problems;
};

// Ends the command where the daemon, or its board, does not answer; that the peer does not is part of it.
Status readStatus(Session& session);
Json statusAnswer(const Status& status);
