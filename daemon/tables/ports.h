// The port table: the interfaces on which the isolation protocol is enabled on the platform, in the order in
// which they came. Callers enable the protocol before they add an entry and disable it before they delete one
// (rules/port_use.h). The caller holds the semaphore.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "daemon/tables/sorted_table.h"

struct PortIsolatePortEntry {
    ListNode links;
    uint32_t ifUnit;
    IndexNode byUnit;
};

inline constexpr Table<PortIsolatePortEntry> PORT_TABLE = {&gPortIsoInfo.portList, &gPortIsoInfo.portIndex};

inline TableKey unitKey(const PortIsolatePortEntry& entry) {
    return {entry.ifUnit, 0, 0};
}

PortIsolatePortEntry* portIsolatePortEntryGet(uint32_t ifUnit);  // null: none
PortIsolatePortEntry* portIsolatePortEntryAdd(uint32_t ifUnit);  // null: pool exhausted
int32_t portIsolatePortEntryDel(PortIsolatePortEntry* entry);    // 0
