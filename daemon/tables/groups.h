// The group table and the VLAN-group table: which interface is a member of which isolation group. Members of
// a group are isolated from one another in both directions, in a VLAN group for the traffic of one VLAN only.
//
// Rows are sorted by group number, then VLAN, then interface, so that the members of a group are neighbours.
// The two tables differ in that one field alone: rules that serve both are templates over the entry, for
// which a plain group has VLAN 0. Callers keep (group, VLAN, interface) unique, a number in one of the two
// tables and all members of a VLAN group in one VLAN. No hardware is touched and no text written here.
// The caller holds the semaphore; an entry must not be used once it is dropped.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "daemon/tables/sorted_table.h"

struct PortIsolateIfGrpEntry {
    ListNode links;
    uint32_t ifUnit;  // member: a port or a trunk
    uint32_t isoGrpNo;
    uint32_t status;  // ROW_STATE_CREATED, ROW_STATE_PROGRAMMED
    IndexNode byKey;
    IndexNode byUnit;
};

struct PortIsolateIfVlanGrpEntry {
    ListNode links;
    uint32_t ifUnit;
    uint32_t vlan;
    uint32_t isoGrpNo;
    uint32_t status;
    IndexNode byKey;
    IndexNode byUnit;
};

inline uint32_t groupVlan(const PortIsolateIfGrpEntry&) {
    return 0;
}
inline uint32_t groupVlan(const PortIsolateIfVlanGrpEntry& entry) {
    return entry.vlan;
}

inline TableKey tableKey(const PortIsolateIfGrpEntry& entry) {
    return {entry.isoGrpNo, 0, entry.ifUnit};
}
inline TableKey tableKey(const PortIsolateIfVlanGrpEntry& entry) {
    return {entry.isoGrpNo, entry.vlan, entry.ifUnit};
}
inline TableKey unitKey(const PortIsolateIfGrpEntry& entry) {
    return {entry.ifUnit, entry.isoGrpNo, 0};
}
inline TableKey unitKey(const PortIsolateIfVlanGrpEntry& entry) {
    return {entry.ifUnit, entry.isoGrpNo, entry.vlan};
}

inline constexpr Table<PortIsolateIfGrpEntry> GROUP_TABLE = {&gPortIsoInfo.ifGrpList,
                                                             &gPortIsoInfo.ifGrpIndex};
inline constexpr Table<PortIsolateIfVlanGrpEntry> VLAN_GROUP_TABLE = {&gPortIsoInfo.ifVlanGrpList,
                                                                      &gPortIsoInfo.ifVlanGrpIndex};

// The table of either entry.
template <typename Entry>
constexpr const Table<Entry>& groupTable();
template <>
constexpr const Table<PortIsolateIfGrpEntry>& groupTable() {
    return GROUP_TABLE;
}
template <>
constexpr const Table<PortIsolateIfVlanGrpEntry>& groupTable() {
    return VLAN_GROUP_TABLE;
}

// Walk over the members of one group of either table, in table order.
template <typename Entry>
Entry* groupFirst(uint32_t isoGrpNo) {
    Entry* entry = tableFrom(groupTable<Entry>(), {isoGrpNo, 0, 0});
    return entry != nullptr && entry->isoGrpNo == isoGrpNo ? entry : nullptr;
}
template <typename Entry>
Entry* groupNext(Entry* member) {
    Entry* entry = tableNext(groupTable<Entry>(), member);
    return entry != nullptr && entry->isoGrpNo == member->isoGrpNo ? entry : nullptr;
}

// Get answers null for what is not there. Add answers null when the pool is exhausted, nothing is changed
// then.
PortIsolateIfGrpEntry* portIsolateIfGrpEntryGet(uint32_t ifUnit, uint32_t isoGrpNo);
PortIsolateIfGrpEntry* portIsolateIfGrpEntryAdd(uint32_t ifUnit, uint32_t isoGrpNo);
PortIsolateIfVlanGrpEntry* portIsolateIfVlanGrpEntryGet(uint32_t ifUnit, uint32_t vlan, uint32_t isoGrpNo);
PortIsolateIfVlanGrpEntry* portIsolateIfVlanGrpEntryAdd(uint32_t ifUnit, uint32_t vlan, uint32_t isoGrpNo);

// Unlinks a member and gives it back to its pool.
void groupEntryDrop(PortIsolateIfGrpEntry* entry);
void groupEntryDrop(PortIsolateIfVlanGrpEntry* entry);
