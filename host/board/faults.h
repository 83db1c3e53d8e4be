// Fault rules: "the Nth call of X, for this interface and this command, answers status S", set while the
// board runs. A rule counts matching calls from the moment it was set; it fires at its Nth match and is then
// gone, or at every match until it is cleared. A call that a rule answers has no effect on the board.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/board/hardware_call.h"

struct FaultRule {
    std::string call;
    bool every = false;
    uint32_t nth = 1;
    int32_t status = 0;
    std::optional<uint32_t> key;
    std::optional<uint32_t> command;  // opcode, attribute, command id, or the record's attrId
    uint32_t seen = 0;
};

// What is wrong with the rule, or null after adding it.
const char* addFaultRule(const FaultRule& rule);
void clearFaultRules();
// One line per rule, in the order in which they were set.
std::string listFaultRules();
// The status that a rule answers this call with, if one does.
std::optional<int32_t> faultFor(const HardwareCall& call);
