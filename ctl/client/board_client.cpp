#include "ctl/client/board_client.h"

#include <algorithm>

#include "ctl/text/args.h"
#include "wire/framing.h"

namespace {

constexpr size_t ANSWER_MAX = 64 << 20;  // bytes; no board has more to tell
constexpr std::string_view ERROR_PREFIX = "error: ";

// Connects and sends `request` as a line.
bool sendLine(Stream& stream, const char* path, const std::string& request, int64_t timeoutMs) {
    const std::string line = request + "\n";
    return streamConnect(stream, socketPath(path), timeoutMs) &&
           streamSend(stream, line.data(), line.size(), deadlineAfter(timeoutMs));
}

// Lines of a stream, as they come in.
struct LineReader {
    Stream& stream;
    std::string pending;
    size_t total = 0;
    bool ended = false;
};

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
        if (reader.ended) {
            return false;
        }
        searched = reader.pending.size();
        char buffer[16384];
        const ssize_t got = streamReceive(reader.stream, buffer, sizeof(buffer), deadline);
        if (got < 0) {
            return false;
        }
        reader.ended = got == 0;
        reader.total += static_cast<size_t>(got);
        if (reader.pending.size() + static_cast<size_t>(got) > ANSWER_MAX ||
            (!endless && reader.total > ANSWER_MAX)) {
            reader.stream.failure = "the answer is too long";
            return false;
        }
        reader.pending.append(buffer, static_cast<size_t>(got));
        if (reader.ended && !reader.pending.empty()) {
            reader.pending += '\n';
        }
    }
}

LineResult failed(Stream& stream, std::string& why) {
    why = stream.failure.empty() ? "the connection was closed before the answer was whole" : stream.failure;
    streamClose(stream);
    return LineResult::failed;
}

void splitMembers(std::string_view text, std::vector<std::string>& members) {
    while (!text.empty() && text != "-") {
        const size_t comma = std::min(text.find(','), text.size());
        members.emplace_back(text.substr(0, comma));
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
}

bool setField(BoardInterface& interface, std::string_view key, std::string_view value) {
    const bool none = value == "-";
    if (key == "number") {
        return parseNumber(value, interface.number);
    }
    if (key == "slot") {
        return parseNumber(value, interface.slot);
    }
    if (key == "ability") {
        return parseNumber(value, interface.ability);
    }
    if (key == "vlan") {
        return none || parseNumber(value, interface.vlan);
    }
    if (key == "name") {
        interface.name = value;
    } else if (key == "kind") {
        interface.kind = value;
    } else if (key == "trunk") {
        interface.trunk = none ? "" : value;
    } else if (key == "present") {
        interface.present = value == "yes";
    } else if (key == "protocol") {
        interface.protocol = value == "on";
    } else if (key == "device") {
        interface.device = none ? "" : value;
    } else if (key == "access") {
        interface.access = value == "yes";
    } else if (key == "members") {
        splitMembers(value, interface.members);
    }
    return true;
}

}  // namespace

LineResult boardRequest(const std::string& request, int64_t timeoutMs, bool endless,
                        const std::function<bool(std::string_view)>& line, std::string& why) {
    Stream stream;
    if (!sendLine(stream, BOARD_SOCKET_PATH, request, timeoutMs)) {
        return failed(stream, why);
    }
    LineReader reader{stream, {}};
    std::string text;
    const int64_t deadline = deadlineAfter(timeoutMs);
    if (!readLine(reader, text, deadline, endless)) {
        return failed(stream, why);
    }
    if (text != "ok") {
        streamClose(stream);
        const bool refused = text.starts_with(ERROR_PREFIX);
        why = refused ? text.substr(ERROR_PREFIX.size()) : "the answer is malformed";
        return refused ? LineResult::refused : LineResult::failed;
    }
    while (readLine(reader, text, endless ? DEADLINE_NEVER : deadline, endless)) {
        if (!line(text)) {
            streamClose(stream);
            return LineResult::done;
        }
    }
    if (!reader.ended) {
        return failed(stream, why);
    }
    streamClose(stream);
    return LineResult::done;
}

LineResult shellRequest(const std::string& function, int64_t timeoutMs, std::string& printout,
                        std::string& why) {
    Stream stream;
    if (!sendLine(stream, SHELL_SOCKET_PATH, function, timeoutMs)) {
        return failed(stream, why);
    }
    const int64_t deadline = deadlineAfter(timeoutMs);
    char buffer[16384];
    ssize_t got;
    while ((got = streamReceive(stream, buffer, sizeof(buffer), deadline)) > 0) {
        printout.append(buffer, static_cast<size_t>(got));
        if (printout.size() > ANSWER_MAX) {
            stream.failure = "the answer is too long";
            return failed(stream, why);
        }
    }
    if (got < 0) {
        return failed(stream, why);
    }
    streamClose(stream);
    if (!printout.starts_with(ERROR_PREFIX)) {
        return LineResult::done;
    }
    why = printout.substr(ERROR_PREFIX.size(), printout.find('\n') - ERROR_PREFIX.size());
    return LineResult::refused;
}

bool parseBoardInterface(std::string_view line, BoardInterface& interface) {
    bool numbered = false;
    while (!line.empty()) {
        const size_t end = std::min(line.find(' '), line.size());
        const std::string_view word = line.substr(0, end);
        const size_t equals = word.find('=');
        if (equals != std::string_view::npos &&
            !setField(interface, word.substr(0, equals), word.substr(equals + 1))) {
            return false;
        }
        numbered = numbered || word.starts_with("number=");
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return numbered && !interface.name.empty();
}
