// The link to the peer control board: a mirrored request goes to the peer's command server as the matching
// sync request. It has reached the peer when it was handed over whole; the answer is read and thrown away
// later, so two boards that configure each other never wait for one another.
//
// What counts as a failure
// ------------------------
// No peer described, or none listening, is a board that is not plugged: success, reported once. A peer that
// accepts and then stalls or breaks off is a failure within the time-out of the board's description. While it
// goes on stalling, further requests fail at once; the connection is kept, so that what it has taken so far
// and what it takes later reach it in order.
//
// Thread-safety
// -------------
// One request at a time, in the order of the calls, under a lock of the link's own, which is held for as long
// as the peer takes. The board's lock must not be held: it is taken for a moment to read the description.
#pragma once

#include <cstdint>

#include "platform/hardware.h"

struct PeerRequest {
    uint32_t opcode = 0;  // of the sync operation
    uint32_t column = 0;
    const void* index = nullptr;  // null when it has none; points into the caller's record or `number`
    uint32_t indexLength = 0;     // bytes
    const void* value = nullptr;  // null when it has none; the caller's
    uint32_t valueLength = 0;     // bytes
    uint32_t number = 0;          // an index that came by value

    PeerRequest() = default;
    PeerRequest(const PeerRequest&) = delete;  // may point into itself
};

// Fills a fresh `request` from the arguments of daxHwilCmdSyncApi. False for a command that mirrors nothing,
// or a data block that does not fit a request.
bool decodePeerRequest(uintptr_t key, uint32_t command, const void* data, const HwCmdControl& control,
                       PeerRequest& request);

// Hands the request to the peer, unless `flags`, those of the control block, say that it came from there. 0,
// or the status of a peer that failed.
int32_t mirrorToPeer(const PeerRequest& request, uint32_t flags);
