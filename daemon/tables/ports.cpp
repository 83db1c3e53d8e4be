#include "daemon/tables/ports.h"

PortIsolatePortEntry* portIsolatePortEntryGet(uint32_t ifUnit) {
    return unitFirst(PORT_TABLE, ifUnit);
}

PortIsolatePortEntry* portIsolatePortEntryAdd(uint32_t ifUnit) {
    auto* entry = static_cast<PortIsolatePortEntry*>(silMemPoolAlloc(&gPortIsoInfo.portPool, 0));
    if (entry == nullptr) return nullptr;
    entry->ifUnit = ifUnit;
    PortIsolatePortEntry* same = portIsolatePortEntryGet(ifUnit);
    const ListNode* place = same != nullptr ? &same->links : PORT_TABLE.list;
    listMove(&entry->links, place->prev);
    indexInsert(&PORT_TABLE.index->byUnit, &entry->byUnit, unitKey(*entry));
    return entry;
}

int32_t portIsolatePortEntryDel(PortIsolatePortEntry* entry) {
    indexRemove(&entry->byUnit);
    listDel(&entry->links);
    silMemPoolFree(&gPortIsoInfo.portPool, entry);
    return 0;
}
