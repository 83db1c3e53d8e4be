// `show`: the daemon's printouts, as they are or taken apart.
#pragma once

#include "ctl/commands/command.h"

Commands showCommands();
