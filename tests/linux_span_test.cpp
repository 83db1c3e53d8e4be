// Groups that span machines, as one machine's plane holds them. The other machines are sockets: they hear
// which groups a frame bears on its way, and send frames of whatever groups they like.
#include <arpa/inet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "host/linux/kernel_links.h"
#include "host/linux/linux_plane.h"
#include "linux_fixture.h"

namespace {

constexpr uint16_t PROTOCOL = 0x88B5;  // set aside for experiments
constexpr int PATIENCE = 20000;        // milliseconds
constexpr uint8_t WITNESS_TAG = 255;
constexpr uint16_t FIRST_PORT = 4700;
const std::string EVERYBODY(ETH_ALEN, '\xff'), REMOTE("\x02\0\0\0\0\xee", ETH_ALEN),
    MANY("\x01\0\x5e\0\0\x07", ETH_ALEN), NOBODY("\x02\0\0\0\x9\x9", ETH_ALEN);
std::string gReceiver = EVERYBODY;  // of all but the witness's

std::string frameOf(const std::string& from, uint8_t tag, uint16_t vid = 0) {
    std::string frame = (tag == WITNESS_TAG ? EVERYBODY : gReceiver) + from;
    const auto word = [&](uint16_t value) {
        frame += {static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    if (vid != 0) word(ETHERTYPE_VLAN);
    if (vid != 0) word(vid);
    word(PROTOCOL);
    frame += static_cast<char>(tag);
    frame.resize(ETH_ZLEN + sizeof(uint32_t));  // some is left without the VLAN
    return frame;
}

// The tag of a frame of ours; 0 for any other.
uint8_t tagOf(std::string_view frame) {
    size_t at = 2 * ETH_ALEN;
    if (frame.substr(at, 2) == std::string_view("\x81\0", 2)) at += 4;
    return frame.substr(at, 2) == "\x88\xb5" ? static_cast<uint8_t>(frame[at + 2]) : 0;
}

// Everything that arrives, with its tag, until the witness does where it is to.
template <typename Take>
void hear(int fd, size_t skipped, Take take) {
    for (pollfd input = {fd, POLLIN, 0}; poll(&input, 1, PATIENCE) > 0;) {
        char bytes[ETH_FRAME_LEN];
        const ssize_t got = recv(fd, bytes, sizeof(bytes), 0);
        if (got < static_cast<ssize_t>(skipped + ETH_ZLEN)) continue;
        const uint8_t tag = tagOf({bytes + skipped, static_cast<size_t>(got) - skipped});
        if (tag != 0) take(tag, bytes);
        if (tag == WITNESS_TAG) return;
    }
    ADD_FAILURE() << "the witness is not heard";
}

// Ahead of a frame that is on its way between machines; in network order.
struct [[gnu::packed]] Header {
    uint8_t flags, more;
    uint16_t groups;
    uint32_t network;
};

// Another machine, at the end of a tunnel: a socket in a network of its own.
struct Peer {
    int fd;
    uint16_t port;

    void send(uint16_t groups, const std::string& frame) const {
        const Header head = {static_cast<uint8_t>(groups == 0 ? 0x08 : 0x88), 0, htons(groups),
                             htonl(uint32_t{port} << 8)};
        const std::string packet = std::string(reinterpret_cast<const char*>(&head), sizeof(head)) + frame;
        sockaddr_in to = {AF_INET, htons(port), {inet_addr("10.9.0.1")}, {}};
        EXPECT_EQ(sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)),
                  static_cast<ssize_t>(packet.size()));
    }
    // The groups of what arrives, as "0010" by its tag, "!" where other flags of the header are set.
    std::map<uint8_t, std::string> heard() const {
        std::map<uint8_t, std::string> groups;
        hear(fd, sizeof(Header), [&](uint8_t tag, const char* bytes) {
            Header head;
            std::memcpy(&head, bytes, sizeof(head));
            char text[8];
            std::snprintf(text, sizeof(text), "%04x%s", ntohs(head.groups), head.more != 0 ? "!" : "");
            if (tag != WITNESS_TAG) groups[tag] += text;
        });
        return groups;
    }
};

struct LinuxSpanTest : LinuxPlaneTest {
    Plane plane = {};
    int tunnels[3] = {-1, -1, -1};  // of the other machine, to each of the ports
    LinuxPlaneStart settings = {.vlans = {.filters = false},
                                .healing = Healing::watch,
                                .closed = {"s*"},
                                .span = {"vx0", "vx1", "vx2"}};

