// What events of the device do to tables and hardware.
#include <gtest/gtest.h>

#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tests/fake_platform.h"

namespace {

using Calls = std::vector<std::string>;

void start(const std::map<std::string, std::string>& options = {}) {
    ASSERT_EQ(startDaemon(options), 0);
    portIsolateDebugMaskSet(CATEGORY_EVENT);
}

// Starts a fresh record of what the daemon does.
void watch() {
    drainCalls();
    fake.texts.clear();
}

Calls isolations() {
    return drainCalls({"bi-", "uni-"});
}

// These bytes beginning with another length.
template <typename Length>
Bytes claiming(Length length, Bytes bytes) {
    std::copy_n(reinterpret_cast<const uint8_t*>(&length), sizeof(length), bytes.begin());
    return bytes;
}

TEST(Lifecycle, RegistrationProgramsPairsTowardsTheInterface) {
    start();
    for (const auto& [src, dst] : {std::pair{3u, 100u}, {5u, 100u}, {100u, 7u}}) pairJoin(src, dst);
    watch();
    deliver(linkMessage(DAX_RTM_NEWLINK, 100, RT_CHANGE_REGISTER, attribute(DAX_RTA_TRUNK_JOIN, 0)));
    EXPECT_EQ(isolations(), (Calls{"uni-add 3 21", "uni-add 3 22", "uni-add 5 21", "uni-add 5 22"}));
    failNth("daxEthAggIfGetApi", 1, 5);
    watch();
    deliver(linkMessage(DAX_RTM_NEWLINK, 100, RT_CHANGE_REGISTER));
    EXPECT_TRUE(isolations().empty()) << "the first refusal ends it";
    EXPECT_EQ(fake.texts,
              (Calls{"debug 3/4 interface if100 register\n\r",
                     "debug 0/4 add hw-if uni-isolate [src: if3, target: if100] failed.(5)\n\r"}));
}

TEST(Lifecycle, ATrunkGainsAndLosesAPort) {
    const struct {
        const char* src;
        const char* dst;
        Calls added;
    } cases[] = {
        {"1", "1", {"bi-add 21 30 grp 4", "bi-add 21 40 grp 4", "uni-add 60 21", "uni-add 21 50"}},
        {"1",
         "0",
         {"bi-add 21 30 grp 4 flag 0", "bi-add 21 40 grp 4 flag 0", "uni-add 60 21 flag 0",
          "uni-add 21 50 flag 0"}},
        {"0", "1", {"bi-add 30 21 grp 4 flag 0", "bi-add 40 21 grp 4 flag 0", "uni-add 60 21 flag 0"}},
        {"0", "0", {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.src << row.dst);
        start({{"portisolate.srcaggtoport", row.src}, {"portisolate.dstaggtoport", row.dst}});
        fake.interfaces[100].members.clear();
        for (const uint32_t unit : {30u, 40u, 100u}) groupSet(ROW_CREATE, unit, 4);
        groupSet(ROW_CREATE, 9, 5);
        for (const auto& [src, dst] : {std::pair{100u, 50u}, {60u, 100u}}) pairSet(ROW_CREATE, src, dst);
        watch();
        const Bytes odd = claiming(uint16_t{6}, attribute(9, 0));  // of another type, in front
        deliver(linkMessage(DAX_RTM_NEWLINK, 100, 0, odd + attribute(DAX_RTA_MEMBER_ADD, 21)));
        EXPECT_EQ(isolations(), row.added);
        deliver(linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_DEL, 21)));
        EXPECT_EQ(isolations().size(), row.added.size());
        EXPECT_TRUE(fake.bi.empty());
        EXPECT_TRUE(fake.uni.empty());
        EXPECT_TRUE(fake.texts.empty());
    }
}

