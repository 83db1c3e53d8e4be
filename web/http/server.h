// Serves HTTP to many clients at a time from one task with poll, in which nothing waits.
//
// Fairness
// --------
// A request is looked at once its head is whole, and no client has more than one request looked at or one
// answer on its way. A client that is slow to ask, or to read, costs its connection; when there are too many
// of these, the one that was idle longest goes, so that whoever comes is served. What is sent is shared by
// those who get the same, and what is held for slow readers is bounded in all. Followers of events have a
// bound of their own; one that lets too much wait is cut off.
//
// Thread-safety
// -------------
// The clients belong to the task that runs `serve`. deliver, publish and stop may be called by any task.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "web/http/message.h"

struct HttpLimits {
    size_t connections = 512;
    size_t followers = 64;
    size_t followerBytes = 256 << 10;  // that wait for one follower
    size_t heldBytes = 64 << 20;       // of answers on their way, each counted once
    int64_t headMs = 10000;            // from the first byte of a request to its last
    int64_t idleMs = 15000;            // of a connection without a request
    int64_t writeMs = 60000;           // of an answer on its way
    int64_t heartbeatMs = 15000;       // between signs of life to followers
};

struct HttpCounts {
    std::atomic<uint64_t> connections = 0, followers = 0;         // now
    std::atomic<uint64_t> requests = 0, evicted = 0, cutOff = 0;  // in all
};

struct HttpServer {
    HttpLimits limits{};
    HttpCounts counts{};
    int listener = -1;
    int wake = -1;  // an eventfd
    std::atomic<bool> stopped = false;

    std::mutex lock{};  // guards what others hand in
    std::vector<std::pair<std::vector<uint64_t>, Answer>> deliveries{};
    std::vector<std::pair<std::string, std::string>> events{};  // kind and JSON
    bool changed = false;
};

// The event that says that answers may differ from now on.
inline constexpr char EVENT_CHANGED[] = "changed";

// A listening socket, -1 with `problem` filled where there is none. The path of a local socket begins with /;
// one that nobody listens at is replaced.
int listenAt(const std::string& address, std::string& problem);
// "127.0.0.1:9757", with the port that the kernel chose for port 0; the path of a local socket.
std::string boundAddress(int listener);
bool isLoopback(int listener);  // or a local socket

// False when the server cannot be started, with errno set.
bool openServer(HttpServer& server);
void serve(HttpServer& server, const React& react);
void stopServer(HttpServer& server);

// Hands the answer to these connections; those that are gone are left out.
void deliver(HttpServer& server, const std::vector<uint64_t>& connections, const Answer& answer);
// Hands an event to all followers of its kind.
void publish(HttpServer& server, const std::string& kind, const std::string& json);
// Tells all followers, soon and several times a second at most, that something has changed.
void publishChange(HttpServer& server);
