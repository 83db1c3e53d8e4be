#include "ctl/commands/board_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>

#include "client/link/forward.h"
#include "client/link/interfaces.h"
#include "client/text/args.h"
#include "client/text/listing.h"
#include "common/text.h"
#include "ctl/commands/matrix.h"

namespace {

constexpr char PUBLISH_DETAILS[] =
    "  newlink INTERFACE [register] [join] [member-add INTERFACE]... [member-del INTERFACE]...\n"
    "  dellink INTERFACE, if-reset INTERFACE\n"
    "  reset, mode-refresh, serial-sync, card-up SLOT\n"
    "  raw EVENT-GROUP HEX    the bytes of the messages";

constexpr char FAULT_DETAILS[] =
    "  CALL NTH|every STATUS [if INTERFACE] [command NUMBER]\n"
    "                         the NTH matching call from now on, or every one, answers STATUS\n"
    "  list, clear            the rules that are set";

// The board takes its words apart at blanks, so a word cannot carry one.
void checkWords(const std::vector<std::string>& words) {
    const auto splits = [](char letter) {
        return letter == ' ' || static_cast<unsigned char>(letter) < 0x20;
    };
    for (const std::string& word : words) {
        if (word.empty() || std::any_of(word.begin(), word.end(), splits)) {
            throw misuse("\"" + word + "\" cannot be sent to the board: it is empty or contains blanks");
        }
    }
}

void printLines(const Session& session, const std::vector<std::string>& lines) {
    if (session.json) return printLine(jsonText(lines));
    for (const std::string& line : lines) printLine(safeText(line));
}

bool isIsolation(std::string_view kind) {
    return kind == "bi" || kind == "uni";
}

// Words of a line of `hardware`, with names in place of the interface numbers of an isolation.
std::vector<std::string> hardwareWords(Session& session, const std::string& line) {
    std::vector<std::string> words = splitWords(line);
    uint32_t number = 0;
    for (size_t at = 1; at < std::min<size_t>(words.size(), 3) && isIsolation(words[0]); ++at) {
        if (parseGivenNumber(words[at], number)) words[at] = interfaceName(session, number);
    }
    return words;
}

// "bi ge1/1 ge1/2 vlan=0" as an object. A value that is a number is one in JSON, except the name of a port.
Json hardwareJson(const std::vector<std::string>& words) {
    const std::string& kind = words[0];
    Json object = {{"kind", kind}};
    for (size_t at = 1; at < words.size(); ++at) {
        const Field field = splitField(words[at]);
        const bool named = words[at].find('=') != std::string::npos;
        const bool end = isIsolation(kind) && at <= 2;
        const std::string& value = named ? field.value : words[at];
        uint32_t number = 0;
        const bool bare = !end && parseGivenNumber(value, number);
        const char* place = end ? (at == 1 ? "source" : "target") : kind == "pon-off" ? "vlan" : "value";
        object[named ? field.name : place] = bare ? Json(number) : Json(value);
    }
    return object;
}

// "daxIfSyncApi 2 status=0xffffffff if=1 seen=0" as an object.
Json faultJson(Session& session, const std::string& line) {
    Json object;
    for (const char* key : {"call", "nth", "status", "if", "command", "seen"}) object[key] = nullptr;
    const std::vector<std::string> words = splitWords(line);
    for (size_t at = 0; at < words.size(); ++at) {
        const Field field = splitField(words[at]);
        uint32_t number = 0;
        if (at == 0) {
            object["call"] = field.name;
        } else if (words[at].find('=') == std::string::npos) {
            if (parseGivenNumber(field.name, number)) object["nth"] = number;
        } else if (object.contains(field.name) && parseGivenNumber(field.value, number)) {
            object[field.name] = number;
        }
    }
    if (const Json& port = object["if"]; port.is_number()) {
        object["if"] = port != 0 ? Json(interfaceName(session, port)) : Json();
    }
    return object;
}

// The answer to a verb that is handed on; most have none.
std::string passedJson(Session& session, const Invocation& invocation,
                       const std::vector<std::string>& lines) {
    if (invocation.verb == "role" && lines.size() == 1) return jsonText({{"role", lines[0]}});
    Json rows = Json::array();
    for (const std::string& line : lines) {
        rows.push_back(invocation.verb == "fault" ? faultJson(session, line) : Json(line));
    }
    return jsonRows(rows);
}

// The same request for each of `numbers`, going on after a refusal.
Exit requestEach(Session& session, const std::string& request, const std::vector<uint32_t>& numbers) {
    Exit result = Exit::done;
    for (const uint32_t number : numbers) {
        std::vector<std::string> lines;
        try {
            lines = askBoard(session, request + " " + std::to_string(number));
        } catch (const CommandEnds& end) {
            if (end.exit != Exit::refused) throw;
            result = tellEnd(end);
        }
        printLines(session, lines);
    }
    return result;
}

Listing interfaceListing(const std::vector<BoardInterface>& interfaces) {
    const bool devices = std::any_of(interfaces.begin(), interfaces.end(), [](const BoardInterface& board) {
        return !board.device.empty() && board.device != board.name;
    });
    Listing listing{{{"NUMBER", "number"},
                     {"NAME", "name"},
                     {"KIND", "kind"},
                     {"SLOT", "slot"},
                     {"PRESENT", "present"},
                     {"TRUNK", "trunk"},
                     {"MEMBERS", "members"},
                     {"VLAN", "vlan"},
                     {"ABILITY", "ability"},
                     {"PROTOCOL", "protocol"},
                     {devices ? "DEVICE" : nullptr, "device"},
                     {nullptr, "access"}},
                    {}};
    for (const BoardInterface& board : interfaces) {
        listing.rows.push_back(
            {numberCell(board.number), textCell(board.name), textCell(board.kind), numberCell(board.slot),
             flagCell(board.present, "yes", "no"), board.trunk.empty() ? noCell() : textCell(board.trunk),
             listCell(board.members), board.vlan == 0 ? noCell() : numberCell(board.vlan),
             numberCell(board.ability), flagCell(board.protocol, "on", "off"),
             board.device.empty() ? noCell() : textCell(board.device), flagCell(board.access, "yes", "no")});
    }
    return listing;
}

Exit runList(Session& session, const Invocation&) {
    std::vector<BoardInterface> interfaces;
    for (const std::string& line : askBoard(session, "list")) {
        const std::optional<BoardInterface> interface = parseBoardInterface(line);
        if (!interface) throw brokenProtocol("an interface without number or name");
        interfaces.push_back(*interface);
    }
    printListing(interfaceListing(interfaces), session.json);
    return Exit::done;
}

// VERB INTERFACE...
Exit runEach(Session& session, const Invocation& invocation) {
    return requestEach(session, invocation.verb, resolveInterfaces(session, invocation.arguments));
}

// VERB TRUNK INTERFACE...
Exit runMembers(Session& session, const Invocation& invocation) {
    const uint32_t trunk = resolveInterface(session, invocation.arguments[0]);
    return requestEach(session, invocation.verb + " " + std::to_string(trunk),
                       resolveInterfaces(session, std::span(invocation.arguments).subspan(1)));
}

Exit runForward(Session& session, const Invocation& invocation) {
    const uint32_t from = resolveInterface(session, invocation.arguments[0]);
    const uint32_t to = resolveInterface(session, invocation.arguments[1]);
    const uint32_t vlan = vlanOption(invocation.options);
    const ForwardAnswer answer = askForward(session, from, to, vlan);
    if (!session.json) {
        printLine(safeText(answer.line));
        return Exit::done;
    }
    printLine(jsonText({{"from", interfaceName(session, from)},
                        {"to", interfaceName(session, to)},
                        {"vlan", vlan},
                        {"forwards", answer.word},
                        {"reason", answer.reason}}));
    return Exit::done;
}

Exit runHardware(Session& session, const Invocation&) {
    Json rows = Json::array();
    std::vector<std::string> lines;
    for (const std::string& line : askBoard(session, "hardware")) {
        const std::vector<std::string> words = hardwareWords(session, line);
        if (!words.empty()) rows.push_back(hardwareJson(words));
        lines.push_back(words.empty() ? line : joinWords(words, " "));
    }
    if (session.json) {
        printLine(jsonRows(rows));
    } else {
        printLines(session, lines);
    }
    return Exit::done;
}

Exit runJournal(Session& session, const Invocation& invocation) {
    followBoard(session, "journal", countOption(invocation), [](std::string_view line) {
        printLine(safeText(line));
        return true;
    });
    return Exit::done;
}

// Hands verb and arguments to the board as they are.
Exit runPass(Session& session, const Invocation& invocation) {
    checkWords(invocation.arguments);
    std::vector<std::string> words = invocation.arguments;
    words.insert(words.begin(), invocation.verb);
    const std::vector<std::string> lines = askBoard(session, joinWords(words, " "));
    const bool lists = invocation.verb == "fault" && invocation.arguments.front() == "list";
    if (!session.json) {
        printLines(session, lines);
    } else if (lists || !lines.empty()) {
        printLine(passedJson(session, invocation, lines));
    }
    return Exit::done;
}

constexpr Command BOARD_COMMANDS[] = {
    {.object = "board",
     .verb = "list",
     .help = "show the board's interfaces",
     .example = "board list",
     .run = runList,
     .json = "an array of {number, name, kind, slot, present, trunk, members, vlan, ability, protocol, "
             "device, access}"},
    {.object = "board",
     .verb = "unplug",
     .signature = "INTERFACE...",
     .help = "remove interfaces",
     .example = "board unplug ge1/3",
     .run = runEach},
    {.object = "board",
     .verb = "plug",
     .signature = "INTERFACE...",
     .help = "bring removed interfaces back",
     .example = "board plug ge1/3",
     .run = runEach},
    {.object = "board",
     .verb = "join",
     .signature = "TRUNK INTERFACE...",
     .help = "put ports into a trunk",
     .example = "board join lag1 ge1/1",
     .run = runMembers},
    {.object = "board",
     .verb = "leave",
     .signature = "TRUNK INTERFACE...",
     .help = "take ports out of a trunk",
     .example = "board leave lag1 ge1/1",
     .run = runMembers},
    {.object = "board",
     .verb = "vlan-add",
     .signature = "VLAN NUMBER NAME",
     .help = "make a VLAN interface",
     .example = "board vlan-add 30 1030 vlan30",
     .run = runPass},
    {.object = "board",
     .verb = "vlan-del",
     .signature = "VLAN",
     .help = "remove a VLAN interface",
     .example = "board vlan-del 30",
     .run = runPass},
    {.object = "board",
     .verb = "card-pull",
     .signature = "SLOT",
     .help = "pull a card with its ports",
     .example = "board card-pull 1",
     .run = runPass},
    {.object = "board",
     .verb = "card-push",
     .signature = "SLOT",
     .help = "put a card back",
     .example = "board card-push 1",
     .run = runPass},
    {.object = "board",
     .verb = "publish",
     .signature = "EVENT [ARGUMENT...]",
     .help = "publish an event as the platform does",
     .example = "board publish newlink ge1/1 register",
     .run = runPass,
     .details = PUBLISH_DETAILS},
    {.object = "board",
     .verb = "settle",
     .help = "wait until all events are handled",
     .example = "board settle",
     .run = runPass},
    {.object = "board",
     .verb = "fault",
     .signature = "CALL|list|clear [ARGUMENT...]",
     .help = "make calls of the hardware layer fail",
     .example = "board fault daxIfSyncApi 2 -1 if ge1/1",
     .run = runPass,
     .details = FAULT_DETAILS,
     .json = "of list: an array of {call, nth, status, if, command, seen}; nth is null for every call"},
    {.object = "board",
     .verb = "forward",
     .signature = "FROM TO [--vlan VLAN]",
     .help = "ask whether traffic would be forwarded",
     .example = "board forward ge1/1 ge1/2 --vlan 10",
     .run = runForward,
     .json = "{from, to, vlan, forwards, reason}; forwards is yes, no or partly"},
    {.object = "board",
     .verb = "matrix",
     .signature = "[--vlan VLAN] [--svg FILE]",
     .help = "show who may talk to whom, as the hardware forwards",
     .example = "board matrix",
     .run = runMatrix,
     .json = "the same as for matrix"},
    {.object = "board",
     .verb = "hardware",
     .help = "show what the hardware is programmed with",
     .example = "board hardware",
     .run = runHardware,
     .json = "an array of {kind} with what belongs to the kind"},
    {.object = "board",
     .verb = "journal",
     .signature = "[--count LINES]",
     .help = "show hardware calls as they happen",
     .example = "board journal --count 10",
     .run = runJournal,
     .json = "the lines are JSON in any case"},
    {.object = "board",
     .verb = "role",
     .signature = "[active|standby|single]",
     .help = "show or set the board's role",
     .example = "board role standby",
     .run = runPass,
     .json = "{role}"},
};

}  // namespace

Commands boardCommands() {
    return BOARD_COMMANDS;
}
