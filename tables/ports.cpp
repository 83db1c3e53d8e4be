#include "tables/ports.h"

PortIsolatePortEntry* portIsolatePortEntryGet(uint32_t ifUnit) {
    ListNode* head = &gPortIsoInfo.portList;
    auto* entry = listFirst<PortIsolatePortEntry>(head);
    while (entry != nullptr && entry->ifUnit != ifUnit) entry = listNext(head, entry);
    return entry;
}

PortIsolatePortEntry* portIsolatePortEntryAdd(uint32_t ifUnit) {
    auto* entry = static_cast<PortIsolatePortEntry*>(silMemPoolAlloc(&gPortIsoInfo.portPool, 0));
    if (entry == nullptr) return nullptr;
    entry->ifUnit = ifUnit;
    PortIsolatePortEntry* same = portIsolatePortEntryGet(ifUnit);
    const ListNode* place = same != nullptr ? &same->links : &gPortIsoInfo.portList;
    listMove(&entry->links, place->prev);
    return entry;
}

int32_t portIsolatePortEntryDel(PortIsolatePortEntry* entry) {
    listDel(&entry->links);
    silMemPoolFree(&gPortIsoInfo.portPool, entry);
    return 0;
}
