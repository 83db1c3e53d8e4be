// The library against servers that say what no daemon would.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "common/bytes.h"
#include "common/frames.h"
#include "common/local_socket.h"
#include "lib/interface/portisolate.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/status.h"

namespace {

constexpr int TIMEOUT = 20000;  // milliseconds

std::string bytesOf(const std::vector<uint32_t>& words) {
    std::string bytes;
    for (const uint32_t word : words) appendWord(bytes, word);
    return bytes;
}

struct Library : testing::Test {
    std::string root;
    portisolate_connection* connection = nullptr;
    std::vector<std::thread> servers;
    std::vector<int> listeners;

    void SetUp() override {
        char folder[] = "/tmp/portisolate-library-XXXXXX";
        root = mkdtemp(folder);
        std::filesystem::create_directories(root + "/tmp");
        std::filesystem::create_directories(root + RUN_FOLDER);
        connection = portisolate_new(root.c_str(), TIMEOUT);
    }
    void TearDown() override {
        portisolate_free(connection);
        for (const int listener : listeners)
            shutdown(listener, SHUT_RDWR);  // who waits in vain waits no more
        for (std::thread& server : servers) server.join();
        for (const int listener : listeners) close(listener);
        std::filesystem::remove_all(root);
    }

    // Answers the next client there, whatever it sends, and says no more; it closes when the client has.
    void serve(const std::string& path, const std::string& answer) {
        std::filesystem::remove(root + path);
        sockaddr_un address{};
        ASSERT_TRUE(fillLocalAddress(root + path, address));
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        ASSERT_EQ(listen(listener, 1), 0);
        listeners.push_back(listener);
        servers.emplace_back([listener, answer] {
            const int fd = accept(listener, nullptr, nullptr);
            if (fd < 0) return;
            sendAll(fd, answer.data(), answer.size(), TIMEOUT);
            shutdown(fd, SHUT_WR);
            char byte = 0;
            while (recv(fd, &byte, sizeof(byte), 0) > 0) {
            }
            close(fd);
        });
    }
};

TEST_F(Library, RepliesAreReadToTheirEndAndNoFurther) {
    const uint32_t rest = COMMAND_FRAME_MAX - 3 * WORD_SIZE;
    const struct {
        std::string frame;
        const char* reason;  // none: the reply is read
    } cases[] = {
        {bytesOf({UINT32_MAX}) + std::string(COMMAND_FRAME_MAX, '\0'), "the answer is malformed"},
        {bytesOf({COMMAND_FRAME_MAX + 1}) + std::string(COMMAND_FRAME_MAX + 1, '\0'),
         "the answer is malformed"},
        {bytesOf({0}), "the answer is malformed"},
        {"", "the connection was closed before the answer was whole"},
        {bytesOf({12, 0, 0}) + "abc", "the connection was closed before the answer was whole"},
        {bytesOf({COMMAND_FRAME_MAX, 0, 0, rest}) + std::string(rest, 'v') + "behind", ""},
    };
    for (const auto& [frame, reason] : cases) {
        serve(COMMAND_SOCKET_PATH, frame);
        int32_t status = -1;
        const int result =
            portisolate_request(connection, OP_SCALAR_GET, 1, nullptr, 0, nullptr, 0, 4, &status);
        EXPECT_EQ(result, *reason == '\0' ? PORTISOLATE_OK : PORTISOLATE_UNREACHABLE) << reason;
        if (*reason != '\0') {
            EXPECT_STREQ(portisolate_reason(connection), reason);
        }
        portisolate_disconnect(connection);
    }
}

TEST_F(Library, SpeaksToNoOtherMajorVersion) {
    const struct {
        const char* about;
        uint32_t major, minor;
    } cases[] = {{"ok\nversion=7.0.8\n", 1, 0},          {"ok\nprotocol=1.0 version=7\n", 1, 0},
                 {"ok\nversion=9 protocol=1.7\n", 1, 7}, {"error: no such verb: about\n", 1, 0},
                 {"ok\nversion=9 protocol=2.0\n", 2, 0}, {"ok\nprotocol=1\n", 0, 0}};
    for (const auto& [about, major, minor] : cases) {
        serve(COMMAND_SOCKET_PATH, "");
        serve(BOARD_SOCKET_PATH, about);
        uint32_t told[2] = {};
        const int result = portisolate_protocol(connection, &told[0], &told[1]);
        EXPECT_EQ(result, major == 1 ? PORTISOLATE_OK : PORTISOLATE_OTHER_VERSION) << about;
        EXPECT_TRUE(told[0] == major && told[1] == minor) << about << told[0];
        portisolate_disconnect(connection);
    }
    // Another major version is not asked anything, at whichever socket.
    serve(BOARD_SOCKET_PATH, "ok\nprotocol=2.0\n");
    portisolate_lines* lines = nullptr;
    EXPECT_EQ(portisolate_ask_board(connection, "unplug ge1/1", &lines), PORTISOLATE_OTHER_VERSION);
    EXPECT_NE(std::string(portisolate_error(connection)).find("version 2.0 of the protocol"),
              std::string::npos);
    EXPECT_EQ(lines, nullptr);
    portisolate_lines_free(lines);
    const char* text = nullptr;
    size_t size = 0;
    EXPECT_EQ(portisolate_print(connection, "portIsolateGrpShow", &text, &size), PORTISOLATE_OTHER_VERSION);
}

TEST_F(Library, WalksBelieveNoKey) {
    const std::vector<uint32_t> first = {3, 5, 2};
    const struct {
        std::vector<uint32_t> next;
        int result;
    } cases[] = {{{4, 5, 2}, PORTISOLATE_OK},     {{3, 5, 2}, PORTISOLATE_BROKEN},
                 {{2, 5, 2}, PORTISOLATE_BROKEN}, {{4, 6, 2}, PORTISOLATE_BROKEN},
                 {{4, 5}, PORTISOLATE_BROKEN},    {{4, 5, 2, 0}, PORTISOLATE_BROKEN}};
    for (const auto& [next, result] : cases) {
        portisolate_walk* walk = portisolate_walk_new(PORTISOLATE_GROUP, PORTISOLATE_MATCH_NUMBER, 5, 0);
        portisolate_row row{};
        std::string key = bytesOf(first);
        EXPECT_EQ(portisolate_walk_opcode(walk), OP_GROUP_GET_FIRST);
        EXPECT_EQ(portisolate_walk_take(walk, 0, key.data(), key.size(), &row), PORTISOLATE_OK);
        EXPECT_TRUE(row.number == 5 && row.member == 3 && row.vlan == 0);
        EXPECT_EQ(portisolate_walk_opcode(walk), OP_GROUP_GET_NEXT);
        key = bytesOf(next);
        EXPECT_EQ(portisolate_walk_take(walk, 0, key.data(), key.size(), &row), result) << next.size();
        EXPECT_EQ(portisolate_walk_take(walk, STATUS_NOT_FOUND, nullptr, 0, &row), PORTISOLATE_END);
        portisolate_walk_free(walk);
    }
    EXPECT_EQ(portisolate_walk_new(PORTISOLATE_GROUP, PORTISOLATE_MATCH_VLAN, 5, 1), nullptr);
}

}  // namespace
