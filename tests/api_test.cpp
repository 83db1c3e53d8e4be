// Requests: what each family checks, in which order, what it mirrors, changes and answers.
#include "daemon/api/operations.h"
#include "tests/daemon_driver.h"

namespace {

void start(const Options& options = {}) {
    startWatched(CATEGORY_WORK, options);
}

using Told = std::pair<int32_t, std::string>;

// What a request answered and wrote last, less the channel of traces.
Told told(int32_t status) {
    const std::string trace = "debug 5/2 ";
    const Calls texts = std::exchange(fake.texts, {});
    if (texts.empty()) return {status, ""};
    return {status, texts.back().substr(texts.back().starts_with(trace) ? trace.size() : 0)};
}

TEST(Operations, TakeTheSemaphoreOnceAndRefuseNullArgumentsWithoutIt) {
    start();
    uint32_t takes = fake.semTakes;
    for (uint32_t opcode = 1; opcode < OP_COUNT; ++opcode) {
        SCOPED_TRACE(opcode);
        const OpShape& shape = PORT_ISOLATE_OP_SHAPES[opcode];
        uint32_t record[4] = {1, 1, 1, 0};
        uint32_t value[4] = {ROW_CREATE};
        const bool hasValue = shape.kind != OpKind::first;
        fake.texts.clear();
        EXPECT_EQ(perform(opcode, hasValue ? record : nullptr, 1, nullptr), STATUS_NULL_ARGUMENT);
        EXPECT_EQ(fake.texts.size(), opcode > OP_SCALAR_GET ? 1u : 0u);
        if (hasValue && shape.indexLength > 4) {
            EXPECT_EQ(perform(opcode, nullptr, 1, value), STATUS_NULL_ARGUMENT);
            EXPECT_EQ(fake.texts.size(), 2u);
        }
        EXPECT_EQ(fake.semTakes, takes);
        perform(opcode, record, 1, value);
        EXPECT_EQ(fake.semTakes, ++takes);
    }
    EXPECT_EQ(gPortisolateFuncMap[0].handler.access, nullptr);
}

TEST(Operations, SetAndSyncDifferInTheMirroredFlagsAlone) {
    const std::tuple<uint32_t, uint32_t, uint32_t, std::string> families[] = {
        {OP_GROUP_SET, OP_GROUP_SYNC, 1, "mirror 8fa0001 key 1 control 3/12/4"},
        {OP_PAIR_SET, OP_PAIR_SYNC, 0, "mirror 8cc4000 key 1 control 3/12/4"},
        {OP_VLAN_GROUP_SET, OP_VLAN_GROUP_SYNC, 1, "mirror ae14001 key 1 control 3/16/4"},
        {OP_SCALAR_SET, OP_SCALAR_SYNC, SCALAR_MODE, "mirror c001 key 0 control 3/0/4"},
        {OP_VLAN_SET, OP_VLAN_SYNC, 2, "mirror 75f4002 key 1 control 10000003/4/4"},
    };
    start();
    for (const auto& [set, sync, column, mirrored] : families) {
        uint32_t index[] = {1, 5, 10, 0};
        uint32_t value = ROW_PROBE;
        for (const uint32_t opcode : {set, sync}) perform(opcode, index, column, &value);
        std::string ofSync = mirrored;
        ofSync[ofSync.find("3/")] = '1';
        EXPECT_EQ(drainCalls({"mirror"}), (Calls{mirrored, ofSync}));
    }
}

TEST(Group, AdmissionInItsOrder) {
    start({{"maxifnumpergrp", "2"}, {"maxisogrpnum", "9"}});
    const struct {
        uint32_t unit, grp;
        int32_t status;
        const char* text;
    } cases[] = {
        {1, 0, STATUS_NOT_SUPPORTED, "if group set api; interface if1 can't add to group 0\n\r"},
        {1, 10, STATUS_NOT_SUPPORTED, "if group set api; interface if1 can't add to group 10\n\r"},
        {21, 5, STATUS_NOT_SUPPORTED, "if group set api; interface if21 can't add to group 5\n\r"},
        {1, 8, STATUS_NUMBER_IS_VLAN_GROUP, ""},
        {6, 5, STATUS_PAIR_IN_GROUP, "Already created uniIsolation with port in the group 5\n\r"},
        {7, 5, STATUS_PAIR_IN_GROUP, "Already created uniIsolation with port in the group 5\n\r"},
        {4, 3, STATUS_ABILITY_ONE_GROUP,
         "Failed.the same port if4 can not join multi portisolate groups: 5/3.\n\r"},
        {4, 6, STATUS_ABILITY_ONE_GROUP,
         "Failed.the same port if4 can not join multi portisolate groups: 5/6.\n\r"},
        {1, 5, STATUS_GROUP_FULL, "Exceed max value of port num per group\n\r"},
        {3, 5, 0, ""},
        {1, 9, 0, "[_portIsolateIfGrpSetApi]line 528: ifunit 1 first enable prot isolate!\r\n"},
    };
    fake.interfaces[4].ability = 2;
    EXPECT_EQ(pairJoin(6, 3) | pairJoin(3, 7) | pairJoin(4, 8), 0);
    for (const auto& [unit, grp] : {std::pair{3u, 5u}, {4u, 5u}, {8u, 6u}}) {
        EXPECT_EQ(groupSet(ROW_CREATE, unit, grp), 0);
    }
    EXPECT_EQ(vlanGroupSet(ROW_CREATE, 9, 8, 10), 0);
    fake.texts.clear();
    for (const auto& row : cases) {
        EXPECT_EQ(told(groupSet(ROW_CREATE, row.unit, row.grp)), Told(row.status, row.text))
            << row.unit << " " << row.grp;
    }
    EXPECT_EQ(groupSet(5, 2, 7), STATUS_NOT_SUPPORTED);
    for (const uint32_t status : {ROW_ACTIVATE, ROW_PROBE}) {
        EXPECT_EQ(groupSet(status, 2, 7), STATUS_NOT_FOUND);
    }

    start({{"slotcheckenable", "t"}, {"allowjoinmultigroupperport", "f"}});
    fake.interfaces[2].location[1] = 4;
    groupSet(ROW_CREATE, 1, 5);
    EXPECT_EQ(groupSet(ROW_CREATE, 2, 5), STATUS_OTHER_SLOT);
    EXPECT_EQ(groupSet(ROW_CREATE, 1, 6), STATUS_OTHER_GROUP);
    EXPECT_EQ(vlanGroupSet(ROW_CREATE, 1, 6, 10) | vlanGroupSet(ROW_CREATE, 1, 7, 10), 0);
}

// Beside what it shares with the group table.
TEST(VlanGroup, AdmissionLooksAtTheVlan) {
    start();
    fake.interfaces[4].ability = 2;
    vlanGroupSet(ROW_CREATE, 4, 5, 10);
    groupSet(ROW_CREATE, 9, 8);
    const std::tuple<uint32_t, uint32_t, uint32_t, int32_t> cases[] = {
        {1, 5, 0, STATUS_NOT_SUPPORTED},
        {1, 8, 10, STATUS_NUMBER_IS_GROUP},
        {1, 5, 20, STATUS_GROUP_OTHER_VLAN},
        {4, 6, 10, STATUS_ABILITY_ONE_GROUP},
        {3, 5, 10, STATUS_OK},
        {3, 6, 4095, STATUS_OK},
        {3, 7, 0xFFFFFFFF, STATUS_OK},
    };
    for (const auto& [unit, grp, vlan, status] : cases) {
        EXPECT_EQ(vlanGroupSet(ROW_CREATE, unit, grp, vlan), status) << unit << " " << grp << " " << vlan;
    }
    uint32_t value = 0;
    uint32_t index[] = {3, 5, 20, 0};
    EXPECT_EQ(
        told(perform(OP_VLAN_GROUP_SET, index, 3, &value)),
        Told(STATUS_NOT_FOUND,
             "debug 1/2 if vlan group set api; entry [group: 5, vid: 20, interface if3] not exist\n\r"));
    EXPECT_EQ(
        told(perform(OP_VLAN_GROUP_GET, index, 3, &value)),
        Told(STATUS_NOT_FOUND,
             "debug 1/2 if vlan group get api; entry [group: 5, vlan: 20, interface if3] not exist.(3)\n\r"));
    index[2] = 10;
    EXPECT_EQ(perform(OP_VLAN_GROUP_SET, index, 3, &value), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(perform(OP_VLAN_GROUP_GET, index, 0, &value), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(perform(OP_VLAN_GROUP_GET, index, 1, &value), 0);
    EXPECT_EQ(value, ROW_STATE_CREATED);
}

TEST(VlanGroup, SharesAPairWithAPlainGroupUnderItsFirstClaim) {
    start();
    vlanGroupJoin(1, 5, 10);
    EXPECT_EQ(fake.texts[0],
              "debug 5/2 [_portIsolateIfVlanGrpSetApi]line 1636: ifunit 1 first enable prot isolate!\r\n");
    vlanGroupJoin(2, 5, 10);
    for (const uint32_t unit : {1u, 2u}) groupJoin(unit, 6);
    for (const uint32_t unit : {1u, 2u}) EXPECT_EQ(vlanGroupSet(ROW_DESTROY, unit, 5, 10), 0);
    EXPECT_EQ(fake.bi.size(), 1u);
    EXPECT_EQ(groupSet(ROW_DESTROY, 2, 6), 0);
    EXPECT_EQ(drainCalls({"bi-"}), (Calls{"bi-add 1 2 grp 5 vid 10", "bi-del 1 2 grp 6"}));
    vlanGroupJoin(3, 5, 10);
    EXPECT_EQ(told(vlanGroupSet(ROW_DESTROY, 3, 5, 10)),
              Told(0, "[_portIsolateIfVlanGrpSetApi]line 1699: ifunit 3 del prot isolate!\r\n"));
}

TEST(Pair, AdmissionAndItsOddAnswers) {
    start({{"maxuniisoportnum", "2"}});
    fake.interfaces[9].ability = 2;
    for (const auto& [unit, grp] : {std::pair{1u, 3u}, {1u, 5u}, {6u, 5u}, {7u, 4u}}) {
        groupSet(ROW_CREATE, unit, grp);
    }
    fake.texts.clear();
    // Row status, source, target, what the ability read answers, and the request.
    const std::tuple<uint32_t, uint32_t, uint32_t, int32_t, int32_t> cases[] = {
        {ROW_CREATE, 1, 1, 0, STATUS_NOT_SUPPORTED},
        {ROW_CREATE, 1, 21, 0, STATUS_NOT_SUPPORTED},
        {ROW_CREATE, 22, 1, 0, STATUS_NOT_SUPPORTED},
        {ROW_ACTIVATE, 1, 2, 0, STATUS_NOT_SUPPORTED},
        {ROW_PROBE, 1, 2, 0, STATUS_OK},
        {ROW_DESTROY, 1, 2, 0, STATUS_OK},
        {7, 1, 2, 0, STATUS_NOT_SUPPORTED},
        {ROW_CREATE, 6, 1, 61, STATUS_PAIR_SHARES_GROUP},
        {ROW_CREATE, 1, 6, 0, STATUS_PAIR_SHARES_GROUP},
        {ROW_CREATE, 1, 7, 61, 61},
        {ROW_CREATE, 1, 7, 0, STATUS_OK},
        {ROW_CREATE, 1, 7, 61, 61},        // it speaks for a pair that is there, too
        {ROW_CREATE, 1, 9, 0, STATUS_OK},  // mode 2
        {ROW_CREATE, 1, 8, 0, STATUS_GROUP_FULL},
    };
    for (const auto& [rowStatus, src, dst, read, status] : cases) {
        failNth("daxHwilIfGet", 1, read);
        EXPECT_EQ(pairSet(rowStatus, src, dst), status) << src << " " << dst << " " << read;
    }
    EXPECT_EQ(fake.texts[2], "debug 5/2 can't set uni-isolate [src: if22, target: if1]\n\r");
    EXPECT_EQ(fake.texts[3],
              "debug 5/2 if pair set api; ports [src: if6, target: if1] in the same group\n\r");
    EXPECT_EQ(fake.texts.back(), "debug 5/2 Exceed max value of uni-isolate port num\n\r");
    gPortIsoInfo.mode = 1;
    EXPECT_EQ(pairSet(ROW_CREATE, 2, 9), STATUS_PAIR_NOT_IN_MODE);
    drainCalls();
    failNth("pool portisolate_pair", 1, 1);
    EXPECT_EQ(pairSet(ROW_CREATE, 2, 3), STATUS_POOL_EXHAUSTED);
    EXPECT_EQ(drainCalls({"protocol"}), (Calls{"protocol 2 on", "protocol 3 on"}));
    uint32_t value = 0;
    uint32_t index[] = {1, 7, 0};
    EXPECT_EQ(told(perform(OP_PAIR_GET, index, 1, &value)),
              Told(STATUS_NOT_SUPPORTED, "debug 1/2 if pair get api; unknown cmd 1\n\r"));
}

// The keys that a walk under an index visits.
std::string walk(uint32_t getFirst, std::vector<uint32_t> index) {
    std::string keys;
    const uint32_t mask = index.back();
    int32_t status = perform(getFirst, index.data(), 0, nullptr);
    while (status == 0 && keys.size() < 1000) {
        for (size_t i = 0; i + 1 < index.size(); ++i) keys += (i != 0 ? ":" : "") + std::to_string(index[i]);
        keys += " ";
        EXPECT_EQ(index.back(), mask);
        std::vector<uint32_t> result(index.size());
        status = perform(getFirst + 1, index.data(), 0, result.data());
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
    const std::tuple<uint32_t, std::vector<uint32_t>, const char*> walks[] = {
        {OP_GROUP_GET_FIRST, {0, 0, 0}, "9:1 2:3 1:5 2:5 "},
        {OP_GROUP_GET_FIRST, {2, 77, MATCH_IF_UNIT}, "2:3 2:5 "},
        {OP_GROUP_GET_FIRST, {0, 5, MATCH_GROUP}, "1:5 2:5 "},
        {OP_GROUP_GET_FIRST, {2, 5, MATCH_GROUP | MATCH_IF_UNIT}, "2:5 "},
        {OP_GROUP_GET_FIRST, {3, 0, MATCH_IF_UNIT}, ""},
        {OP_VLAN_GROUP_GET_FIRST, {0, 0, 0, 0}, "9:9:10 2:11:30 1:13:50 2:13:50 "},
        {OP_VLAN_GROUP_GET_FIRST, {0, 13, 50, MATCH_GROUP | MATCH_VLAN}, "1:13:50 2:13:50 "},
        {OP_VLAN_GROUP_GET_FIRST, {2, 0, 30, MATCH_IF_UNIT | MATCH_VLAN}, "2:11:30 "},
        {OP_PAIR_GET_FIRST, {0, 0, 0}, "11:5 12:3 12:5 19:1 "},
        {OP_PAIR_GET_FIRST, {12, 0, MATCH_SRC}, "12:3 12:5 "},
        {OP_PAIR_GET_FIRST, {0, 5, MATCH_DST}, "11:5 12:5 "},
    };
    for (const auto& [getFirst, index, keys] : walks) EXPECT_EQ(walk(getFirst, index), keys);
}

int32_t vlanGet(uint32_t opcode, uint32_t vlan, uint32_t column, uint32_t& value) {
    return opcode == OP_VLAN_GET_FIRST ? perform(opcode, &value, 0, nullptr)
                                       : perform(opcode, &vlan, column, &value);
}

TEST(Vlan, IsListedWhileItsIsolationIsOff) {
    start();
    uint32_t value = 0;
    EXPECT_EQ(vlanGet(OP_VLAN_GET_FIRST, 0, 0, value), STATUS_NOT_FOUND);
    EXPECT_EQ(ponSet(4095, PON_ISOLATION_OFF), 0);
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, 512u);
    for (const uint32_t state : {PON_ISOLATION_OFF, PON_ISOLATION_OFF, 7u}) EXPECT_EQ(ponSet(10, state), 0);
    for (const auto& [opcode, vlan, expected] : {std::tuple{OP_VLAN_GET, 10u, PON_ISOLATION_OFF},
                                                 {OP_VLAN_GET, 11u, PON_ISOLATION_ON},
                                                 {OP_VLAN_GET_FIRST, 0u, 10u},
                                                 {OP_VLAN_GET_NEXT, 10u, 4095u}}) {
        EXPECT_EQ(vlanGet(opcode, vlan, 2, value), 0);
        EXPECT_EQ(value, expected);
    }
    for (const uint32_t from : {4095u, 4096u, 0xFFFFFFFFu}) {
        EXPECT_EQ(vlanGet(OP_VLAN_GET_NEXT, from, 0, value), STATUS_NOT_FOUND);
    }
    EXPECT_EQ(ponSet(4095, PON_ISOLATION_ON), 0);
    EXPECT_EQ(drainCalls({"vlan-protocol"}),
              (Calls{"vlan-protocol 4095 on", "vlan-protocol 10 on", "vlan-protocol 4095 off"}));
    EXPECT_EQ(fake.ponOff, std::set<uint32_t>{10});

    for (const uint32_t vlan : {0u, 4096u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ponSet(vlan, 2), STATUS_BAD_VLAN);
        EXPECT_EQ(vlanGet(OP_VLAN_GET, vlan, 1, value), STATUS_BAD_VLAN);
        EXPECT_EQ(drainCalls().size(), 1u) << "mirrored, and nothing else";
    }
    EXPECT_EQ(vlanGet(OP_VLAN_SET, 10, 3, value), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(vlanGet(OP_VLAN_GET, 10, 0, value), STATUS_NOT_SUPPORTED);
    EXPECT_TRUE(fake.calls.empty());
}

int32_t setMode(uint32_t mode) {
    return perform(OP_SCALAR_SET, nullptr, SCALAR_MODE, &mode);
}

TEST(Scalar, TheModeChangesUnderItsRules) {
    start();
    EXPECT_EQ(groupJoin(1, 5) | groupJoin(2, 5), 0);
    failNth("daxHwilIfGet", 1, 62);
    EXPECT_EQ(setMode(1), 62) << "the read's status, although the mode has changed";
    EXPECT_EQ(gPortIsoInfo.mode, 1u);
    drainCalls();
    EXPECT_EQ(setMode(1), 0);
    EXPECT_EQ(drainCalls().size(), 1u);
    failNth("daxScalarSetApi", 1, 9);
    EXPECT_EQ(told(setMode(2)), Told(0, "debug 0/2 set api; set port-isolate mode failed.(2)\n\r"));
    EXPECT_EQ(gPortIsoInfo.mode, 2u);

    fake.interfaces[1].ability = 2;
    const std::pair<const char*, void (*)()> uses[] = {
        {"pair inner", [] { groupSet(ROW_DESTROY, 2, 5); }},
        {"group", [] { groupSet(ROW_DESTROY, 1, 5), pairSet(ROW_CREATE, 7, 1); }},
        {"pair", [] { pairSet(ROW_DESTROY, 7, 1); }}};
    for (const auto& [table, end] : uses) {
        EXPECT_EQ(
            told(setMode(1)),
            Told(STATUS_MODE_IN_USE, words("set api; if %s table not empty, can't change mode\n\r", table)));
        end();
    }
    EXPECT_EQ(setMode(77), 0);
    for (const bool src : {true, false}) {
        start(trunkSwitches(src, !src));
        groupSet(ROW_CREATE, 4, 5);
        EXPECT_EQ(setMode(1), src ? 0 : STATUS_MODE_IN_USE);
    }
}

TEST(Scalar, ReadsEveryValueIntoABufferThatHoldsIt) {
    start({{"maxifnum", "8"}, {"vlangroupenable", "t"}});
    groupJoin(1, 5);
    groupJoin(2, 5);
    for (const uint32_t dst : {7u, 8u}) pairSet(ROW_CREATE, 1, dst);
    ponSet(10, PON_ISOLATION_OFF);
    const std::map<uint32_t, uint32_t> numbers = {{1, 2},  {2, 8},    {3, 64}, {4, 16}, {5, 64},
                                                  {6, 2},  {7, 1022}, {8, 1},  {9, 2},  {10, 61},
                                                  {11, 2}, {15, 2},   {17, 1}};
    const uint32_t capability[3] = {1, 0x5A5A5A5A, 2};  // the word between is the caller's
    const std::map<uint32_t, std::string> buffers = {
        {12, "PORTISOLATE__V7.00.08.00"},
        {14, std::string("\x60\0\0\0", 4)},
        {16, std::string("\0\x20", 2)},
        {18, std::string(reinterpret_cast<const char*>(capability), sizeof(capability))}};
    for (uint32_t id = 0; id < 22; ++id) {
        SCOPED_TRACE(id);
        char bytes[600];
        std::memset(bytes, 0x5A, sizeof(bytes));
        uint32_t word = 0;
        if (numbers.contains(id)) {
            EXPECT_EQ(perform(OP_SCALAR_GET, nullptr, id, &word), 0);
            EXPECT_EQ(word, numbers.at(id));
        } else if (buffers.contains(id)) {
            // One text goes with its terminator.
            const auto room = static_cast<uint32_t>(buffers.at(id).size()) + (id == SCALAR_VERSION ? 1 : 0);
            DataDesc buffer = {bytes, room - 1};
            EXPECT_EQ(perform(OP_SCALAR_GET, nullptr, id, &buffer),
                      id == SCALAR_CAPABILITY ? STATUS_BAD_BUFFER : STATUS_BUFFER_TOO_SMALL);
            buffer.length = room;
            EXPECT_EQ(perform(OP_SCALAR_GET, nullptr, id, &buffer), 0);
            EXPECT_EQ(std::string(bytes, buffer.length), buffers.at(id));
        } else {
            EXPECT_EQ(perform(OP_SCALAR_GET, nullptr, id, bytes), STATUS_NOT_SUPPORTED);
        }
        if (id != SCALAR_MODE && id != SCALAR_DEBUG_MASK && id != SCALAR_SERIAL_TABLE) {
            EXPECT_EQ(perform(OP_SCALAR_SET, nullptr, id, &word), STATUS_NOT_SUPPORTED);
        }
    }
}

}  // namespace
