#include "ctl/commands/board_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "common/text.h"
#include "ctl/commands/matrix.h"
#include "lib/answers/board_answers.h"
#include "lib/link/interfaces.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"

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

Exit runList(Session& session, const Invocation&) {
    printListing(interfaceListing(listInterfaces(session)), session.json);
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
    printLine(jsonText(forwardAnswer(session, from, to, vlan, answer)));
    return Exit::done;
}

Exit runHardware(Session& session, const Invocation&) {
    const HardwareEntries entries = readHardware(session);
    if (session.json) {
        printLine(jsonRows(entries.json));
    } else {
        printLines(session, entries.lines);
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
             "device, access, alias, otherNames}"},
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
     .signature = MATRIX_SIGNATURE,
     .help = "show who may talk to whom, as the hardware forwards",
     .example = "board matrix",
     .run = runMatrix,
     .details = MATRIX_DETAILS,
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
