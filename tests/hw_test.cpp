// Commands to the hardware: what is sent, in which order, and what a refusal leaves behind.
#include "daemon/hw/bi_isolation.h"
#include "daemon/hw/serial_transfer.h"
#include "daemon/hw/uni_isolation.h"
#include "daemon/tables/serials.h"
#include "tests/daemon_driver.h"

namespace {

TEST(Serials, AreFreedWithTheirDoublesAndMayRunOut) {
    startWatched(CATEGORY_WORK, {{"supportserial", "t"}, {"maxifnum", "8"}});
    uint32_t* table = gPortIsoInfo.serialTable;
    table[0] = table[2] = 50;
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
    EXPECT_EQ(portIsolateDelHwPhyUniIsolate(104, 9), 0);  // 9 has no number and is sent as 1
    EXPECT_EQ(drainCalls(), (Calls{"uni-add 3 104 serial 1/5", "uni-del 104 9 serial 5/1"}));
    EXPECT_EQ(table[4], 0u) << "nothing refers to 104";
}

TEST(Serials, ATableThatDoesNotFitItsRecordStaysHere) {
    for (const bool fits : {true, false}) {
        startWatched(CATEGORY_SERIAL, {{"maxifnum", fits ? "374" : "375"}});
        fake.serialSender = fake.serialReceiver = 1;
        uint32_t* table = gPortIsoInfo.serialTable;
        table[0] = 0x01020304;
        EXPECT_EQ(portIsolateSerialInfoSyncSend(), fits ? 0 : STATUS_FAILED);
        EXPECT_EQ(fake.texts, fits ? Calls{} : Calls{"debug 0/8 scalar sync send failed.(-1)\r\n"});
        EXPECT_EQ(drainCalls(), fits ? Calls{"mirror c00d key 0 control 80000103/0/1498"} : Calls{});
        Bytes bytes = fits ? fake.data : Bytes(1500, 9);
        EXPECT_EQ(
            std::memcmp(bytes.data(), "\1\0", 2) == 0 && std::memcmp(bytes.data() + 2, table, 1496) == 0,
            fits);
        table[0] = 0;
        // Taken by the receiver alone, and as the kind of record that it is.
        for (const auto& [receiver, kind, taken] : {std::tuple(0, 1, 0u), {1, 2, 0u}, {1, 1, 0x01020304u}}) {
            fake.serialReceiver = receiver;
            bytes[0] = static_cast<uint8_t>(kind);
            DataDesc record = {bytes.data(), static_cast<uint32_t>(bytes.size())};
            EXPECT_EQ(perform(OP_SCALAR_SYNC, nullptr, SCALAR_SERIAL_TABLE, &record), 0);
            EXPECT_EQ(table[0], fits ? taken : 0u);
        }
    }
}

}  // namespace
