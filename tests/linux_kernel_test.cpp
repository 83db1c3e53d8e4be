// What takes more of a kernel than a bridge and cables: bonds and teams as trunks, VLAN-filtering bridges,
// VLAN devices. Skipped where the kernel lacks it.
#include "linux_fixture.h"

namespace {

struct LinuxKernelTest : LinuxPlaneTest {
    // Whether the kernel makes such a device; the test is skipped, else.
    static std::string lacking(const std::string& device) {
        const std::string problem = sh("ip link add probe0 type " + device);
        sh("ip link del probe0");
        return problem.empty() ? "" : "this kernel has no " + device + ": " + problem;
    }
    // The port becomes a member of a bond or team; its host is one more end of the trunk's.
    void enslave(const std::string& port, const std::string& trunk) {
        const std::string problem = sh("ip link set " + port + " down && ip link set " + port + " master " +
                                       trunk + " && ip link set " + port + " up");
        ASSERT_EQ(problem, "");
        if (!network.hosts.contains(port)) return;
        network.hosts[trunk].sockets = {network.hosts[port].sockets[0]};
        network.hosts.erase(port);
    }
};

}  // namespace

TEST_F(LinuxKernelTest, TakesBondsAndTeamsForTrunks) {
    for (const char* kind : {"bond", "team"}) {
        if (const std::string reason = lacking(kind); !reason.empty()) SKIP_FOR(reason);
    }
    build("plane linux\nbridge br0\n", {"p1", "p2", "p3"});
    ASSERT_EQ(sh("ip link add bond0 type bond mode balance-rr miimon 10 && ip link set bond0 up"), "");
    ASSERT_EQ(sh("ip link add team0 type team && teamnl team0 setoption mode roundrobin && "
                 "ip link set team0 up"),
              "");
    for (const std::string trunk : {"bond0", "team0"}) {
        for (const char* member : {"a", "b"}) {
            ASSERT_EQ(addEnd(network, trunk, trunk + member), "");
            enslave(trunk + member, trunk);
        }
        ASSERT_EQ(sh("ip link set " + trunk + " master br0"), "");
        EXPECT_EQ(
            settled("list", "name=" + trunk + " kind=trunk .*members=" + trunk + "a," + trunk + "b ").size(),
            1U);
        EXPECT_EQ(settled("list", "name=" + trunk + "b kind=ethernet .*trunk=" + trunk).size(), 1U);
    }
    ctlOutput("group add 5 p1 bond0 team0");
    const std::string isolated = "bond0>p1 bond0>team0 p1>bond0 p1>team0 team0>bond0 team0>p1";
    EXPECT_EQ(blocked(network), isolated);

    std::string port = "p2";
    for (const std::string trunk : {"bond0", "team0"}) {
        SCOPED_TRACE(trunk);
        const Outcome refused = ctl("group add 6 " + trunk + "a");
        EXPECT_EQ(refused.status, 1);
        EXPECT_NE(refused.err.find("member port of a trunk"), std::string::npos) << refused.err;

        // A member goes, and a port that was isolated by itself comes in its place.
        ASSERT_EQ(sh("ip link set " + trunk + "a nomaster"), "");
        EXPECT_EQ(settled("list", "name=" + trunk + " kind=trunk .*members=" + trunk + "b ").size(), 1U);
        EXPECT_EQ(blocked(network), isolated);
        ctlOutput("pair add " + port + " p1");
        enslave(port, trunk);
        EXPECT_EQ(settled("list", "name=" + trunk + " kind=trunk .*members=[^ ]*" + port).size(), 1U);
        EXPECT_EQ(ctlOutput("pair list").find(port), std::string::npos);
        ASSERT_EQ(sh("ip link set " + trunk + "b down"), "");
        EXPECT_EQ(blocked(network), isolated);
        port = "p3";
    }
    ASSERT_EQ(sh("ip link del bond0"), "");
    boardAnswer("settle");
    EXPECT_EQ(ctlOutput("group list").find("bond0"), std::string::npos);
    network.hosts.erase("bond0");
    EXPECT_EQ(blocked(network), "p1>team0 team0>p1");
    EXPECT_EQ(notHeld(), Texts{});
}

