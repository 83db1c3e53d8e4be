#include "ctl/commands/commands.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "ctl/client/matrix.h"
#include "ctl/client/plane.h"
#include "ctl/client/rows.h"
#include "ctl/client/settings.h"
#include "ctl/commands/apply.h"
#include "ctl/commands/board_commands.h"
#include "ctl/commands/complete.h"
#include "ctl/commands/monitor.h"
#include "ctl/commands/raw.h"
#include "ctl/commands/why.h"
#include "ctl/text/output.h"

namespace {

constexpr size_t HELP_WIDTH = 100;

const char* const INTRODUCTION =
    "usage: portisolatectl [--timeout SECONDS] [--json] OBJECT VERB ARGUMENTS\n"
    "\n"
    "Talks to the port-isolation daemon. Objects and verbs may be abbreviated. An INTERFACE is a name, a\n"
    "number, or a range such as ge1/1-4; other numbers are decimal or hexadecimal (0x1f).\n"
    "\n"
    "  --timeout SECONDS  bounds connecting, sending and each answer; 5 by default\n"
    "  --json             listings as JSON; the help of each command describes it\n"
    "  --help             on objects and verbs, too\n";

const char* const CLOSING =
    "\nExit status: 0 success, 1 refused by the daemon or the board, 2 wrong use, 3 daemon out of reach.\n"
    "The environment variable PORTISOLATE_ROOT leads to another daemon's sockets. Without arguments on a\n"
    "terminal, commands are read from there, with history and completion.\n"
    "\n"
    "example: portisolatectl group add 5 ge1/1-4 lag1";

const char* const PUBLISH_DETAILS =
    "  newlink INTERFACE [register] [join] [member-add INTERFACE]... [member-del INTERFACE]...\n"
    "  dellink INTERFACE, if-reset INTERFACE\n"
    "  reset, mode-refresh, serial-sync, card-up SLOT\n"
    "  raw EVENT-GROUP HEX    the bytes of the messages";

const char* const FAULT_DETAILS =
    "  CALL NTH|every STATUS [if INTERFACE] [command NUMBER]\n"
    "                         the NTH matching call from now on, or every one, answers STATUS\n"
    "  list, clear            the rules that are set";

const char* const RAW_DETAILS =
    "  Index and value are words (5,1,0) or bytes in hexadecimal, of any length. --capacity offers room\n"
    "  for an answered value; an operation that answers one is offered all there can be.";

const char* const APPLY_DETAILS =
    "  mode 2\n"
    "  group 5 ge1/1-4 lag1              members of a group\n"
    "  vlan-group 7 vlan 10 ge1/1 ge1/2  members of a VLAN group\n"
    "  pair ge1/1 to ge1/2 lag1          a source and its targets\n"
    "  pon off 20 30-33                  VLANs whose PON isolation is off\n"
    "  created group 6 ge1/3             rows that are entered but not active\n"
    "\n"
    "  Such lines, in any order, with comments behind #, are the whole configuration: rows that the file\n"
    "  lacks are removed. Without a line for it the mode stays as it is. FILE - reads standard input.\n"
    "\n"
    "  The file is checked before anything is asked of the daemon. The difference is shown; with --dry-run\n"
    "  that is all. Removals come before additions, save that ports which are isolated before and after\n"
    "  get their new isolation first where the daemon allows it. What is refused is told, the rest is done.\n"
    "\n"
    "  When all of it stands, what an earlier run of the daemon left over in the plane is swept.";

const char* const PLANE_DETAILS =
    "  held       in force, as it was asked for\n"
    "  left over  in force since before the daemon started, and not asked for since\n"
    "  MISSING    asked for, but not in force\n"
    "\n"
    "  Two-way isolations have a line for each direction; PON isolation has one for all VLANs that are not\n"
    "  off and one for each port that it holds. Packets and bytes are what was dropped. The exit status is\n"
    "  1 when something is missing or the plane is not ready.";

const char* const MONITOR_DETAILS =
    "  hardware are commands to it, query is what it was asked. Without a kind all but queries are shown.\n"
    "  A line that gives a number of dropped ones marks where this reader was too slow; the daemon never\n"
    "  waits for it.";

std::string usageOf(const Command& command) {
    std::string usage = command.object;
    for (const char* part : {command.verb, command.signature}) {
        usage += (*part != '\0' ? " " : "") + std::string(part);
    }
    return usage;
}

// `left` in a column of its own, `text` beside it and broken at blanks.
void printBeside(const std::string& left, size_t column, const std::string& text) {
    std::string line = "  " + padded(left, column);
    bool filled = false;
    for (const std::string& word : splitWords(text)) {
        if (filled && textWidth(line) + 1 + textWidth(word) > HELP_WIDTH) {
            printLine(line);
            line.assign(column + 2, ' ');
            filled = false;
        }
        line += (filled ? " " : "") + word;
        filled = true;
    }
    printLine(line);
}

void printUsages(std::span<const Command> commands) {
    size_t width = 0;
    for (const Command& command : commands) {
        width = std::max(width, usageOf(command).size());
    }
    for (const Command& command : commands) {
        printBeside(usageOf(command), width + 2, command.help);
    }
}

void printCommandHelp(const Command& command) {
    printLine("usage: portisolatectl " + usageOf(command));
    printLine("");
    printBeside("", 0, command.help);
    if (command.details != nullptr) {
        printLine("");
        printLine(command.details);
    }
    if (command.json != nullptr) {
        printLine("");
        printBeside("--json:", 8, command.json);
    }
    printLine("");
    printLine(std::string("example: portisolatectl ") + command.example);
}

void printObjectHelp(std::span<const Command> commands) {
    if (commands.size() == 1) {
        printCommandHelp(commands[0]);
        return;
    }
    printLine("usage: portisolatectl " + std::string(commands[0].object) + " VERB ARGUMENTS");
    printLine("");
    printUsages(commands);
    printLine("");
    printLine(std::string("example: portisolatectl ") + commands[0].example);
}

void printHelp() {
    printLine(INTRODUCTION);
    for (const std::string& object : objectNames()) {
        std::vector<std::string> verbs;
        const std::span<const Command> commands = commandsOf(object);
        for (const Command& command : commands) {
            verbs.emplace_back(command.verb);
        }
        printBeside(object, 12,
                    commands.size() > 1              ? joinChoices(verbs, "or")
                    : *commands[0].signature != '\0' ? commands[0].signature
                                                     : commands[0].help);
    }
    printLine(CLOSING);
}

// Finds the command that `words` begins with and how many words name it. `help` is satisfied with less: null
// and 0 for everything, an object's first command and 1 for all of the object.
struct Found {
    const Command* command = nullptr;
    size_t named = 0;
    std::string error;
};

Found findCommand(const std::vector<std::string>& words, bool help) {
    if (words.empty()) {
        return {nullptr, 0, help ? "" : "say what to do; `portisolatectl --help` shows all"};
    }
    Found found;
    const std::vector<std::string> objects = objectNames();
    const std::string& object = objects[pickName(objects, words[0], "object", found.error)];
    if (!found.error.empty()) {
        return found;
    }
    const std::span<const Command> commands = commandsOf(object);
    found = {&commands[0], 1, {}};
    if (*commands[0].verb == '\0' || (help && words.size() == 1)) {
        return found;
    }
    std::vector<std::string> verbs;
    for (const Command& command : commands) {
        verbs.emplace_back(command.verb);
    }
    if (words.size() == 1) {
        found.error = object + " wants a verb: " + joinChoices(verbs, "or");
        return found;
    }
    found.command = &commands[pickName(verbs, words[1], "verb", found.error)];
    found.named = 2;
    if (!found.error.empty()) {
        found.error = object + ": " + found.error;
    }
    return found;
}

Exit runHelp(const std::vector<std::string>& words) {
    const Found found = findCommand(words, true);
    if (!found.error.empty()) {
        return misuse(found.error);
    }
    if (found.command == nullptr) {
        printHelp();
    } else if (found.named == 1) {
        printObjectHelp(commandsOf(found.command->object));
    } else {
        printCommandHelp(*found.command);
    }
    return Exit::done;
}

}  // namespace

