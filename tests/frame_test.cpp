// The frame: primitives, options, initialisation and its failures, the walk of datagrams, output.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/event_task.h"
#include "frame/options.h"
#include "frame/report.h"
#include "frame/state.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tables/groups.h"
#include "tables/pairs.h"
#include "tables/ports.h"
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

TEST(List, DeletingAnUnlinkedNodeTouchesNothing) {
    ListNode head;
    ListNode a = {};
    ListNode b = {};
    listInit(&head);
    listMove(&a, &head);
    listMove(&b, head.prev);
    EXPECT_EQ(head.next, &a);
    EXPECT_EQ(head.prev, &b);
    listDel(&a);
    EXPECT_EQ(head.next, &b);
    EXPECT_EQ(a.next, &b);
    listDel(&b);
    EXPECT_TRUE(listIsEmpty(&head));
}

TEST(Options, DefaultsAndParsing) {
    ASSERT_EQ(startDaemon(), 0);
    const PortIsoInfo& info = gPortIsoInfo;
    EXPECT_EQ(info.maxPortNum, 64u);
    EXPECT_EQ(info.maxPortNumPerGrp, 64u);
    EXPECT_EQ(info.maxIsoGrpNum, 16u);
    EXPECT_EQ(info.maxUniIsoPortNum, 64u);
    EXPECT_EQ(info.isSrcTrunkToPort + info.isDstTrunkToPort + info.isSupportSerial, 2u);
    EXPECT_EQ(info.mode, 2u);
    EXPECT_EQ(info.debugMask, 1u);
    EXPECT_EQ(std::memcmp(info.modeAbility, "\x60\0\0\0", 4), 0);
    EXPECT_EQ(info.slotCheck, 0);
    EXPECT_EQ(info.vlanGroupEnable, 2);
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

std::vector<std::string> startCalls(size_t ref) {
    return {"pool portisolate_group 1024 x " + std::to_string(sizeof(PortIsolateIfGrpEntry)) + " option 0",
            "pool portisolate_vlangroup 1024 x " + std::to_string(sizeof(PortIsolateIfVlanGrpEntry)) +
                " option 0",
            "pool portisolate_port 64 x " + std::to_string(sizeof(PortIsolatePortEntry)) + " option 0",
            "pool portisolate_pair 4096 x " + std::to_string(sizeof(PortIsolateIfPairEntry)) + " option 0",
            "pool portisolate_ref 4096 x " + std::to_string(ref) + " option 0",
            "pool portisolate_ifserial 64 x 4 option 3",
            "socket 16 2 0",
            "bind 7 family 16 length 12",
            "setsockopt 7 270 1 34",
            "setsockopt 7 270 1 33",
            "setsockopt 7 270 1 35",
            "setsockopt 7 270 1 1",
            "setsockopt 7 270 1 85",
            "setsockopt 7 270 1 42",
            "setsockopt 7 65535 4121 198",
            "task portisolatetask 50 65536",
            "command server portisolatecmdtask /tmp/portisolatecmd.socket 24",
            "mode 2 attr 221 flag 1",
            "scalar 499 = 198 length 0"};
}

TEST(Init, RunsItsStepsInOrder) {
    ASSERT_EQ(startDaemon(), 0);
    EXPECT_EQ(fake.calls, startCalls(2));
    ASSERT_EQ(startDaemon({{"portisolate.maxisogrpnum", "17"}}), 0);
    EXPECT_EQ(fake.calls[4], "pool portisolate_ref 4096 x 3 option 0");
}

TEST(Init, EveryFailureReleasesWhatStoodAndSaysWhatFailed) {
    const struct {
        const char* call;
        uint32_t nth;
        const char* text;  // empty: none
        size_t calls;      // of the start, up to the failing one
    } cases[] = {
        {"silMemPoolInit portisolate_group", 1, "init if group table failed\n\r", 0},
        {"silMemPoolInit portisolate_vlangroup", 1, "init if vlan group table failed\n\r", 1},
        {"silMemPoolInit portisolate_port", 1, "init port table failed\n\r", 2},
        {"silMemPoolInit portisolate_pair", 1, "init if pair table failed\n\r", 3},
        {"silCreateBSem", 1, "init sem failed\n\r", 4},
        {"silMemPoolInit portisolate_ref", 1, "", 4},
        {"silMemPoolInit portisolate_ifserial", 1, "", 5},
        {"dax_socket", 1, "create route socket failed.(99)\n\r", 7},
        {"dax_bind", 1, "route socket bind failed.(99)\n\r", 8},
        {"dax_setsockopt", 1, "route socket add slot member option failed.(99)\n\r", 9},
        {"dax_setsockopt", 2, "route socket add card member option failed.(99)\n\r", 10},
        {"dax_setsockopt", 3, "route socket add system member option failed.(99)\n\r", 11},
        {"dax_setsockopt", 4, "route socket add link member option failed.(99)\n\r", 12},
        {"dax_setsockopt", 5, "route socket add vlan member option failed.(99)\n\r", 13},
        {"dax_setsockopt", 6, "route socket add system group failed.(99)\n\r", 14},
        {"dax_setsockopt", 7, "route socket set name failed.(99)\n\r", 15},
        {"silCreateTask", 1, "create task failed\n\r", 16},
    };
    const char* pools[] = {"ref", "pair", "group", "port", "vlangroup", "ifserial"};
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.call) + " " + std::to_string(row.nth));
        failNth(row.call, row.nth, 5);
        EXPECT_EQ(startDaemon(), -1);
        fake.fault = nullptr;
        std::vector<std::string> calls = drainCalls();
        ASSERT_GE(calls.size(), row.calls);
        std::set<std::string> made(calls.begin(), calls.begin() + static_cast<ptrdiff_t>(row.calls));
        calls.erase(calls.begin(), calls.begin() + static_cast<ptrdiff_t>(row.calls));

        std::vector<std::string> cleanUp;
        if (row.calls > 7) cleanUp.emplace_back("close 7");
        if (row.calls > 4 || std::string(row.call) == "silMemPoolInit portisolate_ref") {
            cleanUp.emplace_back("semaphore deleted");
        }
        for (const char* pool : pools) {
            const std::string head = std::string("pool portisolate_") + pool + " ";
            for (const std::string& call : made) {
                if (call.rfind(head, 0) == 0) cleanUp.push_back(head + "destroyed");
            }
        }
        EXPECT_EQ(calls, cleanUp);
        std::vector<std::string> texts;
        if (row.text[0] != '\0') texts.push_back(std::string("debug 0/1 ") + row.text);
        EXPECT_EQ(fake.texts, texts);
        EXPECT_EQ(gPortIsoInfo.rtSock, -1);
        EXPECT_EQ(gPortIsoInfo.mutex, nullptr);
    }
}

