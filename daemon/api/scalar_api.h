// Requests on the daemon's global values. The column is the scalar id (wire/scalars.h), there is no index;
// the value is a u32, or a DataDesc for the buffer scalars, whose length goes from the capacity to the bytes
// filled. Handlers: see api/operations.h.
#pragma once

#include <cstdint>

int32_t portIsolateScalarSetApi(void* index, uint32_t id, void* value);
int32_t portIsolateScalarSyncApi(void* index, uint32_t id, void* value);
int32_t portIsolateScalarGetApi(void* index, uint32_t id, void* value);

// The worker of set and sync; `flags` is DAX_MIRROR_FLAGS_SET or DAX_MIRROR_FLAGS_SYNC.
int32_t _portIsolateScalarSetApi(void* index, uint32_t id, void* value, uint32_t flags);
