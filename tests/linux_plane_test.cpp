// The daemon on a bridge of the kernel: what it is told holds for real frames, whatever becomes of it.
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <thread>

#include "linux_fixture.h"

namespace {

constexpr char UNLISTED[] = "plane linux\nbridge br0\naccess p3 p4\n";
constexpr char LISTED[] =
    "plane linux\nbridge br0\n"
    "interface 11 first slot 1 device p1\ninterface 12 second slot 1 device p2\n"
    "interface 13 third slot 1 device p3\ninterface 14 fourth slot 1 device p4\n";

// A process of nobody's that listens under the name of the daemon's lock.
pid_t takeLockName() {
    int ready[2];
    if (pipe(ready) != 0) return 0;
    const pid_t child = fork();
    if (child == 0) {
        constexpr char NAME[] = "\0portisolate.0";
        sockaddr_un address = {AF_UNIX, {}};
        std::memcpy(address.sun_path, NAME, sizeof(NAME) - 1);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + sizeof(NAME) - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        const bool taken = setuid(65534) == 0 && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 &&
                           bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 && listen(fd, 64) == 0;
        (void)!write(ready[1], taken ? "y" : "n", 1);
        for (;;) pause();
    }
    char taken = 'n';
    (void)!read(ready[0], &taken, 1);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(taken, 'y');
    return child;
}

}  // namespace

TEST_F(LinuxPlaneTest, IsolatesWhomItIsToldTo) {
    build(UNLISTED, {"p1", "p2", "p3", "p4"});
    const std::string access = "p3>p4 p4>p3", both = "p1>p2 p2>p1";
    // What is said, and who is blocked after it: untagged, in VLAN 10 and in VLAN 20.
    const std::tuple<const char*, std::string, std::string, std::string> steps[] = {
        {"pon get 10", "", access, access},
        {"pon off 10", "", "", access},
        {"pon on 10", "", access, access},
        {"pon off 10", "", "", access},
        {"pon off 20", "", "", ""},
        {"vlan-group add 6 p1 p2 --vlan 10", "", both, ""},
        {"pair add p1 p2", "p1>p2", both, "p1>p2"},
        {"pair del p1 p2", "", both, ""},
        {"pair add p2 p1", "p2>p1", both, "p2>p1"},
        {"vlan-group del 6 --vlan 10", "p2>p1", "p2>p1", "p2>p1"},
        {"group add 5 p3-4 p1", "p1>p3 p1>p4 p2>p1 p3>p1 p3>p4 p4>p1 p4>p3", "", ""},
        {"vlan-group add 7 p3 p4 --vlan 20", "p1>p3 p1>p4 p2>p1 p3>p1 p3>p4 p4>p1 p4>p3", "", ""},
        {"group del 5 p1", "p2>p1 p3>p4 p4>p3", "", ""},
        {"pon on 20", "p2>p1 p3>p4 p4>p3", "", ""},
        {"pair del p2 p1", access, access, access},
        {"group del 5", access, access, access},  // its VLAN group holds the same isolation
        {"vlan-group del 7 --vlan 20", "", "", access},
    };
    for (const auto& [said, untagged, in10, in20] : steps) {
        SCOPED_TRACE(said);
        ctlOutput(said);
        EXPECT_EQ(blocked(network), untagged);
        EXPECT_EQ(blocked(network, 10), in10.empty() ? untagged : in10);
        EXPECT_EQ(blocked(network, 20), in20.empty() ? untagged : in20);
        EXPECT_EQ(notHeld(), Texts{});
    }
}

