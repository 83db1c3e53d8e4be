// What every request handler shares: the semaphore around its work and the mirroring of set requests.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "daemon/hw/peer_mirror.h"

// The flags word that a set worker passes on with its mirror request: the one thing in which set and sync
// differ.
inline constexpr uint32_t REQUEST_FLAGS_SET = 3;
inline constexpr uint32_t REQUEST_FLAGS_SYNC = 1;
inline constexpr uint32_t REQUEST_VALUE_LENGTH = 4;  // bytes of a mirrored value cell

// Runs `work` with the semaphore held and answers its status.
template <typename Work>
int32_t underSemaphore(Work work) {
    silTakeSem(gPortIsoInfo.mutex, SIL_WAIT_FOREVER);
    const int32_t status = work();
    silGiveSem(gPortIsoInfo.mutex);
    return status;
}
