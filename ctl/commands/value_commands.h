// `pon`, `mode`, `scalar` and `debug`: the daemon's single values.
#pragma once

#include "ctl/commands/command.h"

Commands valueCommands();
