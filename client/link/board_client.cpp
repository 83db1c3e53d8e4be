#include "client/link/board_client.h"

#include <poll.h>

#include <algorithm>
#include <climits>

#include "client/text/args.h"
#include "client/text/fields.h"
#include "common/bytes.h"
#include "wire/framing.h"

namespace {

constexpr size_t ANSWER_MAX = 64 << 20;  // bytes; no board has more to say
constexpr char TOO_LONG[] = "the answer is too long";
constexpr std::string_view ERROR_PREFIX = "error: ";

// Connects and sends `request` as a line.
bool sendLine(Stream& stream, const std::string& path, const std::string& request, int64_t timeoutMs) {
    const std::string line = request + "\n";
    return streamConnect(stream, path, timeoutMs) && streamSend(stream, line.data(), line.size(), timeoutMs);
}

// False at the end of the stream and on failure; stream.failure tells them apart.
bool readLine(LineReader& reader, std::string& line, int64_t deadline, bool endless) {
    size_t searched = 0;
    for (;;) {
        const size_t end = reader.pending.find('\n', searched);
        if (end != std::string::npos) {
            line = reader.pending.substr(0, end);
            reader.pending.erase(0, end + 1);
            return true;
        }
        if (reader.ended) return false;
        searched = reader.pending.size();
        char buffer[16384];
        const ssize_t got = streamReceive(reader.stream, buffer, sizeof(buffer), deadline);
        if (got < 0) return false;
        reader.ended = got == 0;
        reader.total += static_cast<size_t>(got);
        if (reader.pending.size() + static_cast<size_t>(got) > ANSWER_MAX ||
            (!endless && reader.total > ANSWER_MAX)) {
            reader.stream.failure = TOO_LONG;
            return false;
        }
        reader.pending.append(buffer, static_cast<size_t>(got));
        if (reader.ended && !reader.pending.empty()) reader.pending += '\n';
    }
}

LineAnswer failed(Stream& stream) {
    streamClose(stream);
    return {LineResult::failed, stream.failure.empty()
                                    ? "the connection was closed before the answer was whole"
                                    : stream.failure};
}

void splitMembers(std::string_view text, std::vector<std::string>& members) {
    while (!text.empty() && text != "-") {
        const size_t comma = std::min(text.find(','), text.size());
        members.emplace_back(text.substr(0, comma));
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
}

bool readNames(std::string_view text, std::vector<std::string>& names) {
    std::vector<std::string> coded;
    splitMembers(text, coded);
    for (const std::string& one : coded) {
        if (!parseHex(one, names.emplace_back())) return false;
    }
    return true;
}

// False for a number or bytes that cannot be read.
bool setField(BoardInterface& interface, const Field& field) {
    const std::string& value = field.value;
    const bool none = value == "-";
    if (field.name == "number") return parseGivenNumber(value, interface.number);
    if (field.name == "slot") return parseGivenNumber(value, interface.slot);
    if (field.name == "ability") return parseGivenNumber(value, interface.ability);
    if (field.name == "life") return parseGivenNumber(value, interface.life);
    if (field.name == "vlan") return none || parseGivenNumber(value, interface.vlan);
    if (field.name == "name") interface.name = value;
    if (field.name == "kind") interface.kind = value;
    if (field.name == "trunk") interface.trunk = none ? "" : value;
    if (field.name == "present") {
        interface.present = value == "yes";
        interface.gone = value == "gone";
    }
    if (field.name == "protocol") interface.protocol = value == "on";
    if (field.name == "device") interface.device = none ? "" : value;
    if (field.name == "access") interface.access = value == "yes";
    if (field.name == "members") splitMembers(value, interface.members);
    if (field.name == "alias") return none || parseHex(value, interface.alias);
    if (field.name == "names") return readNames(value, interface.otherNames);
    return true;
}

}  // namespace

LineAnswer boardStream(LineReader& reader, const std::string& root, const std::string& request,
                       int64_t timeoutMs) {
    if (!sendLine(reader.stream, root + BOARD_SOCKET_PATH, request, timeoutMs)) return failed(reader.stream);
    std::string line;
    if (!readLine(reader, line, deadlineAfter(timeoutMs), true)) return failed(reader.stream);
    if (line == "ok") return {};
    streamClose(reader.stream);
    if (!line.starts_with(ERROR_PREFIX)) return {LineResult::failed, "the answer is malformed"};
    return {LineResult::refused, line.substr(ERROR_PREFIX.size())};
}

Taken takeLine(LineReader& reader, std::string& line, int64_t waitMs) {
    const bool waits = reader.pending.find('\n') == std::string::npos && !reader.ended;
    pollfd entry{reader.stream.fd, POLLIN, 0};
    const auto wait = static_cast<int>(std::clamp<int64_t>(waitMs, -1, INT_MAX));
    if (waits && poll(&entry, 1, wait) == 0) return Taken::none;
    return readLine(reader, line, DEADLINE_NEVER, true) ? Taken::line : Taken::end;
}

LineAnswer boardRequest(const std::string& root, const std::string& request, int64_t timeoutMs, bool endless,
                        const LineSink& sink) {
    const int64_t deadline = deadlineAfter(timeoutMs);
    LineReader reader;
    LineAnswer asked = boardStream(reader, root, request, timeoutMs);
    if (asked.result != LineResult::done) return asked;
    std::string line;
    while (readLine(reader, line, endless ? DEADLINE_NEVER : deadline, endless)) {
        if (!sink(line)) {
            streamClose(reader.stream);
            return {};
        }
    }
    if (!reader.ended) return failed(reader.stream);
    streamClose(reader.stream);
    return {};
}

LineAnswer shellRequest(const std::string& root, const std::string& function, int64_t timeoutMs) {
    Stream stream;
    if (!sendLine(stream, root + SHELL_SOCKET_PATH, function, timeoutMs)) return failed(stream);
    const int64_t deadline = deadlineAfter(timeoutMs);
    std::string printout;
    char buffer[16384];
    ssize_t got;
    while ((got = streamReceive(stream, buffer, sizeof(buffer), deadline)) > 0) {
        printout.append(buffer, static_cast<size_t>(got));
        if (printout.size() > ANSWER_MAX) {
            stream.failure = TOO_LONG;
            return failed(stream);
        }
    }
    if (got < 0) return failed(stream);
    streamClose(stream);
    if (!printout.starts_with(ERROR_PREFIX)) return {LineResult::done, printout};
    return {LineResult::refused,
            printout.substr(ERROR_PREFIX.size(), printout.find('\n') - ERROR_PREFIX.size())};
}

std::optional<BoardInterface> parseBoardInterface(std::string_view line) {
    BoardInterface interface;
    bool numbered = false;
    while (!line.empty()) {
        const std::string_view word = line.substr(0, line.find(' '));
        const bool valued = word.find('=') != std::string_view::npos;
        if (valued && !setField(interface, splitField(word))) return std::nullopt;
        numbered = numbered || word.starts_with("number=");
        line.remove_prefix(std::min(word.size() + 1, line.size()));
    }
    if (!numbered || interface.name.empty()) return std::nullopt;
    return interface;
}
