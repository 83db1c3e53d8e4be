#include "lib/interface/stream.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "common/files.h"
#include "common/local_socket.h"

namespace {

constexpr char LATE[] = "no answer in time";

bool fail(Stream& stream, const char* why) {
    stream.failure = why;
    streamClose(stream);
    return false;
}

bool waitFor(Stream& stream, short events, int64_t deadline) {
    for (;;) {
        int wait = -1;
        if (deadline != DEADLINE_NEVER) {
            wait = static_cast<int>(std::clamp<int64_t>(deadline - monotonicMs(), 0, INT_MAX));
        }
        pollfd entry{stream.fd, events, 0};
        const int ready = poll(&entry, 1, wait);
        if (ready > 0) return true;
        if (ready == 0) return fail(stream, LATE);
        if (errno != EINTR) return fail(stream, std::strerror(errno));
    }
}

}  // namespace

int64_t deadlineAfter(int64_t milliseconds) {
    return monotonicMs() + milliseconds;
}

bool streamConnect(Stream& stream, const std::string& path, int64_t timeoutMs) {
    stream.fd = connectLocalSocket(path, SOCK_STREAM, timeoutMs);
    if (stream.fd >= 0) return true;
    const bool nobody = errno == ENOENT || errno == ECONNREFUSED;
    const bool tooLong = errno == ENAMETOOLONG;
    return fail(stream, nobody            ? "nobody listens there"
                        : tooLong         ? "the path is too long for a local socket"
                        : errno == EAGAIN ? LATE
                                          : std::strerror(errno));
}

bool streamSend(Stream& stream, const void* bytes, size_t length, int64_t timeoutMs) {
    if (sendAll(stream.fd, bytes, length, timeoutMs)) return true;
    // What the server said before it closed can still be read.
    if (errno == EPIPE || errno == ECONNRESET) return true;
    return fail(stream, errno == ETIMEDOUT ? LATE : std::strerror(errno));
}

ssize_t streamReceive(Stream& stream, void* buffer, size_t size, int64_t deadline) {
    for (;;) {
        const ssize_t got = recv(stream.fd, buffer, size, MSG_DONTWAIT);
        if (got >= 0) return got;
        if (errno == EAGAIN) {
            if (!waitFor(stream, POLLIN, deadline)) return -1;
        } else if (errno != EINTR) {
            fail(stream, std::strerror(errno));
            return -1;
        }
    }
}

bool streamReceiveAll(Stream& stream, void* buffer, size_t size, int64_t deadline) {
    char* rest = static_cast<char*>(buffer);
    while (size > 0) {
        const ssize_t got = streamReceive(stream, rest, size, deadline);
        if (got < 0) return false;
        if (got == 0) return fail(stream, "the connection was closed before the answer was whole");
        rest += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

void streamClose(Stream& stream) {
    if (stream.fd >= 0) {
        close(stream.fd);
        stream.fd = -1;
    }
}
