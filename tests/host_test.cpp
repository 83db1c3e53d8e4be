// The stand-in for the platform: pools, descriptions, the command server's framing, fault rules, each against
// small tables of cases.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "common/bytes.h"
#include "common/files.h"
#include "common/local_socket.h"
#include "common/text.h"
#include "host/board/board.h"
#include "host/board/board_file.h"
#include "host/board/faults.h"
#include "host/board/peer_answers.h"
#include "host/planes/spread_map.h"
#include "host/services/options.h"
#include "host/services/readiness.h"
#include "host/sockets/admission.h"
#include "host/sockets/listening.h"
#include "host/sockets/socket_access.h"
#include "host/start/planes.h"
#include "platform/services.h"
#include "tests/host_root.h"
#include "wire/operations.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

constexpr uint32_t WAIT = 5000;  // milliseconds, for what happens at once unless something is broken

using Words = std::vector<uint32_t>;

std::string bytesOf(const Words& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * WORD_SIZE};
}

}  // namespace

TEST(Pool, RefusesSizesThatCannotBe) {
    for (const uint64_t count : {0ull, 1ull << 27, 1ull << 62, ~0ull}) {
        SilMemPool pool = {};
        EXPECT_NE(silMemPoolInit(&pool, "p", count, 16, 0), 0) << count;
        EXPECT_EQ(silMemPoolDestroy(&pool), 0);
    }
}

TEST(Pool, HandsOutZeroedElementsUntilExhausted) {
    SilMemPool pool = {};
    ASSERT_EQ(silMemPoolInit(&pool, "p", 3, 13, 0), 0);
    static constexpr uint8_t ZERO[13] = {};
    void* elements[3];
    for (int round = 0; round < 2; ++round) {
        for (void*& element : elements) {
            element = silMemPoolAlloc(&pool, 0);
            ASSERT_NE(element, nullptr);
            EXPECT_EQ(std::memcmp(element, ZERO, sizeof(ZERO)), 0);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(element) % alignof(void*), 0u);
            std::memset(element, 0xFF, sizeof(ZERO));
        }
        EXPECT_EQ(silMemPoolAlloc(&pool, 0), nullptr);
        EXPECT_EQ(silMemPoolFreeSize(&pool), 0u);
        for (void* element : elements) EXPECT_EQ(silMemPoolFree(&pool, element), 0);
        EXPECT_EQ(silMemPoolFreeSize(&pool), 3u);
    }
    EXPECT_EQ(silMemPoolDestroy(&pool), 0);
}

TEST(Pool, CatchesDoubleFreeAndForeignAddresses) {
    SilMemPool pool = {};
    ASSERT_EQ(silMemPoolInit(&pool, "p", 2, 16, 0), 0);
    auto* element = static_cast<uint8_t*>(silMemPoolAlloc(&pool, 0));
    uint64_t foreign[2] = {};
    for (void* address :
         {static_cast<void*>(foreign), static_cast<void*>(element + 8), static_cast<void*>(element + 16)}) {
        EXPECT_DEBUG_DEATH(EXPECT_NE(silMemPoolFree(&pool, address), 0), "pool p");
    }
    EXPECT_EQ(silMemPoolFree(&pool, element), 0);
    EXPECT_DEBUG_DEATH(EXPECT_NE(silMemPoolFree(&pool, element), 0), "pool p");
    EXPECT_EQ(silMemPoolFreeSize(&pool), 2u);
    silMemPoolDestroy(&pool);
}

TEST(Options, KeepsWhatCanBeReadAndCountsTheRest) {
    Options options;
    readOptions(
        "# comment\n\n  a.b = 12 # trailing\nempty =\r\nno equals sign\n= 3\ntwo words = 1\na.b=13\n"
        "long = 12345678901234567890123456789012\nedge = 1234567890123456789012345678901",
        "test.conf", options);
    EXPECT_EQ(options.rejected, 4u);
    const std::unordered_map<std::string, std::string> expected = {
        {"a.b", "13"}, {"empty", ""}, {"edge", "1234567890123456789012345678901"}};
    EXPECT_EQ(options.values, expected);
}

