#include "host/sockets/socket_access.h"

#include <endian.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>
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
constexpr char ACCESS_LIST[] = "system.posix_acl_access";
constexpr uint16_t MAY_USE = ACL_READ | ACL_WRITE;     // a socket
constexpr uint16_t MAY_LIST = ACL_READ | ACL_EXECUTE;  // a folder

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

struct AccessList {
    posix_acl_xattr_header header;
    posix_acl_xattr_entry entries[5];
};

posix_acl_xattr_entry entryOf(uint16_t tag, uint16_t permissions, uint32_t id = uint32_t(ACL_UNDEFINED_ID)) {
    return {.e_tag = htole16(tag), .e_perm = htole16(permissions), .e_id = htole32(id)};
}

// The kernel wants the entries in this order; the mask bounds what groups may do.
AccessList listWithReaders(uint16_t owner, uint16_t group, uint16_t readers) {
    return {.header = {.a_version = htole32(POSIX_ACL_XATTR_VERSION)},
            .entries = {entryOf(ACL_USER_OBJ, owner), entryOf(ACL_GROUP_OBJ, group),
                        entryOf(ACL_GROUP, readers, *socketAccess().readers), entryOf(ACL_MASK, group),
                        entryOf(ACL_OTHER, 0)}};
}

SocketAccess findAccess() {
    SocketAccess access = {.owner = geteuid(), .group = findGroup(SOCKET_GROUP)};
    if (access.group) access.readers = findGroup(READERS_GROUP);
    return access;
}

}  // namespace

const SocketAccess& socketAccess() {
    static const SocketAccess access = findAccess();
    return access;
}

Access accessOf(const SocketAccess& access, uid_t user, const std::vector<gid_t>& groups) {
    const auto isMember = [&groups](const std::optional<gid_t>& group) {
        return group && std::find(groups.begin(), groups.end(), *group) != groups.end();
    };
    if (user == access.owner || (user == 0 && access.group) || isMember(access.group)) return Access::changes;
    return isMember(access.readers) ? Access::reads : Access::none;
}

bool isPrivileged(uid_t user) {
    return user == 0 || user == socketAccess().owner;
}

std::optional<PeerProcess> allowedPeer(int fd) {
    const std::optional<ucred> peer = processBehind(fd);
    if (!peer) return {};
    const Access access = accessOf(socketAccess(), peer->uid, groupsOfPeer(fd, peer->gid));
    if (access == Access::none) return {};
    return PeerProcess{peer->pid, peer->uid, access == Access::changes};
}

bool admitReadersTo(int fd) {
    if (!socketAccess().readers) {
        fremovexattr(fd, ACCESS_LIST);  // of those that there were at an earlier start
        return true;
    }
    const AccessList list = listWithReaders(MAY_LIST | ACL_WRITE, MAY_LIST, ACL_EXECUTE);
    return fsetxattr(fd, ACCESS_LIST, &list, sizeof(list), 0) == 0;
}

void admitGroups(const std::string& path, bool readersWanted) {
    const SocketAccess& access = socketAccess();
    if (!access.group) return;
    // The group comes first: with the wider mode it would be the group of the process that made the socket.
    if (lchown(path.c_str(), static_cast<uid_t>(-1), *access.group) == 0 &&
        fchmodat(AT_FDCWD, path.c_str(), OWNER_AND_GROUP, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!readersWanted || !access.readers) return;
        const AccessList list = listWithReaders(MAY_USE, MAY_USE, MAY_USE);
        if (lsetxattr(path.c_str(), ACCESS_LIST, &list, sizeof(list), 0) == 0) return;
        return hostReport("{} is not for the group {}: {}", path, READERS_GROUP, std::strerror(errno));
    }
    hostReport("{} is not for the group {}, only for its owner: {}", path, SOCKET_GROUP,
               std::strerror(errno));
}
