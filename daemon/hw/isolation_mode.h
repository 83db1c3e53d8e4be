// The isolation mode as the platform takes it. The caller holds the semaphore, except while the daemon
// starts.
#pragma once

#include <cstdint>

// Hands the mode at `mode` to the platform; returns its status.
int32_t portIsolateModePush(uint32_t* mode);
