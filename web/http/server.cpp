#include "web/http/server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <memory>

#include "common/files.h"
#include "web/http/exchange.h"

namespace {

constexpr size_t HEAD_MAX = 8192;  // bytes of a request
constexpr std::string_view HEAD_END = "\r\n\r\n";
constexpr int ACCEPTED_AT_ONCE = 64;
constexpr size_t EVENTS_MAX = 4096;      // that wait for the task
constexpr int KERNEL_BYTES = 128 << 10;  // that the kernel holds for one client
constexpr int64_t CHANGE_MS = 250;       // between two events `changed`
constexpr int POLL_MS = 250;
constexpr char BUSY[] =
    "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 1\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

enum class Phase : uint8_t { reading, waiting, writing, following };

struct Connection {
    uint64_t number = 0;
    int fd = -1;
    Phase phase = Phase::reading;
    std::string in{};    // received and not looked at
    std::string head{};  // the request that is waited for
    std::string out{};
    std::shared_ptr<const std::string> body{};  // behind `out`
    size_t sent = 0;                            // of both
    bool keeps = false;
    bool ended = false;             // to be closed
    int64_t progress = 0;           // the last time that something came or went
    int64_t began = 0;              // the phase
    std::set<std::string> kinds{};  // that it follows
};

struct Task {
    HttpServer& server;
    const React& react;
    std::list<Connection> connections{};
    uint64_t numbers = 0;
    std::vector<std::weak_ptr<const std::string>> bodies{};  // that were handed out
    int64_t heartbeat = 0, changeTold = 0;
    bool changed = false;
};

void enter(Connection& connection, Phase phase) {
    connection.phase = phase;
    connection.began = connection.progress = monotonicMs();
}

size_t left(const Connection& connection) {
    return connection.out.size() + (connection.body ? connection.body->size() : 0) - connection.sent;
}

// Sends what the client takes.
void sendSome(Connection& connection) {
    while (left(connection) != 0 && !connection.ended) {
        const bool head = connection.sent < connection.out.size();
        const std::string& bytes = head ? connection.out : *connection.body;
        const size_t at = connection.sent - (head ? 0 : connection.out.size());
        const ssize_t put = send(connection.fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (put <= 0) {
            connection.ended = true;
            return;
        }
        connection.sent += static_cast<size_t>(put);
        connection.progress = monotonicMs();
    }
    if (connection.phase == Phase::writing) {
        connection.ended = connection.ended || !connection.keeps;
        enter(connection, Phase::reading);
    }
    connection.out.clear();
    connection.body.reset();
    connection.sent = 0;
}

void answerWith(Task& task, Connection& connection, Written&& written) {
    connection.out = std::move(written.head);
    connection.body = std::move(written.body);
    connection.sent = 0;
    connection.keeps = written.keeps;
    enter(connection, Phase::writing);
    if (connection.body) task.bodies.emplace_back(connection.body);
    sendSome(connection);
}

void turnAway(Connection& connection) {
    connection.out = BUSY;
    connection.keeps = false;
    enter(connection, Phase::writing);
    sendSome(connection);
}

void follow(Task& task, Connection& connection, std::set<std::string>&& kinds) {
    if (task.server.counts.followers >= task.server.limits.followers) {
        return turnAway(connection);
    }
    ++task.server.counts.followers;
    connection.kinds = std::move(kinds);
    enter(connection, Phase::following);
    connection.out = streamHead();
    sendSome(connection);
}

// Looks at the requests that came whole, one after the other.
void look(Task& task, Connection& connection) {
    while (connection.phase == Phase::reading && !connection.ended) {
        const size_t end = connection.in.find(HEAD_END);
        const bool whole = end != std::string::npos && end + HEAD_END.size() <= HEAD_MAX;
        if (!whole && connection.in.size() < HEAD_MAX) return;
        ++task.server.counts.requests;
        // One that does not end is for the library to refuse.
        connection.head = connection.in.substr(0, whole ? end + HEAD_END.size() : HEAD_MAX);
        connection.in.erase(0, connection.head.size());
        Written written = runExchange(connection.head, task.react);
        written.keeps = written.keeps && whole;
        if (!written.pending) {
            answerWith(task, connection, std::move(written));
        } else if (!written.pending->kinds.empty()) {
            follow(task, connection, std::move(written.pending->kinds));
        } else {
            enter(connection, Phase::waiting);
            if (written.pending->later(connection.number)) return;
            turnAway(connection);
        }
    }
}

void receive(Task& task, Connection& connection) {
    char buffer[HEAD_MAX];
    const ssize_t got = recv(connection.fd, buffer, sizeof(buffer), 0);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
    if (got <= 0) {
        connection.ended = true;
        return;
    }
    if (connection.phase == Phase::following) return;
    if (connection.in.empty()) connection.began = monotonicMs();
    connection.progress = monotonicMs();
    connection.in.append(buffer, static_cast<size_t>(got));
    look(task, connection);
}

using Place = std::list<Connection>::iterator;

Place forget(Task& task, Place place) {
    if (place->phase == Phase::following) --task.server.counts.followers;
    close(place->fd);
    --task.server.counts.connections;
    return task.connections.erase(place);
}

// The one of a phase that has been idle longest; the end where there is none.
Place idlest(Task& task, Phase phase) {
    Place found = task.connections.end();
    for (Place place = task.connections.begin(); place != task.connections.end(); ++place) {
        const bool older = found == task.connections.end() || place->progress < found->progress;
        if (place->phase == phase && older) found = place;
    }
    return found;
}

// Makes room for one who comes: whoever asks or reads slowly goes before whoever waits.
void makeRoom(Task& task) {
    while (task.connections.size() >= task.server.limits.connections) {
        Place place = idlest(task, Phase::reading);
        const Place writing = idlest(task, Phase::writing);
        if (place == task.connections.end() ||
            (writing != task.connections.end() && writing->progress < place->progress)) {
            place = writing;
        }
        if (place == task.connections.end()) place = idlest(task, Phase::waiting);
        if (place == task.connections.end()) return;
        ++task.server.counts.evicted;
        forget(task, place);
    }
}

void accept(Task& task) {
    for (int count = 0; count < ACCEPTED_AT_ONCE; ++count) {
        const int fd = accept4(task.server.listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;
        makeRoom(task);
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &KERNEL_BYTES, sizeof(KERNEL_BYTES));
        ++task.server.counts.connections;
        Connection& connection = task.connections.emplace_back();
        connection.number = ++task.numbers;
        connection.fd = fd;
        enter(connection, Phase::reading);
        receive(task, connection);
    }
}

void tell(Task& task, const std::string& kind, const std::string& text) {
    for (Connection& connection : task.connections) {
        const bool wanted = kind.empty() || connection.kinds.contains(kind);
        if (connection.phase != Phase::following || connection.ended || !wanted) continue;
        if (left(connection) + text.size() > task.server.limits.followerBytes) {
            ++task.server.counts.cutOff;
            connection.ended = true;
            continue;
        }
        connection.out += text;
        sendSome(connection);
    }
}

std::string eventText(const std::string& kind, const std::string& json) {
    return "event: " + kind + "\ndata: " + json + "\n\n";
}

// Takes in what other tasks handed over.
void takeIn(Task& task) {
    std::vector<std::pair<std::vector<uint64_t>, Answer>> deliveries;
    std::vector<std::pair<std::string, std::string>> events;
    {
        std::lock_guard guard(task.server.lock);
        deliveries.swap(task.server.deliveries);
        events.swap(task.server.events);
        task.changed = task.changed || task.server.changed;
        task.server.changed = false;
    }
    for (const auto& [numbers, answer] : deliveries) {
        const std::set<uint64_t> wanted(numbers.begin(), numbers.end());
        for (Connection& connection : task.connections) {
            if (connection.phase != Phase::waiting || !wanted.contains(connection.number)) continue;
            answerWith(task, connection, runExchange(connection.head, answer));
            look(task, connection);
        }
    }
    for (const auto& [kind, json] : events) tell(task, kind, eventText(kind, json));
}

void tellRegularly(Task& task) {
    const int64_t now = monotonicMs();
    if (task.changed && now - task.changeTold >= CHANGE_MS) {
        task.changed = false;
        task.changeTold = now;
        tell(task, EVENT_CHANGED, eventText(EVENT_CHANGED, "{}"));
    }
    if (now - task.heartbeat < task.server.limits.heartbeatMs) return;
    task.heartbeat = now;
    tell(task, {}, ":\n\n");
}

// Closes what is over, took too long, or holds too much for too slow a reader.
void tidy(Task& task) {
    const HttpLimits& limits = task.server.limits;
    const int64_t now = monotonicMs();
    for (Place place = task.connections.begin(); place != task.connections.end();) {
        const int64_t age = now - place->began;
        const bool late =
            (place->phase == Phase::reading && age > (place->in.empty() ? limits.idleMs : limits.headMs)) ||
            (place->phase == Phase::writing && age > limits.writeMs);
        place = place->ended || late ? forget(task, place) : std::next(place);
    }
    size_t held = 0;
    std::erase_if(task.bodies, [](const auto& body) { return body.expired(); });
    std::set<const std::string*> counted;
    for (const auto& weak : task.bodies) {
        const auto body = weak.lock();
        if (body && counted.insert(body.get()).second) held += body->size();
    }
    if (held <= limits.heldBytes) return;
    const Place place = idlest(task, Phase::writing);
    if (place == task.connections.end()) return;
    ++task.server.counts.evicted;
    forget(task, place);
}

void hand(HttpServer& server) {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(server.wake, &one, sizeof(one));
}

int patience(const Task& task) {
    return task.changed ? static_cast<int>(CHANGE_MS / 4) : POLL_MS;
}

void round(Task& task) {
    std::vector<pollfd> polled = {{task.server.listener, POLLIN, 0}, {task.server.wake, POLLIN, 0}};
    for (const Connection& connection : task.connections) {
        const bool reads = connection.phase == Phase::reading || connection.phase == Phase::following;
        const bool writes = left(connection) != 0;
        polled.push_back(
            {connection.fd, static_cast<short>((reads ? POLLIN : 0) | (writes ? POLLOUT : 0)), 0});
    }
    if (poll(polled.data(), polled.size(), patience(task)) < 0) return;
    size_t position = 2;
    for (Connection& connection : task.connections) {
        const short happened = polled[position++].revents;
        if ((happened & POLLOUT) != 0) sendSome(connection);
        if ((happened & POLLIN) != 0) receive(task, connection);
        if ((happened & (POLLERR | POLLHUP)) != 0 && (happened & POLLIN) == 0) connection.ended = true;
        if (connection.phase == Phase::reading) look(task, connection);
    }
    uint64_t count = 0;
    if ((polled[1].revents & POLLIN) != 0 && read(task.server.wake, &count, sizeof(count)) > 0) takeIn(task);
    tellRegularly(task);
    tidy(task);
    if ((polled[0].revents & POLLIN) != 0) accept(task);
}

}  // namespace

bool openServer(HttpServer& server) {
    server.wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return server.wake >= 0;
}

void serve(HttpServer& server, const React& react) {
    Task task{.server = server, .react = react};
    while (!server.stopped) round(task);
    while (!task.connections.empty()) forget(task, task.connections.begin());
}

void stopServer(HttpServer& server) {
    server.stopped = true;
    hand(server);
}

void deliver(HttpServer& server, const std::vector<uint64_t>& connections, const Answer& answer) {
    {
        std::lock_guard guard(server.lock);
        server.deliveries.emplace_back(connections, answer);
    }
    hand(server);
}

void publish(HttpServer& server, const std::string& kind, const std::string& json) {
    if (server.counts.followers == 0) return;
    {
        std::lock_guard guard(server.lock);
        if (server.events.size() >= EVENTS_MAX) return;
        server.events.emplace_back(kind, json);
    }
    hand(server);
}

void publishChange(HttpServer& server) {
    {
        std::lock_guard guard(server.lock);
        server.changed = true;
    }
    hand(server);
}
