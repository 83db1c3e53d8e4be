// Two daemons on the two control boards of one device: what is set on one stands on the other, and neither is
// held up by what becomes of the other.
#include <chrono>
#include <thread>

#include "e2e.h"

namespace {

constexpr int64_t PEER_TIMEOUT = 300;  // milliseconds
constexpr int64_t SLACK = 3000;        // milliseconds that a busy machine may add

size_t count(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
}

struct Side : EndToEnd {
    void TestBody() override {}
    void begin(const char* role, const std::string& peerRoot, const std::string& options = "") {
        board = readText(std::string(TWO_BOARDS) + "/" + role + "/board.conf") + "journal /journal\npeer " +
                peerRoot + " timeout " + std::to_string(PEER_TIMEOUT) + "\n";
        start("portisolate.supportserial = t\n" + options);
    }
    int command() const { return connectTo(COMMAND_SOCKET_PATH); }
    std::string state() const {
        const std::string tables = ctlOutput("export");  // first: answered after what was handed over before
        return tables + boardAnswer("hardware") + boardAnswer("matrix 10");
    }
    // What the board says of its link, once it says `part`: by default, that all is answered or lost.
    std::string link(const std::string& part = " waiting=0 ") const {
        std::string line = boardAnswer("peer");
        for (int tries = 0; tries < 10000 && line.find(part) == std::string::npos; ++tries) {
            line = boardAnswer("peer");
        }
        EXPECT_NE(line.find(part), std::string::npos) << line;
        return line.substr(0, line.find(" waiting="));
    }
    size_t told(const std::string& text) const { return count(log(), text); }
    size_t journalled(const std::string& text) const { return count(readText(root + "/journal"), text); }
};

struct TwoBoards : testing::Test {
    Side active, standby;
    void SetUp() override {
        active.SetUp();
        standby.SetUp();
        active.begin("active", standby.root);
        standby.begin("standby", active.root);
    }
    void TearDown() override {
        active.TearDown();
        standby.TearDown();
    }
};

std::string setRequest(uint32_t port, uint32_t group, uint32_t rowStatus) {
    return request(OP_GROUP_SET, GROUP_COLUMN_ROW_STATUS, {port, group, 0}, {rowStatus});
}

// The status of a request, which must come in time.
int32_t promptStatus(int fd, const std::string& frame) {
    const auto start = std::chrono::steady_clock::now();
    const int32_t status = statusOf(fd, frame);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(PEER_TIMEOUT + SLACK));
    return status;
}

TEST_F(TwoBoards, WhatIsSetOnOneStandsOnTheOther) {
    for (const char* call : {"group add 5 ge1/1 lag1 pon2/1", "vlan-group add 7 pon2/3 pon2/4 --vlan 10",
                             "pair add ge1/2 pon2/2", "pon off 10", "pon off 20", "pon on 20",
                             "group del 5 pon2/1", "mode set 1"}) {
        active.ctlOutput(call);
        EXPECT_EQ(standby.state(), active.state()) << call;
    }
    // Also for a client that is there already, and while requests come one upon another.
    const int here = active.command();
    const int there = standby.command();
    const std::string get = bytesOf({28, OP_GROUP_GET, 1, 12, 8, 9, 0, 4});
    for (int turn = 0; turn < 300; ++turn) {
        EXPECT_TRUE(converse(here, setRequest(8, 9, ROW_CREATE), reply(0)));
        EXPECT_TRUE(converse(there, get, bytesOf({16, 0, 0, 4, ROW_STATE_CREATED})));
        EXPECT_TRUE(converse(here, setRequest(8, 9, ROW_DESTROY), reply(0)));
        EXPECT_TRUE(converse(there, get, reply(STATUS_NOT_FOUND)));
    }
    close(here);
    close(there);
    // Nothing came back: what the standby board set for its peer never left it.
    EXPECT_EQ(active.journalled("\"flags\":1,"), 0u);
    EXPECT_GT(standby.journalled("\"flags\":1,"), 600u);
    EXPECT_EQ(standby.journalled("\"flags\":3,"), 0u);
}

