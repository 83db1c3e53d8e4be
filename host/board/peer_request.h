// A request for the peer board: a call of daxHwilCmdSyncApi taken apart, and the frame that asks the peer's
// command server for the same.
#pragma once

#include <cstdint>
#include <string>

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

// The frame of the command socket, its length word included.
std::string requestFrame(const PeerRequest& request);
// Whether the request changes nothing wherever it is carried out.
bool isProbe(const PeerRequest& request);
