#include "ctl/commands/board_commands.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "ctl/client/interfaces.h"
#include "ctl/client/printouts.h"
#include "ctl/text/output.h"
#include "wire/framing.h"

namespace {

struct Printout {
    const char* verb;
    const char* function;
    std::string (*json)(Session& session, const std::string& text);
};

Cell interfaceCell(Session& session, uint32_t number) {
    return number != 0 ? textCell(interfaceName(session, number)) : noCell();
}

std::string settingsJson(Session&, const std::string& text) {
    std::vector<std::string> fields;
    for (const auto& [name, value] : readSettings(text)) {
        uint32_t number = 0;
        const bool bare = parseNumber(value, number) && !value.starts_with("0x");
        fields.push_back(jsonString(name) + ":" + (bare ? value : jsonString(value)));
    }
    return "{" + joinWords(fields, ",\n ") + "}";
}

std::string serialJson(Session& session, const std::string& text) {
    Listing listing{{{nullptr, "serial"}, {nullptr, "interface"}, {nullptr, "number"}}, {}};
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        listing.rows.push_back(
            {numberCell(row.front()), interfaceCell(session, row.back()), numberCell(row.back())});
    }
    return listingJson(listing);
}

std::string groupsJson(Session& session, const std::string& text) {
    Listing listing{{{nullptr, "group"}, {nullptr, "vlan"}, {nullptr, "interface"}, {nullptr, "number"}}, {}};
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        listing.rows.push_back({numberCell(row.front()), row.size() == 3 ? numberCell(row[1]) : noCell(),
                                interfaceCell(session, row.back()), numberCell(row.back())});
    }
    return listingJson(listing);
}

std::string pairsJson(Session& session, const std::string& text) {
    Listing listing{{{nullptr, "source"},
                     {nullptr, "sourceNumber"},
                     {nullptr, "target"},
                     {nullptr, "targetNumber"},
                     {nullptr, "groups"}},
                    {}};
    for (const PrintedPair& pair : readPairs(text)) {
        listing.rows.push_back({interfaceCell(session, pair.source), numberCell(pair.source),
                                interfaceCell(session, pair.target), numberCell(pair.target),
                                numberListCell(pair.groups)});
    }
    return listingJson(listing);
}

std::string portsJson(Session& session, const std::string& text) {
    Listing listing{{{nullptr, "interface"}, {nullptr, "number"}}, {}};
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        listing.rows.push_back({interfaceCell(session, row.back()), numberCell(row.back())});
    }
    return listingJson(listing);
}

constexpr Printout PRINTOUTS[] = {
    {"global", "portIsolateGlobalShow", settingsJson}, {"serial", "portIsolateSerialShow", serialJson},
    {"groups", "portIsolateGrpShow", groupsJson},      {"pairs", "portIsolateIfPairShow", pairsJson},
    {"inner", "portIsolateIfInnerShow", pairsJson},    {"ports", "portIsolatePortShow", portsJson},
};

// The board takes its words apart at blanks, so a word cannot carry one.
Exit checkWords(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        const auto splits = [](char letter) {
            return letter == ' ' || static_cast<unsigned char>(letter) < 0x20;
        };
        if (word.empty() || std::any_of(word.begin(), word.end(), splits)) {
            return misuse("\"" + word + "\" cannot be sent to the board: it is empty or holds blanks");
        }
    }
    return Exit::done;
}

void printLines(const Session& session, const std::vector<std::string>& lines) {
    if (session.json) {
        printLine(listCell(lines).json);
        return;
    }
    for (const std::string& line : lines) {
        printLine(safeText(line));
    }
}

bool isIsolation(std::string_view kind) {
    return kind == "bi" || kind == "uni";
}

// Words of a line of `hardware`, with names in place of the interface numbers of an isolation.
std::vector<std::string> hardwareWords(Session& session, const std::string& line) {
    std::vector<std::string> words = splitWords(line);
    uint32_t number = 0;
    for (size_t at = 1; at < std::min<size_t>(words.size(), 3) && isIsolation(words[0]); ++at) {
        if (parseNumber(words[at], number)) {
            words[at] = interfaceName(session, number);
        }
    }
    return words;
}

