// Requests on one-way pairs: traffic from `src` must not reach `dst`. Index PortIsolateIfPairIndex, value u32
// in column PAIR_COLUMN_ROW_STATUS. Handlers: see api/operations.h.
#pragma once

#include <cstdint>

#include "daemon/tables/pairs.h"
#include "wire/records.h"

int32_t portIsolateIfPairSetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfPairSyncApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfPairGetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfPairGetFirst(void* index);
int32_t portIsolateIfPairGetNext(void* current, void* result);

// The worker of set and sync; `flags` is DAX_MIRROR_FLAGS_SET or DAX_MIRROR_FLAGS_SYNC.
int32_t _portIsolateIfPairSetApi(const PortIsolateIfPairIndex* index, uint32_t column, uint32_t* value,
                                 uint32_t flags);
// 0 when the entry matches the index under its mask, else -1. The caller holds the semaphore.
int32_t portIsolateIfPairCompare(const PortIsolateIfPairEntry* entry, const PortIsolateIfPairIndex* index);
