#include "host/board/journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>

#include "common/bytes.h"
#include "host/services/streams.h"

namespace {

std::atomic<uint64_t> gSequence = 0;  // number of the last call
std::atomic<bool> gHasFile = false;
std::mutex gLock;    // keeps the lines in the order of their numbers, and guards gTorn
bool gTorn = false;  // the file ends within a line
// Set once and then left alone but by the handler of a signal, which takes no lock.
std::atomic<int> gFile = -1;
char gPath[PATH_MAX] = "";
constexpr mode_t FILE_MODE = 0640;

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

// The file never blocks: it was opened so. A full disk, or a limit of file sizes, shows as a gap in the
// numbers.
void writeToFile(const std::string& line) {
    const std::string text = gTorn ? "\n" + line : line;
    const ssize_t put = write(gFile, text.data(), text.size());
    if (put > 0) gTorn = static_cast<size_t>(put) < text.size();
}

int openFile(int how) {
    return open(gPath, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC | how, FILE_MODE);
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
        if (gFile >= 0) writeToFile(line);
        queueLine(StreamKind::calls, line);
    }
    if (hasStream(StreamKind::everything)) {
        queueLine(StreamKind::everything, monitoredCall(sequence, call, status));
    }
}

int openJournalFile(const std::string& path) {
    if (path.size() >= sizeof(gPath)) return ENAMETOOLONG;
    std::memcpy(gPath, path.c_str(), path.size() + 1);
    gFile = openFile(O_TRUNC);
    gHasFile = gFile >= 0;
    return gHasFile ? 0 : errno;
}

// Nothing here takes a lock or memory. A writer's descriptor stays what it is and leads to the new file.
void reopenJournalFile() {
    const int before = errno;
    const int fd = gPath[0] == '\0' ? -1 : openFile(0);
    if (fd >= 0 && gFile >= 0) {
        dup3(fd, gFile, O_CLOEXEC);
        close(fd);
    } else if (fd >= 0) {
        gFile = fd;
        gHasFile = true;
    }
    errno = before;
}
