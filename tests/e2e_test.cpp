// The running programs as an operator sees them: what is configured and what happens to the board, and what
// the forwarding plane, the printouts, the journal and the log then say.
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>

#include "e2e.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"

namespace {

// What `format` makes of each line that matches.
Texts extract(const std::string& text, const std::string& pattern, const std::string& format = "$&") {
    Texts found;
    const std::regex expression(pattern);
    for (const std::string& line : split(text, '\n')) {
        std::smatch match;
        if (std::regex_search(line, match, expression)) found.push_back(match.format(format));
    }
    return found;
}

struct Story : EndToEnd, testing::WithParamInterface<std::pair<bool, bool>> {
    Texts printout(const std::string& function, const std::string& pattern, const std::string& format) const {
        return extract(askLine(SHELL_SOCKET_PATH, "portIsolate" + function + "Show"), pattern, format);
    }

    // Who reaches whom according to the tables and the board's own picture, written as the board's matrix is.
    std::string expectedMatrix(const std::string& vlan) const {
        std::map<std::string, std::set<std::string>> groups;
        const char* member = "isoGrpNo (\\d+)(?: vlan (\\d+))? -> ifunit:(\\d+)";
        for (const std::string& row : printout("Grp", member, "$1 $3 $2")) {
            const Texts words = split(row, ' ');
            if (words.size() == 2 || words[2] == vlan) groups[words[0]].insert(words[1]);
        }
        const Texts pairs = printout("IfPair", "src (\\d+), dst (\\d+)", "$1 $2");
        const bool ponIsolates =
            vlan != "0" && printout("Global", "p2pEnableVlan: " + vlan + "\\b", "$&").empty();

        // Of each interface number, name, kind and members.
        const auto isolated = [&](const Texts& from, const Texts& to) {
            // With both switches on only member ports are programmed, and a trunk without any isolates
            // nobody. One-way pairs always replace a target trunk by its ports.
            const bool bare = (from[2] == "trunk" && from[3] == "-") || (to[2] == "trunk" && to[3] == "-");
            for (const auto& [group, members] : groups) {
                const bool share = members.contains(from[0]) && members.contains(to[0]);
                if (share && (!bare || GetParam() != std::pair(true, true))) return true;
            }
            if (!bare && std::ranges::find(pairs, from[0] + " " + to[0]) != pairs.end()) return true;
            return ponIsolates && from[2] == "pon" && to[2] == "pon";
        };
        std::vector<Texts> shown;
        const char* present =
            "number=(\\d+) name=(\\S+) kind=([ept]\\w+) .*present=yes trunk=- .*members=(\\S+) ";
        for (const std::string& line : extract(boardAnswer("list"), present, "$1 $2 $3 $4")) {
            shown.push_back(split(line, ' '));
        }
        std::string heading, cells;
        for (const Texts& from : shown) {
            heading += (heading.empty() ? "" : " ") + from[1];
            cells += "\n" + from[1] + " ";
            for (const Texts& to : shown) cells += from == to ? '-' : isolated(from, to) ? 'x' : 'o';
        }
        return heading + cells + "\n";
    }

