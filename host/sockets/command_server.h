// The command server: serves the daemon's operation table on a local stream socket, in the format of
// wire/framing.h. One task with poll serves all clients, each in the order of its requests.
//
// No client holds up another: nobody is waited for, each client is served a bounded number of requests in
// turn, and one that does not read its replies is not read from until it does. A client costs no more memory
// than one reading and a bounded amount of unsent replies. Whoever mirrors the settings of a peer board comes
// first: the request of an ordinary client may have to wait for room on the way to the peer, and the peer has
// room as long as what it sends is taken in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/services.h"

struct OperationTable {
    const IcmFuncMapEntry* rows;
    uint32_t count;
};

// Carries out one request, `length` bytes behind the frame's length word, and appends the reply frame.
void answerRequest(const OperationTable& table, const uint8_t* request, size_t length, std::string& replies);

// Whether a frame may have this length at all.
bool isFrameLength(uint32_t length);
