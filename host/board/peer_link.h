// The link to the peer control board: a mirrored request goes to the peer's command server as the matching
// sync request. It has reached the peer when it was handed over whole; the answer is read and thrown away
// later, so two boards that configure each other never wait for one another.
//
// No peer described, or none listening, is a board that is not plugged: success, told once. A peer that
// accepts and then stalls or breaks off is a failure within the time-out of the board's description. While it
// goes on stalling, further requests fail at once; the connection is kept, so that what it has taken so far
// and what it takes later reach it in order.
#pragma once

#include <cstdint>

#include "platform/hardware.h"

struct PeerRequest {
    uint32_t opcode = 0;  // of the sync operation
    uint32_t column = 0;
    const void* index = nullptr;  // null when it has none; points into the caller's record or `number`
    uint32_t indexLength = 0;
    const void* value = nullptr;
    uint32_t valueLength = 0;
    uint32_t number = 0;  // an index that came by value

    PeerRequest() = default;
    PeerRequest(const PeerRequest&) = delete;  // may point into itself
};

// False for a command that mirrors nothing, or a data block that does not fit a request.
bool decodePeerRequest(uintptr_t key, uint32_t command, const void* data, const HwCmdControl& control,
                       PeerRequest& request);
bool peerIsDescribed();
int32_t mirrorToPeer(const PeerRequest& request, uint32_t flags);