    void happens(std::initializer_list<const char*> calls) {
        for (const char* call : calls) {
            SCOPED_TRACE(call);
            ctlOutput(call);
            for (const std::string vlan : {"0", "10"}) {
                EXPECT_EQ(boardAnswer("matrix " + vlan), expectedMatrix(vlan)) << vlan;
            }
        }
    }
};

TEST_P(Story, ForwardingFollowsTheTables) {
    const auto [sourceSwitch, targetSwitch] = GetParam();
    start("portisolate.srcaggtoport = " + std::to_string(sourceSwitch) +
          "\nportisolate.dstaggtoport = " + std::to_string(targetSwitch) + "\n");
    happens({"group add 5 ge1/1 pon2/1 lag1", "vlan-group add 7 pon2/3 pon2/4 --vlan 10", "pon off 10"});
    // With both switches off a pair does not learn of ports that its trunk gains.
    if (sourceSwitch || targetSwitch) happens({"pair add pon2/2 lag1"});
    EXPECT_TRUE(ctlOutput("board forward ge1/1 lag1").starts_with("no "));
    happens({"board join lag1 ge1/2", "board leave lag1 ge1/2", "group add 6 ge1/2 pon2/1",
             "board join lag1 ge1/2"});
    EXPECT_EQ(printout("Grp", "isoGrpNo 6.*:(\\d+)", "$1"), Texts{"5"})
        << "a port leaves its groups for its trunk";
    happens({"board leave lag1 ge1/2", "board unplug ge1/3", "board plug ge1/3", "board unplug ge1/1",
             "board plug ge1/1"});
    EXPECT_EQ(printout("Grp", "isoGrpNo 5.*:(\\d+)", "$1"), (Texts{"5", "101"}))
        << "membership ends with the interface";
    happens({"group add 5 ge1/1", "board card-pull 1", "board card-push 1", "board card-pull 2",
             "board card-push 2", "group add 5 ge1/1 ge1/2 pon2/1 lag1", "board publish if-reset lag1",
             "group add 5 lag1", "board publish reset"});
    for (const char* table : {"group", "pair", "pon"}) {
        EXPECT_EQ(ctlOutput(std::string(table) + " list --json"), "[]\n");
    }
    happens({"vlan-group del 7 --vlan 10"});
    // A port that once was alone in its group may keep its self isolation without both switches: the hardware
    // is not told of its end.
    const char* left =
        sourceSwitch || targetSwitch ? "^(bi|uni|pon-off) .*" : "^(bi (?!(\\d+) \\2 )|uni|pon-off).*";
    EXPECT_EQ(extract(boardAnswer("hardware"), left), Texts{});
}

INSTANTIATE_TEST_SUITE_P(TrunkSwitches, Story,
                         testing::Values(std::pair(true, true), std::pair(true, false),
                                         std::pair(false, true), std::pair(false, false)));

TEST_F(EndToEnd, CommandsEndWithAStatusAndWords) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"group --help", 0, "group add GROUP INTERFACE..."},
        {"board unplug ge1/1", 0, ""},
        {"board unplug ge1/1", 1, "ge1/1 is unplugged already"},
        {"group add 5", 2, "INTERFACE... is missing"},
        {"raw 4 --column 1 --index 1,5,0 --value 2", 0, "status: 0x00000000"},
        {"raw 6 --column 1 --index 1,5,0", 0, "(words 3)"},
        {"raw 10 --index 0,5,2", 0, "(words 1,5,2)"},
        {"raw 15 --index 10", 1, "status: 0x03E80002"},
        {"raw 3 --column 12 --capacity 8", 1, "status: 0x0000007A"},
        {"raw 4 --column 1 --index 1,5,0 --value-hex 01", 1, "status: 0x03E80005"},
        {"raw 24", 1, "status: 0x03E80003"},
        {"pair add ge1/2 lag2", 0, ""},  // a trunk without members
    };
    EXPECT_EQ(ctl("group list").status, 3);
    start();
    for (const auto& [arguments, status, says] : cases) {
        const Outcome outcome = ctl(arguments);
        const std::string all = outcome.out + outcome.err;
        EXPECT_EQ(outcome.status, status) << arguments << all;
        EXPECT_NE(all.find(says), std::string::npos) << arguments << all;
    }
    ctlOutput("group add 5 ge1/2 lag1");
    stop(SIGKILL);
    EXPECT_EQ(ctl("group list").status, 3) << "the sockets of a dead daemon";
    start();
    EXPECT_EQ(ctlOutput("group list --json"), "[]\n");
}

