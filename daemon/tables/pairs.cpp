#include "daemon/tables/pairs.h"

#include "daemon/base/report.h"
#include "wire/records.h"

namespace {

PortIsolateIfPairEntry* addEntry(const Table<PortIsolateIfPairEntry>& table, uint32_t src, uint32_t dst,
                                 uint32_t status) {
    auto* entry = static_cast<PortIsolateIfPairEntry*>(silMemPoolAlloc(&gPortIsoInfo.ifPairPool, 0));
    if (entry == nullptr) return nullptr;
    entry->ref = static_cast<uint8_t*>(silMemPoolAlloc(&gPortIsoInfo.refPool, 0));
    if (entry->ref == nullptr) {
        silMemPoolFree(&gPortIsoInfo.ifPairPool, entry);
        return nullptr;
    }
    entry->src = src;
    entry->dst = dst;
    entry->status = status;
    tableInsert(table, entry);
    return entry;
}

}  // namespace

bool pairTableNames(const Table<PortIsolateIfPairEntry>& table, uint32_t ifUnit) {
    const auto* row = tableFrom(table, {ifUnit, 0, 0});
    return (row != nullptr && row->src == ifUnit) || unitFirst(table, ifUnit) != nullptr;
}

PortIsolateIfPairEntry* portIsolateIfPairEntryGet(uint32_t src, uint32_t dst) {
    return tableFind(PAIR_TABLE, {src, dst, 0});
}

PortIsolateIfPairEntry* portIsolateIfPairEntryAdd(uint32_t src, uint32_t dst) {
    return addEntry(PAIR_TABLE, src, dst, ROW_STATE_CREATED);
}

PortIsolateIfInnerEntry* portIsolateIfInnerEntryGet(uint32_t src, uint32_t dst) {
    return tableFind(INNER_TABLE, {src, dst, 0});
}

PortIsolateIfInnerEntry* portIsolateIfInnerEntryAdd(uint32_t src, uint32_t dst) {
    PortIsolateIfInnerEntry* entry = addEntry(INNER_TABLE, src, dst, 0);
    if (entry == nullptr) return nullptr;
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "if inner entry [src: %s, target: %s] add\n\r",
                       ifName(src).text, ifName(dst).text);
    return entry;
}

int32_t portIsolateIfInnerEntryDel(PortIsolateIfInnerEntry* entry) {
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "if inner entry [src: %s, target: %s] del ok\n\r",
                       ifName(entry->src).text, ifName(entry->dst).text);
    pairEntryDrop(entry);
    return 0;
}

void pairEntryDrop(PortIsolateIfPairEntry* entry) {
    tableRemove(entry);
    silMemPoolFree(&gPortIsoInfo.refPool, entry->ref);
    silMemPoolFree(&gPortIsoInfo.ifPairPool, entry);
}
