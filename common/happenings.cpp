#include "common/happenings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "common/bytes.h"
#include "common/request_text.h"
#include "common/words.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "wire/records.h"

namespace {

// A record at a place of foreign bytes; zero where they end early.
template <typename Record>
Record recordAt(std::string_view bytes, size_t at) {
    Record record{};
    if (at < bytes.size()) {
        std::memcpy(&record, bytes.data() + at, std::min(sizeof(record), bytes.size() - at));
    }
    return record;
}

std::string isolationText(const InterfaceNamer& nameOf, const IsolationCommand& command) {
    std::string text = (command.add ? "isolate " : "release ") + nameOf(command.from) +
                       (command.oneWay ? " to " : " and ") + nameOf(command.to);
    if (!command.oneWay) text += fmt::format(", group {}", command.group);
    if (command.vlan != 0) text += fmt::format(" in VLAN {}", command.vlan);
    return text;
}

// A call that has no sentence of its own: its name and its numbers.
std::string callText(const Happening& happening) {
    std::string text = happeningText(happening, "call");
    for (const Field& field : happening.fields) {
        const bool told = field.name == "call" || field.name == "time" || field.name == "seq";
        text += told || field.name == "status" ? "" : " " + field.name + "=" + field.value;
    }
    return text;
}

std::string hardwareText(const InterfaceNamer& nameOf, const Happening& happening) {
    const std::string call = happeningText(happening, "call");
    const uint32_t opcode = happeningNumber(happening, "opcode");
    const uint32_t command = happeningNumber(happening, "command");
    const std::string data = happeningBytes(happening, "data");
    if (const auto isolation = isolationCommand(happening)) return isolationText(nameOf, *isolation);
    const char* protocol = opcode == DAX_IF_PROTO_ENABLE ? "protocol on" : "protocol off";
    if (call == "daxIfSyncApi") {
        return protocol + (" at " + nameOf(happeningNumber(happening, "ifUnit")));
    }
    if (call == "daxVlanSetApi") {
        return fmt::format("{} in VLAN {}", protocol, happeningNumber(happening, "vlan"));
    }
    if (call == "daxScalarSetApi" && data.size() == WORD_SIZE) return fmt::format("mode {}", wordAt(data, 0));
    const bool pon = call == "daxHwilCmdSetApi" && command == DAX_CMD_PON_ISOLATE;
    if (pon && data.size() >= sizeof(PonIsolateCmdData)) {
        const bool off = recordAt<PonIsolateCmdData>(data, 0).state == PON_ISOLATION_OFF;
        return fmt::format("PON isolation {} in VLAN {}", off ? "off" : "on",
                           happeningNumber(happening, "key"));
    }
    if (call == "daxHwilCmdSyncApi") return fmt::format("mirror to the peer, command 0x{:08X}", command);
    return callText(happening);
}

bool isQuery(const std::string& call) {
    for (const char* query :
         {"daxIfGetApi", "daxEthAggIfGetApi", "daxIndexTrans", "daxHwilIfGet", "daxHwilScalarGet"}) {
        if (call == query) return true;
    }
    return false;
}

size_t aligned(size_t length) {
    return (length + RT_ALIGN - 1) / RT_ALIGN * RT_ALIGN;
}

std::string attributesText(const InterfaceNamer& nameOf, std::string_view attributes) {
    std::string text;
    while (attributes.size() >= sizeof(RtAttr)) {
        const auto header = recordAt<RtAttr>(attributes, 0);
        const std::string member = nameOf(recordAt<uint32_t>(attributes, sizeof(RtAttr)));
        text += header.type == DAX_RTA_TRUNK_JOIN   ? " joined a trunk"
                : header.type == DAX_RTA_MEMBER_ADD ? " gained member " + member
                : header.type == DAX_RTA_MEMBER_DEL ? " lost member " + member
                                                    : fmt::format(" attribute {}", header.type);
        if (header.length < sizeof(RtAttr)) break;
        attributes.remove_prefix(std::min(aligned(header.length), attributes.size()));
    }
    return text;
}

EventMessage readMessage(const InterfaceNamer& nameOf, uint16_t type, std::string_view payload) {
    const auto link = recordAt<RtIfInfo>(payload, 0);
    const std::string name = nameOf(link.ifUnit);
    switch (type) {
        case DAX_RTM_NEWLINK:
            return {"link", link.ifUnit,
                    "link " + name + (link.changeMask == RT_CHANGE_REGISTER ? " registered" : "") +
                        attributesText(nameOf, payload.substr(std::min(sizeof(link), payload.size())))};
        case DAX_RTM_DELLINK:
            return {"gone", link.ifUnit, "link " + name + " is gone"};
        case DAX_RTM_IF_RESET:
            return {"reset", link.ifUnit, "reset of " + name};
        case DAX_RTM_CARD_UP:
            return {"card-up", 0, "a card came up"};
        case DAX_RTM_MODE_REFRESH:
            return {"mode-refresh", 0, "the mode is to be set again"};
        case DAX_RTM_SERIAL_SYNC:
            return {"serial-sync", 0, "the serial table is to be sent"};
        case DAX_RTM_RESET:
            return {"reset-all", 0, "reset of the configuration"};
        default:
            return {"other", 0, fmt::format("message of type {}", type)};
    }
}

std::string eventText(const InterfaceNamer& nameOf, const Happening& happening) {
    std::vector<std::string> texts;
    for (const EventMessage& message : eventMessages(nameOf, happening)) texts.push_back(message.sentence);
    return joinWords(texts, "; ");
}

bool readFields(std::string_view rest, Happening& happening) {
    constexpr std::string_view TEXT = "text=";
    while (!rest.empty()) {
        const bool text = rest.starts_with(TEXT);
        const size_t end = text ? rest.size() : std::min(rest.find(' '), rest.size());
        const std::string_view word = rest.substr(0, end);
        const size_t equals = word.find('=');
        if (equals == std::string_view::npos) return false;
        happening.fields.push_back(
            {std::string(word.substr(0, equals)), std::string(word.substr(equals + 1))});
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    for (const char* name : {"time", "status", "seq", "count", "priority"}) {
        const std::string* value = fieldValue(happening.fields, name);
        if (value != nullptr && !isBoardNumber(*value)) return false;
    }
    return true;
}

}  // namespace

const std::vector<std::string>& happeningKinds() {
    static const std::vector<std::string> kinds = {"request", "event", "hardware", "query", "log"};
    return kinds;
}

std::string happeningText(const Happening& happening, std::string_view name) {
    const std::string* value = fieldValue(happening.fields, name);
    return value != nullptr ? *value : "";
}

uint32_t happeningNumber(const Happening& happening, std::string_view name) {
    uint32_t number = 0;
    parseGivenNumber(happeningText(happening, name), number);
    return number;
}

bool isBoardNumber(std::string_view text) {
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    return !digits.empty() && digits.find_first_not_of("0123456789.") == std::string_view::npos;
}

std::string happeningBytes(const Happening& happening, std::string_view name) {
    std::string bytes;
    return parseHex(happeningText(happening, name), bytes) ? bytes : "";
}

std::vector<EventMessage> eventMessages(const InterfaceNamer& nameOf, const Happening& happening) {
    const std::string bytes = happeningBytes(happening, "messages");
    std::string_view rest = bytes;
    std::vector<EventMessage> messages;
    while (rest.size() >= sizeof(RtMsgHdr)) {
        const auto header = recordAt<RtMsgHdr>(rest, 0);
        if (header.length < sizeof(RtMsgHdr) || header.length > rest.size()) break;
        const std::string_view message = rest.substr(0, header.length);
        messages.push_back(readMessage(nameOf, header.type, message.substr(sizeof(RtMsgHdr))));
        rest.remove_prefix(std::min(aligned(header.length), rest.size()));
    }
    if (!rest.empty()) {
        messages.push_back({"other", 0, fmt::format("{} bytes that are no message", rest.size())});
    }
    return messages;
}

std::optional<IsolationCommand> isolationCommand(const Happening& happening) {
    if (happeningText(happening, "call") != "daxIfSyncApi" ||
        happeningNumber(happening, "opcode") != DAX_IF_ISOLATE) {
        return std::nullopt;
    }
    const auto data = recordAt<IsolateCmdData>(happeningBytes(happening, "data"), 0);
    const uint32_t attribute = happeningNumber(happening, "attrId");
    return IsolationCommand{.add = attribute == DAX_ISO_UNI_ADD || attribute == DAX_ISO_BI_ADD ||
                                   attribute == DAX_ISO_BI_VLAN_ADD,
                            .oneWay = attribute == DAX_ISO_UNI_ADD || attribute == DAX_ISO_UNI_DEL,
                            .from = happeningNumber(happening, "ifUnit"),
                            .to = data.dstIfUnit,
                            .group = data.grpNo,
                            .vlan = data.vid};
}

std::optional<Happening> readHappening(const InterfaceNamer& nameOf, std::string_view line) {
    Happening happening;
    const size_t blank = std::min(line.find(' '), line.size());
    happening.kind = line.substr(0, blank);
    if (!readFields(line.substr(std::min(blank + 1, line.size())), happening)) return std::nullopt;
    if (happening.kind == "request") {
        happening.sentence = requestText(nameOf, happeningBytes(happening, "frame"));
    } else if (happening.kind == "event") {
        happening.sentence = eventText(nameOf, happening);
    } else if (happening.kind == "hardware" && isQuery(happeningText(happening, "call"))) {
        happening.kind = "query";
        happening.sentence = callText(happening);
    } else if (happening.kind == "hardware") {
        happening.sentence = hardwareText(nameOf, happening);
    } else if (happening.kind == "log") {
        happening.sentence = happeningText(happening, "channel") + ": " + happeningText(happening, "text");
    } else if (happening.kind != "dropped") {
        return std::nullopt;
    }
    return happening;
}
