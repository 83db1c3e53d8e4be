#include "host/sockets/command_server.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "common/bytes.h"
#include "common/files.h"
#include "host/services/fault_report.h"
#include "host/services/logging.h"
#include "host/services/readiness.h"
#include "host/sockets/admission.h"
#include "host/sockets/command_client.h"
#include "host/sockets/command_request.h"
#include "host/sockets/listening.h"
#include "host/sockets/request_report.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/status.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t REQUESTS_PER_TURN = 64;
// The time that the turns of a round are meant to take together, and what the peer's requests may take
// besides. A turn ends with the request in which its share of the round is used up.
constexpr std::chrono::microseconds ROUND_TIME(4000);
constexpr std::chrono::microseconds PEER_ROUND_TIME(8000);
constexpr uint32_t PEER_REQUESTS_PER_TURN = 8;  // between two requests of others
constexpr uint32_t PEER_REQUESTS_LEAST = 2;     // the same, once the time is up
constexpr uint32_t ACCEPTS_PER_ROUND = 64;
constexpr int IDLE_LOOKS = 8;         // at how many who may have to go, before a newcomer is told to
constexpr size_t TASK_NAME_MAX = 15;  // characters
constexpr int REFUSED_PAUSE = 10;     // milliseconds

std::mutex gLock;       // guards gPeerRoot
std::string gPeerRoot;  // empty: none may connect
std::atomic<uint32_t> gClients = 0;
std::atomic<const OperationTable*> gTable = nullptr;  // for ever, once it is served

struct CommandServer {
    OperationTable table;
    std::string task;
    Door door;
    std::string tooMany;  // the reply to who has no place
    std::list<CommandClient> clients = {};
    CommandClient* peer = nullptr;          // the link of the peer board, while it is there
    uint32_t accepts = 0;                   // left in this round
    Clock::duration peerTime = {};          // left in this round
    Clock::duration turnTime = ROUND_TIME;  // of each client in this round
};

bool peerExpected() {
    std::lock_guard guard(gLock);
    return !gPeerRoot.empty();
}

// The daemon of the peer board tells who it is in a file that only its own user can write.
bool isPeerBoard(const PeerProcess& process) {
    std::lock_guard guard(gLock);
    std::string text;
    std::string problem;
    uint32_t number = 0;
    return !gPeerRoot.empty() && readRegularFile(gPeerRoot + PID_FILE, text, problem) &&
           parseNumber(text.substr(0, text.find('\n')), number) &&
           static_cast<pid_t>(number) == process.process;
}

// Carries out the client's next request; false when there is none that can be.
bool serveOne(CommandServer& server, CommandClient& client) {
    uint32_t length = 0;
    const uint8_t* request = nextRequest(client, length);
    if (request == nullptr) return false;
    const bool mayChange = client.process.mayChange;
    reportRequest(client, request, length,
                  answerRequest(server.table, request, length, mayChange, client.replies));
    client.served += WORD_SIZE + length;
    return true;
}

// A client whose memory cannot be had is given up; what it was served stays done.
template <typename Work>
void atItsOwnCost(CommandClient& client, Work&& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        client.broken = client.deaf = client.ended = true;
    }
}

bool hasPeerTime(const CommandServer& server) {
    return server.peerTime > Clock::duration::zero();
}

// Whether there was anything to serve. Even a peer that has had its time is served more than is sent to it:
// two boards that each wait for the other to take a request would both wait in vain.
bool servePeer(CommandServer& server) {
    if (server.peer == nullptr) return false;
    const auto start = Clock::now();
    CommandClient& peer = *server.peer;
    const uint32_t most = hasPeerTime(server) ? PEER_REQUESTS_PER_TURN : PEER_REQUESTS_LEAST;
    bool any = false;
    atItsOwnCost(peer, [&] {
        if (!peer.ended && !hasWork(peer)) receiveRequests(peer);
        for (uint32_t served = 0; served < most && serveOne(server, peer); ++served) any = true;
        forgetServed(peer);
        sendReplies(peer);
    });
    server.peerTime -= Clock::now() - start;
    return any;
}

void serveClient(CommandServer& server, CommandClient& client) {
    const auto end = Clock::now() + server.turnTime;
    for (uint32_t served = 0; served < REQUESTS_PER_TURN && serveOne(server, client); ++served) {
        if (&client != server.peer) servePeer(server);
        if (Clock::now() >= end) break;
    }
    forgetServed(client);
    if (client.sent < client.replies.size()) sendReplies(client);
}

void forgetClient(CommandServer& server, std::list<CommandClient>::iterator client) {
    if (server.peer == &*client) server.peer = nullptr;
    server.clients.erase(client);
    --gClients;
    server.door.openAgain = 0;
}

std::vector<Holder> holdersOf(const CommandServer& server) {
    std::vector<Holder> holders;
    const int64_t now = monotonicMs();
    for (const CommandClient& client : server.clients) {
        const bool idle =
            !client.isPeer && !hasWork(client) && (!client.spoke || now - client.moved >= IDLE_AFTER);
        holders.push_back({client.process, idle, client.spoke, client.moved});
    }
    return holders;
}

// Makes room for the newcomer where there is none; false when nobody can go.
bool hasPlace(CommandServer& server, const Newcomer& newcomer) {
    const ConnectionLimits limits = withinDescriptors(COMMAND_LIMITS);
    if (!newcomer.crowded && server.clients.size() < limits.perUser) return true;
    std::vector<Holder> holders = holdersOf(server);
    for (int looks = 0; looks < IDLE_LOOKS; ++looks) {
        const ptrdiff_t place = placeFor(newcomer.process, holders, limits, newcomer.crowded);
        if (place == PLACE_FREE) return true;
        if (place == PLACE_NONE) return false;
        const auto leaving = std::next(server.clients.begin(), place);
        if (isSilent(leaving->fd)) {
            turnAway(server.door, leaving->fd, leaving->replies.empty() ? server.tooMany : "");
            forgetClient(server, leaving);
            return true;
        }
        holders[static_cast<size_t>(place)].idle = false;
    }
    return false;
}

