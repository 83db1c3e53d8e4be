// `keep`: brings the saved configuration into force, and holds the daemon to it.
//
// It compares what should be with what is, however that came about, and asks for the difference with the
// planner of `apply`. What the file wanted before and does not want any more is removed; rows that others
// have made are left alone (lib/configuration/ownership.h tells them apart). A line that cannot be applied
// is named, stays pending, and keeps no other from being applied, but while a line cannot be read, nothing is
// removed and no door opened. When nothing is pending, what an earlier run of the daemon left over in the
// forwarding plane is swept, once.
//
// The resident keeper looks again whenever an event has changed the board, when the file or the daemon is
// another one, and after a refusal from time to time. What an operator withdraws by a request stays so until
// the daemon starts again, the file changes, or it is asked for again.
#pragma once

#include "ctl/commands/command.h"

Commands keepCommands();
