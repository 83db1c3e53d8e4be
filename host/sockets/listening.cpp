#include "host/sockets/listening.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/local_socket.h"
#include "host/services/logging.h"
#include "host/sockets/socket_access.h"

namespace {

constexpr mode_t OWNER_ONLY = 0600;
constexpr int BACKLOG = 4096;
static_assert(sizeof(sockaddr_un::sun_path) == 108);

int socketType(int fd) {
    int type = 0;
    socklen_t length = sizeof(type);
    getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length);
    return type;
}

// Why the path may be served already; null when it is not. Only a refused connection proves that.
const char* whoServes(const sockaddr_un& address, int type) {
    const int probe = socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) return "it may be served: no descriptor is left to try";
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int problem = errno;
    close(probe);
    if (result != 0 && problem == ECONNREFUSED) return nullptr;
    return problem == EACCES ? "it is another user's and may be served" : "another process serves it";
}

// 0, or an errno value with the reason in `why` where the system's text for it would not do.
int removeStale(const sockaddr_un& address, int type, const char*& why) {
    struct stat present = {};
    if (lstat(address.sun_path, &present) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISSOCK(present.st_mode)) {
        why = "it exists and is not a socket: remove it";
        return EEXIST;
    }
    why = whoServes(address, type);
    if (why != nullptr) return EADDRINUSE;
    return unlink(address.sun_path) == 0 ? 0 : errno;
}

int bindFresh(int fd, const std::string& path, const char*& why) {
    sockaddr_un address = {};
    if (!fillLocalAddress(path, address)) {
        why = "the path is too long for a local socket, 107 characters fit";
        return ENAMETOOLONG;
    }
    const int type = socketType(fd);
    const int stale = removeStale(address, type, why);
    if (stale != 0) return stale;
    // The mode of the descriptor becomes the mode of the file, so there is no moment with a wider one.
    if (fchmod(fd, OWNER_ONLY) != 0) return errno;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return errno;
    admitGroups(path, type == SOCK_STREAM);
    return type == SOCK_STREAM && listen(fd, BACKLOG) != 0 ? errno : 0;
}

}  // namespace

int bindLocalSocket(int fd, const std::string& path) {
    const char* why = nullptr;
    const int problem = bindFresh(fd, path, why);
    if (problem != 0) {
        hostReport("cannot serve {}: {}", path, why != nullptr ? why : std::strerror(problem));
    }
    return problem;
}

int listenLocalSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        hostReport("cannot serve {}: no socket: {}", path, std::strerror(errno));
        return -1;
    }
    if (bindLocalSocket(fd, path) == 0) return fd;
    close(fd);
    return -1;
}
