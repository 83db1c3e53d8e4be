// `why`: why two interfaces may or may not talk, by the daemon's tables (lib/configuration/judgement.h)
// and by the forwarding plane, and whether the two agree.
#pragma once

#include "ctl/commands/command.h"

Commands whyCommands();
