// The board of a Linux bridge, without a bridge: route netlink's messages as they are read, and what becomes
// of the board and which events the daemon gets when devices come, go, change their masters and their names.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <thread>

#include "common/text.h"
#include "host/linux/bridge_ports.h"
#include "host/linux/kernel_links.h"
#include "platform/route_messages.h"
#include "platform/services.h"
#include "tests/host_root.h"

namespace {
using Bytes = std::vector<uint8_t>;

// Devices as `INDEX NAME [KIND] [master INDEX] [lower INDEX] [vid N] [switch ID]`, or `INDEX gone`, each
// ended by a semicolon.
LinkChanges linksOf(const std::string& text) {
    LinkChanges changes;
    for (size_t at = 0; at < text.size(); at = text.find(';', at) + 1) {
        const std::vector<std::string> words = splitWords(text.substr(at, text.find(';', at) - at));
        const auto number = [&words](size_t i) { return static_cast<uint32_t>(std::stoul(words.at(i))); };
        std::optional<KernelLink>& link = changes[number(0)];
        if (words.at(1) == "gone") continue;
        link.emplace().name = words[1];
        for (size_t i = 2; i < words.size(); i += 2) {
            if (words[i] == "kind") link->kind = words.at(i + 1);
            if (words[i] == "master") link->master = number(i + 1);
            if (words[i] == "lower") link->lower = number(i + 1);
            if (words[i] == "vid") link->vlanId = number(i + 1);
            if (words[i] == "switch") link->switchId = words.at(i + 1);
        }
    }
    return changes;
}

// Of a device with this index, and what `fill` adds.
Bytes linkMessage(uint16_t type, int index, const std::function<void(nlmsghdr*)>& fill,
                  uint8_t family = AF_UNSPEC) {
    Bytes bytes(MNL_SOCKET_BUFFER_SIZE);
    nlmsghdr* message = mnl_nlmsg_put_header(bytes.data());
    message->nlmsg_type = type;
    auto* info = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    info->ifi_family = family;
    info->ifi_index = index;
    fill(message);
    bytes.resize(message->nlmsg_len);
    return bytes;
}

Bytes familyMessage(uint16_t type, uint8_t family) {
    const auto name = [](nlmsghdr* message) { mnl_attr_put_strz(message, IFLA_IFNAME, "port"); };
    return linkMessage(type, 7, name, family);
}

void putInfo(nlmsghdr* message, const char* kind, const std::function<void()>& putData) {
    nlattr* info = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, kind);
    nlattr* data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    putData();
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, info);
}

Bytes vlanMessage(uint16_t protocol) {
    return linkMessage(RTM_NEWLINK, 7, [=](nlmsghdr* message) {
        mnl_attr_put_strz(message, IFLA_IFNAME, "br0.10");
        mnl_attr_put_u32(message, IFLA_LINK, 3);
        putInfo(message, "vlan", [=] {
            mnl_attr_put_u16(message, IFLA_VLAN_ID, 10);
            mnl_attr_put_u16(message, IFLA_VLAN_PROTOCOL, htons(protocol));
        });
    });
}

const Bytes BRIDGE_MESSAGE = linkMessage(RTM_NEWLINK, 3, [](nlmsghdr* message) {
    mnl_attr_put_strz(message, IFLA_IFNAME, "br0");
    const uint8_t id[] = {0xAB, 0x01};
    mnl_attr_put(message, IFLA_PHYS_SWITCH_ID, sizeof id, id);
    putInfo(message, "bridge", [=] { mnl_attr_put_u8(message, IFLA_BR_VLAN_FILTERING, 1); });
});
}  // namespace

