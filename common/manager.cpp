#include "common/manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char SOCKET_VARIABLE[] = "NOTIFY_SOCKET";

}  // namespace

bool tellManager(std::string_view words) {
    const char* path = std::getenv(SOCKET_VARIABLE);
    if (path == nullptr || *path == '\0') return true;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    errno = ENAMETOOLONG;
    if (length >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') address.sun_path[0] = '\0';  // a socket without a file
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    const bool told = sendto(fd, words.data(), words.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                             reinterpret_cast<const sockaddr*>(&address), size) >= 0;
    const int problem = errno;
    close(fd);
    errno = problem;
    return told;
}
