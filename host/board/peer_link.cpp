#include "host/board/peer_link.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "common/files.h"
#include "common/local_socket.h"
#include "host/board/peer_answers.h"
#include "host/board/this_board.h"
#include "host/services/answers.h"
#include "host/services/fault_report.h"
#include "host/services/logging.h"
#include "platform/mirror.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

// Milliseconds that a request waits for a peer that has just stalled.
constexpr uint32_t STALLED_TIMEOUT = 1;
constexpr size_t UNANSWERED_MAX = 64 * 1024;  // requests; a peer that leaves more of them is broken
constexpr char ANSWER_TASK[] = "peeranswers";
constexpr char NO_ROOM[] =
    "it closed the connection without an answer: too many clients, or this user is not allowed";

std::mutex gLock;  // guards what follows, and keeps the requests in order
int gConnection = -1;
int gNext = -1;              // the socket of the next connection, not connected
int gWake = -1;              // an eventfd: there is another connection to wait for
bool gAnsweredOnce = false;  // on this connection
int64_t gLastProgress = 0;   // monotonic milliseconds: an answer, or the first request that waits for one
uint32_t gPeerTimeout = 0;   // milliseconds
std::string gPeer;           // root of the peer that was spoken to last
PeerState gState = PeerState::unknown;
PeerLedger gLedger;

// What the request that this task carries out has come to on its way to the peer.
thread_local uint64_t tSent = 0;  // its number in the ledger; 0: not handed over
thread_local bool tMissed = false;

// Reports a change, not each request.
void notePeer(PeerState state, const char* detail = "") {
    const PeerState before = gState;
    if (state == before) return;
    gState = state;
    if (state == PeerState::absent) hostReport("peer board {} is not there: {}", gPeer, detail);
    if (state == PeerState::starved) hostReport("no descriptor left for the peer board {}", gPeer);
    if (state == PeerState::failed) hostReport("peer board {} failed: {}", gPeer, detail);
    if (state == PeerState::silent) hostReport("peer board {} does not answer", gPeer);
    if (state != PeerState::reached) return;
    hostReport("peer board {} {}", gPeer, before == PeerState::silent ? "answers again" : "reached");
}

void wakeAnswerTask() {
    const uint64_t one = 1;
    if (gWake >= 0 && write(gWake, &one, sizeof(one)) < 0) return;  // it is awake already
}

