#include "ctl/client/stream.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "wire/framing.h"

namespace {

constexpr char LATE[] = "no answer in time";

int64_t nowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool fail(Stream& stream, const char* why) {
    stream.failure = why;
    streamClose(stream);
    return false;
}

bool waitFor(Stream& stream, short events, int64_t deadline) {
    for (;;) {
        int wait = -1;
        if (deadline != DEADLINE_NEVER) {
            wait = static_cast<int>(std::clamp<int64_t>(deadline - nowMs(), 0, INT_MAX));
        }
        pollfd entry{stream.fd, events, 0};
        const int ready = poll(&entry, 1, wait);
        if (ready > 0) {
            return true;
        }
        if (ready == 0) {
            return fail(stream, LATE);
        }
        if (errno != EINTR) {
            return fail(stream, std::strerror(errno));
        }
    }
}

}  // namespace

int64_t deadlineAfter(int64_t milliseconds) {
    return nowMs() + milliseconds;
}

std::string socketPath(const char* path) {
    const char* root = std::getenv(ROOT_VARIABLE);
    return std::string(root != nullptr ? root : "") + path;
}

bool streamConnect(Stream& stream, const std::string& path, int64_t timeoutMs) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return fail(stream, "the path is too long for a local socket");
    }
    path.copy(address.sun_path, path.size());
    stream.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (stream.fd < 0) {
        return fail(stream, std::strerror(errno));
    }
    // A full backlog blocks connect, and only the send time-out of the socket bounds that wait.
    const timeval limit{static_cast<time_t>(timeoutMs / 1000),
                        static_cast<suseconds_t>(timeoutMs % 1000 * 1000)};
    setsockopt(stream.fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connect(stream.fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const bool nobody = errno == ENOENT || errno == ECONNREFUSED;
        return fail(stream, nobody ? "nobody listens there" : errno == EAGAIN ? LATE : std::strerror(errno));
    }
    return true;
}

bool streamSend(Stream& stream, const void* bytes, size_t length, int64_t deadline) {
    const char* rest = static_cast<const char*>(bytes);
    while (length > 0) {
        const ssize_t sent = send(stream.fd, rest, length, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) {
            rest += sent;
            length -= static_cast<size_t>(sent);
        } else if (errno == EAGAIN) {
            if (!waitFor(stream, POLLOUT, deadline)) {
                return false;
            }
        } else if (errno != EINTR) {
            return fail(stream, std::strerror(errno));
        }
    }
    return true;
}

ssize_t streamReceive(Stream& stream, void* buffer, size_t size, int64_t deadline) {
    for (;;) {
        const ssize_t got = recv(stream.fd, buffer, size, MSG_DONTWAIT);
        if (got >= 0) {
            return got;
        }
        if (errno == EAGAIN) {
            if (!waitFor(stream, POLLIN, deadline)) {
                return -1;
            }
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
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            return fail(stream, "the connection was closed before the answer was whole");
        }
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
