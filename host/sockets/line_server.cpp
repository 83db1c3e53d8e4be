#include "host/sockets/line_server.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include "common/files.h"
#include "common/local_socket.h"
#include "host/services/logging.h"
#include "host/sockets/socket_access.h"

namespace {

constexpr size_t LINE_MAX_BYTES = 16 * 1024;
constexpr uint32_t LINE_TIMEOUT = 10000;  // milliseconds
constexpr int CLIENTS_MAX = 64;
constexpr int CROWDED_WAIT = 20;  // milliseconds before the next attempt when no client can be taken

struct LineServer {
    std::string task;
    int listener;
    LineHandler handler;
    std::atomic<int> clients = 0;
};

// False when no whole line arrives in time. The end of what the client sends ends the line too.
bool readLine(int client, std::string& line) {
    const int64_t deadline = monotonicMs() + LINE_TIMEOUT;
    while (line.size() <= LINE_MAX_BYTES) {
        const int64_t left = deadline - monotonicMs();
        pollfd input = {client, POLLIN, 0};
        if (left <= 0 || poll(&input, 1, static_cast<int>(left)) == 0) return false;
        char chunk[1024];
        const ssize_t got = recv(client, chunk, sizeof(chunk), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (got <= 0) return got == 0 && !line.empty();
        line.append(chunk, static_cast<size_t>(got));
        const size_t end = line.find('\n');
        if (end == std::string::npos) continue;
        line.resize(end);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        return true;
    }
    return false;
}

void serveClient(LineServer* server, int client) {
    pthread_setname_np(pthread_self(), server->task.c_str());
    std::string line;
    if (readLine(client, line)) server->handler(client, line);
    close(client);
    --server->clients;
}

bool startClient(LineServer* server, int client) {
    ++server->clients;
    try {
        std::thread(serveClient, server, client).detach();
        return true;
    } catch (const std::system_error&) {
        --server->clients;
        return false;
    }
}

void serveLines(LineServer* server) {
    pthread_setname_np(pthread_self(), server->task.c_str());
    for (;;) {
        // While it is crowded, clients wait in the socket's own queue.
        const bool crowded = server->clients >= CLIENTS_MAX;
        pollfd input = {server->listener, POLLIN, 0};
        if (crowded) {
            poll(nullptr, 0, CROWDED_WAIT);
        } else {
            poll(&input, 1, -1);
        }
        if (crowded) continue;
        const int client = accept4(server->listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) poll(nullptr, 0, CROWDED_WAIT);
            continue;
        }
        if (!isAllowedPeer(client) || !startClient(server, client)) close(client);
    }
}

}  // namespace

int32_t startLineServer(const char* task, int listener, LineHandler handler) {
    // The server lives as long as the process.
    auto* server = new LineServer{task, listener, handler};
    try {
        std::thread(serveLines, server).detach();
        return 0;
    } catch (const std::system_error& problem) {
        hostReport("the daemon does not start: no task {}: {}", task, problem.what());
        return -1;
    }
}

bool answerClient(int client, const std::string& text) {
    return sendAll(client, text.data(), text.size(), ANSWER_TIMEOUT);
}
