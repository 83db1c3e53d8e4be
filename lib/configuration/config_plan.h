// The way from the running configuration to a wanted one, as requests in an order that is allowed and leaves
// as little open as can be. A pure function of the two.
//
// Removals first
//   What goes may occupy a number, a limit or an interface that what comes needs. So removals come before
//   additions, and with them the PON isolation that is switched on again.
//
// The exception: ports that are isolated before and after
//   Where a removal would open ports that new claims isolate again, those claims are tried first (`early`)
//   and the removal waits for them (`release`). The daemon decides whether its rules allow that; a claim that
//   it refuses is tried again after the removals.
//
// What cannot be bridged so
//   - a group that replaces a pair of its members or the other way round: the rules forbid both at a time
//   - a claim of another scope, all traffic for one VLAN or the reverse: hardware keeps a pair of ports under
//     the scope of its first claim, so the new claim would stay under the old scope for good
//   - claims beyond a limit
//   While old and new claims overlap, members of both may be isolated from more ports than either asks for.
//
// Groups that span machines
//   Those that are to span do so before anything else changes, and those that are not any more cease to at
//   the very end.
//
// Created rows
//   Only a new entry turns an active row into a created one. Such rows are entered last: activating a row
//   programs it against all members, those that are only created included.
#pragma once

#include <vector>

#include "lib/configuration/configuration.h"

enum class StepAction : uint8_t { setMode, setPon, remove, create, add, activate, setSpanning };

struct Step {
    StepAction action = StepAction::remove;
    ConfigRow row;
    uint32_t number = 0;  // the mode, a VLAN, or the groups that span as bits
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
