// Ports that come and go under a policy, kept by the keeper behind doors that begin closed, with real frames:
// never one from tenant to tenant, and the uplink all the while.
#include <sys/socket.h>

#include <optional>

#include "dice.h"
#include "linux_fixture.h"

namespace {

// So many ports are made where nothing is slow; PORTISOLATE_LIVES takes another number.
constexpr int LIVES = 60, SLOW_LIVES = 6;
constexpr char TENANTS[] = "rbi";  // red, blue, isolated

// Where nothing may be skipped, an emulated machine runs.
bool isSlow() {
    return SANITIZED || std::getenv(NO_SKIPPING) != nullptr;
}

struct LinuxKeeperTest : LinuxPlaneTest {
    pid_t keeper = 0;

    void keep(const std::string& saved) {
        std::ofstream(root + "/etc/portisolate/isolation.conf") << saved;
        keeper = startCtl("keep", "keeper");
    }
    void TearDown() override {
        if (keeper != 0) {
            kill(keeper, SIGTERM);
            outcomeOf(keeper, "keeper");
        }
        LinuxPlaneTest::TearDown();
    }
    bool settledBehindNoDoor() const {
        return eventually([this] { return settled("plane show", "^door ").empty(); });
    }
};

// A red and a blue host that send to all, a thousand frames a second together.
struct Tenants {
    std::vector<std::pair<int, std::string>> frames;
    std::chrono::steady_clock::time_point next = std::chrono::steady_clock::now();
    std::optional<Repeated> sender;

    explicit Tenants(const LinuxSwitch& network) {
        for (const char* from : {"b0", "r0"}) {
            for (const auto& [to, host] : network.hosts) {
                frames.emplace_back(network.hosts.at(from).sockets[0], streamFrame(network, from, to));
            }
            frames.emplace_back(frames.back().first, std::string(6, '\xff') + frames.back().second.substr(6));
        }
        sender.emplace([this] {
            next += std::chrono::milliseconds(1);
            const auto& [fd, frame] =
                frames[static_cast<size_t>(next.time_since_epoch().count() / 1000000) % frames.size()];
            (void)!send(fd, frame.data(), frame.size(), MSG_DONTWAIT);
            std::this_thread::sleep_until(next);
        });
    }
};

}  // namespace

TEST_F(LinuxKeeperTest, PortsThatComeAndGoReachTheUplinkAndNeverAnotherTenant) {
    build("plane linux\nbridge br0\nclosed r* b* x* y*\n", {"b0", "p1", "r0", "x0"});
    keep(
        "policy tenants\npromiscuous p1 w\ncommunity red r0 alias:red\ncommunity blue b0 alias:blue\n"
        "isolated x* y*\n");
    ASSERT_EQ(sh("ip link add br1 up type bridge"), "");
    ASSERT_TRUE(eventually([&] { return blocked(network).find("r0>b0") != std::string::npos; }));
    const Tenants tenants(network);
    dice.seed(3);
    const char* lives = std::getenv("PORTISOLATE_LIVES");
    std::string port = "x0";
    const auto hears = [&](const std::string& host, const std::string& of) {
        const std::string heard = streamsFrom(network, host);
        return heard.find(of) != std::string::npos;
    };
    for (int life = lives != nullptr ? std::atoi(lives)
                    : isSlow()       ? SLOW_LIVES
                                     : LIVES;
         life > 0 && !HasFailure(); --life) {
        const char tenant = TENANTS[roll(3)];
        const uint32_t birth = roll(4);
        const std::string alias = std::string(" alias ") + (tenant == 'r'   ? "red"
                                                            : tenant == 'b' ? "blue"
                                                                            : "\"\"");
        SCOPED_TRACE(port + " becomes " + tenant + ", birth " + std::to_string(birth) + ", life " +
                     std::to_string(life));
        const std::string before = "ip link set " + port + " down && ip link set " + port + alias + " && ";
        const std::string other = port == "x0" ? "y0" : "x0";
        if (birth == 0) {  // renamed
            ASSERT_EQ(sh(before + "ip link set " + port + " name " + other), "");
            auto host = network.hosts.extract(port);
            host.key() = port = other;
            network.hosts.insert(std::move(host));
        } else if (birth == 1) {  // away to another bridge and back
            ASSERT_EQ(
                sh(before + "ip link set " + port + " master br1 && ip link set " + port + " master br0"),
                "");
            boardAnswer("settle");  // the kernel does not close a door for this
        } else {                    // made again, under the same name
            deleteHost(network, port);
            ASSERT_EQ(addEnd(network, port, port), "");
            ASSERT_EQ(sh("ip link set " + port + " down && ip link set " + port + alias + " && ip link set " +
                         port + " master br0"),
                      "");
        }
        for (const auto& [host, ends] : network.hosts) streamsFrom(network, host);
        ASSERT_EQ(sh("ip link set " + port + " up"), "");
        // The uplink at once; its own tenant, or an open door, as soon as the keeper has seen to it.
        sendStream(network, port);
        EXPECT_TRUE(eventually([&] { return sendStream(network, port), hears("p1", port); }));
        std::string red, blue, self;
        const auto settledIn = [&] {
            sendStream(network, port);
            red += streamsFrom(network, "r0") + " ";
            blue += streamsFrom(network, "b0") + " ";
            self += streamsFrom(network, port) + " ";
            if (tenant == 'i') return linesWith("plane show", "^door ").empty();
            const std::string& own = tenant == 'r' ? red : blue;
            return own.find(port) != std::string::npos &&
                   self.find(tenant == 'r' ? "r0" : "b0") != std::string::npos;
        };
        EXPECT_TRUE(eventually(settledIn)) << red << "|" << blue << "|" << self << ctlOutput("status");
        for (int more = 0; more < 10; ++more) settledIn();
        const bool toRed = red.find(port) != std::string::npos || self.find("r0") != std::string::npos;
        const bool toBlue = blue.find(port) != std::string::npos || self.find("b0") != std::string::npos;
        EXPECT_FALSE((toRed && tenant != 'r') || (toBlue && tenant != 'b'))
            << red << "|" << blue << "|" << self;
        EXPECT_TRUE(red.find("b0") == std::string::npos && blue.find("r0") == std::string::npos);
    }
    deleteHost(network, port);
    EXPECT_TRUE(eventually(
        [&] { return settled("plane show", port).empty() && linesWith("hardware", port).empty(); }));
}

