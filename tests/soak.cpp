// Random requests and events, with faults, against the running daemon for as long as SOAK_SECONDS says, run
// by hand. In the end it has the memory and the descriptors that it had after the first tenth of the time,
// and stands as a second daemon does that was given the surviving configuration alone.
//
// Left out is what the rules themselves do not undo: a row that was entered and never activated, a port pair
// that a plain and a VLAN group share, a one-way or delete command that the hardware refuses, a fault in the
// middle of an event.
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <random>

#include "e2e.h"
#include "platform/hardware.h"
#include "wire/framing.h"
#include "wire/records.h"

namespace {
using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

const Words UNITS = {1, 2, 3, 4, 5, 6, 101, 102};
const Words VLAN_UNITS = {7, 8};
const Strings PORTS = {"ge1/1", "ge1/2", "ge1/3", "ge1/4", "pon2/1", "pon2/2"};
const Strings FAULTS = {"daxHwilCmdSyncApi", "daxHwilCmdSetApi",  "daxVlanSetApi", "daxScalarSetApi",
                        "daxIfSyncApi",      "daxEthAggIfGetApi", "daxHwilIfGet"};

struct Soak : EndToEnd {
    std::mt19937 random{std::random_device{}()};
    int fd = -1;
    uint64_t requests = 0, refused = 0, events = 0, faults = 0;

    uint32_t roll(uint32_t below) { return static_cast<uint32_t>(random() % below); }
    template <typename Value>
    Value pick(const std::vector<Value>& values) {
        return values[roll(static_cast<uint32_t>(values.size()))];
    }

    int32_t set(uint32_t opcode, uint32_t column, const Words& index, uint32_t value) {
        Words words = {static_cast<uint32_t>(20 + 4 * index.size()), opcode, column,
                       static_cast<uint32_t>(4 * index.size())};
        words.insert(words.end(), index.begin(), index.end());
        words.insert(words.end(), {4, value});
        const int32_t status = statusOf(fd, bytesOf(words));
        requests++;
        if (status != 0) refused++;
        return status;
    }

    // Enters and activates a row, or takes it out again where one of the two is refused.
    void join(uint32_t opcode, uint32_t column, const Words& index) {
        if (set(opcode, column, index, ROW_CREATE) == 0 && set(opcode, column, index, ROW_ACTIVATE) == 0)
            return;
        boardAnswer("fault clear");
        set(opcode, column, index, ROW_DESTROY);
    }

    void fault(const std::string& scope, bool adds) {
        std::string call = pick(FAULTS);
        if (!adds && (call == "daxIfSyncApi" || call == "daxEthAggIfGetApi" || call == "daxHwilIfGet"))
            return;
        if (call == "daxIfSyncApi") call += " " + std::to_string(1 + roll(4)) + " 77 command " + scope;
        boardAnswer("fault " + (call.find(' ') == std::string::npos ? call + " 1 77" : call));
        faults++;
    }

    void request() {
        const bool add = roll(3) != 0;
        const uint32_t kind = roll(6);
        if (roll(4) == 0)
            fault(std::to_string(kind == 3 ? DAX_ISO_BI_VLAN_ADD : DAX_ISO_BI_ADD), add && kind != 2);
        const Words group = {pick(UNITS), 1 + roll(4), 0};
        const Words pair = {pick(UNITS), pick(UNITS), 0};
        const Words vlanGroup = {pick(VLAN_UNITS), 8, 10, 0};
        if (kind < 2 && add) join(OP_GROUP_SET, 1, group);
        if (kind < 2 && !add) set(OP_GROUP_SET, 1, group, ROW_DESTROY);
        if (kind == 2 && add) join(OP_PAIR_SET, 0, pair);
        if (kind == 2 && !add) set(OP_PAIR_SET, 0, pair, ROW_DESTROY);
        if (kind == 3 && add) join(OP_VLAN_GROUP_SET, 1, vlanGroup);
        if (kind == 3 && !add) set(OP_VLAN_GROUP_SET, 1, vlanGroup, ROW_DESTROY);
        if (kind == 4) set(OP_VLAN_SET, 1, {10 + 10 * roll(2)}, 1 + roll(2));
        if (kind == 5) set(OP_SCALAR_SET, SCALAR_MODE, {}, 1 + roll(2));
        boardAnswer("fault clear");
    }

