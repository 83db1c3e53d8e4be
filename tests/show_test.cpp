// The printouts, text by text.
#include "daemon/show/show.h"

#include "tests/daemon_driver.h"

namespace {

std::string printed(void (*show)()) {
    testing::internal::CaptureStdout();
    show();
    return testing::internal::GetCapturedStdout();
}

TEST(Show, EveryTable) {
    ASSERT_EQ(startDaemon({{"maxifnum", "3"}, {"supportserial", "t"}}), 0);
    for (uint8_t byte = 1; byte < 4; ++byte) gPortIsoInfo.modeAbility[byte] = byte;
    char mutex[32];
    std::snprintf(mutex, sizeof(mutex), "%p", gPortIsoInfo.mutex);
    const std::string global =
        "\r\n[PORT-ISOLATE] global info:\n\r maxPortNum: 3\n\r maxIsoGrpNum: 16\n\r maxPortNumPerGrp: 64\n\r"
        " maxUniIsoPortNum: 64\n\r mode: 2\n\r mutex: " +
        std::string(mutex) +
        "\n\r rtSock: 7\n\r isSrcTrunkToPort: 1\n\r isDstTrunkToPort: 1\n\r isSupportSerial: 1\n\r"
        " modeAbility: [0]96,[1]1,[2]2,[3]3.\n\r defaultMode: 2\n\r slotCheck: 0\n\r vlanGroupEnable: 2\n\r";
    EXPECT_EQ(printed(portIsolateGlobalShow), global);
    EXPECT_EQ(printed(portIsolateIfPairShow), "\r\n[PORT-ISOLATE] if pair info:\n\r");
    for (uint32_t vlan = 1; vlan < 100; vlan += 2) ponSet(vlan, PON_ISOLATION_OFF);
    for (const uint32_t vlan : {2u, 4094u, 4095u}) ponSet(vlan, PON_ISOLATION_OFF);
    const std::string vlans = printed(portIsolateGlobalShow).substr(global.size());
    EXPECT_EQ(vlans.substr(0, vlans.find("\r\n")),
              " p2pEnableVlan: "
              "1-3,5,7,9,11,13,15,17,19,21,23,25,27,29,31,33,35,37,39,41,43,45,47,49,51,53,55,57,59,61,"
              "63,65,67,69,71");
    EXPECT_EQ(vlans.substr(vlans.find("\r\n") + 2),
              " p2pEnableVlan: 73,75,77,79,81,83,85,87,89,91,93,95,97,99,4094-4095\r\n");
    ponSet(4095, PON_ISOLATION_ON);
    EXPECT_TRUE(printed(portIsolateGlobalShow).ends_with(",99,4094\r\n"));

    groupJoin(1, 3);
    groupJoin(2, 3);
    vlanGroupSet(ROW_CREATE, 4, 5, 10);
    pairSet(ROW_CREATE, 1, 7);
    EXPECT_EQ(printed(portIsolateSerialShow),
              "\r\n[PORT-ISOLATE] serial info:\n\rserial 0 -> ifunit:1\r\nserial 1 -> ifunit:2\r\n"
              "serial 2 -> ifunit:0\r\n");
    EXPECT_EQ(printed(portIsolateGrpShow),
              "\r\n[PORT-ISOLATE] if group info:\n\r  isoGrpNo 3 -> ifunit:1\r\n  isoGrpNo 3 -> ifunit:2\r\n"
              "\r\n[PORT-ISOLATE] if vlan group info:\n\r  isoGrpNo 5 vlan 10 -> ifunit:4\r\n");
    EXPECT_EQ(printed(portIsolateIfPairShow),
              "\r\n[PORT-ISOLATE] if pair info:\n\r  src 1, dst 7, ref:\r\n00 00 \r\n");
    EXPECT_EQ(printed(portIsolateIfInnerShow),
              "\r\n[PORT-ISOLATE] if inner info:\n\r  src 1, dst 2, ref:\r\n20 00 \r\n");
    EXPECT_EQ(printed(portIsolatePortShow),
              "\r\n[PORT-ISOLATE] port info:\n\r  ifUnit:1\r\n  ifUnit:2\r\n  ifUnit:4\r\n");

    ASSERT_EQ(startDaemon({{"maxisogrpnum", "200"}}), 0);
    pairSet(ROW_CREATE, 1, 7);
    std::string line;
    for (int i = 0; i < 16; ++i) line += "00 ";
    EXPECT_EQ(printed(portIsolateIfPairShow), "\r\n[PORT-ISOLATE] if pair info:\n\r  src 1, dst 7, ref:\r\n" +
                                                  line + "\r\n" + line.substr(0, 27) + "\r\n");
}

}  // namespace
