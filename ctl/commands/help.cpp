#include "ctl/commands/help.h"

#include <algorithm>

#include "common/text.h"
#include "lib/text/output.h"

namespace {

constexpr size_t HELP_WIDTH = 100;

const char* const INTRODUCTION =
    "usage: portisolatectl [--timeout SECONDS] [--json] OBJECT VERB ARGUMENTS\n"
    "\n"
    "Talks to the port-isolation daemon. Objects and verbs may be abbreviated. An INTERFACE is a name, a\n"
    "number, or a range such as ge1/1-4; other numbers are decimal or hexadecimal (0x1f).\n"
    "\n"
    "  --timeout SECONDS  limit for connecting, for sending and for each answer; 5 by default\n"
    "  --json             print listings as JSON; the help of each command describes it\n"
    "  --help             show help, also for an object or a verb\n"
    "  --version          print the version of this program\n";

const char* const CLOSING =
    "\nExit status: 0 success, 1 refused by the daemon or the board, 2 wrong use, 3 daemon out of reach.\n"
    "The environment variable PORTISOLATE_ROOT, a prefix of the sockets' paths, selects another daemon.\n"
    "Without arguments, commands are read from the terminal, with history and completion, or, one a line,\n"
    "from a file or a pipe. There # begins a comment, ? at the end of a line is for help, and quit leaves.\n"
    "\n"
    "example: portisolatectl group add 5 ge1/1-4 lag1";

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

void printUsages(Commands commands) {
    size_t width = 0;
    for (const Command& command : commands) width = std::max(width, usageOf(command).size());
    for (const Command& command : commands) printBeside(usageOf(command), width + 2, command.help);
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

void printObjectHelp(Commands commands) {
    if (commands.size() == 1) return printCommandHelp(commands[0]);
    printLine("usage: portisolatectl " + std::string(commands[0].object) + " VERB ARGUMENTS");
    printLine("");
    printUsages(commands);
    printLine("");
    printLine(std::string("example: portisolatectl ") + commands[0].example);
}

// Beside an object its verbs; where it has none, its arguments, or what it does.
void printEverything(Commands table) {
    printLine(INTRODUCTION);
    for (const std::string& object : objectNames(table)) {
        const Commands commands = commandsOf(table, object);
        const Command& first = commands[0];
        const std::string signature = *first.signature != '\0' ? first.signature : first.help;
        printBeside(object, 12, commands.size() > 1 ? joinChoices(verbNames(commands), "or") : signature);
    }
    printLine(CLOSING);
}

}  // namespace

std::string usageOf(const Command& command) {
    std::string usage = command.object;
    for (const char* part : {command.verb, command.signature}) {
        usage += (*part != '\0' ? " " : "") + std::string(part);
    }
    return usage;
}

void printHelp(Commands table, const std::vector<std::string>& words) {
    if (words.empty()) return printEverything(table);
    const FoundCommand found = findCommand(table, words);
    if (found.named == 1) return printObjectHelp(commandsOf(table, found.command->object));
    printCommandHelp(*found.command);
}
