// Requests on the memberships of interfaces in isolation groups; index PortIsolateIfGrpIndex, value u32 in
// column GROUP_COLUMN_ROW_STATUS. Handlers: see api/operations.h.
#pragma once

#include <cstdint>

#include "daemon/tables/groups.h"
#include "wire/records.h"

int32_t portIsolateIfGrpSetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfGrpSyncApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfGrpGetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfGrpGetFirst(void* index);
int32_t portIsolateIfGrpGetNext(void* current, void* result);

// The worker of set and sync; `flags` is DAX_MIRROR_FLAGS_SET or DAX_MIRROR_FLAGS_SYNC.
int32_t _portIsolateIfGrpSetApi(const PortIsolateIfGrpIndex* index, uint32_t column, uint32_t* value,
                                uint32_t flags);
// 0 when the entry matches the index under its mask, else -1. The caller holds the semaphore.
int32_t portIsolateIfGrpCompare(const PortIsolateIfGrpEntry* entry, const PortIsolateIfGrpIndex* index);
