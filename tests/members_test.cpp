// Who is told to the forwarding plane to be a member of a group: the daemon itself, its command server and
// its event task, on a simulated board of which a port spans machines, above a plane that notes what it
// hears.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <thread>
#include <utility>

#include "common/bytes.h"
#include "common/files.h"
#include "common/text.h"
#include "common/words.h"
#include "daemon/api/group_api.h"
#include "daemon/api/operations.h"
#include "daemon/start/init.h"
#include "host/board/board_file.h"
#include "host/board/board_verbs.h"
#include "host/board/membership.h"
#include "host/board/plane_turn.h"
#include "host/board/this_board.h"
#include "host/planes/sim_plane.h"
#include "host/services/turns.h"
#include "host/sockets/command_request.h"
#include "host/sockets/route_bus.h"
#include "lib/link/session.h"
#include "tests/dice.h"
#include "wire/framing.h"
#include "wire/operations.h"

namespace {

constexpr uint32_t PORTS = 6;
constexpr uint32_t TRUNK = 9;

// A row of a group, of one in a VLAN unless that is 0.
struct Row {
    uint32_t group, port, vlan;
};
std::string rowText(const Row& row) {
    return fmt::format("{}/{}{}", row.group, row.port, row.vlan == 0 ? "" : fmt::format("@{}", row.vlan));
}

std::set<std::string> gHeard;  // the board's lock guards it
std::set<std::string> gRepeated;
bool gNoMemory = false;  // once
bool gInEvent = false;   // and nothing else goes on
bool gEarly = false;     // the event counted as handled before the plane had heard of it

int32_t hear(void*, const PlanePort& port, uint32_t group, uint16_t vid, bool member) {
    if (std::exchange(gNoMemory, false)) throw std::bad_alloc();
    const std::string text = rowText({group, port.ifUnit, vid});
    if (!(member ? gHeard.insert(text).second : gHeard.erase(text) != 0)) gRepeated.insert(text);
    gEarly = gEarly || (gInEvent && settleRoute(0));
    return 0;
}

std::string heard() {
    std::lock_guard guard(theBoard().lock);
    std::string text;
    for (const std::string& one : gHeard) text += (text.empty() ? "" : " ") + one;
    return text;
}

// The board and the daemon of the whole program.
struct Daemon : testing::Environment {
    std::string root;
    void SetUp() override {
        char name[] = "/tmp/membersXXXXXX";
        root = mkdtemp(name);
        std::filesystem::create_directories(root + "/tmp");
        std::filesystem::create_directories(root + RUN_FOLDER);
        setenv(ROOT_VARIABLE, root.c_str(), 1);
        std::string text = fmt::format("trunk {} lag\n", TRUNK);
        for (uint32_t port = 1; port <= PORTS; ++port) {
            text += fmt::format("interface {0} ge{0} slot 1\n", port);
        }
        static constexpr PlaneKind KINDS[] = {{.name = "sim", .create = createSimPlane, .follower = nullptr}};
        Board& board = theBoard();
        readBoard(text, "test.conf", KINDS, board);
        board.plane.setMember = hear;
        board.span = {"vx0"};
        atTurnsEnd(endTurn);
        followMembers();
        const uint8_t modes[4] = {};
        ASSERT_EQ(portIsolateInit(64, 0, 0, 0, 1, 1, 0, 2, 0, 0, 0, modes), 0);
    }
    void TearDown() override { std::filesystem::remove_all(root); }
};
testing::Environment* const gDaemon = testing::AddGlobalTestEnvironment(new Daemon);

struct Members : testing::Test {
    Session session;
    Members() { sessionOpen(session); }

