#include "host/linux/namespace_lock.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/files.h"
#include "common/local_socket.h"
#include "host/services/logging.h"

namespace {

constexpr char LOCK_NAME[] = "portisolate.";  // and a number
constexpr uint32_t NAMES = 16;
constexpr int SEEKERS = 4096;
constexpr int64_t LISTEN_WAIT = 1000;  // milliseconds for one that has just taken a name to listen there
constexpr int LISTEN_STEP = 10;

int gLock = -1;  // open until the process ends

struct Address {
    sockaddr_un name = {};
    socklen_t size = 0;
};

Address addressOf(uint32_t number) {
    Address address;
    address.size = fillAbstractAddress(LOCK_NAME + std::to_string(number), address.name);
    return address;
}

int openSocket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// Who listens under the name.
enum class Asked : uint8_t { nobody, stranger, daemon };
Asked askHolder(uint32_t number, ucred& holder) {
    const int fd = openSocket();
    const Address address = addressOf(number);
    const bool connected = connect(fd, reinterpret_cast<const sockaddr*>(&address.name), address.size) == 0;
    // Full is the one of a stranger: a daemon takes everybody in.
    const bool full = !connected && errno == EAGAIN;
    const std::optional<ucred> known = connected ? processBehind(fd) : std::nullopt;
    close(fd);
    holder = known.value_or(ucred{});
    if (!known) return full ? Asked::stranger : Asked::nobody;
    return holder.uid == 0 || holder.uid == geteuid() ? Asked::daemon : Asked::stranger;
}

std::string heldBy(const ucred& holder) {
    return fmt::format(
        "the daemon does not start: another daemon, process {}, isolates in this network namespace; end it "
        "first",
        holder.pid);
}

// True with the lock, or a sentence in `problem`; false without, where the name is of no use.
bool takeName(uint32_t number, std::string& problem) {
    const Address address = addressOf(number);
    ucred holder = {};
    for (const int64_t deadline = monotonicMs() + LISTEN_WAIT;;) {
        if (bind(gLock, reinterpret_cast<const sockaddr*>(&address.name), address.size) == 0) {
            if (listen(gLock, SEEKERS) == 0) return true;
            problem = fmt::format("the daemon does not start: no lock of its network namespace: {}",
                                  std::strerror(errno));
            return true;
        }
        const Asked asked = askHolder(number, holder);
        if (asked == Asked::daemon) problem = heldBy(holder);
        if (asked == Asked::daemon) return true;
        if (asked == Asked::stranger || monotonicMs() >= deadline) break;
        poll(nullptr, 0, LISTEN_STEP);
    }
    hostReport("process {} of user {} holds the name @{}{} of the daemon's lock, and is passed over",
               holder.pid, holder.uid, LOCK_NAME, number);
    return false;
}

}  // namespace

std::string lockNamespace() {
    gLock = openSocket();
    std::string problem;
    uint32_t own = 0;
    while (own < NAMES && !takeName(own, problem)) ++own;
    // Nobody may keep the daemon from starting.
    if (own == NAMES) hostReport("a second daemon in this network namespace is not kept away");
    for (uint32_t number = 0; problem.empty() && number < NAMES; ++number) {
        ucred holder = {};
        if (number != own && askHolder(number, holder) == Asked::daemon) problem = heldBy(holder);
    }
    return problem;
}

void greetLockSeekers() {
    for (int fd = accept(gLock, nullptr, nullptr); fd >= 0; fd = accept(gLock, nullptr, nullptr)) close(fd);
}