TEST_F(LinuxPlaneTest, HoldsDescribedPortsWhoeverTheyAre) {
    build(LISTED, {"p1", "p2", "p4"});
    ctlOutput("group add 5 first second");
    ctlOutput("pair add third fourth");  // one of them is not there yet
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
    EXPECT_EQ(linesWith("list", "name=third").at(0).find("present=yes"), std::string::npos);

    // No part of the daemon's is needed: it stands still.
    tell(SIGSTOP);
    deleteHost(network, "p1");
    ASSERT_EQ(addHost(network, "p1"), "");
    ASSERT_EQ(addHost(network, "p3"), "");
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1 p3>p4");
    tell(SIGCONT);

    EXPECT_EQ(settled("list", "name=(first|third) .*present=yes").size(), 2U);
    EXPECT_NE(ctlOutput("group list").find("first"), std::string::npos);
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1 p3>p4");
    EXPECT_EQ(notHeld(), Texts{});

    // A frame pays for nothing any more when nothing is isolated.
    ASSERT_EQ(sh("nft list chain bridge portisolate forward | grep vmap >/dev/null"), "");
    ctlOutput("pair del third fourth");
    ctlOutput("group del 5");
    EXPECT_TRUE(
        eventually([] { return !sh("nft list chain bridge portisolate forward | grep -q vmap").empty(); }));
    ctlOutput("vlan-group add 6 first second --vlan 10");
    EXPECT_EQ(blocked(network, 10), "p1>p2 p2>p1");
}

TEST_F(LinuxPlaneTest, ForgetsUnlistedPortsThatGo) {
    build(UNLISTED, {"p1", "p2", "p3"});
    ctlOutput("group add 5 p1 p2 p3");
    ctlOutput("pair add w p1");
    ctlOutput("vlan-group add 6 p1 p2 --vlan 10");
    deleteHost(network, "p1");
    EXPECT_EQ(settled("list", "name=p1 .*present=yes").size(), 0U);
    EXPECT_EQ(ctlOutput("group list").find("p1"), std::string::npos);
    EXPECT_EQ(ctlOutput("pair list").find("p1"), std::string::npos);
    EXPECT_NE(log().find("p1 has left the bridge br0 for good"), std::string::npos);
    ctlOutput("keep --once");
    EXPECT_EQ(ctlOutput("vlan-group list").find("p1"), std::string::npos);
    EXPECT_EQ(blocked(network), "p2>p3 p3>p2");
    ASSERT_EQ(addHost(network, "p1"), "");
    EXPECT_EQ(settled("list", "name=p1 .*present=yes").size(), 1U);
    EXPECT_EQ(blocked(network, 10), "p2>p3 p3>p2");
    ctlOutput("pair add p1 p2");
    EXPECT_EQ(blocked(network), "p1>p2 p2>p3 p3>p2");
    EXPECT_EQ(notHeld(), Texts{});
}

TEST_F(LinuxPlaneTest, LeaksNothingWhenItIsKilled) {
    build(UNLISTED, {"p1", "p2", "p3", "p4"});
    ctlOutput("group add 5 p1 p2");
    ctlOutput("pair add p4 p3");
    const std::string isolated = "p1>p2 p2>p1 p4>p3";
    std::ofstream(root + "/running") << ctlOutput("export");
    EXPECT_EQ(blocked(network), isolated);
    const size_t programmed = linesWith("plane show", "kind=(bi|uni) .*state=held").size();
    {
        const Stream stream(network, "p1", "p3");
        EXPECT_TRUE(stream.flows());
        stop(SIGKILL);
        EXPECT_TRUE(stream.flows());
        restart();
        EXPECT_TRUE(stream.flows());
        EXPECT_EQ(linesWith("plane show", "state=left-over").size(), programmed);
        EXPECT_NE(log().find(" elements of an earlier run are kept"), std::string::npos) << log();
        ctlOutput("apply " + root + "/running");
        EXPECT_TRUE(stream.flows());
        EXPECT_EQ(notHeld(), Texts{});
    }
    EXPECT_EQ(blocked(network), isolated);
    EXPECT_EQ(heardOfStreams(network, "p2"), 0U);

    // Only a sweep opens what nobody asks for anew.
    stop(SIGKILL);
    restart();
    ctlOutput("pair add p4 p3");
    EXPECT_EQ(blocked(network), isolated);
    EXPECT_EQ(boardAnswer("plane sweep"), std::to_string(programmed - 1) + "\n");
    EXPECT_EQ(blocked(network), "p4>p3");
    EXPECT_EQ(notHeld(), Texts{});
}

