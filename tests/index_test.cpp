// What the indexes answer, against a plain scan: random rows come and go in every table, doubles included.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>

#include "daemon/base/state.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "daemon/tables/serials.h"
#include "tests/fake_platform.h"

namespace {

std::mt19937 dice(7);

uint32_t roll(uint32_t below) {
    return static_cast<uint32_t>(dice() % below);
}

// A small unit most of the time, so that rows meet; sometimes one from the ends of the range.
uint32_t rollUnit() {
    const uint32_t ends[] = {0, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return roll(10) == 0 ? ends[roll(4)] : roll(12);
}

template <typename Entry>
struct Reference {
    ListNode* head;
    Entry* (*add)(const TableKey& key);
    void (*drop)(Entry* entry);
    std::multimap<TableKey, Entry*> rows = {};   // by row key, doubles in the order of their coming
    std::multimap<TableKey, Entry*> units = {};  // by unit key
};

template <typename Entry>
void eraseRow(std::multimap<TableKey, Entry*>& rows, const Entry* entry) {
    std::erase_if(rows, [=](const auto& row) { return row.second == entry; });
}

template <typename Entry>
void change(Reference<Entry>& table) {
    if (!table.rows.empty() && roll(5) < 2) {
        auto row = table.rows.begin();
        std::advance(row, roll(static_cast<uint32_t>(table.rows.size())));
        Entry* entry = row->second;
        eraseRow(table.units, entry);
        eraseRow(table.rows, entry);
        return table.drop(entry);
    }
    Entry* entry = table.add({rollUnit(), rollUnit(), rollUnit()});
    ASSERT_NE(entry, nullptr);
    table.rows.insert({tableKey(*entry), entry});
    table.units.insert({unitKey(*entry), entry});
}

// The levels of a tree, whose halves must differ by one at most everywhere.
int levels(const IndexNode* node) {
    if (node == nullptr) return 0;
    for (const IndexNode* child : {node->lower, node->upper}) {
        EXPECT_TRUE(child == nullptr || child->parent == node);
    }
    const int lower = levels(node->lower);
    const int upper = levels(node->upper);
    EXPECT_LE(std::abs(lower - upper), 1);
    EXPECT_EQ(node->lowerLevels, lower);
    EXPECT_EQ(node->upperLevels, upper);
    return 1 + std::max(lower, upper);
}

template <typename Entry>
void check(const Reference<Entry>& table) {
    levels(tableIndex(table.head).byKey.lower);
    levels(tableIndex(table.head).byUnit.lower);
    Entry* listed = listFirst<Entry>(table.head);
    for (const auto& [key, entry] : table.rows) {
        ASSERT_EQ(listed, entry);
        listed = listNext(table.head, listed);
    }
    ASSERT_EQ(listed, nullptr);
    for (int i = 0; i < 4; ++i) {
        const TableKey key = {rollUnit(), rollUnit(), rollUnit()};
        const auto from = table.rows.lower_bound(key);
        Entry* expected = from == table.rows.end() ? nullptr : from->second;
        ASSERT_EQ(tableFrom<Entry>(table.head, key), expected);
        ASSERT_EQ(tableFind<Entry>(table.head, key),
                  expected != nullptr && from->first == key ? expected : nullptr);
        Entry* named = unitFirst<Entry>(table.head, key[0]);
        for (auto row = table.units.lower_bound({key[0], 0, 0}); row != table.units.end(); ++row) {
            if (row->first[0] != key[0]) break;
            ASSERT_EQ(named, row->second);
            named = unitNext(named);
        }
        ASSERT_EQ(named, nullptr);
    }
}

template <typename Entry>
bool anyRow(const Reference<Entry>& table, bool (*names)(const Entry& entry, uint32_t unit), uint32_t unit) {
    return std::any_of(table.rows.begin(), table.rows.end(),
                       [=](const auto& row) { return names(*row.second, unit); });
}

TEST(Index, AnswersWhatAScanAnswers) {
    ASSERT_EQ(startDaemon(), 0);
    using Group = PortIsolateIfGrpEntry;
    using VlanGroup = PortIsolateIfVlanGrpEntry;
    using Pair = PortIsolateIfPairEntry;
    Reference<Group> groups = {&gPortIsoInfo.ifGrpList,
                               [](const TableKey& key) { return portIsolateIfGrpEntryAdd(key[0], key[1]); },
                               groupEntryDrop};
    Reference<VlanGroup> vlanGroups = {
        &gPortIsoInfo.ifVlanGrpList,
        [](const TableKey& key) { return portIsolateIfVlanGrpEntryAdd(key[0], key[1], key[2]); },
        groupEntryDrop};
    Reference<Pair> pairs = {&gPortIsoInfo.ifPairList,
                             [](const TableKey& key) { return portIsolateIfPairEntryAdd(key[0], key[1]); },
                             pairEntryDrop};
    Reference<Pair> inner = {&gPortIsoInfo.ifInnerList,
                             [](const TableKey& key) { return portIsolateIfInnerEntryAdd(key[0], key[1]); },
                             pairEntryDrop};
    const auto isMember = [](const Group& entry, uint32_t unit) { return entry.ifUnit == unit; };
    const auto isNamed = [](const Pair& entry, uint32_t unit) {
        return entry.src == unit || entry.dst == unit;
    };
    for (int step = 0; step < 1500 && !HasFatalFailure(); ++step) {
        SCOPED_TRACE(step);
        change(groups);
        change(vlanGroups);
        if (roll(2) == 0) change(pairs);
        change(inner);
        check(groups);
        check(vlanGroups);
        check(pairs);
        check(inner);
        const uint32_t unit = rollUnit();
        const bool named = anyRow<Group>(groups, isMember, unit) || anyRow<Pair>(pairs, isNamed, unit) ||
                           anyRow<Pair>(inner, isNamed, unit);
        ASSERT_EQ(portIsolateIfIsFree(unit) != 0, named);
    }
}

TEST(Index, TheLowestSlotOfAPortWins) {
    for (const char* ports : {"1", "15", "16", "17", "50"}) {
        ASSERT_EQ(startDaemon({{"portisolate.maxifnum", ports}}), 0);
        const uint32_t slots = gPortIsoInfo.maxPortNum;
        for (uint32_t first = 0; first < slots; ++first) {
            for (uint32_t second = first; second < slots; second += 7) {
                std::fill_n(gPortIsoInfo.serialTable, slots, 1u);
                gPortIsoInfo.serialTable[second] = gPortIsoInfo.serialTable[first] = 9;
                uint16_t slot = 99;
                EXPECT_EQ(portIsolateSerialCheck(9, &slot), 0);
                EXPECT_EQ(slot, first);
            }
        }
        uint16_t slot = 99;
        EXPECT_NE(portIsolateFreeSerialGet(&slot), 0);
        EXPECT_EQ(slot, 99);
    }
}

}  // namespace
