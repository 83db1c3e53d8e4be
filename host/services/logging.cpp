#include "host/services/logging.h"

#include <poll.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <new>
#include <string>

#include "common/text.h"
#include "host/services/streams.h"
#include "platform/services.h"

namespace {

constexpr unsigned REPORT_PRIORITY = 4;
constexpr int FULL_PIPE_WAIT = 100;  // milliseconds that one line may wait for a reader that fell behind
// Bytes of a text, its end included.
constexpr size_t TEXT_MAX = 1024;
constexpr int START_REFUSED = 255;  // exit status; the service unit does not try again after it

std::mutex gLock;  // guards what follows, and keeps lines whole
uint64_t gLost = 0;

std::string timeStamp() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char day[32];
    std::strftime(day, sizeof(day), "%Y-%m-%d %H:%M:%S", &local);
    return fmt::format("{}.{:03} ", day, now.tv_nsec / 1000000);
}

std::string lineStart(unsigned priority) {
    static const bool serviceManager = std::getenv("JOURNAL_STREAM") != nullptr;
    return serviceManager ? fmt::format("<{}>", priority & 7u) : timeStamp();
}

// A pipe reports room only when a whole line fits, so the write below does not block. The lock is held.
bool roomFor(int wait) {
    pollfd output = {STDERR_FILENO, POLLOUT, 0};
    return poll(&output, 1, wait) == 1 && (output.revents & POLLOUT) != 0;
}

void putLine(const std::string& line) {
    // A failed write has nobody left to be reported to.
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) ++gLost;
}

// Called by the daemon, across which nothing is thrown: without memory the line is lost.
void channelOutput(const char* channel, bool hasCategory, uint32_t source, uint32_t priority,
                   const char* format, std::va_list arguments) {
    char text[TEXT_MAX];
    if (std::vsnprintf(text, sizeof(text), format, arguments) < 0) return;
    try {
        std::string head = fmt::format("{} level={} ", channel, source & 0xFFFFu);
        if (hasCategory) head += fmt::format("category={} ", gPortIsolateTextCategory);
        writeLogLine(priority, head, text);
    } catch (const std::bad_alloc&) {
        std::lock_guard guard(gLock);
        ++gLost;
    }
}

}  // namespace

void writeLogLine(unsigned priority, std::string_view head, std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    monitorText(priority, head, text);
    writeUnmonitored(priority, head, text);
}

void writeUnmonitored(unsigned priority, std::string_view head, std::string_view text) {
    std::string line = lineStart(priority);
    line += head;
    line += safeText(text);
    line += '\n';

    std::lock_guard guard(gLock);
    if (!roomFor(gLost == 0 ? FULL_PIPE_WAIT : 0)) {
        ++gLost;
        return;
    }
    if (gLost > 0) {
        const std::string lost = fmt::format("{}host {} lines were lost: standard error was not read\n",
                                             lineStart(REPORT_PRIORITY), gLost);
        gLost = 0;
        putLine(lost);
        if (!roomFor(0)) {
            ++gLost;
            return;
        }
    }
    putLine(line);
}

void reportRemark(std::string_view text) {
    writeLogLine(REPORT_PRIORITY, "host ", text.substr(0, TEXT_MAX - 1));
}

void refuseStart() {
    _exit(START_REFUSED);
}

void loggingDebugOutput(uint32_t source, uint32_t priority, uint32_t, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    channelOutput("debug", true, source, priority, format, arguments);
    va_end(arguments);
}

void loggingLogOutput(uint32_t source, uint32_t priority, uint32_t, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    channelOutput("log", false, source, priority, format, arguments);
    va_end(arguments);
}