// Numbered frames to everybody, without a pause, through all of it.
TEST_F(LinuxPlaneTest, HoldsWhatIsSavedFromBeforeTheNetwork) {
    build("plane linux\nbridge br0\n", {"p1", "p2", "p3", "5"});
    for (const char* said : {"group add 5 p1 p2", "pair add 5 p1", "save"}) ctlOutput(said);
    const std::string isolated = "5>p1 p1>p2 p2>p1";
    {
        const Stream stream(network, "p1", "p3");
        for (const int signal : {SIGTERM, SIGKILL}) {
            EXPECT_TRUE(stream.flows());
            stop(signal);
            EXPECT_TRUE(stream.flows());
            restart();
            ctlOutput("keep --once");
            EXPECT_TRUE(stream.flows());
        }
    }
    EXPECT_EQ(heardOfStreams(network, "p2"), 0U);

    // As after a boot: no table, and no bridge until the daemon is up. It is not needed when the ports come.
    stop();
    for (const char* port : {"p1", "p2", "p3", "5", "w"}) deleteHost(network, port);
    ASSERT_EQ(sh("nft flush ruleset && ip link del br0"), "");
    restart();
    ctlOutput("keep --once");
    tell(SIGSTOP);
    ASSERT_EQ(buildSwitch(network, {}), "");
    for (const char* port : {"p1", "p2", "p3", "5"}) ASSERT_EQ(addEnd(network, port, port), "");
    for (const auto& [from, to] : {std::pair("p1", "p2"), {"5", "p1"}}) {
        const Stream stream(network, from, "p3");
        for (const char* port : {"p1", "p2", "p3", "5"}) {
            ASSERT_EQ(sh(std::string("ip link set ") + port + " master br0"), "");
        }
        EXPECT_TRUE(stream.flows());
        EXPECT_EQ(heardOfStreams(network, to), 0U);
        for (const char* port : {"p1", "p2"}) {
            ASSERT_EQ(sh(std::string("ip link set ") + port + " nomaster"), "");
        }
    }
    tell(SIGCONT);
    for (const char* port : {"p1", "p2"}) {
        ASSERT_EQ(sh(std::string("ip link set ") + port + " master br0"), "");
    }
    boardAnswer("settle");
    EXPECT_EQ(blocked(network), isolated);
    EXPECT_EQ(notHeld(), Texts{});
}

TEST_F(LinuxPlaneTest, CountsWhatItDropsAndTellsWhenItsTableIsTakenAway) {
    build(std::string(UNLISTED) + "heal off\n", {"p1", "p2"});
    ctlOutput("group add 5 p1 p2");
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
    EXPECT_EQ(linesWith("plane show", "kind=bi src=(p1 dst=p2|p2 dst=p1) .*packets=[1-9]").size(), 2U);
    ASSERT_EQ(sh("nft delete table bridge portisolate"), "");
    EXPECT_TRUE(eventually([&] { return log().find("was deleted from outside") != std::string::npos; }));
    EXPECT_EQ(linesWith("plane show", "name=linux state=gone").size(), 1U);
    EXPECT_EQ(linesWith("plane show", "kind=bi src=p. dst=p. .*state=missing").size(), 2U);
    EXPECT_EQ(blocked(network), "");
    EXPECT_NE(ctl("group add 6 w p1").err.find("refused"), std::string::npos);
    boardAnswer("plane restore");
    EXPECT_EQ(linesWith("plane show", "name=linux state=ready").size(), 1U);
    EXPECT_EQ(notHeld(), Texts{});
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
    ctlOutput("group del 5");
    EXPECT_EQ(blocked(network), "");

    // To ask again for what is left over changes nothing in the kernel, and hides no change of others.
    ctlOutput("pair add p1 p2");
    stop(SIGKILL);
    restart();
    ctlOutput("pair add p1 p2");
    ASSERT_EQ(sh("nft delete table bridge portisolate"), "");
    EXPECT_EQ(boardAnswer("forward p1 p2"), "yes\n");
}

