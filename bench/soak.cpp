// Random requests and events, with faults, against the running daemon for as long as SOAK_SECONDS says, run
// by hand. In the end it has the memory and the descriptors that it had after the first tenth of the time,
// and stands as a second daemon does that was given the surviving configuration alone.
//
// Left out is what the rules themselves do not undo: a row that was entered and never activated, a port pair
// that a plain and a VLAN group share, a one-way or delete command that the hardware refuses, a fault in the
// middle of an event.

#include <chrono>
#include <iostream>

#include "platform/hardware.h"
#include "tests/dice.h"
#include "tests/e2e.h"

namespace {

using Clock = std::chrono::steady_clock;

const Words UNITS = {1, 2, 3, 4, 5, 6, 101, 102};
const Words VLAN_UNITS = {7, 8};
const Texts PORTS = {"ge1/1", "ge1/2", "ge1/3", "ge1/4", "pon2/1", "pon2/2"};
const Texts FAULTS = {"daxHwilCmdSyncApi", "daxHwilCmdSetApi", "daxVlanSetApi", "daxScalarSetApi"};
const Texts FAULTS_OF_ADDING = {"daxEthAggIfGetApi", "daxHwilIfGet", "daxIfSyncApi"};

struct Soak : EndToEnd {
    int fd = -1;
    uint64_t requests = 0, refused = 0, events = 0, faults = 0;

    int32_t set(uint32_t opcode, uint32_t column, const Words& index, uint32_t value) {
        const int32_t status = statusOf(fd, request(opcode, column, index, {value}));
        ++requests;
        refused += status != 0 ? 1 : 0;
        return status;
    }

    // Takes a row out, or enters and activates it; one that is refused is taken out again.
    void change(bool add, uint32_t opcode, uint32_t column, const Words& index) {
        bool stays = add;
        for (const uint32_t status : {ROW_CREATE, ROW_ACTIVATE}) {
            stays = stays && set(opcode, column, index, status) == 0;
        }
        if (stays) return;
        if (add) boardAnswer("fault clear");
        set(opcode, column, index, ROW_DESTROY);
    }

    void fault(uint32_t command, bool adds) {
        std::string call = adds && roll(2) == 0 ? pick(FAULTS_OF_ADDING) : pick(FAULTS);
        const bool isolates = call == "daxIfSyncApi";
        call +=
            isolates ? " " + std::to_string(1 + roll(4)) + " 77 command " + std::to_string(command) : " 1 77";
        boardAnswer("fault " + call);
        ++faults;
    }

    void anyRequest() {
        const bool add = roll(3) != 0;
        const uint32_t kind = roll(6);
        if (roll(4) == 0) fault(kind == 3 ? DAX_ISO_BI_VLAN_ADD : DAX_ISO_BI_ADD, add && kind != 2);
        if (kind < 2) change(add, OP_GROUP_SET, GROUP_COLUMN_ROW_STATUS, {pick(UNITS), 1 + roll(4), 0});
        if (kind == 2) change(add, OP_PAIR_SET, PAIR_COLUMN_ROW_STATUS, {pick(UNITS), pick(UNITS), 0});
        if (kind == 3) change(add, OP_VLAN_GROUP_SET, GROUP_COLUMN_ROW_STATUS, {pick(VLAN_UNITS), 8, 10, 0});
        if (kind == 4) set(OP_VLAN_SET, 1, {10 + 10 * roll(2)}, 1 + roll(2));
        if (kind == 5) set(OP_SCALAR_SET, SCALAR_MODE, {}, 1 + roll(2));
        boardAnswer("fault clear");
    }

    // Some of these make no sense just now and are refused.
    void anyEvent() {
        const std::string port = pick(PORTS);
        const std::string trunk = pick<std::string>({"lag1 ", "lag2 "});
        askLine(BOARD_SOCKET_PATH,
                pick<std::string>({"unplug " + port, "plug " + port, "join " + trunk + port,
                                   "leave " + trunk + port, "publish mode-refresh", "publish serial-sync",
                                   "publish if-reset " + port}));
        askLine(SHELL_SOCKET_PATH, "portIsolateIfInnerShow");
        ++events;
    }

    // A connection of the board or the shell is served by a thread whose stack is kept for the next one. How
    // many happen to overlap is chance, so that many stacks as never will are made at once, to begin with.
    void overlap() const {
        std::vector<int> clients;
        for (int client = 0; client < 16; ++client) {
            clients.push_back(connectTo(client % 2 == 0 ? BOARD_SOCKET_PATH : SHELL_SOCKET_PATH));
        }
        for (const int client : clients) EXPECT_TRUE(converse(client, "nonsense\n"));
        for (const int client : clients) {
            receive(client, SIZE_MAX);
            close(client);
        }
    }

    // Pages of memory, and descriptors.
    std::pair<size_t, size_t> held() const {
        boardAnswer("settle");
        const Texts fields = split(readText("/proc/" + std::to_string(daemon) + "/statm"), ' ');
        return {std::stoul(fields.at(1)), descriptors()};
    }

    // Tables, isolations by number of the port pair and of the group, and who reaches whom.
    std::string state() const {
        std::string programmed;
        for (const std::string& line : split(boardAnswer("hardware"), '\n')) {
            if (!line.starts_with("counters")) programmed += line.substr(0, line.find(" group=")) + "\n";
        }
        return ctlOutput("export") + programmed + ctlOutput("show inner") + boardAnswer("matrix 10");
    }

    // Brings the trunks of a fresh board to the picture of the listing.
    void follow(const std::string& listing) const {
        for (const std::string trunk : {"lag1 ", "lag2 "}) {
            for (const std::string& port : PORTS) askLine(BOARD_SOCKET_PATH, "leave " + trunk + port);
        }
        for (const std::string& line : split(listing, '\n')) {
            const auto field = [&](const std::string& key) {
                const size_t at = line.find(" " + key + "=") + key.size() + 2;
                return line.substr(at, line.find(' ', at) - at);
            };
            if (field("trunk") != "-") boardAnswer("join " + field("trunk") + " " + field("name"));
        }
    }
};

TEST_F(Soak, KeepsItsMemoryItsDescriptorsAndItsState) {
    const char* chosen = std::getenv("SOAK_SECONDS");
    const std::chrono::seconds time(chosen == nullptr ? 600 : std::atoi(chosen));
    dice.seed(std::random_device{}());
    start();
    fd = connectTo(COMMAND_SOCKET_PATH);
    overlap();
    const auto begin = Clock::now();
    std::pair<size_t, size_t> before;
    for (auto now = begin; now < begin + time && !HasFailure(); now = Clock::now()) {
        if (before.first == 0 && now >= begin + time / 10) before = held();
        roll(4) == 0 ? anyEvent() : anyRequest();
    }
    for (const std::string& port : PORTS) askLine(BOARD_SOCKET_PATH, "plug " + port);
    EXPECT_EQ(held(), before);
    std::cout << requests << " requests, " << refused << " refused, " << faults << " faults, " << events
              << " events; " << before.first << " pages of " << sysconf(_SC_PAGESIZE) / 1024 << " KiB, "
              << before.second << " descriptors\n";

    const std::string listing = boardAnswer("list");
    const std::string survived = state();
    std::ofstream(root + "/survived") << ctlOutput("export");
    close(fd);
    stop();
    start();
    follow(listing);
    ctlOutput("apply " + root + "/survived");
    EXPECT_EQ(state(), survived);
}

}  // namespace
