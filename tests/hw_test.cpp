// Commands to the hardware: what is sent, in which order, and what a refusal leaves behind.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/hw/bi_isolation.h"
#include "daemon/hw/trunk_expansion.h"
#include "daemon/hw/uni_isolation.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/serials.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tests/fake_platform.h"
#include "wire/status.h"

namespace {

using Calls = std::vector<std::string>;

// Both switches on unless said otherwise.
void startSwitches(bool src, bool dst, bool serials = false) {
    ASSERT_EQ(startDaemon({{"portisolate.srcaggtoport", src ? "1" : "0"},
                           {"portisolate.dstaggtoport", dst ? "1" : "0"},
                           {"portisolate.supportserial", serials ? "t" : "f"},
                           {"portisolate.maxifnum", "8"}}),
              0);
    drainCalls();
}

uint32_t refByte(uint32_t src, uint32_t dst) {
    const PortIsolateIfInnerEntry* entry = portIsolateIfInnerEntryGet(src, dst);
    return entry == nullptr ? 0x100 : entry->ref[0];
}

TEST(BiIsolation, TheOrderOfAPairFollowsTheSwitchesAndTheAbility) {
    const struct {
        bool src, dst;
        uint32_t ability;  // of the second port
        const char* added;
        const char*
            deletedReverse;  // by a release that names the ports the other way round; empty: not found
    } cases[] = {
        {true, true, 1, "bi-add 3 7 grp 1", "bi-del 3 7 grp 1"},
        {true, true, 2, "bi-add 7 3 grp 1", "bi-del 3 7 grp 1"},
        {true, true, 3, "bi-add 7 3 grp 1", ""},
        {false, false, 1, "bi-add 3 7 grp 1 flag 0", "bi-del 3 7 grp 1 flag 0"},
        {true, false, 1, "bi-add 7 3 grp 1 flag 0", ""},
        {false, true, 2, "bi-add 7 3 grp 1 flag 0", "bi-del 3 7 grp 1 flag 0"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.added);
        startSwitches(row.src, row.dst);
        fake.interfaces[3].ability = row.ability;
        EXPECT_EQ(portIsolateAddPhyBiIsolate(1, 0, 7, 3), 0);
        EXPECT_EQ(drainCalls(), (Calls{row.added}));
        fake.interfaces[7].ability = row.ability;
        EXPECT_EQ(portIsolateDelPhyBiIsolate(1, 0, 3, 7), 0);
        EXPECT_EQ(drainCalls(), row.deletedReverse[0] == '\0' ? Calls{} : Calls{row.deletedReverse});
    }
}

TEST(BiIsolation, ASelfIsolationGivesWayToTheReleaseOfAPair) {
    startSwitches(false, false);
    for (const uint32_t self : {3u, 7u}) {
        EXPECT_EQ(portIsolateAddPhyBiIsolate(2, 0, self, self), 0);
        EXPECT_EQ(portIsolateAddPhyBiIsolate(4, 0, self, self), 0);
        EXPECT_EQ(portIsolateAddPhyBiIsolate(4, 0, 3, 7), 0);
        EXPECT_EQ(portIsolateDelPhyBiIsolate(4, 0, 3, 7), 0);
        EXPECT_TRUE(listIsEmpty(&gPortIsoInfo.ifInnerList)) << "group 2's claim goes with it";
    }
    EXPECT_EQ(drainCalls().size(), 6u);  // two adds and one delete each time: none for the self isolation
    startSwitches(false, false);
    fake.interfaces[3].ability = fake.interfaces[7].ability = 2;
    for (const auto& [first, second] : {std::pair{7u, 3u}, {7u, 7u}})
        portIsolateAddPhyBiIsolate(1, 0, first, second);
    EXPECT_EQ(portIsolateDelPhyBiIsolate(1, 0, 3, 7), 0);
    EXPECT_TRUE(listIsEmpty(&gPortIsoInfo.ifInnerList));
}

TEST(BiIsolation, RefusalsLeaveWhatTheModeSays) {
    startSwitches(true, true, true);
    failNth("daxIfSyncApi", 1, 77);
    EXPECT_EQ(portIsolateAddPhyBiIsolate(1, 0, 3, 7), 77);
    EXPECT_EQ(refByte(3, 7), 0x100u);
    EXPECT_EQ(gPortIsoInfo.serialTable[0] + gPortIsoInfo.serialTable[1], 0u);

    startSwitches(true, false, true);  // one-sided: the row comes first, and no serial numbers
    failNth("daxIfSyncApi", 1, 77);
    EXPECT_EQ(portIsolateAddPhyBiIsolate(1, 0, 7, 3), 77);
    EXPECT_EQ(drainCalls(), (Calls{"bi-add 7 3 grp 1 flag 0 = 77"}));
    EXPECT_EQ(refByte(7, 3), 0x80u);
    failNth("daxIfSyncApi", 1, 77);
    EXPECT_EQ(portIsolateDelPhyBiIsolate(1, 0, 7, 3), 0);
    EXPECT_EQ(refByte(7, 3), 0x100u);
}

TEST(Serials, AreFreedWithTheirDoublesAndMayRunOut) {
    startSwitches(true, true, true);
    uint32_t* table = gPortIsoInfo.serialTable;
    table[0] = table[2] = 50;
    portIsolateDebugMaskSet(CATEGORY_WORK);
    EXPECT_EQ(portIsolateSerialFree(0), STATUS_FAILED);
    EXPECT_EQ(portIsolateSerialFree(50), 0);
    EXPECT_EQ(fake.texts,
              (Calls{"debug 5/2 free 0; interface if50\r\n", "debug 5/2 free 2; interface if50\r\n"}));

    for (uint32_t i = 1; i < 8; ++i) table[i] = 100 + i;
    EXPECT_EQ(portIsolateAddPhyBiIsolate(1, 0, 3, 7), STATUS_FAILED);
    EXPECT_EQ(portIsolateAddHwPhyUniIsolate(3, 7), STATUS_FAILED);
    EXPECT_EQ(table[0], 0u);
    EXPECT_TRUE(fake.calls.empty());
    EXPECT_EQ(portIsolateAddHwPhyUniIsolate(3, 104), 0);
    EXPECT_EQ(drainCalls(), (Calls{"uni-add 3 104 serial 1/5"}));
    EXPECT_EQ(portIsolateDelHwPhyUniIsolate(104, 9), 0);  // 9 has no number and is sent as 1
    EXPECT_EQ(drainCalls(), (Calls{"uni-del 104 9 serial 5/1"}));
    EXPECT_EQ(table[4], 0u) << "nothing refers to 104";
}

TEST(Serials, ATableThatDoesNotFitItsRecordStaysHere) {
    ASSERT_EQ(startDaemon({{"portisolate.maxifnum", "375"}}), 0);
    fake.serialSender = fake.serialReceiver = 1;
    portIsolateDebugMaskSet(CATEGORY_SERIAL);
    drainCalls();
    EXPECT_EQ(portIsolateSerialInfoSyncSend(), STATUS_FAILED);
    EXPECT_EQ(fake.texts, (Calls{"debug 0/8 scalar sync send failed.(-1)\r\n"}));
    uint8_t bytes[34] = {1, 0, 9};
    const DataDesc record = {bytes, sizeof(bytes)};
    EXPECT_EQ(portIsolateSerialInfoSyncParse(&record), 0);
    EXPECT_EQ(gPortIsoInfo.serialTable[0], 0u);
}

// Pairs of ports, source by source, that an isolation of two interfaces comes to.
std::string pairsOf(const Calls& calls) {
    std::string pairs;
    for (const std::string& call : calls) {
        uint32_t src = 0;
        uint32_t dst = 0;
        if (std::sscanf(call.c_str() + call.find(' '), "%u %u", &src, &dst) != 2)
            return "unreadable: " + call;
        pairs += std::to_string(src) + ">" + std::to_string(dst) + " ";
    }
    return pairs;
}

TEST(TrunkExpansion, UnderAllSettingsOfTheSwitches) {
    const struct {
        uint32_t src, dst;
        const char* bi[4];   // switches: both, source only, target only, none
        const char* uni[2];  // source switch on, off
    } cases[] = {
        {1, 2, {"1>2 ", "1>2 ", "1>2 ", "1>2 "}, {"1>2 ", "1>2 "}},
        {1, 100, {"1>21 1>22 ", "1>100 ", "1>21 1>22 ", "1>100 "}, {"1>21 1>22 ", "1>21 1>22 "}},
        {100, 50, {"21>50 22>50 ", "21>50 22>50 ", "100>50 ", "100>50 "}, {"21>50 22>50 ", "100>50 "}},
        {100,
         200,
         {"21>31 21>32 21>33 22>31 22>32 22>33 ", "21>200 22>200 ", "100>31 100>32 100>33 ", "100>200 "},
         {"21>31 21>32 21>33 22>31 22>32 22>33 ", "100>31 100>32 100>33 "}},
        {1, 300, {"", "1>300 ", "", "1>300 "}, {"", ""}},
    };
    for (const auto& row : cases) {
        for (int mode = 0; mode < 4; ++mode) {
            const bool src = mode == 0 || mode == 1;
            const bool dst = mode == 0 || mode == 2;
            SCOPED_TRACE(testing::Message() << row.src << " " << row.dst << " mode " << mode);
            startSwitches(src, dst);
            for (auto& [unit, interface] : fake.interfaces) interface.ability = 3;
            fake.interfaces[50].ability = fake.interfaces[2].ability = 3;
            EXPECT_EQ(portIsolateAddHwIfBiIsolate(1, 0, row.src, row.dst), 0);
            const std::string added = pairsOf(drainCalls());
            EXPECT_EQ(added, row.bi[mode]);
            EXPECT_EQ(portIsolateDelHwIfBiIsolate(1, 0, row.src, row.dst), 0);
            EXPECT_EQ(pairsOf(drainCalls()), row.bi[mode]);
            EXPECT_EQ(portIsolateAddHwIfUniIsolate(row.src, row.dst), 0);
            EXPECT_EQ(pairsOf(drainCalls()), row.uni[src ? 0 : 1]);
            EXPECT_EQ(portIsolateDelHwIfUniIsolate(row.src, row.dst), 0);
            EXPECT_EQ(pairsOf(drainCalls()), row.uni[src ? 0 : 1]);
        }
    }
}

TEST(TrunkExpansion, FailuresStopBiAndNotUni) {
    startSwitches(true, true);
    portIsolateDebugMaskSet(CATEGORY_WORK);
    failNth("daxIfSyncApi", 2, 45);
    EXPECT_EQ(portIsolateAddHwIfBiIsolate(1, 0, 1, 200), 45);
    EXPECT_EQ(pairsOf(drainCalls()), "1>31 1>32 ");
    failNth("daxIfSyncApi", 1, 45);
    EXPECT_EQ(portIsolateAddHwIfUniIsolate(1, 200), 0);
    EXPECT_EQ(pairsOf(drainCalls()), "1>31 1>32 1>33 ");
    failNth("daxIfGetApi", 2, 46);  // the flags cannot be read: the trunk is treated as a port
    EXPECT_EQ(portIsolateAddHwIfBiIsolate(1, 0, 1, 200), 0);
    EXPECT_EQ(pairsOf(drainCalls()), "1>200 ");
    fake.interfaces[400].flags = DAX_IF_FLAG_TRUNK;
    fake.interfaces[400].members.assign(128, 5);
    EXPECT_EQ(portIsolateAddHwIfUniIsolate(1, 400), 0);
    EXPECT_EQ(drainCalls().size(), 128u);
}

// What the hardware and the peer board read is bytes: in the board's own order, each field in its place.
TEST(ByteImages, OnBothByteOrders) {
    ASSERT_EQ(startDaemon({{"portisolate.supportserial", "t"},
                           {"portisolate.maxifnum", "3"},
                           {"portisolate.maxisogrpnum", "600"}}),
              0);
    constexpr uint32_t SRC = 0x11223344;
    constexpr uint32_t DST = 0x55667788;
    ASSERT_EQ(vlanGroupJoin(SRC, 0x102, 0xABC) | vlanGroupJoin(DST, 0x102, 0xABC), 0);
    const Bytes command = fake.data;
    fake.serialSender = 1;
    deliver(plainMessage(DAX_RTM_SERIAL_SYNC));
    const Bytes zeros(44);
    const struct {
        const char* what;
        Bytes seen;
        Bytes big;
        Bytes little;
    } images[] = {
        {"isolation command",
         command,
         {0x55, 0x66, 0x77, 0x88, 0, 1, 0, 2, 0, 0, 0x0A, 0xBC, 0, 0, 1, 2, 0, 1, 0, 0, 0, 0, 0, 0},
         {0x88, 0x77, 0x66, 0x55, 1, 0, 2, 0, 0, 0, 0xBC, 0x0A, 2, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}},
        {"serial table",
         fake.data,
         {1, 0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0, 0, 0, 0},
         {1, 0, 0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55, 0, 0, 0, 0}},
        {"control block", fake.control,
         Bytes{0x80, 0, 1, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 14} + zeros,
         Bytes{3, 1, 0, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 14, 0, 0, 0} + zeros},
    };
    for (const auto& image : images) {
        EXPECT_EQ(image.seen, std::endian::native == std::endian::big ? image.big : image.little)
            << image.what;
    }
}

}  // namespace
