// Requests on the PON isolation of VLANs: on by default, off in the VLANs listed in p2pEnableVlan. The index
// is the VLAN id by value, 1 to 4095; the value is a u32, PON_ISOLATION_ON or PON_ISOLATION_OFF. Columns 1
// and 2 are the same but for the command id of the mirror request.
#pragma once

#include <cstdint>

int32_t portIsolateVlanSetApi(uint32_t vlan, uint32_t column, void* value);
int32_t portIsolateVlanSyncApi(uint32_t vlan, uint32_t column, void* value);
int32_t portIsolateVlanGetApi(uint32_t vlan, uint32_t column, void* value);
// Write the lowest listed VLAN id, and the lowest above `current`, to the u32 at `vlan`.
int32_t portIsolateVlanGetFirst(void* vlan);
int32_t portIsolateVlanGetNext(uint32_t current, void* vlan);

int32_t _portIsolateVlanSetApi(uint32_t vlan, uint32_t column, uint32_t* value, uint32_t flags);
