// Options, initialisation, and the event task's walk of datagrams.
#include "daemon/tables/ports.h"
#include "tests/daemon_driver.h"

namespace {

TEST(Options, AreReadLeniently) {
    const PortIsoInfo& info = gPortIsoInfo;
    ASSERT_EQ(startDaemon(), 0);
    EXPECT_EQ(info.debugMask, 1u);
    EXPECT_EQ(info.multiGroupCheck, 2);
    ASSERT_EQ(startDaemon({{"maxifnum", "7"},
                           {"maxifnumpergrp", "x"},
                           {"maxisogrpnum", "010"},
                           {"maxuniisoportnum", " 0"},
                           {"srcaggtoport", "2"},
                           {"dstaggtoport", " +3rest"},
                           {"supportserial", "True"},
                           {"modeability", "0110000000000000000000000000001"},
                           {"defaultmode", "1"},
                           {"slotcheckenable", "yes"},
                           {"vlangroupenable", "t"},
                           {"allowjoinmultigroupperport", "FALSE"},
                           {"enable", "0"}}),
              0);
    const std::vector<uint32_t> read = {info.maxPortNumPerGrp, info.maxIsoGrpNum,     info.maxUniIsoPortNum,
                                        info.isSrcTrunkToPort, info.isDstTrunkToPort, info.isSupportSerial,
                                        info.defaultMode,      info.slotCheck,        info.vlanGroupEnable,
                                        info.multiGroupCheck};
    EXPECT_EQ(read, (std::vector<uint32_t>{7, 10, 30, 0, 1, 1, 1, 0, 1, 1}));
    EXPECT_EQ(std::memcmp(info.modeAbility, "\x30\0\0\x01", 4), 0);

    ASSERT_EQ(startDaemon({{"modeability", "000"}, {"maxisogrpnum", "0"}}), 0);
    EXPECT_EQ(info.modeAbility[0], 0);
    EXPECT_EQ(info.maxIsoGrpNum, 64u);
    EXPECT_EQ(startDaemon({{"enable", "false"}}), -1);
    EXPECT_TRUE(fake.calls.empty());
    for (const char* ports : {"-1", "0"}) EXPECT_EQ(startDaemon({{"maxifnum", ports}}), -1);
    EXPECT_EQ(startDaemon({{"maxifnumpergrp", "65537"}, {"maxisogrpnum", "65536"}}), -1)
        << "more than 32 bits hold";
}

TEST(Init, RunsItsStepsInOrder) {
    ASSERT_EQ(startDaemon({{"maxisogrpnum", "17"}}), 0);
    const auto pool = [](const char* name, uint32_t count, size_t size, uint32_t option = 0) {
        return words("pool portisolate_%s %u x %zu option %u", name, count, size, option);
    };
    EXPECT_EQ(fake.calls, (Calls{pool("group", 1088, sizeof(PortIsolateIfGrpEntry)),
                                 pool("vlangroup", 1088, sizeof(PortIsolateIfVlanGrpEntry)),
                                 pool("port", 64, sizeof(PortIsolatePortEntry)),
                                 pool("pair", 4096, sizeof(PortIsolateIfPairEntry)),
                                 "semaphore",
                                 pool("ref", 4096, 3),
                                 pool("ifserial", 64, 4, 3),
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
                                 "scalar 499 = 198 length 0"}));
}

TEST(EventTask, WalksMessagesOfADatagramAtMultiplesOfFour) {
    startWatched(CATEGORY_EVENT);
    const std::string mode = "mode 2 attr 221 flag 1";
    const Bytes odd = plainMessage(200, Bytes(6));  // 30 bytes, skipped
    const Bytes refresh = plainMessage(DAX_RTM_MODE_REFRESH);
    const Bytes card = plainMessage(DAX_RTM_CARD_UP, bytesOf(RtCardInfo{{1, 2, 3, 4}}));
    fake.datagrams = {odd + refresh + card, {}, refresh};
    const uint32_t takes = fake.semTakes;
    testing::internal::CaptureStderr();
    runTask();
    EXPECT_TRUE(
        testing::internal::GetCapturedStderr().starts_with("\n\r[portIsolate] recvfrom rtSock failed"));
    EXPECT_EQ(drainCalls(), (Calls{mode, mode, "card-done 4 protocol 198", mode}));
    EXPECT_EQ(fake.texts, Calls{"debug 3/4 DAX_RTM_CARD_UP:1/2/3\r\n"});
    EXPECT_EQ(fake.semTakes, takes + 2);
}

}  // namespace
