// One request of the command socket (wire/framing.h): taken apart, checked, handed to its handler, answered.
// Nothing is kept between two calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/services.h"

// Rows in any order; opcodes that are in none, or whose handler is null, have no handler.
struct OperationTable {
    const IcmFuncMapEntry* rows;
    uint32_t count;
};

// Null where an operation has none.
const IcmHandler* findHandler(const OperationTable& table, uint32_t opcode);

// `work` runs behind every set or sync, whatever became of it, and before its reply is there; `index` is the
// address of its record, null for none. It throws nothing. Called once, before there are other tasks.
void afterEachSet(void (*work)(const OperationTable& table, uint32_t opcode, const void* index));

// Carries out one request, `length` bytes behind the frame's length word (isFrameLength holds of it), and
// appends the reply frame. Answers the status in it. Of who may not change anything it takes only what is
// known to read.
int32_t answerRequest(const OperationTable& table, const uint8_t* request, size_t length, bool mayChange,
                      std::string& replies);

// The reply to a request that is not looked at.
std::string statusReply(int32_t status);

// Whether a frame may have this length at all.
bool isFrameLength(uint32_t length);
