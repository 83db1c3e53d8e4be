// What every request handler shares: the semaphore around its work. The flags of the mirror request are the
// one thing in which set and sync differ.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "daemon/hw/peer_mirror.h"
#include "platform/mirror.h"

// Runs `work` with the semaphore held and answers its status.
template <typename Work>
int32_t underSemaphore(Work work) {
    silTakeSem(gPortIsoInfo.mutex, SIL_WAIT_FOREVER);
    const int32_t status = work();
    silGiveSem(gPortIsoInfo.mutex);
    return status;
}
