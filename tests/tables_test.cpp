// Admission checks, and the programming of groups with its rollbacks.
#include <gtest/gtest.h>

#include <regex>

#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/rules/admission.h"
#include "daemon/rules/programming.h"
#include "daemon/tables/groups.h"
#include "tests/fake_platform.h"
#include "wire/status.h"

namespace {

using Calls = std::vector<std::string>;

TEST(Admission, SlotAndGroupChecks) {
    ASSERT_EQ(startDaemon(), 0);
    EXPECT_EQ(portIsolateSlotCheck(1, 2), 0);
    portIsolateIfGrpEntryAdd(5, 2);
    portIsolateIfGrpEntryAdd(6, 2);
    portIsolateIfVlanGrpEntryAdd(1, 10, 3);
    for (const size_t word : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u}) {
        fake.interfaces[6].location = {};
        fake.interfaces[6].location[word] = 8;
        const bool places = word == 0 || word == 1 || word == 6;
        EXPECT_EQ(portIsolateSlotCheck(1, 2), places ? STATUS_OTHER_SLOT : 0) << word;
    }
    failNth("daxIndexTrans", 2, 9);
    EXPECT_EQ(portIsolateSlotCheck(1, 2), STATUS_FAILED);
    EXPECT_EQ(portIsolateMultiGroupCheck(5, 2), 0);
    EXPECT_EQ(portIsolateMultiGroupCheck(5, 3), STATUS_OTHER_GROUP);
    EXPECT_EQ(portIsolateMultiGroupCheck(1, 2), 0);
    EXPECT_EQ(portInAG(21), 0x10u);
    failNth("daxIfGetApi", 1, 9);
    EXPECT_EQ(portInAG(21), 0u);
}

// A walk as "+M>E" (added) and "-M>E" (released).
std::string walkOf(const Calls& texts) {
    static const std::regex call(
        R"(^debug 5/2 (add|del) hw-if bi-isolate \[src: if(\d+), target: if(\d+)\])");
    std::string walk;
    std::smatch match;
    for (const std::string& text : texts) {
        if (!std::regex_search(text, match, call)) continue;
        walk += (match[1] == "add" ? "+" : "-") + match.str(2) + ">" + match.str(3) + " ";
    }
    return walk;
}

struct PlainGroup {
    static constexpr auto add = [](uint32_t ifUnit) { return portIsolateIfGrpEntryAdd(ifUnit, 5); };
    static constexpr auto validate = portIsolateIfGrpEntryValid;
    static constexpr auto release = portIsolateIfGrpEntryDel;
};
struct VlanGroup {
    static constexpr auto add = [](uint32_t ifUnit) { return portIsolateIfVlanGrpEntryAdd(ifUnit, 10, 5); };
    static constexpr auto validate = portIsolateIfVlanGrpEntryValid;
    static constexpr auto release = portIsolateIfVlanGrpEntryDel;
};

template <typename Group>
class GroupProgramming : public testing::Test {};
using BothTables = testing::Types<PlainGroup, VlanGroup>;
TYPED_TEST_SUITE(GroupProgramming, BothTables);