TEST_F(EndToEnd, TheBoardSaysWhatItDoesNotDo) {
    // Lines and how their answers begin, in an order that counts.
    const char* const cases[][2] = {
        {"unplug ge1/1", "ok"},
        {"unplug ge1/1", "error: ge1/1 is unplugged already"},
        {"forward ge1/2 ge1/1", "ok\nno ge1/1 is not plugged"},
        {"forward remote ge1/1 5", "ok\nno ge1/1 is not plugged"},
        {"forward remote ge1/2 5,7-9 10", "ok\nyes"},
        {"forward remote nobody 5", "error: no such interface: nobody"},
        {"forward remote vlan10 5", "error: a VLAN interface does not forward"},
        {"forward ge1/2 nobody", "error: no such interface: nobody"},
        {"forward noone ge1/2", "error: no such interface: noone"},
        {"plug ge1/1", "ok"},
        {"plug ge1/1", "error: ge1/1 is plugged already"},
        {"join lag1 ge1/3", "error: the port is in a trunk already"},
        {"join ge1/2 ge1/1", "error: the first interface is not a trunk"},
        {"leave lag2 ge1/1", "error: ge1/1 is not a member of lag2"},
        {"vlan-del 77", "error: this VLAN has no interface"},
        {"vlan-add 77 377 v77", "ok"},
        {"vlan-add 78 377 v78", "error: this number is in use"},
        {"vlan-del 77", "ok"},
        {"vlan-add 77 377 v77", "ok"},
        {"card-pull 2", "ok"},
        {"card-pull 2", "error: the card is pulled already"},
        {"card-push 2", "ok"},
        {"card-push 2", "error: no card was pulled from this slot"},
        {"publish dellink nobody", "error: no such interface: nobody"},
        {"fault daxIfSyncApi 0 5", "error: calls are counted from 1"},
        {"fault daxIfSyncApi every 5 if nobody", "error: no such interface: nobody"},
        {"fault daxIfSyncApi 1 5 if ge1/1 command 44", "ok"},
        {"fault list", "ok\ndaxIfSyncApi 1 status=0x00000005 if=1 command=0x2c seen=0\n"},
        {"plane restore", "ok\n0\n"},
        {"plane spanning", "ok\n"},
        {"plane spanning 5", "error: no port of this board carries groups"},
        {"plane spanning 17", "error: \"17\" is not a group that can span"},
    };
    const std::string misused =
        "forward remote ge1/2 5 10 11|forward remote ge1/2 5,17|forward ge1/2 ge1/1 10 11|join lag2 ge1/1 x|"
        "vlan-add 77 x v77|vlan-add x 77 v77|vlan-del 77 1|publish reset x|publish mode-refresh x|"
        "publish serial-sync x|publish card-up x|publish newlink ge1/1 sideways|"
        "publish newlink lag1 member-add|publish raw x 00|publish nonsense ge1/1|settle now|matrix 5000|"
        "hardware x|plane grow|role boss|peer disagrees";
    start();
    for (const auto& [line, begins] : cases) {
        const std::string answer = askLine(BOARD_SOCKET_PATH, line);
        EXPECT_TRUE(answer.starts_with(begins)) << line << ": " << answer;
    }
    for (const std::string& line : split(misused, '|')) {
        const std::string usage = "error: usage: " + split(line, ' ')[0] + " ";
        EXPECT_TRUE(askLine(BOARD_SOCKET_PATH, line).starts_with(usage)) << line;
    }
}

