// Doors that begin closed, with real frames: no port that has just been made, renamed or made again reaches
// another one behind a door before it was opened, with a daemon or without.
#include <net/if.h>

#include "linux_fixture.h"

namespace {

struct LinuxDoorsTest : LinuxPlaneTest {
    // Another name for a port, whose host goes by it, too. The kernel renames devices that are down only.
    void rename(const std::string& from, const std::string& to) {
        ASSERT_EQ(sh("ip link set " + from + " down && ip link set " + from + " name " + to +
                     " && ip link set " + to + " up"),
                  "");
        network.hosts[to] = network.hosts[from];
        network.hosts.erase(from);
    }
    std::string doors() const {
        boardAnswer("settle");
        std::string names;
        for (const std::string& line : linesWith("plane show", "^door ")) names += line.substr(10) + " ";
        return names;
    }
};

constexpr char ALL[] = "v1>v2 v1>v3 v2>v1 v2>v3 v3>v1 v3>v2";

}  // namespace

TEST_F(LinuxDoorsTest, BeginClosedAndOpenWhenTold) {
    for (const char* mode : {"heal on\n", "heal watch\n"}) {
        SCOPED_TRACE(mode);
        // One covers the other, and the second of the last line nobody has.
        build(std::string("plane linux\nbridge br0\nclosed v2 v*\nclosed q x\n") + mode,
              {"v1", "v2", "v3", "p1"});
        EXPECT_EQ(doors(), "v1 v2 v3 ");
        EXPECT_EQ(blocked(network), ALL);
        EXPECT_EQ(boardAnswer("forward v1 v2").substr(0, 3), "no ");
        EXPECT_EQ(boardAnswer("forward v1 p1"), "yes\n");
        ctlOutput("plane open v1 p1");
        EXPECT_EQ(blocked(network), ALL);
        ctlOutput("plane open v2");
        EXPECT_EQ(blocked(network), "v1>v3 v2>v3 v3>v1 v3>v2");
        ctlOutput("plane close v1");
        EXPECT_EQ(blocked(network), ALL);
        // An apply that stands opens all; what it isolates holds all the same.
        std::ofstream(root + "/wanted") << "group 5 v1 v2\n";
        ctlOutput("apply " + root + "/wanted");
        EXPECT_EQ(doors(), "");
        EXPECT_EQ(blocked(network), "v1>v2 v2>v1");
        EXPECT_EQ(sh("nft list set bridge portisolate opened | grep -q '\"v3\" . \"v3\"'"), "");

        // Who opens a door or takes the patterns away from outside does not for long.
        ctlOutput("plane close v3");
        EXPECT_NE(ctl("status").out.find("1 behind closed doors"), std::string::npos);
        for (const char* done : {"nft add element bridge portisolate opened '{ \"v3\" . \"v3\" }'",
                                 "nft flush set bridge portisolate closed", "nft flush ruleset"}) {
            sh(done);
            EXPECT_TRUE(eventually([&] { return !linesWith("plane show", "^plane .*state=ready").empty(); }));
            EXPECT_EQ(doors(), "v3 ") << done;
            EXPECT_EQ(blocked(network), ALL) << done;
        }

        // Doors outlive the daemon as they are, open and closed; those of other patterns do not.
        stop(SIGKILL);
        EXPECT_EQ(blocked(network), ALL);
        restart();
        EXPECT_EQ(doors(), "v3 ");
        EXPECT_EQ(blocked(network), ALL);
        boardAnswer("plane sweep");
        EXPECT_EQ(blocked(network), "v1>v3 v2>v3 v3>v1 v3>v2");
        stop();
        board = "plane linux\nbridge br0\nclosed v3\n";
        restart();
        EXPECT_EQ(blocked(network), "");
        stop();
        board = "plane linux\nbridge br0\n";
        restart();
        EXPECT_EQ(doors() + blocked(network), "");
        stop();
        sh("nft delete table bridge portisolate; ip link del br0");
        for (const char* port : {"v1", "v2", "v3", "p1", "w"}) deleteHost(network, port);
    }
}

TEST_F(LinuxDoorsTest, StayClosedWhereIsolationIsMissing) {
    build("plane linux\nbridge br0\nclosed v*\nheal off\n", {"v1", "v2", "v3"});
    ctlOutput("group add 5 v1 v2");
    ASSERT_EQ(sh("nft delete element bridge portisolate pairs '{ \"v1\" . \"v2\" }'"), "");
    EXPECT_EQ(boardAnswer("plane open all"), "1\n");
    EXPECT_EQ(doors(), "v1 v2 ");
    EXPECT_EQ(blocked(network), ALL);
    boardAnswer("plane restore");
    // One that has got another alias since is another.
    const auto v1 = [&] {
        const std::string line = linesWith("list", " name=v1 ").at(0);
        return std::to_string(if_nametoindex("v1")) + "=" +
               std::to_string(std::atoi(line.c_str() + line.find(" life=") + 6));
    };
    const std::string before = v1();
    ASSERT_EQ(sh("ip link set v1 alias other"), "");
    boardAnswer("settle");
    EXPECT_EQ(boardAnswer("plane open " + before), "0\n");
    EXPECT_EQ(boardAnswer("plane open " + v1()), "1\n");
    EXPECT_EQ(boardAnswer("plane open all"), "1\n");
    EXPECT_EQ(blocked(network), "v1>v2 v2>v1");
}

TEST_F(LinuxDoorsTest, HoldWhateverComesWhileTheDaemonStandsStill) {
    build("plane linux\nbridge br0\nclosed v*\n", {"v1", "v2", "v3", "p1"});
    ctlOutput("plane open --all");
    EXPECT_EQ(blocked(network), "");
    tell(SIGSTOP);
    deleteHost(network, "v3");
    ASSERT_EQ(addHost(network, "v3"), "");  // made again
    ASSERT_EQ(addHost(network, "v4"), "");  // new
    rename("v2", "v5");                     // renamed
    EXPECT_EQ(blocked(network), "v1>v3 v1>v4 v1>v5 v3>v1 v3>v4 v3>v5 v4>v1 v4>v3 v4>v5 v5>v1 v5>v3 v5>v4");
    for (const char* from : {"v1", "v4"}) {
        const Stream stream(network, from, "p1");
        EXPECT_TRUE(stream.flows());
    }
    for (const char* host : {"v1", "v3", "v4", "v5"}) EXPECT_EQ(heardOfStreams(network, host), 0U) << host;
    tell(SIGCONT);
    EXPECT_EQ(doors(), "v5 v3 v4 ");
    // Renamed out of the pattern, it has no door; back again, it is closed anew.
    ctlOutput("plane open --all");
    rename("v5", "p5");
    EXPECT_EQ(blocked(network), "");
    boardAnswer("settle");
    rename("p5", "v5");
    EXPECT_EQ(doors(), "v5 ");
    // So is one that has left the bridge.
    ASSERT_EQ(sh("ip link set v4 nomaster"), "");
    boardAnswer("settle");
    ASSERT_EQ(sh("ip link set v4 master br0"), "");
    EXPECT_EQ(blocked(network), "v1>v4 v1>v5 v3>v4 v3>v5 v4>v1 v4>v3 v4>v5 v5>v1 v5>v3 v5>v4");
}
