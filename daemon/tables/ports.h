// The port table: the interfaces on which the isolation protocol is enabled on the platform, in the order in
// which they came. Whoever adds an entry enables the protocol first, whoever deletes one disables it first.
// The caller holds the semaphore.
#pragma once

#include <cstdint>

#include "daemon/base/index.h"
#include "daemon/base/state.h"

struct PortIsolatePortEntry {
    ListNode links;
    uint32_t ifUnit;
    IndexNode byUnit;
};

inline TableKey unitKey(const PortIsolatePortEntry& entry) {
    return {entry.ifUnit, 0, 0};
}

PortIsolatePortEntry* portIsolatePortEntryGet(uint32_t ifUnit);  // null: none
PortIsolatePortEntry* portIsolatePortEntryAdd(uint32_t ifUnit);  // null: pool exhausted
int32_t portIsolatePortEntryDel(PortIsolatePortEntry* entry);    // 0
