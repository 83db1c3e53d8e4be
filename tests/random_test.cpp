// Random requests and events, with what must hold after each of them. A failure names its seed;
// PORTISOLATE_SEED=N runs that one alone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "daemon/base/state.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tests/fake_platform.h"
#include "tests/invariants.h"

namespace {

constexpr uint32_t RUNS = 120;
constexpr uint32_t STEPS = 150;

std::mt19937 dice;

uint32_t roll(uint32_t below) {
    return static_cast<uint32_t>(dice() % below);
}

template <typename Value>
Value pick(const std::vector<Value>& values) {
    return values[roll(static_cast<uint32_t>(values.size()))];
}

template <typename Check>
void everyRun(Check check) {
    const char* chosen = std::getenv("PORTISOLATE_SEED");
    const uint32_t first = chosen != nullptr ? static_cast<uint32_t>(std::atoi(chosen)) : 1;
    const uint32_t last = chosen != nullptr ? first : RUNS;
    for (uint32_t seed = first; seed <= last && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("PORTISOLATE_SEED=" + std::to_string(seed));
        dice.seed(seed);
        check();
    }
    fake.fault = nullptr;
}

const std::vector<uint32_t> UNITS = {1, 2, 3, 4, 5, 21, 22, 31, 100, 200, 300};
const std::vector<uint32_t> ROW_VALUES = {ROW_ACTIVATE, ROW_ACTIVATE, ROW_CREATE, ROW_CREATE,
                                          ROW_DESTROY,  ROW_PROBE,    7};

Bytes randomEvent() {
    const uint32_t unit = pick(UNITS);
    const uint32_t port = pick(UNITS);
    switch (roll(9)) {
        case 0:
            return linkMessage(DAX_RTM_NEWLINK, unit, RT_CHANGE_REGISTER);
        case 1:
            return linkMessage(DAX_RTM_NEWLINK, unit, 0, attribute(DAX_RTA_TRUNK_JOIN, 0));
        case 2:
            return linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_ADD, port));
        case 3:
            return linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_DEL, port));
        case 4:
            return linkMessage(DAX_RTM_DELLINK, pick<uint32_t>({unit, 1010, 1020, 5095}));
        case 5:
            return linkMessage(DAX_RTM_IF_RESET, unit);
        case 6:
            return roll(4) == 0 ? plainMessage(DAX_RTM_RESET) : plainMessage(DAX_RTM_SERIAL_SYNC);
        case 7:
            return plainMessage(DAX_RTM_CARD_UP, Bytes(16));
        default: {
            Bytes rubbish = linkMessage(DAX_RTM_NEWLINK, unit, 0, attribute(DAX_RTA_MEMBER_ADD, port));
            for (int i = 0; i < 3; ++i) rubbish[roll(56)] = static_cast<uint8_t>(dice());
            return rubbish;
        }
    }
}

void randomStep() {
    const uint32_t value = pick(ROW_VALUES);
    switch (roll(6)) {
        case 0:
        case 1:
            groupSet(value, pick(UNITS), roll(6));
            break;
        case 2:
            vlanGroupSet(value, pick(UNITS), roll(6), pick<uint32_t>({0, 10, 20}));
            break;
        case 3:
            pairSet(value, pick(UNITS), pick(UNITS));
            break;
        case 4:
            ponSet(pick<uint32_t>({0, 10, 20, 4095, 4096}), roll(4));
            break;
        default:
            deliver(randomEvent());
            break;
    }
}

TEST(Random, StructureHoldsUnderFaults) {
    everyRun([] {
        ASSERT_EQ(startDaemon({{"portisolate.maxifnum", std::to_string(3 + roll(8))},
                               {"portisolate.maxisogrpnum", std::to_string(1 + roll(12))},
                               {"portisolate.maxifnumpergrp", std::to_string(1 + roll(4))},
                               {"portisolate.srcaggtoport", std::to_string(roll(2))},
                               {"portisolate.dstaggtoport", std::to_string(roll(2))},
                               {"portisolate.supportserial", pick<std::string>({"t", "f"})}}),
                  0);
        for (const uint32_t unit : UNITS) fake.interfaces[unit].ability = pick<uint32_t>({1, 1, 2, 3});
        const uint32_t faultsIn = pick<uint32_t>({4, 20, 1000});
        fake.fault = [=](const std::string&) { return roll(faultsIn) == 0 ? 5 : 0; };
        for (uint32_t step = 0; step < STEPS && !testing::Test::HasFailure(); ++step) {
            randomStep();
            checkTables();
        }
        fake.fault = nullptr;
    });
}

using Claims = std::map<std::pair<uint32_t, uint32_t>, std::set<uint32_t>>;

std::vector<uint32_t> portsOf(uint32_t unit) {
    const auto found = fake.interfaces.find(unit);
    if (found == fake.interfaces.end() || (found->second.flags & DAX_IF_FLAG_TRUNK) == 0) return {unit};
    return found->second.members;
}

