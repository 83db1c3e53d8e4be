#include "ctl/commands/commands.h"

#include "common/text.h"
#include "ctl/commands/apply.h"
#include "ctl/commands/board_commands.h"
#include "ctl/commands/complete.h"
#include "ctl/commands/help.h"
#include "ctl/commands/keep.h"
#include "ctl/commands/matrix.h"
#include "ctl/commands/monitor.h"
#include "ctl/commands/peer_commands.h"
#include "ctl/commands/plane_commands.h"
#include "ctl/commands/raw.h"
#include "ctl/commands/row_commands.h"
#include "ctl/commands/show.h"
#include "ctl/commands/status.h"
#include "ctl/commands/value_commands.h"
#include "ctl/commands/why.h"
#include "ctl/text/command_line.h"
#include "lib/answers/error_answer.h"
#include "lib/text/output.h"

namespace {

// Here, since it reads the table that it stands in.
Exit runComplete(Session& session, const Invocation& invocation) {
    for (const std::string& word : completions(session, commandTable(), invocation.arguments)) {
        printLine(safeText(word));
    }
    return Exit::done;
}

constexpr Command COMPLETE_COMMANDS[] = {
    {.object = "complete",
     .signature = "[WORD...]",
     .help = "list the words that may stand in place of the last one, for shells",
     .example = "complete -- group a",
     .run = runComplete},
};

Exit runCommand(Session& session, const CommandLine& line) {
    if (line.words.empty()) throw misuse("no command given; `portisolatectl --help` lists all");
    const FoundCommand found = findCommand(commandTable(), line.words);
    const Command& command = *found.command;
    if (*command.verb != '\0' && found.named == 1) {
        const std::vector<std::string> verbs = verbNames(commandsOf(commandTable(), command.object));
        throw misuse(std::string(command.object) + " needs a verb: " + joinChoices(verbs, "or"));
    }
    Invocation invocation = {.object = command.object, .verb = command.verb, .options = line.options};
    invocation.arguments.assign(line.words.begin() + static_cast<ptrdiff_t>(found.named), line.words.end());
    const std::string misfit =
        findMisfit(parseSignature(command.signature), invocation.arguments, invocation.options);
    if (!misfit.empty()) throw misuse(misfit + "; usage: portisolatectl " + usageOf(command));
    session.timeoutMs = line.timeoutMs;
    session.json = line.json;
    sessionOpen(session);
    return command.run(session, invocation);
}

}  // namespace

const std::vector<Command>& commandTable() {
    static const std::vector<Command> table = [] {
        std::vector<Command> all;
        for (const Commands& family :
             {rowCommands(), valueCommands(), showCommands(), statusCommands(), matrixCommands(),
              whyCommands(), applyCommands(), keepCommands(), monitorCommands(), planeCommands(),
              boardCommands(), peerCommands(), Commands(COMPLETE_COMMANDS), rawCommands()}) {
            all.insert(all.end(), family.begin(), family.end());
        }
        return all;
    }();
    return table;
}

Exit runCommandLine(const std::vector<std::string>& words) {
    Session session;
    Exit exit = Exit::done;
    try {
        const CommandLine line = parseCommandLine(words);
        const bool helpObject = !line.words.empty() && line.words[0] == "help";
        if (line.version) {
            printLine("portisolatectl " PORTISOLATE_VERSION);
        } else if (helpObject || line.help) {
            printHelp(commandTable(), {line.words.begin() + (helpObject ? 1 : 0), line.words.end()});
        } else {
            exit = runCommand(session, line);
        }
    } catch (const CommandEnds& end) {
        exit = tellEnd(end);
        if (session.json && !end.why.empty()) printLine(jsonText(errorAnswer(end)));
    }
    sessionClose(session);
    return exit;
}