TEST(KernelLinks, AreReadFromWholeMessagesOfTheirOwnFamily) {
    const auto foreign = [](nlmsghdr* message) {
        mnl_attr_put_strz(message, IFLA_IFNAME, "veth");
        mnl_attr_put_u32(message, IFLA_LINK, 3);
        mnl_attr_put_u32(message, IFLA_LINK_NETNSID, 0);
        mnl_attr_put_u32(message, IFLA_MASTER, 5);
    };
    const auto longName = [](nlmsghdr* message) {
        mnl_attr_put_strz(message, IFLA_IFNAME, "sixteen-letters-");
    };
    const auto openName = [](nlmsghdr* message) { mnl_attr_put(message, IFLA_IFNAME, 2, "ab"); };
    const auto name = [](nlmsghdr* message) { mnl_attr_put_strz(message, IFLA_IFNAME, "x"); };
    const struct {
        const char* what;
        Bytes message;
        std::string expected;
    } cases[] = {
        {"VLAN", vlanMessage(ETH_P_8021Q), "7 br0.10 kind vlan lower 3 vid 10;"},
        {"service VLAN", vlanMessage(ETH_P_8021AD), "7 br0.10 kind vlan lower 3;"},
        {"lower device elsewhere", linkMessage(RTM_NEWLINK, 7, foreign), "7 veth master 5;"},
        {"deleted", familyMessage(RTM_DELLINK, AF_UNSPEC), "7 gone;"},
        {"port has left its bridge", familyMessage(RTM_DELLINK, AF_BRIDGE), ""},
        {"port's settings", familyMessage(RTM_NEWLINK, AF_BRIDGE), ""},
        {"long name", linkMessage(RTM_NEWLINK, 7, longName), ""},
        {"name without end", linkMessage(RTM_NEWLINK, 7, openName), ""},
        {"no index", linkMessage(RTM_NEWLINK, 0, name), ""},
        {"an address", familyMessage(RTM_NEWADDR, AF_UNSPEC), ""},
    };
    for (const auto& one : cases) {
        LinkChanges changes;
        EXPECT_TRUE(readLinkMessages(one.message.data(), one.message.size(), changes)) << one.what;
        EXPECT_EQ(changes, linksOf(one.expected)) << one.what;
    }
    LinkChanges changes;
    readLinkMessages(BRIDGE_MESSAGE.data(), BRIDGE_MESSAGE.size(), changes);
    ASSERT_TRUE(changes[3].has_value());
    EXPECT_TRUE(changes[3]->filtersVlans);
    EXPECT_EQ(changes[3]->switchId, "ab01");
}

// Each buffer is hardly longer than what it holds, so that the sanitizers see what is read beyond.
TEST(KernelLinks, AreSafeFromBrokenMessages) {
    for (const Bytes& whole : {vlanMessage(ETH_P_8021Q), BRIDGE_MESSAGE}) {
        for (size_t length = 0; length < whole.size(); length++) {
            Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            cut.resize(MNL_ALIGN(length));
            LinkChanges changes;
            readLinkMessages(cut.data(), length, changes);
            EXPECT_TRUE(changes.empty()) << length;
            if (length < sizeof(nlmsghdr)) continue;
            const auto claimed = static_cast<uint32_t>(length);
            memcpy(cut.data(), &claimed, sizeof claimed);
            readLinkMessages(cut.data(), length, changes);
        }
        for (size_t at = sizeof(nlmsghdr); at < whole.size(); at++) {
            for (const char value : {'\x00', '\x01', '\x04', '\x7F', '\xFF'}) {
                Bytes changed = whole;
                changed[at] = static_cast<uint8_t>(value);
                LinkChanges changes;
                readLinkMessages(changed.data(), changed.size(), changes);
                for (const auto& [index, link] : changes) {
                    EXPECT_TRUE(!link || link->name.size() <= DEVICE_NAME_MAX) << at;
                }
            }
        }
    }
}

namespace {
// Reads the route socket as the daemon does and keeps the messages: `+N` registered, `-N` gone, `N>` joined a
// trunk, `N+M` and `N-M` gained and lost a member.
struct Daemon {
    int32_t fd = dax_socket(DAX_AF_ROUTE, DAX_SOCK_DGRAM, 0);
    std::string heard;  // read only when the bus has settled
    std::thread task;
};

struct LinkMessage {
    RtMsgHdr header;
    RtIfInfo info;
    RtAttr attribute;
    uint32_t member;
};

std::string messageText(const LinkMessage& message) {
    const std::string number = std::to_string(message.info.ifUnit);
    if (message.header.type == DAX_RTM_DELLINK) return " -" + number;
    if (message.info.changeMask == RT_CHANGE_REGISTER) return " +" + number;
    if (message.attribute.type == DAX_RTA_TRUNK_JOIN) return " " + number + ">";
    const bool added = message.attribute.type == DAX_RTA_MEMBER_ADD;
    return " " + number + (added ? "+" : "-") + std::to_string(message.member);
}

void hear(Daemon* daemon) {
    for (;;) {
        DaxFdSet set = {};
        daxFdSet(set, daemon->fd);
        if (dax_select(daemon->fd + 1, &set, nullptr, nullptr, nullptr) != 1) return;
        LinkMessage message = {};
        if (dax_recvfrom(daemon->fd, &message, sizeof message, 0, nullptr, nullptr) <= 0) return;
        daemon->heard += messageText(message);
    }
}

// One for the whole test; its task ends with the process.
Daemon& theDaemon() {
    static Daemon& daemon = *[] {
        auto* started = new Daemon;
        const uint8_t address[DAX_ROUTE_ADDRESS_LEN] = {0, DAX_AF_ROUTE};
        EXPECT_EQ(dax_bind(started->fd, address, sizeof address), 0);
        for (const uint32_t group : {DAX_RTGRP_LINK, DAX_RTGRP_VLAN})
            dax_setsockopt(started->fd, DAX_SOL_MEMBERSHIP, DAX_SO_ADD_GROUP, &group, sizeof group);
        started->task = std::thread(hear, started);
        return started;
    }();
    return daemon;
}

// What is there: number, name, and the members of a trunk or the trunk of a member.
std::string present(Board& board) {
    std::string text;
    for (const auto& [number, interface] : board.interfaces) {
        EXPECT_EQ(board.numbers.at(interface.name), number);
        if (!interface.present) continue;
        text += " " + std::to_string(number) + interface.name;
        for (const uint32_t member : interface.members) {
            text += "+" + std::to_string(member);
            EXPECT_EQ(board.interfaces.at(member).trunk, number);
        }
        if (interface.trunk == TRUNK_NOT_LISTED) text += "!";
    }
    EXPECT_EQ(board.numbers.size(), board.interfaces.size());
    return text;
}

struct Step {
    const char* what;
    const char* links;
    const char* heard;
    const char* present;
};

template <size_t Count>
void expectSteps(const char* description, const Step (&steps)[Count]) {
    Board board;
    readBoard(description, "test.conf", board);
    EXPECT_EQ(board.rejected, 0u);
    LinuxBoard linuxBoard = linuxBoardOf(board);
    linuxBoard.told = true;
    for (const Step& step : steps) {
        theDaemon().heard.clear();
        followLinks(linuxBoard, linksOf(step.links));
        EXPECT_EQ(theDaemon().heard, step.heard) << step.what;
        EXPECT_EQ(present(board), step.present) << step.what;
    }
    board.plane.destroy(board.plane.state);
}
}  // namespace

