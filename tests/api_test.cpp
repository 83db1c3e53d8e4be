// Requests: what each family checks, in which order, what it mirrors, changes and answers.
#include <gtest/gtest.h>

#include <cstring>

#include "daemon/api/group_api.h"
#include "daemon/api/operations.h"
#include "daemon/api/pair_api.h"
#include "daemon/api/scalar_api.h"
#include "daemon/api/vlan_api.h"
#include "daemon/api/vlan_group_api.h"
#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/tables/pairs.h"
#include "platform/hardware.h"
#include "tests/fake_platform.h"
#include "wire/status.h"

namespace {

using Calls = std::vector<std::string>;

void start(const std::map<std::string, std::string>& options = {}) {
    ASSERT_EQ(startDaemon(options), 0);
    portIsolateDebugMaskSet(CATEGORY_WORK);
    drainCalls();
}

TEST(Operations, NullArgumentsAreRefusedWithoutTheSemaphore) {
    start();
    const uint32_t takes = fake.semTakes;
    uint32_t record[4] = {1, 1, 1, 0};
    uint32_t value = ROW_CREATE;
    for (const auto& [opcode, handler] : gPortisolateFuncMap) {
        SCOPED_TRACE(opcode);
        const OpShape& shape = PORT_ISOLATE_OP_SHAPES[opcode];
        std::set<int32_t> answers;
        const bool number = shape.indexIsNumber;
        const bool access = shape.kind == OpKind::set || shape.kind == OpKind::get;
        const bool next = shape.kind == OpKind::next;
        EXPECT_EQ(handler.access == nullptr, shape.kind == OpKind::none);
        if (access && number) answers.insert(handler.accessNumber(1, 1, nullptr));
        if (access && !number) answers.insert(handler.access(record, 1, nullptr));
        if (access && shape.indexLength > 4) answers.insert(handler.access(nullptr, 1, &value));
        if (shape.kind == OpKind::first) answers.insert(handler.first(nullptr));
        if (next && number) answers.insert(handler.nextNumber(1, nullptr));
        if (next && !number) answers.insert(handler.next(record, nullptr));
        if (next && !number) answers.insert(handler.next(nullptr, record));
        EXPECT_EQ(answers, handler.access == nullptr ? std::set<int32_t>{} : std::set<int32_t>{22});
    }
    EXPECT_EQ(fake.semTakes, takes);
    EXPECT_EQ(fake.texts.size(), 32u) << "one each, but for the scalars";
}

TEST(Operations, SetAndSyncDifferInTheMirroredFlagsAlone) {
    uint32_t value = ROW_PROBE;
    PortIsolateIfGrpIndex group = {1, 5, 0};
    PortIsolateIfPairIndex pair = {1, 2, 0};
    PortIsolateIfVlanGrpIndex vlanGroup = {1, 5, 10, 0};
    start();
    portIsolateIfGrpSetApi(&group, 1, &value);
    portIsolateIfGrpSyncApi(&group, 1, &value);
    portIsolateIfPairSetApi(&pair, 0, &value);
    portIsolateIfPairSyncApi(&pair, 0, &value);
    portIsolateIfVlanGrpSetApi(&vlanGroup, 1, &value);
    portIsolateIfVlanGrpSyncApi(&vlanGroup, 1, &value);
    value = 2;
    portIsolateScalarSetApi(nullptr, SCALAR_MODE, &value);
    portIsolateScalarSyncApi(nullptr, SCALAR_MODE, &value);
    portIsolateVlanSetApi(0, 1, &value);
    portIsolateVlanSyncApi(0, 2, &value);
    EXPECT_EQ(
        drainCalls(),
        (Calls{"mirror 8fa0001 key 1 control 3/12/4", "mirror 8fa0001 key 1 control 1/12/4",
               "mirror 8cc4000 key 1 control 3/12/4", "mirror 8cc4000 key 1 control 1/12/4",
               "mirror ae14001 key 1 control 3/16/4", "mirror ae14001 key 1 control 1/16/4",
               "mirror c001 key 0 control 3/0/4", "mirror c001 key 0 control 1/0/4",
               "mirror 75f4001 key 0 control 10000003/4/4", "mirror 75f4002 key 0 control 10000001/4/4"}));
}

TEST(Group, FromCreateToDestroy) {
    start();
    EXPECT_EQ(groupJoin(1, 5), 0);
    failNth("daxEthAggIfGetApi", 1, 3);
    EXPECT_EQ(groupJoin(100, 5), 3) << "to be tried again";
    EXPECT_EQ(groupSet(ROW_ACTIVATE, 100, 5), 0);
    EXPECT_EQ(groupSet(ROW_ACTIVATE, 100, 5), 0);
    EXPECT_EQ(fake.bi.size(), 2u);
    EXPECT_EQ(groupJoin(100, 6), 0);
    failNth("daxHwilIfGet", 1, 3);
    EXPECT_EQ(groupSet(ROW_DESTROY, 100, 5), STATUS_FAILED);
    EXPECT_EQ(groupSet(ROW_PROBE, 100, 5), 0) << "a refused release keeps the row and the protocol";
    EXPECT_EQ(groupSet(ROW_DESTROY, 100, 5), 0);
    EXPECT_EQ(groupSet(ROW_DESTROY, 100, 6), 0);
    EXPECT_EQ(groupSet(ROW_DESTROY, 100, 6), 0);
    EXPECT_EQ(drainCalls({"protocol", "bi-"}),
              (Calls{"protocol 1 on", "protocol 100 on", "bi-add 1 21 grp 5", "bi-add 1 22 grp 5",
                     "bi-del 1 21 grp 5", "bi-del 1 22 grp 5", "protocol 100 off"}));
    EXPECT_EQ(fake.texts[0],
              "debug 5/2 [_portIsolateIfGrpSetApi]line 528: ifunit 1 first enable prot isolate!\r\n");
    EXPECT_EQ(fake.texts.back(),
              "debug 5/2 [_portIsolateIfGrpSetApi]line 591: ifunit 100 del prot isolate!\r\n");
}

TEST(Group, AdmissionInItsOrder) {
    start({{"portisolate.maxifnumpergrp", "2"}, {"portisolate.maxisogrpnum", "9"}});
    const struct {
        uint32_t unit, grp;
        int32_t status;
        const char* text;
    } cases[] = {
        {1, 0, STATUS_NOT_SUPPORTED, "debug 5/2 if group set api; interface if1 can't add to group 0\n\r"},
        {1, 10, STATUS_NOT_SUPPORTED, "debug 5/2 if group set api; interface if1 can't add to group 10\n\r"},
        {21, 5, STATUS_NOT_SUPPORTED, "debug 5/2 if group set api; interface if21 can't add to group 5\n\r"},
        {1, 8, STATUS_NUMBER_IS_VLAN_GROUP, ""},
        {6, 5, STATUS_PAIR_IN_GROUP, "debug 5/2 Already created uniIsolation with port in the group 5\n\r"},
        {7, 5, STATUS_PAIR_IN_GROUP, "debug 5/2 Already created uniIsolation with port in the group 5\n\r"},
        {4, 8, STATUS_ABILITY_ONE_GROUP,
         "debug 5/2 Failed.the same port if4 can not join multi portisolate groups: 5/8.\n\r"},
        {1, 5, STATUS_GROUP_FULL, "debug 5/2 Exceed max value of port num per group\n\r"},
        {3, 5, 0, ""},
        {1, 9, 0, "debug 5/2 [_portIsolateIfGrpSetApi]line 528: ifunit 1 first enable prot isolate!\r\n"},
    };
    fake.interfaces[4].ability = 2;
    EXPECT_EQ(pairJoin(6, 3), 0);
    EXPECT_EQ(pairJoin(3, 7), 0);
    EXPECT_EQ(groupSet(ROW_CREATE, 3, 5), 0);
    EXPECT_EQ(groupSet(ROW_CREATE, 4, 5), 0);
    EXPECT_EQ(vlanGroupSet(ROW_CREATE, 9, 8, 10), 0);
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.unit << " " << row.grp);
        fake.texts.clear();
        EXPECT_EQ(groupSet(ROW_CREATE, row.unit, row.grp), row.status);
        EXPECT_EQ(fake.texts, row.text[0] == '\0' ? Calls{} : Calls{row.text});
    }
    failNth("daxHwilIfGet", 1, 3);
    EXPECT_EQ(groupSet(ROW_CREATE, 4, 7), 0) << "an ability that cannot be read refuses nothing";
    failNth("pool portisolate_group", 1, 1);
    EXPECT_EQ(groupSet(ROW_CREATE, 2, 7), STATUS_NOT_FOUND);
    EXPECT_EQ(groupSet(5, 2, 7), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(groupSet(ROW_ACTIVATE, 2, 7), STATUS_NOT_FOUND);
    EXPECT_EQ(groupSet(ROW_PROBE, 2, 7), STATUS_NOT_FOUND);

    start({{"portisolate.slotcheckenable", "t"}, {"portisolate.allowjoinmultigroupperport", "f"}});
    fake.interfaces[2].location[1] = 4;
    groupSet(ROW_CREATE, 1, 5);
    EXPECT_EQ(groupSet(ROW_CREATE, 2, 5), STATUS_OTHER_SLOT);
    EXPECT_EQ(groupSet(ROW_CREATE, 1, 6), STATUS_OTHER_GROUP);
    EXPECT_EQ(vlanGroupSet(ROW_CREATE, 1, 6, 10), 0);
    EXPECT_EQ(vlanGroupSet(ROW_CREATE, 1, 7, 10), 0);
}