TEST_F(EndToEnd, JournalTellsEveryCallInItsFileAndItsStream) {
    board += "\njournal /tmp/journal\n";
    start();
    const std::string file = root + "/tmp/journal";
    // The last call of the start comes when clients may already connect; the next one waits for its lines.
    ASSERT_TRUE(eventually([&] { return readText(file).find("daxHwilScalarSet\"") != std::string::npos; }));
    ctlOutput("mode set 2");
    const int stream = connectTo(BOARD_SOCKET_PATH);
    ASSERT_TRUE(converse(stream, "journal\n", "ok\n"));
    const size_t before = readText(file).size();
    ctlOutput("board fault daxIfSyncApi 4 -7 command 44");
    EXPECT_EQ(ctl("group add 5 ge1/1 ge1/2 lag1").status, 1);
    const std::string told = readText(file).substr(before);
    const std::string protocol = "\"ifUnit\":(\\d+),\"opcode\":(5\\d),\"protocol\":198,\"status\":(0)";
    const std::string isolation =
        "\"ifUnit\":(\\d+),\"opcode\":(44),\"record\":\\{\"attrId\":(\\d+),"
        "\"flag\":1,\"dataLen\":24\\},\"data\":\"[0-9a-f]{48}\",\"status\":(-?\\d+)";
    const std::string add = std::to_string(DAX_ISO_BI_ADD);
    const std::string del = std::to_string(DAX_ISO_BI_DEL);
    // Two ports and a trunk of two: the fourth isolation is refused, so the trunk's are taken back by the
    // daemon and the other by the command.
    EXPECT_EQ(extract(told, "\"daxIfSyncApi\",(?:" + protocol + "|" + isolation + ")}$", "$1$4 $2$5 $6 $3$7"),
              (Texts{"1 56  0", "2 56  0", "1 44 " + add + " 0", "101 56  0", "1 44 " + add + " 0",
                     "1 44 " + add + " 0", "2 44 " + add + " -7", "1 44 " + del + " 0", "1 44 " + del + " 0",
                     "101 57  0", "1 44 " + del + " 0", "2 57  0", "1 57  0"}));
    EXPECT_TRUE(boardAnswer("hardware").starts_with("mode ")) << "nothing stays isolated";
    EXPECT_TRUE(converse(stream, "", told)) << "file and stream differ";
    close(stream);
}

TEST_F(EndToEnd, LinesCarryTimeOrPriority) {
    const std::string stamp = "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ";
    const std::string starts[][3] = {{stamp, stamp, stamp}, {"^<[0-7]>", "^<7>", "^<5>"}};
    for (const auto& [any, traceLine, failure] : starts) {
        start();
        ctlOutput("debug 0xf");
        ctlOutput("board fault daxIfSyncApi 1 5 command 44");
        EXPECT_EQ(ctl("group add 5 ge1/1 ge1/2").status, 1);
        const std::string channel = "(debug level=[0-7] category=[0-9]+|log level=[0-7]|host|change) [ -~]+$";
        EXPECT_EQ(extract(log(), any + channel), split(log(), '\n'));
        EXPECT_EQ(extract(log(), traceLine + "debug level=5 category=2 add hw-if bi-isolate (.*)", "$1"),
                  Texts{"[src: ge1/1, target: ge1/2]"});
        EXPECT_EQ(extract(log(), failure + "log level=0 failed to operate isolate. (.*)", "$1"),
                  Texts{"(srcIfName=[ge1/1], dstIfName=[ge1/2], vlan=[0], type=[isolate], group=[5], "
                        "operation=[add])"});
        const std::string change =
            "by uid " + std::to_string(getuid()) + ", pid [0-9]+ .portisolatectl.: group 5, ge1/2: ";
        EXPECT_EQ(extract(log(), any + "change " + change + "(.*)", "$1"),
                  Texts({"create -> done", "activate -> 0x00000005: the kernel says: Input/output error",
                         "destroy -> done"}));
        stop();
        std::filesystem::remove(root + "/daemon.err");
        setenv("JOURNAL_STREAM", "8:1", 1);
    }
}

TEST_F(EndToEnd, UnconfirmedChangesAreTakenBack) {
    start();
    const std::string wanted = root + "/wanted";
    EXPECT_EQ(ctl("confirm").status, 1);
    std::ofstream(wanted) << "mode 1\ngroup 5 ge1/1 ge1/2\n";
    ctlOutput("apply " + wanted + " --confirm 60");
    const std::string kept = ctlOutput("export");
    EXPECT_NE(kept.find("group 5 ge1/1 ge1/2"), std::string::npos);
    std::ofstream(wanted) << "mode 2\npair ge1/1 to ge1/2\n";
    EXPECT_EQ(ctl("apply " + wanted + " --confirm 60").status, 1);  // one at a time
    ctlOutput("confirm");
    EXPECT_EQ(ctl("confirm").status, 1);
    EXPECT_EQ(ctlOutput("export"), kept);

    // The first try to take it back is refused: of its two commands, behind two of the change, the last.
    ctlOutput("board fault daxIfSyncApi 4 5 command 44");
    ctlOutput("apply " + wanted + " --confirm 1");
    EXPECT_TRUE(eventually([&] { return ctlOutput("export") == kept; }));
    EXPECT_NE(log().find("activate -> 0x00000005"), std::string::npos) << log();
    EXPECT_NE(log().find("pair ge1/1 to ge1/2: activate -> done"), std::string::npos);
}

