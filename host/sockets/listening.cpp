#include "common/local_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "host/services/logging.h"
#include "host/sockets/socket_access.h"
#include "wire/framing.h"

namespace {
constexpr mode_t OWNER_ONLY = 0600;
constexpr int BACKLOG = 4096;
constexpr int LOCK_WAIT = 1000;  // milliseconds to wait for another process that starts just now
constexpr int LOCK_STEP = 5;

bool fillAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

int socketType(int fd) {
    int type = 0;
    socklen_t length = sizeof type;
    getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length);
    return type;
}

// Whoever cannot be asked counts as living: only a refused connection proves that nobody serves the socket.
bool isServed(const sockaddr_un& address, int type) {
    const int probe = socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) return true;
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int problem = errno;
    close(probe);
    if (result != 0 && problem == EACCES)
        hostReport("%s is another user's; whether it is served cannot be told", address.sun_path);
    return result == 0 || problem != ECONNREFUSED;
}

// Opens and locks the folder of `path`; the lock ends with the descriptor. -1 when there is no such folder.
int lockFolder(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        hostReport("cannot serve %s: folder %s: %s", path.c_str(), folder.c_str(), strerror(errno));
        return -1;
    }
    // A foreign process may lock a shared folder for as long as it likes: after a while go on without.
    for (int waited = 0; flock(fd, LOCK_EX | LOCK_NB) != 0 && waited < LOCK_WAIT; waited += LOCK_STEP)
        poll(nullptr, 0, LOCK_STEP);
    return fd;
}

int removeStale(const std::string& path, const sockaddr_un& address, int type) {
    struct stat present = {};
    if (lstat(path.c_str(), &present) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISSOCK(present.st_mode)) {
        hostReport("%s exists and is not a socket", path.c_str());
        return EEXIST;
    }
    if (isServed(address, type)) {
        hostReport("another daemon is already serving %s", path.c_str());
        return EADDRINUSE;
    }
    return unlink(path.c_str()) == 0 ? 0 : errno;
}

int bindFresh(int fd, const std::string& path, const sockaddr_un& address) {
    const int type = socketType(fd);
    const int stale = removeStale(path, address, type);
    if (stale != 0) return stale;
    // The mode of the descriptor becomes the mode of the file, so there is no moment with a wider one.
    if (fchmod(fd, OWNER_ONLY) != 0) return errno;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return errno;
    admitGroup(path);
    return type == SOCK_STREAM && listen(fd, BACKLOG) != 0 ? errno : 0;
}
}  // namespace

std::string rootPrefix() {
    const char* root = getenv(ROOT_VARIABLE);
    return root == nullptr ? "" : root;
}

std::string rootedPath(const char* path) {
    return rootPrefix() + path;
}

int bindLocalSocket(int fd, const std::string& path) {
    sockaddr_un address = {};
    if (!fillAddress(path, address)) {
        hostReport("socket path of %zu characters is too long, at most %zu fit: %s", path.size(),
                   sizeof address.sun_path - 1, path.c_str());
        return ENAMETOOLONG;
    }
    const int folder = lockFolder(path);
    if (folder < 0) return ENOENT;
    const int result = bindFresh(fd, path, address);
    close(folder);
    if (result != 0 && result != EADDRINUSE)
        hostReport("cannot serve %s: %s", path.c_str(), strerror(result));
    return result;
}

int listenLocalSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        hostReport("no socket for %s: %s", path.c_str(), strerror(errno));
        return -1;
    }
    if (bindLocalSocket(fd, path) == 0) return fd;
    close(fd);
    return -1;
}

int connectLocalSocket(const std::string& path, int type, uint32_t timeout) {
    sockaddr_un address = {};
    if (!fillAddress(path, address)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    // The time-out of sending also bounds a connect that waits for room in the listener's queue.
    const timeval limit = {static_cast<time_t>(timeout / 1000),
                           static_cast<suseconds_t>(timeout % 1000 * 1000)};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    const int problem = errno;
    close(fd);
    errno = problem;
    return -1;
}

bool sendAll(int fd, const void* data, size_t length, uint32_t timeout) {
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
        if (left <= 0 || poll(&room, 1, static_cast<int>(left)) == 0) return false;
    }
    return true;
}

int64_t monotonicMs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