// Beside what it shares with the group table.
TEST(VlanGroup, AdmissionLooksAtTheVlan) {
    start();
    fake.interfaces[4].ability = 2;
    vlanGroupSet(ROW_CREATE, 4, 5, 10);
    groupSet(ROW_CREATE, 9, 8);
    const struct {
        uint32_t unit, grp, vlan;
        int32_t status;
    } cases[] = {
        {1, 5, 0, STATUS_NOT_SUPPORTED},
        {1, 8, 10, STATUS_NUMBER_IS_GROUP},
        {1, 5, 20, STATUS_GROUP_OTHER_VLAN},
        {4, 6, 10, STATUS_ABILITY_ONE_GROUP},
        {3, 5, 10, STATUS_OK},
        {3, 6, 4095, STATUS_OK},
        {3, 7, 0xFFFFFFFF, STATUS_OK},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(vlanGroupSet(ROW_CREATE, row.unit, row.grp, row.vlan), row.status)
            << row.unit << " " << row.grp << " " << row.vlan;
    }
    uint32_t value = 0;
    PortIsolateIfVlanGrpIndex index = {3, 5, 20, 0};
    EXPECT_EQ(portIsolateIfVlanGrpSetApi(&index, 3, &value), STATUS_NOT_FOUND);
    EXPECT_EQ(fake.texts.back(),
              "debug 1/2 if vlan group set api; entry [group: 5, vid: 20, interface if3] not exist\n\r");
    EXPECT_EQ(portIsolateIfVlanGrpGetApi(&index, 3, &value), STATUS_NOT_FOUND);
    EXPECT_EQ(fake.texts.back(),
              "debug 1/2 if vlan group get api; entry [group: 5, vlan: 20, interface if3] not exist.(3)\n\r");
    index.vlan = 10;
    EXPECT_EQ(portIsolateIfVlanGrpGetApi(&index, 0, &value), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(portIsolateIfVlanGrpGetApi(&index, 1, &value), 0);
    EXPECT_EQ(value, STATUS_CREATED);
}

TEST(VlanGroup, SharesAPairWithAPlainGroupUnderItsFirstClaim) {
    start();
    vlanGroupJoin(1, 5, 10);
    vlanGroupJoin(2, 5, 10);
    groupJoin(1, 6);
    groupJoin(2, 6);
    EXPECT_EQ(vlanGroupSet(ROW_DESTROY, 1, 5, 10), 0);
    EXPECT_EQ(fake.bi.size(), 1u);
    EXPECT_EQ(vlanGroupSet(ROW_DESTROY, 2, 5, 10), 0);
    EXPECT_EQ(groupSet(ROW_DESTROY, 2, 6), 0);
    EXPECT_EQ(drainCalls({"bi-"}), (Calls{"bi-add 1 2 grp 5 vid 10", "bi-del 1 2 grp 6"}));
}

TEST(Pair, AdmissionAndItsOddAnswers) {
    start({{"portisolate.maxuniisoportnum", "2"}});
    fake.interfaces[9].ability = 2;
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 1), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 21), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(pairSet(ROW_CREATE, 22, 1), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(fake.texts.back(), "debug 5/2 can't set uni-isolate [src: if22, target: if1]\n\r");
    EXPECT_EQ(pairSet(ROW_ACTIVATE, 1, 2), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(pairSet(ROW_PROBE, 1, 2), 0);
    EXPECT_EQ(pairSet(ROW_DESTROY, 1, 2), 0);
    EXPECT_EQ(pairSet(7, 1, 2), STATUS_NOT_SUPPORTED);

    groupSet(ROW_CREATE, 1, 3);
    groupSet(ROW_CREATE, 1, 5);
    groupSet(ROW_CREATE, 6, 5);
    groupSet(ROW_CREATE, 7, 4);
    for (const auto& [src, dst] : {std::pair{1u, 6u}, {6u, 1u}}) {
        EXPECT_EQ(pairSet(ROW_CREATE, src, dst), STATUS_PAIR_SHARES_GROUP);
    }
    EXPECT_EQ(fake.texts.back(),
              "debug 5/2 if pair set api; ports [src: if6, target: if1] in the same group\n\r");
    failNth("daxHwilIfGet", 1, 61);
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 7), 61);
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 7), 0);
    failNth("daxHwilIfGet", 1, 61);
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 7), 61) << "the ability read speaks for a pair that is there, too";
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 9), 0) << "mode 2";
    EXPECT_EQ(pairSet(ROW_CREATE, 1, 8), STATUS_GROUP_FULL);
    EXPECT_EQ(fake.texts.back(), "debug 5/2 Exceed max value of uni-isolate port num\n\r");
    gPortIsoInfo.mode = 1;
    EXPECT_EQ(pairSet(ROW_CREATE, 2, 9), STATUS_PAIR_NOT_IN_MODE);

    drainCalls();
    failNth("pool portisolate_pair", 1, 1);
    EXPECT_EQ(pairSet(ROW_CREATE, 2, 3), STATUS_POOL_EXHAUSTED);
    const Calls calls = drainCalls();
    EXPECT_EQ(Calls(calls.end() - 2, calls.end()), (Calls{"protocol 2 on", "protocol 3 on"}));
    uint32_t value = 0;
    PortIsolateIfPairIndex index = {1, 7, 0};
    EXPECT_EQ(portIsolateIfPairGetApi(&index, 1, &value), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(fake.texts.back(), "debug 1/2 if pair get api; unknown cmd 1\n\r");
}