    void SetUp() override {
        LinuxPlaneTest::SetUp();
        if (IsSkipped()) return;
        cpu_set_t one;  // keeps frames in order
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof(one), &one);
        std::thread([this] {
            ASSERT_EQ(enterNetwork(), "");
            ASSERT_EQ(sh("ip link add hu up type veth peer name u netns " + std::to_string(getpid()) +
                         " && ip addr add 10.9.0.2/24 dev hu"),
                      "");
            for (uint16_t at = 0; at < std::size(tunnels); ++at) {
                tunnels[at] = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
                const sockaddr_in own = {AF_INET, htons(FIRST_PORT + at), {}, {}};
                EXPECT_EQ(bind(tunnels[at], reinterpret_cast<const sockaddr*>(&own), sizeof(own)), 0);
            }
        }).join();
        ASSERT_EQ(sh("ip link set u up && ip addr add 10.9.0.1/24 dev u"), "");
        ASSERT_EQ(buildSwitch(network, {"p1", "p2", "p3", "p4", "s1"}), "");
        ASSERT_EQ(blocked(network), "");  // all ports forward by now
    }
    void TearDown() override {
        end();
        for (const int fd : tunnels) close(fd);
        LinuxPlaneTest::TearDown();
    }
    Peer peerBehind(const std::string& device, const std::string& options) const {
        const int at = device.back() - '0';
        const std::string port = std::to_string(FIRST_PORT + at);
        EXPECT_EQ(sh("ip link add " + device + " up type vxlan id " + port + " dstport " + port +
                     " local 10.9.0.1 nolearning " + options + " && ip link set " + device +
                     " master br0 && bridge fdb append 00:00:00:00:00:00 dev " + device + " dst 10.9.0.2"),
                  "");
        return {tunnels[at], static_cast<uint16_t>(FIRST_PORT + at)};
    }

    PlanePort port(const char* name) const {
        return {if_nametoindex(name), 1, false, false, name, name, "", "", if_nametoindex(name)};
    }
    void lookAtDevices() const {
        KernelLinks links;
        SpanDevices devices;
        ASSERT_TRUE(dumpLinks(links));
        for (const auto& [index, link] : links) devices[link.name] = {index, link.groupPolicy};
        setLinuxSpan(plane, devices);
    }
    void begin() {
        plane = createLinuxPlane();
        ASSERT_EQ(startLinuxPlane(plane, settings), "");
    }
    void end() {
        if (plane.state != nullptr) plane.destroy(plane.state);
        plane = {};
    }
    // p1: 5; p2: 5 and 7; p4: 6 within VLAN 10.
    void join() const {
        const std::tuple<const char*, uint32_t, uint16_t> members[] = {
            {"p1", 5, 0}, {"p2", 5, 0}, {"p2", 7, 0}, {"p4", 6, 10}};
        for (const auto& [name, group, vid] : members) {
            EXPECT_EQ(plane.setMember(plane.state, port(name), group, vid, true), 0) << name;
        }
    }
    size_t lines(const std::string& pattern) const {
        std::string text;
        plane.inspect(plane.state, text);
        const Texts all = split(text, '\n');
        return static_cast<size_t>(std::ranges::count_if(
            all, [&](const std::string& line) { return std::regex_search(line, std::regex(pattern)); }));
    }

