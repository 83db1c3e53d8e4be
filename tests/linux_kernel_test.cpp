// What takes more of a kernel than a bridge and cables: bonds and teams as trunks, VLAN-filtering bridges,
// VLAN devices. Skipped where the kernel lacks it.
#include <linux/if_ether.h>
#include <net/ethernet.h>

#include <functional>

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
    // With the witness and the port `plain` untagged in VLAN 10, and `tagged` tagged.
    static void filterVlans(const std::string& protocol) {
        ASSERT_EQ(
            sh("ip link set br0 type bridge vlan_filtering 1 vlan_default_pvid 0 vlan_protocol " + protocol +
               " && bridge vlan add dev w vid 10 pvid untagged && bridge vlan add dev tagged vid 10 && "
               "bridge vlan add dev plain vid 10 untagged && bridge vlan add dev plain vid 30 untagged"),
            "");
    }
};

// No tag, one, or two of both protocols, in the VLANs 10 and 20, and as priority tags.
std::set<TagStack> tagStacks() {
    const std::vector<uint16_t> protocols = {ETH_P_8021Q, ETH_P_8021AD}, vids = {0, 10, 20};
    std::set<TagStack> stacks = {{}};
    for (const uint16_t outer : protocols) {
        for (const uint16_t vid : vids) {
            stacks.insert({{outer, vid}});
            for (const uint16_t inner : protocols) {
                for (const uint16_t innerVid : vids) stacks.insert({{outer, vid}, {inner, innerVid}});
            }
        }
    }
    return stacks;
}