void makeNextSocket() {
    if (gNext < 0) gNext = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void dropConnection() {
    if (gConnection < 0) return;
    // The task that polls it keeps it open for a moment longer.
    shutdown(gConnection, SHUT_RDWR);
    close(gConnection);
    gConnection = -1;
    if (gAnsweredOnce) ++gLedger.counts.ended;
    loseUnanswered(gLedger);
    makeNextSocket();
    wakeAnswerTask();
}

// Takes in what the peer has answered by now; false when it has closed, is about to, or makes no sense.
bool drainReplies() {
    char chunk[4096];
    for (;;) {
        const ssize_t got = recv(gConnection, chunk, sizeof(chunk), MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got < 0 && errno == EAGAIN;
        const uint64_t before = gLedger.counts.answered;
        if (!takeAnswers(gLedger, chunk, static_cast<size_t>(got))) return false;
        if (gLedger.counts.answered == before) continue;
        gAnsweredOnce = true;
        gLastProgress = monotonicMs();
        notePeer(PeerState::reached);
    }
}

// Ends a connection that the peer has ended.
void followConnection() {
    if (gConnection < 0 || drainReplies()) return;
    const bool answered = gAnsweredOnce;
    dropConnection();
    notePeer(PeerState::absent, answered ? "it ended the connection" : NO_ROOM);
}

// Hands the frame over while answers are taken in, so that the peer never waits for this side to read.
// 0, or an errno value; `sent` counts the bytes that are on their way.
int handOver(const std::string& frame, int64_t deadline, size_t& sent) {
    for (sent = 0; sent < frame.size();) {
        const ssize_t put =
            send(gConnection, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put > 0) {
            sent += static_cast<size_t>(put);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return errno;
        const int64_t left = deadline - monotonicMs();
        pollfd peer = {gConnection, POLLOUT | POLLIN, 0};
        if (left <= 0 || poll(&peer, 1, static_cast<int>(left)) == 0) return ETIMEDOUT;
        if ((peer.revents & POLLIN) != 0 && !drainReplies()) return ECONNRESET;
    }
    return 0;
}

// 0, or an errno value.
int openConnection(const std::string& path, uint32_t timeout) {
    makeNextSocket();
    if (gNext < 0 || !connectTo(gNext, path, timeout)) return errno;
    gConnection = std::exchange(gNext, -1);
    gAnsweredOnce = false;
    makeNextSocket();
    wakeAnswerTask();
    return 0;
}

// How a request ended that was to be handed over.
struct HandOver {
    int problem = 0;      // an errno value
    bool absent = false;  // the peer was not reached
};

bool isAbsence(int problem) {
    for (const int absence : {ENOENT, ECONNREFUSED, EMFILE, ENFILE, ENOMEM, ENOBUFS}) {
        if (problem == absence) return true;
    }
    return false;
}

HandOver sendToPeer(const std::string& path, const std::string& frame, uint32_t timeout) {
    const int64_t deadline = monotonicMs() + timeout;
    if (unanswered(gLedger) >= UNANSWERED_MAX) return {ETIMEDOUT};
    // A connection that the peer has closed since the last request is opened anew, once.
    followConnection();
    for (int attempt = 0;; ++attempt) {
        const bool fresh = gConnection < 0;
        const int refused = fresh ? openConnection(path, timeout) : 0;
        if (refused != 0) return {refused, isAbsence(refused)};
        size_t sent = 0;
        const int problem = handOver(frame, deadline, sent);
        if (problem == 0) return {};
        // Nothing of this frame is on its way: the connection stays usable.
        if (problem == ETIMEDOUT && sent == 0) return {problem};
        dropConnection();
        if (fresh && (problem == EPIPE || problem == ECONNRESET)) return {problem, true};
        if (fresh || sent > 0 || attempt > 0) return {problem};
    }
}

void noteSent(const PeerRequest& request) {
    const bool first = unanswered(gLedger) == 0;
    tSent = enterSent(gLedger, request);
    // No request of a client: nothing here refuses it.
    const bool serials = request.opcode == OP_SCALAR_SYNC && request.column == SCALAR_SERIAL_TABLE;
    if (serials) settleHere(gLedger, tSent, 0);
    if (!first) return;
    gLastProgress = monotonicMs();
    wakeAnswerTask();
}

void noteAbsence(int problem) {
    if (problem == EMFILE || problem == ENFILE) return notePeer(PeerState::starved);
    const bool closed = problem == EPIPE || problem == ECONNRESET;
    notePeer(PeerState::absent, closed ? NO_ROOM : std::strerror(problem));
}

// Called with the status of each request that was carried out here.
void settleRequest(int32_t status) {
    if (tSent == 0 && !tMissed) return;
    std::lock_guard guard(gLock);
    if (tSent != 0) settleHere(gLedger, tSent, status);
    if (tMissed && status == 0) ++gLedger.counts.missed;
    tSent = 0;
    tMissed = false;
}

// Milliseconds until the peer has been silent for too long, -1 while it has nothing to answer.
int silenceLeft() {
    if (gConnection < 0 || unanswered(gLedger) == 0 || gState == PeerState::failed) return -1;
    const int64_t left = gLastProgress + gPeerTimeout - monotonicMs();
    if (left > 0) return static_cast<int>(std::min<int64_t>(left, INT_MAX));
    notePeer(PeerState::silent);
    return -1;
}

// Takes the answers in as they come. The descriptor is polled without the lock; when another takes its place,
// the task is woken.
void followAnswers() {
    pthread_setname_np(pthread_self(), ANSWER_TASK);
    prepareFaultStack();
    for (;;) {
        pollfd polled[] = {{gWake, POLLIN, 0}, {-1, POLLIN, 0}};
        int wait = -1;
        {
            std::lock_guard guard(gLock);
            followConnection();
            wait = silenceLeft();
            polled[1].fd = gConnection;
        }
        poll(polled, 2, wait);
        uint64_t woken = 0;
        if (polled[0].revents != 0 && read(gWake, &woken, sizeof(woken)) < 0) continue;
    }
}

// The root of the peer that the description names, empty for none.
std::string describedPeer(uint32_t& timeout) {
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    timeout = board.peerTimeout;
    return peerPath(board);
}

}  // namespace

int32_t mirrorToPeer(const PeerRequest& request, uint32_t flags) {
    if ((flags & DAX_MIRROR_TO_PEER) == 0) return 0;
    uint32_t timeout = 0;
    const std::string root = describedPeer(timeout);
    std::lock_guard guard(gLock);
    tSent = 0;
    if (root.empty()) {
        if (gState != PeerState::none) hostReport("no peer board is described: nothing is mirrored");
        gState = PeerState::none;
        return 0;
    }
    gPeer = root;
    gPeerTimeout = timeout;
    if (gState == PeerState::failed) timeout = STALLED_TIMEOUT;
    const HandOver done = sendToPeer(root + COMMAND_SOCKET_PATH, requestFrame(request), timeout);
    tMissed = done.absent && !isProbe(request);
    if (done.problem == 0) {
        noteSent(request);
        return 0;
    }
    if (done.absent) {
        noteAbsence(done.problem);
        return 0;
    }
    notePeer(PeerState::failed, std::strerror(done.problem));
    return STATUS_PEER_FAILED;
}

void preparePeerLink() {
    uint32_t timeout = 0;
    if (describedPeer(timeout).empty()) return;
    listenToAnswers(settleRequest);
    std::lock_guard guard(gLock);
    makeNextSocket();
    gWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    try {
        if (gWake >= 0) std::thread(followAnswers).detach();
    } catch (const std::system_error& problem) {
        hostReport("answers of the peer board are looked at late: no task: {}", problem.what());
    }
}

PeerStatus peerStatus() {
    uint32_t timeout = 0;
    PeerStatus status;
    status.root = describedPeer(timeout);
    if (status.root.empty()) return status;
    std::lock_guard guard(gLock);
    status.state = gState;
    status.waiting = unanswered(gLedger);
    status.counts = gLedger.counts;
    return status;
}

void peerAgrees() {
    std::lock_guard guard(gLock);
    gLedger.counts = {};
    gLedger.told = 0;
}
