// The way from the running configuration to a wanted one, as requests in an order that is allowed and leaves
// as little open as can be.
//
// Removals come before additions: what goes may occupy a number, a limit or an interface that what comes
// needs. The exception are ports that are isolated before and after. Where a removal would open them, the new
// claims that isolate them are tried first, and the removal waits for them. The daemon decides whether its
// rules allow that: a claim that it refuses is tried again after the removals. Three things cannot be bridged
// so: a group that replaces a pair of its members or the other way round, since the rules forbid both at a
// time; a claim of another scope (all traffic for one VLAN, or the reverse), since hardware keeps a pair of
// ports under the scope of its first claim; and claims beyond a limit. While the old and the new claims
// overlap, members of both may be isolated more than either says.
#pragma once

#include <vector>

#include "ctl/configuration/configuration.h"

enum class StepAction : uint8_t { setMode, setPon, remove, create, add, activate };

struct Step {
    StepAction action = StepAction::remove;
    ConfigRow row;
    uint32_t number = 0;  // the mode, or a VLAN
    bool on = false;      // of setPon
};

// To be carried out in this order.
struct Plan {
    std::vector<Step> before;  // isolates more, or removes what nobody misses
    std::vector<Step> early;   // may be refused: is then tried again in front of `after`
    std::vector<Step> release;
    std::vector<Step> after;
};

Plan planChanges(const Configuration& running, const Configuration& wanted);
