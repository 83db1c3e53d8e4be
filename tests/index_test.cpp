// What the indexes answer, against a plain scan: random rows come and go, doubles included.
#include <algorithm>
#include <map>

#include "daemon/tables/serials.h"
#include "tests/daemon_driver.h"
#include "tests/dice.h"
#include "tests/invariants.h"

namespace {

// A small unit most of the time, so that rows meet; sometimes one from the ends of the range.
uint32_t rollUnit() {
    const uint32_t ends[] = {0, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return roll(10) == 0 ? ends[roll(4)] : roll(12);
}

template <typename Entry>
using Rows = std::multimap<TableKey, Entry*>;  // doubles in the order of their coming

template <typename Entry>
bool names(const Rows<Entry>& rows, uint32_t unit) {
    const auto row = rows.lower_bound({unit, 0, 0});
    return row != rows.end() && row->first[0] == unit;
}

// A table, and its rows by row key and by unit key.
template <typename Entry>
struct Reference {
    Table<Entry> table;
    Entry* (*add)(uint32_t, uint32_t);
    void (*drop)(Entry* entry);
    Rows<Entry> byKey = {};
    Rows<Entry> byUnit = {};
};

// A row comes or goes.
template <typename Entry>
void change(Reference<Entry>& table) {
    if (!table.byKey.empty() && roll(5) < 2) {
        Entry* entry =
            std::next(table.byKey.begin(), roll(static_cast<uint32_t>(table.byKey.size())))->second;
        for (auto* rows : {&table.byKey, &table.byUnit}) {
            std::erase_if(*rows, [=](const auto& row) { return row.second == entry; });
        }
        return table.drop(entry);
    }
    Entry* entry = table.add(rollUnit(), rollUnit());
    table.byKey.insert({tableKey(*entry), entry});
    table.byUnit.insert({unitKey(*entry), entry});
}

template <typename Entry>
void check(const Reference<Entry>& reference) {
    const Table<Entry>& table = reference.table;
    std::string depths;
    checkHalf(table.index->byKey.lower, &table.index->byKey, 'a', depths);
    checkHalf(table.index->byUnit.lower, &table.index->byUnit, 'a', depths);
    std::vector<Entry*> scanned;
    for (const auto& [key, entry] : reference.byKey) scanned.push_back(entry);
    ASSERT_EQ(rowsOf(table), scanned);
    for (int i = 0; i < 4; ++i) {
        const TableKey key = {rollUnit(), rollUnit(), rollUnit()};
        const auto from = reference.byKey.lower_bound(key);
        Entry* first = from == reference.byKey.end() ? nullptr : from->second;
        ASSERT_EQ(tableFrom(table, key), first);
        ASSERT_EQ(tableFind(table, key), reference.byKey.contains(key) ? first : nullptr);
        Entry* named = unitFirst(table, key[0]);
        for (const auto& [unit, entry] : reference.byUnit) {
            if (unit[0] != key[0]) continue;
            ASSERT_EQ(named, entry);
            named = unitNext(named);
        }
        ASSERT_EQ(named, nullptr);
    }
}

TEST(Index, AnswersWhatAScanAnswers) {
    everySeed(4, [] {
        ASSERT_EQ(startDaemon(), 0);
        Reference<PortIsolateIfGrpEntry> groups = {GROUP_TABLE, portIsolateIfGrpEntryAdd, groupEntryDrop};
        Reference<PortIsolateIfPairEntry> pairs = {PAIR_TABLE, portIsolateIfPairEntryAdd, pairEntryDrop};
        Reference<PortIsolateIfInnerEntry> inner = {INNER_TABLE, portIsolateIfInnerEntryAdd, pairEntryDrop};
        for (int step = 0; step < 400 && !testing::Test::HasFatalFailure(); ++step) {
            SCOPED_TRACE(step);
            change(groups);
            if (roll(2) == 0) change(pairs);
            change(inner);
            check(groups);
            check(pairs);
            check(inner);
            const uint32_t unit = rollUnit();
            const bool used = names(groups.byUnit, unit) || names(pairs.byKey, unit) ||
                              names(pairs.byUnit, unit) || names(inner.byKey, unit) ||
                              names(inner.byUnit, unit);
            ASSERT_EQ(portIsolateIfIsFree(unit) != 0, used);
        }
    });
}

TEST(Index, TheLowestSlotOfAPortWins) {
    for (const char* ports : {"1", "15", "16", "17", "50"}) {
        ASSERT_EQ(startDaemon({{"maxifnum", ports}}), 0);
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
