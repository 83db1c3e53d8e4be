// Requests on the memberships of interfaces in isolation groups; index PortIsolateIfGrpIndex, value u32.
#pragma once

#include <cstdint>

#include "daemon/tables/groups.h"
#include "wire/records.h"

int32_t portIsolateIfGrpSetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfGrpSyncApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfGrpGetApi(void* index, uint32_t column, void* value);
int32_t portIsolateIfGrpGetFirst(void* index);
int32_t portIsolateIfGrpGetNext(void* current, void* result);

int32_t _portIsolateIfGrpSetApi(const PortIsolateIfGrpIndex* index, uint32_t column, uint32_t* value,
                                uint32_t flags);
// 0 when the entry matches the index under its mask, else -1.
int32_t portIsolateIfGrpCompare(const PortIsolateIfGrpEntry* entry, const PortIsolateIfGrpIndex* index);
