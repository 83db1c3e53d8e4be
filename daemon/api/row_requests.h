// The requests of a table family - groups, VLAN groups, pairs - as one rule: a row is addressed by an index
// record and has one settable column, the row status, that creates, activates, probes or destroys it; rows
// are read one by one or walked in table order under a match mask. What a family does differently stands in
// its record.
#pragma once

#include <cstdint>
#include <cstring>

#include "daemon/api/request.h"
#include "daemon/base/report.h"
#include "daemon/tables/sorted_table.h"
#include "wire/records.h"
#include "wire/status.h"

template <typename Entry, typename Index>
struct RowFamily {
    Table<Entry> table;
    uint32_t column;       // the row-status column
    uint32_t syncCommand;  // command id of the mirror request, less the column

    // Texts with the column as their one argument, then those of failed walks, without any.
    const char* setParamError;
    const char* getParamError;
    const char* firstParamError;
    const char* nextParamError;
    const char* syncFailed;  // with the status

    // Reports about a row that is not there, or a column that is not.
    void (*reportSetMissing)(const Index& index, uint32_t column);
    void (*reportGetMissing)(const Index& index, uint32_t column);
    void (*reportGetColumn)(uint32_t column);  // null: not reported

    Entry* (*find)(const Index& index);
    int32_t (*compare)(const Entry* entry, const Index* index);  // 0: matches under the mask, else -1
    TableKey (*key)(const Index& index);
    void (*writeKey)(const Entry& entry, Index& index);  // all words but the mask

    // Row-status requests; `entry` is null when there is no such row.
    int32_t (*create)(const Index& index, Entry* entry);
    int32_t (*activate)(Entry* entry);
    int32_t (*probe)(Entry* entry);
    int32_t (*destroy)(const Index& index, Entry* entry);
};

template <typename Entry, typename Index>
int32_t rowStatusApply(const RowFamily<Entry, Index>& family, const Index& index, Entry* entry,
                       uint32_t value) {
    switch (value) {
        case ROW_CREATE:
            return family.create(index, entry);
        case ROW_ACTIVATE:
            return family.activate(entry);
        case ROW_PROBE:
            return family.probe(entry);
        case ROW_DESTROY:
            return entry == nullptr ? STATUS_OK : family.destroy(index, entry);
        default:
            return STATUS_NOT_SUPPORTED;
    }
}

// Set and sync. The request is mirrored before the value is looked at, and not recalled when it is refused
// later.
template <typename Entry, typename Index>
int32_t rowSet(const RowFamily<Entry, Index>& family, const void* record, uint32_t column, void* value,
               uint32_t flags) {
    const auto* index = static_cast<const Index*>(record);
    if (index == nullptr || value == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, family.setParamError, column);
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] {
        Entry* entry = family.find(*index);
        if (column != family.column) {
            if (entry != nullptr) return STATUS_NOT_SUPPORTED;
            family.reportSetMissing(*index, column);
            return STATUS_NOT_FOUND;
        }
        const int32_t status =
            portIsolatePeerMirror({reinterpret_cast<uintptr_t>(index), family.syncCommand + column, flags,
                                   sizeof(Index), DAX_MIRROR_WORD_LENGTH},
                                  value);
        if (status != 0) {
            portIsolateDebug(LEVEL_FAILURE, CATEGORY_WORK, family.syncFailed, status);
            return status;
        }
        return rowStatusApply(family, *index, entry, *static_cast<const uint32_t*>(value));
    });
}

template <typename Entry, typename Index>
int32_t rowGet(const RowFamily<Entry, Index>& family, const void* record, uint32_t column, void* value) {
    const auto* index = static_cast<const Index*>(record);
    if (index == nullptr || value == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, family.getParamError, column);
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] {
        const Entry* entry = family.find(*index);
        if (entry == nullptr) {
            family.reportGetMissing(*index, column);
            return STATUS_NOT_FOUND;
        }
        if (column != family.column) {
            if (family.reportGetColumn != nullptr) family.reportGetColumn(column);
            return STATUS_NOT_SUPPORTED;
        }
        *static_cast<uint32_t*>(value) = entry->status;
        return STATUS_OK;
    });
}

// The first entry from `entry` on that matches the index.
template <typename Entry, typename Index>
Entry* rowMatch(const RowFamily<Entry, Index>& family, Entry* entry, const Index& index) {
    while (entry != nullptr && family.compare(entry, &index) != 0) entry = tableNext(family.table, entry);
    return entry;
}

template <typename Entry, typename Index>
int32_t rowGetFirst(const RowFamily<Entry, Index>& family, void* record) {
    auto* index = static_cast<Index*>(record);
    if (index == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "%s", family.firstParamError);
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] {
        const Entry* entry = rowMatch(family, tableFirst(family.table), *index);
        if (entry == nullptr) return STATUS_NOT_FOUND;
        family.writeKey(*entry, *index);
        return STATUS_OK;
    });
}

template <typename Entry, typename Index>
int32_t rowGetNext(const RowFamily<Entry, Index>& family, const void* currentRecord, void* resultRecord) {
    const auto* current = static_cast<const Index*>(currentRecord);
    auto* result = static_cast<Index*>(resultRecord);
    if (current == nullptr || result == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "%s", family.nextParamError);
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] {
        const TableKey key = family.key(*current);
        Entry* entry = tableFrom(family.table, key);
        if (entry != nullptr && tableKey(*entry) == key) entry = tableNext(family.table, entry);
        entry = rowMatch(family, entry, *current);
        if (entry == nullptr) return STATUS_NOT_FOUND;
        result->matchMask = current->matchMask;
        family.writeKey(*entry, *result);
        return STATUS_OK;
    });
}
