#include "common/local_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>

#include "common/files.h"

bool fillLocalAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

socklen_t fillAbstractAddress(std::string_view name, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

std::optional<ucred> processBehind(int fd) {
    ucred process = {};
    socklen_t length = sizeof(process);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &process, &length) != 0) return {};
    return process;
}

bool connectTo(int fd, const std::string& path, int64_t timeout) {
    sockaddr_un address = {};
    if (!fillLocalAddress(path, address)) {
        errno = ENAMETOOLONG;
        return false;
    }
    // A full backlog blocks connect, and only the send time-out of the socket bounds that wait.
    const timeval limit = {static_cast<time_t>(timeout / 1000),
                           static_cast<suseconds_t>(timeout % 1000 * 1000)};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

int connectLocalSocket(const std::string& path, int type, int64_t timeout) {
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0 || connectTo(fd, path, timeout)) return fd;
    const int problem = errno;
    close(fd);
    errno = problem;
    return -1;
}

bool sendAll(int fd, const void* data, size_t length, int64_t timeout) {
    const auto* bytes = static_cast<const char*>(data);
    const int64_t deadline = monotonicMs() + timeout;
    while (length > 0) {
        const ssize_t sent = send(fd, bytes, length, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes += sent;
            length -= static_cast<size_t>(sent);
            continue;
        }
        if (errno != EAGAIN && errno != EINTR) return false;
        const int64_t left = deadline - monotonicMs();
        pollfd room = {fd, POLLOUT, 0};
        if (left <= 0 || poll(&room, 1, static_cast<int>(std::min<int64_t>(left, INT_MAX))) == 0) {
            errno = ETIMEDOUT;
            return false;
        }
    }
    return true;
}