TEST_F(EndToEnd, StartsThatCannotBe) {
    const auto vain = [this](const std::string& options, const std::string& says) {
        const Outcome outcome = startInVain(options);
        EXPECT_EQ(outcome.status, 255);
        EXPECT_NE(outcome.err.find(says), std::string::npos) << outcome.err;
    };
    std::ofstream(root + "/etc/portisolate/board.conf") << board;
    vain("portisolate.enable = false\n", "");
    vain("portisolate.maxifnum = 4000000000\n", "table failed");
    vain("portisolate.maxifnum\n", "portisolate.conf:1: expected KEY = VALUE");
    std::ofstream(root + "/etc/portisolate/board.conf") << "plane linxu\n" + board;
    vain("", "board.conf:1: expected: plane sim|linux");
    for (const auto& [argument, status] :
         {std::pair("--check", 1), {"--frob", 2}, {"--version", 0}, {"--help", 0}}) {
        EXPECT_EQ(outcomeOf(spawn(DAEMON_PROGRAM, {argument}, "vain"), "vain").status, status) << argument;
        EXPECT_FALSE(std::filesystem::exists(root + COMMAND_SOCKET_PATH)) << argument;
    }
    std::ofstream(root + "/etc/portisolate/board.conf") << board;
    EXPECT_EQ(outcomeOf(spawn(DAEMON_PROGRAM, {"--check"}, "vain"), "vain").status, 0);
    std::ofstream(root + "/etc/portisolate/isolation.conf") << "mode 2\ngroup 0 ge1/1\n";
    const Outcome saved = outcomeOf(spawn(DAEMON_PROGRAM, {"--check"}, "vain"), "vain");
    EXPECT_TRUE(saved.status == 1 && saved.err.find("isolation.conf:2:7: ") != std::string::npos)
        << saved.err;
    // What is in the way of anything that the daemon needs is named in the only line; FIFOs are never waited
    // for.
    const std::string configuration[] = {"/etc/portisolate/board.conf", "/etc/portisolate/portisolate.conf"};
    for (const char* taken : {COMMAND_SOCKET_PATH, ROUTE_SOCKET_PATH, SHELL_SOCKET_PATH, BOARD_SOCKET_PATH}) {
        std::filesystem::remove(root + taken);  // a socket of the starts before
        std::ofstream(root + taken) << "in the way";
        const Outcome outcome = startInVain();
        EXPECT_EQ(outcome.status, 255) << taken;
        EXPECT_NE(outcome.err.find("cannot serve " + root + taken), std::string::npos) << outcome.err;
        Texts lines = split(outcome.err, '\n');
        std::erase_if(lines, [](const std::string& line) { return line.ends_with("no real port"); });
        EXPECT_EQ(lines.size(), 1u) << outcome.err;
        EXPECT_EQ(readText(root + taken), "in the way");
        std::filesystem::remove(root + taken);
    }
    for (const std::string& file : configuration) {
        for (const bool pipe : {true, false}) {
            std::filesystem::remove(root + file);
            ASSERT_EQ(pipe ? mkfifo((root + file).c_str(), 0600) : mkdir((root + file).c_str(), 0700), 0);
            const Outcome outcome = outcomeOf(spawn(DAEMON_PROGRAM, {}, "vain"), "vain");
            EXPECT_EQ(outcome.status, 255) << file;
            EXPECT_NE(outcome.err.find(file + ": not a regular file"), std::string::npos) << outcome.err;
            std::filesystem::remove(root + file);
        }
    }
}