    // What has come so far, at the hosts or at a peer.
    void forget(int peer = -1) const {
        char byte;
        while (peer != -1 && recv(peer, &byte, 1, MSG_DONTWAIT) >= 0) continue;
        for (const auto& [name, host] : network.hosts) {
            while (recv(host.sockets[0], &byte, 1, MSG_DONTWAIT) >= 0) continue;
        }
    }

    bool reaches(const char* dst, uint16_t groups) const {
        std::string reason;
        return plane.remoteForwards(plane.state, port(dst), groups, 0, reason);
    }
    bool forwards(const char* src, const char* dst) const {
        std::string reason;
        return plane.forwards(plane.state, port(src), port(dst), 0, reason);
    }

    // Who does not hear a frame of these groups, as "p1 p2".
    std::string deaf(const Peer& peer, uint16_t groups, uint16_t vid = 0) {
        forget();
        peer.send(groups, frameOf(REMOTE, 1, vid));
        peer.send(0, frameOf(REMOTE, WITNESS_TAG));
        std::string names;
        for (const auto& [name, host] : network.hosts) {
            bool heard = false;
            hear(host.sockets[0], 0, [&](uint8_t tag, const char*) { heard = heard || tag != WITNESS_TAG; });
            if (!heard) names += (names.empty() ? "" : " ") + name;
        }
        return names;
    }
    // Which groups a host's frame bears when it comes to the peer; empty when it does not.
    std::string groupsOf(const Peer& peer, const char* from, uint16_t vid = 0) {
        const auto send = [&](const std::string& host, const std::string& frame) {
            EXPECT_GT(::send(network.hosts.at(host).sockets[0], frame.data(), frame.size(), 0), 0);
        };
        const std::string own = std::string("\x02\0\0\0\1", ETH_ALEN - 1) + from[1];
        forget(peer.fd);
        send(from, frameOf(own, 1, vid));
        send(WITNESS, frameOf(REMOTE, WITNESS_TAG));
        return peer.heard()[1];
    }

    // All that holds with the members above.
    void expectHeld(const Peer& peer) {
        const struct {
            const char* from;
            uint16_t vid;
            std::string bits;
        } out[] = {{"p1", 0, "0010"}, {"p2", 0, "0050"},  {"p3", 0, "0000"},
                   {"s1", 0, "ffff"}, {"p4", 10, "0020"}, {"p4", 11, "0020"}};
        for (const auto& one : out) EXPECT_EQ(groupsOf(peer, one.from, one.vid), one.bits) << one.from;
        const struct {
            uint16_t groups, vid;
            std::string deaf;
        } in[] = {{0, 0, ""},       {0x40, 0, "p2 s1"},        {0x50, 10, "p1 p2 s1"}, {0x20, 0, "s1"},
                  {0x20, 11, "s1"}, {0x30, 10, "p1 p2 p4 s1"}, {0xff8f, 10, "s1"}};
        for (const auto& one : in) {
            EXPECT_EQ(deaf(peer, one.groups, one.vid), one.deaf) << one.groups << " in " << one.vid;
        }
    }
};

}  // namespace