// Every port of a host at once: what is in force in the end is what the file says.
TEST_F(LinuxKeeperTest, AHostOfTenantsBootsAtOnce) {
    const int TENANT_COUNT = isSlow() ? 8 : 50, PORTS = 5 * TENANT_COUNT;
    build("plane linux\nbridge br0\nclosed v*\n", {"p1"});
    stop();
    start(
        "portisolate.srcaggtoport = 0\nportisolate.dstaggtoport = 0\nportisolate.maxifnum = 300\n"
        "portisolate.maxisogrpnum = 256\nportisolate.maxifnumpergrp = 0\nportisolate.maxuniisoportnum = "
        "300\n");
    std::string saved = "policy tenants\npromiscuous p1 w\n";
    for (int tenant = 0; tenant < TENANT_COUNT; ++tenant) {
        saved += "community t" + std::to_string(tenant) + " v" + std::to_string(tenant) + "-*\n";
    }
    keep(saved);
    std::ofstream batch(root + "/batch");
    for (int port = 0; port < PORTS; ++port) {
        const std::string name = "v" + std::to_string(port % TENANT_COUNT) + "-" + std::to_string(port);
        batch << "link add " << name << " type veth peer name h" << port << "\nlink set " << name
              << " master br0\n";
    }
    batch.close();
    const auto before = std::chrono::steady_clock::now();
    ASSERT_EQ(sh("ip -batch " + root + "/batch"), "");
    const std::chrono::duration<double> made = std::chrono::steady_clock::now() - before;
    const auto tenantOf = [](const std::string& name) { return name.substr(0, name.find('-')); };
    const auto wrong = [&] {
        const Texts lines = split(boardAnswer("matrix"), '\n');
        const Texts names = split(lines.at(0), ' ');
        size_t differing = names.size() == static_cast<size_t>(PORTS) + 2 ? 0 : 1;
        for (size_t row = 0; row < names.size(); ++row) {
            const std::string cells = split(lines.at(row + 1), ' ').at(1);
            for (size_t column = 0; column < names.size(); ++column) {
                const bool tenants = names[row][0] == 'v' && names[column][0] == 'v';
                const bool open = !tenants || tenantOf(names[row]) == tenantOf(names[column]);
                if (row != column && (cells[column] == 'o') != open) ++differing;
            }
        }
        return differing;
    };
    ASSERT_TRUE(
        eventually([this] { return readText(root + "/keeper.err").find("groups") != std::string::npos; }));
    EXPECT_TRUE(eventually([&] { return wrong() == 0; })) << wrong();
    const std::chrono::duration<double> ready = std::chrono::steady_clock::now() - before;
    EXPECT_TRUE(settledBehindNoDoor());
    EXPECT_TRUE(notHeld().empty());
    std::printf("%d ports made in %.2f s, right after %.2f s\n", PORTS, made.count(), ready.count());
    EXPECT_EQ(ctlOutput("plane show").find("left over"), std::string::npos);
}

// What the kernel has of members, from the daemon's requests and events to the file that brings them back.
TEST_F(LinuxKeeperTest, GroupsSpanWhileTheyAreInTheTablesAndAsTheFileSays) {
    build("plane linux\nbridge br0\nspan vx0\n", {"p1", "p2", "p3"});
    const auto spans = [this] {
        std::string text;
        for (const std::string& line : settled("plane show", "^(spanning|entry kind=span) ")) {
            std::smatch found;
            const bool entry =
                std::regex_search(line, found, std::regex("dst=(.*) vlan=(.*) group=(.*) state=(\\S*)"));
            text += entry ? found.format(" $1/$3@$2 $4") : line;
        }
        return text;
    };
    const std::string path = root + "/etc/portisolate/isolation.conf";
    ctl("group add 5 p1 p2");
    ctl("vlan-group add 16 p3 --vlan 10");
    EXPECT_EQ(spans(), "spanning 1-16 p1/5@- held p2/5@- held p3/16@10 held");
    ASSERT_EQ(sh("ip link set p2 nomaster; ip link set p1 down; ip link set p1 name p4; ip link set p4 up"),
              "");
    EXPECT_TRUE(spans().ends_with(" p3/16@10 held p4/5@- held")) << spans();
    ASSERT_EQ(sh("ip link set p2 master br0"), "");
    std::ofstream(path) << "spanning 7\ngroup 5 p4\ngroup 7 p2\n";
    EXPECT_EQ(ctl("apply " + path).status, 0);
    EXPECT_EQ(spans(), "spanning 7 p2/7@- held");
    EXPECT_NE(ctlOutput("export").find("\nspanning 7\n"), std::string::npos);
    stop();
    restart();
    EXPECT_TRUE(spans().ends_with("16 p2/7@- left-over")) << spans();
    EXPECT_EQ(ctl("keep --once").status, 0);
    EXPECT_EQ(spans(), "spanning 7 p2/7@- held");
}
