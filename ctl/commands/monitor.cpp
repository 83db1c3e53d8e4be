#include "ctl/commands/monitor.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "ctl/client/interfaces.h"
#include "ctl/client/rows.h"
#include "ctl/client/settings.h"
#include "ctl/client/statuses.h"
#include "ctl/commands/board_commands.h"
#include "ctl/text/output.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "wire/framing.h"
#include "wire/records.h"
#include "wire/status.h"

namespace {

constexpr size_t WORD = sizeof(uint32_t);
constexpr size_t PON_STATE_OFFSET = 4;  // in the data of DAX_CMD_PON_ISOLATE
constexpr size_t KIND_WIDTH = 8;

const std::vector<std::string> KINDS = {"request", "event", "hardware", "query", "log"};

std::string fieldOf(const Happening& happening, std::string_view name) {
    const std::string* value = optionValue(happening.fields, name);
    return value != nullptr ? *value : "";
}

uint32_t numberOf(const Happening& happening, std::string_view name) {
    uint32_t number = 0;
    parseNumber(fieldOf(happening, name), number);
    return number;
}

int32_t statusOf(const Happening& happening) {
    const std::string text = fieldOf(happening, "status");
    uint32_t number = 0;
    const bool negative = text.starts_with('-');
    parseNumber(std::string_view(text).substr(negative ? 1 : 0), number);
    return static_cast<int32_t>(negative ? 0u - number : number);
}

std::string bytesOf(const Happening& happening, std::string_view name) {
    std::string bytes;
    return parseHex(fieldOf(happening, name), bytes) ? bytes : "";
}

// A record at a place of foreign bytes; zero where they end early.
template <typename Record>
Record recordAt(std::string_view bytes, size_t at) {
    Record record{};
    if (at < bytes.size()) {
        std::memcpy(&record, bytes.data() + at, std::min(sizeof(record), bytes.size() - at));
    }
    return record;
}

const char* actionWord(uint32_t action) {
    switch (action) {
        case ROW_ACTIVATE:
            return "activate";
        case ROW_CREATE:
            return "create";
        case ROW_PROBE:
            return "probe";
        case ROW_DESTROY:
            return "destroy";
        default:
            return "unknown row status";
    }
}

const RowFamily* familyOf(uint32_t opcode) {
    for (const RowFamily* family : {&GROUP_ROWS, &PAIR_ROWS, &VLAN_GROUP_ROWS}) {
        const uint32_t opSync = family->opSet + 1;
        for (const uint32_t known : {family->opSet, opSync, family->opGet, family->opFirst, family->opNext}) {
            if (opcode == known) {
                return family;
            }
        }
    }
    return nullptr;
}

// A request taken apart; `index` and `value` are what was sent.
struct Asked {
    OpKind kind = OpKind::none;
    uint32_t opcode = 0;
    uint32_t column = 0;
    std::string index;
    std::string value;
};

bool takeApart(std::string_view frame, Asked& asked) {
    if (frame.size() < COMMAND_WORDS_MIN || wordAt(frame, 2) > frame.size() - COMMAND_WORDS_MIN) {
        return false;
    }
    asked.opcode = wordAt(frame, 0);
    asked.column = wordAt(frame, 1);
    asked.index = frame.substr(3 * WORD, wordAt(frame, 2));
    asked.value = frame.substr(COMMAND_WORDS_MIN + asked.index.size());
    asked.kind = asked.opcode < OP_COUNT ? PORT_ISOLATE_OP_SHAPES[asked.opcode].kind : OpKind::none;
    return asked.kind != OpKind::none &&
           asked.index.size() == PORT_ISOLATE_OP_SHAPES[asked.opcode].indexLength;
}

std::string rowRequestText(Session& session, const RowFamily& family, const Asked& asked) {
    const uint32_t vlan = family.vlan < family.words ? wordAt(asked.index, family.vlan) : 0;
    const std::string row = rowText(session, family, {wordAt(asked.index, family.scope), vlan},
                                    wordAt(asked.index, family.member));
    switch (asked.kind) {
        case OpKind::set:
            return row + ": " +
                   (asked.value.size() == WORD ? actionWord(wordAt(asked.value, 0)) : "nothing to set");
        case OpKind::first:
            return std::string(family.object) + ": get first";
        case OpKind::next:
            return row + ": get next";
        default:
            return row + ": get";
    }
}

std::string valueRequestText(const Asked& asked) {
    const bool vlan = !asked.index.empty();
    const std::string object =
        vlan ? formatText("pon, VLAN %u", wordAt(asked.index, 0)) : "scalar " + scalarName(asked.column);
    switch (asked.kind) {
        case OpKind::set:
            if (asked.value.size() != WORD) {
                return object + formatText(": set %zu bytes", asked.value.size());
            }
            return object + (vlan
                                 ? std::string(wordAt(asked.value, 0) == PON_ISOLATION_OFF ? ": off" : ": on")
                                 : formatText(": set to %u", wordAt(asked.value, 0)));
        case OpKind::first:
            return "pon: get first";
        case OpKind::next:
            return object + ": get next";
        default:
            return object + ": get";
    }
}

bool isSync(uint32_t opcode) {
    return opcode == OP_SCALAR_SYNC || opcode == OP_GROUP_SYNC || opcode == OP_PAIR_SYNC ||
           opcode == OP_VLAN_SYNC || opcode == OP_VLAN_GROUP_SYNC;
}

std::string requestText(Session& session, const Happening& happening) {
    const std::string frame = bytesOf(happening, "frame");
    Asked asked;
    if (!takeApart(frame, asked)) {
        return frame.size() < WORD ? "unreadable" : formatText("unreadable, opcode %u", wordAt(frame, 0));
    }
    const RowFamily* family = familyOf(asked.opcode);
    return (isSync(asked.opcode) ? "from the peer: " : "") +
           (family != nullptr ? rowRequestText(session, *family, asked) : valueRequestText(asked));
}

std::string isolationText(Session& session, const Happening& happening) {
    const auto data = recordAt<IsolateCmdData>(bytesOf(happening, "data"), 0);
    const uint32_t attribute = numberOf(happening, "attrId");
    const bool uni = attribute == DAX_ISO_UNI_ADD || attribute == DAX_ISO_UNI_DEL;
    const bool add =
        uni ? attribute == DAX_ISO_UNI_ADD : attribute == DAX_ISO_BI_ADD || attribute == DAX_ISO_BI_VLAN_ADD;
    std::string text = (add ? "isolate " : "release ") +
                       interfaceName(session, numberOf(happening, "ifUnit")) + (uni ? " to " : " and ") +
                       interfaceName(session, data.dstIfUnit);
    if (!uni) {
        text += formatText(", group %u", data.grpNo);
    }
    if (data.vid != 0) {
        text += formatText(" in VLAN %u", data.vid);
    }
    return text;
}

// A call that has no sentence of its own: its name and its numbers.
std::string callText(const Happening& happening) {
    std::string text = fieldOf(happening, "call");
    for (const GivenOption& field : happening.fields) {
        const bool told = field.name == "call" || field.name == "time" || field.name == "seq";
        text += told || field.name == "status" ? "" : " " + field.name + "=" + field.value;
    }
    return text;
}

std::string hardwareText(Session& session, const Happening& happening) {
    const std::string call = fieldOf(happening, "call");
    const uint32_t opcode = numberOf(happening, "opcode");
    const uint32_t command = numberOf(happening, "command");
    const std::string data = bytesOf(happening, "data");
    const char* protocol = opcode == DAX_IF_PROTO_ENABLE ? "protocol on" : "protocol off";
    if (call == "daxIfSyncApi") {
        return opcode == DAX_IF_ISOLATE
                   ? isolationText(session, happening)
                   : protocol + (" at " + interfaceName(session, numberOf(happening, "ifUnit")));
    }
    if (call == "daxVlanSetApi") {
        return formatText("%s in VLAN %u", protocol, numberOf(happening, "vlan"));
    }
    if (call == "daxScalarSetApi" && data.size() == WORD) {
        return formatText("mode %u", wordAt(data, 0));
    }
    if (call == "daxHwilCmdSetApi" && command == DAX_CMD_PON_ISOLATE && data.size() > PON_STATE_OFFSET) {
        return formatText("PON isolation %s in VLAN %u",
                          data[PON_STATE_OFFSET] == static_cast<char>(PON_ISOLATION_OFF) ? "off" : "on",
                          numberOf(happening, "key"));
    }
    if (call == "daxHwilCmdSyncApi") {
        return formatText("mirror to the peer, command 0x%08X", command);
    }
    return callText(happening);
}

bool isQuery(const std::string& call) {
    for (const char* query :
         {"daxIfGetApi", "daxEthAggIfGetApi", "daxIndexTrans", "daxHwilIfGet", "daxHwilScalarGet"}) {
        if (call == query) {
            return true;
        }
    }
    return false;
}

size_t aligned(size_t length) {
    return (length + RT_ALIGN - 1) / RT_ALIGN * RT_ALIGN;
}

std::string attributesText(Session& session, std::string_view attributes) {
    std::string text;
    while (attributes.size() >= sizeof(RtAttr)) {
        const auto header = recordAt<RtAttr>(attributes, 0);
        const std::string member = interfaceName(session, recordAt<uint32_t>(attributes, sizeof(RtAttr)));
        text += header.type == DAX_RTA_TRUNK_JOIN   ? " joined a trunk"
                : header.type == DAX_RTA_MEMBER_ADD ? " gained member " + member
                : header.type == DAX_RTA_MEMBER_DEL ? " lost member " + member
                                                    : formatText(" attribute %u", header.type);
        if (header.length < sizeof(RtAttr)) {
            break;
        }
        attributes.remove_prefix(std::min(aligned(header.length), attributes.size()));
    }
    return text;
}

std::string messageText(Session& session, uint16_t type, std::string_view payload) {
    const auto link = recordAt<RtIfInfo>(payload, 0);
    switch (type) {
        case DAX_RTM_NEWLINK:
            return "link " + interfaceName(session, link.ifUnit) +
                   (link.changeMask == RT_CHANGE_REGISTER ? " registered" : "") +
                   attributesText(session, payload.substr(std::min(sizeof(link), payload.size())));
        case DAX_RTM_DELLINK:
            return "link " + interfaceName(session, link.ifUnit) + " is gone";
        case DAX_RTM_IF_RESET:
            return "reset of " + interfaceName(session, link.ifUnit);
        case DAX_RTM_CARD_UP:
            return "a card came up";
        case DAX_RTM_MODE_REFRESH:
            return "the mode is to be set again";
        case DAX_RTM_SERIAL_SYNC:
            return "the serial table is to be sent";
        case DAX_RTM_RESET:
            return "reset of the configuration";
        default:
            return formatText("message of type %u", type);
    }
}

std::string eventText(Session& session, const Happening& happening) {
    const std::string bytes = bytesOf(happening, "messages");
    std::string_view rest = bytes;
    std::vector<std::string> texts;
    while (rest.size() >= sizeof(RtMsgHdr)) {
        const auto header = recordAt<RtMsgHdr>(rest, 0);
        if (header.length < sizeof(RtMsgHdr) || header.length > rest.size()) {
            break;
        }
        const std::string_view message = rest.substr(0, header.length);
        texts.push_back(messageText(session, header.type, message.substr(sizeof(RtMsgHdr))));
        rest.remove_prefix(std::min(aligned(header.length), rest.size()));
    }
    if (!rest.empty()) {
        texts.push_back(formatText("%zu bytes that are no message", rest.size()));
    }
    return joinWords(texts, "; ");
}

std::string resultText(const Happening& happening, bool& good) {
    const int32_t status = statusOf(happening);
    const bool walk = happening.sentence.ends_with("get first") || happening.sentence.ends_with("get next");
    good = status == STATUS_OK || (walk && status == STATUS_NOT_FOUND);
    return status == STATUS_OK ? "ok" : good ? "none" : describeStatus(status);
}

// The part of a line that says when, in local time.
std::string clockText(const Happening& happening) {
    const std::string time = fieldOf(happening, "time");
    const size_t point = std::min(time.find('.'), time.size());
    uint32_t seconds = 0;
    parseNumber(std::string_view(time).substr(0, point), seconds);
    const time_t when = seconds;
    tm local{};
    localtime_r(&when, &local);
    return formatText("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec) + time.substr(point);
}

void printText(const Happening& happening) {
    if (happening.kind == "dropped") {
        printLine(toned(Tone::warning, "-- " + fieldOf(happening, "count") + " lines were dropped here"));
        return;
    }
    std::string line = toned(Tone::faint, clockText(happening)) + "  " +
                       toned(Tone::heading, padded(happening.kind, KIND_WIDTH)) + "  " +
                       safeText(happening.sentence);
    if (optionValue(happening.fields, "status") != nullptr) {
        bool good = true;
        const std::string result = resultText(happening, good);
        line += " -> " + toned(good ? Tone::good : Tone::bad, result);
    }
    printLine(line);
}

bool isNumber(std::string_view text) {
    const bool negative = text.starts_with('-');
    const std::string_view digits = text.substr(negative ? 1 : 0);
    return !digits.empty() && digits.find_first_not_of("0123456789.") == std::string_view::npos;
}

void printJson(const Happening& happening) {
    std::string object = "{\"kind\":" + jsonString(happening.kind);
    for (const GivenOption& field : happening.fields) {
        const char* const texts[] = {"call", "channel", "frame", "messages", "index", "data", "text"};
        const bool text = std::any_of(std::begin(texts), std::end(texts),
                                      [&](const char* name) { return field.name == name; });
        const bool bare = !text && isNumber(field.value);
        object += "," + jsonString(field.name) + ":" + (bare ? field.value : jsonString(field.value));
    }
    if (happening.kind != "log" && happening.kind != "dropped") {
        object += ",\"text\":" + jsonString(happening.sentence);
    }
    printLine(object + "}");
}

bool readFields(std::string_view rest, Happening& happening) {
    constexpr std::string_view TEXT = "text=";
    while (!rest.empty()) {
        const bool text = rest.starts_with(TEXT);
        const size_t end = text ? rest.size() : std::min(rest.find(' '), rest.size());
        const std::string_view word = rest.substr(0, end);
        const size_t equals = word.find('=');
        if (equals == std::string_view::npos) {
            return false;
        }
        happening.fields.push_back(
            {std::string(word.substr(0, equals)), std::string(word.substr(equals + 1))});
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    for (const char* name : {"time", "status", "seq", "count", "priority"}) {
        const std::string* value = optionValue(happening.fields, name);
        if (value != nullptr && !isNumber(*value)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool readHappening(Session& session, std::string_view line, Happening& happening) {
    const size_t blank = std::min(line.find(' '), line.size());
    happening.kind = line.substr(0, blank);
    if (!readFields(line.substr(std::min(blank + 1, line.size())), happening)) {
        return false;
    }
    if (happening.kind == "request") {
        happening.sentence = requestText(session, happening);
    } else if (happening.kind == "event") {
        happening.sentence = eventText(session, happening);
    } else if (happening.kind == "hardware") {
        happening.kind = isQuery(fieldOf(happening, "call")) ? "query" : happening.kind;
        happening.sentence =
            happening.kind == "query" ? callText(happening) : hardwareText(session, happening);
    } else if (happening.kind == "log") {
        happening.sentence = fieldOf(happening, "channel") + ": " + fieldOf(happening, "text");
    } else {
        return happening.kind == "dropped";
    }
    return true;
}

Exit runMonitor(Session& session, const Invocation& invocation) {
    std::vector<std::string> kinds;
    for (const std::string& text : invocation.arguments) {
        std::string error;
        kinds.push_back(KINDS[pickName(KINDS, text, "kind", error)]);
        if (!error.empty()) {
            return misuse(error);
        }
    }
    const auto wanted = [&](const std::string& kind) {
        return kind == "dropped" ||
               (kinds.empty() ? kind != "query" : std::find(kinds.begin(), kinds.end(), kind) != kinds.end());
    };
    boardInterfaces(session);
    return streamBoard(session, invocation, "monitor", [&](std::string_view line) {
        Happening happening;
        if (!readHappening(session, line, happening) || !wanted(happening.kind)) {
            return false;
        }
        session.json ? printJson(happening) : printText(happening);
        return true;
    });
}