TEST(LinuxBoard, TellsWhatBecomesOfThePorts) {
    expectSteps(
        "plane linux\nbridge br0\n",
        {
            {"before its bridge", "2 a master 1;", "", ""},
            {"bridge", "1 br0 kind bridge;", " +2", " 2a"},
            {"said again", "2 a master 1;", "", " 2a"},
            {"renamed", "2 b master 1;", "", " 2b"},
            {"taken out", "2 b;", " -2", ""},
            {"back", "2 b master 1;", " +2", " 2b"},
            {"deleted and made anew", "2 gone; 3 b master 1;", " -2 +3", " 3b"},
            {"bond beside the bridge", "4 lag kind bond; 5 m master 4;", "", " 3b"},
            {"bond put in", "4 lag kind bond master 1;", " +4 +5 5> 4+5", " 3b 4lag+5 5m"},
            {"bond renamed", "4 lax kind bond master 1;", "", " 3b 4lax+5 5m"},
            {"from the bridge to the bond", "3 b master 4;", " 3> 4+3", " 3b 4lax+5+3 5m"},
            {"from the bond to the bridge", "3 b master 1;", " 4-3", " 3b 4lax+5 5m"},
            {"released", "5 m;", " 4-5 -5", " 3b 4lax"},
            {"two enslaved", "5 m master 4; 3 b master 4;", " +5 3> 4+3 5> 4+5", " 3b 4lax+3+5 5m"},
            {"member deleted", "5 gone;", " 4-5 -5", " 3b 4lax+3"},
            {"VLAN device", "6 v kind vlan lower 1 vid 10;", " +6", " 3b 4lax+3 6v"},
            {"VLAN device of another", "7 w kind vlan lower 3 vid 10;", "", " 3b 4lax+3 6v"},
            {"VLAN device anew", "6 gone; 8 u kind vlan lower 1 vid 10;", " -6 +8", " 3b 4lax+3 8u"},
            {"bond deleted", "3 b; 4 gone;", " 4-3 -3 -4", " 8u"},
            {"team", "9 t kind team master 1; 3 b master 9;", " +3 +9 3> 9+3", " 3b 8u 9t+3"},
            {"names swapped", "3 t master 9; 9 b kind team master 1;", "", " 3t 8u 9b+3"},
            {"bridge renamed", "1 other kind bridge;", " 9-3 -3 -8 -9", ""},
            {"another bridge", "10 br0 kind bridge; 9 b kind team master 10;", " +3 +9 3> 9+3", " 3t 9b+3"},
        });
}