// "bi ge1/1 ge1/2 vlan=0" as an object; numbers are left unquoted, names never are.
std::string hardwareObject(const std::vector<std::string>& words) {
    const std::string& kind = words[0];
    const char* const ends[] = {"source", "target"};
    std::string text = "{\"kind\":" + jsonString(kind);
    for (size_t at = 1; at < words.size(); ++at) {
        const size_t equals = words[at].find('=');
        const bool named = equals != std::string::npos;
        const bool end = isIsolation(kind) && at <= std::size(ends);
        const std::string key = named ? words[at].substr(0, equals)
                                      : (end                 ? ends[at - 1]
                                         : kind == "pon-off" ? "vlan"
                                                             : "value");
        const std::string value = named ? words[at].substr(equals + 1) : words[at];
        uint32_t number = 0;
        const bool bare = !end && parseNumber(value, number);
        text += "," + jsonString(key) + ":" + (bare ? std::to_string(number) : jsonString(value));
    }
    return text + "}";
}

// "daxIfSyncApi 2 status=0xffffffff if=1 seen=0" as an object.
std::string faultObject(Session& session, const std::string& line) {
    std::vector<Cell> cells(6, noCell());
    const std::vector<std::string> words = splitWords(line);
    uint32_t number = 0;
    for (size_t at = 0; at < words.size(); ++at) {
        const size_t equals = words[at].find('=');
        const std::string name = words[at].substr(0, equals);
        const bool counted =
            parseNumber(equals == std::string::npos ? name : words[at].substr(equals + 1), number);
        if (at == 0) {
            cells[0] = textCell(name);
        } else if (counted) {
            const char* const names[] = {"status", "if", "command", "seen"};
            const size_t field =
                static_cast<size_t>(std::find_if(std::begin(names), std::end(names),
                                                 [&](const char* known) { return name == known; }) -
                                    std::begin(names));
            const size_t cell = field == std::size(names) ? 1 : field + 2;
            cells[cell] = name == "if" ? interfaceCell(session, number) : numberCell(number);
        }
    }
    return jsonObject({{nullptr, "call"},
                       {nullptr, "nth"},
                       {nullptr, "status"},
                       {nullptr, "if"},
                       {nullptr, "command"},
                       {nullptr, "seen"}},
                      cells);
}

// The answer to a verb that is handed on; most have none.
std::string passedJson(Session& session, const Invocation& invocation,
                       const std::vector<std::string>& lines) {
    if (invocation.verb == "role" && lines.size() == 1) {
        return jsonObject({{nullptr, "role"}}, {textCell(lines[0])});
    }
    std::vector<std::string> objects;
    for (const std::string& line : lines) {
        objects.push_back(invocation.verb == "fault" ? faultObject(session, line) : jsonString(line));
    }
    return "[" + joinWords(objects, ",\n ") + "]";
}

// The same request for each of `numbers`, going on after a refusal.
Exit requestEach(Session& session, const std::string& request, const std::vector<uint32_t>& numbers) {
    Exit result = Exit::done;
    for (const uint32_t number : numbers) {
        std::vector<std::string> lines;
        const Exit exit = askBoard(session, request + " " + std::to_string(number), lines);
        if (exit == Exit::unreachable) {
            return exit;
        }
        result = exit == Exit::done ? result : exit;
        printLines(session, lines);
    }
    return result;
}

}  // namespace

Exit runBoardList(Session& session, const Invocation&) {
    std::vector<std::string> lines;
    const Exit exit = askBoard(session, "list", lines);
    if (exit != Exit::done) {
        return exit;
    }
    std::vector<BoardInterface> interfaces;
    bool devices = false;
    for (const std::string& line : lines) {
        BoardInterface interface;
        if (!parseBoardInterface(line, interface)) {
            return brokenProtocol("an interface without number or name");
        }
        devices = devices || (!interface.device.empty() && interface.device != interface.name);
        interfaces.push_back(interface);
    }
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
    printListing(listing, session.json);
    return Exit::done;
}

Exit runBoardEach(Session& session, const Invocation& invocation) {
    std::vector<uint32_t> numbers;
    const Exit exit = resolveInterfaces(session, invocation.arguments, numbers);
    return exit == Exit::done ? requestEach(session, invocation.verb, numbers) : exit;
}

Exit runBoardMembers(Session& session, const Invocation& invocation) {
    uint32_t trunk = 0;
    std::vector<uint32_t> members;
    Exit exit = resolveInterface(session, invocation.arguments[0], trunk);
    if (exit == Exit::done) {
        exit = resolveInterfaces(session, std::span(invocation.arguments).subspan(1), members);
    }
    const std::string request = invocation.verb + " " + std::to_string(trunk);
    return exit == Exit::done ? requestEach(session, request, members) : exit;
}

