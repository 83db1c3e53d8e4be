// Every call of the platform that can fail fails once, and from then on, at every one of its occurrences in a
// session that passes through every change and event. The sweep finds the occurrences by itself: it moves
// the fault on until it no longer fires.
#include <algorithm>
#include <tuple>

#include "tests/daemon_driver.h"
#include "tests/invariants.h"

namespace {

constexpr int32_t REFUSED = 24301;    // the status of a failing call; its digits are found in texts
constexpr int32_t POOL_REFUSED = -2;  // in a rule: as the mode of the two trunk switches has it

int32_t event(const Bytes& datagram) {
    fake.datagrams = {datagram};
    runTask();
    return 0;
}

int32_t scalarSet(uint32_t id, uint32_t value) {
    return perform(OP_SCALAR_SET, nullptr, id, &value);
}

struct Step {
    const char* kind;
    int32_t (*run)();
};

const Step SESSION[] = {
    {"start", [] { return startDaemon(fake.options); }},
    {"debug", [] { return fake.serialSender = 1, scalarSet(SCALAR_DEBUG_MASK, 0xF); }},
    {"group create", [] { return groupSet(ROW_CREATE, 1, 5); }},
    {"lone activate", [] { return groupSet(ROW_ACTIVATE, 1, 5); }},
    {"group create", [] { return groupSet(ROW_CREATE, 100, 5); }},
    {"activate", [] { return groupSet(ROW_ACTIVATE, 100, 5); }},
    {"group create", [] { return groupSet(ROW_CREATE, 2, 5); }},
    {"activate", [] { return groupSet(ROW_ACTIVATE, 2, 5); }},
    {"group create", [] { return groupSet(ROW_CREATE, 2, 6); }},
    {"lone activate", [] { return groupSet(ROW_ACTIVATE, 2, 6); }},
    {"group create", [] { return groupSet(ROW_CREATE, 200, 6); }},
    {"activate", [] { return groupSet(ROW_ACTIVATE, 200, 6); }},
    {"vlan group create", [] { return vlanGroupSet(ROW_CREATE, 6, 7, 10); }},
    {"lone activate", [] { return vlanGroupSet(ROW_ACTIVATE, 6, 7, 10); }},
    {"vlan group create", [] { return vlanGroupSet(ROW_CREATE, 7, 7, 10); }},
    {"activate", [] { return vlanGroupSet(ROW_ACTIVATE, 7, 7, 10); }},
    {"vlan group create", [] { return vlanGroupSet(ROW_CREATE, 7, 8, 20); }},
    {"pair create", [] { return pairSet(ROW_CREATE, 3, 4); }},
    {"pair activate", [] { return pairSet(ROW_ACTIVATE, 3, 4); }},
    {"pair create", [] { return pairSet(ROW_CREATE, 3, 200); }},
    {"pair activate", [] { return pairSet(ROW_ACTIVATE, 3, 200); }},
    {"pon", [] { return ponSet(10, PON_ISOLATION_OFF); }},
    {"pon", [] { return ponSet(20, PON_ISOLATION_OFF); }},
    {"pon", [] { return ponSet(10, PON_ISOLATION_ON); }},
    {"pon", [] { return ponSet(100, PON_ISOLATION_OFF); }},
    {"register", [] { return event(linkMessage(DAX_RTM_NEWLINK, 200, RT_CHANGE_REGISTER)); }},
    {"member", [] { return event(linkMessage(DAX_RTM_NEWLINK, 200, 0, attribute(DAX_RTA_MEMBER_ADD, 9))); }},
    {"lost", [] { return event(linkMessage(DAX_RTM_NEWLINK, 200, 0, attribute(DAX_RTA_MEMBER_DEL, 9))); }},
    {"card", [] { return event(plainMessage(DAX_RTM_CARD_UP, Bytes(16))); }},
    {"refresh", [] { return event(plainMessage(DAX_RTM_MODE_REFRESH)); }},
    {"serials", [] { return event(plainMessage(DAX_RTM_SERIAL_SYNC)); }},
    {"vlan gone", [] { return event(linkMessage(DAX_RTM_DELLINK, 1020)); }},
    {"pair destroy", [] { return pairSet(ROW_DESTROY, 3, 200); }},
    {"vlan group destroy", [] { return vlanGroupSet(ROW_DESTROY, 7, 7, 10); }},
    {"lone destroy", [] { return vlanGroupSet(ROW_DESTROY, 6, 7, 10); }},
    {"group destroy", [] { return groupSet(ROW_DESTROY, 200, 6); }},
    {"lone destroy", [] { return groupSet(ROW_DESTROY, 2, 6); }},
    {"leave", [] { return event(linkMessage(DAX_RTM_NEWLINK, 2, 0, attribute(DAX_RTA_TRUNK_JOIN, 0))); }},
    {"leave", [] { return event(linkMessage(DAX_RTM_DELLINK, 1)); }},
    {"leave", [] { return event(linkMessage(DAX_RTM_IF_RESET, 3)); }},
    {"group create", [] { return groupSet(ROW_CREATE, 8, 5); }},
    {"activate", [] { return groupSet(ROW_ACTIVATE, 8, 5); }},
    {"pair create", [] { return pairSet(ROW_CREATE, 4, 3); }},
    {"reset", [] { return event(plainMessage(DAX_RTM_RESET)); }},
    {"mode", [] { return scalarSet(SCALAR_MODE, 1); }},
};

// What a step answers and says when one of its calls fails. The first row holds in which one of the kinds
// ends the step's and one of the calls begins the call; a call without a row must not fail unnoticed.
struct Rule {
    const char* kinds;  // parted by bars; none: all
    const char* calls;
    int32_t status;
    const char* text;
};

const Rule RULES[] = {
    {"", "icmProcTcpInit|daxHwilScalarSet|dax_select|dax_recvfrom|daxCardUpPcsSet|daxVlanSetApi", 0, ""},
    {"start", "daxScalarSetApi", 0, ""},
    {"start", "silMemPoolInit portisolate_group", -1, "init if group table failed\n\r"},
    {"start", "silMemPoolInit portisolate_vlangroup", -1, "init if vlan group table failed\n\r"},
    {"start", "silMemPoolInit portisolate_port", -1, "init port table failed\n\r"},
    {"start", "silMemPoolInit portisolate_pair", -1, "init if pair table failed\n\r"},
    {"start", "silMemPoolInit", -1, ""},
    {"start", "silCreateBSem", -1, "init sem failed\n\r"},
    {"start", "silCreateTask", -1, "create task failed\n\r"},
    {"start", "dax_socket", -1, "create route socket failed.(99)\n\r"},
    {"start", "dax_bind", -1, "route socket bind failed.(99)\n\r"},
    {"start", "dax_setsockopt", -1, "debug 0/1 route socket "},
    {"serials", "daxHwilCmdSyncApi", 0, "scalar sync send failed.(24301)\r\n"},
    {"vlan group create", "daxHwilCmdSyncApi", REFUSED,
     "if vlan group set api; sync if group status failed.(24301)\n\r"},
    {"group create", "daxHwilCmdSyncApi", REFUSED,
     "if group set api; sync if group status failed.(24301)\n\r"},
    {"pair create", "daxHwilCmdSyncApi", REFUSED, "if pair set api; sync entry status failed.(24301)\n\r"},
    {"pon", "daxHwilCmdSyncApi", REFUSED, "vlan set api; sync entry status failed.(24301)\n\r"},
    {"mode", "daxHwilCmdSyncApi", REFUSED, "set api; sync mode failed.(24301)\n\r"},
    {"", "daxHwilCmdSyncApi", REFUSED, "failed.(24301)\n\r"},
    {"group create", "daxIndexTrans", -1, ""},
    {"group create", "daxIfGetApi|daxHwilIfGet|daxIfSyncApi|pool portisolate_port", 0, ""},
    {"vlan group create", "pool portisolate_vlangroup", STATUS_NOT_FOUND,
     "if vlan group entry add failed\n\r"},
    {"group create", "pool portisolate_group", STATUS_NOT_FOUND, "if group entry add failed\n\r"},
    {"pair create", "daxIfGetApi|daxIfSyncApi|pool portisolate_port", 0, ""},
    {"pair create|mode", "daxHwilIfGet", REFUSED, ""},
    {"pair create", "pool", STATUS_POOL_EXHAUSTED, "add failed\n\r"},
    {"", "daxIfGetApi", 0, "ond flag failed.(24301)\n\r"},
    {"destroy", "daxIfSyncApi", 0, ""},
    {"lone activate|lone destroy", "", 0, "ret: "},
    {"pair activate", "daxEthAggIfGetApi", REFUSED,
     "debug 0/2 if pair entry [src: if3, target: if200] add; add hw-if "},
    {"pair activate|register", "daxIfSyncApi", 0, "type=[uni-isolate], group=[0], operation=[add])\r\n"},
    {"member|lost", "daxIfSyncApi", 0, "log 0 failed to operate isolate. "},
    {"activate", "daxEthAggIfGetApi", REFUSED, "debug 4/2 get member of trunk"},
    {"activate", "daxHwilIfGet", REFUSED, "add phy bi-isolate error! can't read hw ability\r\n"},
    {"activate", "daxIfSyncApi", REFUSED, "operation=[add]"},
    {"activate", "pool", POOL_REFUSED, ""},
    {"pair destroy", "daxEthAggIfGetApi", 0, "del; del hw-if uni-isolate failed.(24301)\n\r"},
    {"destroy", "daxEthAggIfGetApi", -1, "get member of trunk"},
    {"destroy", "daxHwilIfGet", -1, "del phy bi-isolate error! can't read hw ability\r\n"},
    {"pon", "daxHwilCmdSetApi", REFUSED, "pon-isolate, ret 24301\r\n"},
    {"", "daxHwilCmdSetApi", 0, "ret: 24301]\n\r"},
    {"mode", "daxScalarSetApi", 0, "set api; set port-isolate mode failed.(1)\n\r"},
    {"", "daxScalarSetApi", 0, "set port-isolate mode failed.(2,24301)\n\r"},
    {"vlan gone|leave", "daxIndexTrans", 0, ""},
    {"", "daxEthAggIfGetApi", 0, "get member of trunk"},
    {"member", "daxHwilIfGet|pool", 0, "] of group 6 failed 0x"},
    {"lost", "daxHwilIfGet", 0, "] of group 6 failed\n\r"},
    {"", "daxHwilIfGet", 0, "can't read hw ability\r\n"},
    {"", "daxIfSyncApi", 0, "log "},
    {"", "pool portisolate_pair|pool portisolate_ref", 0, ""},
};

template <typename Fits>
bool anyPart(std::string_view parts, Fits fits) {
    const size_t bar = parts.find('|');
    if (fits(parts.substr(0, bar))) return true;
    return bar != parts.npos && anyPart(parts.substr(bar + 1), fits);
}

bool isOneSided() {
    return gPortIsoInfo.isSrcTrunkToPort != gPortIsoInfo.isDstTrunkToPort;
}

void checkFailed(std::string_view kind, std::string_view call, int32_t status) {
    for (const Rule& rule : RULES) {
        if (!anyPart(rule.kinds, [=](std::string_view part) { return kind.ends_with(part); })) continue;
        if (!anyPart(rule.calls, [=](std::string_view part) { return call.starts_with(part); })) continue;
        const int32_t poolStatus = isOneSided() ? STATUS_FAILED : STATUS_POOL_EXHAUSTED;
        EXPECT_EQ(status, rule.status == POOL_REFUSED ? poolStatus : rule.status);
        const auto bears = [&](const std::string& text) { return text.find(rule.text) != text.npos; };
        EXPECT_TRUE(*rule.text == '\0' || std::ranges::any_of(fake.texts, bears)) << rule.text;
        return;
    }
    ADD_FAILURE() << "no rule";
}

// A start that failed has given back what stood: the socket, the semaphore and every pool, once.
void checkStopped() {
    std::set<std::string> standing;
    for (const std::string& call : drainCalls({"pool ", "semaphore", "socket ", "close "})) {
        if (call.ends_with(" = 24301")) continue;
        const bool closed = call.starts_with("close ");
        const std::string what = closed ? "socket" : call.substr(0, call.find(' ', 5));
        EXPECT_TRUE(closed || call.ends_with(" destroyed") ? standing.erase(what) == 1
                                                           : standing.insert(what).second)
            << call;
    }
    EXPECT_EQ(standing, std::set<std::string>{});
    EXPECT_EQ(gPortIsoInfo.rtSock, -1);
}

// After a failure the daemon goes on: two fresh ports are isolated, and everything can be taken down again.
void checkServes() {
    EXPECT_EQ(groupJoin(11, 9) | groupJoin(12, 9), 0);
    EXPECT_EQ(fake.bi.count({11, 12}), 1u);
    event(plainMessage(DAX_RTM_RESET));
    for (const uint32_t unit : {6u, 7u}) {
        EXPECT_EQ(vlanGroupSet(ROW_DESTROY, unit, 7, 10) | vlanGroupSet(ROW_DESTROY, unit, 8, 20), 0);
    }
    checkTables();
    EXPECT_EQ(fake.poolsInUse["portisolate_group"] + fake.poolsInUse["portisolate_vlangroup"], 0);
    EXPECT_TRUE(listIsEmpty(&gPortIsoInfo.ifPairList));
}

// What a refused request must leave as it was. A self isolation is released without a command, and not made
// again.
auto picture() {
    auto pools = fake.poolsInUse;
    for (const auto* row : rowsOf(INNER_TABLE)) {
        for (const char* pool : {"portisolate_pair", "portisolate_ref"}) {
            pools[pool] -= row->src == row->dst ? 1 : 0;
        }
    }
    return std::tuple(fake.bi, fake.uni, fake.ponOff, pools);
}

// Runs the session with the nth call of this name failing, and those after it when `everAfter`. False when
// there was no nth call.
bool runSession(const std::string& name, uint32_t nth, bool everAfter) {
    uint32_t seen = 0;
    fake.fault = [&](const std::string& call) {
        if (call != name) return 0;
        ++seen;
        return seen == nth || (everAfter && seen > nth) ? REFUSED : 0;
    };
    for (const Step& step : SESSION) {
        SCOPED_TRACE(step.kind);
        const bool failedBefore = seen >= nth;
        fake.texts.clear();
        const auto before = picture();
        const int32_t status = step.run();
        EXPECT_TRUE(seen >= nth || status == 0);
        if (seen >= nth && !failedBefore) checkFailed(step.kind, name, status);
        // One call for each direction: the one that went through is not taken back for the other's sake.
        const bool restored = status == REFUSED && !everAfter && !isOneSided();
        EXPECT_TRUE(!restored || picture() == before);
        EXPECT_FALSE(fake.semTaken);
        if (gPortIsoInfo.mutex == nullptr) {
            checkStopped();
            return true;
        }
        checkTables();
    }
    fake.fault = nullptr;
    checkServes();
    return seen >= nth;
}

TEST(FaultSweep, EveryCallFailsAtEveryOccurrence) {
    testing::internal::CaptureStderr();
    const struct {
        bool src, dst;
        const char *serials, *slots;
    } modes[] = {
        {true, true, "t", "t"}, {false, false, "t", "f"}, {true, false, "f", "f"}, {false, true, "t", "f"}};
    for (const auto& mode : modes) {
        fake = {};
        fake.options = trunkSwitches(mode.src, mode.dst);
        fake.options.insert({{"supportserial", mode.serials}, {"slotcheckenable", mode.slots}});
        std::set<std::string> names;
        fake.fault = [&](const std::string& call) { return names.insert(call), 0; };
        for (const Step& step : SESSION) {
            SCOPED_TRACE(step.kind);
            ASSERT_EQ(step.run(), 0);
        }
        EXPECT_EQ(gPortIsoInfo.isSrcTrunkToPort, mode.src);
        EXPECT_EQ(gPortIsoInfo.isDstTrunkToPort, mode.dst);
        EXPECT_GE(names.size(), 20u);
        for (const std::string& name : names) {
            for (const bool everAfter : {false, true}) {
                // The event task tries to receive again for as long as it takes, so that cannot fail for
                // ever.
                for (uint32_t nth = 1; !HasFailure() && !(everAfter && name.starts_with("dax_")); ++nth) {
                    SCOPED_TRACE(testing::Message()
                                 << mode.src << mode.dst << " " << name << " " << nth << " " << everAfter);
                    if (!runSession(name, nth, everAfter)) break;
                }
            }
        }
    }
    fake.fault = nullptr;
    testing::internal::GetCapturedStderr();
}

}  // namespace