TEST_F(TwoBoards, TheSerialTableTravelsOnDemandToTheReceiver) {
    active.ctlOutput("group add 5 pon2/1 ge1/2 ge1/1");
    const std::string table = active.ctlOutput("show serial");
    standby.stop(SIGKILL);
    standby.begin("standby", active.root);
    const std::string empty = standby.ctlOutput("show serial");
    EXPECT_NE(table, empty);
    const auto send = [&](Side& from, const std::string& receivingRole) {
        standby.ctlOutput("board role " + receivingRole);
        from.ctlOutput("board publish serial-sync");
        standby.ctlOutput("group list");  // has been answered after what was handed over before
        return standby.ctlOutput("show serial");
    };
    EXPECT_EQ(send(active, "active"), empty);
    EXPECT_EQ(send(standby, "standby"), empty);
    EXPECT_EQ(active.ctlOutput("show serial"), table);
    EXPECT_EQ(send(active, "standby"), table);
}

TEST_F(TwoBoards, BothConfiguredAtOnceNeverWaitForEachOther) {
    std::string frames[2], replies;
    for (int turn = 0; turn < 3000; ++turn) {
        for (uint32_t side = 0; side < 2; ++side) {
            frames[side] += setRequest(1 + side, 3 + side, turn % 2 == 0 ? ROW_CREATE : ROW_DESTROY);
        }
        replies += reply(0);
    }
    const int here = active.command();
    const int there = standby.command();
    bool answered = false;
    std::thread other([&] { answered = converse(there, frames[1], replies); });
    EXPECT_TRUE(converse(here, frames[0], replies));
    other.join();
    EXPECT_TRUE(answered);
    close(here);
    close(there);
    active.ctlOutput("group add 3 ge1/1 ge1/2");
    standby.ctlOutput("group add 4 pon2/1 pon2/2");
    EXPECT_EQ(standby.state(), active.state());
    EXPECT_EQ(active.told("failed") + standby.told("failed"), 0u) << active.log() << standby.log();
}

TEST_F(TwoBoards, WhateverBecomesOfTheStandbyTheActiveBoardWorks) {
    const int fd = active.command();
    const auto createUntil = [fd](bool refused) {
        int32_t status = refused ? 0 : STATUS_PEER_FAILED;
        for (int turn = 0; (status != 0) != refused && turn < 10000; ++turn) {
            status = promptStatus(fd, setRequest(2, 5, ROW_CREATE));
        }
        return status;
    };
    EXPECT_EQ(promptStatus(fd, setRequest(1, 5, ROW_CREATE)), 0);
    active.link();
    standby.tell(SIGSTOP);
    EXPECT_EQ(createUntil(true), STATUS_PEER_FAILED);
    // The whole time-out is waited for once, not for each request.
    const auto start = std::chrono::steady_clock::now();
    for (int turn = 0; turn < 100; ++turn) EXPECT_NE(promptStatus(fd, setRequest(2, 5, ROW_CREATE)), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20 * PEER_TIMEOUT));
    EXPECT_EQ(active.told("failed: "), 1u) << active.log();
    standby.tell(SIGCONT);
    EXPECT_EQ(createUntil(false), 0);
    EXPECT_EQ(standby.state(), active.state());
    active.link();
    EXPECT_EQ(active.told("reached"), 2u) << active.log();

    standby.stop(SIGKILL);
    for (int turn = 0; turn < 100; ++turn) {
        EXPECT_EQ(promptStatus(fd, setRequest(6, 5, ROW_PROBE)), STATUS_NOT_FOUND);
    }
    std::filesystem::remove(standby.root + COMMAND_SOCKET_PATH);  // unplugged: not even a socket is left
    EXPECT_EQ(promptStatus(fd, setRequest(6, 5, ROW_CREATE)), 0);
    EXPECT_EQ(active.told("is not there: "), 1u) << active.log();
    standby.begin("standby", active.root);
    EXPECT_EQ(promptStatus(fd, setRequest(7, 6, ROW_CREATE)), 0);
    EXPECT_NE(standby.ctlOutput("group list").find("pon2/3"), std::string::npos) << active.log();
    active.link();
    EXPECT_EQ(active.told("is not there: "), 1u) << active.log();
    EXPECT_EQ(active.told("reached"), 3u) << active.log();
    close(fd);
}

