#include "host/sockets/listening.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
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
constexpr int LOCK_WAIT = 1000;  // milliseconds to wait for another process that is starting
constexpr int LOCK_STEP = 5;

int socketType(int fd) {
    int type = 0;
    socklen_t length = sizeof(type);
    getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length);
    return type;
}

// Only a refused connection proves that nobody serves the socket; one that cannot be tried counts as served.
bool isServed(const sockaddr_un& address, int type) {
    const int probe = socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) return true;
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int problem = errno;
    close(probe);
    if (result != 0 && problem == EACCES) {
        hostReport("{} is another user's and may be served", address.sun_path);
    }
    return result == 0 || problem != ECONNREFUSED;
}

// Opens and locks the folder of `path`; the lock ends with the descriptor. -1 when there is no such folder.
int lockFolder(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        hostReport("cannot serve {}: folder {}: {}", path, folder, std::strerror(errno));
        return -1;
    }
    // A foreign process may lock a shared folder for as long as it likes: after a while, go on without it.
    for (int waited = 0; flock(fd, LOCK_EX | LOCK_NB) != 0 && waited < LOCK_WAIT; waited += LOCK_STEP) {
        poll(nullptr, 0, LOCK_STEP);
    }
    return fd;
}

int removeStale(const std::string& path, const sockaddr_un& address, int type) {
    struct stat present = {};
    if (lstat(path.c_str(), &present) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISSOCK(present.st_mode)) {
        hostReport("{} exists and is not a socket", path);
        return EEXIST;
    }
    if (isServed(address, type)) {
        hostReport("another daemon is already serving {}", path);
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
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return errno;
    admitGroup(path);
    return type == SOCK_STREAM && listen(fd, BACKLOG) != 0 ? errno : 0;
}

}  // namespace

int bindLocalSocket(int fd, const std::string& path) {
    sockaddr_un address = {};
    if (!fillLocalAddress(path, address)) {
        hostReport("socket path of {} characters is too long, at most {} fit: {}", path.size(),
                   sizeof(address.sun_path) - 1, path);
        return ENAMETOOLONG;
    }
    const int folder = lockFolder(path);
    if (folder < 0) return ENOENT;
    const int result = bindFresh(fd, path, address);
    close(folder);
    if (result != 0 && result != EADDRINUSE) hostReport("cannot serve {}: {}", path, std::strerror(result));
    return result;
}

int listenLocalSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        hostReport("no socket for {}: {}", path, std::strerror(errno));
        return -1;
    }
    if (bindLocalSocket(fd, path) == 0) return fd;
    close(fd);
    return -1;
}
