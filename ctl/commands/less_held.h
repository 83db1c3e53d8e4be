// Tells what holds less than the daemon's answer of 0 says. That the board cannot be asked is no failure of
// what was done: nothing is told then.
#pragma once

#include <cstdint>
#include <vector>

#include "lib/link/rows.h"
#include "lib/link/session.h"

// After rows were added: of the ports that they concern.
void tellLessHeld(Session& session, const RowFamily& family, RowScope scope,
                  const std::vector<uint32_t>& members);
// Of all ports.
void tellShortfalls(Session& session);
