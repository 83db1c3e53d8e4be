// `plane`: what the forwarding plane really holds, as a table, swept of what an earlier run of the daemon
// left over, and restored where something is missing.
#pragma once

#include <string>

#include "ctl/commands/command.h"
#include "lib/link/plane.h"

// Exit::refused when the plane does not hold all that it was asked for.
Exit printPlane(const PlaneReport& report, bool json);

// "2 elements"
std::string elementsText(uint64_t elements);

Commands planeCommands();
