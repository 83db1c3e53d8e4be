// Clients and senders that break every rule: the daemon answers or drops what they send, goes on serving
// everybody else, and keeps neither their descriptors nor a change that they had no right to.
#include <fcntl.h>
#include <grp.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <set>

#include "dice.h"
#include "e2e.h"
#include "platform/route_messages.h"

namespace {

// A question that only one client asks: the mask comes back as it was sent, its upper bits count for nothing.
std::string question(uint32_t mark) {
    return request(OP_GROUP_GET_NEXT, 0, {0, 0, mark << 8});
}

// Interface 1 is the first member of group 5.
std::string answer(uint32_t mark) {
    return reply(0, {1, 5, mark << 8});
}

struct Hostile : EndToEnd {
    int friendly = -1;  // a well-behaved client, connected before anybody else
    size_t before = 0;
    std::string state;

    void SetUp() override {
        EndToEnd::SetUp();
        start();
        ctlOutput("group add 5 ge1/1 ge1/2 lag1");
        friendly = command();
        ASSERT_TRUE(isServed());
        before = descriptors();
        state = tables();
    }
    void TearDown() override {
        boardAnswer("settle");
        EXPECT_TRUE(isServed());
        EXPECT_EQ(tables(), state);
        // Descriptors go back behind their clients' backs: every look waits for the daemon's tasks.
        for (int looks = 0; looks < 10000 && descriptors() > before; ++looks) boardAnswer("settle");
        EXPECT_EQ(descriptors(), before);
        close(friendly);
        EndToEnd::TearDown();
    }