TEST_F(LinuxPlaneTest, TakesOverWhatWasLaidBeforeIt) {
    const std::string unlisted = std::string(UNLISTED) + "heal watch\n";
    build(unlisted, {"p1", "p2", "p3", "p4"});
    stop();
    // In the layout of an earlier version; then under another mark, from a saved ruleset.
    ASSERT_EQ(
        sh("nft 'delete table bridge portisolate; table bridge portisolate { "
           "set bi { type ifname . ifname; counter; elements = { p1 . p2, p2 . p1 }; }; "
           "set bi_vlan { type ifname . ifname . inet_service; counter; elements = { p2 . p3 . 10 }; }; "
           "set uni { type ifname . ifname; counter; elements = { p1 . p2, p3 . p1 }; }; "
           "set pon_off { type inet_service; elements = { 20 }; }; "
           "chain forward { type filter hook forward priority filter; iifname . oifname @bi drop; }; }'"),
        "");
    for (const std::string mark : {"", "frame-mark 0x1fff\n"}) {
        board = unlisted + mark;
        restart();
        EXPECT_EQ(linesWith("plane show", "state=left-over").size(), 6U) << boardAnswer("plane show");
        EXPECT_EQ(blocked(network), "p1>p2 p2>p1 p3>p1");
        EXPECT_EQ(blocked(network, 10), "p1>p2 p2>p1 p2>p3 p3>p1 p3>p4 p4>p3");
        EXPECT_EQ(blocked(network, 20), "p1>p2 p2>p1 p3>p1");
        stop(SIGKILL);
        ASSERT_EQ(sh("nft list ruleset > " + root + "/saved; nft flush ruleset; nft -f " + root + "/saved"),
                  "");
    }
    // The release of one kind opens no other.
    restart();
    ctlOutput("group add 5 p1 p2");
    ctlOutput("group del 5");
    EXPECT_EQ(blocked(network), "p1>p2 p3>p1");
    boardAnswer("plane sweep");
    EXPECT_EQ(blocked(network, 20), "p3>p4 p4>p3");
}

TEST_F(LinuxPlaneTest, LeavesAPortWhatItReflects) {
    build(UNLISTED, {"p3", "p4"});
    for (const std::string port : {"p3", "p4"}) {
        ASSERT_EQ(sh("ip link set " + port + " type bridge_slave hairpin on"), "");
    }
    ctlOutput("group add 5 p3 p4");
    ctlOutput("vlan-group add 6 p3 p4 --vlan 10");
    for (const uint16_t vid : {uint16_t{0}, uint16_t{10}}) {
        for (const char* host : {"p3", "p4"}) EXPECT_TRUE(hearsItself(network, host, vid)) << host << vid;
    }
    ctlOutput("group del 5");
    ctlOutput("vlan-group del 6 --vlan 10");
    EXPECT_EQ(linesWith("plane show", "kind=(bi|uni)"), Texts{});
    EXPECT_NE(ctlOutput("board hardware").find("counters bi=0"), std::string::npos);
    EXPECT_EQ(log().find("failed to operate"), std::string::npos) << log();
}

TEST_F(LinuxPlaneTest, MissesNoPortWhenMessagesAreLost) {
    constexpr int MESSAGES = 20000;  // more than the daemon's socket takes
    build(UNLISTED, {"p1"});
    tell(SIGSTOP);
    {
        std::ofstream batch(root + "/batch");
        for (int i = 0; i < MESSAGES; ++i) batch << "link set p1 alias " << i << "\n";
    }
    ASSERT_EQ(sh("ip -batch " + root + "/batch"), "");
    ASSERT_EQ(addHost(network, "p9"), "");
    tell(SIGCONT);
    EXPECT_TRUE(
        eventually([&] { return log().find("messages of the kernel were lost") != std::string::npos; }));
    EXPECT_EQ(settled("list", "name=p9 .*present=yes").size(), 1U);
}

