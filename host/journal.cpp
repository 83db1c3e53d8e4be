#include "host/journal.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <vector>

#include "host/text.h"

namespace {
constexpr size_t STREAM_BYTES_MAX = 256 * 1024;

std::atomic<uint64_t> gSequence = 0;
std::atomic<bool> gListened = false;
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
}
}  // namespace

void journalCall(const HardwareCall& call, int32_t status) {
    if (!gListened) {
        gSequence++;
        return;
    }
    std::lock_guard guard(gLock);
    const std::string line = callLine(++gSequence, call, status);
    // The file never blocks: it was opened so. A full disk shows as a gap in the numbers.
    if (gFile >= 0 && write(gFile, line.data(), line.size()) < 0) errno = 0;
    for (const auto& stream : gStreams) queueLine(*stream, line);
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

std::shared_ptr<JournalStream> openJournalStream() {
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) return nullptr;
    auto stream = std::make_shared<JournalStream>();
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
    if (stream.dropped > 0) appendFormat(text, "{\"dropped\":%" PRIu64 "}\n", stream.dropped);
    stream.lines.clear();
    stream.bytes = 0;
    stream.dropped = 0;
    return text;
}
