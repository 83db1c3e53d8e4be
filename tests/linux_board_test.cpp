// The board of a Linux bridge, without a bridge: route netlink's messages as they are read, and what becomes
// of the board and which events the daemon gets when devices come, go, change their masters and their names.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "common/config_file.h"
#include "common/files.h"
#include "common/text.h"
#include "host/board/board_file.h"
#include "host/linux/kernel_links.h"
#include "host/linux/linux_board.h"
#include "host/start/planes.h"
#include "platform/route_messages.h"
#include "platform/services.h"
#include "tests/host_root.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Devices as `INDEX NAME [kind KIND] [master INDEX] [lower INDEX] [vid N] [switch ID] [filters 802.1ad] [xdp
// on]`, or `INDEX gone`, each ended by a semicolon.
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
            if (words[i] == "filters") link->filtersVlans = true, link->vlanProtocol = ETH_P_8021AD;
            if (words[i] == "xdp") link->xdp = true;
            if (words[i] == "alias") link->alias = words.at(i + 1);
            if (words[i] == "also") link->otherNames = {words.at(i + 1)};
            if (words[i] == "switch") link->switchId = words.at(i + 1);
        }
    }
    return changes;
}

// What a message holds behind its head.
using Fill = std::function<void(nlmsghdr*)>;

Bytes linkMessage(uint16_t type, int index, const Fill& fill, uint8_t family = AF_UNSPEC) {
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

Fill named(const char* name) {
    return [=](nlmsghdr* message) { mnl_attr_put_strz(message, IFLA_IFNAME, name); };
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
        named("br0.10")(message);
        mnl_attr_put_u32(message, IFLA_LINK, 3);
        putInfo(message, "vlan", [=] {
            mnl_attr_put_u16(message, IFLA_VLAN_ID, 10);
            mnl_attr_put_u16(message, IFLA_VLAN_PROTOCOL, htons(protocol));
        });
    });
}

const Bytes BRIDGE_MESSAGE = linkMessage(RTM_NEWLINK, 3, [](nlmsghdr* message) {
    named("br0")(message);
    mnl_attr_put(message, IFLA_PHYS_SWITCH_ID, 2, "\xAB\x01");
    putInfo(message, "bridge", [=] {
        mnl_attr_put_u8(message, IFLA_BR_VLAN_FILTERING, 1);
        mnl_attr_put_u16(message, IFLA_BR_VLAN_PROTOCOL, htons(ETH_P_8021AD));
    });
});

}  // namespace

TEST(KernelLinks, AreReadFromWholeMessagesOfTheirOwnFamily) {
    const Fill foreign = [](nlmsghdr* message) {
        named("veth")(message);
        mnl_attr_put_u32(message, IFLA_LINK, 3);
        mnl_attr_put_u32(message, IFLA_LINK_NETNSID, 0);
        mnl_attr_put_u32(message, IFLA_MASTER, 5);
        mnl_attr_put_strz(message, IFLA_IFALIAS, "red");
        nlattr* names = mnl_attr_nest_start(message, IFLA_PROP_LIST);
        mnl_attr_put_strz(message, IFLA_ALT_IFNAME, "long");
        mnl_attr_nest_end(message, names);
        nlattr* xdp = mnl_attr_nest_start(message, IFLA_XDP);
        mnl_attr_put_u8(message, IFLA_XDP_ATTACHED, XDP_ATTACHED_DRV);
        mnl_attr_nest_end(message, xdp);
    };
    const Fill openName = [](nlmsghdr* message) { mnl_attr_put(message, IFLA_IFNAME, 2, "ab"); };
    const struct {
        const char* what;
        Bytes message;
        std::string expected;
    } cases[] = {
        {"bridge", BRIDGE_MESSAGE, "3 br0 kind bridge switch ab01 filters 802.1ad;"},
        {"VLAN", vlanMessage(ETH_P_8021Q), "7 br0.10 kind vlan lower 3 vid 10;"},
        {"service VLAN", vlanMessage(ETH_P_8021AD), "7 br0.10 kind vlan lower 3;"},
        {"lower device elsewhere", linkMessage(RTM_NEWLINK, 7, foreign),
         "7 veth master 5 xdp on alias red also long;"},
        {"deleted", linkMessage(RTM_DELLINK, 7, named("port")), "7 gone;"},
        {"port has left its bridge", linkMessage(RTM_DELLINK, 7, named("port"), AF_BRIDGE), ""},
        {"port's settings", linkMessage(RTM_NEWLINK, 7, named("port"), AF_BRIDGE), ""},
        {"long name", linkMessage(RTM_NEWLINK, 7, named("sixteen-letters-")), ""},
        {"name without end", linkMessage(RTM_NEWLINK, 7, openName), ""},
        {"no index", linkMessage(RTM_NEWLINK, 0, named("x")), ""},
        {"an address", linkMessage(RTM_NEWADDR, 7, named("port")), ""},
    };
    const Bytes next = linkMessage(RTM_NEWLINK, 9, named("next"));
    for (const auto& one : cases) {
        // What is passed over does not keep the next message from being read.
        Bytes two = one.message;
        two.resize(MNL_ALIGN(two.size()));
        two.insert(two.end(), next.begin(), next.end());
        LinkChanges changes;
        EXPECT_TRUE(readLinkMessages(two.data(), two.size(), changes)) << one.what;
        EXPECT_EQ(changes, linksOf(one.expected + "9 next;")) << one.what;
    }
}

