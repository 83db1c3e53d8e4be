#include "common/folder_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr uint32_t CHANGES = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                             IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

}  // namespace

FolderWatch watchFolderOf(const std::string& path) {
    FolderWatch watch = {inotify_init1(IN_CLOEXEC | IN_NONBLOCK), path.substr(0, path.rfind('/'))};
    if (watch.fd >= 0) inotify_add_watch(watch.fd, watch.folder.c_str(), CHANGES);
    return watch;
}

bool takeChanges(FolderWatch& watch) {
    if (watch.fd < 0) return false;
    alignas(inotify_event) char events[4096];
    bool changed = false;
    while (read(watch.fd, events, sizeof(events)) > 0) changed = true;
    // Another folder may stand in its place by now. The same one is watched once.
    inotify_add_watch(watch.fd, watch.folder.c_str(), CHANGES);
    return changed;
}
