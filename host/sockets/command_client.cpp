#include "host/sockets/command_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "common/bytes.h"
#include "common/files.h"
#include "host/sockets/command_request.h"

namespace {

constexpr size_t WORD = WORD_SIZE;
constexpr size_t READ_MAX = 32 * 1024;        // bytes taken from a client at once
constexpr size_t REPLIES_MAX = 64 * 1024;     // unsent bytes beyond which a client is not served
constexpr size_t IDLE_BUFFER_MAX = 4 * 1024;  // larger buffers go back when they are empty

enum class NextFrame : uint8_t { none, whole, broken };

NextFrame nextFrame(const CommandClient& client, uint32_t& length) {
    const size_t left = client.input.size() - client.served;
    if (left < WORD) return NextFrame::none;
    length = wordAt(client.input.data() + client.served);
    if (!isFrameLength(length)) return NextFrame::broken;
    return left - WORD >= length ? NextFrame::whole : NextFrame::none;
}

bool isHeldUp(const CommandClient& client) {
    return client.replies.size() - client.sent >= REPLIES_MAX;
}

void forgetSent(CommandClient& client) {
    client.replies.erase(0, client.sent);
    client.sent = 0;
}

}  // namespace

bool hasWork(const CommandClient& client) {
    uint32_t length = 0;
    return !client.broken && !isHeldUp(client) && nextFrame(client, length) != NextFrame::none;
}

void forgetServed(CommandClient& client) {
    client.input.erase(0, client.served);
    client.served = 0;
    if (client.input.empty() && client.input.capacity() > IDLE_BUFFER_MAX) std::string().swap(client.input);
}

void receiveRequests(CommandClient& client) {
    char chunk[READ_MAX];
    const ssize_t got = recv(client.fd, chunk, sizeof(chunk), MSG_DONTWAIT);
    if (got > 0) {
        client.input.append(chunk, static_cast<size_t>(got));
        client.spoke = true;
        client.moved = monotonicMs();
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        client.ended = true;
    }
}

void sendReplies(CommandClient& client) {
    while (!client.deaf && client.sent < client.replies.size()) {
        const ssize_t put = send(client.fd, client.replies.data() + client.sent,
                                 client.replies.size() - client.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put >= 0) {
            client.sent += static_cast<size_t>(put);
            client.moved = monotonicMs();
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

const uint8_t* nextRequest(CommandClient& client, uint32_t& length) {
    if (client.broken || isHeldUp(client)) return nullptr;
    const NextFrame next = nextFrame(client, length);
    if (next == NextFrame::broken) client.broken = true;
    if (next != NextFrame::whole) return nullptr;
    return reinterpret_cast<const uint8_t*>(client.input.data()) + client.served + WORD;
}

bool isDone(const CommandClient& client) {
    if (client.broken) return client.replies.empty() || client.deaf;
    return client.ended && !hasWork(client) && client.replies.empty();
}

short clientEvents(const CommandClient& client) {
    int events = 0;
    if (!client.ended && !client.broken && !isHeldUp(client) && !hasWork(client)) events |= POLLIN;
    if (!client.deaf && client.sent < client.replies.size()) events |= POLLOUT;
    return static_cast<short>(events);
}
