// Follows what happens in the daemon by its monitor, for as long as it runs and whenever it comes back:
// counts it, and hands it on as events.
//
// What this process asks of the daemon is part of the monitor; it is neither counted nor handed on.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

// Counted since this program started.
struct Happened {
    std::map<std::array<std::string, 3>, uint64_t> requests{};  // by object, operation and result
    std::map<std::string, uint64_t> events{};
    std::map<std::string, uint64_t> commands{};  // to the hardware, by result
    uint64_t dropped = 0;                        // lines that the monitor had no room for
    double changed = 0;                          // when something was last set, in seconds; 0: not yet
    bool connected = false;
};

// The kinds of events: those of the monitor, and "change" for a request that sets something.
inline constexpr char KIND_CHANGE[] = "change";

struct Follower {
    std::function<void(const std::string& kind, const std::string& json)> publish{};
    std::function<void()> publishChange{};
    std::mutex lock{};  // guards `happened`
    Happened happened{};
    std::atomic<bool> stopped = false;
    std::thread thread{};
};

void startFollower(Follower& follower);
void stopFollower(Follower& follower);
Happened whatHappened(Follower& follower);
