// `group`, `pair` and `vlan-group`: every verb is written once for the three families of rows.
#pragma once

#include <vector>

#include "ctl/commands/command.h"
#include "lib/link/rows.h"

// Creates, and activates when `activate` says so, the rows that are not there yet, in order. When one is
// refused, those that this call created are destroyed again, last first. Where that is not possible any more
// because the daemon is lost, they stay. Either way the reason and what is left are printed, and the exit
// status is answered.
Exit addRows(Session& session, const RowFamily& family, RowScope scope, const std::vector<uint32_t>& members,
             bool activate);

Commands rowCommands();