    // Some of these make no sense just now and are refused.
    void event() {
        const std::string port = pick(PORTS);
        const std::string trunk = pick<std::string>({"lag1", "lag2"});
        const std::string line = pick<std::string>(
            {"unplug " + port, "plug " + port, "join " + trunk + " " + port, "leave " + trunk + " " + port,
             "publish mode-refresh", "publish serial-sync", "publish if-reset " + port});
        askLine(BOARD_SOCKET_PATH, line);
        askLine(SHELL_SOCKET_PATH, "portIsolateIfInnerShow");
        events++;
    }

    // A connection of the board or the shell is served by a thread whose stack is kept for the next one. How
    // many happen to overlap is chance, so that many stacks as never will are made at once, to begin with.
    void overlap() const {
        std::vector<int> clients;
        for (int client = 0; client < 16; client++)
            clients.push_back(connectTo(client % 2 == 0 ? BOARD_SOCKET_PATH : SHELL_SOCKET_PATH));
        for (const int client : clients) EXPECT_TRUE(converse(client, "nonsense\n"));
        for (const int client : clients) {
            receive(client, SIZE_MAX);
            close(client);
        }
    }

    size_t residentPages() const {
        const Texts fields = split(readText("/proc/" + std::to_string(daemon) + "/statm"), ' ');
        return std::stoul(fields.at(1));
    }

    // Tables, isolations by number of the port pair and of the group, and who reaches whom. The picture of
    // the board goes first: a second daemon has to be brought there.
    std::string state() {
        std::string programmed;
        for (const std::string& line : split(boardAnswer("hardware"), '\n'))
            if (!line.starts_with("counters")) programmed += line.substr(0, line.find(" group=")) + "\n";
        return ctlOutput("export") + programmed + ctlOutput("show inner") + boardAnswer("matrix 10");
    }

    // Brings a fresh board to the picture of the listing.
    void follow(const std::string& listing) {
        for (const char* trunk : {"lag1", "lag2"})
            for (const std::string& port : PORTS)
                askLine(BOARD_SOCKET_PATH, std::string("leave ") + trunk + " " + port);
        for (const std::string& line : split(listing, '\n')) {
            const auto field = [&](const std::string& key) {
                const size_t at = line.find(" " + key + "=") + key.size() + 2;
                return line.substr(at, line.find(' ', at) - at);
            };
            if (field("trunk") != "-") boardAnswer("join " + field("trunk") + " " + field("name"));
        }
    }
};

TEST_F(Soak, MemoryDescriptorsAndState) {
    const char* chosen = std::getenv("SOAK_SECONDS");
    const std::chrono::seconds time(chosen == nullptr ? 600 : std::atoi(chosen));
    start();
    fd = connectTo(COMMAND_SOCKET_PATH);
    overlap();
    const auto begin = Clock::now();
    size_t pages = 0, files = 0;
    for (auto now = begin; now < begin + time && !HasFailure(); now = Clock::now()) {
        if (pages == 0 && now >= begin + time / 10) {
            boardAnswer("settle");
            pages = residentPages();
            files = descriptors();
        }
        roll(4) == 0 ? event() : request();
    }
    for (const std::string& port : PORTS) askLine(BOARD_SOCKET_PATH, "plug " + port);
    boardAnswer("settle");
    EXPECT_EQ(residentPages(), pages);
    EXPECT_EQ(descriptors(), files);
    std::cout << requests << " requests, " << refused << " refused, " << faults << " faults, " << events
              << " events; " << residentPages() << " pages of " << sysconf(_SC_PAGESIZE) / 1024 << " KiB, "
              << files << " descriptors\n";

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
