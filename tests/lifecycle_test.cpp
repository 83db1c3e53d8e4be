// What events of the device do to tables and hardware.
#include "daemon/tables/ports.h"
#include "tests/daemon_driver.h"

namespace {

TEST(Lifecycle, ARegistrationProgramsPairsTowardsTheInterfaceUntilOneIsRefused) {
    startWatched(CATEGORY_EVENT);
    for (const auto& [src, dst] : {std::pair{3u, 100u}, {5u, 100u}, {6u, 100u}, {100u, 7u}}) {
        pairSet(ROW_CREATE, src, dst);
    }
    failNth("daxEthAggIfGetApi", 2, 5);
    deliver(linkMessage(DAX_RTM_NEWLINK, 100, RT_CHANGE_REGISTER, attribute(DAX_RTA_TRUNK_JOIN, 0)));
    EXPECT_EQ(drainCalls({"uni-"}), (Calls{"uni-add 3 21", "uni-add 3 22"}));
    EXPECT_EQ(fake.texts,
              (Calls{"debug 3/4 interface if100 register\n\r",
                     "debug 0/4 add hw-if uni-isolate [src: if5, target: if100] failed.(5)\n\r"}));
}

// An interface with everything: a group, a VLAN group, pairs with lower and higher ones, and a serial number.
void configureSeven() {
    startWatched(CATEGORY_EVENT | CATEGORY_WORK, {{"supportserial", "t"}});
    for (const uint32_t unit : {7u, 8u}) EXPECT_EQ(groupJoin(unit, 2) | vlanGroupJoin(unit, 3, 10), 0);
    for (const auto& [src, dst] : {std::pair{7u, 4u}, {4u, 7u}, {9u, 7u}}) EXPECT_EQ(pairJoin(src, dst), 0);
    fake.calls.clear();
    fake.texts.clear();
}

TEST(Lifecycle, AnInterfaceThatGoesLosesGroupsPairsAndProtocol) {
    const struct {
        Bytes message;
        bool keepsPairsToIt;
        const char* text;  // the last one
    } cases[] = {
        {linkMessage(DAX_RTM_NEWLINK, 7, 0,
                     claiming(uint16_t{6}, attribute(9, 0)) + attribute(DAX_RTA_TRUNK_JOIN, 0)),
         false, "debug 3/4 ifunit 7 del because of join trunk!\r\n"},
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
        deliver(row.message);
        fake.fault = nullptr;
        EXPECT_EQ(portIsolateIfGrpEntryGet(7, 2), nullptr);
        EXPECT_NE(portIsolateIfVlanGrpEntryGet(7, 10, 3), nullptr);
        EXPECT_EQ(portIsolateIfPairEntryGet(7, 4), nullptr);
        for (const uint32_t src : {4u, 9u}) {
            EXPECT_EQ(portIsolateIfPairEntryGet(src, 7) != nullptr, row.keepsPairsToIt);
        }
        EXPECT_EQ(portIsolatePortEntryGet(7), nullptr);
        EXPECT_EQ(gPortIsoInfo.serialTable[0], 0u);
        EXPECT_EQ(fake.texts.back(), row.text);
        EXPECT_EQ(fake.texts[fake.texts.size() - 2],
                  "log 7 The interface disable protocol error.(ifName=[if7/64], proto=[port-isolate], "
                  "type=[state])\r\n");
        fake.calls.clear();
        deliver(row.message);
        EXPECT_TRUE(fake.calls.empty()) << "without a port entry no protocol is switched";
    }
    // One that keeps its group, and one that cannot be located.
    for (const char* refused : {"daxHwilIfGet", "daxIndexTrans"}) {
        configureSeven();
        failNth(refused, 1, 6);
        deliver(linkMessage(DAX_RTM_DELLINK, 7));
        EXPECT_NE(portIsolateIfGrpEntryGet(7, 2), nullptr);
        const bool located = std::string(refused) == "daxHwilIfGet";
        EXPECT_EQ(portIsolateIfPairEntryGet(7, 4) == nullptr, located);
        EXPECT_EQ(fake.texts.empty(), !located);
        const Calls released = {"uni-del 4 7 serial 3/1", "uni-del 7 4 serial 1/3", "uni-del 9 7 serial 4/1"};
        EXPECT_EQ(drainCalls({"uni-"}), located ? released : Calls{}) << "in the order of the table";
    }
}

TEST(Lifecycle, MalformedLinkMessagesChangeNothing) {
    configureSeven();
    groupJoin(100, 2);
    const Bytes trunkJoin = attribute(DAX_RTA_TRUNK_JOIN, 0);
    std::vector<Bytes> datagrams;
    for (Bytes cut : {linkMessage(DAX_RTM_NEWLINK, 7, 0, trunkJoin), linkMessage(DAX_RTM_DELLINK, 7)}) {
        cut.resize(47);
        datagrams.push_back(claiming(47u, cut));
    }
    Bytes reset = linkMessage(DAX_RTM_IF_RESET, 7);
    reset.resize(32);  // complete: nothing behind the interface's number is needed
    datagrams.push_back(claiming(31u, reset));
    for (const uint16_t length : std::vector<uint16_t>{0, 3, 9, 0xFFFF}) {
        datagrams.push_back(linkMessage(DAX_RTM_NEWLINK, 7, 0, claiming(length, trunkJoin)));
    }
    for (const uint16_t length : std::vector<uint16_t>{4, 7}) {  // a member attribute without its number
        datagrams.push_back(
            linkMessage(DAX_RTM_NEWLINK, 100, 0, claiming(length, attribute(DAX_RTA_MEMBER_ADD, 9))));
    }
    // A header alone, behind which the datagram holds what would be a whole one.
    datagrams.push_back(claiming(24u, linkMessage(DAX_RTM_NEWLINK, 7, RT_CHANGE_REGISTER)));
    fake.calls.clear();
    fake.texts.clear();
    for (const Bytes& datagram : datagrams) deliver(datagram);
    EXPECT_EQ(fake.calls, Calls{});
    EXPECT_EQ(fake.texts, Calls{});
    // The interface's number is read behind the end of a message, as long as it is within the datagram.
    Bytes shortUnlink = plainMessage(DAX_RTM_DELLINK) + plainMessage(200);
    shortUnlink[28] = 7;
    deliver(shortUnlink);
    EXPECT_FALSE(fake.texts.empty());

    configureSeven();
    deliver(claiming(32u, reset));
    EXPECT_EQ(portIsolateIfGrpEntryGet(7, 2), nullptr);
}

}  // namespace