TEST(LinuxBoard, KeepsWhatIsListedUnderItsNumberAndTellsOnlyItsReturn) {
    expectSteps(
        "interface 11 left slot 1 device a\ninterface 12 b slot 2\ninterface 13 c slot 2\n"
        "trunk 20 lag members c\nvlan 10 30 v10\nplane linux\nbridge br0\n",
        {
            {"start", "1 br0 kind bridge; 2 a master 1; 3 x master 1;", " +11", " 11left"},
            {"absent", "2 gone;", "", ""},
            {"anew", "4 a master 1;", " +11", " 11left"},
            {"renamed from and to", "4 z master 1; 3 a master 1;", " +11", " 11left"},
            {"names swapped", "3 b master 1; 4 a master 1;", " +12 +11", " 11left 12b"},
            {"bond", "5 lag kind bond master 1; 6 c master 5; 7 y master 5;", " +20 +13 13> 20+13",
             " 11left 12b 13c 20lag+13"},
            {"bond out", "5 lag kind bond;", " 20-13", " 11left 12b"},
            {"bond not listed", "8 other kind bond master 1; 3 b master 8;", " 12>", " 11left 12b!"},
            {"released from it", "3 b master 1;", "", " 11left 12b"},
            {"VLAN device by its id", "9 any kind vlan lower 1 vid 10;", " +30", " 11left 12b 30v10"},
            {"VLAN device not listed", "10 v11 kind vlan lower 1 vid 11;", "", " 11left 12b 30v10"},
        });
}

TEST(LinuxBoard, NotesPortsOfASwitchChip) {
    Board board;
    readBoard("plane linux\nbridge br0\n", "test.conf", board);
    LinuxBoard linuxBoard = linuxBoardOf(board);
    const auto notes = [&board](const char* text) {
        std::string lines;
        board.plane.inspect(board.plane.state, lines);
        return lines.find(text) != std::string::npos;
    };
    followLinks(linuxBoard, linksOf("1 br0 kind bridge; 2 a master 1 switch ab01;"));
    EXPECT_EQ(board.interfaces.at(2).switchId, "ab01");
    EXPECT_TRUE(notes("ab01"));
    followLinks(linuxBoard, linksOf("2 a switch ab01;"));
    EXPECT_FALSE(notes("ab01"));
    board.plane.destroy(board.plane.state);
}

// Ports that come and go for years leave a bounded trace.
TEST(LinuxBoard, ForgetsTheOldestOfThoseThatAreGone) {
    Board board;
    readBoard("plane linux\nbridge br0\n", "test.conf", board);
    LinuxBoard linuxBoard = linuxBoardOf(board);
    followLinks(linuxBoard, linksOf("1 br0 kind bridge;"));
    for (uint32_t index = 2; index < 3 * VANISHED_MAX; index++) {
        KernelLink port;
        port.name = index % 2 == 0 ? "same" : "port" + std::to_string(index);
        port.master = 1;
        followLinks(linuxBoard, {{index, port}});
        followLinks(linuxBoard, {{index, std::nullopt}});
    }
    EXPECT_EQ(present(board), "");
    EXPECT_EQ(board.interfaces.size(), VANISHED_MAX);
    EXPECT_EQ(board.interfaces.begin()->first, 2 * VANISHED_MAX);
    board.plane.destroy(board.plane.state);
}

// However changes arrive, one by one or as the difference of two dumps, the picture is the same in the end.
TEST(LinuxBoard, ComesToTheSamePictureOnEveryWay) {
    std::mt19937 random(1);
    const auto pick = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    for (const char* listed :
         {"", "interface 71 one slot 1 device n1\ninterface 72 n2 slot 1\ntrunk 73 n3\n"}) {
        const std::string description = std::string("plane linux\nbridge br0\n") + listed;
        for (int round = 0; round < 300; round++) {
            Board boards[2];
            std::vector<LinuxBoard> followers;
            for (Board& board : boards) {
                readBoard(description, "test.conf", board);
                followers.push_back(linuxBoardOf(board));
            }
            KernelLinks links;
            for (int change = 0; change < 40; change++) {
                const uint32_t index = 1 + pick(7);
                std::optional<KernelLink> link;
                if (pick(4) != 0) {
                    const char* kinds[] = {"bridge", "bond", "bond", "", "", "", "vlan"};
                    link.emplace().kind = kinds[index - 1];
                    const uint32_t name = pick(6);
                    link->name = index == 1 ? (name == 0 ? "br1" : "br0") : "n" + std::to_string(name);
                    for (const auto& [other, taken] : links) {
                        if (other != index && taken.name == link->name)
                            link->name = "m" + std::to_string(index);
                    }
                    link->master = index == 1 || index == 7 ? 0 : index <= 3 ? pick(2) : pick(4);
                    link->lower = index == 7 ? 1 : 0;
                    link->vlanId = index == 7 ? 10 : 0;
                }
                followLinks(followers[0], {{index, link}});
                links.erase(index);
                if (link) links.emplace(index, *link);
                if (pick(5) == 0) followLinks(followers[1], linkDifferences(followers[1].links, links));
            }
            followLinks(followers[1], linkDifferences(followers[1].links, links));
            for (Board& board : boards) {
                for (auto& [number, interface] : board.interfaces)
                    std::sort(interface.members.begin(), interface.members.end());
            }
            ASSERT_EQ(present(boards[0]), present(boards[1])) << description << round;
            for (Board& board : boards) board.plane.destroy(board.plane.state);
        }
    }
}
