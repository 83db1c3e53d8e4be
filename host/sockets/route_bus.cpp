#include "host/sockets/route_bus.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "common/files.h"
#include "common/local_socket.h"
#include "host/services/logging.h"
#include "host/services/readiness.h"
#include "host/services/streams.h"
#include "host/sockets/listening.h"
#include "platform/route_messages.h"
#include "platform/services.h"
#include "wire/framing.h"

namespace {

constexpr uint32_t GROUP_BYTES = 4;
constexpr uint32_t PUBLISH_TIMEOUT = 5000;  // milliseconds
constexpr size_t GROUPS_MAX = 1024;
constexpr int64_t FOLLOWED_LATEST = 100;  // milliseconds after the first event that is not followed up
constexpr int64_t NONE = -1;

struct RouteSocket {
    int fd = -1;
    std::string path;              // empty until bound
    std::vector<uint32_t> groups;  // joined
    uint32_t name = 0;
    bool readerWaits = false;  // the reader is in dax_select and found nothing to hand over
};

std::mutex gLock;  // guards gSocket
std::condition_variable gReaderWaits;
RouteSocket gSocket;
thread_local int gLastError = 0;
void (*gAfterEvents)() = nullptr;
int64_t gHandled = NONE;  // monotonic milliseconds; the reader's own

int32_t failed(int problem) {
    gLastError = problem;
    errno = problem;
    return -1;
}

bool isReadable(int fd, int timeout) {
    pollfd input = {fd, POLLIN, 0};
    return poll(&input, 1, timeout) == 1;
}

bool isWanted(uint32_t group, ssize_t length) {
    std::lock_guard guard(gLock);
    return length > static_cast<ssize_t>(GROUP_BYTES) &&
           std::find(gSocket.groups.begin(), gSocket.groups.end(), group) != gSocket.groups.end();
}

// Throws away what the socket has not joined; true when a datagram to be handed over is next.
bool wantedDatagramNext(int fd) {
    for (;;) {
        uint32_t group = 0;
        const ssize_t length = recv(fd, &group, sizeof(group), MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        if (length < 0) return errno != EAGAIN && errno != EINTR;  // the receiver learns of the failure
        if (isWanted(group, length)) return true;
        if (recv(fd, &group, sizeof(group), MSG_DONTWAIT) < 0) return false;
    }
}

void markReaderWaits(bool waits) {
    std::lock_guard guard(gLock);
    gSocket.readerWaits = waits;
    if (waits) gReaderWaits.notify_all();
}

int routeDescriptor() {
    std::lock_guard guard(gLock);
    return gSocket.fd;
}

// True when what follows the events that were handled has been done.
bool followedUp(int fd) {
    if (gAfterEvents == nullptr || gHandled == NONE) return true;
    if (isReadable(fd, 0) && monotonicMs() - gHandled < FOLLOWED_LATEST) return false;
    gHandled = NONE;
    gAfterEvents();
    return true;
}

bool isRouteSocket(int fd) {
    std::lock_guard guard(gLock);
    return fd >= 0 && fd == gSocket.fd;
}

int32_t joinGroup(uint32_t group) {
    std::lock_guard guard(gLock);
    if (std::find(gSocket.groups.begin(), gSocket.groups.end(), group) != gSocket.groups.end()) return 0;
    if (gSocket.groups.size() >= GROUPS_MAX) return failed(ENOBUFS);
    gSocket.groups.push_back(group);
    return 0;
}

}  // namespace

void afterEvents(void (*work)()) {
    gAfterEvents = work;
}

int publishToRoute(uint32_t group, const std::vector<uint8_t>& messages) {
    const int fd = connectLocalSocket(rootedPath(ROUTE_SOCKET_PATH), SOCK_DGRAM, PUBLISH_TIMEOUT);
    if (fd < 0) return errno;
    iovec parts[] = {{&group, sizeof(group)}, {const_cast<uint8_t*>(messages.data()), messages.size()}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const int result = sendmsg(fd, &message, MSG_NOSIGNAL) < 0 ? errno : 0;
    close(fd);
    return result;
}

bool settleRoute(uint32_t timeout) {
    std::unique_lock guard(gLock);
    // The order matters: a reader that has taken the last datagram is marked busy before it takes it.
    const auto settled = [] { return gSocket.fd < 0 || (!isReadable(gSocket.fd, 0) && gSocket.readerWaits); };
    return gReaderWaits.wait_for(guard, std::chrono::milliseconds(timeout), settled);
}

int32_t dax_socket(int32_t family, int32_t type, int32_t) {
    if (family != DAX_AF_ROUTE) return failed(EAFNOSUPPORT);
    if (type != DAX_SOCK_DGRAM) return failed(EPROTOTYPE);
    std::lock_guard guard(gLock);
    if (gSocket.fd >= 0) return failed(EMFILE);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return failed(errno);
    if (fd >= DAX_FD_LIMIT) {
        close(fd);
        return failed(EMFILE);
    }
    gSocket = {};
    gSocket.fd = fd;
    return fd;
}

int32_t dax_bind(int32_t fd, const void* address, uint32_t length) {
    if (!isRouteSocket(fd)) return failed(EBADF);
    if (address == nullptr || length != DAX_ROUTE_ADDRESS_LEN ||
        static_cast<const uint8_t*>(address)[1] != DAX_AF_ROUTE) {
        return failed(EINVAL);
    }
    const std::string path = rootedPath(ROUTE_SOCKET_PATH);
    const int problem = bindLocalSocket(fd, path);
    if (problem != 0) refuseStart();
    std::lock_guard guard(gLock);
    gSocket.path = path;
    return 0;
}

int32_t dax_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t length) {
    if (!isRouteSocket(fd)) return failed(EBADF);
    uint32_t word = 0;
    if (value == nullptr || length != sizeof(word)) return failed(EINVAL);
    std::memcpy(&word, value, sizeof(word));
    if (level == DAX_SOL_MEMBERSHIP && option == DAX_SO_ADD_GROUP) return joinGroup(word);
    if (level == DAX_SOL_SOCKET && option == DAX_SO_NAME) {
        std::lock_guard guard(gLock);
        gSocket.name = word;
        return 0;
    }
    return failed(ENOPROTOOPT);
}

int32_t dax_select(int32_t limit, DaxFdSet* readSet, DaxFdSet*, DaxFdSet*, void*) {
    if (readSet == nullptr || limit < 0 || limit > DAX_FD_LIMIT) return failed(EINVAL);
    pollfd waited[DAX_FD_LIMIT];
    nfds_t count = 0;
    for (int32_t fd = 0; fd < limit; ++fd) {
        if (daxFdIsSet(*readSet, fd)) waited[count++] = {fd, POLLIN, 0};
    }
    *readSet = {};
    for (;;) {
        int32_t ready = 0;
        for (nfds_t i = 0; i < count; ++i) {
            const pollfd& one = waited[i];
            if (one.revents == 0 || (isRouteSocket(one.fd) && !wantedDatagramNext(one.fd))) continue;
            daxFdSet(*readSet, one.fd);
            ++ready;
        }
        if (ready > 0) {
            markReaderWaits(false);
            return ready;
        }
        // Otherwise there is something to read, so the next wait is a short one.
        if (followedUp(routeDescriptor())) markReaderWaits(true);
        eventTaskLives();
        if (poll(waited, count, signInterval()) < 0 && errno != EINTR) return failed(errno);
    }
}

int32_t dax_recvfrom(int32_t fd, void* buffer, uint32_t size, int32_t, void* source, uint32_t* sourceLen) {
    if (!isRouteSocket(fd)) return failed(EBADF);
    if (source != nullptr && sourceLen != nullptr) std::memset(source, 0, *sourceLen);
    for (;;) {
        uint32_t group = 0;
        iovec parts[] = {{&group, sizeof(group)}, {buffer, size}};
        msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        const ssize_t length = recvmsg(fd, &message, 0);
        if (length < 0) return failed(errno);
        if (!isWanted(group, length)) continue;
        if (gHandled == NONE) gHandled = monotonicMs();
        const auto bytes = static_cast<uint32_t>(length) - GROUP_BYTES;
        try {
            monitorEvent(group, buffer, bytes);
        } catch (const std::bad_alloc&) {  // the monitor misses it, the daemon does not
        }
        return static_cast<int32_t>(bytes);
    }
}

int32_t dax_close(int32_t fd) {
    if (!isRouteSocket(fd)) return failed(EBADF);
    std::lock_guard guard(gLock);
    if (!gSocket.path.empty()) unlink(gSocket.path.c_str());
    gSocket = {};
    return close(fd) == 0 ? 0 : failed(errno);
}

int32_t errnoGet(void) {
    return gLastError;
}