TEST(BoardFile, LeavesOutLinesThatCannotBeRead) {
    static constexpr std::string_view GOOD =
        "interface 1 a slot 1\ninterface 2 b slot 2 kind pon ability 2\ntrunk 7 lag members b\n"
        "vlan 10 20 v10\n";
    static constexpr std::string_view BAD =
        "role boss\npeer\npeer /x timeout\npeer /x timeout 0\nplane other\nplane linux\nbridge "
        "br0\njournal\nclosed\nbogus 1\nframe-mark 0\nframe-mark 0xfff\nframe-mark 0x1011fff\nspan\nspan "
        "vx*\nspan "
        "vx0\n"
        "span vx0 sixteen-letters-\n"
        "interface 3 c\ninterface x c slot 1\ninterface 0 c slot 1\ninterface 1 c slot 1\n"
        "interface 3 a slot 1\ninterface 3 c slot 1 kind moon\ninterface 3 c slot 1 more\n"
        "interface 4294967296 c slot 1\ntrunk 9 t members nobody\ntrunk 9 t members a a\n"
        "trunk 9 t members lag\ntrunk 9 t members b\ntrunk 1 t\ntrunk 9 lag\nvlan 0 20 v\nvlan 4096 20 "
        "v\nvlan 10 21 w\nvlan 11 20";
    forEachLine(BAD, [](uint32_t, std::string_view line) {
        Board board;
        readBoard(std::string(GOOD) + std::string(line), "test.conf", planeKinds(), board);
        EXPECT_EQ(board.rejected, 1u) << line;
        EXPECT_EQ(board.interfaces.size(), 4u) << line;
        EXPECT_EQ(board.interfaces.at(7).members, std::vector<uint32_t>{2}) << line;
        EXPECT_EQ(slotOf(board, board.interfaces.at(7)), 2u) << line;
        EXPECT_TRUE(board.span.empty()) << line;
        board.plane.destroy(board.plane.state);
    });
}

TEST(SimPlane, HoldsPonIsolationByTheCard) {
    Board board;
    readBoard("interface 1 a slot 1 kind pon\ninterface 2 b slot 2 kind pon\n", "test.conf", planeKinds(),
              board);
    const Plane& plane = board.plane;
    const auto asked = [&] {
        std::string reason;
        return boardForwards(board, board.interfaces.at(1), board.interfaces.at(2), 10, reason);
    };
    plane.setPon(plane.state, 10, false, {1});
    EXPECT_EQ(asked(), Forwarding::no);  // still on at the other card
    plane.setPon(plane.state, 10, false, {2});
    EXPECT_EQ(asked(), Forwarding::yes);
    plane.freshCard(plane.state, 2);
    EXPECT_EQ(asked(), Forwarding::no);
    plane.destroy(plane.state);
}

// An entry of a trunk blocks its members' traffic, in its direction alone.
TEST(SimPlane, HoldsTrunksByTheirMembers) {
    Board board;
    readBoard(
        "interface 1 a slot 1\ninterface 2 b slot 1\ninterface 3 c slot 1\ntrunk 7 l members a b\ntrunk 8 m "
        "members c\n",
        "test.conf", planeKinds(), board);
    const Plane& plane = board.plane;
    const auto asked = [&](uint32_t src, uint32_t dst) {
        std::string reason;
        return boardForwards(board, board.interfaces.at(src), board.interfaces.at(dst), 0, reason);
    };
    const auto port = [&](uint32_t number) { return planePort(board, board.interfaces.at(number)); };
    for (const auto& [src, dst] : {std::pair(7U, 8U), std::pair(7U, 3U), std::pair(1U, 8U)}) {
        plane.addOneWay(plane.state, port(src), port(dst), {});
        EXPECT_EQ(asked(7, 8), src == 1 ? Forwarding::partly : Forwarding::no) << src << dst;
        EXPECT_EQ(asked(8, 7), Forwarding::yes) << src << dst;
        plane.deleteOneWay(plane.state, src, dst);
    }
    plane.destroy(plane.state);
}

TEST(Faults, FireForTheirInterfaceUntilCleared) {
    ASSERT_EQ(addFaultRule({"daxIfSyncApi", true, 1, 0x77, 5, DAX_ISO_BI_ADD, 0}), "");
    AttrSetRecord record = {};
    record.attrId = DAX_ISO_BI_ADD;
    HardwareCall call = {"daxIfSyncApi", 5, DAX_IF_ISOLATE, {}};
    call.record = &record;
    HardwareCall other = call;
    other.key = 6;
    EXPECT_FALSE(faultFor(other));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(faultFor(call), 0x77);
    clearFaultRules();
    EXPECT_FALSE(faultFor(call));
}

