#include "lib/link/board_client.h"

#include <algorithm>
#include <climits>

#include "common/bytes.h"
#include "common/fields.h"
#include "common/files.h"
#include "common/words.h"
#include "lib/text/args.h"

namespace {

constexpr size_t ANSWER_MAX = 64 << 20;  // bytes; no board has more to say
constexpr int64_t FOR_EVER = -1;

LineAnswer answerOf(int result, const char* reason) {
    if (result == PORTISOLATE_OK) return {};
    const bool refused = result == PORTISOLATE_REFUSED || result == PORTISOLATE_BROKEN;
    return {refused ? LineResult::refused : LineResult::failed, reason};
}

// Why there is no whole answer.
LineAnswer failed(const LineReader& reader, int result) {
    if (result == PORTISOLATE_LATE) return {LineResult::failed, "no answer in time"};
    const std::string why = portisolate_lines_error(reader.lines.get());
    return {LineResult::failed, why.empty() ? "the connection was closed before the answer was whole" : why};
}

int nextLine(LineReader& reader, int64_t waitMs, const char*& line) {
    const auto wait = static_cast<int>(std::clamp<int64_t>(waitMs, -1, INT_MAX));
    return portisolate_next_line(reader.lines.get(), wait, &line);
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
    if (field.name == "span") interface.span = value == "yes";
    if (field.name == "members") splitMembers(value, interface.members);
    if (field.name == "alias") return none || parseHex(value, interface.alias);
    if (field.name == "names") return readNames(value, interface.otherNames);
    return true;
}

}  // namespace

LineAnswer boardStream(LineReader& reader, portisolate_connection* daemon, const std::string& request) {
    portisolate_lines* lines = nullptr;
    const int result = portisolate_ask_board(daemon, request.c_str(), &lines);
    reader.lines.reset(lines, portisolate_lines_free);
    return answerOf(result, portisolate_reason(daemon));
}

Taken takeLine(LineReader& reader, std::string& line, int64_t waitMs) {
    const char* text = nullptr;
    const int result = nextLine(reader, waitMs, text);
    if (result == PORTISOLATE_OK) line = text;
    return result == PORTISOLATE_OK ? Taken::line : result == PORTISOLATE_LATE ? Taken::none : Taken::end;
}

int descriptorOf(const LineReader& reader) {
    return portisolate_lines_descriptor(reader.lines.get());
}

LineAnswer boardRequest(portisolate_connection* daemon, const std::string& request, int64_t timeoutMs,
                        bool endless, const LineSink& sink) {
    const int64_t deadline = monotonicMs() + timeoutMs;
    LineReader reader;
    LineAnswer asked = boardStream(reader, daemon, request);
    if (asked.result != LineResult::done) return asked;
    for (size_t total = 0;;) {
        const char* line = nullptr;
        const int64_t wait = endless ? FOR_EVER : std::max<int64_t>(deadline - monotonicMs(), 0);
        const int result = nextLine(reader, wait, line);
        if (result == PORTISOLATE_END) return {};
        if (result != PORTISOLATE_OK) return failed(reader, result);
        total += std::string_view(line).size();
        if (!endless && total > ANSWER_MAX) return {LineResult::failed, "the answer is too long"};
        if (!sink(line)) return {};
    }
}

LineAnswer shellRequest(portisolate_connection* daemon, const std::string& function) {
    const char* text = nullptr;
    size_t size = 0;
    const int result = portisolate_print(daemon, function.c_str(), &text, &size);
    if (result == PORTISOLATE_OK) return {LineResult::done, std::string(text, size)};
    const bool refused = result == PORTISOLATE_REFUSED;
    return {refused ? LineResult::refused : LineResult::failed, portisolate_reason(daemon)};
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