void addClient(CommandServer& server, const Newcomer& newcomer) {
    CommandClient& client = server.clients.emplace_back();
    ++gClients;
    client.fd = newcomer.fd;
    client.process = newcomer.process;
    client.moved = monotonicMs();
    client.isPeer = isPeerBoard(newcomer.process);
    if (!client.isPeer) return;
    // It has one link; what is left of an earlier one is served like anybody's.
    if (server.peer != nullptr) server.peer->isPeer = false;
    server.peer = &client;
}

void acceptClients(CommandServer& server) {
    Newcomer newcomer = {};
    while (server.accepts > 0 && takeNewcomer(server.door, newcomer)) {
        --server.accepts;
        try {
            if (hasPlace(server, newcomer)) {
                addClient(server, newcomer);
                continue;
            }
        } catch (const std::bad_alloc&) {  // as if there were no place
            if (!server.clients.empty() && server.clients.back().fd == newcomer.fd) {
                forgetClient(server, std::prev(server.clients.end()));
            }
        }
        turnAway(server.door, newcomer.fd, server.tooMany);
    }
}

// What the peer board has handed over by now is carried out, for two reasons: the next request here finds
// what was set there, and while requests go to the peer its own must not wait at the door for a whole round.
void welcomePeer(CommandServer& server) {
    acceptClients(server);
    while (hasPeerTime(server) && servePeer(server)) {
    }
}

// Waits for something to do and leaves it in `polled`: the listener first, then the clients in their order.
void waitForWork(CommandServer& server, std::vector<pollfd>& polled) {
    const int64_t pause = server.door.openAgain - monotonicMs();
    int working = 0;
    polled.clear();
    polled.push_back({pause <= 0 ? server.door.listener : -1, POLLIN, 0});
    for (const CommandClient& client : server.clients) {
        const short events = clientEvents(client);
        // A descriptor from which nothing is wanted is not polled: a hang-up would end every wait at once.
        polled.push_back({events != 0 ? client.fd : -1, events, 0});
        if (hasWork(client)) ++working;
    }
    const int wait = working > 0 ? 0 : pause > 0 ? static_cast<int>(pause) : signInterval();
    const int ready = poll(polled.data(), polled.size(), wait);
    server.turnTime = ROUND_TIME / std::max(1, working + std::max(0, ready));
    if (ready < 0) {
        // The system refuses to wait for so many descriptors, or was interrupted: look at each after a
        // moment.
        poll(nullptr, 0, REFUSED_PAUSE);
        for (pollfd& one : polled) one.revents = one.fd < 0 ? short{0} : one.events;
    }
    size_t position = 1;
    for (CommandClient& client : server.clients) client.happened = polled[position++].revents;
}

void attend(CommandServer& server, CommandClient& client) {
    const int events = client.happened;
    const bool reads = (clientEvents(client) & POLLIN) != 0;
    if ((events & POLLOUT) != 0 || ((events & (POLLHUP | POLLERR)) != 0 && !client.replies.empty())) {
        sendReplies(client);
    }
    if (reads && events != 0) receiveRequests(client);
    if (!hasWork(client)) return;
    if (peerExpected()) welcomePeer(server);
    serveClient(server, client);
}

void serveRound(CommandServer& server) {
    server.accepts = ACCEPTS_PER_ROUND;
    server.peerTime = PEER_ROUND_TIME;
    for (auto client = server.clients.begin(); client != server.clients.end();) {
        atItsOwnCost(*client, [&] { attend(server, *client); });
        // Others may have come and gone meanwhile, but not this one.
        const auto next = std::next(client);
        if (isDone(*client)) {
            close(client->fd);
            forgetClient(server, client);
        }
        client = next;
    }
}

void serveCommands(CommandServer* server) {
    pthread_setname_np(pthread_self(), server->task.c_str());
    prepareFaultStack();
    std::vector<pollfd> polled;
    polled.reserve(COMMAND_LIMITS.all + 1);
    for (;;) {
        // The client served first in a round has its next request ready first, so each gets that turn.
        if (!server->clients.empty()) {
            server->clients.splice(server->clients.end(), server->clients, server->clients.begin());
        }
        commandServerLives();
        waitForWork(*server, polled);
        serveRound(*server);
        if (polled[0].revents != 0) acceptClients(*server);
    }
}

}  // namespace

const OperationTable* servedTable() {
    return gTable;
}

uint32_t commandClients() {
    return gClients;
}

void expectPeer(const std::string& root) {
    std::lock_guard guard(gLock);
    gPeerRoot = root;
}

int32_t icmProcTcpInit(const char* task, const char* path, const IcmFuncMapEntry* map, uint32_t count) {
    const int listener = listenLocalSocket(rootedPath(path));
    // The daemon does not look at the result, but without its command socket it is of no use to anybody.
    if (listener < 0) refuseStart();
    // The server lives as long as the process.
    auto* server = new CommandServer{
        .table = {.rows = map, .count = count},
        .task = std::string(task).substr(0, TASK_NAME_MAX),
        .door = openDoor(listener),
        .tooMany = statusReply(STATUS_TOO_MANY_CLIENTS),
    };
    gTable = &server->table;
    try {
        std::thread(serveCommands, server).detach();
    } catch (const std::system_error& problem) {
        hostReport("no task for the command socket: {}", problem.what());
        refuseStart();
    }
    reportReady();
    return 0;
}
