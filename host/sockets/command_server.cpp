#include "host/sockets/command_server.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <list>
#include <system_error>
#include <thread>
#include <vector>

#include "common/bytes.h"
#include "common/files.h"
#include "host/services/fault_report.h"
#include "host/services/logging.h"
#include "host/services/readiness.h"
#include "host/sockets/listening.h"
#include "host/sockets/socket_access.h"
#include "wire/framing.h"
#include "wire/operations.h"

namespace {

constexpr size_t WORD = WORD_SIZE;
constexpr size_t READ_MAX = 32 * 1024;        // bytes taken from a client at once
constexpr size_t REPLIES_MAX = 64 * 1024;     // unsent bytes beyond which a client is not served
constexpr size_t IDLE_BUFFER_MAX = 4 * 1024;  // larger buffers go back when they are empty
constexpr size_t CLIENTS_MAX = 4096;
constexpr uint32_t REQUESTS_PER_TURN = 64;
constexpr uint32_t PEER_REQUESTS_PER_TURN = 8;  // between two requests of an ordinary client
constexpr uint32_t PEER_TURNS = 128;            // more than a socket can hold of them
constexpr size_t TASK_NAME_MAX = 15;            // characters
constexpr int REFUSED_PAUSE = 10;               // milliseconds
constexpr int ACCEPT_PAUSE = 50;  // milliseconds without accepting after the system had no descriptor left

std::atomic<bool> gPeerExpected = false;

struct Client {
    int fd;
    std::string input;
    size_t served = 0;  // bytes of `input` that are done with
    std::string replies;
    size_t sent = 0;     // bytes of `replies` that went out
    bool ended = false;  // nothing more will arrive
    bool deaf = false;   // reads no replies any more; what it sent is still carried out
    bool broken = false;
    bool isPeer = false;  // sends what a peer board mirrors
    bool isFresh = true;  // has sent no request yet: may turn out to be a peer
};

struct CommandServer {
    OperationTable table;
    std::string task;
    int listener;
    std::list<Client> clients = {};
    int64_t acceptAgain = 0;  // monotonic milliseconds
    bool peersKnown = false;
};

enum class NextFrame : uint8_t { none, whole, broken };

NextFrame nextFrame(const Client& client, uint32_t& length) {
    const size_t left = client.input.size() - client.served;
    if (left < WORD) return NextFrame::none;
    length = wordAt(client.input.data() + client.served);
    if (!isFrameLength(length)) return NextFrame::broken;
    return left - WORD >= length ? NextFrame::whole : NextFrame::none;
}

bool isHeldUp(const Client& client) {
    return client.replies.size() - client.sent >= REPLIES_MAX;
}

bool hasWork(const Client& client) {
    uint32_t length = 0;
    return !client.broken && !isHeldUp(client) && nextFrame(client, length) != NextFrame::none;
}

void forgetServed(Client& client) {
    client.input.erase(0, client.served);
    client.served = 0;
    if (client.input.empty() && client.input.capacity() > IDLE_BUFFER_MAX) std::string().swap(client.input);
}

void receive(Client& client) {
    char chunk[READ_MAX];
    const ssize_t got = recv(client.fd, chunk, sizeof(chunk), MSG_DONTWAIT);
    if (got > 0) {
        client.input.append(chunk, static_cast<size_t>(got));
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        client.ended = true;
    }
}

void forgetSent(Client& client) {
    client.replies.erase(0, client.sent);
    client.sent = 0;
}

void sendReplies(Client& client) {
    while (!client.deaf && client.sent < client.replies.size()) {
        const ssize_t put = send(client.fd, client.replies.data() + client.sent,
                                 client.replies.size() - client.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put >= 0) {
            client.sent += static_cast<size_t>(put);
        } else if (errno == EAGAIN) {
            return forgetSent(client);
        } else if (errno != EINTR) {
            client.deaf = true;
        }
    }
    client.replies.clear();
    client.sent = 0;
    if (client.replies.capacity() > IDLE_BUFFER_MAX) std::string().swap(client.replies);
}

// The client's next request, if all of it is there and it can be answered; null otherwise.
const uint8_t* nextRequest(Client& client, uint32_t& length) {
    if (client.broken || isHeldUp(client)) return nullptr;
    const NextFrame next = nextFrame(client, length);
    if (next == NextFrame::broken) client.broken = true;
    if (next != NextFrame::whole) return nullptr;
    return reinterpret_cast<const uint8_t*>(client.input.data()) + client.served + WORD;
}

// The first request shows whether the client is a peer.
void recognise(CommandServer& server, Client& client) {
    uint32_t length = 0;
    const uint8_t* request = client.isFresh ? nextRequest(client, length) : nullptr;
    if (request == nullptr) return;
    client.isFresh = false;
    client.isPeer = portIsolateOpIsSync(wordAt(request));
    server.peersKnown = server.peersKnown || client.isPeer;
}

// Carries out the client's next request; false when there is none that can be.
bool serveOne(CommandServer& server, Client& client) {
    recognise(server, client);
    uint32_t length = 0;
    const uint8_t* request = nextRequest(client, length);
    if (request == nullptr) return false;
    answerRequest(server.table, request, length, client.replies);
    client.served += WORD + length;
    return true;
}

// Whether there was anything to serve. A client that has not shown yet what it is may be a peer whose request
// lies behind those of others, so it is looked at, too.
bool servePeers(CommandServer& server) {
    bool any = false;
    for (Client& client : server.clients) {
        if (!client.isPeer && !client.isFresh) continue;
        if (!client.ended && !hasWork(client)) receive(client);
        recognise(server, client);
        if (!client.isPeer) continue;
        for (uint32_t served = 0; served < PEER_REQUESTS_PER_TURN && serveOne(server, client); ++served) {
            any = true;
        }
        forgetServed(client);
        sendReplies(client);
    }
    return any;
}

void serveClient(CommandServer& server, Client& client) {
    for (uint32_t served = 0; served < REQUESTS_PER_TURN && serveOne(server, client); ++served) {
        if (server.peersKnown && !client.isPeer) servePeers(server);
    }
    forgetServed(client);
    if (client.sent < client.replies.size()) sendReplies(client);
}

bool isDone(const Client& client) {
    if (client.broken) return client.replies.empty() || client.deaf;
    return client.ended && !hasWork(client) && client.replies.empty();
}

void acceptClients(CommandServer& server) {
    while (server.clients.size() < CLIENTS_MAX) {
        const int fd = accept4(server.listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0 && !isAllowedPeer(fd)) {
            close(fd);
            continue;
        }
        if (fd >= 0) {
            server.clients.push_back({});
            server.clients.back().fd = fd;
            continue;
        }
        if (errno == ECONNABORTED || errno == EINTR) continue;
        if (errno != EAGAIN) server.acceptAgain = monotonicMs() + ACCEPT_PAUSE;
        return;
    }
}

// What a peer board has handed over by now is carried out, for two reasons: the next request here finds what
// was set there, and while requests go to the peer its own must not wait at the door for a whole round.
// Bounded, so that a peer that never ends holds nobody up.
void welcomePeers(CommandServer& server) {
    acceptClients(server);
    for (uint32_t turn = 0; turn < PEER_TURNS && servePeers(server); ++turn) {
    }
}

// A client is read from only when all it sent before has been served.
short clientEvents(const Client& client) {
    int events = 0;
    if (!client.ended && !client.broken && !isHeldUp(client) && !hasWork(client)) events |= POLLIN;
    if (!client.deaf && client.sent < client.replies.size()) events |= POLLOUT;
    return static_cast<short>(events);
}

// Waits for something to do and leaves it in `polled`: the listener first, then the clients in their order.
void waitForWork(CommandServer& server, std::vector<pollfd>& polled) {
    const int64_t pause = server.acceptAgain - monotonicMs();
    bool work = false;
    polled.clear();
    const bool accepting = pause <= 0 && server.clients.size() < CLIENTS_MAX;
    polled.push_back({accepting ? server.listener : -1, POLLIN, 0});
    for (const Client& client : server.clients) {
        const short events = clientEvents(client);
        // A descriptor from which nothing is wanted is not polled: a hang-up would end every wait at once.
        polled.push_back({events != 0 ? client.fd : -1, events, 0});
        work = work || hasWork(client);
    }
    if (poll(polled.data(), polled.size(), work ? 0 : pause > 0 ? static_cast<int>(pause) : -1) >= 0) return;
    // The system refuses to wait for so many descriptors, or was interrupted: look at each after a moment.
    poll(nullptr, 0, REFUSED_PAUSE);
    for (pollfd& one : polled) one.revents = one.fd < 0 ? short{0} : one.events;
}

void serveRound(CommandServer& server, const std::vector<pollfd>& polled) {
    server.peersKnown = false;
    for (const Client& client : server.clients) server.peersKnown = server.peersKnown || client.isPeer;

    size_t position = 1;
    for (auto client = server.clients.begin(); position < polled.size(); ++position) {
        const int events = polled[position].revents;
        if ((events & POLLOUT) != 0 || ((events & (POLLHUP | POLLERR)) != 0 && !client->replies.empty())) {
            sendReplies(*client);
        }
        if ((polled[position].events & POLLIN) != 0 && events != 0) receive(*client);
        if (hasWork(*client)) {
            if (gPeerExpected) welcomePeers(server);
            serveClient(server, *client);
        }
        if (!isDone(*client)) {
            ++client;
            continue;
        }
        close(client->fd);
        client = server.clients.erase(client);
        server.acceptAgain = 0;
    }
}

void serveCommands(CommandServer* server) {
    pthread_setname_np(pthread_self(), server->task.c_str());
    prepareFaultStack();
    std::vector<pollfd> polled;
    for (;;) {
        // The client served first in a round has its next request ready first, so each gets that turn.
        if (!server->clients.empty()) {
            server->clients.splice(server->clients.end(), server->clients, server->clients.begin());
        }
        waitForWork(*server, polled);
        serveRound(*server, polled);
        if (polled[0].revents != 0) acceptClients(*server);
    }
}

}  // namespace

void expectPeer(bool expected) {
    gPeerExpected = expected;
}

int32_t icmProcTcpInit(const char* task, const char* path, const IcmFuncMapEntry* map, uint32_t count) {
    const int listener = listenLocalSocket(rootedPath(path));
    // The daemon does not look at the result, but without its command socket it is of no use to anybody.
    if (listener < 0) refuseStart();
    // The server lives as long as the process.
    auto* server = new CommandServer{
        .table = {.rows = map, .count = count},
        .task = std::string(task).substr(0, TASK_NAME_MAX),
        .listener = listener,
    };
    try {
        std::thread(serveCommands, server).detach();
    } catch (const std::system_error& problem) {
        hostReport("no task for the command socket: {}", problem.what());
        refuseStart();
    }
    reportReady();
    return 0;
}
