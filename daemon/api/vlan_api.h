// Requests on the PON isolation of VLANs: on by default, off in the VLANs listed in p2pEnableVlan. The index
// is the VLAN id by value, 1 to VLAN_ID_MAX; the value is a u32, PON_ISOLATION_ON or PON_ISOLATION_OFF; the
// two columns differ in the command that mirrors them alone. Handlers: see api/operations.h.
#pragma once

#include <cstdint>

int32_t portIsolateVlanSetApi(uint32_t vlan, uint32_t column, void* value);
int32_t portIsolateVlanSyncApi(uint32_t vlan, uint32_t column, void* value);
int32_t portIsolateVlanGetApi(uint32_t vlan, uint32_t column, void* value);
// Write the lowest listed VLAN id, and the lowest above `current`, to the u32 at `vlan`; STATUS_NOT_FOUND
// when there is none.
int32_t portIsolateVlanGetFirst(void* vlan);
int32_t portIsolateVlanGetNext(uint32_t current, void* vlan);

// The worker of set and sync; `flags` is DAX_MIRROR_FLAGS_SET or DAX_MIRROR_FLAGS_SYNC.
int32_t _portIsolateVlanSetApi(uint32_t vlan, uint32_t column, uint32_t* value, uint32_t flags);