    Reply request(uint32_t opcode, const Row& row, uint32_t value) {
        Request asked{.opcode = opcode, .column = GROUP_COLUMN_ROW_STATUS};
        asked.index = wordBytes(row.port) + wordBytes(row.group) + (row.vlan == 0 ? "" : wordBytes(row.vlan));
        asked.index += wordBytes(0);
        asked.capacity = WORD_SIZE;
        if (value != 0) asked.value = wordBytes(value);
        return ask(session, asked);
    }
    // Rows of VLANs as the peer board sets them.
    int32_t set(const Row& row, uint32_t value) {
        session.asPeer = row.vlan != 0;
        return request(row.vlan == 0 ? OP_GROUP_SET : OP_VLAN_GROUP_SET, row, value).status;
    }
    bool isActive(const Row& row) {
        const Reply reply = request(row.vlan == 0 ? OP_GROUP_GET : OP_VLAN_GROUP_GET, row, 0);
        return reply.status == 0 && wordAt(reply.value, 0) == ROW_STATE_PROGRAMMED;
    }
    // "create 5/1", "activate 7/2@10", "add 5/1" for both, or a verb of the board.
    std::string step(const std::string& text) {
        const std::vector<std::string> words = splitWords(text);
        if (words[0] == "add") return step("create " + words[1]), step("activate " + words[1]);
        const std::vector<std::string> values = {"activate", "create", "probe", "destroy"};  // from 1 on
        const auto value = std::find(values.begin(), values.end(), words[0]);
        if (value == values.end()) return answerVerb(words, true);
        Row row = {};
        std::sscanf(words[1].c_str(), "%u/%u@%u", &row.group, &row.port, &row.vlan);
        return std::to_string(set(row, static_cast<uint32_t>(value - values.begin()) + 1));
    }
};

TEST_F(Members, AreHeardOfBeforeTheReplyAndUntilTheyAreGone) {
    const char* const steps[][3] = {
        // step, its status or the problem, and who is a member behind it
        {"create 5/1", "0", ""},
        {"activate 5/1", "0", "5/1"},
        {"create 5/2", "0", "5/1"},
        {"fault daxIfSyncApi 1 99", "ok\n", "5/1"},
        {"activate 5/2", "99", "5/1"},  // refused by the hardware
        {"activate 5/2", "0", "5/1 5/2"},
        {"activate 6/2", "65536002", "5/1 5/2"},
        {"add 7/1@10", "0", "5/1 5/2 7/1@10"},
        {"add 17/3", "0", "5/1 5/2 7/1@10"},       // no group that could span
        {"add 8/1@65546", "0", "5/1 5/2 7/1@10"},  // no VLAN
        {"add 16/9", "0", "16/9 5/1 5/2 7/1@10"},
        {"destroy 5/2", "0", "16/9 5/1 7/1@10"},
        {"destroy 5/2", "0", "16/9 5/1 7/1@10"},
        {"unplug ge1", "ok\n", "16/9 7/1@10"},  // VLAN groups outlive their interfaces
        {"plug ge1", "ok\n", "16/9 7/1@10"},
        {"destroy 7/1@10", "0", "16/9"},
        {"add 16/3", "0", "16/3 16/9"},
        {"join lag ge3", "ok\n", "16/9"},
        {"leave lag ge3", "ok\n", "16/9"},
        {"memory", "", "16/9"},
        {"activate 16/3", "65536002", "16/9"},
        {"add 16/3", "0", "16/9"},
        {"create 1/1", "0", "16/3 16/9"},  // what was missed
        {"publish reset", "ok\n", ""},
    };
    for (const auto& [text, answer, members] : steps) {
        if (text == std::string("memory")) {
            gNoMemory = true;
            continue;
        }
        gInEvent = answer[0] == 'o';
        EXPECT_EQ(step(text), answer) << text;
        EXPECT_EQ(heard(), members) << text;
    }
    EXPECT_TRUE(gRepeated.empty() && !gEarly);
    gInEvent = false;
}

// The port goes when the command server has read its row, and not told it yet.
std::thread gUnplugs;
int32_t getAndUnplug(void* index, uint32_t column, void* value) {
    const int32_t status = portIsolateIfGrpGetApi(index, column, value);
    gUnplugs = std::thread([] { answerVerb({"unplug", "ge5"}, true); });
    uint32_t state = 0;
    const auto late = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    while (std::chrono::steady_clock::now() < late &&
           (portIsolateIfGrpGetApi(index, column, &state) == 0 || !settleRoute(0))) {
        std::this_thread::yield();
    }
    return status;
}

TEST_F(Members, AreNotToldWhenTheyAreGoneMeanwhile) {
    EXPECT_EQ(step("create 5/5"), "0");
    IcmFuncMapEntry rows[OP_COUNT];
    std::copy_n(gPortisolateFuncMap, OP_COUNT, rows);
    rows[OP_GROUP_GET].handler.access = getAndUnplug;
    const uint32_t request[] = {OP_GROUP_SET, GROUP_COLUMN_ROW_STATUS, 12, 5, 5, 0, WORD_SIZE, ROW_ACTIVATE};
    std::string replies;
    EXPECT_EQ(answerRequest({rows, OP_COUNT}, reinterpret_cast<const uint8_t*>(request), sizeof(request),
                            true, replies),
              0);
    gUnplugs.join();
    EXPECT_EQ(heard(), "");
    step("plug ge5");
}

// A port comes and goes while it joins and leaves groups: whatever came first, the plane ends up with what
// the tables say.
TEST_F(Members, AreTheTablesWhateverGoesOnAtOnce) {
    everySeed(300, [&] {
        const uint32_t port = 1 + roll(PORTS);
        std::thread events([&] { step(fmt::format("unplug ge{}", port)); });
        for (int round = 0; round < 12; ++round) {
            const Row row = {1 + roll(2), port, roll(6) == 0 ? 10u : 0u};
            set(row, pick<uint32_t>({ROW_CREATE, ROW_ACTIVATE, ROW_ACTIVATE, ROW_DESTROY}));
        }
        events.join();
        std::set<std::string> active;
        for (uint32_t at = 0; at < 2 * PORTS * 2; ++at) {
            const Row row = {1 + at / 2 / PORTS, 1 + at / 2 % PORTS, at % 2 * 10};
            if (isActive(row)) active.insert(rowText(row));
        }
        EXPECT_EQ(heard(), joinWords({active.begin(), active.end()}, " "));
        EXPECT_TRUE(gRepeated.empty());
        step(fmt::format("plug ge{}", port));
    });
}

}  // namespace