TEST(Pair, FromCreateToDestroy) {
    start();
    EXPECT_EQ(pairJoin(1, 200), 0);
    EXPECT_EQ(fake.uni.size(), 3u);
    EXPECT_EQ(pairSet(ROW_ACTIVATE, 1, 200), 0);
    EXPECT_EQ(fake.uni.size(), 3u);
    fake.texts.clear();
    EXPECT_EQ(pairSet(ROW_DESTROY, 1, 200), 0);
    EXPECT_TRUE(fake.uni.empty());
    EXPECT_EQ(fake.texts[fake.texts.size() - 2],
              "debug 5/2 [_portIsolateIfPairSetApi]line 918: ifunit 1 del prot isolate!\r\n");
    EXPECT_EQ(fake.texts.back(),
              "debug 5/2 [_portIsolateIfPairSetApi]line 936: ifunit 200 del prot isolate!\r\n");
    EXPECT_EQ(pairSet(ROW_CREATE, 200, 1), 0);
    failNth("daxEthAggIfGetApi", 1, 5);
    EXPECT_EQ(pairSet(ROW_DESTROY, 200, 1), 0) << "a refused release is not told";
    EXPECT_NE(portIsolateIfPairEntryGet(200, 1), nullptr);
}

// Walks a table with one mask and lists the keys.
template <typename Index, typename First, typename Next>
std::string walk(Index index, First first, Next next) {
    std::string keys;
    const uint32_t mask = index.matchMask;
    int32_t status = first(&index);
    while (status == 0 && keys.size() < 1000) {
        uint32_t words[sizeof(Index) / 4];
        std::memcpy(words, &index, sizeof(index));
        for (size_t i = 0; i + 1 < std::size(words); ++i)
            keys += (i != 0 ? ":" : "") + std::to_string(words[i]);
        keys += " ";
        EXPECT_EQ(index.matchMask, mask);
        Index result = {};
        status = next(&index, &result);
        index = result;
    }
    EXPECT_EQ(status, STATUS_NOT_FOUND);
    return keys;
}

