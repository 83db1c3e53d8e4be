#include "host/services/readiness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "host/services/logging.h"

namespace {

constexpr char SOCKET_VARIABLE[] = "NOTIFY_SOCKET";
constexpr char READY[] = "READY=1";

}  // namespace

void reportReady() {
    const char* path = std::getenv(SOCKET_VARIABLE);
    if (path == nullptr || *path == '\0') return;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    if (length >= sizeof(address.sun_path)) return hostReport("{} is too long", SOCKET_VARIABLE);
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') address.sun_path[0] = '\0';  // a socket without a file
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    if (fd < 0 || sendto(fd, READY, sizeof(READY) - 1, MSG_NOSIGNAL,
                         reinterpret_cast<const sockaddr*>(&address), size) < 0) {
        hostReport("the service manager was not notified: {}", std::strerror(errno));
    }
    if (fd >= 0) close(fd);
}
