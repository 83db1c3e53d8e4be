#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/local_socket.h"
#include "web/http/server.h"

namespace {

constexpr int BACKLOG = 256;
constexpr mode_t SOCKET_MODE = 0660;

int opened(int family, const sockaddr* address, socklen_t length, std::string& problem) {
    const int fd = socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int yes = 1;
    if (fd >= 0) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    if (fd >= 0 && bind(fd, address, length) == 0 && listen(fd, BACKLOG) == 0) return fd;
    problem = std::strerror(errno);
    if (fd >= 0) close(fd);
    return -1;
}

// Removes what a server that is gone has left behind; anything else makes the bind fail.
void removeStale(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
    const int fd = connectLocalSocket(path, SOCK_STREAM, 1000);
    if (fd >= 0) {
        close(fd);
    } else if (errno == ECONNREFUSED) {
        unlink(path.c_str());
    }
}

int listenLocally(const std::string& path, std::string& problem) {
    sockaddr_un address{};
    if (!fillLocalAddress(path, address)) {
        problem = "the path is too long for a local socket";
        return -1;
    }
    removeStale(path);
    const int fd = opened(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof(address), problem);
    if (fd >= 0) chmod(path.c_str(), SOCKET_MODE);
    return fd;
}

}  // namespace

int listenAt(const std::string& address, std::string& problem) {
    if (address.starts_with('/')) return listenLocally(address, problem);
    const size_t colon = address.rfind(':');
    if (colon == std::string::npos) {
        problem = "no ADDRESS:PORT";
        return -1;
    }
    std::string host = address.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &found);
    if (error != 0 || host.empty()) {
        problem = "no ADDRESS:PORT of numbers, such as 127.0.0.1:9757 or [::1]:9757";
        return -1;
    }
    const int fd = opened(found->ai_family, found->ai_addr, found->ai_addrlen, problem);
    freeaddrinfo(found);
    return fd;
}

std::string boundAddress(int listener) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) return {};
    if (address.ss_family == AF_UNIX) return reinterpret_cast<const sockaddr_un*>(&address)->sun_path;
    char host[NI_MAXHOST] = "", port[NI_MAXSERV] = "";
    getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof(host), port, sizeof(port),
                NI_NUMERICHOST | NI_NUMERICSERV);
    return address.ss_family == AF_INET6 ? fmt::format("[{}]:{}", host, port)
                                         : fmt::format("{}:{}", host, port);
}

bool isLoopback(int listener) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) return false;
    if (address.ss_family == AF_UNIX) return true;
    if (address.ss_family == AF_INET6) {
        return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(&address)->sin6_addr);
    }
    constexpr uint32_t LOOPBACK_NET = 127;
    return ntohl(reinterpret_cast<const sockaddr_in*>(&address)->sin_addr.s_addr) >> 24 == LOOPBACK_NET;
}
