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
#include "host/services/fault_report.h"
#include "host/services/logging.h"

namespace {

constexpr char WATCH_TASK[] = "linkwatcher";
constexpr int TABLE_INTERVAL = 1000;  // milliseconds between two looks at the kernel's table

LinuxBoard* gLinux = nullptr;  // set before its task starts, lives as long as the process
// Of the task, and of the start before there is the task.
mnl_socket* gEvents = nullptr;
bool gFollowed = false;  // every change since the picture was taken is in it, or waits in gEvents

std::mutex gLock;  // guards gWaits, and gEvents while that is set
std::condition_variable gWaiting;
bool gWaits = false;  // the task found nothing to take and waits for more

// Hands the plane the VLANs that the ports of a VLAN-filtering bridge send without a tag. They change without
// a change of any device, so this follows every message of the kernel.
void followUntagged(const LinuxBoard& linuxBoard) {
    Board& board = linuxBoard.board;
    UntaggedVlans vlans;
    EgressVlans egress;
    const KernelLink* bridge = linkAt(linuxBoard.links, linuxBoard.bridge);
    if (bridge != nullptr && bridge->filtersVlans && !dumpUntaggedVlans(linuxBoard.bridge, vlans)) return;
    for (const auto& [index, untagged] : vlans) {
        const KernelLink* port = linkAt(linuxBoard.links, index);
        if (port != nullptr && !untagged.empty()) egress.emplace(port->name, untagged);
    }
    std::lock_guard guard(board.lock);
    setLinuxEgress(board.plane, egress);
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
    followUntagged(linuxBoard);
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
            followUntagged(linuxBoard);
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
            followUntil(*linuxBoard, monotonicMs() + TABLE_INTERVAL);
        } else {
            poll(nullptr, 0, TABLE_INTERVAL);
            gFollowed = reread(*linuxBoard);
        }
        std::lock_guard guard(linuxBoard->board.lock);
        watchLinuxTable(linuxBoard->board.plane);
    }
}

void start(Board& board) {
    std::string problem;
    {
        std::lock_guard guard(board.lock);
        if (board.bridge.empty()) return;
        problem = startLinuxPlane(board.plane, board.accessDevices);
        gLinux = new LinuxBoard(linuxBoardOf(board));
    }
    if (!problem.empty()) reportRemark(problem);
    gFollowed = reread(*gLinux);
    if (gFollowed) reportLinuxBoard(*gLinux);
}

void watch() {
    if (gLinux == nullptr) return;
    try {
        std::thread(watchLinks, gLinux).detach();
    } catch (const std::system_error& problem) {
        hostReport("the daemon does not start: no task to follow the bridge's ports: {}", problem.what());
        refuseStart();
    }
}

bool settle(uint32_t timeout) {
    if (gLinux == nullptr) return true;
    std::unique_lock guard(gLock);
    const auto settled = [] { return gWaits && !awaitLinkEvents(gEvents, 0); };
    return gWaiting.wait_for(guard, std::chrono::milliseconds(timeout), settled);
}

}  // namespace

const PortFollower BRIDGE_FOLLOWER = {.start = start, .watch = watch, .settle = settle};
