// Two boards that should hold the same: `board compare` shows what differs, `board resync` makes the standby
// board hold what the active one holds.
//
// Resync is an apply whose file is the active board. It asks the standby board as a peer does, so that
// nothing comes back. Where the active board has taken a row by the time that its removal comes up, the row
// stays; what changed meanwhile is taken in by another round.
#pragma once

#include "ctl/commands/command.h"

Commands peerCommands();
