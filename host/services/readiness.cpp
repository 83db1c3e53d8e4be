#include "host/services/readiness.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/files.h"
#include "common/manager.h"
#include "host/services/logging.h"

namespace {

constexpr char WATCHDOG_VARIABLE[] = "WATCHDOG_USEC";
constexpr char WATCHED_VARIABLE[] = "WATCHDOG_PID";
constexpr int SIGNS = 4;  // within the manager's patience

std::atomic<int64_t> gEventTaskSign = 0;  // monotonic milliseconds
std::atomic<int64_t> gTold = 0;
std::atomic<bool> gReady = false;  // the manager has been told; before that it counts no signs

int readInterval() {
    const char* patience = std::getenv(WATCHDOG_VARIABLE);
    const char* watched = std::getenv(WATCHED_VARIABLE);
    if (patience == nullptr || (watched != nullptr && std::atoi(watched) != getpid())) return -1;
    const long long microseconds = std::atoll(patience);
    if (microseconds <= 0) return -1;
    return static_cast<int>(std::clamp<long long>(microseconds / 1000 / SIGNS, 1, INT_MAX));
}

}  // namespace

void reportReady() {
    eventTaskLives();
    if (!tellManager("READY=1")) hostReport("the service manager was not notified: {}", std::strerror(errno));
    gReady = true;
}

int signInterval() {
    static const int interval = readInterval();
    return interval;
}

void eventTaskLives() {
    gEventTaskSign = monotonicMs();
}

void commandServerLives() {
    const int interval = signInterval();
    const int64_t now = monotonicMs();
    const bool due = interval >= 0 && gReady && now - gTold >= interval;
    if (!due || now - gEventTaskSign > interval * SIGNS / 2) return;
    // A manager that is too busy to take it is told in the next turn.
    if (tellManager("WATCHDOG=1")) gTold = now;
}
