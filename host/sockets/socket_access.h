// Who may use the sockets of the daemon: root and the members of the group `portisolate` where that group
// exists, and the user that the daemon runs as; without the group that user alone. Where both groups exist,
// the members of `portisolate-read` may use the stream sockets, too, but only to read.
//
// The kernel checks the socket's owner, group, mode and access control list on every connect and on every
// datagram. A stream server checks the credentials of the process at the other end as well, so a mode that
// somebody widened later lets nobody in. The readers are let in by the list, not by a mode for everybody:
// so a stranger cannot so much as connect, and takes no place in the queue before the door.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

inline constexpr char SOCKET_GROUP[] = "portisolate";
inline constexpr char READERS_GROUP[] = "portisolate-read";

struct SocketAccess {
    uid_t owner;
    std::optional<gid_t> group;
    std::optional<gid_t> readers{};  // none without `group`
};

enum class Access : uint8_t { none, reads, changes };

// Read once, at the first call: a group that is made later counts from the next start on.
const SocketAccess& socketAccess();

// What a user with these groups, the primary one included, may do.
Access accessOf(const SocketAccess& access, uid_t user, const std::vector<gid_t>& groups);
// Root, and the user that the daemon runs as.
bool isPrivileged(uid_t user);

struct PeerProcess {
    pid_t process;  // 0 where it is not in the daemon's own process space
    uid_t user;
    bool mayChange = false;
};

// The process that connected to this stream socket, as the kernel knows it; none when it has no access, or
// cannot be asked.
std::optional<PeerProcess> allowedPeer(int fd);

// Widens a freshly bound socket of mode 0600 to the group, and to the readers where they are wanted. It
// stays with its owner, after a report, or without the readers, when that is not possible.
void admitGroups(const std::string& path, bool readersWanted);
// Lets the readers, if there are any, search the folder `fd`, whose owner and group are right, and nobody
// else who could before. False, with errno set, when that is not possible.
bool admitReadersTo(int fd);