TEST_F(LinuxKernelTest, KnowsTheVlanOfUntaggedFrames) {
    if (const std::string reason = lacking("bridge vlan_filtering 1"); !reason.empty()) SKIP_FOR(reason);
    const Texts ports = {"p1", "p2", "p3", "p4", "t1", "t2"};
    build("plane linux\nbridge br0\naccess p1 p2 p3 p4 t1\n", ports, "vlan_filtering 1 vlan_default_pvid 0");
    for (auto& [name, host] : network.hosts) {
        const std::string add = "bridge vlan add dev " + name;
        host.access = name == "p1" || name == "p2" ? 10 : name == "p3" || name == "p4" ? 20 : 0;
        const std::string member = " vid " + std::to_string(host.access) + " pvid untagged";
        ASSERT_EQ(sh(host.access != 0 ? add + member : add + " vid 10 && " + add + " vid 20"), "");
    }
    // Here a frame that came in tagged may be of either VLAN, which nobody can tell any more: it passes to an
    // access port when PON isolation is off in both.
    ASSERT_EQ(sh("bridge vlan add dev p4 vid 30 untagged"), "");
    boardAnswer("settle");
    const std::string pon10 = "p1>p2 p1>t1 p2>p1 p2>t1 t1>p1 t1>p2";
    const std::string pon20 = "p3>p4 p3>t1 p4>p3 p4>t1 t1>p3 t1>p4";
    const std::string group = "p1>p2 p1>t1 p1>t2 p2>p1 p2>t1 p2>t2 t1>p1 t1>p2 t1>t2 t2>p1 t2>p2 t2>t1";
    const std::tuple<const char*, std::string, std::string> steps[] = {
        {"pon get 10", pon10, pon20},
        {"pon off 20", pon10, "t1>p4"},
        {"pon off 30", pon10, ""},
        {"pon off 10", "", ""},
        {"vlan-group add 6 p1 p2 t1 t2 --vlan 10", group, ""},
        {"vlan-group del 6 --vlan 10", "", ""},
        {"group add 5 t1 p1 p3", "p1>t1 t1>p1", "p3>t1 t1>p3"},
    };
    for (const auto& [said, in10, in20] : steps) {
        SCOPED_TRACE(said);
        ctlOutput(said);
        EXPECT_EQ(blocked(network, 10), in10);
        EXPECT_EQ(blocked(network, 20), in20);
        EXPECT_EQ(notHeld(), Texts{});
    }
    // Left over is all that is off; what is switched on again is closed for every way out.
    stop(SIGKILL);
    restart();
    ctlOutput("pon on 20");
    boardAnswer("settle");
    EXPECT_EQ(blocked(network, 20), "p3>p4 p3>t1 p4>p3 p4>t1 t1>p3 t1>p4");
}

TEST_F(LinuxKernelTest, KnowsVlanDevicesOfTheBridge) {
    const std::string reason =
        sh("ip link add probe0 type bridge && ip link add link probe0 name probe1 type vlan id 10");
    sh("ip link del probe0");
    if (!reason.empty()) SKIP_FOR("this kernel has no VLAN devices: " + reason);
    build("plane linux\nbridge br0\naccess p1 p2\n", {"p1", "p2"});
    ASSERT_EQ(sh("ip link add link br0 name br0.10 type vlan id 10"), "");
    EXPECT_EQ(settled("list", "name=br0.10 kind=vlan .*present=yes .*vlan=10").size(), 1U);
    ctlOutput("pon off 10");
    EXPECT_EQ(blocked(network, 10), "");
    ASSERT_EQ(sh("ip link del br0.10"), "");
    EXPECT_EQ(settled("list", "name=br0.10 .*present=yes").size(), 0U);
    EXPECT_EQ(blocked(network, 10), "p1>p2 p2>p1");  // on again, as in every VLAN that is new
}
