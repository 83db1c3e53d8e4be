// The configuration as a file: `export` prints the running one, `apply` makes the running one equal to a
// file.
//
// Checks first
//   A file is read, its names resolved and its lines compared with one another before the daemon is asked for
//   anything but its limits and its configuration. Every mistake is printed with its place; with one of them,
//   nothing is changed.
//
// Then the plan (lib/configuration/config_plan.h)
//   A refusal does not stop it: the rest is done, and the exit status says that something was refused. The
//   early steps are tried in silence and again after the removals. Losing the daemon stops it; what was done
//   stays, and both are said.
//
// Then the sweep
//   What an earlier run of the daemon left over in the forwarding plane is removed once everything that is
//   wanted is in force. After a refusal it stays, since it may isolate what was refused.
#pragma once

#include "ctl/commands/command.h"

Commands applyCommands();
