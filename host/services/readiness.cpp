#include "host/services/readiness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/files.h"
#include "host/services/logging.h"

namespace {

constexpr char SOCKET_VARIABLE[] = "NOTIFY_SOCKET";
constexpr char WATCHDOG_VARIABLE[] = "WATCHDOG_USEC";
constexpr char WATCHED_VARIABLE[] = "WATCHDOG_PID";
constexpr int SIGNS = 4;  // within the manager's patience

std::atomic<int64_t> gEventTaskSign = 0;  // monotonic milliseconds
std::atomic<int64_t> gTold = 0;
std::atomic<bool> gReady = false;  // the manager has been told; before that it counts no signs

// False with errno set; true where there is nobody to be told.
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

int readInterval() {
    const char* patience = std::getenv(WATCHDOG_VARIABLE);
    const char* watched = std::getenv(WATCHED_VARIABLE);
    if (patience == nullptr || (watched != nullptr && std::atoi(watched) != getpid())) return -1;
    const long long microseconds = std::atoll(patience);
    if (microseconds <= 0) return -1;
    return static_cast<int>(std::clamp<long long>(microseconds / 1000 / SIGNS, 1, INT_MAX));
}

}  // namespace

void reportReady() {
    eventTaskLives();
    if (!tellManager("READY=1")) hostReport("the service manager was not notified: {}", std::strerror(errno));
    gReady = true;
}

int signInterval() {
    static const int interval = readInterval();
    return interval;
}

void eventTaskLives() {
    gEventTaskSign = monotonicMs();
}

void commandServerLives() {
    const int interval = signInterval();
    const int64_t now = monotonicMs();
    const bool due = interval >= 0 && gReady && now - gTold >= interval;
    if (!due || now - gEventTaskSign > interval * SIGNS / 2) return;
    // A manager that is too busy to take it is told in the next turn.
    if (tellManager("WATCHDOG=1")) gTold = now;
}
