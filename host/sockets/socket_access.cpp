#include "host/sockets/socket_access.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/local_socket.h"
#include "host/services/logging.h"

namespace {

constexpr char GROUP_FILE[] = "/etc/group";
constexpr mode_t OWNER_AND_GROUP = 0660;

// The machine's own groups only: asking the name services would load half a megabyte of libraries for good.
std::optional<gid_t> findGroup(const char* name) {
    std::optional<gid_t> found;
    std::FILE* file = std::fopen(GROUP_FILE, "re");
    if (file == nullptr) return found;
    for (const group* entry = fgetgrent(file); entry != nullptr && !found; entry = fgetgrent(file)) {
        if (std::strcmp(entry->gr_name, name) == 0) found = entry->gr_gid;
    }
    std::fclose(file);
    return found;
}

std::vector<gid_t> groupsOfPeer(int fd, gid_t primary) {
    socklen_t length = 0;
    getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, nullptr, &length);  // the length alone
    std::vector<gid_t> groups(length / sizeof(gid_t));
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) groups.clear();
    groups.push_back(primary);
    return groups;
}

}  // namespace

const SocketAccess& socketAccess() {
    static const SocketAccess access = {geteuid(), findGroup(SOCKET_GROUP)};
    return access;
}

bool mayUse(const SocketAccess& access, uid_t user, const std::vector<gid_t>& groups) {
    if (user == access.owner) return true;
    if (!access.group) return false;
    return user == 0 || std::find(groups.begin(), groups.end(), *access.group) != groups.end();
}

bool isPrivileged(uid_t user) {
    return user == 0 || user == socketAccess().owner;
}

std::optional<PeerProcess> allowedPeer(int fd) {
    const std::optional<ucred> peer = processBehind(fd);
    if (!peer) return {};
    const SocketAccess& access = socketAccess();
    if (!mayUse(access, peer->uid, {}) && !mayUse(access, peer->uid, groupsOfPeer(fd, peer->gid))) return {};
    return PeerProcess{peer->pid, peer->uid};
}

void admitGroup(const std::string& path) {
    const SocketAccess& access = socketAccess();
    if (!access.group) return;
    // The group comes first: with the wider mode it would be the group of the process that made the socket.
    if (lchown(path.c_str(), static_cast<uid_t>(-1), *access.group) == 0 &&
        fchmodat(AT_FDCWD, path.c_str(), OWNER_AND_GROUP, AT_SYMLINK_NOFOLLOW) == 0) {
        return;
    }
    hostReport("{} is not for the group {}, only for its owner: {}", path, SOCKET_GROUP,
               std::strerror(errno));
}
