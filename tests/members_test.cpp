// Who is told to the forwarding plane to be a member of a group: the daemon itself, its command server and
// its event task, on a simulated board of which a port spans machines, above a plane that notes what it
// hears.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <thread>
#include <utility>

#include "common/bytes.h"
#include "common/files.h"
#include "common/local_socket.h"
#include "common/text.h"
#include "common/words.h"
#include "daemon/start/init.h"
#include "host/board/board_events.h"
#include "host/board/board_file.h"
#include "host/board/faults.h"
#include "host/board/membership.h"
#include "host/board/plane_turn.h"
#include "host/board/this_board.h"
#include "host/planes/sim_plane.h"
#include "host/services/turns.h"
#include "host/sockets/route_bus.h"
#include "platform/route_messages.h"
#include "tests/dice.h"
#include "wire/framing.h"
#include "wire/operations.h"

namespace {

constexpr uint32_t WAIT = 5000;  // milliseconds
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
    int fd = connectLocalSocket(rootedPath(COMMAND_SOCKET_PATH), SOCK_STREAM, WAIT);
    ~Members() override { close(fd); }

    // The status of a reply, and its value.
    int32_t ask(uint32_t opcode, const Row& row, uint32_t value, std::string* answer = nullptr) const {
        std::vector<uint32_t> words = {opcode, GROUP_COLUMN_ROW_STATUS, row.vlan == 0 ? 12u : 16u, row.port,
                                       row.group};
        if (row.vlan != 0) words.push_back(row.vlan);
        words.insert(words.end(), {0, WORD_SIZE});
        if (answer == nullptr) words.push_back(value);
        std::string body;
        appendWord(body, static_cast<uint32_t>(words.size() * WORD_SIZE));
        for (const uint32_t word : words) appendWord(body, word);
        EXPECT_TRUE(sendAll(fd, body.data(), body.size(), WAIT));
        std::string reply(WORD_SIZE, '\0');
        EXPECT_EQ(recv(fd, reply.data(), reply.size(), MSG_WAITALL), static_cast<ssize_t>(reply.size()));
        reply.resize(wordAt(reply, 0));
        EXPECT_EQ(recv(fd, reply.data(), reply.size(), MSG_WAITALL), static_cast<ssize_t>(reply.size()));
        if (answer != nullptr) *answer = reply.substr(std::min<size_t>(reply.size(), 3 * WORD_SIZE));
        return static_cast<int32_t>(wordAt(reply, 0));
    }
    int32_t set(const Row& row, uint32_t value, bool sync = false) const {
        const uint32_t opcode = row.vlan == 0 ? OP_GROUP_SET : OP_VLAN_GROUP_SET;
        return ask(sync ? portIsolateSyncOf(opcode) : opcode, row, value);
    }
    bool isActive(const Row& row) const {
        std::string state;
        const int32_t status = ask(row.vlan == 0 ? OP_GROUP_GET : OP_VLAN_GROUP_GET, row, 0, &state);
        return status == 0 && wordAt(state, 0) == ROW_STATE_PROGRAMMED;
    }
    // "create 5/1", "sync-activate 7/2@10", "unplug ge1", "reset"
    std::string step(const std::string& text) const {
        const std::vector<std::string> words = splitWords(text);
        if (words[0] == "unplug") return unplugInterface(theBoard(), words[1]);
        if (words[0] == "plug") return plugInterface(theBoard(), words[1]);
        if (words[0] == "join") return joinTrunkEvent(theBoard(), "lag", words[1]);
        if (words[0] == "leave") return leaveTrunkEvent(theBoard(), "lag", words[1]);
        if (words[0] == "reset") return publishPlain(DAX_RTGRP_SYSTEM_GROUP, DAX_RTM_RESET);
        const bool sync = words[0].starts_with("sync-");
        const std::string verb = words[0].substr(sync ? 5 : 0);
        Row row = {};
        std::sscanf(words[1].c_str(), "%u/%u@%u", &row.group, &row.port, &row.vlan);
        const uint32_t value = verb == "create"     ? ROW_CREATE
                               : verb == "activate" ? ROW_ACTIVATE
                                                    : ROW_DESTROY;
        return std::to_string(set(row, value, sync));
    }
};

