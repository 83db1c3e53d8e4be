// Groups that span machines, with real frames: three machines on a fabric of VXLAN are, for everyone on them,
// the one switch that has all their ports and the same configuration.
#include <fcntl.h>
#include <sched.h>

#include <memory>

#include "dice.h"
#include "linux_fixture.h"

namespace {

constexpr int CHANGES = 60, SLOW_CHANGES = 10;
constexpr int MACHINES = 3, HOSTS = 4;  // the hosts of each
constexpr char SAVED[] = "/etc/portisolate/isolation.conf";

// A daemon beside its switch, in a network of its own.
struct Machine final : LinuxPlaneTest {
    int space = -1;

    Machine() {
        LinuxPlaneTest::SetUp();
        space = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    }
    ~Machine() override {
        TearDown();
        close(space);
    }
    void TestBody() override {}
    // Where a device may be put that is made elsewhere.
    std::string path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(space); }

    std::string run(const std::string& command) const {
        EXPECT_EQ(setns(space, CLONE_NEWNET), 0);
        return sh(command);
    }
    void boot(const std::string& description) {
        ASSERT_EQ(run("true"), "");
        board = description;
        restart();
    }
    void reboot() {
        ctlOutput("save");
        stop(SIGKILL);
        boot(board);
        ctlOutput("apply " + root + SAVED);
    }
};

struct LinuxFabricTest : testing::Test {
    std::vector<std::unique_ptr<Machine>> machines;
    std::unique_ptr<Machine> one;   // with all ports
    LinuxSwitch fabric, single;     // the hosts on the machines, and on the one
    std::set<std::string> members;  // "group 5 a1"

    void changeAtRandom();
    void build() {
        one = std::make_unique<Machine>();
        ASSERT_EQ(one->run("ip link add fab up type bridge && ip link add br0 up type bridge"), "");
        for (int i = 0; i < MACHINES; ++i) {
            machines.push_back(std::make_unique<Machine>());
            ASSERT_EQ(one->run("ip link add u" + std::to_string(i) +
                               " master fab up type veth peer name under netns " + machines[i]->path()),
                      "");
        }
        for (int i = 0; i < MACHINES; ++i) {
            const auto address = [](int of) { return "192.0.2." + std::to_string(of + 1); };
            std::string flood;
            for (int other = 0; other < MACHINES; ++other) {
                if (other != i) flood += " && bridge fdb append 0:0:0:0:0:0 dev vx0 dst " + address(other);
            }
            ASSERT_EQ(machines[i]->run("ip addr add " + address(i) +
                                       "/24 dev under && ip link set under up "
                                       "&& ip link add br0 up type bridge && ip link add vx0 up master br0 "
                                       "type vxlan id 7 dstport 4789 gbp local " +
                                       address(i) + flood),
                      "");
            for (int host = 0; host < HOSTS; ++host) {
                ASSERT_EQ(addHost(fabric, nameOf(i, host)), "");
            }
            if (i == 0) {
                ASSERT_EQ(addHost(fabric, WITNESS), "");
            }
            machines[i]->boot("plane linux\nbridge br0\nspan vx0\n");
        }
        one->run("true");
        for (const auto& [name, host] : fabric.hosts) ASSERT_EQ(addHost(single, name), "");
        one->boot("plane linux\nbridge br0\n");
    }
    void TearDown() override {
        dropSwitch(fabric);
        dropSwitch(single);
    }

    static std::string nameOf(int machine, int host) {
        return static_cast<char>('a' + machine) + std::to_string(host);
    }
    // Into the group, or out of it, on its machine and on the one.
    void toggle(const std::string& group, const std::string& vlan, const std::string& host) {
        const std::string member = group + " " + host;
        const bool joins = members.erase(member) == 0;
        if (joins) members.insert(member);
        const size_t space = group.find(' ');
        const std::string said =
            group.substr(0, space) + (joins ? " add" : " del") + group.substr(space) + " " + host + vlan;
        machines[static_cast<size_t>(host[0] - 'a')]->ctlOutput(said);
        one->ctlOutput(said);
    }
    std::string differing() {
        std::string text;
        for (const uint16_t vid : {uint16_t{0}, uint16_t{10}, uint16_t{20}}) {
            const std::string here = blocked(fabric, vid), there = blocked(single, vid);
            if (here != there) text += "in " + std::to_string(vid) + ": " + here + " | " + there + "\n";
        }
        return text;
    }
};

void LinuxFabricTest::changeAtRandom() {
    build();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const char* first : {"a0", "b0", "c0"}) toggle("group 2", "", first);
    ASSERT_EQ(differing(), "");
    for (const char* first : {"a0", "b0", "c0"}) streamsFrom(fabric, first);
    // The first host of each machine, which are in one group for good, send to all.
    const Repeated flow([this] {
        for (const char* first : {"a0", "b0", "c0"}) sendStream(fabric, first);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    });
    const bool slow = SANITIZED || std::getenv(NO_SKIPPING) != nullptr;
    // No two hosts share a plain group and one of a VLAN: the first of these would decide for both.
    const std::vector<std::string> plain = {"a1", "a2", "b1", "b2", "c1", "c2"},
                                   within = {"a2", "a3", "b3", "c3"},
                                   groups = {"group 1", "group 5", "group 16", "vlan-group 3",
                                             "vlan-group 12"};
    for (int change = slow ? SLOW_CHANGES : CHANGES; change > 0 && !HasFailure(); --change) {
        for (uint32_t changed = roll(4); changed < 4; ++changed) {
            const std::string group = pick(groups);
            const bool inVlan = group[0] == 'v';
            toggle(group, inVlan ? " --vlan 10" : "", pick(inVlan ? within : plain));
        }
        if (roll(3) == 0) machines[roll(MACHINES)]->reboot();
        std::string all;
        for (const std::string& member : members) all += member + ", ";
        EXPECT_EQ(differing(), "") << all;
        for (const char* first : {"a0", "b0", "c0"}) EXPECT_EQ(streamsFrom(fabric, first), "") << all;
    }
    EXPECT_TRUE(eventually([this] { return streamsFrom(fabric, "c1") == "a0 b0 c0"; }));
    for (const auto& machine : machines) EXPECT_EQ(machine->notHeld(), Texts{});
}

}  // namespace

TEST_F(LinuxFabricTest, ThreeMachinesAreAsOneSwitch) {
    everySeed(1, [this] { changeAtRandom(); });
}