TEST_F(LinuxSpanTest, CarriesGroupsAndHoldsThoseOfOthers) {
    const Peer peer = peerBehind("vx0", "gbp"), plain = peerBehind("vx1", ""),
               other = peerBehind("vx2", "gbp");
    begin();
    // Nothing is known of the devices yet.
    EXPECT_EQ(groupsOf(peer, "p3") + groupsOf(peer, "p1"), "00000000");
    join();
    EXPECT_EQ(groupsOf(peer, "p3") + groupsOf(peer, "p1"), "0000");
    lookAtDevices();
    EXPECT_EQ(lines("^span device=vx. state=carries"), 2U);
    EXPECT_EQ(lines("^span device=vx1 state=plain"), 1U);
    EXPECT_EQ(lines("^entry kind=span .* state=held"), 4U);
    for (const std::string& receiver : {MANY, NOBODY, EVERYBODY}) {
        SCOPED_TRACE(gReceiver = receiver);
        expectHeld(peer);
    }
    EXPECT_GT(lines("^entry kind=span src=- dst=p2 vlan=- group=7 state=held packets=[1-9]"), 0U);
    EXPECT_GT(lines("^entry kind=span src=- dst=p4 vlan=10 group=6 state=held packets=[1-9]"), 0U);

    // Who bears no group may leave by a port that carries none, and who does may not.
    EXPECT_EQ(groupsOf(plain, "p1") + groupsOf(plain, "p4") + groupsOf(plain, "s1"), "");
    EXPECT_EQ(groupsOf(plain, "p3"), "0000");
    EXPECT_FALSE(forwards("p1", "vx1") || forwards("s1", "vx1"));
    EXPECT_TRUE(forwards("p1", "vx0") && forwards("p3", "vx1"));

    // From one machine to another, groups of nobody here, too.
    forget(other.fd);
    peer.send(0x8050, frameOf(REMOTE, 1));
    peer.send(0, frameOf(REMOTE, WITNESS_TAG));
    EXPECT_EQ(other.heard()[1], "8050");

    // Marks of others are no groups, neither of what is forwarded nor of what the machine sends, and stay.
    ASSERT_EQ(sh("nft 'table bridge others { chain marks { type filter hook prerouting priority 0; "
                 "meta mark set 0x00020041; }; chain own { type filter hook output priority 0; meta mark set "
                 "0x00020041; }; }; table ip others { chain out { type filter hook output priority 0; "
                 "udp dport 4700 meta mark & 0x00020000 == 0 drop; }; }'"),
              "");
    EXPECT_EQ(groupsOf(peer, "p2") + groupsOf(peer, "p3"), "00500000");
    network.hosts["m"].sockets = {openEnd("br0")};
    EXPECT_EQ(groupsOf(peer, "m"), "0000");
}

TEST_F(LinuxSpanTest, KeepsGroupsWhateverHappensToTheTableAndTheDaemon) {
    const Peer peer = peerBehind("vx0", "gbp");
    settings.span = {"vx0"};
    begin();
    lookAtDevices();
    join();
    const std::string table = " bridge portisolate ",
                      p2 = table + "span_marks '{ p2 }'; nft add element" + table;
    for (const std::string& done :
         {"delete element" + p2 + "span_marks '{ p2 : 0x20000 }'",
          "delete element" + p2 + "span_marks '{ p2 : 0x40 }'", "flush set" + table + "span_members",
          "flush set" + table + "span_open", "flush chain" + table + "span_in",
          "flush chain" + table + "span_out", std::string("flush ruleset")}) {
        SCOPED_TRACE(done);
        ASSERT_EQ(sh("nft " + done), "");
        watchLinuxTable(plane, "nft");
        expectHeld(peer);
        EXPECT_EQ(lines("^entry kind=span .* state=held") + lines("state=ready"), 5U);
    }
    // Another frame mark, a table of another kind, one that was saved and loaded: nothing of it opens, and
    // what is asked for again is held again, while the rest goes.
    for (const char* how : {"", "mark", "nft", "own"}) {
        SCOPED_TRACE(how);
        const std::string way = how;
        end();
        if (way == "nft") {
            ASSERT_EQ(sh("f=$(mktemp); nft list table bridge portisolate >$f; "
                         "nft delete table bridge portisolate; nft -f $f; s=$?; rm $f; exit $s"),
                      "");
        }
        settings.frameMark = way == "mark" ? 0x1fff0000 : FRAME_MARK_DEFAULT;
        settings.healing = way == "own" ? Healing::on : Healing::watch;
        expectHeld(peer);
        begin();
        expectHeld(peer);
        lookAtDevices();
        EXPECT_EQ(lines("^entry kind=span .* state=left-over packets=[1-9]"), 4U);
        join();
        expectHeld(peer);
        EXPECT_EQ(lines("^entry kind=span .* state=held packets=[1-9]"), 4U);
    }
    end();
    begin();
    uint64_t changed = 0;
    EXPECT_EQ(plane.sweep(plane.state, changed), 0);
    EXPECT_EQ(changed, 4U);
    EXPECT_EQ(deaf(peer, 0x70, 10), "s1");
    EXPECT_EQ(groupsOf(peer, "p2"), "0000");
}

