// Mirroring to the peer control board. The caller holds the semaphore, also while the peer is waited for: no
// two requests are mirrored out of order.
#pragma once

#include <cstdint>

// What is mirrored: the row's key (0, a number, or the address of an index record), the command of
// platform/mirror.h that the peer is to run, and the words of the control block (lengths in bytes).
struct PeerMirror {
    uintptr_t key;
    uint32_t command;
    uint32_t flags;
    uint32_t keyLength;
    uint32_t dataLength;
};

// Hands the request with its value cell to the peer board; returns the platform's status.
int32_t portIsolatePeerMirror(const PeerMirror& mirror, void* value);
