// Fault rules: "the Nth call of X, for this interface and this command, answers status S", set while the
// board runs. A rule counts matching calls from the moment it was set; it fires at its Nth match and is then
// gone, or at every match until it is cleared. A call that a rule answers has no effect on the board.
//
// Thread-safety
// -------------
// Any task may set, list and clear rules while others make calls. Without a rule a call costs one load.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/board/hardware_call.h"

struct FaultRule {
    std::string call;    // as in platform/hardware.h
    bool every = false;  // fires at every match
    uint32_t nth = 1;    // else at this one, counted from 1
    int32_t status = 0;
    std::optional<uint32_t> key;      // HardwareCall::key; none: any
    std::optional<uint32_t> command;  // opcode, attribute, command id, or the record's attrId; none: any
    uint32_t seen = 0;                // matches so far
};

// What is wrong with the rule, or nothing after adding it.
std::string addFaultRule(const FaultRule& rule);
void clearFaultRules();
// One line per rule, in the order in which they were set.
std::string listFaultRules();
// The status that a rule answers this call with, if one does.
std::optional<int32_t> faultFor(const HardwareCall& call);
