// The PON isolation of a VLAN in the local hardware: on by default, off in the VLANs of p2pEnableVlan. Which
// VLANs those are, mirroring and the VLAN's protocol are the callers' matter. The caller holds the semaphore.
#pragma once

#include <cstdint>

// Sends the state (PON_ISOLATION_ON, PON_ISOLATION_OFF) of a VLAN; returns the platform's status. The last
// argument has no effect.
int32_t portIsolatePonIsolateSet(uint32_t vlan, uint32_t state, uint8_t unused);

// The same with a 4-byte value, copied as it lies in memory, ahead of the state; writes no text.
int32_t portIsolatePonIsolateSetOne(uint32_t vlan, uint32_t value, uint8_t state);
