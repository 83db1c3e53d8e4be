// What holds of the tables after every request and every event, whatever failed on the way.
#pragma once

#include <gtest/gtest.h>

#include <set>

#include "daemon/base/state.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "tests/fake_platform.h"

// Counts the rows; they must stand in strictly ascending order.
template <typename Entry>
int64_t checkedRows(ListNode* head) {
    int64_t rows = 0;
    TableKey last = {};
    for (Entry* entry = listFirst<Entry>(head); entry != nullptr; entry = listNext(head, entry)) {
        EXPECT_EQ(entry->links.next->prev, &entry->links);
        const TableKey key = tableKey(*entry);
        EXPECT_TRUE(rows == 0 || last < key);
        last = key;
        ++rows;
    }
    return rows;
}

inline void checkTables() {
    const int64_t pairs = checkedRows<PortIsolateIfPairEntry>(&gPortIsoInfo.ifPairList);
    const int64_t inner = checkedRows<PortIsolateIfInnerEntry>(&gPortIsoInfo.ifInnerList);
    EXPECT_EQ(fake.poolsInUse["portisolate_pair"], pairs + inner);
    EXPECT_EQ(fake.poolsInUse["portisolate_ref"], pairs + inner);
    EXPECT_EQ(fake.poolsInUse["portisolate_group"],
              checkedRows<PortIsolateIfGrpEntry>(&gPortIsoInfo.ifGrpList));
    EXPECT_EQ(fake.poolsInUse["portisolate_vlangroup"],
              checkedRows<PortIsolateIfVlanGrpEntry>(&gPortIsoInfo.ifVlanGrpList));
    std::set<uint32_t> ports;
    ListNode* head = &gPortIsoInfo.portList;
    for (auto* port = listFirst<PortIsolatePortEntry>(head); port != nullptr; port = listNext(head, port)) {
        EXPECT_TRUE(ports.insert(port->ifUnit).second);
    }
    EXPECT_EQ(fake.poolsInUse["portisolate_port"], static_cast<int64_t>(ports.size()));
    head = &gPortIsoInfo.ifInnerList;
    for (auto* entry = listFirst<PortIsolateIfInnerEntry>(head); entry != nullptr;
         entry = listNext(head, entry)) {
        EXPECT_EQ(bitListIsEmpty(entry->ref, gPortIsoInfo.maxIsoGrpNum), 0) << "a row that no group needs";
    }
    std::set<uint32_t> owners;
    for (uint32_t i = 0; i < gPortIsoInfo.maxPortNum; ++i) {
        const uint32_t owner = gPortIsoInfo.serialTable[i];
        EXPECT_TRUE(owner == 0 || owners.insert(owner).second) << "two serial numbers for " << owner;
    }
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, (bitListLast(gPortIsoInfo.p2pEnableVlan, VLAN_COUNT) + 7) / 8);
    EXPECT_FALSE(fake.semTaken);
}