// Each buffer is hardly longer than what it holds, so that the sanitizers see what is read beyond.
TEST(KernelLinks, AreSafeFromBrokenMessages) {
    for (const Bytes& whole : {vlanMessage(ETH_P_8021Q), BRIDGE_MESSAGE}) {
        for (size_t length = 0; length < whole.size(); ++length) {
            Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            cut.resize(MNL_ALIGN(length));
            LinkChanges changes;
            readLinkMessages(cut.data(), length, changes);
            EXPECT_TRUE(changes.empty()) << length;
            if (length < sizeof(nlmsghdr)) continue;
            const auto claimed = static_cast<uint32_t>(length);
            std::memcpy(cut.data(), &claimed, sizeof(claimed));
            readLinkMessages(cut.data(), length, changes);
        }
        for (size_t at = sizeof(nlmsghdr); at < whole.size(); ++at) {
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

// The messages that the daemon gets: `+N` registered, `-N` gone, `N>` joined a trunk, `N+M` and `N-M` gained
// and lost a member. Read only when the bus has settled.
std::string gHeard;

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

void hear(int32_t fd) {
    for (;;) {
        DaxFdSet set = {};
        daxFdSet(set, fd);
        LinkMessage message = {};
        if (dax_select(fd + 1, &set, nullptr, nullptr, nullptr) != 1) return;
        if (dax_recvfrom(fd, &message, sizeof(message), 0, nullptr, nullptr) <= 0) return;
        gHeard += messageText(message);
    }
}

// Reads the route socket as the daemon does, from the first call on until the process ends.
void startHearing() {
    static const int32_t fd = dax_socket(DAX_AF_ROUTE, DAX_SOCK_DGRAM, 0);
    static constexpr uint8_t ADDRESS[DAX_ROUTE_ADDRESS_LEN] = {0, DAX_AF_ROUTE};
    static const int32_t bound = dax_bind(fd, ADDRESS, sizeof(ADDRESS));
    ASSERT_EQ(bound, 0);
    for (const uint32_t group : {DAX_RTGRP_LINK, DAX_RTGRP_VLAN}) {
        dax_setsockopt(fd, DAX_SOL_MEMBERSHIP, DAX_SO_ADD_GROUP, &group, sizeof(group));
    }
    static std::thread& task = *new std::thread(hear, fd);
    ASSERT_TRUE(task.joinable());
}

// What is there: number, name, and the members of a trunk or the trunk of a member.
std::string present(const Board& board) {
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

// A board with the bridge br0, and interfaces as `listed`.
struct BridgeBoard {
    Board board;
    LinuxBoard linuxBoard;

    explicit BridgeBoard(const std::string& listed = "") : linuxBoard(read(board, listed)) {}
    BridgeBoard(const BridgeBoard&) = delete;
    ~BridgeBoard() { board.plane.destroy(board.plane.state); }

    static LinuxBoard read(Board& board, const std::string& listed) {
        readBoard(listed + "plane linux\nbridge br0\n", "test.conf", planeKinds(), board);
        EXPECT_EQ(board.rejected, 0u);
        return linuxBoardOf(board);
    }
    void follow(const std::string& links) { followLinks(linuxBoard, linksOf(links)); }
};

TEST(LinuxBoard, BitsOfGroupsAndOfVlansDoNotMeet) {
    for (const uint32_t mark : {0x1fff0000u, 0x1fffu, 0x1fff8000u}) {
        const bool meets = (mark & SPANNING_ALL) != 0;
        Board board;
        readBoard(fmt::format("span vx0 vx1\nspan vx0\nframe-mark {:#x}\nplane linux\nbridge br0\n", mark),
                  "test.conf", planeKinds(), board);
        EXPECT_EQ(board.rejected, meets ? 1u : 0u) << mark;
        EXPECT_EQ(board.frameMark, meets ? FRAME_MARK_DEFAULT : mark);
        EXPECT_EQ(board.span, (std::vector<std::string>{"vx0", "vx1"}));
        board.plane.destroy(board.plane.state);
    }
}

// The saved configuration of the root that the boards of a test share.
struct SavedFile {
    const std::string path = rootedPath(SAVED_FILE);
    explicit SavedFile(const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
    }
    SavedFile(const SavedFile&) = delete;
    ~SavedFile() { std::filesystem::remove(path); }
};

// Who is there, whatever the numbers: names, those of members behind that of their trunk.
std::string namesPresent(const Board& board) {
    std::set<std::string> names;
    for (const auto& [number, interface] : board.interfaces) {
        const auto trunk = board.interfaces.find(interface.trunk);
        if (!interface.present || interface.kind == IfKind::vlan) continue;
        names.insert((trunk == board.interfaces.end() ? "" : trunk->second.name + ":") + interface.name);
    }
    std::string text;
    for (const std::string& name : names) text += " " + name;
    return text;
}

struct Step {
    const char* what;
    const char* links;
    const char* heard;
    const char* present;
};

void expectSteps(const char* listed, std::initializer_list<Step> steps) {
    BridgeBoard bridge(listed);
    startHearing();
    followSaved(bridge.linuxBoard);
    bridge.linuxBoard.publishes = true;
    for (const Step& step : steps) {
        gHeard.clear();
        bridge.follow(step.links);
        EXPECT_EQ(gHeard, step.heard) << step.what;
        EXPECT_EQ(present(bridge.board), step.present) << step.what;
    }
}

}  // namespace

TEST(LinuxBoard, TellsWhatBecomesOfThePorts) {
    expectSteps(
        "",
        {
            {"before its bridge", "2 a master 1;", "", ""},
            {"bridge", "1 br0 kind bridge;", " +2", " 2a"},
            {"said again", "2 a master 1;", "", " 2a"},
            {"renamed", "2 b master 1;", " 2-0", " 2b"},
            {"another alias", "2 b master 1 alias red;", " 2-0", " 2b"},
            {"another name beside it", "2 b master 1 also long;", " 2-0", " 2b"},
            {"none of both", "2 b master 1;", " 2-0", " 2b"},
            {"taken out", "2 b;", " -2", ""},
            {"back", "2 b master 1;", " +2", " 2b"},
            {"deleted and made anew", "2 gone; 3 b master 1;", " -2 +3", " 3b"},
            {"bond beside the bridge", "4 lag kind bond; 5 m master 4;", "", " 3b"},
            {"bond put in", "4 lag kind bond master 1;", " +4 +5 5> 4+5", " 3b 4lag+5 5m"},
            {"bond renamed", "4 lax kind bond master 1;", " 4-0", " 3b 4lax+5 5m"},
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
            {"names swapped", "3 t master 9; 9 b kind team master 1;", " 3-0 9-0", " 3t 8u 9b+3"},
            {"bridge renamed", "1 other kind bridge;", " 9-3 -3 -8 -9", ""},
            {"another bridge", "10 br0 kind bridge; 9 b kind team master 10;", " +3 +9 3> 9+3", " 3t 9b+3"},
        });
}

TEST(LinuxBoard, KeepsWhatIsListedUnderItsNumberAndTellsOnlyItsReturn) {
    expectSteps(
        "interface 11 left slot 1 device a\ninterface 12 b slot 2\ninterface 13 c slot 2\n"
        "trunk 20 lag members c\nvlan 10 30 v10\n",
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

TEST(LinuxBoard, KeepsWhatIsSavedUnderItsNumberWhetherItIsThereOrNot) {
    const SavedFile file("group 5 a b\npair 7 to a\nbad line b\n");
    expectSteps(
        "",  // nothing is listed
        {
            {"start", "1 br0 kind bridge; 2 c master 1;", " +2", " 2c"},
            {"saved", "3 a master 1;", " +2000000002", " 2c 2000000002a"},
            {"taken out", "3 a;", "", " 2c"},
            {"back", "3 a master 1;", " +2000000002", " 2c 2000000002a"},
            {"deleted and made anew", "3 gone; 4 a master 1;", " +2000000002", " 2c 2000000002a"},
            {"number for a name", "7 d master 1; 8 7 master 1;", " +7 +2000000001",
             " 2c 7d 20000000017 2000000002a"},
            {"renamed", "4 x master 1;", " 2000000002-0", " 2c 7d 20000000017 2000000002x"},
            {"another of the name", "9 a master 1;", " +2000000004",
             " 2c 7d 20000000017 2000000002x 2000000004a"},
            {"not saved", "4 gone; 2 c;", " -2 -2000000002", " 7d 20000000017 2000000004a"},
            {"takes the name of one that goes", "9 gone; 7 a master 1;", " -7 +2000000004",
             " 20000000017 2000000004a"},
            {"bond", "10 b kind bond master 1; 11 m master 10;", " +2000000003 +11 11> 2000000003+11",
             " 11m 20000000017 2000000003b+11 2000000004a"},
            {"bond made anew", "10 gone; 12 b kind bond master 1; 11 m master 12;",
             " 2000000003-11 +2000000003 11> 2000000003+11", " 11m 20000000017 2000000003b+11 2000000004a"},
            {"bridge gone", "1 gone;", " 2000000003-11 -11", ""},
        });
}

TEST(LinuxBoard, NotesWhatGoesPastTheKernel) {
    BridgeBoard bridge;
    const Plane& plane = bridge.board.plane;
    for (const auto& [links, chip, program] :
         {std::tuple("1 br0 kind bridge; 2 a master 1 switch ab01;", true, false),
          {"2 a master 1 xdp on;", false, true},
          {"2 a switch ab01 xdp on;", false, false}}) {
        bridge.follow(links);
        std::string lines;
        plane.inspect(plane.state, lines);
        EXPECT_EQ(lines.find("ab01") != std::string::npos, chip) << links;
        EXPECT_EQ(lines.find("XDP") != std::string::npos, program) << links;
    }
}

// Ports that come and go for years leave a bounded trace.
TEST(LinuxBoard, ForgetsTheOldestOfThoseThatAreGone) {
    BridgeBoard bridge;
    bridge.follow("1 br0 kind bridge;");
    for (uint32_t index = 2; index < 3 * VANISHED_MAX; ++index) {
        const std::string number = std::to_string(index);
        bridge.follow(number + (index % 2 == 0 ? " same" : " port" + number) + " master 1;");
        bridge.follow(number + " gone;");
    }
    EXPECT_EQ(present(bridge.board), "");
    EXPECT_EQ(bridge.board.interfaces.size(), VANISHED_MAX);
    EXPECT_EQ(bridge.board.interfaces.begin()->first, 2 * VANISHED_MAX);
}

namespace {

// What becomes of one of seven devices: a bridge, two bonds that may be in it, three ports, a VLAN device.
std::pair<uint32_t, std::optional<KernelLink>> randomChange(std::mt19937& random, const KernelLinks& links) {
    const auto pick = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    const uint32_t index = 1 + pick(7);
    if (pick(4) == 0) return {index, std::nullopt};
    static constexpr const char* KINDS[] = {"bridge", "bond", "bond", "", "", "", "vlan"};
    const uint32_t name = pick(6);
    KernelLink link;
    link.kind = KINDS[index - 1];
    link.name = index == 1 ? (name == 0 ? "br1" : "br0") : "n" + std::to_string(name);
    for (const auto& [other, taken] : links) {
        if (other != index && taken.name == link.name) link.name = "m" + std::to_string(index);
    }
    link.master = index == 1 || index == 7 ? 0 : index <= 3 ? pick(2) : pick(4);
    link.lower = index == 7 ? 1 : 0;
    link.vlanId = index == 7 ? 10 : 0;
    return {index, link};
}

}  // namespace

// However changes arrive, one by one or as the difference of two dumps, the picture is the same in the end.
// Which names are saved decides on numbers, never on who is there.
TEST(LinuxBoard, ComesToTheSamePictureOnEveryWay) {
    std::mt19937 random(1);
    for (const char* listed :
         {"", "interface 71 one slot 1 device n1\ninterface 72 n2 slot 1\ntrunk 73 n3\n"}) {
        for (int round = 0; round < 300; ++round) {
            BridgeBoard single(listed), dumped(listed), kept(listed);
            followSaved((SavedFile("group 1 n1 n3 n5\n"), kept.linuxBoard));
            KernelLinks links;
            for (int change = 0; change < 40; ++change) {
                const auto [index, link] = randomChange(random, links);
                followLinks(single.linuxBoard, {{index, link}});
                links.erase(index);
                if (link) links.emplace(index, *link);
                if (change % 3 != 0) continue;
                for (BridgeBoard* board : {&dumped, &kept}) {
                    followLinks(board->linuxBoard, linkDifferences(board->linuxBoard.links, links));
                }
                present(kept.board);
                ASSERT_EQ(namesPresent(kept.board), namesPresent(dumped.board)) << round << " " << change;
            }
            for (Board* board : {&single.board, &dumped.board}) {
                for (auto& [number, interface] : board->interfaces) std::ranges::sort(interface.members);
            }
            ASSERT_EQ(present(single.board), present(dumped.board)) << listed << round;
        }
    }
}
