// Storage shared by the tables: entries of a pool in a circular list, and the indexes that find them.
//
// The sorted tables stand in ascending order of their row key, which each entry type says by an overload of
// tableKey(). A second key, unitKey(), begins with the other interface that a row names: the member of a
// group, the target of a pair. With the two, everything that names an interface is found without a walk.
// Whoever looks a row up, looks for the place of a new one or wants the rows from a key on comes through
// here, so that how they are found is decided in one place.
//
// The port table keeps the order of arrival and is found by unit key alone. Each entry ends in the node of
// each index that it is in. The heads of the lists are in the state record, those of the indexes here;
// tableInit makes both empty. The caller holds the semaphore.
#pragma once

#include <cstddef>
#include <cstdint>

#include "daemon/base/index.h"
#include "daemon/base/state.h"

// Heads of the indexes of one table.
struct TableIndex {
    IndexNode byKey;
    IndexNode byUnit;
};

// Of the table whose list has this head in the state record.
TableIndex& tableIndex(const ListNode* head);

// Makes a table empty: its list and its indexes.
void tableInit(ListNode* head);

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
Entry* tableFrom(ListNode* head, const TableKey& key) {
    return entryByKey<Entry>(indexFrom(&tableIndex(head).byKey, key));
}

// The entry with this key, null when there is none.
template <typename Entry>
Entry* tableFind(ListNode* head, const TableKey& key) {
    Entry* entry = tableFrom<Entry>(head, key);
    return entry != nullptr && tableKey(*entry) == key ? entry : nullptr;
}

// Walk over the entries whose unit key begins with an interface, in the order of that key.
template <typename Entry>
Entry* unitFirst(ListNode* head, uint32_t ifUnit) {
    Entry* entry = entryByUnit<Entry>(indexFrom(&tableIndex(head).byUnit, {ifUnit, 0, 0}));
    return entry != nullptr && unitKey(*entry)[0] == ifUnit ? entry : nullptr;
}
template <typename Entry>
Entry* unitNext(Entry* entry) {
    Entry* next = entryByUnit<Entry>(indexNext(&entry->byUnit));
    return next != nullptr && unitKey(*next)[0] == unitKey(*entry)[0] ? next : nullptr;
}

// Links an entry fresh from its pool in front of the first one that sorts after it.
template <typename Entry>
void tableInsert(ListNode* head, Entry* entry) {
    TableIndex& index = tableIndex(head);
    indexInsert(&index.byKey, &entry->byKey, tableKey(*entry));
    indexInsert(&index.byUnit, &entry->byUnit, unitKey(*entry));
    Entry* next = entryByKey<Entry>(indexNext(&entry->byKey));
    listMove(&entry->links, next != nullptr ? next->links.prev : head->prev);
}

template <typename Entry>
void tableRemove(Entry* entry) {
    indexRemove(&entry->byKey);
    indexRemove(&entry->byUnit);
    listDel(&entry->links);
}

template <typename Entry>
uint32_t tableCount(ListNode* head) {
    uint32_t count = 0;
    for (Entry* entry = listFirst<Entry>(head); entry != nullptr; entry = listNext(head, entry)) ++count;
    return count;
}
