// `raw`: any request of the command socket by number, to try the daemon out. Indexes and values of any length
// go out as they are written.
#pragma once

#include "ctl/commands/command.h"

Commands rawCommands();