    int command() const { return connectTo(COMMAND_SOCKET_PATH); }
    bool isServed() const { return converse(friendly, question(7), answer(7)); }
    void publish(const std::string& bytes) const {
        const int route = connectTo(ROUTE_SOCKET_PATH, SOCK_DGRAM);
        EXPECT_EQ(send(route, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        close(route);
    }
    std::string tables() { return ctlOutput("group list") + ctlOutput("show inner") + boardAnswer("matrix"); }
};

TEST_F(Hostile, SlowReadersAndDroppedConnectionsHoldUpNoPipeline) {
    std::string frames, replies;
    for (uint32_t turn = 0; turn < 10000; ++turn) {
        frames += question(turn);
        replies += answer(turn);
    }
    const int fd = command();
    const int deaf = command();
    const int follower = connectTo(BOARD_SOCKET_PATH);
    EXPECT_TRUE(converse(follower, "monitor\n", "ok\n"));
    // It does not read, so a moment comes when the daemon takes no more from it. Once it does, all is
    // answered.
    size_t taken = 0;
    for (pollfd room = {deaf, POLLOUT, 0}; taken < 1 << 23 && poll(&room, 1, 300) == 1;) {
        const std::string_view rest = std::string_view(frames).substr(taken % frames.size());
        const ssize_t sent = send(deaf, rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        taken += static_cast<size_t>(std::max<ssize_t>(sent, 0));
        EXPECT_TRUE(isServed());
    }
    EXPECT_LT(taken, 1U << 23);
    const size_t answered = taken / question(0).size() * answer(0).size();
    EXPECT_EQ(receive(deaf, answered).size(), answered);
    EXPECT_TRUE(converse(fd, frames, replies));
    for (size_t turn = 0; turn < 1000; ++turn) {
        const int dropped = command();
        EXPECT_TRUE(converse(dropped, std::string_view(frames).substr(0, turn)));
        close(dropped);
    }
    // Who follows all that and reads too late is told how much was dropped.
    std::string followed;
    while (followed.size() < 1u << 20 && followed.find("dropped count=") == std::string::npos) {
        followed += receive(follower, 4096);
    }
    EXPECT_LT(followed.size(), 1u << 20);
    for (const int one : {follower, deaf, fd}) close(one);
}

// Whoever sends what, the next one's question is answered before all of theirs are.
TEST_F(Hostile, AFloodOfAnyRequestsIsServedInTurns) {
    constexpr size_t CLIENTS = SANITIZED ? 40 : 200;
    constexpr int TURNS = 21;
    for (const uint32_t opcode : {OP_GROUP_SYNC, OP_GROUP_SET}) {
        std::string frames;
        for (int turn = 0; turn < 100; ++turn) {
            frames += request(opcode, GROUP_COLUMN_ROW_STATUS, {1, 5, 0}, {ROW_PROBE});
        }
        int clients[CLIENTS];
        for (int& client : clients) client = command();
        std::vector<int64_t> waits;
        for (int turn = 0; turn < TURNS; ++turn) {
            for (const int client : clients) {
                char replies[65536];
                while (recv(client, replies, sizeof(replies), MSG_DONTWAIT) > 0) continue;
                while (send(client, frames.data(), frames.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) continue;
            }
            const auto start = std::chrono::steady_clock::now();
            EXPECT_TRUE(isServed());
            waits.push_back((std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(1));
        }
        std::sort(waits.begin(), waits.end());
        EXPECT_LT(waits[TURNS / 2], 60) << "opcode " << opcode;
        for (const int client : clients) close(client);
    }
}

// Under a limit of descriptors that leaves room for a few, many that say nothing come to each door.
TEST_F(Hostile, NobodyKeepsOthersOut) {
    const auto tasks = [this] {
        const std::filesystem::directory_iterator all("/proc/" + std::to_string(daemon) + "/task");
        return std::distance(begin(all), end(all));
    };
    const auto threads = tasks();
    limitTo(RLIMIT_NOFILE, 96);
    std::vector<int> silent;
    for (const char* path : {COMMAND_SOCKET_PATH, SHELL_SOCKET_PATH, BOARD_SOCKET_PATH}) {
        for (int client = 0; client < 200; ++client) silent.push_back(connectTo(path));
        // Each has been looked at before the next one with a question is.
        ctlOutput("group list");
        ctlOutput("board list");
        ctlOutput("show groups");
    }
    EXPECT_LT(tasks(), threads + 20) << "who says nothing has a thread";
    EXPECT_EQ(receive(silent[0], 100), reply(STATUS_TOO_MANY_CLIENTS));
    EXPECT_EQ(receive(silent[200], 100).substr(0, 27), "error: too many connections");
    for (const int client : silent) close(client);
    close(friendly);  // it may have had to go
    friendly = command();

    // Who follows a stream is not idle: where nobody can go, the next one is told.
    limitTo(RLIMIT_NOFILE, 1024);
    for (size_t looks = 0; looks < 10000 && descriptors() > before; ++looks) boardAnswer("settle");
    std::vector<int> streams(3);
    limitTo(RLIMIT_NOFILE, before + 2 * streams.size());
    for (int& one : streams) {
        EXPECT_TRUE(converse(one = connectTo(BOARD_SOCKET_PATH), "monitor\n", "ok\n"));
    }
    EXPECT_NE(ctl("board list").err.find("too many connections"), std::string::npos);
    limitTo(RLIMIT_NOFILE, 1024);
    while (streams.size() < 60) {
        streams.push_back(connectTo(BOARD_SOCKET_PATH));
        EXPECT_TRUE(
            converse(streams.back(), "monitor\n", streams.size() <= 24 ? "ok\n" : "error: too many streams"));
        ctlOutput("board list");
    }
    EXPECT_LT(tasks(), threads + 20) << "who follows a stream has a thread";
    for (const int stream : streams) close(stream);
}

// Each costs its own connection, and nobody else's.
TEST_F(Hostile, WithoutMemoryTheClientGoesAndTheDaemonStays) {
    if (SANITIZED) GTEST_SKIP() << "a sanitizer needs address space of its own";
    const rlim_t pages = std::stoul(readText("/proc/" + std::to_string(daemon) + "/statm"));
    const rlim_t all = limitTo(RLIMIT_AS, pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)));
    const std::string half = bytesOf({COMMAND_FRAME_MAX}) + std::string(COMMAND_FRAME_MAX - 100, 'x');
    std::vector<int> clients(400);
    size_t gone = 0;
    for (int& client : clients) {
        client = command();
        EXPECT_TRUE(converse(client, half));
        char byte = 0;
        askLine(BOARD_SOCKET_PATH, "list");
        if (recv(client, &byte, 1, MSG_DONTWAIT) == 0 || errno != EAGAIN) ++gone;
    }
    EXPECT_GT(gone, 0u) << "the memory was not scarce";
    for (const int client : clients) close(client);
    limitTo(RLIMIT_AS, all);
    close(friendly);
    friendly = command();
}

TEST_F(Hostile, NonsenseIsAnsweredLineByLine) {
    const std::string endless(100000, 'x');
    std::vector<int> silent;
    for (const char* path : {BOARD_SOCKET_PATH, SHELL_SOCKET_PATH}) {
        EXPECT_TRUE(converse(silent.emplace_back(connectTo(path)), "half a li"));
        const int talker = connectTo(path);
        while (send(talker, endless.data(), endless.size(), MSG_NOSIGNAL) > 0) continue;
        EXPECT_EQ(receive(talker, 1), "");
        const std::string nonsense =
            " |nonsense|portIsolateInit|portIsolateEvtShow|portIsolate\x01Show|forward|forward 1 1|forward 1 "
            "2 4096|"
            "unplug nobody|publish raw 1 abc|fault no call 1|join ge1/1 lag1|leave lag2 ge1/3|card-pull 99";
        for (const std::string& line : split(nonsense, '|')) {
            EXPECT_TRUE(askLine(path, line).starts_with("error: ")) << path << ": " << line;
        }
        close(talker);
    }
    const int slow = connectTo(BOARD_SOCKET_PATH);
    for (const char letter : std::string("role\n")) {
        int unread = 0;
        ASSERT_EQ(send(slow, &letter, 1, MSG_NOSIGNAL), 1);
        EXPECT_TRUE(eventually([&] { return ioctl(slow, SIOCOUTQ, &unread) == 0 && unread == 0; }));
    }
    EXPECT_EQ(receive(slow, 100), "ok\nsingle\n");
    close(slow);
    for (const int client : silent) {
        EXPECT_EQ(receive(client, 100), "error: no whole line came within 10 seconds\n");
        close(client);
    }
}

// A datagram for an event group: one message of this type that says it is `length` bytes long.
std::string datagram(uint32_t group, uint16_t type, uint32_t length, const Words& payload = {}) {
    Words words = {group, length, 0, 0, 0, 0, 0};
    std::memcpy(&words[2], &type, sizeof(type));
    return bytesOf(words) + bytesOf(payload);
}

TEST_F(Hostile, RubbishChangesNothing) {
    for (size_t size = 0; size < 4; ++size) publish(std::string(size, '\x01'));
    const Words notJoined = {0, 2, 41, 0x80000001};
    for (const uint32_t group : notJoined) publish(datagram(group, DAX_RTM_RESET, 24));
    everySeed(20, [this] {
        for (int turn = 0; turn < 50; ++turn) {
            std::string bytes = bytesOf({DAX_RTGRP_LINK});
            for (size_t left = roll(4000); left > 0; --left) bytes += static_cast<char>(roll(256));
            publish(bytes);
        }
    });
}

TEST_F(Hostile, AFloodHoldsUpNoRequestAndLosesNoEvent) {
    // Nothing is known of interface 4711, so each of these takes its whole way and changes nothing.
    const std::string message = datagram(DAX_RTGRP_LINK, DAX_RTM_DELLINK, 48, {0, 4711, 0, 0, 0, 0});
    std::string flood = message;
    for (int repeat = 0; repeat < 50; ++repeat) flood += message.substr(sizeof(uint32_t));
    for (int turn = 0; turn < 1000; ++turn) {
        publish(flood);
        EXPECT_TRUE(turn % 100 != 0 || isServed());
    }
    ctlOutput("board unplug ge1/2");
    EXPECT_EQ(ctlOutput("group list").find("ge1/2"), std::string::npos);
    ctlOutput("board plug ge1/2");
    ctlOutput("group add 5 ge1/2");
}

TEST_F(Hostile, RequestsEventsAndPrintoutsAtOnceAreAllAnswered) {
    const Texts calls = split(
        "group add 6 pon2/1 pon2/2|group del 6|board publish mode-refresh|board unplug pon2/2|board plug "
        "pon2/2|"
        "show inner|show groups|matrix|group list",
        '|');
    for (int turn = 0; turn < 4; ++turn) {
        std::vector<pid_t> running;
        for (const std::string& call : calls) {
            running.push_back(startCtl(call, std::to_string(running.size())));
        }
        for (size_t program = 0; program < running.size(); ++program) {
            const Outcome outcome = outcomeOf(running[program], std::to_string(program));
            // Their order is anybody's guess, so some are refused; all are answered.
            EXPECT_TRUE(outcome.status == 0 || outcome.status == 1) << calls[program] << outcome.err;
        }
    }
    ctl("board plug pon2/2");
    ctlOutput("group del 6");
}

}  // namespace

// Anybody may be the first to make a socket of that name in /tmp.
TEST_F(EndToEnd, AServerOfAnotherUserIsNotBelieved) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can serve as another user";
    constexpr uid_t OTHER = 65534;
    const int listener = listenAt(COMMAND_SOCKET_PATH);
    ASSERT_EQ(seteuid(OTHER), 0);
    EXPECT_EQ(listen(listener, 8), 0);
    ASSERT_EQ(seteuid(0), 0);
    const Outcome refused = ctl("group list");
    EXPECT_EQ(refused.status, 3);
    EXPECT_NE(refused.err.find("served by user 65534"), std::string::npos) << refused.err;
    // The daemon's user is the one whose folder its other sockets are in.
    std::filesystem::create_directories(root + RUN_FOLDER);
    ASSERT_EQ(chown((root + RUN_FOLDER).c_str(), OTHER, OTHER), 0);
    EXPECT_NE(ctl("--timeout 0.1 group list").err.find("no answer in time"), std::string::npos);
    close(listener);
}

// By the groups of the machine as the daemon finds them, and by a user of no other group.
TEST_F(EndToEnd, WhoMayReadChangesNothing) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    constexpr gid_t CHANGES = 4001, READS = 4002, STRANGER = 4003;
    const int machine = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    if (unshare(CLONE_NEWNS) != 0) GTEST_SKIP() << "no mount namespace: " << std::strerror(errno);
    std::ofstream(root + "/group") << "portisolate:x:4001:\nportisolate-read:x:4002:\n";
    ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount((root + "/group").c_str(), "/etc/group", nullptr, MS_BIND, nullptr), 0);
    start();
    ASSERT_EQ(setns(machine, CLONE_NEWNS), 0);
    close(machine);
    chmod(root.c_str(), 0755);
    const auto as = [](gid_t group) {
        EXPECT_EQ(setgroups(1, &group) + setegid(STRANGER) + seteuid(STRANGER), 0);
    };
    const auto asRoot = [] { EXPECT_EQ(seteuid(0) + setegid(0) + setgroups(0, nullptr), 0); };
    for (const char* path : {COMMAND_SOCKET_PATH, SHELL_SOCKET_PATH, BOARD_SOCKET_PATH}) {
        as(STRANGER);
        EXPECT_LT(connectTo(path), 0) << path;
        asRoot();
    }
    as(READS);
    EXPECT_LT(connectTo(ROUTE_SOCKET_PATH, SOCK_DGRAM), 0);
    const int fd = connectTo(COMMAND_SOCKET_PATH);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(converse(fd, request(OP_GROUP_SET, 1, {1, 5, 0}, {ROW_CREATE}), reply(STATUS_READ_ONLY)));
    close(fd);
    EXPECT_NE(askLine(SHELL_SOCKET_PATH, "portIsolateGlobalShow").find("maxPortNum"), std::string::npos);
    EXPECT_TRUE(askLine(BOARD_SOCKET_PATH, "plane spanning none").starts_with("error: this user may read"));
    const std::set<std::string> read = {"list", "about", "forward", "matrix",  "hardware",
                                        "help", "role",  "peer",    "journal", "monitor"};
    for (const std::string& line : split(boardAnswer("help"), '\n')) {
        const std::string verb = line.substr(0, line.find(' '));
        const std::string bare = read.contains(verb) ? "" : askLine(BOARD_SOCKET_PATH, verb);
        const bool wordsToo =
            std::set<std::string>{"forward", "matrix", "hardware", "journal", "monitor"}.contains(verb);
        for (const std::string& answer : {bare, wordsToo ? "" : askLine(BOARD_SOCKET_PATH, verb + " x")}) {
            EXPECT_TRUE(answer.empty() || answer.starts_with("error: this user may read")) << verb << answer;
        }
    }
    for (const char* line : {"list", "about", "matrix 10", "hardware", "hardware vlans", "role", "peer",
                             "plane show", "plane spanning", "fault list"}) {
        boardAnswer(line);
    }
    asRoot();
    as(CHANGES);
    EXPECT_EQ(boardAnswer("role single"), "");
    asRoot();
    // Where somebody widened the mode a stranger's connection is closed without an answer.
    chmod((root + COMMAND_SOCKET_PATH).c_str(), 0666);
    as(STRANGER);
    const int stranger = connectTo(COMMAND_SOCKET_PATH);
    asRoot();
    ASSERT_GE(stranger, 0);
    EXPECT_EQ(receive(stranger, 1), "");
    close(stranger);
}
