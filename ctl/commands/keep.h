// `keep`: brings the saved configuration into force, and keeps what of it was taken away.
//
// What of the file does not run is asked for, with the planner of `apply`; nothing that runs is removed. A
// line that cannot be applied is named, stays pending, and keeps no other from being applied. When nothing is
// pending, what an earlier run of the daemon left over in the forwarding plane is swept, once.
//
// The resident keeper looks again whenever an event has changed the board, when the daemon has started anew,
// and after a refusal from time to time. What an operator withdraws by a request stays so until the daemon
// starts again or it is asked for again.
#pragma once

#include "ctl/commands/command.h"

Commands keepCommands();
