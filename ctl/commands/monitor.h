// `monitor`: what happens in the daemon, printed as it happens.
#pragma once

#include "ctl/commands/command.h"

Commands monitorCommands();