TEST(Lifecycle, RefusedMemberChangesAreToldAndPassedOver) {
    start();
    for (const uint32_t unit : {30u, 40u, 100u}) groupSet(ROW_CREATE, unit, 4);
    watch();
    failNth("daxHwilIfGet", 1, 0x1F);
    deliver(linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_ADD, 21)));
    failNth("daxHwilIfGet", 2, 0x1F);
    deliver(linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_DEL, 21)));
    EXPECT_EQ(isolations(), (Calls{"bi-add 21 40 grp 4"}));
    EXPECT_EQ(fake.texts,
              (Calls{"debug 0/4 add hw-if bi-isolate [src: if30, target: if21] of group 4 failed 0x1f\n\r",
                     "debug 0/4 del hw-if bi-isolate [src: if40, target: if21] of group 4 failed\n\r"}));
}

// An interface with everything: a group, a VLAN group, pairs both ways and a serial number.
void configureSeven() {
    start({{"portisolate.supportserial", "t"}});
    for (const uint32_t unit : {7u, 8u}) {
        groupJoin(unit, 2);
        vlanGroupJoin(unit, 3, 10);
    }
    pairJoin(7, 4);
    pairJoin(4, 7);
    watch();
}

TEST(Lifecycle, AnInterfaceThatGoesLosesGroupsPairsAndProtocol) {
    const struct {
        Bytes message;
        bool keepsPairsToIt;
        const char* text;  // the last one
    } cases[] = {
        {linkMessage(DAX_RTM_NEWLINK, 7, 0, attribute(DAX_RTA_TRUNK_JOIN, 0)), false,
         "debug 3/4 ifunit 7 del because of join trunk!\r\n"},
        {linkMessage(DAX_RTM_DELLINK, 7), false,
         "debug 3/4 [portIsolateDelLinkProcess]line 3091: ifunit 7 del prot isolate!\r\n"},
        {linkMessage(DAX_RTM_IF_RESET, 7), true,
         "debug 5/2 [portIsolateIfResetConfig]line 2073: ifunit 7 del prot isolate!\r\n"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.text);
        configureSeven();
        fake.fault = [](const std::string& call) {
            return call == "daxIfSyncApi" && gPortIsoInfo.serialTable[0] == 0 ? 6 : 0;
        };
        portIsolateDebugMaskSet(CATEGORY_EVENT | CATEGORY_WORK);
        deliver(row.message);
        fake.fault = nullptr;
        EXPECT_EQ(portIsolateIfGrpEntryGet(7, 2), nullptr);
        EXPECT_NE(portIsolateIfVlanGrpEntryGet(7, 10, 3), nullptr);
        EXPECT_EQ(portIsolateIfPairEntryGet(7, 4), nullptr);
        EXPECT_EQ(portIsolateIfPairEntryGet(4, 7) != nullptr, row.keepsPairsToIt);
        EXPECT_EQ(portIsolatePortEntryGet(7), nullptr);
        EXPECT_EQ(gPortIsoInfo.serialTable[0], 0u);
        EXPECT_EQ(fake.texts.back(), row.text);
        EXPECT_EQ(fake.texts[fake.texts.size() - 2],
                  "log 7 The interface disable protocol error.(ifName=[if7], proto=[port-isolate], "
                  "type=[state])\r\n");
        watch();
        deliver(row.message);
        EXPECT_TRUE(drainCalls().size() <= 1) << "without a port entry no protocol is switched";
    }
}

TEST(Lifecycle, ARefusedRemovalKeepsTheEntryAndGoesOn) {
    configureSeven();
    failNth("daxHwilIfGet", 1, 6);
    deliver(linkMessage(DAX_RTM_DELLINK, 7));
    EXPECT_NE(portIsolateIfGrpEntryGet(7, 2), nullptr);
    EXPECT_EQ(portIsolateIfPairEntryGet(7, 4), nullptr);
    failNth("daxIndexTrans", 1, 6);
    watch();
    deliver(linkMessage(DAX_RTM_DELLINK, 7));
    EXPECT_TRUE(fake.texts.empty()) << "an interface that cannot be located is passed over";
}