// A mark of somebody else's, and what drops the frames that have lost it.
const std::string FOREIGN_MARK =
    "nft 'table bridge other { chain in { type filter hook prerouting priority 0; meta mark set 0x12345; }; "
    "chain out { type filter hook forward priority 0; meta mark & 0x7ffff != 0x12345 drop; }; }'";

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
    // A port may send several VLANs untagged: a frame is held in the one that it came in by.
    ASSERT_EQ(sh("bridge vlan add dev p4 vid 30 untagged"), "");
    boardAnswer("settle");
    const std::string pon10 = "p1>p2 p1>t1 p2>p1 p2>t1 t1>p1 t1>p2";
    const std::string pon20 = "p3>p4 p3>t1 p4>p3 p4>t1 t1>p3 t1>p4";
    const std::string group = "p1>p2 p1>t1 p1>t2 p2>p1 p2>t1 p2>t2 t1>p1 t1>p2 t1>t2 t2>p1 t2>p2 t2>t1";
    const std::tuple<const char*, std::string, std::string> steps[] = {
        {"pon get 10", pon10, pon20},
        {"pon off 20", pon10, ""},
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

// The bridge is the judge: what comes out of a port that is in VLAN 10 alone is of VLAN 10.
TEST_F(LinuxKernelTest, TakesAFramesVlanForWhatTheBridgeDoes) {
    const std::set<TagStack> stacks = tagStacks();
    build("plane linux\nbridge br0\n", {"in", "tagged", "plain"});
    const auto inOwn = [](const TagStack& stack, uint16_t protocol, uint16_t vid) {
        return !stack.empty() && stack[0] == FrameTag{protocol, vid};
    };
    const auto check = [&](const std::string& out, auto&& in10, auto&& in20) {
        const std::set<TagStack> open = passing(network, "in", out, stacks);
        EXPECT_FALSE(open.empty()) << out;
        for (const auto& [vid, held] :
             {std::pair(10, std::function<bool(const TagStack&)>(in10)), {20, in20}}) {
            const std::string group = " 5 in " + out + " --vlan " + std::to_string(vid);
            ctlOutput("vlan-group add" + group);
            std::set<TagStack> expected = open;
            std::erase_if(expected, held);
            EXPECT_EQ(passing(network, "in", out, stacks), expected) << out << " in VLAN " << vid;
            EXPECT_EQ(notHeld(), Texts{});
            ctlOutput("vlan-group del 5 --vlan " + std::to_string(vid));
        }
    };
    for (const bool marked : {false, true}) {
        SCOPED_TRACE(marked);
        ASSERT_EQ(marked ? sh(FOREIGN_MARK) : "", "");
        check(
            "plain", [&](auto& stack) { return inOwn(stack, ETH_P_8021Q, 10); },
            [&](auto& stack) { return inOwn(stack, ETH_P_8021Q, 20); });
    }
    ASSERT_EQ(sh("nft delete table bridge other"), "");
    if (const std::string reason = lacking("bridge vlan_filtering 1"); !reason.empty()) SKIP_FOR(reason);
    for (const char* setting : {"802.1Q", "802.1ad"}) {
        filterVlans(setting);
        for (const std::string pvid : {"", "10", "20"}) {
            ASSERT_EQ(sh("bridge vlan del dev in vid 10; bridge vlan del dev in vid 20; bridge vlan add dev "
                         "in vid 10 && "
                         "bridge vlan add dev in vid 20" +
                         (pvid.empty() ? "" : " && bridge vlan add dev in pvid untagged vid " + pvid)),
                      "");
            boardAnswer("settle");
            for (const bool marked : {false, true}) {
                SCOPED_TRACE(std::string(setting) + " PVID " + pvid + (marked ? " marked" : ""));
                ASSERT_EQ(marked ? sh(FOREIGN_MARK) : "", "");
                for (const char* out : {"tagged", "plain"}) {
                    check(
                        out, [](auto&) { return true; }, [](auto&) { return false; });
                }
                sh("nft delete table bridge other");
            }
        }
    }
}

// Frames are on their way all the while; a VLAN that is gone and there again is none that the filter misses.
TEST_F(LinuxKernelTest, HoldsWhileVlansComeAndGo) {
    if (const std::string reason = lacking("bridge vlan_filtering 1"); !reason.empty()) SKIP_FOR(reason);
    build("plane linux\nbridge br0\n", {"p1", "p2", "p3"}, "vlan_filtering 1 vlan_default_pvid 10");
    ctlOutput("vlan-group add 5 p1 p2 --vlan 10");
    const Stream stream(network, "p1", "p3");
    for (const std::string port : {"p1", "p2"}) {
        EXPECT_TRUE(stream.flows());
        EXPECT_EQ(heardOfStreams(network, "p2"), 0U) << port;
        EXPECT_EQ(sh("for round in $(seq 40); do bridge vlan del dev " + port +
                     " vid 10 && bridge vlan add dev " + port + " vid 10 pvid untagged || exit; done"),
                  "");
    }
    EXPECT_TRUE(stream.flows());
    EXPECT_EQ(heardOfStreams(network, "p2"), 0U);
}

TEST_F(LinuxKernelTest, NamesWhatGoesPastTheFilter) {
    build("plane linux\nbridge br0\n", {"p1", "p2"});
    EXPECT_EQ(linesWith("plane show", "^note .*(tc|flowtable|routes)"), Texts{});
    const size_t open = descriptors();  // one too many where the last connection is not closed yet
    for (int i = 0; i < 3; ++i) boardAnswer("plane show");
    EXPECT_TRUE(eventually([&] { return descriptors() <= open; }));
    ASSERT_EQ(sh("ip addr add 192.0.2.1/24 dev br0 && echo 1 >/proc/sys/net/ipv4/ip_forward"), "");
    EXPECT_EQ(linesWith("plane show", "^note br0: this machine routes").size(), 1U);
    if (const std::string reason = sh("tc qdisc add dev p1 clsact && tc filter add dev p1 ingress matchall "
                                      "action mirred egress redirect dev p2 && nft 'table inet other { "
                                      "flowtable f { hook ingress priority 0; devices = { p2 }; }; }'");
        !reason.empty()) {
        SKIP_FOR("this kernel has no tc or flowtables: " + reason);
    }
    EXPECT_EQ(linesWith("plane show", "^note p1: a filter of tc").size(), 1U);
    EXPECT_EQ(linesWith("plane show", "^note p2: flows that a flowtable").size(), 1U);
    EXPECT_NE(ctlOutput("status").find("note: p1: "), std::string::npos);
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