TEST_F(TwoBoards, WhatOnlyOneBoardCarriesOutIsTold) {
    standby.stop();
    standby.begin("standby", active.root, "portisolate.maxisogrpnum = 4\n");
    active.ctlOutput("group create 4 ge1/1");
    EXPECT_NE(active.ctl("group create 100 ge1/1").status, 0);  // refused by both
    EXPECT_EQ(active.link(), "state=reached answered=2 differing=0 missed=0 lost=0 ended=0");
    active.ctlOutput("group create 5 ge1/2");
    EXPECT_EQ(active.link(), "state=reached answered=3 differing=1 missed=0 lost=0 ended=0");
    EXPECT_EQ(active.told("the boards differ: group 5, ge1/2: create: here 0x00000000: success, on the peer "
                          "board 0x03E80010: not supported"),
              1u)
        << active.log();
    standby.stop();
    active.ctlOutput("group create 6 ge1/2");
    EXPECT_EQ(active.link(), "state=absent answered=3 differing=1 missed=1 lost=0 ended=1");
    active.boardAnswer("peer agrees");
    EXPECT_EQ(active.link(), "state=absent answered=0 differing=0 missed=0 lost=0 ended=0");
    standby.begin("standby", active.root);
}

TEST_F(TwoBoards, ResyncBringsTheStandbyToTheActiveBoardWithoutOpeningAnything) {
    const auto differ = [&](const Side& side) { return side.ctl("board compare").status == 1; };
    EXPECT_EQ(active.ctl("status").status, 0) << active.ctlOutput("status --json");
    active.ctlOutput("group add 5 ge1/1 ge1/2 lag1");
    // As if the two had crossed: the standby board holds the ports by another group, and more than it should.
    const int there = standby.command();
    for (const Words& row : {Words{1, 6}, Words{2, 6}, Words{101, 6}, Words{6, 7}, Words{7, 7}}) {
        for (const uint32_t action : {ROW_CREATE, ROW_ACTIVATE}) {
            EXPECT_EQ(statusOf(there, request(OP_GROUP_SYNC, 1, {row[0], row[1], 0}, {action})), 0);
        }
    }
    for (const uint32_t port : {1, 2, 101}) {
        EXPECT_EQ(statusOf(there, request(OP_GROUP_SYNC, 1, {port, 5, 0}, {ROW_DESTROY})), 0);
    }
    EXPECT_EQ(statusOf(there, request(OP_VLAN_SYNC, 1, {20}, {PON_ISOLATION_OFF})), 0);
    close(there);
    EXPECT_TRUE(differ(active) && differ(standby));
    EXPECT_EQ(active.ctl("status").status, 1);
    EXPECT_EQ(
        active.ctl("board compare").out,
        "- group 5 ge1/1 ge1/2 lag1\n+ group 6 ge1/1 ge1/2 lag1\n+ group 7 pon2/2 pon2/3\n+ pon off 20\n");
    EXPECT_EQ(active.ctlOutput("board resync --dry-run"), standby.ctlOutput("board resync --dry-run"));
    EXPECT_TRUE(differ(active));

    const std::string wanted = active.state();
    const size_t mirrored = active.journalled("daxHwilCmdSyncApi");
    const size_t commands = standby.journalled("\"opcode\":44,");
    standby.ctlOutput("board resync");
    EXPECT_EQ(active.state(), wanted);
    EXPECT_EQ(standby.boardAnswer("matrix 20"), active.boardAnswer("matrix 20"));
    EXPECT_EQ(active.journalled("daxHwilCmdSyncApi"), mirrored) << "it came back";
    // The isolations of group 6 passed to group 5 in the tables alone; that of group 7 went.
    EXPECT_EQ(standby.journalled("\"opcode\":44,"), commands + 1);
    EXPECT_EQ(active.ctlOutput("board compare"), "both boards hold the same\n");
    EXPECT_EQ(active.ctlOutput("board resync"), "nothing to change\n");

    standby.stop();
    EXPECT_EQ(active.ctl("board compare").status, 3);
    EXPECT_EQ(active.ctl("status").status, 1);
    standby.begin("standby", active.root, "portisolate.maxisogrpnum = 4\n");
    active.ctlOutput("mode get");
    EXPECT_NE(active.ctl("board compare").out.find("! max-groups: 16 here, 4 on the peer board\n"),
              std::string::npos);
    const Outcome refused = active.ctl("board resync");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("0 changes made, 3 refused"), std::string::npos) << refused.err;
    EXPECT_NE(active.ctl("show ports").err.find("the boards may differ"), std::string::npos);
    active.ctlOutput("board role standby");
    EXPECT_EQ(active.ctl("board resync").status, 1);
    EXPECT_NE(active.ctl("status").out.find("problem: both boards are standby"), std::string::npos);
}

