#include "host/services/streams.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <vector>

#include "common/bytes.h"
#include "common/text.h"

namespace {

std::mutex gLock;  // guards gStreams, and keeps the lines of all streams in one order
std::vector<std::shared_ptr<LineStream>> gStreams;
std::array<std::atomic<bool>, STREAM_KINDS> gRead = {};  // by kind

// The lock is held.
void noteReaders() {
    const auto anyOf = [](StreamKind kind) {
        return std::any_of(gStreams.begin(), gStreams.end(),
                           [kind](const auto& stream) { return stream->kind == kind; });
    };
    for (size_t kind = 0; kind < STREAM_KINDS; ++kind) gRead[kind] = anyOf(static_cast<StreamKind>(kind));
}

void append(LineStream& stream, const std::string& line) {
    std::lock_guard guard(stream.lock);
    // After a gap nothing more is queued until the reader has got the note of it.
    if (stream.dropped > 0 || stream.bytes + line.size() > STREAM_BYTES_MAX) {
        ++stream.dropped;
        return;
    }
    stream.bytes += line.size();
    stream.lines.push_back(line);
    eventfd_write(stream.fd, 1);
}

}  // namespace

std::shared_ptr<LineStream> openStream(StreamKind kind) {
    auto stream = std::make_shared<LineStream>();
    stream->kind = kind;
    std::lock_guard guard(gLock);
    gStreams.reserve(gStreams.size() + 1);  // where memory is short, before there is a descriptor to lose
    stream->fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stream->fd < 0) return nullptr;
    gStreams.push_back(stream);
    noteReaders();
    return stream;
}

void closeStream(const std::shared_ptr<LineStream>& stream) {
    std::lock_guard guard(gLock);
    std::erase(gStreams, stream);
    close(stream->fd);
    noteReaders();
}

std::string takeLines(LineStream& stream) {
    std::lock_guard guard(stream.lock);
    eventfd_t count = 0;
    eventfd_read(stream.fd, &count);
    std::string text;
    text.reserve(stream.bytes);
    for (const std::string& line : stream.lines) text += line;
    // Lines are dropped only while others wait, so the note belongs behind them.
    if (stream.dropped > 0) {
        text += stream.kind == StreamKind::calls ? fmt::format("{{\"dropped\":{}}}\n", stream.dropped)
                                                 : fmt::format("dropped count={}\n", stream.dropped);
    }
    stream.lines.clear();
    stream.bytes = 0;
    stream.dropped = 0;
    return text;
}

bool hasStream(StreamKind kind) {
    return gRead[static_cast<size_t>(kind)];
}

void queueLine(StreamKind kind, const std::string& line) {
    std::lock_guard guard(gLock);
    for (const auto& stream : gStreams) {
        if (stream->kind == kind) append(*stream, line);
    }
}

std::string monitorLine(const char* kind) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return fmt::format("{} time={}.{:06}", kind, now.tv_sec, now.tv_nsec / 1000);
}

void monitorRequest(const void* frame, size_t length, int32_t status, bool sets, std::string_view asker) {
    const bool toChanges = sets && hasStream(StreamKind::changes);
    if (!toChanges && !hasStream(StreamKind::everything)) return;
    const std::string line = fmt::format("{} status={} {} frame={}\n", monitorLine("request"), status, asker,
                                         hexText(frame, length));
    queueLine(StreamKind::everything, line);
    if (sets) queueLine(StreamKind::changes, line);
}

void monitorEvent(uint32_t group, const void* messages, size_t length) {
    if (!hasStream(StreamKind::everything) && !hasStream(StreamKind::changes)) return;
    const std::string line =
        fmt::format("{} group={} messages={}\n", monitorLine("event"), group, hexText(messages, length));
    queueLine(StreamKind::everything, line);
    queueLine(StreamKind::changes, line);
}

void monitorText(unsigned priority, std::string_view head, std::string_view text) {
    if (!hasStream(StreamKind::everything)) return;
    queueLine(StreamKind::everything, fmt::format("{} priority={} channel={}text={}\n", monitorLine("log"),
                                                  priority, head, safeText(text)));
}