// Daemons of other roots in the same network, all at once; in every other turn somebody else has taken the
// name of their lock.
TEST_F(LinuxPlaneTest, ServesANetworkAlone) {
    build(UNLISTED, {"p1", "p2"});
    ctlOutput("group add 5 p1 p2");
    const std::string own = root;
    pid_t stranger = 0;
    for (int turn = 0; turn < 6; ++turn) {
        std::map<pid_t, std::string> running;
        for (const char* name : {"/a", "/b", "/c", "/d"}) {
            root = own + name;
            std::filesystem::create_directories(root + "/etc/portisolate");
            std::filesystem::create_directories(root + "/tmp");
            std::ofstream(root + "/etc/portisolate/board.conf") << UNLISTED;
            running[spawn(DAEMON_PROGRAM, {}, "daemon" + std::to_string(turn))] = root;
        }
        const size_t left = turn == 0 ? 0 : 1;  // the first turn has a daemon already
        for (int tries = 0; running.size() > left && tries < 3000; ++tries) {
            for (const auto& [program, at] : running) {
                if (!endsWithin(program, 10)) continue;
                root = at;
                const Outcome outcome = outcomeOf(program, "daemon" + std::to_string(turn));
                const std::string holder = turn == 0 ? std::to_string(daemon) : "\\d+";
                EXPECT_EQ(outcome.status, 255);
                EXPECT_TRUE(
                    std::regex_search(outcome.err, std::regex("another daemon, process " + holder + ",")))
                    << outcome.err;
                running.erase(program);
                break;
            }
        }
        ASSERT_EQ(running.size(), left);
        root = turn == 0 ? own : running.begin()->second;
        if (turn != 0) daemon = running.begin()->first;
        awaitService();
        EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
        const std::string serving =
            readText(root + "/daemon" + (turn == 0 ? "" : std::to_string(turn)) + ".err");
        EXPECT_EQ(serving.find("is passed over") != std::string::npos, stranger != 0) << serving;
        stop(SIGKILL);
        if (stranger != 0) kill(stranger, SIGKILL), waitpid(stranger, nullptr, 0);
        stranger = turn % 2 == 0 ? takeLockName() : 0;
    }
    root = own;
}

TEST_F(LinuxPlaneTest, SaysWhatItCannotDo) {
    build("plane linux\nbridge br7\n", {"p1", "p2"});
    for (const char* said : {"publish reset", "fault clear"}) {
        EXPECT_NE(askLine(BOARD_SOCKET_PATH, said).find("`laboratory`"), std::string::npos) << said;
    }
    stop();
    board += "laboratory\n";
    restart();
    EXPECT_NE(log().find("there is no bridge br7"), std::string::npos) << log();
    EXPECT_EQ(linesWith("plane show", "^note there is no bridge br7").size(), 1U);
    for (const std::string said : {"newlink nobody", "dellink nobody", "newlink 7 member-add nobody"}) {
        EXPECT_NE(askLine(BOARD_SOCKET_PATH, "publish " + said).find("no such interface: nobody"),
                  std::string::npos)
            << said;
    }
    EXPECT_EQ(boardAnswer("list"), "");
    stop();

    // Privileges that a thread has given up are lost to the programs that it starts, which end with it.
    std::thread([&] {
        ASSERT_EQ(prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN), 0);
        board = LISTED;
        restart();
        EXPECT_NE(log().find("no permission"), std::string::npos) << log();
        EXPECT_NE(log().find("p3 is not in the bridge br0"), std::string::npos) << log();
        EXPECT_EQ(linesWith("plane show", "name=linux state=failed").size(), 1U);
        EXPECT_EQ(ctl("group add 5 first second").status, 1);
        EXPECT_EQ(blocked(network), "");
        stop();
    }).join();
}
