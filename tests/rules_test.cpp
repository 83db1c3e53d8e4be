// Who may join: the slot rule.
#include "daemon/rules/admission.h"

#include "tests/daemon_driver.h"

namespace {

TEST(Admission, ThreeWordsOfALocationTellTheSlot) {
    ASSERT_EQ(startDaemon(), 0);
    portIsolateIfGrpEntryAdd(6, 2);
    portIsolateIfVlanGrpEntryAdd(5, 10, 3);
    for (size_t word = 0; word < 8; ++word) {
        fake.interfaces[6].location = {};
        fake.interfaces[6].location[word] = 8;
        const bool places = word == 0 || word == 1 || word == 6;
        EXPECT_EQ(portIsolateSlotCheck(1, 2), places ? STATUS_OTHER_SLOT : 0) << word;
        EXPECT_EQ(portIsolateSlotCheck(1, 3), 0) << "a VLAN group";
    }
    failNth("daxIndexTrans", 2, 9);
    EXPECT_EQ(portIsolateSlotCheck(1, 2), STATUS_FAILED);
}

}  // namespace