namespace {

// A small operation table. A set is answered 0 when what arrives is what the test sends.
int32_t setGroup(void* index, uint32_t column, void* value) {
    if (index == nullptr || value == nullptr) return 22;
    const auto* key = static_cast<const uint32_t*>(index);
    const Words got = {key[0], key[1], key[2], column, *static_cast<const uint32_t*>(value)};
    return got == Words{7, 8, 9, 1, 2} ? 0 : 1;
}
int32_t getScalar(void*, uint32_t column, void* value) {
    if (value == nullptr) return 22;
    if (!portIsolateScalarIsBuffer(column)) {
        *static_cast<uint32_t*>(value) = column;
        return 0;
    }
    auto* buffer = static_cast<DataDesc*>(value);
    std::memset(buffer->data, 'v', buffer->length);
    buffer->length += 100;  // a handler that answers more than it was offered
    return 0;
}
int32_t nextGroup(void* current, void* result) {
    if (current == nullptr) return 22;
    std::memcpy(result, current, 12);
    ++static_cast<uint32_t*>(result)[0];
    return 0;
}
int32_t nextVlan(uint32_t current, void* result) {
    *static_cast<uint32_t*>(result) = current + 1;
    return current == 9 ? 7 : 0;
}

constexpr IcmFuncMapEntry OPERATIONS[] = {
    {0, {.access = nullptr}},
    {OP_SCALAR_GET, {.access = getScalar}},
    {OP_GROUP_SYNC, {.access = setGroup}},
    {OP_GROUP_SET, {.access = setGroup}},
    {OP_GROUP_GET_NEXT, {.next = nextGroup}},
    {OP_VLAN_GET_NEXT, {.nextNumber = nextVlan}},
    {OP_PAIR_SET, {.access = nullptr}},
};

int connectServer() {
    static const int32_t started =
        icmProcTcpInit("commands", COMMAND_SOCKET_PATH, OPERATIONS, std::size(OPERATIONS));
    EXPECT_EQ(started, 0);
    return connectLocalSocket(rootedPath(COMMAND_SOCKET_PATH), SOCK_STREAM, WAIT);
}

std::string framed(const Words& words) {
    return bytesOf({static_cast<uint32_t>(words.size() * WORD_SIZE)}) + bytesOf(words);
}

// The next `length` bytes, or what came before the connection ended or went quiet.
std::string receive(int fd, size_t length) {
    std::string text;
    pollfd input = {fd, POLLIN, 0};
    while (text.size() < length && poll(&input, 1, WAIT) == 1) {
        char chunk[4096];
        const ssize_t got = recv(fd, chunk, std::min(sizeof(chunk), length - text.size()), 0);
        if (got <= 0) break;
        text.append(chunk, static_cast<size_t>(got));
    }
    return text;
}

const std::string GET_SCALAR_6 = framed({OP_SCALAR_GET, 6, 0, 4});
const std::string SCALAR_6 = framed({0, 0, 4, 6});

}  // namespace

TEST(CommandServer, AnswersEachRequestByItsShape) {
    const auto status = [](int32_t code) { return Words{static_cast<uint32_t>(code), 0, 0}; };
    const struct {
        const char* what;
        Words body;
        Words reply;
    } cases[] = {
        {"set", {OP_GROUP_SET, 1, 12, 7, 8, 9, 4, 2}, status(0)},
        {"no index", {OP_GROUP_SET, 1, 0, 4, 2}, status(22)},
        {"get word", {OP_SCALAR_GET, 6, 0, 400}, {0, 0, 4, 6}},
        {"get nothing", {OP_SCALAR_GET, 6, 0, 0}, status(22)},
        {"get buffer", {OP_SCALAR_GET, SCALAR_VERSION, 0, 4}, {0, 0, 4, 0x76767676}},
        {"next", {OP_GROUP_GET_NEXT, 0, 12, 7, 8, 9, 0}, {0, 12, 8, 8, 9, 0}},
        {"next number", {OP_VLAN_GET_NEXT, 0, 4, 5, 99}, {0, 4, 6, 0}},
        {"next refused", {OP_VLAN_GET_NEXT, 0, 4, 9, 0}, status(7)},
        {"null handler", {OP_PAIR_SET, 0, 0, 0}, status(STATUS_NO_HANDLER)},
    };
    const int fd = connectServer();
    for (const auto& one : cases) {
        const std::string sent = framed(one.body);
        ASSERT_TRUE(sendAll(fd, sent.data(), sent.size(), WAIT));
        const std::string reply = framed(one.reply);
        EXPECT_EQ(receive(fd, reply.size()), reply) << one.what;
    }
    // The largest capacity is honoured as the largest value.
    const std::string greedy = framed({OP_SCALAR_GET, SCALAR_VERSION, 0, 0xFFFFFFFF});
    sendAll(fd, greedy.data(), greedy.size(), WAIT);
    EXPECT_EQ(receive(fd, 16 + COMMAND_VALUE_MAX).substr(12, 4), bytesOf({COMMAND_VALUE_MAX}));
    close(fd);
}

