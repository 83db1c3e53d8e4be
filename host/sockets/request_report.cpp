#include "host/sockets/request_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "common/files.h"
#include "common/request_text.h"
#include "common/statuses.h"
#include "host/services/logging.h"
#include "host/services/streams.h"
#include "platform/hardware.h"
#include "wire/status.h"

namespace {

constexpr unsigned CHANGE_PRIORITY = 6;
constexpr size_t NAME_MAX_SIZE = 64;  // of an interface
constexpr char UNKNOWN_PROGRAM[] = "unknown";

// The first 15 characters of the program's name, as the kernel keeps it; each that would not be one of a word
// is replaced.
std::string programOf(pid_t process) {
    std::string text;
    std::string problem;
    if (!readRegularFile(fmt::format("/proc/{}/comm", process), text, problem)) return UNKNOWN_PROGRAM;
    text.resize(std::min(text.find('\n'), text.size()));
    for (char& letter : text) {
        const bool plain = letter > ' ' && letter < '\x7F';
        if (!plain) letter = '_';
    }
    return text.empty() ? UNKNOWN_PROGRAM : text;
}

std::string interfaceName(uint32_t number) {
    char name[NAME_MAX_SIZE];
    return daxIfUnit2Name(number, name, sizeof(name));
}

}  // namespace

void reportRequest(CommandClient& client, const uint8_t* frame, size_t length, int32_t status) {
    const std::string_view bytes(reinterpret_cast<const char*>(frame), length);
    const bool sets = requestSets(bytes);
    if (!sets && !hasStream(StreamKind::everything)) return;
    if (client.program.empty()) client.program = programOf(client.process.process);
    const PeerProcess& process = client.process;
    monitorRequest(frame, length, status, sets,
                   fmt::format("uid={} pid={} program={}", process.user, process.process, client.program));
    if (!sets) return;
    const std::string result = status == STATUS_OK ? "done" : describeStatus(status);
    writeUnmonitored(CHANGE_PRIORITY, "change ",
                     fmt::format("by uid {}, pid {} ({}): {} -> {}", process.user, process.process,
                                 client.program, requestText(interfaceName, bytes), result));
}
