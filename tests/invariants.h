// What holds of the tables after every request and every event, whatever failed on the way.
#pragma once

#include <set>

#include "daemon/tables/ports.h"
#include "tests/daemon_driver.h"

// The levels of the half of an index below `parent`, after checks; tells its nodes by their depths.
inline int checkHalf(const IndexNode* node, const IndexNode* parent, char depth, std::string& depths) {
    if (node == nullptr) return 0;
    const auto deeper = static_cast<char>(depth + 1);
    const int lower = checkHalf(node->lower, node, deeper, depths);
    depths += depth;
    const int upper = checkHalf(node->upper, node, deeper, depths);
    EXPECT_TRUE(node->parent == parent && node->lowerLevels == lower && node->upperLevels == upper);
    EXPECT_LE(std::abs(lower - upper), 1);
    return 1 + std::max(lower, upper);
}

// Counts the rows; they must stand in strictly ascending order.
template <typename Entry>
int64_t checkedRows(const Table<Entry>& table) {
    const auto rows = rowsOf(table);
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i]->links.next->prev, &rows[i]->links);
        EXPECT_TRUE(i == 0 || tableKey(*rows[i - 1]) < tableKey(*rows[i]));
    }
    return static_cast<int64_t>(rows.size());
}

inline void checkTables() {
    PortIsoInfo& info = gPortIsoInfo;
    const auto ports = rowsOf(PORT_TABLE);
    for (const auto* port : ports) EXPECT_EQ(portIsolatePortEntryGet(port->ifUnit), port) << port->ifUnit;
    for (const auto* row : rowsOf(INNER_TABLE)) {
        uint32_t grp = 0;
        while (grp < info.maxIsoGrpNum && bitListTest(row->ref, grp) == 0) ++grp;
        EXPECT_LT(grp, info.maxIsoGrpNum) << "a row that no group needs";
    }
    const int64_t pairs = checkedRows(PAIR_TABLE) + checkedRows(INNER_TABLE);
    EXPECT_EQ(fake.poolsInUse["portisolate_pair"], pairs);
    EXPECT_EQ(fake.poolsInUse["portisolate_ref"], pairs);
    EXPECT_EQ(fake.poolsInUse["portisolate_group"], checkedRows(GROUP_TABLE));
    EXPECT_EQ(fake.poolsInUse["portisolate_vlangroup"], checkedRows(VLAN_GROUP_TABLE));
    EXPECT_EQ(fake.poolsInUse["portisolate_port"], static_cast<int64_t>(ports.size()));
    std::set<uint32_t> owners;
    for (uint32_t i = 0; i < info.maxPortNum; ++i) {
        const uint32_t owner = info.serialTable[i];
        EXPECT_TRUE(owner == 0 || owners.insert(owner).second) << "two serial numbers for " << owner;
    }
    uint32_t bytes = VLAN_COUNT / 8;
    while (bytes > 0 && info.p2pEnableVlan[bytes - 1] == 0) --bytes;
    EXPECT_EQ(info.p2pEnableVlanLen, bytes);
    EXPECT_FALSE(fake.semTaken);
}
