// What one client waits for its answers while 400 others keep the command socket busy, each kind of crowd for
// a few seconds against the daemon as it is shipped, in a root of its own. The crowd is a thread of this
// process.
//
// usage: crowd_bench DAEMON
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;
using Words = std::vector<uint32_t>;

constexpr size_t CROWD = 400;
constexpr int AHEAD = 200;  // requests in one send
constexpr std::chrono::seconds LENGTH(3);
constexpr std::chrono::milliseconds PAUSE(1);  // between two questions
constexpr size_t STATUS_REPLY = 16;            // bytes
constexpr size_t ROW_REPLY = 28;               // bytes

enum class Way { ahead, one, deaf, churn, silent };

struct Kind {
    const char* name;
    Way way;
    std::string requests;
    size_t reply = STATUS_REPLY;  // bytes, to one request
};

struct Presser {
    int fd;
    size_t sent = 0;  // of the frames that it repeats
};

std::string request(uint32_t opcode, uint32_t column, const Words& index, const Words& value) {
    const auto bytes = [](const Words& words) {
        return static_cast<uint32_t>(words.size() * sizeof(uint32_t));
    };
    Words all = {16 + bytes(index) + bytes(value), opcode, column, bytes(index)};
    all.insert(all.end(), index.begin(), index.end());
    all.push_back(bytes(value));
    all.insert(all.end(), value.begin(), value.end());
    return {reinterpret_cast<const char*>(all.data()), all.size() * sizeof(uint32_t)};
}

std::string setRow(uint32_t opcode, uint32_t port, uint32_t rowStatus) {
    return request(opcode, GROUP_COLUMN_ROW_STATUS, {port, 5, 0}, {rowStatus});
}

int connectTo(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
    close(fd);
    return -1;
}

// One look at every client of the crowd; the bytes of replies that came.
size_t press(const Kind& kind, const std::string& path, const std::string& frames,
             std::vector<Presser>& crowd) {
    size_t received = 0;
    char buffer[65536];
    const int events = kind.way == Way::silent ? 0
                       : kind.way == Way::deaf ? POLLOUT
                       : kind.way == Way::one  ? POLLIN
                                               : POLLIN | POLLOUT;
    std::vector<pollfd> polled;
    for (const Presser& client : crowd) polled.push_back({client.fd, static_cast<short>(events), 0});
    poll(polled.data(), polled.size(), 50);
    for (size_t i = 0; i < crowd.size(); ++i) {
        Presser& client = crowd[i];
        const int happened = polled[i].revents;
        if (kind.way == Way::churn) {
            send(client.fd, kind.requests.data(), kind.requests.size(), MSG_NOSIGNAL);
            close(client.fd);
            client.fd = connectTo(path);
            continue;
        }
        const ssize_t got =
            (happened & POLLIN) != 0 ? recv(client.fd, buffer, sizeof(buffer), MSG_DONTWAIT) : 0;
        if (got > 0) received += static_cast<size_t>(got);
        const bool asks = kind.way == Way::one ? got > 0 : (happened & POLLOUT) != 0;
        if (!asks) continue;
        const ssize_t put = send(client.fd, frames.data() + client.sent, frames.size() - client.sent,
                                 MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put > 0) client.sent = (client.sent + static_cast<size_t>(put)) % frames.size();
    }
    return received;
}

void measure(const Kind& kind, const std::string& path) {
    std::string frames;
    for (int i = 0; i < (kind.way == Way::one ? 1 : AHEAD); ++i) frames += kind.requests;
    std::vector<Presser> crowd;
    while (crowd.size() < CROWD) crowd.push_back({connectTo(path)});
    std::atomic<bool> over = false;
    size_t received = 0;
    std::thread presser([&] {
        for (const Presser& client : crowd) {
            if (kind.way == Way::one) send(client.fd, frames.data(), frames.size(), MSG_NOSIGNAL);
        }
        while (!over) received += press(kind, path, frames, crowd);
    });
    const std::string question = request(OP_GROUP_GET_NEXT, 0, {0, 0, 7}, {});
    const int fd = connectTo(path);
    std::vector<double> waits;
    for (const auto end = Clock::now() + LENGTH; Clock::now() < end; std::this_thread::sleep_for(PAUSE)) {
        char answer[64];
        const auto start = Clock::now();
        if (send(fd, question.data(), question.size(), MSG_NOSIGNAL) < 0 ||
            recv(fd, answer, sizeof(answer), 0) <= 0) {
            std::fprintf(stderr, "crowd_bench: %s: no answer\n", kind.name);
            break;
        }
        waits.push_back(Milliseconds(Clock::now() - start).count());
    }
    over = true;
    presser.join();
    for (const Presser& client : crowd) close(client.fd);
    close(fd);
    if (waits.empty()) return;
    std::sort(waits.begin(), waits.end());
    std::printf("%-28s p50 %6.2f ms  p99 %6.2f ms  %9.0f requests/s\n", kind.name, waits[waits.size() / 2],
                waits[waits.size() * 99 / 100],
                static_cast<double>(received) / static_cast<double>(kind.reply) /
                    std::chrono::duration<double>(LENGTH).count());
}

// What a crowd has sent is carried out after it has gone, so each kind has a daemon of its own.
void measureFresh(const char* program, const Kind& kind) {
    char folder[] = "/tmp/crowd_bench.XXXXXX";
    const std::filesystem::path root = mkdtemp(folder);
    std::filesystem::create_directories(root / "tmp");
    const pid_t daemon = fork();
    if (daemon == 0) {
        setenv(ROOT_VARIABLE, root.c_str(), 1);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execl(program, program, static_cast<char*>(nullptr));
        std::_Exit(EXIT_FAILURE);
    }
    const std::string path = root.string() + COMMAND_SOCKET_PATH;
    int first = -1;
    for (int tries = 0; first < 0 && tries < 1000; ++tries) {
        std::this_thread::sleep_for(PAUSE);
        first = connectTo(path);
    }
    const std::string row = setRow(OP_GROUP_SET, 1, ROW_CREATE);  // for the question to find
    send(first, row.data(), row.size(), MSG_NOSIGNAL);
    measure(kind, path);
    close(first);
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    std::filesystem::remove_all(root);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return EXIT_FAILURE;
    const std::string next = request(OP_GROUP_GET_NEXT, 0, {0, 0, 7}, {});
    const std::string probe = setRow(OP_GROUP_SET, 1, ROW_PROBE);
    const Kind kinds[] = {
        {"get next, one at a time", Way::one, next, ROW_REPLY},
        {"get next, ahead", Way::ahead, next, ROW_REPLY},
        {"group sync, ahead", Way::ahead, setRow(OP_GROUP_SYNC, 1, ROW_PROBE)},
        {"group set, ahead", Way::ahead, probe},
        {"create and destroy, ahead", Way::ahead,
         setRow(OP_GROUP_SET, 2, ROW_CREATE) + setRow(OP_GROUP_SET, 2, ROW_DESTROY)},
        {"group set, no reply read", Way::deaf, probe},
        {"connect, ask, close", Way::churn, probe},
        {"nothing", Way::silent, probe},
    };
    for (const Kind& kind : kinds) measureFresh(arguments[1], kind);
    return EXIT_SUCCESS;
}
