// One call of the interface and hardware layer, described for the journal, which writes it down, and for the
// fault rules, which may answer it in place of the board. daxIfUnit2Name is no such call: asking for a name
// changes nothing and cannot fail.
//
// A description points into the caller's arguments and lives no longer than the call.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/hardware.h"

struct CallWord {
    const char* name;
    uint32_t value;
};

inline constexpr uint32_t CALL_WORDS_MAX = 3;

struct HardwareCall {
    const char* name;
    uint32_t key;      // what a fault rule's `if` means: an interface, a VLAN id, or a row's first word
    uint32_t command;  // opcode, attribute or command id
    CallWord words[CALL_WORDS_MAX];         // the arguments that are numbers; unused ones have no name
    const AttrSetRecord* record = nullptr;  // null when the call has none
    const HwCmdControl* control = nullptr;
    const void* data = nullptr;  // the data block or the index; null when there is none
    uint32_t dataLength = 0;
    const void* index = nullptr;  // of a row of the peer
    uint32_t indexLength = 0;
};

// The calls that can be journalled and made to fail.
bool isHardwareCall(std::string_view name);
