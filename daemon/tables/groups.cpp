#include "daemon/tables/groups.h"

#include "wire/records.h"

namespace {

template <typename Entry>
Entry* addMember(SilMemPool& pool, const Entry& fields) {
    auto* entry = static_cast<Entry*>(silMemPoolAlloc(&pool, 0));
    if (entry == nullptr) return nullptr;
    *entry = fields;
    entry->status = ROW_STATE_CREATED;
    tableInsert(groupTable<Entry>(), entry);
    return entry;
}

}  // namespace

PortIsolateIfGrpEntry* portIsolateIfGrpEntryGet(uint32_t ifUnit, uint32_t isoGrpNo) {
    return tableFind(GROUP_TABLE, {isoGrpNo, 0, ifUnit});
}

PortIsolateIfGrpEntry* portIsolateIfGrpEntryAdd(uint32_t ifUnit, uint32_t isoGrpNo) {
    PortIsolateIfGrpEntry fields = {};
    fields.ifUnit = ifUnit;
    fields.isoGrpNo = isoGrpNo;
    return addMember(gPortIsoInfo.ifGrpPool, fields);
}

PortIsolateIfVlanGrpEntry* portIsolateIfVlanGrpEntryGet(uint32_t ifUnit, uint32_t vlan, uint32_t isoGrpNo) {
    return tableFind(VLAN_GROUP_TABLE, {isoGrpNo, vlan, ifUnit});
}

PortIsolateIfVlanGrpEntry* portIsolateIfVlanGrpEntryAdd(uint32_t ifUnit, uint32_t vlan, uint32_t isoGrpNo) {
    PortIsolateIfVlanGrpEntry fields = {};
    fields.ifUnit = ifUnit;
    fields.vlan = vlan;
    fields.isoGrpNo = isoGrpNo;
    return addMember(gPortIsoInfo.ifVlanGrpPool, fields);
}

void groupEntryDrop(PortIsolateIfGrpEntry* entry) {
    tableRemove(entry);
    silMemPoolFree(&gPortIsoInfo.ifGrpPool, entry);
}

void groupEntryDrop(PortIsolateIfVlanGrpEntry* entry) {
    tableRemove(entry);
    silMemPoolFree(&gPortIsoInfo.ifVlanGrpPool, entry);
}
