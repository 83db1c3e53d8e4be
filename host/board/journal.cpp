#include "host/board/journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <nlohmann/json.hpp>

#include "common/bytes.h"
#include "host/services/streams.h"

namespace {

std::atomic<uint64_t> gSequence = 0;  // number of the last call
std::atomic<bool> gHasFile = false;
std::mutex gLock;  // guards gFile, and keeps the lines in the order of their numbers
int gFile = -1;

std::string callLine(uint64_t sequence, const HardwareCall& call, int32_t status) {
    nlohmann::ordered_json line = {{"seq", sequence}, {"call", call.name}};
    for (const CallWord& word : call.words) {
        if (word.name != nullptr) line[word.name] = word.value;
    }
    if (call.record != nullptr) {
        line["record"] = {
            {"attrId", call.record->attrId}, {"flag", call.record->flag}, {"dataLen", call.record->dataLen}};
    }
    if (call.control != nullptr) {
        line["control"] = {{"flags", call.control->flags},
                           {"keyLength", call.control->keyLength},
                           {"dataLength", call.control->dataLength}};
    }
    if (call.index != nullptr) line["index"] = hexText(call.index, call.indexLength);
    if (call.data != nullptr) line["data"] = hexText(call.data, call.dataLength);
    line["status"] = status;
    return line.dump() + "\n";
}

std::string monitoredCall(uint64_t sequence, const HardwareCall& call, int32_t status) {
    std::string line =
        fmt::format("{} seq={} call={} status={}", monitorLine("hardware"), sequence, call.name, status);
    for (const CallWord& word : call.words) {
        if (word.name != nullptr) line += fmt::format(" {}={}", word.name, word.value);
    }
    if (call.record != nullptr) line += fmt::format(" attrId={}", call.record->attrId);
    if (call.index != nullptr) line += " index=" + hexText(call.index, call.indexLength);
    if (call.data != nullptr) line += " data=" + hexText(call.data, call.dataLength);
    return line + "\n";
}

}  // namespace

void journalCall(const HardwareCall& call, int32_t status) {
    if (!gHasFile && !hasStream(StreamKind::calls) && !hasStream(StreamKind::everything)) {
        ++gSequence;
        return;
    }
    std::lock_guard guard(gLock);
    const uint64_t sequence = ++gSequence;
    if (gHasFile || hasStream(StreamKind::calls)) {
        const std::string line = callLine(sequence, call, status);
        // The file never blocks: it was opened so. A full disk shows as a gap in the numbers.
        if (gFile >= 0 && write(gFile, line.data(), line.size()) < 0) errno = 0;
        queueLine(StreamKind::calls, line);
    }
    if (hasStream(StreamKind::everything)) {
        queueLine(StreamKind::everything, monitoredCall(sequence, call, status));
    }
}

int openJournalFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0640);
    if (fd < 0) return errno;
    std::lock_guard guard(gLock);
    if (gFile >= 0) close(gFile);
    gFile = fd;
    gHasFile = true;
    return 0;
}
