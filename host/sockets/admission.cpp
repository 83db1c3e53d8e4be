#include "host/sockets/admission.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <tuple>

#include "common/files.h"

namespace {

constexpr rlim_t OTHER_DESCRIPTORS = 32;  // those of the process that are no connections
constexpr rlim_t SHARES = 16;
constexpr int64_t CLOSED_FOR = 50;  // milliseconds without accepting after the system refused a descriptor

}  // namespace

ConnectionLimits withinDescriptors(const ConnectionLimits& limits) {
    rlimit descriptors = {};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    const rlim_t mine = std::max(descriptors.rlim_cur, OTHER_DESCRIPTORS + SHARES) - OTHER_DESCRIPTORS;
    ConnectionLimits fitting = limits;
    fitting.all = std::min<size_t>(limits.all, mine / SHARES * limits.share);
    fitting.perUser = std::min(limits.perUser, std::max<size_t>(fitting.all * 3 / 4, 1));
    fitting.forPrivileged = std::min(limits.forPrivileged, fitting.all / 4);
    return fitting;
}

ptrdiff_t placeFor(const PeerProcess& newcomer, const std::vector<Holder>& holders,
                   const ConnectionLimits& limits, bool crowded) {
    const bool privileged = isPrivileged(newcomer.user);
    std::map<uid_t, size_t> counts;
    for (const Holder& holder : holders) ++counts[holder.process.user];
    const bool tooManyOwn = !privileged && counts[newcomer.user] >= limits.perUser;
    const size_t room = limits.all - (privileged ? 0 : limits.forPrivileged);
    if (!tooManyOwn && !crowded && holders.size() < room) return PLACE_FREE;

    // Of those who have the most somebody goes first, and of them who never spoke, and who has been idle
    // longest.
    ptrdiff_t leaving = PLACE_NONE;
    std::tuple<size_t, bool, int64_t> best;
    for (size_t i = 0; i < holders.size(); ++i) {
        const Holder& holder = holders[i];
        if (!holder.idle || (tooManyOwn && holder.process.user != newcomer.user)) continue;
        const std::tuple claim(counts[holder.process.user], !holder.spoke, -holder.since);
        if (leaving != PLACE_NONE && claim <= best) continue;
        leaving = static_cast<ptrdiff_t>(i);
        best = claim;
    }
    return leaving;
}

Door openDoor(int listener) {
    return {.listener = listener, .spare = fcntl(listener, F_DUPFD_CLOEXEC, 0)};
}

bool takeNewcomer(Door& door, Newcomer& newcomer) {
    // Another task was quicker when it was needed last.
    if (door.spare < 0) door.spare = fcntl(door.listener, F_DUPFD_CLOEXEC, 0);
    for (;;) {
        newcomer = {
            .fd = accept4(door.listener, nullptr, nullptr, SOCK_CLOEXEC), .process = {}, .crowded = false};
        if (newcomer.fd < 0 && (errno == EMFILE || errno == ENFILE) && door.spare >= 0) {
            close(door.spare);
            door.spare = -1;
            newcomer.crowded = true;
            newcomer.fd = accept4(door.listener, nullptr, nullptr, SOCK_CLOEXEC);
        }
        if (newcomer.fd < 0 && (errno == ECONNABORTED || errno == EINTR)) continue;
        if (newcomer.fd < 0 && errno != EAGAIN) door.openAgain = monotonicMs() + CLOSED_FOR;
        if (newcomer.fd < 0) return false;
        const auto process = allowedPeer(newcomer.fd);
        if (process) {
            newcomer.process = *process;
            return true;
        }
        turnAway(door, newcomer.fd, "");
    }
}

void turnAway(Door& door, int fd, std::string_view words) {
    send(fd, words.data(), words.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    close(fd);
    if (door.spare < 0) door.spare = fcntl(door.listener, F_DUPFD_CLOEXEC, 0);
}

bool isSilent(int fd) {
    char byte = 0;
    return recv(fd, &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}