TEST(Walks, VisitTheRowsUnderAMask) {
    start();
    for (const auto& [unit, grp] : {std::pair{1u, 5u}, {2u, 5u}, {2u, 3u}, {9u, 1u}}) {
        groupSet(ROW_CREATE, unit, grp);
        vlanGroupSet(ROW_CREATE, unit, grp + 8, 10 * grp);
        pairSet(ROW_CREATE, 10 + unit, grp);
    }
    const auto groups = [](uint32_t unit, uint32_t grp, uint32_t mask) {
        return walk(PortIsolateIfGrpIndex{unit, grp, mask}, portIsolateIfGrpGetFirst,
                    portIsolateIfGrpGetNext);
    };
    EXPECT_EQ(groups(0, 0, 0), "9:1 2:3 1:5 2:5 ");
    EXPECT_EQ(groups(2, 77, MATCH_IF_UNIT), "2:3 2:5 ");
    EXPECT_EQ(groups(0, 5, MATCH_GROUP), "1:5 2:5 ");
    EXPECT_EQ(groups(2, 5, MATCH_GROUP | MATCH_IF_UNIT), "2:5 ");
    EXPECT_EQ(groups(3, 0, MATCH_IF_UNIT), "");
    const auto vlanGroups = [](uint32_t unit, uint32_t grp, uint32_t vlan, uint32_t mask) {
        return walk(PortIsolateIfVlanGrpIndex{unit, grp, vlan, mask}, portIsolateIfVlanGrpGetFirst,
                    portIsolateIfVlanGrpGetNext);
    };
    EXPECT_EQ(vlanGroups(0, 0, 0, 0), "9:9:10 2:11:30 1:13:50 2:13:50 ");
    EXPECT_EQ(vlanGroups(0, 13, 50, MATCH_GROUP | MATCH_VLAN), "1:13:50 2:13:50 ");
    EXPECT_EQ(vlanGroups(2, 0, 30, MATCH_IF_UNIT | MATCH_VLAN), "2:11:30 ");
    const auto pairs = [](uint32_t src, uint32_t dst, uint32_t mask) {
        return walk(PortIsolateIfPairIndex{src, dst, mask}, portIsolateIfPairGetFirst,
                    portIsolateIfPairGetNext);
    };
    EXPECT_EQ(pairs(0, 0, 0), "11:5 12:3 12:5 19:1 ");
    EXPECT_EQ(pairs(12, 0, MATCH_SRC), "12:3 12:5 ");
    EXPECT_EQ(pairs(0, 5, MATCH_DST), "11:5 12:5 ");
}

