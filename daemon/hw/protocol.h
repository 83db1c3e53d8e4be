// Switching the platform's isolation protocol on and off. `command` is DAX_IF_PROTO_ENABLE or
// DAX_IF_PROTO_DISABLE; the platform's status is returned. The caller holds the semaphore.
#pragma once

#include <cstdint>

int32_t portIsolateProtocolSet(uint32_t ifUnit, uint32_t command);
int32_t portIsolateVlanProtocolSet(uint32_t vlan, uint32_t command);