// Members 1, 2, 3 and the entry; the nth hardware-interface call of the walk is refused by its ability read,
// so that what was done before can be seen in the texts.
TYPED_TEST(GroupProgramming, WalksAndRollsBack) {
    const struct {
        const char* src;
        const char* dst;
        uint32_t entry;
        uint32_t failing;  // 0: none
        const char* added;
        const char* released;
    } cases[] = {
        {"1", "1", 4, 0, "+1>4 +2>4 +3>4 ", "-1>4 -2>4 -3>4 "},
        {"1", "1", 4, 2, "+1>4 +2>4 -1>4 -2>4 ", "-1>4 -2>4 +1>4 +2>4 "},
        {"0", "0", 4, 1, "+1>4 -1>4 ", "-1>4 +1>4 "},
        // The entry sorts in front of the refused member: it is asked for itself, too.
        {"1", "1", 2, 2, "+1>2 +3>2 -1>2 -2>2 -3>2 ", "-1>2 -3>2 +1>2 +2>2 +3>2 "},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.entry << " " << row.failing << " " << row.src << row.dst);
        ASSERT_EQ(startDaemon({{"portisolate.srcaggtoport", row.src}, {"portisolate.dstaggtoport", row.dst}}),
                  0);
        decltype(TypeParam::add(0)) entry = nullptr;
        for (const uint32_t unit : {1u, 2u, 3u, 4u}) {
            if (unit == 4 && row.entry != 4) continue;
            auto* added = TypeParam::add(unit);
            if (unit == row.entry) entry = added;
        }
        portIsolateIfGrpEntryAdd(9, 6);
        portIsolateIfVlanGrpEntryAdd(9, 10, 7);
        portIsolateDebugMaskSet(CATEGORY_WORK);
        failNth("daxHwilIfGet", row.failing, 88);
        EXPECT_EQ(TypeParam::validate(entry), row.failing == 0 ? 0 : 88);
        EXPECT_EQ(walkOf(std::exchange(fake.texts, {})), row.added);
        failNth("daxHwilIfGet", row.failing, 88);
        EXPECT_EQ(TypeParam::release(entry), row.failing == 0 ? 0 : STATUS_FAILED);
        EXPECT_EQ(walkOf(fake.texts), row.released);
        fake.fault = nullptr;
    }
}

TYPED_TEST(GroupProgramming, OneSidedModeCallsBothWays) {
    for (const bool source : {true, false}) {
        ASSERT_EQ(startDaemon({{"portisolate.srcaggtoport", source ? "1" : "0"},
                               {"portisolate.dstaggtoport", source ? "0" : "1"}}),
                  0);
        for (const uint32_t unit : {1u, 2u, 3u}) TypeParam::add(unit);
        auto* entry = TypeParam::add(4);
        portIsolateDebugMaskSet(CATEGORY_WORK);
        failNth("daxIfSyncApi", 4, 66);  // 4>2, after 2>4: the refused member is left out of the rollback
        EXPECT_EQ(TypeParam::validate(entry), 66);
        EXPECT_EQ(walkOf(std::exchange(fake.texts, {})), "+1>4 +4>1 +2>4 +4>2 -4>1 -1>4 ");
        // 2>4 and 4>2 kept their rows and send nothing; the third command is that of 3>4, a first call.
        failNth("daxIfSyncApi", 3, 66);
        EXPECT_EQ(TypeParam::validate(entry), 66);
        EXPECT_EQ(walkOf(std::exchange(fake.texts, {})),
                  "+1>4 +4>1 +2>4 +4>2 +3>4 -4>1 -1>4 -4>2 -2>4 -4>3 -3>4 ");
        fake.fault = nullptr;
    }
}

TYPED_TEST(GroupProgramming, TheOnlyMemberIsIsolatedFromItselfWithBothSwitchesOff) {
    for (const bool off : {true, false}) {
        ASSERT_EQ(
            startDaemon({{"portisolate.srcaggtoport", off ? "0" : "1"}, {"portisolate.dstaggtoport", "0"}}),
            0);
        drainCalls();
        auto* entry = TypeParam::add(4);
        failNth("daxIfSyncApi", 1, 66);
        EXPECT_EQ(TypeParam::validate(entry), 0);
        EXPECT_EQ(drainCalls().size(), off ? 1u : 0u);
        EXPECT_EQ(TypeParam::release(entry), 0);
        const Calls calls = drainCalls();
        EXPECT_EQ(calls.size(), off ? 1u : 0u) << "released although its inner entry was not there";
        EXPECT_TRUE(listIsEmpty(&gPortIsoInfo.ifInnerList));
        EXPECT_EQ(fake.poolsInUse["portisolate_group"] + fake.poolsInUse["portisolate_vlangroup"], 0);
        fake.fault = nullptr;
    }
}

}  // namespace
