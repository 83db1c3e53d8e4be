// The line sockets of the daemon's host: the board's, whose answers and streams are lines, and the process
// shell's, which answers with a printout.
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "common/files.h"
#include "lib/interface/connection.h"
#include "wire/framing.h"

namespace {

constexpr size_t ANSWER_MAX = 64 << 20;  // bytes; no board has more to say
constexpr char TOO_LONG[] = "the answer is too long";
constexpr char CUT_OFF[] = "the connection was closed before the answer was whole";
constexpr char LATE[] = "no answer in time";
constexpr std::string_view ERROR_PREFIX = "error: ";

bool isOneLine(const char* text) {
    return text != nullptr && std::strchr(text, '\n') == nullptr;
}

// PORTISOLATE_OK when something arrived, or the end of it.
int readMore(portisolate_lines& lines, int64_t deadline) {
    pollfd entry{lines.stream.fd, POLLIN, 0};
    const int64_t wait = deadline < 0 ? -1 : std::max<int64_t>(deadline - monotonicMs(), 0);
    const int ready = poll(&entry, 1, static_cast<int>(std::min<int64_t>(wait, INT_MAX)));
    if (ready == 0) return PORTISOLATE_LATE;
    if (ready < 0) return errno == EINTR ? PORTISOLATE_OK : PORTISOLATE_UNREACHABLE;
    char buffer[16384];
    const ssize_t got = streamReceive(lines.stream, buffer, sizeof(buffer), DEADLINE_NEVER);
    if (got < 0) return PORTISOLATE_UNREACHABLE;
    lines.ended = got == 0;
    lines.pending.append(buffer, static_cast<size_t>(got));
    if (lines.ended && !lines.pending.empty()) lines.pending += '\n';
    if (lines.pending.size() <= ANSWER_MAX) return PORTISOLATE_OK;
    lines.stream.failure = TOO_LONG;
    return PORTISOLATE_BROKEN;
}

// All that comes up to the end of the stream.
int readPrintout(Stream& stream, int64_t timeoutMs, std::string& printout) {
    const int64_t deadline = deadlineAfter(timeoutMs);
    char buffer[16384];
    for (;;) {
        const ssize_t got = streamReceive(stream, buffer, sizeof(buffer), deadline);
        if (got < 0) return PORTISOLATE_UNREACHABLE;
        if (got == 0) return PORTISOLATE_OK;
        printout.append(buffer, static_cast<size_t>(got));
        if (printout.size() <= ANSWER_MAX) continue;
        stream.failure = TOO_LONG;
        return PORTISOLATE_BROKEN;
    }
}

int print(portisolate_connection& connection, const std::string& function) {
    const int version = checkVersion(connection);
    if (version != PORTISOLATE_OK) return version;
    Stream stream;
    std::string& text = connection.text;
    text.clear();
    int result = PORTISOLATE_UNREACHABLE;
    if (sendLine(stream, connection.root + SHELL_SOCKET_PATH, function, connection.timeoutMs)) {
        result = readPrintout(stream, connection.timeoutMs, text);
    }
    streamClose(stream);
    if (result != PORTISOLATE_OK) return fail(connection, result, SHELL_SOCKET_PATH, stream.failure);
    if (!text.starts_with(ERROR_PREFIX)) return PORTISOLATE_OK;
    return fail(connection, PORTISOLATE_REFUSED, SHELL_SOCKET_PATH,
                text.substr(ERROR_PREFIX.size(), text.find('\n') - ERROR_PREFIX.size()));
}

}  // namespace

bool sendLine(Stream& stream, const std::string& path, const std::string& line, int64_t timeoutMs) {
    const std::string sent = line + "\n";
    return streamConnect(stream, path, timeoutMs) && streamSend(stream, sent.data(), sent.size(), timeoutMs);
}

int takeLine(portisolate_lines& lines, int64_t waitMs) {
    const int64_t deadline = waitMs < 0 ? DEADLINE_NEVER : deadlineAfter(waitMs);
    for (size_t searched = 0;;) {
        const size_t end = lines.pending.find('\n', searched);
        if (end != std::string::npos) {
            lines.line.assign(lines.pending, 0, end);
            lines.pending.erase(0, end + 1);
            return PORTISOLATE_OK;
        }
        if (lines.ended) return PORTISOLATE_END;
        searched = lines.pending.size();
        const int more = readMore(lines, deadline);
        if (more != PORTISOLATE_OK) return more;
    }
}

int askBoard(portisolate_lines& lines, const portisolate_connection& connection, const std::string& request,
             std::string& reason) {
    Stream& stream = lines.stream;
    const bool sent = sendLine(stream, connection.root + BOARD_SOCKET_PATH, request, connection.timeoutMs);
    const int taken = sent ? takeLine(lines, connection.timeoutMs) : int{PORTISOLATE_UNREACHABLE};
    if (taken != PORTISOLATE_OK) {
        reason = taken == PORTISOLATE_LATE ? LATE : stream.failure.empty() ? CUT_OFF : stream.failure;
        return taken == PORTISOLATE_BROKEN ? PORTISOLATE_BROKEN : PORTISOLATE_UNREACHABLE;
    }
    if (lines.line == "ok") return PORTISOLATE_OK;
    const bool refused = lines.line.starts_with(ERROR_PREFIX);
    reason = refused ? lines.line.substr(ERROR_PREFIX.size()) : "the answer is malformed";
    return refused ? PORTISOLATE_REFUSED : PORTISOLATE_BROKEN;
}

int portisolate_ask_board(portisolate_connection* connection, const char* request,
                          portisolate_lines** lines) {
    if (connection == nullptr || lines == nullptr || !isOneLine(request)) return PORTISOLATE_MISUSE;
    *lines = nullptr;
    return guarded([&] {
        const int version = checkVersion(*connection);
        if (version != PORTISOLATE_OK) return version;
        std::unique_ptr<portisolate_lines, void (*)(portisolate_lines*)> asked(new portisolate_lines,
                                                                               portisolate_lines_free);
        std::string reason;
        const int result = askBoard(*asked, *connection, request, reason);
        if (result != PORTISOLATE_OK) return fail(*connection, result, BOARD_SOCKET_PATH, reason);
        *lines = asked.release();
        return result;
    });
}

int portisolate_next_line(portisolate_lines* lines, int timeout, const char** line) {
    if (lines == nullptr || line == nullptr) return PORTISOLATE_MISUSE;
    const int result = guarded([&] { return takeLine(*lines, timeout); });
    *line = result == PORTISOLATE_OK ? lines->line.c_str() : nullptr;
    return result;
}

const char* portisolate_lines_error(const portisolate_lines* lines) {
    return lines == nullptr ? "" : lines->stream.failure.c_str();
}

int portisolate_lines_descriptor(const portisolate_lines* lines) {
    return lines == nullptr ? -1 : lines->stream.fd;
}

void portisolate_lines_free(portisolate_lines* lines) {
    if (lines == nullptr) return;
    streamClose(lines->stream);
    delete lines;
}

int portisolate_print(portisolate_connection* connection, const char* function, const char** text,
                      size_t* size) {
    if (connection == nullptr || text == nullptr || size == nullptr || !isOneLine(function)) {
        return PORTISOLATE_MISUSE;
    }
    const int result = guarded([&] { return print(*connection, function); });
    *text = connection->text.c_str();
    *size = connection->text.size();
    return result;
}