TEST_F(Members, AreHeardOfBeforeTheReplyAndUntilTheyAreGone) {
    const char* const steps[][3] = {
        // step, its status or the problem, and who is a member behind it
        {"create 5/1", "0", ""},
        {"activate 5/1", "0", "5/1"},
        {"create 5/2", "0", "5/1"},
        {"fault", "", "5/1"},
        {"activate 5/2", "99", "5/1"},  // refused by the hardware
        {"activate 5/2", "0", "5/1 5/2"},
        {"activate 6/2", "65536002", "5/1 5/2"},
        {"create 7/1@10", "0", "5/1 5/2"},
        {"sync-activate 7/1@10", "0", "5/1 5/2 7/1@10"},
        {"create 17/3", "0", "5/1 5/2 7/1@10"},
        {"activate 17/3", "0", "5/1 5/2 7/1@10"},  // no group that could span
        {"create 8/1@65546", "0", "5/1 5/2 7/1@10"},
        {"activate 8/1@65546", "0", "5/1 5/2 7/1@10"},  // no VLAN
        {"create 16/9", "0", "5/1 5/2 7/1@10"},
        {"activate 16/9", "0", "16/9 5/1 5/2 7/1@10"},
        {"destroy 5/2", "0", "16/9 5/1 7/1@10"},
        {"destroy 5/2", "0", "16/9 5/1 7/1@10"},
        {"unplug ge1", "", "16/9 7/1@10"},  // VLAN groups outlive their interfaces
        {"plug ge1", "", "16/9 7/1@10"},
        {"destroy 7/1@10", "0", "16/9"},
        {"create 16/3", "0", "16/9"},
        {"activate 16/3", "0", "16/3 16/9"},
        {"join ge3", "", "16/9"},
        {"leave ge3", "", "16/9"},
        {"memory", "", "16/9"},
        {"activate 16/3", "65536002", "16/9"},
        {"create 16/3", "0", "16/9"},
        {"activate 16/3", "0", "16/9"},
        {"create 1/1", "0", "16/3 16/9"},  // what was missed
        {"reset", "", ""},
    };
    for (const auto& [text, answer, members] : steps) {
        if (text == std::string("fault")) {
            FaultRule rule;
            rule.call = "daxIfSyncApi";
            rule.status = 99;
            addFaultRule(rule);
            continue;
        }
        if (text == std::string("memory")) {
            gNoMemory = true;
            continue;
        }
        gInEvent = answer == std::string();
        EXPECT_EQ(step(text), answer) << text;
        EXPECT_EQ(heard(), members) << text;
    }
    EXPECT_TRUE(gRepeated.empty() && !gEarly);
    gInEvent = false;
}

// A port comes and goes while it joins and leaves groups: whatever came first, the plane ends up with what
// the tables say.
TEST_F(Members, AreTheTablesWhateverGoesOnAtOnce) {
    everySeed(300, [&] {
        const std::string port = fmt::format("ge{}", 1 + roll(PORTS));
        std::thread events([&] {
            step("unplug " + port);
            step("plug " + port);
        });
        for (int round = 0; round < 30; ++round) {
            const Row row = {1 + roll(4), 1 + roll(PORTS), roll(4) == 0 ? 10u : 0u};
            set(row, pick<uint32_t>({ROW_CREATE, ROW_ACTIVATE, ROW_ACTIVATE, ROW_DESTROY}));
        }
        events.join();
        std::set<std::string> active;
        for (uint32_t at = 0; at < 4 * PORTS * 2; ++at) {
            const Row row = {1 + at / 2 / PORTS, 1 + at / 2 % PORTS, at % 2 * 10};
            if (isActive(row)) active.insert(rowText(row));
        }
        EXPECT_EQ(heard(), joinWords({active.begin(), active.end()}, " "));
        EXPECT_TRUE(gRepeated.empty());
    });
}

}  // namespace
