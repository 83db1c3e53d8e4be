#include "host/linux/link_watch.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

#include "common/files.h"
#include "host/linux/linux_board.h"
#include "host/linux/linux_plane.h"
#include "host/linux/namespace_lock.h"
#include "host/linux/table_watch.h"
#include "host/services/fault_report.h"
#include "host/services/logging.h"

namespace {

constexpr char WATCH_TASK[] = "linkwatcher";
constexpr int REREAD_INTERVAL = 1000;  // milliseconds between two attempts to list the devices

LinuxBoard* gLinux = nullptr;  // set before its task starts, lives as long as the process
// Of the task, and of the start before there is the task.
mnl_socket* gEvents = nullptr;
bool gFollowed = false;  // every change since the picture was taken is in it, or waits in gEvents

std::mutex gLock;  // guards gWaits, and gEvents while that is set
std::condition_variable gWaiting;
bool gWaits = false;  // the task found nothing to take and waits for more

// What a bridge takes for a frame's VLAN. One that is not there may be any.
BridgeVlans vlansOf(const KernelLink* bridge) {
    BridgeVlans vlans;
    if (bridge != nullptr) vlans.filters = bridge->filtersVlans;
    if (bridge != nullptr && bridge->vlanProtocol != 0) vlans.tagProtocol = bridge->vlanProtocol;
    return vlans;
}

SpanDevices spanDevicesOf(const LinuxBoard& linuxBoard) {
    const std::vector<std::string>& span = linuxBoard.board.span;
    SpanDevices devices;
    if (span.empty() || linuxBoard.bridge == 0) return devices;
    for (const auto& [index, link] : linuxBoard.links) {
        if (link.master != linuxBoard.bridge || std::ranges::find(span, link.name) == span.end()) continue;
        devices[link.name] = {.index = index, .carries = link.groupPolicy};
    }
    return devices;
}

// What the plane has to know of the bridge itself, and of its ports beside their names.
void followBridge(const LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    const BridgeVlans vlans = vlansOf(linkAt(linuxBoard.links, linuxBoard.bridge));
    std::lock_guard guard(board.lock);
    setLinuxVlans(board.plane, vlans);
    setLinuxSpan(board.plane, spanDevicesOf(linuxBoard));
}

// The same before there is a picture.
BridgeVlans vlansOf(const std::string& bridge) {
    KernelLinks links;
    dumpLinks(links);
    for (const auto& [index, link] : links) {
        if (link.name == bridge) return vlansOf(&link);
    }
    return {};
}

// Reads everything anew and takes over what differs.
bool reread(LinuxBoard& linuxBoard) {
    closeLinkEvents(gEvents);
    KernelLinks links;
    gEvents = pictureLinks(links);
    if (gEvents == nullptr) {
        hostReport("the kernel does not list its network devices, so they are not followed: {}",
                   std::strerror(errno));
        return false;
    }
    followLinks(linuxBoard, linkDifferences(linuxBoard.links, links));
    followBridge(linuxBoard);
    return true;
}

void markWaits(bool waits) {
    std::lock_guard guard(gLock);
    gWaits = waits;
    if (waits) gWaiting.notify_all();
}

// The task is marked as busy before it takes an event.
bool hasEvents(int64_t deadline) {
    markWaits(true);
    const auto left = static_cast<int>(std::max<int64_t>(deadline - monotonicMs(), 0));
    const bool arrived = awaitLinkEvents(gEvents, left);
    markWaits(false);
    return arrived;
}

void followUntil(LinuxBoard& linuxBoard, int64_t deadline) {
    while (hasEvents(deadline)) {
        LinkChanges changes;
        if (takeLinkEvents(gEvents, changes)) {
            followLinks(linuxBoard, changes);
            followBridge(linuxBoard);
        } else {
            hostReport("messages of the kernel were lost: its network devices are read anew");
            gFollowed = reread(linuxBoard);
        }
        if (!gFollowed || monotonicMs() >= deadline) return;
    }
}

void watchLinks(LinuxBoard* linuxBoard) {
    pthread_setname_np(pthread_self(), WATCH_TASK);
    prepareFaultStack();
    linuxBoard->publishes = true;
    for (;;) {
        if (gFollowed) {
            followUntil(*linuxBoard, monotonicMs() + REREAD_INTERVAL);
        } else {
            poll(nullptr, 0, REREAD_INTERVAL);
            gFollowed = reread(*linuxBoard);
        }
    }
}

void start(Board& board) {
    std::string problem;
    {
        std::lock_guard guard(board.lock);
        if (board.bridge.empty()) return;
        const std::string held = lockNamespace();
        if (!held.empty()) reportRemark(held);
        if (!held.empty()) refuseStart();
        problem = startLinuxPlane(board.plane, {.access = board.accessDevices,
                                                .frameMark = board.frameMark,
                                                .vlans = vlansOf(board.bridge),
                                                .healing = board.healing,
                                                .closed = board.closed,
                                                .bridge = board.bridge,
                                                .span = board.span});
        gLinux = new LinuxBoard(linuxBoardOf(board));
    }
    if (!problem.empty()) reportRemark(problem);
    gFollowed = reread(*gLinux);
    followSaved(*gLinux);
    if (gFollowed) reportLinuxBoard(*gLinux);
}

void watch() {
    if (gLinux == nullptr) return;
    try {
        std::thread(watchLinks, gLinux).detach();
        std::thread(watchTable, &gLinux->board).detach();
    } catch (const std::system_error& problem) {
        hostReport(
            "the daemon does not start: no task to follow the bridge's ports and the filter's table: {}",
            problem.what());
        refuseStart();
    }
}

void readSaved() {
    if (gLinux != nullptr) followSaved(*gLinux);
}

bool settle(uint32_t timeout) {
    if (gLinux == nullptr) return true;
    std::unique_lock guard(gLock);
    const auto settled = [] { return gWaits && !awaitLinkEvents(gEvents, 0); };
    return gWaiting.wait_for(guard, std::chrono::milliseconds(timeout), settled);
}

}  // namespace

const PortFollower BRIDGE_FOLLOWER = {
    .start = start, .watch = watch, .readSaved = readSaved, .settle = settle};
