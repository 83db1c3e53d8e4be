#include "lib/answers/happening_answer.h"

#include <algorithm>
#include <iterator>

#include "common/request_text.h"
#include "common/scalar_names.h"
#include "common/statuses.h"
#include "common/text.h"
#include "lib/link/interfaces.h"
#include "lib/text/args.h"
#include "wire/status.h"

namespace {

int32_t statusOf(const Happening& happening) {
    const std::string text = happeningText(happening, "status");
    uint32_t number = 0;
    const bool negative = text.starts_with('-');
    parseGivenNumber(std::string_view(text).substr(negative ? 1 : 0), number);
    return static_cast<int32_t>(negative ? 0u - number : number);
}

template <size_t COUNT>
bool isOneOf(const char* const (&names)[COUNT], const std::string& name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

// Null for a row of no interface, which is none.
Json nameJson(Session& session, uint32_t number) {
    return number != 0 ? Json(interfaceName(session, number)) : Json();
}

// What a request is about. Of a pair the interface is the target.
Json requestJson(Session& session, const RequestParts& parts) {
    const bool pair = parts.family == &PAIR_ROWS;
    const bool row = parts.family != nullptr;
    const bool scalar = parts.scalar != 0;
    return {{"operation", parts.operation},
            {"object", parts.object},
            {"group", row && !pair ? Json(parts.scope.number) : Json()},
            {"source", pair ? nameJson(session, parts.scope.number) : Json()},
            {"interface", nameJson(session, parts.member)},
            {"vlan", vlanJson(row ? parts.scope.vlan : parts.vlan)},
            {"scalar", scalar ? Json(scalarName(parts.scalar)) : Json()},
            {"value", scalar && parts.value ? Json(*parts.value) : Json()},
            {"fromPeer", parts.fromPeer}};
}

Json messagesJson(Session& session, const Happening& happening) {
    Json messages = Json::array();
    for (const EventMessage& message : eventMessages(session, happening)) {
        messages.push_back({{"event", message.event},
                            {"interface", nameJson(session, message.interface)},
                            {"text", message.sentence}});
    }
    return {{"messages", messages}};
}

Json isolationJson(Session& session, const IsolationCommand& command) {
    return {{"action", command.add ? "isolate" : "release"},
            {"direction", command.oneWay ? "one-way" : "two-way"},
            {"from", nameJson(session, command.from)},
            {"to", nameJson(session, command.to)},
            {"group", command.oneWay ? Json() : Json(command.group)},
            {"vlan", vlanJson(command.vlan)}};
}

Json detailsJson(Session& session, const Happening& happening) {
    if (happening.kind == "request") {
        return requestJson(session, requestParts(happeningBytes(happening, "frame")));
    }
    if (happening.kind == "event") return messagesJson(session, happening);
    const std::optional<IsolationCommand> isolation = isolationCommand(happening);
    return isolation ? isolationJson(session, *isolation) : Json::object();
}

void addOutcome(const Happening& happening, std::vector<std::string>& fields) {
    const HappeningEnd outcome = happeningEnd(happening);
    fields.push_back(jsonField("result", jsonText(outcome.result)));
    fields.push_back(jsonField("words", outcome.good ? "null" : jsonText(outcome.text)));
}

}  // namespace

HappeningEnd happeningEnd(const Happening& happening) {
    const int32_t status = statusOf(happening);
    const bool walk = happening.sentence.ends_with("get first") || happening.sentence.ends_with("get next");
    const bool good = status == STATUS_OK || (walk && status == STATUS_NOT_FOUND);
    const char* result = status == STATUS_OK ? "ok" : good ? "none" : "refused";
    return {good, result, good ? result : describeStatus(status)};
}

std::string happeningAnswer(Session& session, const Happening& happening) {
    constexpr const char* TEXTS[] = {"call", "program", "channel", "text"};
    constexpr const char* BYTES[] = {"frame", "messages", "index", "data"};
    // Of an event the board's group of events, and of a command a word that its details tell.
    const Json details = detailsJson(session, happening);
    std::vector<std::string> fields = {jsonField("kind", jsonText(happening.kind))};
    for (const Field& field : happening.fields) {
        const bool told = details.contains(field.name) || isOneOf(BYTES, field.name);
        if (told) continue;
        const bool bare = !isOneOf(TEXTS, field.name) && isBoardNumber(field.value);
        const std::string value = bare ? field.value : jsonText(field.value);
        fields.push_back(
            jsonField(happening.kind == "event" && field.name == "group" ? "eventGroup" : field.name, value));
        if (field.name == "status") addOutcome(happening, fields);
    }
    for (const auto& [name, value] : details.items()) fields.push_back(jsonField(name, jsonText(value)));
    if (happening.kind != "log" && happening.kind != "dropped") {
        fields.push_back(jsonField("text", jsonText(happening.sentence)));
    }
    return "{" + joinWords(fields, ",") + "}";
}
