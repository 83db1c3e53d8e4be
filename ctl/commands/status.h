// `status`: whether all is well, for people and for monitoring. The forwarding plane is asked whether it
// holds what it should, and the peer board is compared with this one.
#pragma once

#include "ctl/commands/command.h"

Commands statusCommands();
// Says on standard error that the boards may differ, where this board has reason to think so. Silent where
// the board cannot be asked.
void tellDoubt(Session& session);