TEST(CommandServer, FramesAByteStreamHoweverItIsCut) {
    const std::string three = GET_SCALAR_6 + GET_SCALAR_6 + GET_SCALAR_6;
    for (size_t cut = 1; cut < three.size(); ++cut) {
        const int fd = connectServer();
        sendAll(fd, three.data(), cut, WAIT);
        receive(fd, cut / GET_SCALAR_6.size() * SCALAR_6.size());
        sendAll(fd, three.data() + cut, three.size() - cut, WAIT);
        shutdown(fd, SHUT_WR);
        const size_t left = 3 - cut / GET_SCALAR_6.size();
        ASSERT_EQ(receive(fd, 1000).size(), left * SCALAR_6.size()) << cut;
        close(fd);
    }
    for (const uint32_t length : {0u, COMMAND_WORDS_MIN - 1, COMMAND_FRAME_MAX + 1, 0xFFFFFFFFu}) {
        const int fd = connectServer();
        const std::string sent = GET_SCALAR_6 + bytesOf({length}) + GET_SCALAR_6;
        sendAll(fd, sent.data(), sent.size(), WAIT);
        EXPECT_EQ(receive(fd, 1000), SCALAR_6) << length;
        close(fd);
    }
}

TEST(LocalSocket, ReplacesOnlyWhatNobodyServes) {
    const std::string path = gRoot.path + "/tmp/s";
    const int first = listenLocalSocket(path);
    ASSERT_GE(first, 0);
    struct stat file = {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_uid, geteuid());
    EXPECT_EQ(file.st_mode & 0777, socketAccess().group == file.st_gid ? 0660u : 0600u);
    EXPECT_LT(listenLocalSocket(path), 0);  // the first one lives
    close(first);
    const int second = listenLocalSocket(path);
    EXPECT_GE(second, 0);
    close(second);
    const std::string plain = gRoot.path + "/tmp/file";
    std::ofstream(plain) << "kept";
    for (const std::string& bad : {plain, gRoot.path + "/none/s", gRoot.path + std::string(200, 'x')}) {
        EXPECT_LT(listenLocalSocket(bad), 0) << bad;
    }
    EXPECT_EQ(std::filesystem::file_size(plain), 4u);
}

TEST(SocketAccess, IsForTheOwnerAndWithTheGroupsForRootAndTheirMembers) {
    constexpr Access NONE = Access::none, READS = Access::reads, CHANGES = Access::changes;
    const struct {
        uid_t user;
        std::vector<gid_t> groups;
        Access withoutGroup, withGroup, withReaders;
    } cases[] = {{7, {}, CHANGES, CHANGES, CHANGES},
                 {0, {0}, NONE, CHANGES, CHANGES},
                 {8, {8}, NONE, NONE, NONE},
                 {8, {30}, NONE, CHANGES, CHANGES},
                 {8, {1, 2, 30}, NONE, CHANGES, CHANGES},
                 {30, {7}, NONE, NONE, NONE},
                 {8, {40}, NONE, NONE, READS},
                 {8, {1, 40, 2}, NONE, NONE, READS},
                 {8, {40, 30}, NONE, CHANGES, CHANGES},
                 {40, {8}, NONE, NONE, NONE}};
    for (const auto& one : cases) {
        EXPECT_EQ(accessOf({7, {}, {}}, one.user, one.groups), one.withoutGroup) << one.user;
        EXPECT_EQ(accessOf({7, 30, {}}, one.user, one.groups), one.withGroup) << one.user;
        EXPECT_EQ(accessOf({7, 30, 40}, one.user, one.groups), one.withReaders) << one.user;
    }
}