std::vector<std::string> objectNames() {
    std::vector<std::string> names;
    for (const Command& command : commandTable()) {
        if (names.empty() || names.back() != command.object) {
            names.emplace_back(command.object);
        }
    }
    return names;
}

std::span<const Command> commandsOf(const std::string& object) {
    const std::vector<Command>& table = commandTable();
    const auto first = std::find_if(table.begin(), table.end(),
                                    [&](const Command& command) { return object == command.object; });
    const auto last =
        std::find_if(first, table.end(), [&](const Command& command) { return object != command.object; });
    return {first, last};
}

const std::vector<Command>& commandTable() {
    static const std::vector<Command> table = {
        {"group", "add", "GROUP INTERFACE...", "isolate interfaces from the group's members",
         "group add 5 ge1/1 ge1/2 lag1", runRowsAdd},
        {"group", "create", "GROUP INTERFACE...", "enter members without isolating them yet",
         "group create 5 ge1/1-4", runRowsCreate},
        {"group", "activate", "GROUP INTERFACE...", "isolate members that were created",
         "group activate 5 ge1/1-4", runRowsActivate},
        {"group", "probe", "GROUP INTERFACE...", "ask whether interfaces are members", "group probe 5 ge1/1",
         runRowsProbe},
        {"group", "del", "GROUP [INTERFACE...]", "release members, all of them by default",
         "group del 5 ge1/1", runRowsDelete},
        {"group", "list", "[GROUP]", "show the members of one group or of all", "group list 5", runRowsList,
         nullptr, "an array of {group, interface, number, status}; status is active or created"},
        {"pair", "add", "SOURCE TARGET...", "keep traffic of the source from the targets",
         "pair add ge1/1 ge1/2", runRowsAdd},
        {"pair", "create", "SOURCE TARGET...", "enter pairs without isolating them yet",
         "pair create ge1/1 ge1/2", runRowsCreate},
        {"pair", "activate", "SOURCE TARGET...", "isolate pairs that were created",
         "pair activate ge1/1 ge1/2", runRowsActivate},
        {"pair", "probe", "SOURCE TARGET...", "ask whether pairs are there", "pair probe ge1/1 ge1/2",
         runRowsProbe},
        {"pair", "del", "SOURCE [TARGET...]", "release pairs, all of the source by default",
         "pair del ge1/1 ge1/2", runRowsDelete},
        {"pair", "list", "[SOURCE]", "show the pairs of one source or of all", "pair list", runRowsList,
         nullptr,
         "an array of {source, sourceNumber, target, targetNumber, status}; status is active or created"},
        {"vlan-group", "add", "GROUP INTERFACE... --vlan VLAN",
         "isolate interfaces from the group's members within a VLAN",
         "vlan-group add 7 ge1/1 ge1/2 --vlan 10", runRowsAdd},
        {"vlan-group", "create", "GROUP INTERFACE... --vlan VLAN", "enter members without isolating them yet",
         "vlan-group create 7 ge1/1-4 --vlan 10", runRowsCreate},
        {"vlan-group", "activate", "GROUP INTERFACE... --vlan VLAN", "isolate members that were created",
         "vlan-group activate 7 ge1/1 --vlan 10", runRowsActivate},
        {"vlan-group", "probe", "GROUP INTERFACE... --vlan VLAN", "ask whether interfaces are members",
         "vlan-group probe 7 ge1/1 --vlan 10", runRowsProbe},
        {"vlan-group", "del", "GROUP [INTERFACE...] --vlan VLAN", "release members, all of them by default",
         "vlan-group del 7 --vlan 10", runRowsDelete},
        {"vlan-group", "list", "[GROUP] [--vlan VLAN]", "show the members of one VLAN group or of all",
         "vlan-group list --vlan 10", runRowsList, nullptr,
         "an array of {group, vlan, interface, number, status}; status is active or created"},
        {"pon", "on", "VLAN...", "switch PON isolation of VLANs on", "pon on 10", runPonSwitch},
        {"pon", "off", "VLAN...", "switch PON isolation of VLANs off", "pon off 10 20-23", runPonSwitch},
        {"pon", "get", "VLAN...", "show the PON isolation of VLANs", "pon get 10", runPonGet, nullptr,
         "an array of {vlan, ponIsolation}, which is on or off"},
        {"pon", "list", "", "show the VLANs whose PON isolation is off", "pon list", runPonList, nullptr,
         "an array of {vlan, ponIsolation}, which is off"},
        {"mode", "get", "", "show the isolation mode", "mode get", runModeGet, nullptr, "{mode}"},
        {"mode", "set", "MODE", "set the isolation mode", "mode set 1", runModeSet},
        {"scalar", "get", "[SCALAR...]", "show values by name or number", "scalar get version", runScalarGet,
         nullptr, "of one scalar {NAME: value}, of several an array of {id, name, value}"},
        {"scalar", "list", "", "show all readable values", "scalar list", runScalarList, nullptr,
         "an array of {id, name, value}"},
        {"debug", "", "[MASK]", "show or set which debug texts are written", "debug 0xf", runDebug, nullptr,
         "{debugMask, categories}"},
        {"show", "global", "", "the daemon's printout of its settings", "show global", runShow, nullptr,
         "an object of the settings by their names"},
        {"show", "serial", "", "the daemon's printout of the serial numbers", "show serial", runShow, nullptr,
         "an array of {serial, interface, number}; number 0 for those that are free"},
        {"show", "groups", "", "the daemon's printout of both group tables", "show groups", runShow, nullptr,
         "an array of {group, vlan, interface, number}; vlan is null for plain groups"},
        {"show", "pairs", "", "the daemon's printout of the pairs", "show pairs", runShow, nullptr,
         "an array of {source, sourceNumber, target, targetNumber, groups}"},
        {"show", "inner", "", "the daemon's printout of the isolated port pairs", "show inner", runShow,
         nullptr,
         "an array of {source, sourceNumber, target, targetNumber, groups}: the groups that claim two ports"},
        {"show", "ports", "", "the daemon's printout of the ports in use", "show ports", runShow, nullptr,
         "an array of {interface, number}"},
        {"matrix", "", "[--vlan VLAN] [--svg FILE]", "who may talk to whom, as the hardware forwards",
         "matrix --vlan 10", runMatrix, nullptr,
         "{vlan, interfaces, rows, blockedInVlans}: rows are {from, to: {NAME: forwards, blocked or "
         "partly}}, blockedInVlans are {from, to, vlans}"},
        {"why", "", "INTERFACE INTERFACE [--vlan VLAN]",
         "why two interfaces may or may not talk, by the tables and by the hardware",
         "why ge1/1 lag1 --vlan 10", runWhy, nullptr,
         "an array of two directions {from, to, vlan, tables, reasons, notes, hardware, hardwareReason, "
         "agree}; tables and hardware are forwards, blocked or partly"},
        {"export", "", "", "write the running configuration as a text for apply", "export", runExport,
         nullptr, "an array of the lines"},
        {"apply", "", "FILE [--dry-run]", "make the running configuration equal to a file",
         "apply isolation.conf --dry-run", runApply, APPLY_DETAILS,
         "an array of {change, line}; change is remove or add"},
        {"monitor", "", "[request|event|hardware|query|log...] [--count LINES]",
         "show what happens in the daemon as it happens", "monitor request hardware", runMonitor,
         MONITOR_DETAILS, "an object a line: kind, time in seconds, status, the bytes in hexadecimal, text"},
        {"plane", "show", "", "show what the forwarding plane holds beside what it was asked for",
         "plane show", runPlaneShow, PLANE_DETAILS,
         "{plane, state, notes, entries}: state is ready, gone or failed; entries are {kind, from, to, vlan, "
         "state, packets, bytes}, kind two-way, one-way, pon or pon-off, state held, left-over or missing; "
         "null "
         "stands for no port, all VLANs, nothing counted"},
        {"plane", "sweep", "", "remove what an earlier run of the daemon left over", "plane sweep",
         runPlaneSweep, nullptr, "{removed}"},
        {"plane", "restore", "", "put back what is missing", "plane restore", runPlaneRestore, nullptr,
         "{restored}"},
        {"board", "list", "", "show the board's interfaces", "board list", runBoardList, nullptr,
         "an array of {number, name, kind, slot, present, trunk, members, vlan, ability, protocol, device, "
         "access}"},
        {"board", "unplug", "INTERFACE...", "remove interfaces", "board unplug ge1/3", runBoardEach},
        {"board", "plug", "INTERFACE...", "bring removed interfaces back", "board plug ge1/3", runBoardEach},
        {"board", "join", "TRUNK INTERFACE...", "put ports into a trunk", "board join lag1 ge1/1",
         runBoardMembers},
        {"board", "leave", "TRUNK INTERFACE...", "take ports out of a trunk", "board leave lag1 ge1/1",
         runBoardMembers},
        {"board", "vlan-add", "VLAN NUMBER NAME", "make a VLAN interface", "board vlan-add 30 1030 vlan30",
         runBoardPass},
        {"board", "vlan-del", "VLAN", "remove a VLAN interface", "board vlan-del 30", runBoardPass},
        {"board", "card-pull", "SLOT", "pull a card with its ports", "board card-pull 1", runBoardPass},
        {"board", "card-push", "SLOT", "put a card back", "board card-push 1", runBoardPass},
        {"board", "publish", "EVENT [ARGUMENT...]", "publish an event as the platform does",
         "board publish newlink ge1/1 register", runBoardPass, PUBLISH_DETAILS},
        {"board", "settle", "", "wait until all events are handled", "board settle", runBoardPass},
        {"board", "fault", "CALL|list|clear [ARGUMENT...]", "let calls of the hardware layer fail",
         "board fault daxIfSyncApi 2 -1 if ge1/1", runBoardPass, FAULT_DETAILS,
         "of list: an array of {call, nth, status, if, command, seen}; nth is null for every call"},
        {"board", "forward", "FROM TO [--vlan VLAN]", "ask whether traffic would be forwarded",
         "board forward ge1/1 ge1/2 --vlan 10", runBoardForward, nullptr,
         "{from, to, vlan, forwards, reason}; forwards is yes, no or partly"},
        {"board", "matrix", "[--vlan VLAN] [--svg FILE]", "who may talk to whom, as the hardware forwards",
         "board matrix", runMatrix, nullptr, "as of matrix"},
        {"board", "hardware", "", "show what the hardware is programmed with", "board hardware",
         runBoardHardware, nullptr, "an array of {kind} with what belongs to the kind"},
        {"board", "journal", "[--count LINES]", "show hardware calls as they happen",
         "board journal --count 10", runBoardJournal, nullptr, "the lines are JSON in any case"},
        {"board", "role", "[active|standby|single]", "show or set the board's role", "board role standby",
         runBoardPass, nullptr, "{role}"},
        {"complete", "", "[WORD...]", "show what may stand in place of the last word, for shells",
         "complete -- group a", runComplete},
        {"raw", "",
         "OPCODE [--column COLUMN] [--index WORDS] [--index-hex BYTES] [--value WORDS] [--value-hex BYTES] "
         "[--capacity LENGTH]",
         "send any request by number", "raw 6 --column 1 --index 1,5,0", runRaw, RAW_DETAILS,
         "{status, statusText, index, indexHex, value, valueHex}"},
    };
    return table;
}

Exit runCommandLine(const std::vector<std::string>& given) {
    CommandLine line;
    const std::string wrong = parseCommandLine(given, line);
    if (!wrong.empty()) {
        return misuse(wrong);
    }
    const bool helpObject = !line.words.empty() && line.words[0] == "help";
    if (helpObject || line.help) {
        return runHelp({line.words.begin() + (helpObject ? 1 : 0), line.words.end()});
    }
    const Found found = findCommand(line.words, false);
    if (!found.error.empty() || found.command == nullptr) {
        return misuse(found.error);
    }
    const Command& command = *found.command;
    Invocation invocation{command.object, command.verb, {}, line.options};
    invocation.arguments.assign(line.words.begin() + static_cast<ptrdiff_t>(found.named), line.words.end());
    const std::string misfit = checkSignature(command.signature, invocation.arguments, invocation.options);
    if (!misfit.empty()) {
        return misuse(misfit + "; usage: portisolatectl " + usageOf(command));
    }
    Session session;
    session.timeoutMs = line.timeoutMs;
    session.json = line.json;
    sessionOpen(session);
    const Exit exit = command.run(session, invocation);
    sessionClose(session);
    return exit;
}