// What a terminal, an operator, a rotation of logs and a full disk do to a process.
TEST_F(EndToEnd, SignalsAndAFullDiskCostTheJournalAtMost) {
    board += "\njournal /journal\n";
    const std::string file = root + "/journal";
    start();
    for (const int signal : {SIGUSR1, SIGUSR2, SIGHUP}) tell(signal);
    ctlOutput("group add 5 ge1/1 ge1/2");
    std::filesystem::rename(file, file + ".1");
    const std::string before = readText(file + ".1");
    tell(SIGHUP);
    for (int looks = 0; looks < 10000 && !std::filesystem::exists(file); ++looks) boardAnswer("settle");
    ctlOutput("group del 5");
    EXPECT_EQ(readText(file + ".1"), before);
    const size_t size = readText(file).size();
    const rlim_t all = limitTo(RLIMIT_FSIZE, size + 100);
    ctlOutput("group add 6 ge1/1 ge1/2");
    EXPECT_EQ(readText(file).size(), size + 100) << "the last line has been cut";
    limitTo(RLIMIT_FSIZE, all);
    ctlOutput("group del 6");
    const Texts lines = split(readText(file), '\n');
    const Texts whole = extract(readText(file), "^\\{\"seq\":.*\\}$");
    EXPECT_EQ(whole.size() + 1, lines.size()) << "the line behind the cut one is cut, too";
}

// Whoever starts it: nothing can be gained any more, and little of what root has is left.
TEST_F(EndToEnd, KeepsFewPrivileges) {
    start();
    const std::string status = readText("/proc/" + std::to_string(daemon) + "/status");
    EXPECT_EQ(extract(status, "^NoNewPrivs:\\s(\\d)", "$1"), Texts{"1"});
    const uint64_t kept = 1u << 0 | 1u << 1 | 1u << 3 | 1u << 12;  // of capabilities(7)
    // Who is not root may not take anything from the last of them.
    for (const char* set : {"CapEff", "CapPrm", "CapInh", "CapAmb", geteuid() == 0 ? "CapBnd" : "CapAmb"}) {
        const Texts found = extract(status, "^" + std::string(set) + ":\\s([0-9a-f]+)", "$1");
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(std::stoull(found[0], nullptr, 16) & ~kept, 0u) << set;
    }
}

// A peer that takes nothing holds up the task that has something for it; a hung task must not look alive.
TEST_F(EndToEnd, TheServiceManagerHearsOfAHungTask) {
    for (const bool eventTask : {true, false}) {
        std::filesystem::create_directories(root + "/peer/tmp");
        const int manager = listenAt("/notify", SOCK_DGRAM);
        const int peer = listenAt(std::string("/peer") + COMMAND_SOCKET_PATH);
        ASSERT_EQ(listen(peer, 0), 0);
        const int queued = connectTo("/peer/tmp/portisolatecmd.socket");
        setenv("NOTIFY_SOCKET", (root + "/notify").c_str(), 1);
        setenv("WATCHDOG_USEC", "400000", 1);
        board = readText(DEMO_BOARD) + "\nrole active\npeer peer timeout 3000\n";
        start();
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
        const auto hears = [manager](const std::string& expected) {
            char words[64];
            pollfd polled = {manager, POLLIN, 0};
            const ssize_t got = poll(&polled, 1, 1000) == 1 ? recv(manager, words, sizeof(words), 0) : 0;
            return std::string(words, static_cast<size_t>(got)) == expected;
        };
        EXPECT_TRUE(hears("READY=1"));
        for (int sign = 0; sign < 8; ++sign) EXPECT_TRUE(hears("WATCHDOG=1"));
        const int client = connectTo(eventTask ? ROUTE_SOCKET_PATH : COMMAND_SOCKET_PATH,
                                     eventTask ? SOCK_DGRAM : SOCK_STREAM);
        const std::string event = bytesOf({DAX_RTGRP_SYSTEM_GROUP, 24, DAX_RTM_SERIAL_SYNC, 0, 0, 0, 0});
        const std::string setting = request(OP_GROUP_SET, GROUP_COLUMN_ROW_STATUS, {1, 5, 0}, {ROW_CREATE});
        EXPECT_TRUE(converse(client, eventTask ? event : setting));
        int signs = 0;
        while (signs < 20 && hears("WATCHDOG=1")) ++signs;
        EXPECT_LT(signs, 20) << "hung, and told to be alive: " << eventTask;
        signs = 0;
        while (signs < 5 && !hears("WATCHDOG=1")) ++signs;
        EXPECT_LT(signs, 5) << "alive again, and nobody is told: " << eventTask;
        stop();
        for (const int fd : {manager, peer, queued, client}) close(fd);
        for (const char* left : {"/notify", "/peer"}) std::filesystem::remove_all(root + left);
    }
}

