#include "ctl/commands/show.h"

#include <cstdio>

#include "ctl/commands/status.h"
#include "lib/answers/printout_answers.h"
#include "lib/text/listing.h"

namespace {

Exit runShow(Session& session, const Invocation& invocation) {
    const Printout& printout = *findPrintout(invocation.verb);
    const std::string text = readPrintout(session, printout);
    if (session.json) {
        const Json answer = printout.answer(session, text);
        printLine(answer.is_object() ? jsonFields(answer) : jsonRows(answer));
    } else {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    tellDoubt(session);
    return Exit::done;
}

constexpr Command SHOW_COMMANDS[] = {
    {.object = "show",
     .verb = "global",
     .help = "show the daemon's printout of its settings",
     .example = "show global",
     .run = runShow,
     .json = "an object of the settings by their names"},
    {.object = "show",
     .verb = "serial",
     .help = "show the daemon's printout of the serial numbers",
     .example = "show serial",
     .run = runShow,
     .json = "an array of {serial, interface, number}; number 0 for those that are free"},
    {.object = "show",
     .verb = "groups",
     .help = "show the daemon's printout of both group tables",
     .example = "show groups",
     .run = runShow,
     .json = "an array of {group, vlan, interface, number}; vlan is null for plain groups"},
    {.object = "show",
     .verb = "pairs",
     .help = "show the daemon's printout of the pairs",
     .example = "show pairs",
     .run = runShow,
     .json = "an array of {source, sourceNumber, target, targetNumber, groups}"},
    {.object = "show",
     .verb = "inner",
     .help = "show the daemon's printout of the isolated port pairs",
     .example = "show inner",
     .run = runShow,
     .json =
         "an array of {source, sourceNumber, target, targetNumber, groups}: the groups that claim two ports"},
    {.object = "show",
     .verb = "ports",
     .help = "show the daemon's printout of the ports in use",
     .example = "show ports",
     .run = runShow,
     .json = "an array of {interface, number}"},
};

}  // namespace

Commands showCommands() {
    return SHOW_COMMANDS;
}
