// Requests on the memberships of interfaces in VLAN groups; index PortIsolateIfVlanGrpIndex, value u32 in
// column GROUP_COLUMN_ROW_STATUS. Handlers: see api/operations.h.
#pragma once

#include <cstdint>

#include "daemon/tables/groups.h"
#include "wire/records.h"

int32_t portIsolateIfVlanGrpSetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfVlanGrpSyncApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfVlanGrpGetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfVlanGrpGetFirst(void* index);
int32_t portIsolateIfVlanGrpGetNext(void* current, void* result);

// The worker of set and sync; `flags` is DAX_MIRROR_FLAGS_SET or DAX_MIRROR_FLAGS_SYNC.
int32_t _portIsolateIfVlanGrpSetApi(const PortIsolateIfVlanGrpIndex* index, uint32_t column, uint32_t* value,
                                    uint32_t flags);
// 0 when the entry matches the index under its mask, else -1. The caller holds the semaphore.
int32_t portIsolateIfVlanGrpCompare(const PortIsolateIfVlanGrpEntry* entry,
                                    const PortIsolateIfVlanGrpIndex* index);