Exit runBoardForward(Session& session, const Invocation& invocation) {
    uint32_t from = 0, to = 0, vlan = 0;
    Exit exit = resolveInterface(session, invocation.arguments[0], from);
    if (exit == Exit::done) {
        exit = resolveInterface(session, invocation.arguments[1], to);
    }
    const std::string* given = optionValue(invocation.options, "--vlan");
    if (exit == Exit::done && given != nullptr) {
        exit = numberArgument("VLAN", *given, vlan);
    }
    if (exit != Exit::done) {
        return exit;
    }
    std::string request = formatText("forward %u %u", from, to);
    if (vlan != 0) {
        request += formatText(" %u", vlan);
    }
    std::vector<std::string> lines;
    exit = askBoard(session, request, lines);
    if (exit != Exit::done) {
        return exit;
    }
    if (lines.size() != 1) {
        return brokenProtocol("no single answer to a question");
    }
    const size_t blank = std::min(lines[0].find(' '), lines[0].size());
    const std::string reason = lines[0].substr(std::min(blank + 1, lines[0].size()));
    if (session.json) {
        printLine(jsonObject({{nullptr, "from"},
                              {nullptr, "to"},
                              {nullptr, "vlan"},
                              {nullptr, "forwards"},
                              {nullptr, "reason"}},
                             {textCell(interfaceName(session, from)), textCell(interfaceName(session, to)),
                              numberCell(vlan), textCell(lines[0].substr(0, blank)), textCell(reason)}));
    } else {
        printLine(safeText(lines[0]));
    }
    return Exit::done;
}

Exit runBoardHardware(Session& session, const Invocation&) {
    std::vector<std::string> lines;
    const Exit exit = askBoard(session, "hardware", lines);
    if (exit != Exit::done) {
        return exit;
    }
    std::string objects;
    for (std::string& line : lines) {
        const std::vector<std::string> words = hardwareWords(session, line);
        if (words.empty()) {
            continue;
        }
        objects += (objects.empty() ? "" : ",\n ") + hardwareObject(words);
        line = joinWords(words, " ");
    }
    if (session.json) {
        printLine("[" + objects + "]");
    } else {
        printLines(session, lines);
    }
    return exit;
}

Exit streamBoard(Session& session, const Invocation& invocation, const std::string& verb,
                 const std::function<bool(std::string_view)>& print) {
    uint32_t count = UINT32_MAX;
    const std::string* given = optionValue(invocation.options, "--count");
    if (given != nullptr) {
        const Exit exit = numberArgument("count", *given, count);
        if (exit != Exit::done || count == 0) {
            return exit;
        }
    }
    uint32_t seen = 0;
    const auto pass = [&](std::string_view line) {
        if (!print(line)) {
            return true;
        }
        std::fflush(stdout);
        return given == nullptr || ++seen < count;
    };
    std::string why;
    const LineResult result = boardRequest(verb, session.timeoutMs, true, pass, why);
    if (result == LineResult::done && (given == nullptr || seen < count)) {
        return lineExit(LineResult::failed, verb, BOARD_SOCKET_PATH, "the stream ended");
    }
    return lineExit(result, verb, BOARD_SOCKET_PATH, why);
}

Exit runBoardJournal(Session& session, const Invocation& invocation) {
    return streamBoard(session, invocation, "journal", [](std::string_view line) {
        printLine(safeText(line));
        return true;
    });
}

Exit runBoardPass(Session& session, const Invocation& invocation) {
    Exit exit = checkWords(invocation.arguments);
    if (exit != Exit::done) {
        return exit;
    }
    std::vector<std::string> words = invocation.arguments;
    words.insert(words.begin(), invocation.verb);
    std::vector<std::string> lines;
    exit = askBoard(session, joinWords(words, " "), lines);
    if (exit != Exit::done) {
        return exit;
    }
    const bool lists = invocation.verb == "fault" && invocation.arguments.front() == "list";
    if (!session.json) {
        printLines(session, lines);
    } else if (lists || !lines.empty()) {
        printLine(passedJson(session, invocation, lines));
    }
    return exit;
}

Exit runShow(Session& session, const Invocation& invocation) {
    const Printout* printout =
        std::find_if(std::begin(PRINTOUTS), std::end(PRINTOUTS),
                     [&](const Printout& known) { return invocation.verb == known.verb; });
    std::string text, why;
    const LineResult result = shellRequest(printout->function, session.timeoutMs, text, why);
    if (result == LineResult::done && session.json) {
        printLine(printout->json(session, text));
    } else if (result == LineResult::done) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    return lineExit(result, "show " + invocation.verb, SHELL_SOCKET_PATH, why);
}
