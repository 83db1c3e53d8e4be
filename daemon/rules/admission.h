// The checks that an interface passes before it may join an isolation group. The caller holds the semaphore.
#pragma once

#include <cstdint>

// Non-zero when the interface is a member port of a trunk; 0 also when the platform cannot tell.
uint32_t portInAG(uint32_t ifUnit);

// 0 when the interface is of the same slot as every member of the (plain) group; STATUS_OTHER_SLOT;
// STATUS_FAILED when one of them cannot be located.
int32_t portIsolateSlotCheck(uint32_t ifUnit, uint32_t isoGrpNo);

// 0, or STATUS_OTHER_GROUP when the interface is already in another (plain) group.
int32_t portIsolateMultiGroupCheck(uint32_t ifUnit, uint32_t isoGrpNo);
