#include "host/linux/table_watch.h"

#include <pthread.h>

#include <cstring>
#include <mutex>

#include "common/files.h"
#include "host/linux/linux_plane.h"
#include "host/linux/namespace_lock.h"
#include "host/linux/nft_events.h"
#include "host/services/fault_report.h"
#include "host/services/logging.h"

namespace {

constexpr char WATCH_TASK[] = "tablewatcher";
constexpr int TABLE_INTERVAL = 1000;  // milliseconds between two looks

void subscribe(Board& board, TableEvents& events) {
    uint32_t port = 0;
    {
        std::lock_guard guard(board.lock);
        port = watchedPort(board.plane);
    }
    const int problem = port == 0 ? 0 : openTableEvents(events, port);
    if (problem == 0) return;
    hostReport(
        "the kernel does not tell who changes its filter, which is looked at once a second instead: {}",
        std::strerror(problem));
}

// Who has touched the table, if anybody before the deadline.
TableNews awaitNews(TableEvents& events, int64_t deadline) {
    for (;;) {
        const int64_t left = deadline - monotonicMs();
        if (left <= 0 || !awaitTableEvents(events, static_cast<int>(left))) return {};
        TableNews news = takeTableEvents(events);
        if (news.touched) return news;
    }
}

}  // namespace

void watchTable(Board* board) {
    pthread_setname_np(pthread_self(), WATCH_TASK);
    prepareFaultStack();
    TableEvents events;
    subscribe(*board, events);
    // The first look is for what was done before the subscription.
    for (TableNews news;; news = awaitNews(events, monotonicMs() + TABLE_INTERVAL)) {
        greetLockSeekers();
        std::lock_guard guard(board->lock);
        watchLinuxTable(board->plane, news.by);
    }
}