TEST_F(LinuxSpanTest, FollowsWhatSpansAndWho) {
    const Peer peer = peerBehind("vx0", "gbp");
    settings.span = {"vx0"};
    begin();
    lookAtDevices();
    join();
    // Not all of the groups mean the same on other machines.
    EXPECT_EQ(plane.setSpanning(plane.state, 0x40), 0);
    EXPECT_EQ(lines("^spanning 7$") + lines("^entry kind=span .*group=7 state=held"), 2U);
    EXPECT_EQ(deaf(peer, 0x50) + "," + deaf(peer, 0x10), "p2 s1,");
    EXPECT_EQ(groupsOf(peer, "p2") + groupsOf(peer, "p1") + groupsOf(peer, "s1"), "004000000040");
    EXPECT_EQ(plane.setSpanning(plane.state, 0), 0);
    EXPECT_EQ(lines("^spanning none$"), 1U);
    EXPECT_EQ(deaf(peer, 0xffff) + groupsOf(peer, "p2") + groupsOf(peer, "s1"), "00000000");
    EXPECT_TRUE(reaches("s1", 0xffff));
    EXPECT_EQ(plane.setSpanning(plane.state, SPANNING_ALL), 0);
    EXPECT_FALSE(reaches("s1", 1));
    expectHeld(peer);

    // A port in a trunk is held when it has left it; one with another name takes its groups along.
    PlanePort member = port("p3");
    member.trunkMember = true;
    EXPECT_EQ(plane.setMember(plane.state, member, 5, 0, true), 0);
    EXPECT_EQ(deaf(peer, 0x10), "p1 p2 p3 s1");
    EXPECT_EQ(plane.setMember(plane.state, member, 5, 0, false), 0);
    const uint32_t number = if_nametoindex("p2");
    ASSERT_EQ(sh("ip link set p2 down && ip link set p2 name q2 && ip link set q2 up"), "");
    EXPECT_EQ(renameLinuxPort(plane, number, "q2"), 0);
    EXPECT_EQ(blocked(network), "");
    EXPECT_EQ(deaf(peer, 0x40), "p2 s1");
    EXPECT_EQ(groupsOf(peer, "p2"), "0050");
    EXPECT_EQ(plane.setMember(plane.state, port("q2"), 5, 0, false), 0);
    EXPECT_EQ(groupsOf(peer, "p2") + deaf(peer, 0x10), "0040p1 s1");

    // A door that opens; what a port that was made anew carries is not known until it was looked at.
    uint64_t changed = 0;
    EXPECT_EQ(plane.setDoors(plane.state, {port("s1")}, true, changed), 0);
    EXPECT_EQ(groupsOf(peer, "s1") + deaf(peer, 0x10), "0000p1");
    ASSERT_EQ(sh("ip link del vx0"), "");
    peerBehind("vx0", "gbp");
    EXPECT_EQ(groupsOf(peer, "p1") + groupsOf(peer, "p3"), "0000");
    lookAtDevices();
    EXPECT_EQ(groupsOf(peer, "p1"), "0010");

    // What matters to one machine alone is said once, and so is a mark that takes the groups' bits.
    for (int i = 0; i < 2; ++i) {
        plane.addOneWay(plane.state, port("p1"), port("p3"), {});
        plane.addTwoWay(plane.state, port("p1"), port("p3"), {0, 0, 0, 17});
    }
    EXPECT_EQ(lines("^note one-way pairs hold on this machine only") + lines("^note groups above 16 hold"),
              2U);
    settings.frameMark = 0xfff8;
    Plane refused = createLinuxPlane();
    EXPECT_NE(startLinuxPlane(refused, settings).find("frame mark"), std::string::npos);
    refused.destroy(refused.state);
}
