// Takes a change back unless it is confirmed in time: a process of its own, so that neither the end of the
// command that made the change nor the loss of the operator's connection matters.
//
// It waits at a socket without a file, of which there is one for each root. Whoever may confirm is the user
// who made the change, and root. When the time is up it ends the command if that is still at work, and brings
// back the former configuration, for as long as RETRY_SECONDS if the daemon does not answer or refuses. What
// it does is in the system's log. SIGTERM has it take the change back at once.
#pragma once

#include <cstdint>
#include <string>

#include "lib/configuration/configuration.h"

inline constexpr uint32_t CONFIRM_SECONDS_MAX = 24 * 60 * 60;

// The command's end of the guardian: it knows by it when the command has done its work.
struct Guardian {
    int atWork = -1;
};

// To be called before the first change. Ends the command where another change waits to be confirmed.
Guardian startGuardian(const Session& session, const Configuration& former, uint32_t seconds);
void endWork(Guardian& guardian);

// Ends the command where no change waits, or not one that this user may confirm.
void confirmChange(const Session& session);