// However their starts fall into one another, one daemon serves everything and the others say who.
TEST_F(EndToEnd, OfDaemonsThatStartTogetherOneIsWhole) {
    board += "\njournal /journal\n";
    start();
    ctlOutput("group add 5 ge1/1 ge1/2");
    EXPECT_EQ(startInVain().status, 255);
    EXPECT_EQ(extract(ctlOutput("show groups"), "ifunit:\\d"), (Texts{"ifunit:1", "ifunit:2"}));
    for (int turn = 0; turn < 10; ++turn) {
        stop(SIGKILL);
        std::filesystem::remove(root + "/journal");
        std::map<pid_t, std::string> running;
        for (const char* name : {"a", "b", "c", "d"}) running[spawn(DAEMON_PROGRAM, {}, name)] = name;
        for (int tries = 0; running.size() > 1 && tries < 3000; ++tries) {
            for (const auto& [program, name] : running) {
                if (!endsWithin(program, 10)) continue;
                const Outcome outcome = outcomeOf(program, name);
                EXPECT_EQ(outcome.status, 255);
                EXPECT_EQ(extract(outcome.err, "another daemon is already serving .*process \\d+").size(), 1u)
                    << outcome.err;
                running.erase(program);
                break;
            }
        }
        ASSERT_EQ(running.size(), 1u) << "more than one runs";
        daemon = running.begin()->first;
        awaitService();
        EXPECT_EQ(readText(root + PID_FILE), std::to_string(daemon) + "\n");
        ctlOutput("board unplug ge1/1");
        EXPECT_NE(ctlOutput("show groups"), "");
        EXPECT_NE(readText(root + "/journal"), "");
    }
}

}  // namespace

TEST_F(EndToEnd, KeepsWhatIsSavedAndNamesTheRest) {
    start();
    const std::string saved = root + "/etc/portisolate/isolation.conf";
    const auto shows = [this](const char* asked, const std::string& wanted) {
        return eventually([&] { return ctlOutput(asked).find(wanted) != std::string::npos; });
    };
    EXPECT_EQ(ctl("keep --once").status, 0);  // nothing is saved
    std::ofstream(saved) << "mode 2\ngroup 5 ge1/1 pon2/1\nfrob\nvlan-group 8 vlan 10 ge1/3 ge9/9\n";
    const Outcome once = ctl("keep --once");
    EXPECT_EQ(once.status, 1);
    for (const char* named : {":3:1: ", ":4:28: ", "pending: vlan-group 8 vlan 10 ge1/3"}) {
        EXPECT_NE(once.err.find(named), std::string::npos) << named << once.err;
    }
    EXPECT_TRUE(shows("group list", "pon2/1"));

    // A port that leaves its trunk can be a member; what an operator has deleted stays so.
    const pid_t keeper = startCtl("keep", "keeper");
    while (readText(root + "/keeper.err").find("ge1/3: does not run") == std::string::npos) {
        ASSERT_FALSE(endsWithin(keeper, 1));
    }
    ctlOutput("group del 5 pon2/1");
    boardAnswer("leave lag1 ge1/3");
    EXPECT_TRUE(shows("vlan-group list", "ge1/3"));
    EXPECT_EQ(ctlOutput("group list").find("pon2/1"), std::string::npos);
    stop(SIGKILL);
    std::filesystem::remove(root + COMMAND_SOCKET_PATH);
    start();
    EXPECT_TRUE(shows("group list", "pon2/1"));
    kill(keeper, SIGTERM);
    EXPECT_EQ(outcomeOf(keeper, "keeper").status, -SIGTERM);

    std::ofstream(saved) << "nonsense\n";
    EXPECT_NE(ctl("keep --once").err.find("nothing swept"), std::string::npos);
    EXPECT_NE(ctlOutput("group list").find("pon2/1"), std::string::npos);
    // What is only to be entered may be active, or not.
    std::ofstream(saved) << "created group 5 ge1/1\ncreated group 9 ge1/2\n";
    EXPECT_EQ(ctl("keep --once").status, 0);
    EXPECT_EQ(ctl("keep --once").status, 0);
}