TEST_F(TwoBoards, ABoardWithoutDescriptorsTakesItsOwnChanges) {
    const int fd = active.command();
    EXPECT_EQ(promptStatus(fd, setRequest(1, 5, ROW_PROBE)), STATUS_NOT_FOUND);
    active.link("state=reached");
    const size_t open = active.descriptors();
    for (int lost = 0; lost < 2; ++lost) {
        EXPECT_EQ(promptStatus(fd, setRequest(1, 5, ROW_PROBE)), STATUS_NOT_FOUND);
        active.link("state=reached");
        EXPECT_EQ(active.descriptors(), open);
        standby.stop();
        standby.begin("standby", active.root);
    }
    // Every number that may be given out is taken; what is open stays so.
    const rlim_t all = active.limitTo(RLIMIT_NOFILE, 3);
    EXPECT_EQ(promptStatus(fd, setRequest(1, 5, ROW_CREATE)), 0);
    EXPECT_NE(standby.ctlOutput("group list").find("ge1/1"), std::string::npos) << active.log();
    standby.stop();
    standby.begin("standby", active.root);
    for (int turn = 0; turn < 3; ++turn) EXPECT_EQ(promptStatus(fd, setRequest(2, 5, ROW_CREATE)), 0);
    EXPECT_EQ(active.told("no descriptor left for the peer board"), 1u) << active.log();
    active.limitTo(RLIMIT_NOFILE, all);
    EXPECT_EQ(promptStatus(fd, setRequest(2, 5, ROW_CREATE)), 0);
    active.link("state=reached");
    close(fd);
}

TEST_F(TwoBoards, APeerThatTakesNoConnectionIsNotReached) {
    standby.stop();
    std::filesystem::remove(standby.root + COMMAND_SOCKET_PATH);
    const int full = standby.listenAt(COMMAND_SOCKET_PATH);
    const int fd = active.command();
    for (uint32_t lost = 1; lost <= 3; ++lost) {
        EXPECT_EQ(promptStatus(fd, setRequest(1, lost, ROW_CREATE)), 0);
        const int link = accept(full, nullptr, nullptr);
        EXPECT_TRUE(lost != 2 || converse(link, reply(STATUS_TOO_MANY_CLIENTS)));
        close(link);
        EXPECT_EQ(active.link(),
                  "state=absent answered=0 differing=0 missed=0 lost=" + std::to_string(lost) + " ended=0");
    }
    EXPECT_EQ(active.told("is not there: it closed the connection without an answer: too many clients"), 1u)
        << active.log();
    EXPECT_EQ(active.told("reached"), 0u) << active.log();
    EXPECT_EQ(promptStatus(fd, setRequest(1, 4, ROW_CREATE)), 0);
    active.link("state=silent");
    close(full);
    close(fd);
    std::filesystem::remove(standby.root + COMMAND_SOCKET_PATH);
    standby.begin("standby", active.root);
}

TEST_F(TwoBoards, AnIsolationSurvivesTheSwitchOver) {
    active.ctlOutput("group add 5 ge1/1 lag1 pon2/1");
    const std::string before = active.state();
    const size_t commands = standby.journalled("daxIfSyncApi");
    EXPECT_GT(commands, 0u);
    active.ctlOutput("board role standby");
    standby.ctlOutput("board role active");
    EXPECT_EQ(standby.ctlOutput("board role"), "active\n");
    active.stop(SIGKILL);
    EXPECT_EQ(standby.state(), before);
    EXPECT_EQ(standby.journalled("daxIfSyncApi"), commands) << "the hardware was touched";
    standby.ctlOutput("group del 5");
    EXPECT_EQ(standby.boardAnswer("matrix").find('x'), std::string::npos);
    active.begin("active", standby.root);
}

}  // namespace