// Holders are a user each, in capitals when idle, behind a dash when they never spoke; the first is idle
// longest.
TEST(Admission, MakesPlaceForNewcomersWhereItCan) {
    constexpr ConnectionLimits LIMITS = {.all = 6, .perUser = 3, .forPrivileged = 2};
    const struct {
        const char* what;
        const char* holders;
        char newcomer;
        bool crowded;
        ptrdiff_t place;
    } cases[] = {
        {"room", "abc", 'a', false, PLACE_FREE},
        {"nobody there and no descriptor", "", 'a', true, PLACE_NONE},
        {"a user's bound", "aaa", 'a', false, PLACE_NONE},
        {"is not another's", "aaa", 'b', false, PLACE_FREE},
        {"own idle ones go, the longest idle first", "aAA", 'a', false, 1},
        {"but nobody else's", "aaaB", 'a', false, PLACE_NONE},
        {"never spoke", "aA-A", 'a', false, 2},
        {"kept for root", "abcd", 'e', false, PLACE_NONE},
        {"root has it", "abcd", '0', false, PLACE_FREE},
        {"root has no bound", "00000", '0', false, PLACE_FREE},
        {"but an end", "000000", '0', false, PLACE_NONE},
        {"of who has most", "ABbc", 'e', false, 1},
        {"no descriptor", "abC", 'a', true, 2},
    };
    for (const auto& one : cases) {
        std::vector<Holder> holders;
        bool spoke = true;
        for (const char* at = one.holders; *at != '\0'; ++at) {
            spoke = *at != '-';
            if (!spoke) ++at;
            const bool idle = std::isupper(static_cast<unsigned char>(*at)) != 0;
            const auto user =
                static_cast<uid_t>(*at == '0' ? 0 : std::tolower(static_cast<unsigned char>(*at)));
            holders.push_back({{1, user}, idle, spoke, static_cast<int64_t>(holders.size())});
        }
        const PeerProcess newcomer = {1, static_cast<uid_t>(one.newcomer == '0' ? 0 : one.newcomer)};
        EXPECT_EQ(placeFor(newcomer, holders, LIMITS, one.crowded), one.place) << one.what;
    }
}

TEST(PeerAnswers, ComeInPiecesOfAnySize) {
    const std::string answer = bytesOf({12, 0, 0, 0});
    const std::string answers = answer + answer + answer;
    for (size_t piece = 1; piece <= answers.size(); ++piece) {
        PeerLedger ledger;
        for (int i = 0; i < 3; ++i) enterSent(ledger, PeerRequest());
        for (size_t end = 0; end < answers.size();) {
            const std::string part = answers.substr(end, piece);
            EXPECT_TRUE(takeAnswers(ledger, part.data(), part.size()));
            end += part.size();
            EXPECT_EQ(unanswered(ledger), 3 - end / answer.size()) << piece;
        }
        EXPECT_FALSE(takeAnswers(ledger, answer.data(), answer.size()));
    }
}

TEST(SpreadMap, WalksEveryEntryOnce) {
    SpreadMap<uint32_t, uint32_t> map;
    std::set<uint32_t> keys;
    for (uint32_t key = 0; key < 1000; ++key) map[key] = 1;
    for (const auto& [key, value] : std::as_const(map)) keys.insert(key);
    EXPECT_EQ(keys.size(), 1000U);
    for (auto& [key, value] : map) EXPECT_EQ(keys.erase(key), value);
    EXPECT_TRUE(keys.empty());
}

TEST(ServiceManager, IsToldOnItsSocketWhereverThatIs) {
    const std::string path = gRoot.path + "/notify";
    for (const char first : {'/', '@'}) {
        const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un address = {AF_UNIX, {}};
        std::memcpy(address.sun_path, path.data(), path.size());
        if (first == '@') address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
        ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), size), 0);
        setenv("NOTIFY_SOCKET", (first + path.substr(1)).c_str(), 1);
        reportReady();
        EXPECT_EQ(receive(fd, 7), "READY=1") << first;
        close(fd);
    }
    unsetenv("NOTIFY_SOCKET");
}
