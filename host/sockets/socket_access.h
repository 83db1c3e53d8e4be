// Who may use the sockets of the daemon: root and the members of the group `portisolate` where that group
// exists, and the user that the daemon runs as; without the group that user alone.
//
// The kernel checks the socket's owner, group and mode on every connect and on every datagram. A stream
// server checks the credentials of the process at the other end as well, so a mode that somebody widened
// later lets nobody in.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

inline constexpr char SOCKET_GROUP[] = "portisolate";

struct SocketAccess {
    uid_t owner;
    std::optional<gid_t> group;
};

// Read once, at the first call: a group that is made later counts from the next start on.
const SocketAccess& socketAccess();

// Whether a user with these groups, the primary one included, has access.
bool mayUse(const SocketAccess& access, uid_t user, const std::vector<gid_t>& groups);
// Root, and the user that the daemon runs as.
bool isPrivileged(uid_t user);

struct PeerProcess {
    pid_t process;  // 0 where it is not in the daemon's own process space
    uid_t user;
};

// The process that connected to this stream socket, as the kernel knows it; none when it has no access, or
// cannot be asked.
std::optional<PeerProcess> allowedPeer(int fd);

// Widens a freshly bound socket of mode 0600 to the group. It stays with its owner, after a report, when that
// is not possible.
void admitGroup(const std::string& path);
