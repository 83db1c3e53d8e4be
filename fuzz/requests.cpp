// The byte stream of a client of the command socket, cut at random places, against the whole daemon on the
// demonstration board. Every whole frame gets one well-formed reply, up to the first that cannot be framed.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "common/bytes.h"
#include "common/files.h"
#include "common/local_socket.h"
#include "daemon/base/state.h"
#include "daemon/rules/lifecycle.h"
#include "daemon/rules/programming.h"
#include "daemon/start/options.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "fuzz/fuzz.h"
#include "host/board/this_board.h"
#include "host/sockets/command_request.h"
#include "host/start/planes.h"
#include "wire/framing.h"

namespace {

constexpr int PATIENCE = 20000;  // milliseconds

int32_t startOnce() {
    stopAtFailedExpectations();
    char root[] = "/tmp/fuzzXXXXXX";
    setenv(ROOT_VARIABLE, mkdtemp(root), 1);
    static const std::string path = root;
    std::atexit([] { std::filesystem::remove_all(path); });
    std::filesystem::create_directories(path + "/tmp");
    std::filesystem::create_directories(path + RUN_FOLDER);
    std::filesystem::create_directories(path + "/etc/portisolate");
    std::filesystem::copy(DEMO_BOARD, path + "/etc/portisolate/board.conf");
    loadBoard(planeKinds());
    return portIsolateOptInit();
}

template <typename Entry>
void dropRows(ListNode& list, void (*drop)(Entry*)) {
    while (auto* entry = listFirst<Entry>(&list)) drop(entry);
}

// An input begins with empty tables, so that it does the same whenever it is run. The reset leaves rows of
// interfaces that the board does not know: nothing that asks the hardware about them can take them away.
void clearTables() {
    silTakeSem(gPortIsoInfo.mutex, SIL_WAIT_FOREVER);
    dropRows<PortIsolateIfVlanGrpEntry>(gPortIsoInfo.ifVlanGrpList, [](auto* entry) {
        if (portIsolateIfVlanGrpEntryDel(entry) != 0) groupEntryDrop(entry);
    });
    portIsolateResetConfig();
    dropRows<PortIsolateIfGrpEntry>(gPortIsoInfo.ifGrpList, [](auto* entry) { groupEntryDrop(entry); });
    dropRows<PortIsolateIfPairEntry>(gPortIsoInfo.ifPairList, [](auto* entry) { pairEntryDrop(entry); });
    dropRows<PortIsolateIfInnerEntry>(gPortIsoInfo.ifInnerList, [](auto* entry) { pairEntryDrop(entry); });
    dropRows<PortIsolatePortEntry>(gPortIsoInfo.portList,
                                   [](auto* entry) { portIsolatePortEntryDel(entry); });
    silGiveSem(gPortIsoInfo.mutex);
}

size_t countFrames(const std::string& stream, bool areRequests) {
    size_t frames = 0;
    for (size_t at = 0; at + 4 <= stream.size(); ++frames) {
        const uint32_t length = wordAt(stream.data() + at);
        if (areRequests && (!isFrameLength(length) || stream.size() - at - 4 < length)) break;
        EXPECT_LE(length, stream.size() - at - 4) << "a reply is cut off";
        at += 4 + size_t{length};
    }
    return frames;
}

// Sends the stream in pieces while the replies are taken in, until the server closes.
std::string converse(int fd, const std::string& stream, std::minstd_rand random) {
    std::string replies;
    char chunk[65536];
    for (size_t sent = 0;;) {
        if (sent == stream.size()) shutdown(fd, SHUT_WR);
        pollfd polled = {fd, static_cast<short>(POLLIN | (sent < stream.size() ? POLLOUT : 0)), 0};
        // The fuzzer's own timer may interrupt the wait.
        EXPECT_NE(poll(&polled, 1, PATIENCE), 0) << "the server does not go on";
        if ((polled.revents & POLLOUT) != 0) {
            const size_t piece = std::min<size_t>(1 + random() % 64, stream.size() - sent);
            const ssize_t put = send(fd, stream.data() + sent, piece, MSG_NOSIGNAL | MSG_DONTWAIT);
            // A server that has closed takes no more; what it answered is still there to be read.
            sent = put > 0 ? sent + static_cast<size_t>(put) : stream.size();
        }
        const ssize_t got = recv(fd, chunk, sizeof(chunk), MSG_DONTWAIT);
        if (got > 0) replies.append(chunk, static_cast<size_t>(got));
        if (got == 0 || (got < 0 && errno != EAGAIN)) return replies;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const int32_t started = startOnce();
    EXPECT_EQ(started, 0);
    if (size == 0) return 0;
    clearTables();
    const std::string stream(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    const int fd = connectLocalSocket(rootedPath(COMMAND_SOCKET_PATH), SOCK_STREAM, PATIENCE);
    EXPECT_GE(fd, 0);
    const std::string replies = converse(fd, stream, std::minstd_rand(bytes[0] + 1u));
    EXPECT_EQ(countFrames(replies, false), countFrames(stream, true));
    close(fd);
    return 0;
}