TEST(Vlan, StateListAndRestoring) {
    start();
    uint32_t value = 0;
    EXPECT_EQ(portIsolateVlanGetFirst(&value), STATUS_NOT_FOUND);
    EXPECT_EQ(ponSet(4095, PON_ISOLATION_OFF), 0);
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, 512u);
    EXPECT_EQ(ponSet(10, PON_ISOLATION_OFF), 0);
    EXPECT_EQ(ponSet(10, PON_ISOLATION_OFF), 0);
    EXPECT_EQ(ponSet(10, 7), 0);
    EXPECT_EQ(portIsolateVlanGetApi(10, 2, &value), 0);
    EXPECT_EQ(value, PON_ISOLATION_OFF);
    EXPECT_EQ(portIsolateVlanGetApi(11, 1, &value), 0);
    EXPECT_EQ(value, PON_ISOLATION_ON);
    EXPECT_EQ(portIsolateVlanGetFirst(&value), 0);
    EXPECT_EQ(value, 10u);
    EXPECT_EQ(portIsolateVlanGetNext(10, &value), 0);
    EXPECT_EQ(value, 4095u);
    for (const uint32_t from : {4095u, 4096u, 0xFFFFFFFFu})
        EXPECT_EQ(portIsolateVlanGetNext(from, &value), STATUS_NOT_FOUND);
    EXPECT_EQ(ponSet(4095, PON_ISOLATION_ON), 0);
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, 2u);
    EXPECT_EQ(drainCalls({"vlan-protocol"}),
              (Calls{"vlan-protocol 4095 on", "vlan-protocol 10 on", "vlan-protocol 4095 off"}));
    EXPECT_EQ(fake.ponOff, std::set<uint32_t>{10});

    fake.fault = [](const std::string& call) { return call == "daxHwilCmdSetApi" ? 17 : 0; };
    for (const auto& [vlan, state, sent] :
         {std::tuple{20u, 2u, 2}, {10u, 1u, 2}, {10u, 2u, 1}, {20u, 1u, 1}}) {
        drainCalls();
        EXPECT_EQ(ponSet(vlan, state), 17);
        EXPECT_EQ(drainCalls().size(), 1u + static_cast<size_t>(sent)) << vlan << " " << state;
    }
    fake.fault = nullptr;
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, 2u);
    for (const uint32_t vlan : {0u, 4096u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ponSet(vlan, 2), STATUS_BAD_VLAN);
        EXPECT_EQ(portIsolateVlanGetApi(vlan, 1, &value), STATUS_BAD_VLAN);
        EXPECT_EQ(drainCalls().size(), 1u) << "mirrored, and nothing else";
    }
    EXPECT_EQ(portIsolateVlanSetApi(10, 3, &value), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(portIsolateVlanGetApi(10, 0, &value), STATUS_NOT_SUPPORTED);
    EXPECT_TRUE(fake.calls.empty());
}

