#include "host/board/journal.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <ctime>
#include <vector>

#include "common/text.h"

namespace {
constexpr size_t STREAM_BYTES_MAX = 256 * 1024;

std::atomic<uint64_t> gSequence = 0;
std::atomic<bool> gListened = false;
std::atomic<bool> gMonitored = false;
std::mutex gLock;  // guards the listeners, and keeps the lines in the order of their numbers
int gFile = -1;
std::vector<std::shared_ptr<JournalStream>> gStreams;

std::string callLine(uint64_t sequence, const HardwareCall& call, int32_t status) {
    std::string line;
    appendFormat(line, "{\"seq\":%" PRIu64 ",\"call\":\"%s\"", sequence, call.name);
    for (const CallWord& word : call.words) {
        if (word.name != nullptr) appendFormat(line, ",\"%s\":%" PRIu32, word.name, word.value);
    }
    if (call.record != nullptr)
        appendFormat(line, ",\"record\":{\"attrId\":%" PRIu32 ",\"flag\":%u,\"dataLen\":%u}",
                     call.record->attrId, call.record->flag, call.record->dataLen);
    if (call.control != nullptr)
        appendFormat(
            line, ",\"control\":{\"flags\":%" PRIu32 ",\"keyLength\":%" PRIu32 ",\"dataLength\":%" PRIu32 "}",
            call.control->flags, call.control->keyLength, call.control->dataLength);
    if (call.index != nullptr) line += ",\"index\":\"" + hexText(call.index, call.indexLength) + "\"";
    if (call.data != nullptr) line += ",\"data\":\"" + hexText(call.data, call.dataLength) + "\"";
    appendFormat(line, ",\"status\":%" PRId32 "}\n", status);
    return line;
}

std::string monitorStart(const char* kind) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::string line;
    appendFormat(line, "%s time=%lld.%06ld", kind, static_cast<long long>(now.tv_sec), now.tv_nsec / 1000);
    return line;
}

std::string monitoredCall(uint64_t sequence, const HardwareCall& call, int32_t status) {
    std::string line = monitorStart("hardware");
    appendFormat(line, " seq=%" PRIu64 " call=%s status=%" PRId32, sequence, call.name, status);
    for (const CallWord& word : call.words) {
        if (word.name != nullptr) appendFormat(line, " %s=%" PRIu32, word.name, word.value);
    }
    if (call.record != nullptr) appendFormat(line, " attrId=%" PRIu32, call.record->attrId);
    if (call.index != nullptr) line += " index=" + hexText(call.index, call.indexLength);
    if (call.data != nullptr) line += " data=" + hexText(call.data, call.dataLength);
    return line + "\n";
}

void queueLine(JournalStream& stream, const std::string& line) {
    std::lock_guard guard(stream.lock);
    // After a gap nothing more is queued until the reader has been told of it.
    if (stream.dropped > 0 || stream.bytes + line.size() > STREAM_BYTES_MAX) {
        stream.dropped++;
        return;
    }
    stream.bytes += line.size();
    stream.lines.push_back(line);
    eventfd_write(stream.wake, 1);
}

void updateListened() {
    gListened = gFile >= 0 || !gStreams.empty();
    gMonitored =
        std::any_of(gStreams.begin(), gStreams.end(), [](const auto& stream) { return stream->everything; });
}

void queueForMonitors(const std::string& line) {
    std::lock_guard guard(gLock);
    for (const auto& stream : gStreams) {
        if (stream->everything) queueLine(*stream, line);
    }
}
}  // namespace

void journalCall(const HardwareCall& call, int32_t status) {
    if (!gListened) {
        gSequence++;
        return;
    }
    std::lock_guard guard(gLock);
    const uint64_t sequence = ++gSequence;
    const std::string line = callLine(sequence, call, status);
    // The file never blocks: it was opened so. A full disk shows as a gap in the numbers.
    if (gFile >= 0 && write(gFile, line.data(), line.size()) < 0) errno = 0;
    const std::string monitored = gMonitored ? monitoredCall(sequence, call, status) : "";
    for (const auto& stream : gStreams) queueLine(*stream, stream->everything ? monitored : line);
}

void monitorRequest(const void* frame, size_t length, int32_t status) {
    if (!gMonitored) return;
    std::string line = monitorStart("request");
    appendFormat(line, " status=%" PRId32 " frame=", status);
    queueForMonitors(line + hexText(frame, length) + "\n");
}

void monitorEvent(uint32_t group, const void* messages, size_t length) {
    if (!gMonitored) return;
    std::string line = monitorStart("event");
    appendFormat(line, " group=%" PRIu32 " messages=", group);
    queueForMonitors(line + hexText(messages, length) + "\n");
}

void monitorText(unsigned priority, std::string_view head, std::string_view text) {
    if (!gMonitored) return;
    std::string line = monitorStart("log");
    appendFormat(line, " priority=%u channel=", priority);
    line += head;
    queueForMonitors(line + "text=" + printable(text) + "\n");
}

int openJournalFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0640);
    if (fd < 0) return errno;
    std::lock_guard guard(gLock);
    if (gFile >= 0) close(gFile);
    gFile = fd;
    updateListened();
    return 0;
}

std::shared_ptr<JournalStream> openJournalStream(bool everything) {
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) return nullptr;
    auto stream = std::make_shared<JournalStream>();
    stream->everything = everything;
    stream->wake = wake;
    std::lock_guard guard(gLock);
    gStreams.push_back(stream);
    updateListened();
    return stream;
}

void closeJournalStream(const std::shared_ptr<JournalStream>& stream) {
    std::lock_guard guard(gLock);
    std::erase(gStreams, stream);
    close(stream->wake);
    updateListened();
}

std::string takeJournalLines(JournalStream& stream) {
    std::lock_guard guard(stream.lock);
    eventfd_t count = 0;
    eventfd_read(stream.wake, &count);
    std::string text;
    text.reserve(stream.bytes);
    for (const std::string& line : stream.lines) text += line;
    // Lines are dropped only while others wait, so the note belongs behind them.
    if (stream.dropped > 0)
        appendFormat(text, stream.everything ? "dropped count=%" PRIu64 "\n" : "{\"dropped\":%" PRIu64 "}\n",
                     stream.dropped);
    stream.lines.clear();
    stream.bytes = 0;
    stream.dropped = 0;
    return text;
}