TEST(Lifecycle, VlansAndCards) {
    start();
    for (const uint32_t vlan : {10u, 20u, 4095u}) ponSet(vlan, PON_ISOLATION_OFF);
    watch();
    failNth("daxHwilCmdSetApi", 1, 8);
    deliver(linkMessage(DAX_RTM_DELLINK, 1020));
    deliver(linkMessage(DAX_RTM_DELLINK, 1100));
    deliver(linkMessage(DAX_RTM_DELLINK, 5095));
    EXPECT_EQ(drainCalls(), (Calls{"pon 20 state 1 control 90000000/4/5 = 8", "vlan-protocol 20 off"}));
    EXPECT_EQ(fake.texts, (Calls{"debug 3/4 vlan 20 unregister\n\r",
                                 "debug 3/4 vlan 20 del, enable all port pon-isolate, ret 8\r\n",
                                 "debug 3/4 vlan 100 unregister\n\r", "debug 3/4 vlan 4095 unregister\n\r"}));
    failNth("daxScalarSetApi", 1, 31);
    deliver(plainMessage(DAX_RTM_CARD_UP, Bytes(16)));
    EXPECT_EQ(drainCalls(), (Calls{"mode 2 attr 221 flag 1 = 31", "pon 10 state 2 control 90000000/4/5",
                                   "pon 4095 state 2 control 90000000/4/5", "card-done 0 protocol 198"}))
        << "a card starts even when the mode is refused";
    ponSet(4095, PON_ISOLATION_ON);
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, 2u);
}

TEST(Lifecycle, ConfigurationResetKeepsVlanGroupsAndPorts) {
    configureSeven();
    ponSet(10, PON_ISOLATION_OFF);
    ponSet(20, PON_ISOLATION_OFF);
    watch();
    deliver(plainMessage(DAX_RTM_RESET));
    EXPECT_EQ(drainCalls(), (Calls{"uni-del 4 7 serial 3/1", "uni-del 7 4 serial 1/3",
                                   "pon 10 state 1 control 90000000/4/5", "vlan-protocol 10 off",
                                   "pon 20 state 1 control 90000000/4/5", "vlan-protocol 20 off"}))
        << "the VLAN group still needs the pair of 7 and 8";
    EXPECT_TRUE(listIsEmpty(&gPortIsoInfo.ifGrpList));
    EXPECT_TRUE(listIsEmpty(&gPortIsoInfo.ifPairList));
    EXPECT_EQ(gPortIsoInfo.p2pEnableVlanLen, 0u);
    EXPECT_NE(portIsolateIfVlanGrpEntryGet(8, 10, 3), nullptr);
    EXPECT_NE(portIsolatePortEntryGet(4), nullptr);
}

TEST(Lifecycle, MalformedLinkMessagesChangeNothing) {
    configureSeven();
    groupJoin(100, 2);
    const Bytes trunkJoin = attribute(DAX_RTA_TRUNK_JOIN, 0);
    const Bytes memberAdd = attribute(DAX_RTA_MEMBER_ADD, 9);
    std::vector<Bytes> datagrams;
    for (Bytes cut : {linkMessage(DAX_RTM_NEWLINK, 7, 0, trunkJoin), linkMessage(DAX_RTM_DELLINK, 7)}) {
        cut.resize(47);
        datagrams.push_back(claiming(47u, cut));
    }
    for (const uint16_t length : std::vector<uint16_t>{0, 3, 9, 0xFFFF})
        datagrams.push_back(linkMessage(DAX_RTM_NEWLINK, 7, 0, claiming(length, trunkJoin)));
    for (const uint16_t length : std::vector<uint16_t>{4, 7})  // a member attribute without its number
        datagrams.push_back(linkMessage(DAX_RTM_NEWLINK, 100, 0, claiming(length, memberAdd)));
    watch();
    for (const Bytes& datagram : datagrams) deliver(datagram);
    EXPECT_TRUE(fake.calls.empty());
    EXPECT_TRUE(fake.texts.empty());
    // What lies behind the message but within the datagram is read: the interface's number of the next one.
    Bytes shortUnlink = plainMessage(DAX_RTM_DELLINK) + plainMessage(200);
    shortUnlink[28] = 7;
    deliver(shortUnlink);
    EXPECT_FALSE(fake.texts.empty());
}

}  // namespace
