// The pair table and the inner table. They share one record and their pools, and mean different things: a
// pair entry is a configured one-way isolation from `src` to `dst`; an inner entry is an isolation of two
// ports (or of a port from itself) that stands in the hardware, with the groups that need it.
//
// Rows are sorted by `src`, then `dst`; both are unique, which callers see to. An entry owns its reference
// list and both go back to their pools together. What is programmed and what a reference list counts is
// decided above (hw/bi_isolation.h). The caller holds the semaphore; an entry must not be used once it is
// dropped.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "daemon/tables/sorted_table.h"

struct PortIsolateIfPairEntry {
    ListNode links;
    uint32_t src;
    uint32_t dst;
    uint32_t status;  // pairs: ROW_STATE_CREATED, ROW_STATE_PROGRAMMED; inner entries: 0
    uint8_t* ref;     // inner entries: bit g - 1 is set while group g needs the isolation; pairs: never set
    IndexNode byKey;
    IndexNode byUnit;
};
using PortIsolateIfInnerEntry = PortIsolateIfPairEntry;

inline constexpr Table<PortIsolateIfPairEntry> PAIR_TABLE = {&gPortIsoInfo.ifPairList,
                                                             &gPortIsoInfo.ifPairIndex};
inline constexpr Table<PortIsolateIfInnerEntry> INNER_TABLE = {&gPortIsoInfo.ifInnerList,
                                                               &gPortIsoInfo.ifInnerIndex};

inline TableKey tableKey(const PortIsolateIfPairEntry& entry) {
    return {entry.src, entry.dst, 0};
}
inline TableKey unitKey(const PortIsolateIfPairEntry& entry) {
    return {entry.dst, entry.src, 0};
}

// Whether a row of the table names the interface as `src` or `dst`.
bool pairTableNames(const Table<PortIsolateIfPairEntry>& table, uint32_t ifUnit);

// Get answers null for what is not there. Add answers null, with nothing changed, when either pool is
// exhausted.
PortIsolateIfPairEntry* portIsolateIfPairEntryGet(uint32_t src, uint32_t dst);
PortIsolateIfPairEntry* portIsolateIfPairEntryAdd(uint32_t src, uint32_t dst);
PortIsolateIfInnerEntry* portIsolateIfInnerEntryGet(uint32_t src, uint32_t dst);
PortIsolateIfInnerEntry* portIsolateIfInnerEntryAdd(uint32_t src, uint32_t dst);

// Unlinks and frees the entry; its hardware is the caller's matter. Returns 0.
int32_t portIsolateIfInnerEntryDel(PortIsolateIfInnerEntry* entry);

// Unlinks an entry of either table and gives it and its reference list back.
void pairEntryDrop(PortIsolateIfPairEntry* entry);
