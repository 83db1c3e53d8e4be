// Storage shared by the tables: entries of a pool in a circular list, and the indexes that find them.
//
// A table is a list, which gives its order and is what walks follow, with two indexes. The sorted tables
// stand in ascending order of their row key, which each entry type gives by an overload of tableKey(). A
// second key, unitKey(), begins with the other interface that a row names: the member of a group, the target
// of a pair. With the two, everything that names an interface is found without a walk. Every look-up, every
// search for the place of a new row and every walk from a key on comes through here, so that how they are
// found is decided in one place.
//
// The port table keeps the order of arrival and is found by unit key alone. Each entry ends in the node of
// each index that it is in.
//
// Thread-safety
//
// The caller holds the semaphore, and keeps it as long as it uses an entry: an entry is good until it is
// removed. A walk that may remove entries takes the next one before it handles the one at hand, and must not
// expect that one to be there still if handling removes others than its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "daemon/base/index.h"
#include "daemon/base/state.h"

// A table of the state record, by the type of its entries: where its list and its indexes begin. Every table
// is one of the constants beside its entry; there is no way from a list to indexes that are not its own.
template <typename Entry>
struct Table {
    ListNode* list;
    TableIndex* index;
};

// Makes a table empty.
template <typename Entry>
void tableInit(const Table<Entry>& table) {
    listInit(table.list);
    indexInit(&table.index->byKey);
    indexInit(&table.index->byUnit);
}

// Walk over a table in the order of its list, null at the end.
template <typename Entry>
Entry* tableFirst(const Table<Entry>& table) {
    return listFirst<Entry>(table.list);
}
template <typename Entry>
Entry* tableNext(const Table<Entry>& table, Entry* entry) {
    return listNext(table.list, entry);
}

// The entry that holds an index node `OFFSET` bytes from its start.
template <typename Entry, size_t OFFSET>
Entry* entryOfNode(IndexNode* node) {
    return node == nullptr ? nullptr : reinterpret_cast<Entry*>(reinterpret_cast<uint8_t*>(node) - OFFSET);
}
template <typename Entry>
Entry* entryByKey(IndexNode* node) {
    return entryOfNode<Entry, offsetof(Entry, byKey)>(node);
}
template <typename Entry>
Entry* entryByUnit(IndexNode* node) {
    return entryOfNode<Entry, offsetof(Entry, byUnit)>(node);
}

// The first entry whose key is not below `key`, null when there is none.
template <typename Entry>
Entry* tableFrom(const Table<Entry>& table, const TableKey& key) {
    return entryByKey<Entry>(indexFrom(&table.index->byKey, key));
}

// The entry with this key, null when there is none.
template <typename Entry>
Entry* tableFind(const Table<Entry>& table, const TableKey& key) {
    Entry* entry = tableFrom(table, key);
    return entry != nullptr && tableKey(*entry) == key ? entry : nullptr;
}

// Walk over the entries whose unit key begins with an interface, in the order of that key.
template <typename Entry>
Entry* unitFirst(const Table<Entry>& table, uint32_t ifUnit) {
    Entry* entry = entryByUnit<Entry>(indexFrom(&table.index->byUnit, {ifUnit, 0, 0}));
    return entry != nullptr && unitKey(*entry)[0] == ifUnit ? entry : nullptr;
}
template <typename Entry>
Entry* unitNext(Entry* entry) {
    Entry* next = entryByUnit<Entry>(indexNext(&entry->byUnit));
    return next != nullptr && unitKey(*next)[0] == unitKey(*entry)[0] ? next : nullptr;
}

// Links an entry fresh from its pool in front of the first one that sorts after it.
template <typename Entry>
void tableInsert(const Table<Entry>& table, Entry* entry) {
    indexInsert(&table.index->byKey, &entry->byKey, tableKey(*entry));
    indexInsert(&table.index->byUnit, &entry->byUnit, unitKey(*entry));
    Entry* next = entryByKey<Entry>(indexNext(&entry->byKey));
    listMove(&entry->links, next != nullptr ? next->links.prev : table.list->prev);
}

// Unlinks an entry; giving it back to its pool is the caller's matter.
template <typename Entry>
void tableRemove(Entry* entry) {
    indexRemove(&entry->byKey);
    indexRemove(&entry->byUnit);
    listDel(&entry->links);
}

// Rows, by a walk.
template <typename Entry>
uint32_t tableCount(const Table<Entry>& table) {
    uint32_t count = 0;
    for (Entry* entry = tableFirst(table); entry != nullptr; entry = tableNext(table, entry)) ++count;
    return count;
}
