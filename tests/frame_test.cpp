// The frame: primitives, options, initialisation and its failures, the walk of datagrams, output.
#include <gtest/gtest.h>

#include <cstring>

#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/start/event_task.h"
#include "daemon/start/options.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tests/fake_platform.h"

namespace {

TEST(BitList, LastAndEmptyAgreeWithTheBitsOneByOne) {
    const std::vector<std::vector<uint32_t>> cases = {{},  {0},      {1, 2},       {7},
                                                      {8}, {12, 14}, {15, 16, 23}, {30}};
    for (const auto& bits : cases) {
        uint8_t list[4] = {};
        for (const uint32_t n : bits) bitListSet(list, n);
        for (uint32_t length = 0; length <= 32; ++length) {
            uint32_t last = 0;
            for (uint32_t n = 0; n < length; ++n) last = bitListTest(list, n) != 0 ? n + 1 : last;
            EXPECT_EQ(bitListLast(list, length), last) << length;
            EXPECT_EQ(bitListIsEmpty(list, length), last == 0 ? 1 : 0) << length;
        }
        for (const uint32_t n : bits) bitListClear(list, n);
        EXPECT_EQ(bitListIsEmpty(list, 32), 1);
    }
    uint8_t first[1] = {};
    bitListSet(first, 0);
    EXPECT_EQ(first[0], 0x80);
}

TEST(Options, AreReadLeniently) {
    const PortIsoInfo& info = gPortIsoInfo;
    ASSERT_EQ(startDaemon(), 0);
    EXPECT_EQ(info.debugMask, 1u);
    EXPECT_EQ(info.multiGroupCheck, 2);
    ASSERT_EQ(startDaemon({{"portisolate.maxifnum", "7"},
                           {"portisolate.maxifnumpergrp", "x"},
                           {"portisolate.maxisogrpnum", "0"},
                           {"portisolate.maxuniisoportnum", " 0"},
                           {"portisolate.srcaggtoport", "2"},
                           {"portisolate.dstaggtoport", " +3rest"},
                           {"portisolate.supportserial", "True"},
                           {"portisolate.modeability", "0110000000000000000000000000001"},
                           {"portisolate.defaultmode", "1"},
                           {"portisolate.slotcheckenable", "yes"},
                           {"portisolate.vlangroupenable", "t"},
                           {"portisolate.allowjoinmultigroupperport", "FALSE"},
                           {"portisolate.enable", "0"}}),
              0);
    EXPECT_EQ(info.maxPortNumPerGrp, 7u);
    EXPECT_EQ(info.maxIsoGrpNum, 64u);
    EXPECT_EQ(info.maxUniIsoPortNum, 30u);
    EXPECT_EQ(info.isSrcTrunkToPort, 0u);
    EXPECT_EQ(info.isDstTrunkToPort, 1u);
    EXPECT_EQ(info.isSupportSerial, 1u);
    EXPECT_EQ(std::memcmp(info.modeAbility, "\x30\0\0\x01", 4), 0);
    EXPECT_EQ(info.defaultMode, 1u);
    EXPECT_EQ(info.slotCheck, 0);
    EXPECT_EQ(info.vlanGroupEnable, 1);
    EXPECT_EQ(info.multiGroupCheck, 1);

    ASSERT_EQ(startDaemon({{"portisolate.modeability", "000"}}), 0);
    EXPECT_EQ(info.modeAbility[0], 0);
    EXPECT_EQ(startDaemon({{"portisolate.enable", "false"}}), -1);
    EXPECT_TRUE(fake.calls.empty());
    EXPECT_EQ(startDaemon({{"portisolate.maxifnum", "-1"}}), -1);
    EXPECT_EQ(startDaemon({{"portisolate.maxifnum", "0"}}), -1);
}

TEST(Init, RunsItsStepsInOrder) {
    ASSERT_EQ(startDaemon(), 0);
    const auto pool = [](const char* name, uint32_t count, size_t size) {
        return std::string("pool portisolate_") + name + " " + std::to_string(count) + " x " +
               std::to_string(size);
    };
    EXPECT_EQ(fake.calls,
              (std::vector<std::string>{
                  pool("group", 1024, sizeof(PortIsolateIfGrpEntry)) + " option 0",
                  pool("vlangroup", 1024, sizeof(PortIsolateIfVlanGrpEntry)) + " option 0",
                  pool("port", 64, sizeof(PortIsolatePortEntry)) + " option 0",
                  pool("pair", 4096, sizeof(PortIsolateIfPairEntry)) + " option 0",
                  pool("ref", 4096, 2) + " option 0", pool("ifserial", 64, 4) + " option 3", "socket 16 2 0",
                  "bind 7 family 16 length 12", "setsockopt 7 270 1 34", "setsockopt 7 270 1 33",
                  "setsockopt 7 270 1 35", "setsockopt 7 270 1 1", "setsockopt 7 270 1 85",
                  "setsockopt 7 270 1 42", "setsockopt 7 65535 4121 198", "task portisolatetask 50 65536",
                  "command server portisolatecmdtask /tmp/portisolatecmd.socket 24", "mode 2 attr 221 flag 1",
                  "scalar 499 = 198 length 0"}));
    ASSERT_EQ(startDaemon({{"portisolate.maxisogrpnum", "17"}}), 0);
    EXPECT_EQ(fake.calls[4], pool("ref", 4096, 3) + " option 0");
}

TEST(EventTask, WalksMessagesOfADatagramAtMultiplesOfFour) {
    ASSERT_EQ(startDaemon(), 0);
    drainCalls();
    Bytes odd = plainMessage(200, Bytes(6));  // 30 bytes, skipped
    Bytes card(16);
    card[12] = 4;
    const Bytes datagram = odd + plainMessage(DAX_RTM_MODE_REFRESH) + plainMessage(DAX_RTM_CARD_UP, card);
    fake.datagrams = {datagram, plainMessage(DAX_RTM_MODE_REFRESH)};
    const uint32_t takes = fake.semTakes;
    runTask();
    uint32_t last = 0;
    std::memcpy(&last, card.data() + 12, 4);
    const std::string mode = "mode 2 attr 221 flag 1";
    EXPECT_EQ(drainCalls(), (std::vector<std::string>{
                                mode, mode, "card-done " + std::to_string(last) + " protocol 198", mode}));
    EXPECT_EQ(fake.semTakes, takes + 2);
}

TEST(EventTask, TheFirstMalformedMessageEndsTheWalk) {
    ASSERT_EQ(startDaemon(), 0);
    for (const uint32_t length : {0u, 20u, 23u, 49u, 0x80000000u, 0xFFFFFFFFu}) {
        Bytes bad = plainMessage(DAX_RTM_MODE_REFRESH);
        std::memcpy(bad.data(), &length, sizeof(length));
        drainCalls();
        deliver(plainMessage(DAX_RTM_MODE_REFRESH) + bad + plainMessage(DAX_RTM_MODE_REFRESH));
        // 49 covers the two messages that are left and one byte that is not there.
        EXPECT_EQ(drainCalls().size(), 1u) << length;
    }
    deliver(Bytes(23));
    deliver(plainMessage(DAX_RTM_CARD_UP, Bytes(15)));
    deliver(plainMessage(DAX_RTM_IF_RESET, Bytes(23)));
    EXPECT_TRUE(fake.calls.empty());
}

TEST(Report, TheMaskFiltersDebugTextsAndNoLogTexts) {
    ASSERT_EQ(startDaemon(), 0);
    portIsolateDebugMaskSet(6);
    portIsolateDebug(0, 1, "no");
    portIsolateDebug(3, 4, "yes %d\n\r", 1);
    portIsolateDebugMaskSet(0);
    portIsolateDebug(5, 0xFFFFFFFF, "no");
    portIsolateLog(7, "%s", std::string(300, 'x').c_str());
    EXPECT_EQ(fake.texts,
              (std::vector<std::string>{"debug 3/4 yes 1\n\r", "log 7 " + std::string(255, 'x')}));
    const uint8_t priorities[8] = {5, 2, 5, 6, 3, 7, 5, 5};
    EXPECT_EQ(std::memcmp(gPortIsolateLogPri, priorities, sizeof(priorities)), 0);
    EXPECT_STREQ(protoId2Name(198), "port-isolate");
    EXPECT_STREQ(protoId2Name(384), "max-proto");
    EXPECT_STREQ(protoId2Name(385), "unknown");
}

}  // namespace