TEST_F(EndToEnd, HoldsTheDaemonToTheFileAndLeavesTheRowsOfOthers) {
    start();
    const std::string saved = root + "/etc/portisolate/isolation.conf";
    const auto save = [&](const std::string& text) {
        std::ofstream(saved + ".new") << text;
        std::filesystem::rename(saved + ".new", saved);
    };
    const auto groups = [this] {
        std::string lines;
        for (const std::string& line : split(ctlOutput("export"), '\n')) {
            if (line.starts_with("group")) lines += line + ";";
        }
        return lines;
    };
    const auto becomes = [&](const std::string& wanted) {
        return eventually([&] { return groups() == wanted; }) ? "" : groups();
    };
    ctlOutput("group add 3 ge1/1 ge1/2");
    save("group 5 pon2/* !pon2/3\n");
    pid_t keeper = startCtl("keep", "keeper");
    EXPECT_EQ(becomes("group 3 ge1/1 ge1/2;group 5 pon2/* !pon2/3;"), "");
    EXPECT_NE(ctl("status").out.find("in force; not saved: 2 rows"), std::string::npos);
    // Another file, while no keeper runs: what the former one wanted goes, what others made stays.
    kill(keeper, SIGTERM);
    outcomeOf(keeper, "keeper");
    save("group 6 pon2/1-2\n");
    keeper = startCtl("keep", "keeper");
    EXPECT_EQ(becomes("group 3 ge1/1 ge1/2;group 6 pon2/1 pon2/2;"), "");
    // While it runs, by another file in its place. A mistake removes nothing.
    save("group 7 pon2/1-3\ngroup 8 pon2/9\n");
    EXPECT_EQ(becomes("group 3 ge1/1 ge1/2;group 6 pon2/1 pon2/2;group 7 pon2/1-3;"), "");
    // An operator's withdrawal holds as long as the file is the same.
    ctlOutput("group del 7 pon2/3");
    save("policy p groups 10-12\ncommunity red pon2/1\ncommunity blue pon2/2 pon2/4\nisolated pon2/3\n");
    EXPECT_TRUE(eventually([&] { return ctl("status").out.find("in force; not") != std::string::npos; }));
    EXPECT_NE(ctl("status").out.find("policy p: groups 10 to 11"), std::string::npos);
    const std::string why = ctlOutput("why pon2/3 pon2/4");
    EXPECT_NE(why.find("pon2/3 is isolated by the policy p, line 4"), std::string::npos) << why;
    ctlOutput("group del 10 pon2/1");
    EXPECT_NE(ctl("save").err.find("group 10 pon2/1: does not run"), std::string::npos);
    boardAnswer("unplug pon2/4");
    EXPECT_EQ(ctlOutput("export").find("group 10 pon2/1\n"), std::string::npos);
    kill(keeper, SIGTERM);
    EXPECT_EQ(outcomeOf(keeper, "keeper").status, -SIGTERM);
}