int32_t setMode(uint32_t mode) {
    return portIsolateScalarSetApi(nullptr, SCALAR_MODE, &mode);
}

TEST(Scalar, TheModeChangesUnderItsRules) {
    start();
    groupJoin(1, 5);
    groupJoin(2, 5);
    failNth("daxHwilIfGet", 1, 62);
    EXPECT_EQ(setMode(1), 62) << "the read's status, although the mode has changed";
    EXPECT_EQ(gPortIsoInfo.mode, 1u);
    drainCalls();
    EXPECT_EQ(setMode(1), 0);
    EXPECT_EQ(drainCalls().size(), 1u);
    failNth("daxScalarSetApi", 1, 9);
    EXPECT_EQ(setMode(2), 0);
    EXPECT_EQ(gPortIsoInfo.mode, 2u);
    EXPECT_EQ(fake.texts.back(), "debug 0/2 set api; set port-isolate mode failed.(2)\n\r");

    fake.interfaces[1].ability = 2;
    for (const std::string table : {"pair inner", "group", "pair"}) {
        EXPECT_EQ(setMode(1), STATUS_MODE_IN_USE);
        EXPECT_EQ(fake.texts.back(),
                  "debug 5/2 set api; if " + table + " table not empty, can't change mode\n\r");
        if (table == "pair inner") groupSet(ROW_DESTROY, 2, 5);
        if (table == "group") {
            groupSet(ROW_DESTROY, 1, 5);
            pairSet(ROW_CREATE, 7, 1);
        }
    }
    pairSet(ROW_DESTROY, 7, 1);
    EXPECT_EQ(setMode(77), 0);
    start({{"portisolate.srcaggtoport", "0"}});
    groupSet(ROW_CREATE, 4, 5);
    EXPECT_EQ(setMode(1), STATUS_MODE_IN_USE);
}