// The groups that need each pair of ports, as the rows of one group table say.
template <typename Entry>
void addClaims(Claims& claims) {
    ListNode* head = groupList(static_cast<Entry*>(nullptr));
    for (Entry* a = listFirst<Entry>(head); a != nullptr; a = listNext(head, a)) {
        for (Entry* b = groupNext(a); b != nullptr; b = groupNext(b)) {
            for (const uint32_t x : portsOf(a->ifUnit)) {
                for (const uint32_t y : portsOf(b->ifUnit)) claims[std::minmax(x, y)].insert(a->isoGrpNo);
            }
        }
    }
}

// With every member active, both switches on and no fault, rows and hardware are exactly what the groups
// need.
void checkClaims() {
    Claims claims;
    addClaims<PortIsolateIfGrpEntry>(claims);
    addClaims<PortIsolateIfVlanGrpEntry>(claims);
    std::set<std::pair<uint32_t, uint32_t>> needed;
    for (const auto& [ports, groups] : claims) {
        needed.insert(ports);
        const PortIsolateIfInnerEntry* entry = portIsolateIfInnerEntryGet(ports.first, ports.second);
        ASSERT_NE(entry, nullptr) << ports.first << " " << ports.second;
        for (uint32_t grp = 1; grp <= gPortIsoInfo.maxIsoGrpNum; ++grp) {
            EXPECT_EQ(bitListTest(entry->ref, grp - 1), groups.count(grp) != 0 ? 1 : 0);
        }
    }
    EXPECT_EQ(checkedRows<PortIsolateIfInnerEntry>(&gPortIsoInfo.ifInnerList),
              static_cast<int64_t>(needed.size()));
    EXPECT_EQ(fake.bi, needed);
}

// A port of the device moves into a trunk or out of it, with the messages that the platform sends.
void moveMember() {
    const uint32_t trunk = pick<uint32_t>({100, 200, 300});
    std::vector<uint32_t>& members = fake.interfaces[trunk].members;
    if (!members.empty() && roll(2) == 0) {
        const uint32_t port = members.back();
        members.pop_back();
        fake.interfaces[port].flags = 0;
        deliver(linkMessage(DAX_RTM_NEWLINK, trunk, 0, attribute(DAX_RTA_MEMBER_DEL, port)));
        return;
    }
    const uint32_t port = pick<uint32_t>({1, 2, 3, 4, 21, 22, 31, 32, 33});
    if (fake.interfaces[port].flags != 0) return;
    fake.interfaces[port].flags = DAX_IF_FLAG_TRUNK_MEMBER;
    members.push_back(port);
    deliver(linkMessage(DAX_RTM_NEWLINK, port, 0, attribute(DAX_RTA_TRUNK_JOIN, 0)) +
            linkMessage(DAX_RTM_NEWLINK, trunk, 0, attribute(DAX_RTA_MEMBER_ADD, port)));
}

const std::vector<uint32_t> GROUP_UNITS = {1, 2, 3, 4, 21, 31, 100, 200, 300};
const std::vector<uint32_t> VLAN_GROUP_UNITS = {5, 6, 7, 8};  // not those of plain groups

void orderlyStep() {
    switch (roll(8)) {
        case 0:
        case 1:
        case 2:
            EXPECT_GE(groupJoin(pick(GROUP_UNITS), 1 + roll(4)), 0);
            break;
        case 3:
            EXPECT_EQ(groupSet(ROW_DESTROY, pick(GROUP_UNITS), 1 + roll(4)), 0);
            break;
        case 4:
            EXPECT_GE(vlanGroupJoin(pick(VLAN_GROUP_UNITS), 5 + roll(2), 10), 0);
            break;
        case 5:
            EXPECT_EQ(vlanGroupSet(ROW_DESTROY, pick(VLAN_GROUP_UNITS), 5 + roll(2), 10), 0);
            break;
        case 6:
            deliver(linkMessage(pick<uint16_t>({DAX_RTM_DELLINK, DAX_RTM_IF_RESET}), pick(GROUP_UNITS)));
            break;
        default:
            moveMember();
            break;
    }
}

TEST(Random, RowsAndHardwareAreWhatTheGroupsNeed) {
    everyRun([] {
        ASSERT_EQ(startDaemon({{"portisolate.supportserial", pick<std::string>({"t", "f"})}}), 0);
        for (uint32_t step = 0; step < STEPS && !testing::Test::HasFailure(); ++step) {
            orderlyStep();
            checkTables();
            checkClaims();
        }
        for (const uint32_t unit : GROUP_UNITS) {
            for (uint32_t grp = 1; grp <= 4; ++grp) EXPECT_EQ(groupSet(ROW_DESTROY, unit, grp), 0);
        }
        for (const uint32_t unit : VLAN_GROUP_UNITS) {
            for (uint32_t grp = 5; grp <= 6; ++grp) EXPECT_EQ(vlanGroupSet(ROW_DESTROY, unit, grp, 10), 0);
        }
        EXPECT_TRUE(fake.bi.empty());
        for (const auto& [pool, inUse] : fake.poolsInUse) EXPECT_EQ(inUse, 0) << pool;
        for (uint32_t i = 0; i < gPortIsoInfo.maxPortNum; ++i) EXPECT_EQ(gPortIsoInfo.serialTable[i], 0u);
    });
}

}  // namespace