TEST(Init, WhatFailsAfterTheTaskIsNoFailure) {
    fake.fault = [](const std::string& call) {
        return call == "icmProcTcpInit" || call == "daxScalarSetApi" ? 5 : 0;
    };
    EXPECT_EQ(startDaemon(), 0);
    fake.fault = nullptr;
    EXPECT_EQ(fake.calls.size(), startCalls(2).size());
    EXPECT_TRUE(fake.texts.empty());  // the category of that report is off at the start
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

TEST(EventTask, ACardStartsEvenWhenTheModeIsRefused) {
    ASSERT_EQ(startDaemon(), 0);
    ASSERT_EQ(ponSet(20, PON_ISOLATION_OFF), 0);
    portIsolateDebugMaskSet(CATEGORY_EVENT);
    drainCalls();
    failNth("daxScalarSetApi", 1, 31);
    deliver(plainMessage(DAX_RTM_CARD_UP, Bytes(16)));
    EXPECT_EQ(drainCalls(),
              (std::vector<std::string>{"mode 2 attr 221 flag 1 = 31", "pon 20 state 2 control 90000000/4/5",
                                        "card-done 0 protocol 198"}));
    EXPECT_EQ(fake.texts, (std::vector<std::string>{"debug 3/4 DAX_RTM_CARD_UP:0/0/0\r\n",
                                                    "debug 3/4 set port-isolate mode failed.(2,31)\n\r"}));
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
