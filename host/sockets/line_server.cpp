#include "host/sockets/line_server.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <list>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "common/files.h"
#include "host/services/fault_report.h"
#include "host/services/logging.h"
#include "host/sockets/admission.h"

namespace {

constexpr size_t LINE_MAX_BYTES = 16 * 1024;
constexpr int64_t LINE_TIMEOUT = 10000;   // milliseconds
constexpr int64_t ANSWER_TIMEOUT = 5000;  // milliseconds that a client may leave a piece of its answer unread
constexpr int REFUSED_PAUSE = 20;         // milliseconds
constexpr char TOO_MANY[] = "error: too many connections: try again later\n";
constexpr char TOO_MANY_STREAMS[] = "error: too many streams are followed: end one of them\n";
constexpr char TOO_LATE[] = "error: no whole line came within 10 seconds\n";
constexpr char NO_MEANS[] = "error: the daemon has no memory, thread or descriptor left: try again later\n";

enum class Phase : uint8_t { reads, waits, works, answers, follows };

struct Connection {
    int fd = -1;
    PeerProcess process = {};
    Phase phase = Phase::reads;
    int64_t moved = 0;  // monotonic milliseconds when it came, or bytes did
    bool spoke = false;
    std::string line;               // the request
    std::string text;               // of the answer, what was not sent yet
    const char* refusal = nullptr;  // takes the place of the answer, and no memory
    std::optional<StreamKind> kind;
    std::shared_ptr<LineStream> stream;
    std::atomic<bool> done = false;  // the thread that carries it out has left it
    short happened = 0;              // what the last poll found at the client
};

struct LineServer {
    std::string task;
    Door door;
    LineHandler handler;
    int wake;  // an eventfd, for threads that are done
    std::list<Connection> connections = {};
};

// Takes what has arrived; false when the connection is at its end. The end of what the client sends ends the
// line.
bool readLine(Connection& connection) {
    char chunk[1024];
    const ssize_t got = recv(connection.fd, chunk, sizeof(chunk), MSG_DONTWAIT);
    if (got < 0) return errno == EAGAIN || errno == EINTR;
    std::string& line = connection.line;
    line.append(chunk, static_cast<size_t>(got));
    connection.spoke = true;
    const size_t end = line.find('\n');
    if (end == std::string::npos && got > 0) return line.size() <= LINE_MAX_BYTES;
    if (line.empty()) return false;
    line.resize(std::min(end, line.size()));
    if (!line.empty() && line.back() == '\r') line.pop_back();
    connection.phase = Phase::waits;
    return true;
}

// False when the client is gone.
bool sendText(Connection& connection) {
    std::string& text = connection.text;
    const ssize_t put = send(connection.fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (put < 0) return errno == EAGAIN || errno == EINTR;
    text.erase(0, static_cast<size_t>(put));
    connection.moved = monotonicMs();
    return true;
}

void carryOut(LineServer* server, Connection* connection) {
    pthread_setname_np(pthread_self(), server->task.c_str());
    const int wake = server->wake;
    try {
        LineAnswer answer = server->handler({connection->fd, connection->process, connection->line});
        connection->text = std::move(answer.text);
        connection->kind = answer.stream;
    } catch (const std::bad_alloc&) {
        connection->refusal = NO_MEANS;
    }
    connection->done = true;  // the connection is the server's again, and may be gone
    eventfd_write(wake, 1);
}

std::vector<Holder> holdersIn(const LineServer& server, Phase phase) {
    std::vector<Holder> holders;
    for (const Connection& one : server.connections) {
        if (one.phase == phase) holders.push_back({one.process, false, true, one.moved});
    }
    return holders;
}

// Those who wait have come before those behind them; a user who has too many at work lets others pass.
void startWorkers(LineServer& server) {
    for (Connection& one : server.connections) {
        if (one.phase != Phase::waits) continue;
        try {
            const std::vector<Holder> working = holdersIn(server, Phase::works);
            if (placeFor(one.process, working, WORKER_LIMITS, false) != PLACE_FREE) continue;
            one.phase = Phase::works;
            std::thread(carryOut, &server, &one).detach();
        } catch (const std::exception&) {  // no memory, or no thread
            one.phase = Phase::works;
            one.refusal = NO_MEANS;
            one.done = true;
            eventfd_write(server.wake, 1);
        }
    }
}

void takeAnswer(LineServer& server, Connection& connection) {
    connection.moved = monotonicMs();
    connection.phase = Phase::answers;
    if (!connection.kind || connection.refusal != nullptr) return;
    const std::vector<Holder> following = holdersIn(server, Phase::follows);
    if (placeFor(connection.process, following, STREAM_LIMITS, false) != PLACE_FREE) {
        connection.refusal = TOO_MANY_STREAMS;
        return;
    }
    connection.stream = openStream(*connection.kind);
    if (connection.stream == nullptr) connection.refusal = NO_MEANS;
    connection.phase = Phase::follows;
}

// False when the connection is done with.
bool advance(LineServer& server, Connection& connection) {
    if (connection.phase == Phase::works && connection.done) takeAnswer(server, connection);
    if (connection.phase != Phase::works && connection.refusal != nullptr) return false;
    switch (connection.phase) {
        case Phase::reads:
            return connection.happened == 0 || readLine(connection);
        case Phase::waits:
        case Phase::works:
            return true;
        case Phase::answers:
            return !connection.text.empty() && sendText(connection) && !connection.text.empty();
        case Phase::follows:
            // Nothing is expected of it but its end; one that closed its sending side goes on listening.
            if ((connection.happened & (POLLHUP | POLLERR)) != 0) return false;
            if (connection.text.empty()) {
                connection.text = takeLines(*connection.stream);
                connection.moved = monotonicMs();
            }
            return connection.text.empty() || sendText(connection);
    }
    return false;
}

// Milliseconds until its patience is at an end; less than 0 for one that is not hurried.
int64_t patience(const Connection& connection, int64_t now) {
    if (connection.phase == Phase::reads) return std::max<int64_t>(connection.moved + LINE_TIMEOUT - now, 0);
    // The text is of the thread that carries it out.
    if (connection.phase == Phase::works || connection.text.empty()) return -1;
    return std::max<int64_t>(connection.moved + ANSWER_TIMEOUT - now, 0);
}

void forget(LineServer& server, std::list<Connection>::iterator connection) {
    if (connection->stream != nullptr) closeStream(connection->stream);
    server.connections.erase(connection);
    server.door.openAgain = 0;
}

// Makes room for the newcomer where there is none; false when nobody can go.
bool hasPlace(LineServer& server, const Newcomer& newcomer) {
    const ConnectionLimits limits = withinDescriptors(LINE_LIMITS);
    if (!newcomer.crowded && server.connections.size() < limits.perUser) return true;
    std::vector<Holder> holders;
    for (const Connection& one : server.connections) {
        const bool idle = (one.phase == Phase::reads && isSilent(one.fd)) ||
                          (one.phase == Phase::answers && monotonicMs() - one.moved >= IDLE_AFTER);
        holders.push_back({one.process, idle, one.spoke, one.moved});
    }
    const ptrdiff_t place = placeFor(newcomer.process, holders, limits, newcomer.crowded);
    if (place < 0) return place == PLACE_FREE;
    const auto leaving = std::next(server.connections.begin(), place);
    turnAway(server.door, leaving->fd, leaving->phase == Phase::reads ? TOO_MANY : "");
    forget(server, leaving);
    return true;
}

void acceptClients(LineServer& server) {
    Newcomer newcomer = {};
    for (size_t taken = 0; taken < LINE_LIMITS.all && takeNewcomer(server.door, newcomer); ++taken) {
        try {
            if (hasPlace(server, newcomer)) {
                Connection& connection = server.connections.emplace_back();
                connection.fd = newcomer.fd;
                connection.process = newcomer.process;
                connection.moved = monotonicMs();
                continue;
            }
        } catch (const std::bad_alloc&) {  // as if there were no place
        }
        turnAway(server.door, newcomer.fd, TOO_MANY);
    }
}

// The door first, then the threads that are done, then each connection with its stream behind it.
void waitForWork(LineServer& server, std::vector<pollfd>& polled) {
    const int64_t now = monotonicMs();
    const int64_t closed = server.door.openAgain - now;
    int64_t wait = closed > 0 ? closed : -1;
    polled.clear();
    polled.push_back({closed > 0 ? -1 : server.door.listener, POLLIN, 0});
    polled.push_back({server.wake, POLLIN, 0});
    for (const Connection& one : server.connections) {
        const int64_t left = patience(one, now);
        if (left >= 0) wait = wait < 0 ? left : std::min(wait, left);
        const bool idle = one.phase == Phase::waits || one.phase == Phase::works;
        const bool sends = !idle && !one.text.empty();
        const int events = one.phase == Phase::reads ? POLLIN : sends ? POLLOUT : 0;
        polled.push_back({idle ? -1 : one.fd, static_cast<short>(events), 0});
        polled.push_back({one.phase == Phase::follows && !sends ? one.stream->fd : -1, POLLIN, 0});
    }
    if (poll(polled.data(), polled.size(), static_cast<int>(wait)) < 0) poll(nullptr, 0, REFUSED_PAUSE);
    size_t position = 2;
    for (Connection& one : server.connections) {
        one.happened = polled[position].revents;
        position += 2;
    }
}

void serveConnections(LineServer& server) {
    const int64_t now = monotonicMs();
    for (auto one = server.connections.begin(); one != server.connections.end();) {
        const auto connection = one++;
        bool stays = false;
        try {
            stays = advance(server, *connection);
        } catch (const std::bad_alloc&) {
            connection->refusal = NO_MEANS;
        }
        if (stays && patience(*connection, now) != 0) continue;
        if (stays && connection->phase == Phase::reads) connection->refusal = TOO_LATE;
        turnAway(server.door, connection->fd, connection->refusal != nullptr ? connection->refusal : "");
        forget(server, connection);
    }
}

void serveLines(LineServer* server) {
    pthread_setname_np(pthread_self(), server->task.c_str());
    prepareFaultStack();
    std::vector<pollfd> polled;
    polled.reserve(2 + 2 * LINE_LIMITS.all);
    for (;;) {
        waitForWork(*server, polled);
        eventfd_t count = 0;
        if (polled[1].revents != 0) eventfd_read(server->wake, &count);
        serveConnections(*server);
        startWorkers(*server);
        if (polled[0].revents != 0) acceptClients(*server);
    }
}

}  // namespace

int32_t startLineServer(const char* task, int listener, LineHandler handler) {
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) {
        hostReport("the daemon does not start: no descriptor for the task {}", task);
        return -1;
    }
    // The server lives as long as the process.
    auto* server = new LineServer{task, openDoor(listener), handler, wake};
    try {
        std::thread(serveLines, server).detach();
        return 0;
    } catch (const std::system_error& problem) {
        hostReport("the daemon does not start: no task {}: {}", task, problem.what());
        return -1;
    }
}
