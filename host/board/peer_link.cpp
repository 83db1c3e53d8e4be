#include "host/board/peer_link.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>

#include "common/bytes.h"
#include "common/files.h"
#include "common/local_socket.h"
#include "host/board/this_board.h"
#include "host/services/logging.h"
#include "platform/mirror.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

struct MirrorRange {
    uint32_t base;  // command id of column 0
    PortIsolateOpcode opcode;
};
constexpr MirrorRange MIRROR_RANGES[] = {
    {DAX_MIRROR_SCALAR, OP_SCALAR_SYNC},
    {DAX_MIRROR_GROUP, OP_GROUP_SYNC},
    {DAX_MIRROR_PAIR, OP_PAIR_SYNC},
    {DAX_MIRROR_VLAN, OP_VLAN_SYNC},
    {DAX_MIRROR_VLAN_GROUP, OP_VLAN_GROUP_SYNC},
};

enum class PeerState : uint8_t { unknown, reached, absent, failed };

// Milliseconds that a request waits for a peer that has just stalled.
constexpr uint32_t STALLED_TIMEOUT = 1;

std::mutex gLock;  // guards what follows, and keeps the requests in order
int gConnection = -1;
PeerState gState = PeerState::unknown;

// Reports a change, not each request.
void notePeer(PeerState state, const std::string& peer, const char* detail) {
    if (state == gState) return;
    gState = state;
    switch (state) {
        case PeerState::reached:
            hostReport("peer board {} reached", peer);
            break;
        case PeerState::absent:
            hostReport("peer board {} is not there: {}", peer, detail);
            break;
        case PeerState::failed:
            hostReport("peer board {} failed: {}", peer, detail);
            break;
        case PeerState::unknown:
            break;
    }
}

void dropConnection() {
    if (gConnection >= 0) close(gConnection);
    gConnection = -1;
}

// Reads and discards answers; false when the peer has closed.
bool drainReplies() {
    char discarded[4096];
    for (;;) {
        const ssize_t got = recv(gConnection, discarded, sizeof(discarded), MSG_DONTWAIT);
        if (got > 0) continue;
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
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

std::string requestFrame(const PeerRequest& request) {
    std::string frame;
    appendWord(frame, COMMAND_WORDS_MIN + request.indexLength + request.valueLength);
    appendWord(frame, request.opcode);
    appendWord(frame, request.column);
    appendWord(frame, request.indexLength);
    frame.append(static_cast<const char*>(request.index), request.indexLength);
    appendWord(frame, request.valueLength);
    frame.append(static_cast<const char*>(request.value), request.valueLength);
    return frame;
}

// 0, or an errno value.
int sendToPeer(const std::string& path, const std::string& frame, uint32_t timeout) {
    const int64_t deadline = monotonicMs() + timeout;
    // A connection that the peer has closed since the last request is opened anew, once.
    if (gConnection >= 0 && !drainReplies()) dropConnection();
    for (int attempt = 0;; ++attempt) {
        const bool fresh = gConnection < 0;
        if (fresh) gConnection = connectLocalSocket(path, SOCK_STREAM, timeout);
        if (gConnection < 0) return errno;
        size_t sent = 0;
        const int problem = handOver(frame, deadline, sent);
        if (problem == 0) return 0;
        // Nothing of this frame is on its way: the connection stays usable.
        if (problem == ETIMEDOUT && sent == 0) return problem;
        dropConnection();
        if (fresh || sent > 0 || attempt > 0) return problem;
    }
}

}  // namespace

bool decodePeerRequest(uintptr_t key, uint32_t command, const void* data, const HwCmdControl& control,
                       PeerRequest& request) {
    const MirrorRange* range = nullptr;
    for (const MirrorRange& one : MIRROR_RANGES) {
        if (command - one.base < DAX_MIRROR_COLUMNS) range = &one;
    }
    if (range == nullptr) return false;
    request.opcode = range->opcode;
    request.column = command - range->base;
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[range->opcode];
    if (shape.indexIsNumber) {
        request.number = static_cast<uint32_t>(key);
        request.index = &request.number;
        request.indexLength = sizeof(request.number);
    } else if (shape.indexLength != 0) {
        request.index = reinterpret_cast<const void*>(key);
        request.indexLength = control.keyLength;
    }
    const bool isBuffer = range->opcode == OP_SCALAR_SYNC && portIsolateScalarIsBuffer(request.column);
    if (data != nullptr && isBuffer) {
        request.value = static_cast<const DataDesc*>(data)->data;
        request.valueLength = static_cast<const DataDesc*>(data)->length;
    } else if (data != nullptr) {
        request.value = data;
        request.valueLength = sizeof(uint32_t);
    }
    if (request.index == nullptr) request.indexLength = 0;
    if (request.value == nullptr) request.valueLength = 0;
    return request.indexLength <= COMMAND_VALUE_MAX && request.valueLength <= COMMAND_VALUE_MAX;
}

int32_t mirrorToPeer(const PeerRequest& request, uint32_t flags) {
    if ((flags & DAX_MIRROR_TO_PEER) == 0) return 0;
    std::string root;
    uint32_t timeout = 0;
    {
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        root = board.peerRoot;
        timeout = board.peerTimeout;
    }
    std::lock_guard guard(gLock);
    if (root.empty()) {
        if (gState != PeerState::absent) hostReport("no peer board is described: nothing is mirrored");
        gState = PeerState::absent;
        return 0;
    }
    if (!root.starts_with('/')) root = rootPrefix() + "/" + root;
    if (gState == PeerState::failed) timeout = STALLED_TIMEOUT;
    const int problem = sendToPeer(root + COMMAND_SOCKET_PATH, requestFrame(request), timeout);
    if (problem == 0) {
        notePeer(PeerState::reached, root, "");
        return 0;
    }
    if (problem == ENOENT || problem == ECONNREFUSED) {
        notePeer(PeerState::absent, root, std::strerror(problem));
        return 0;
    }
    notePeer(PeerState::failed, root, std::strerror(problem));
    return STATUS_PEER_FAILED;
}