TEST(Scalar, ReadsEveryValue) {
    start({{"portisolate.maxifnum", "8"}, {"portisolate.vlangroupenable", "t"}});
    groupJoin(1, 5);
    groupJoin(2, 5);
    pairSet(ROW_CREATE, 1, 7);
    const std::map<uint32_t, uint32_t> wordsExpected = {{1, 2},  {2, 8},    {3, 64}, {4, 16}, {5, 64},
                                                        {6, 2},  {7, 1022}, {8, 1},  {9, 1},  {10, 62},
                                                        {11, 2}, {15, 2},   {17, 1}};
    const uint32_t capability[3] = {1, 0x5A5A5A5A, 2};  // the word between is the caller's
    const std::map<uint32_t, std::string> buffers = {
        {18, std::string(reinterpret_cast<const char*>(capability), sizeof(capability))},
        {12, "PORTISOLATE__V7.00.08.00"},
        {14, std::string("\x60\0\0\0", 4)},
        {16, std::string("\0\x20", 2)}};
    ponSet(10, PON_ISOLATION_OFF);
    for (uint32_t id = 0; id < 22; ++id) {
        SCOPED_TRACE(id);
        char bytes[600];
        std::memset(bytes, 0x5A, sizeof(bytes));
        DataDesc buffer = {bytes, sizeof(bytes)};
        uint32_t word = 0;
        if (wordsExpected.count(id) != 0) {
            EXPECT_EQ(portIsolateScalarGetApi(nullptr, id, &word), 0);
            EXPECT_EQ(word, wordsExpected.at(id));
        } else if (buffers.count(id) != 0) {
            EXPECT_EQ(portIsolateScalarGetApi(nullptr, id, &buffer), 0);
            EXPECT_EQ(std::string(bytes, buffer.length), buffers.at(id));
            buffer.length = static_cast<uint32_t>(buffers.at(id).size()) - (id == 12 ? 0 : 1);
            EXPECT_EQ(portIsolateScalarGetApi(nullptr, id, &buffer),
                      id == 18 ? STATUS_BAD_BUFFER : STATUS_BUFFER_TOO_SMALL);
        } else {
            EXPECT_EQ(portIsolateScalarGetApi(nullptr, id, &buffer), STATUS_NOT_SUPPORTED);
        }
        if (id != 1 && id != 11 && id != 13) {
            EXPECT_EQ(portIsolateScalarSetApi(nullptr, id, &word), STATUS_NOT_SUPPORTED);
        }
    }
    uint8_t record[34] = {1, 0, 1, 1, 1, 1};
    DataDesc serials = {record, sizeof(record)};
    fake.serialReceiver = 1;
    EXPECT_EQ(portIsolateScalarSyncApi(nullptr, SCALAR_SERIAL_TABLE, &serials), 0);
    EXPECT_EQ(gPortIsoInfo.serialTable[0], 0x01010101u);
    record[0] = 2;
    record[2] = 9;
    EXPECT_EQ(portIsolateScalarSetApi(nullptr, SCALAR_SERIAL_TABLE, &serials), 0);
    EXPECT_EQ(gPortIsoInfo.serialTable[0], 0x01010101u);
}

}  // namespace
