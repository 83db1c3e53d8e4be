#include "host/sockets/run_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "common/files.h"
#include "host/services/logging.h"
#include "host/sockets/socket_access.h"
#include "wire/framing.h"

namespace {

constexpr char LOCK_FILE[] = "/lock";
constexpr mode_t OWNER_ONLY = 0600;
constexpr mode_t GROUP_READS = 0640;
constexpr mode_t FOLDER_OF_OWNER = 0700;
constexpr mode_t FOLDER_OF_GROUP = 0750;
constexpr mode_t PARENT_FOLDER = 0755;

bool refused(const std::string& path, const char* what) {
    hostReport("the daemon does not start: {}: {}: {}", path, what, std::strerror(errno));
    return false;
}

// A folder of somebody else, such as the one that a service manager made, keeps its owner and mode.
bool makeFolder(const std::string& folder) {
    const std::string parent = folder.substr(0, folder.rfind('/'));
    if (mkdir(parent.c_str(), PARENT_FOLDER) != 0 && errno != EEXIST) return refused(parent, "not made");
    if (mkdir(folder.c_str(), FOLDER_OF_OWNER) != 0 && errno != EEXIST) return refused(folder, "not made");
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return refused(folder, "cannot be used");
    struct stat present = {};
    const auto& group = socketAccess().group;
    if (fstat(fd, &present) == 0 && present.st_uid == geteuid()) {
        const bool shared = group && fchown(fd, static_cast<uid_t>(-1), *group) == 0;
        fchmod(fd, shared ? FOLDER_OF_GROUP : FOLDER_OF_OWNER);
        if (shared && !admitReadersTo(fd)) {
            hostReport("{} is not for the group {}: {}", folder, READERS_GROUP, std::strerror(errno));
        }
    }
    close(fd);
    return true;
}

struct flock wholeFile() {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// The descriptor stays open until the process ends, and nothing else of the process may open this file:
// closing any descriptor of it would give the lock back.
bool takeLock(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, OWNER_ONLY);
    if (fd < 0) return refused(path, "cannot be opened");
    for (;;) {
        struct flock wanted = wholeFile();
        if (fcntl(fd, F_SETLK, &wanted) == 0) return true;
        if (errno != EAGAIN && errno != EACCES) return refused(path, "cannot be locked");
        struct flock held = wholeFile();
        // Free again by now: the other one has just ended.
        if (fcntl(fd, F_GETLK, &held) == 0 && held.l_type == F_UNLCK) continue;
        hostReport("another daemon is already serving {}/: process {} holds {}", rootPrefix(), held.l_pid,
                   path);
        close(fd);
        return false;
    }
}

bool writeProcessId(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, GROUP_READS);
    const std::string line = std::to_string(getpid()) + "\n";
    const bool written = fd >= 0 && write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    if (!written) refused(path, "cannot be written");
    if (fd >= 0) close(fd);
    return written;
}

}  // namespace

bool claimRunFolder() {
    const std::string folder = rootedPath(RUN_FOLDER);
    return makeFolder(folder) && takeLock(folder + LOCK_FILE) && writeProcessId(rootedPath(PID_FILE));
}
