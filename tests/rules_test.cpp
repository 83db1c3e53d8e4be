// The slot rule, and the programming of groups with its rollbacks.
#include <regex>
#include <utility>

#include "daemon/rules/admission.h"
#include "daemon/rules/programming.h"
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

// A walk as "+M>E" (added) and "-M>E" (released), by the texts: a pair that others claim, too, sends no
// command.
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

// Members 1, 2 and 3, and the entry. In the walk that validates it, and in the one that releases it when that
// was not refused, the nth call of this name is.
TEST(GroupProgramming, WalksAndRollsBack) {
    const struct {
        bool src, dst;
        uint32_t entry;
        const char* refused;
        uint32_t nth;  // 0: none
        const char* added;
        const char* released;
    } cases[] = {
        {true, true, 4, "", 0, "+1>4 +2>4 +3>4 ", "-1>4 -2>4 -3>4 "},
        {true, true, 4, "daxHwilIfGet", 2, "+1>4 +2>4 -1>4 -2>4 ", "-1>4 -2>4 +1>4 +2>4 "},
        {false, false, 4, "daxHwilIfGet", 1, "+1>4 -1>4 ", "-1>4 +1>4 "},
        // The entry sorts in front of the refused member: it is asked for itself, too.
        {true, true, 2, "daxHwilIfGet", 2, "+1>2 +3>2 -1>2 -2>2 -3>2 ", "-1>2 -3>2 +1>2 +2>2 +3>2 "},
        // A pair takes two calls. A member whose second one was refused is left out of the rollback.
        {true, false, 4, "daxIfSyncApi", 4, "+1>4 +4>1 +2>4 +4>2 -4>1 -1>4 ", ""},
        {false, true, 4, "daxIfSyncApi", 3, "+1>4 +4>1 +2>4 -4>1 -1>4 -4>2 -2>4 ", ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.added);
        startWatched(CATEGORY_WORK, trunkSwitches(row.src, row.dst));
        for (const uint32_t unit : {1u, 2u, 3u, row.entry}) {
            if (portIsolateIfGrpEntryGet(unit, 5) == nullptr) portIsolateIfGrpEntryAdd(unit, 5);
        }
        portIsolateIfGrpEntryAdd(9, 6);
        auto* entry = portIsolateIfGrpEntryGet(row.entry, 5);
        failNth(row.refused, row.nth, 88);
        EXPECT_EQ(portIsolateIfGrpEntryValid(entry), row.nth == 0 ? 0 : 88);
        EXPECT_EQ(walkOf(std::exchange(fake.texts, {})), row.added);
        if (*row.released == '\0') continue;
        failNth(row.refused, row.nth, 88);
        EXPECT_EQ(portIsolateIfGrpEntryDel(entry), row.nth == 0 ? 0 : STATUS_FAILED);
        EXPECT_EQ(walkOf(fake.texts), row.released);
    }
    fake.fault = nullptr;
}

}  // namespace
