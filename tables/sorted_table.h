// Storage shared by the sorted tables: entries of a pool in a circular list, in ascending order of their key.
//
// A key is up to three unsigned words, compared one after the other. Each entry type says its own by an
// overload of tableKey(). Whoever looks a row up, looks for the place of a new one or wants the rows from a
// key on comes through here, so that how they are found is decided in one place. The caller holds the
// semaphore.
#pragma once

#include <array>
#include <cstdint>

#include "frame/state.h"

using TableKey = std::array<uint32_t, 3>;

// The first entry whose key is not below `key`, null when there is none.
template <typename Entry>
Entry* tableFrom(ListNode* head, const TableKey& key) {
    Entry* entry = listFirst<Entry>(head);
    while (entry != nullptr && tableKey(*entry) < key) entry = listNext(head, entry);
    return entry;
}

// The entry with this key, null when there is none.
template <typename Entry>
Entry* tableFind(ListNode* head, const TableKey& key) {
    Entry* entry = tableFrom<Entry>(head, key);
    return entry != nullptr && tableKey(*entry) == key ? entry : nullptr;
}

// Links an entry fresh from its pool in front of the first one that sorts after it.
template <typename Entry>
void tableInsert(ListNode* head, Entry* entry) {
    const TableKey key = tableKey(*entry);
    ListNode* place = head->next;
    while (place != head && tableKey(*reinterpret_cast<Entry*>(place)) <= key) place = place->next;
    listMove(&entry->links, place->prev);
}

template <typename Entry>
void tableRemove(Entry* entry) {
    listDel(&entry->links);
}

template <typename Entry>
uint32_t tableCount(ListNode* head) {
    uint32_t count = 0;
    for (Entry* entry = listFirst<Entry>(head); entry != nullptr; entry = listNext(head, entry)) ++count;
    return count;
}
