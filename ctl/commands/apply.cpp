#include "ctl/commands/apply.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/files.h"
#include "common/text.h"
#include "ctl/commands/guardian.h"
#include "ctl/commands/less_held.h"
#include "ctl/commands/plan_run.h"
#include "ctl/commands/plane_commands.h"
#include "lib/configuration/config_plan.h"
#include "lib/configuration/openings.h"
#include "lib/configuration/ownership.h"
#include "lib/configuration/rewrite.h"
#include "lib/link/interfaces.h"
#include "lib/link/scalars.h"
#include "lib/link/spanning.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"
#include "wire/scalars.h"

namespace {

constexpr char APPLY_DETAILS[] =
    "  mode 2\n"
    "  group 5 ge1/1-4 lag1              members of a group\n"
    "  vlan-group 7 vlan 10 ge1/1 ge1/2  members of a VLAN group\n"
    "  pair ge1/1 to ge1/2 lag1          a source and its targets\n"
    "  pon off 20 30-33                  VLANs whose PON isolation is off\n"
    "  created group 6 ge1/3             rows that are entered but not active\n"
    "  spanning 5 7-9                    groups that mean the same on other machines, 1 to 16, or none: all\n"
    "                                    without such a line\n"
    "  group 5 vnet* alias:red-* !vnet0  patterns: of names, name: of all names of the kernel, alias: of\n"
    "                                    aliases; and what they leave out\n"
    "  policy tenants                    [vlan VLAN] [groups LOW-HIGH], and behind it who reaches whom:\n"
    "    promiscuous eth0                all\n"
    "    community red vnet1 vnet2       one another, and the promiscuous ones\n"
    "    isolated tap*                   the promiscuous ones alone\n"
    "\n"
    "  Such lines, in any order and with comments behind #, are the whole configuration: rows that the\n"
    "  file does not name are removed. Without a mode line the mode stays as it is. A FILE of - is\n"
    "  standard input. A file without a single line would release everything: that takes --empty.\n"
    "\n"
    "  The whole file is checked before the daemon is asked to change anything. The difference is\n"
    "  printed; with --dry-run that is all. Removals come before additions, except that ports which are\n"
    "  isolated both before and after get their new isolation first where the daemon allows it; where it\n"
    "  does not, such as from a group to a pair, that is said before. A change that is refused is reported,\n"
    "  and the others are made.\n"
    "\n"
    "  When nothing was refused, what an earlier run of the daemon left over in the plane is swept.\n"
    "\n"
    "  With --confirm the configuration of before comes back after so many seconds unless\n"
    "  `portisolatectl confirm` follows, also when this command or its connection is lost by then: for\n"
    "  changes that may cut off the one who makes them. Nothing is swept before the confirmation.";

constexpr char SAVE_DETAILS[] =
    "  Without a FILE it is /etc/portisolate/isolation.conf. It is written whole or not at all; what it was\n"
    "  before is kept in FILE.former. `portisolatectl apply FILE` makes it run again. Lines with patterns\n"
    "  and the policies of /etc/portisolate/isolation.conf stay as they are, and what else runs is written\n"
    "  beside them; where they would not give what runs, nothing is written.";

const char* const EXPORT_HEADING =
    "# Configuration of the port-isolation daemon. `portisolatectl apply FILE` makes it run again;\n"
    "# `portisolatectl apply --help` explains the lines.";
constexpr char STANDARD_INPUT[] = "-";

// The text of a file. What is longer than a configuration may be is not read to its end.
std::string readFile(const std::string& path) {
    std::string text;
    const bool whole = path == STANDARD_INPUT ? readText(stdin, text) : readTextFile(path, text);
    if (whole || errno == EFBIG) return text;
    throw misuse("cannot read " + path + ": " + std::strerror(errno));
}

// Ends the command, each mistake printed, unless there are none.
void requireNoMistakes(const Session& session, const std::string& path, const ConfigFile& file) {
    if (file.mistakes.empty()) return;
    const std::string name = path == STANDARD_INPUT ? "standard input" : path;
    for (const Mistake& mistake : file.mistakes) {
        complain(fmt::format("{}:{}:{}: {}", name, mistake.place.line, mistake.place.column, mistake.text));
    }
    const bool asked = session.interfacesFailure.empty();
    throw CommandEnds{asked ? Exit::usage : Exit::unreachable, name + ": nothing was applied"};
}

// What of a file a reader of the difference has to know.
void tellResolution(const Session& session, const Resolution& resolution) {
    for (const std::string& note : resolution.notes) complain(note);
    if (session.json) return;
    for (const PolicyUse& use : resolution.policies) printLine(safeText(policyUseText(use)));
}

// A file for a fleet is taken by machines that have nothing to do with the others, too.
void tellSpanning(Session& session, const Configuration& running, const Configuration& wanted) {
    if (!wanted.spanning || running.spanning) return;
    const std::string line = "spanning " + spanningText(*wanted.spanning);
    complain(line + (readSpanning(session).known
                         ? " has no effect: no port of this board carries groups to other machines, for "
                           "board.conf has no line `span`"
                         : " has no effect: this daemon is older, and carries groups to no other machine"));
}

// What a file wants; checked as a whole before the daemon is asked for anything but its limits. A file that
// was cut short or never written must not release everything.
Resolution readWanted(Session& session, const std::string& path, const Configuration& running,
                      bool mayBeEmpty) {
    ConfigFile file = parseConfig(readFile(path));
    if (file.lines.empty() && file.mistakes.empty() && !mayBeEmpty) {
        throw misuse(path + " has no line: nothing was applied; to release everything, give --empty");
    }
    const DaemonLimits limits = readLimits(session, file);
    Resolution resolution =
        resolveConfig(session, file, {.running = running, .ownsAll = true, .limits = limits});
    requireNoMistakes(session, path, file);
    checkGroupNumbers(file, readNumber(session, SCALAR_MAX_ISO_GRP_NUM));
    requireNoMistakes(session, path, file);
    return resolution;
}

// Once all that is wanted is in force, what an earlier run of the daemon left over has to make way, and the
// doors open.
Exit settleAfter(Session& session) {
    tellShortfalls(session);
    const uint64_t removed = sweepPlane(session);
    if (removed != 0 && !session.json) {
        printLine("swept " + elementsText(removed) + " that an earlier run left over");
    }
    const uint64_t opened = openDoors(session, {});
    if (opened != 0 && !session.json) printLine(fmt::format("doors opened: {}", opened));
    return Exit::done;
}

// After a refusal nothing is swept; says so where there is something. A plane that cannot be asked is no
// failure of what was done.
void tellUnswept(Session& session) {
    try {
        if (countEntries(readPlane(session), PlaneEntryState::leftOver) == 0) return;
        complain(
            "what an earlier run left over stays, for it may isolate what was refused now; `plane show` "
            "lists it, `plane sweep` removes it");
    } catch (const CommandEnds& end) {
        tellEnd(end);
    }
}

// What the saved configuration wants, where it has patterns or policies.
Rewritten rewriteRunning(Session& session, Configuration running, Saved& saved) {
    saved = lookAtSaved(session, {.running = running, .owned = readOwnership(session).rows});
    keepSpanning(saved, running);
    if (hasPatterns(saved.file)) return rewriteSaved(session, saved, running);
    Rewritten plain;
    for (const std::string& line : configLines(session, running)) plain.lines.push_back(safeText(line));
    return plain;
}

// The lines of what runs alone: then what patterns and policies came to is said row by row.
Exit runExport(Session& session, const Invocation&) {
    const Configuration running = readRunning(session);
    Saved saved;
    Rewritten rewritten = rewriteRunning(session, running, saved);
    if (!rewritten.contradictions.empty()) {
        for (const std::string& why : rewritten.contradictions) complain(why);
        complain("so what patterns and policies of the saved configuration came to is stated row by row");
        rewritten.lines = configLines(session, running);
    }
    if (session.json) {
        printLine(jsonText(rewritten.lines));
        return Exit::done;
    }
    printLine(EXPORT_HEADING);
    for (const std::string& line : rewritten.lines) printLine(safeText(line));
    return Exit::done;
}

// What was saved and does not run goes, whether an operator deleted it or it was pending.
void tellUnsaved(Session& session, const Saved& saved, const Configuration& running) {
    for (const std::string& line : pendingLines(session, saved, running)) {
        complain("saved no more, the former file has it: " + line);
    }
}

Exit runSave(Session& session, const Invocation& invocation) {
    const std::string path =
        invocation.arguments.empty() ? rootedPath(SAVED_FILE) : invocation.arguments.front();
    const Configuration running = readRunning(session);
    Saved saved;
    const Rewritten rewritten = rewriteRunning(session, running, saved);
    for (const std::string& why : rewritten.contradictions) complain(why);
    if (!rewritten.contradictions.empty()) {
        throw CommandEnds{Exit::refused,
                          "not saved: patterns and policies of the saved configuration stay in it, and would "
                          "not give what runs; apply it, or edit it"};
    }
    std::string text = std::string(EXPORT_HEADING) + "\n";
    for (const std::string& line : rewritten.lines) text += line + "\n";
    if (invocation.arguments.empty()) tellUnsaved(session, saved, running);
    if (!replaceTextFile(path, text, true)) {
        throw CommandEnds{Exit::refused, "not saved: cannot write " + path + ": " + std::strerror(errno)};
    }
    if (!session.json) printLine("saved to " + path);
    return Exit::done;
}

// Before anything is done: operators may choose another moment.
void tellOpenings(Session& session, const Configuration& running, const Configuration& wanted,
                  const Plan& plan) {
    const std::set<std::pair<uint32_t, uint32_t>> openings = findOpenings(running, wanted, plan);
    if (openings.empty()) return;
    const auto& [left, right] = *openings.begin();
    const std::string others =
        openings.size() == 1 ? "" : fmt::format(" and {} more pairs", openings.size() - 1);
    complain(fmt::format(
        "{} and {}{} are isolated before and after, but not for a moment between: the daemon takes the new "
        "isolation only when the old one is gone",
        interfaceName(session, left), interfaceName(session, right), others));
}

// 0 without the option.
uint32_t confirmSeconds(const Invocation& invocation) {
    const std::string* text = fieldValue(invocation.options, "--confirm");
    if (text == nullptr) return 0;
    uint32_t seconds = 0;
    if (parseGivenNumber(*text, seconds) && seconds >= 1 && seconds <= CONFIRM_SECONDS_MAX) return seconds;
    throw misuse(fmt::format("--confirm takes a number of seconds from 1 to {}", CONFIRM_SECONDS_MAX));
}

Exit runApply(Session& session, const Invocation& invocation) {
    const uint32_t seconds = confirmSeconds(invocation);
    const bool mayBeEmpty = fieldValue(invocation.options, "--empty") != nullptr;
    const Configuration running = readRunning(session);
    const Resolution resolution = readWanted(session, invocation.arguments.front(), running, mayBeEmpty);
    const Configuration& wanted = resolution.wanted;
    const Plan plan = planChanges(running, wanted);
    tellResolution(session, resolution);
    tellSpanning(session, running, wanted);
    printDifference(session, running, wanted);
    tellOpenings(session, running, wanted, plan);
    const size_t steps = stepCount(plan);
    const bool dryRun = fieldValue(invocation.options, "--dry-run") != nullptr;
    if (steps == 0 || dryRun) {
        if (!session.json) printLine(steps == 0 ? "nothing to change" : changesText(steps) + ", none made");
        return dryRun ? Exit::done : settleAfter(session);
    }
    std::fflush(stdout);
    Guardian guardian;
    if (seconds != 0) guardian = startGuardian(session, running, seconds);
    Progress progress;
    try {
        runPlan(session, plan, progress);
    } catch (const CommandEnds& end) {
        endWork(guardian);
        tellEnd(end);
        throw CommandEnds{end.exit, outcomeText(steps, progress)};
    }
    endWork(guardian);
    if (seconds != 0) {
        complain(fmt::format("taken back in {} seconds unless `portisolatectl confirm` follows", seconds));
    }
    if (progress.refused > 0) {
        complain(outcomeText(steps, progress));
        tellUnswept(session);
        return Exit::refused;
    }
    if (!session.json) printLine(changesText(progress.changed) + " made");
    if (seconds == 0) return settleAfter(session);
    tellShortfalls(session);
    return Exit::done;
}

Exit runConfirm(Session& session, const Invocation&) {
    confirmChange(session);
    if (!session.json) printLine("confirmed");
    return settleAfter(session);
}

constexpr Command APPLY_COMMANDS[] = {
    {.object = "export",
     .help = "print the running configuration as a file for apply",
     .example = "export",
     .run = runExport,
     .json = "an array of the lines"},
    {.object = "save",
     .signature = "[FILE]",
     .help = "write the running configuration to a file for apply; the former file is kept beside it",
     .example = "save",
     .run = runSave,
     .details = SAVE_DETAILS},
    {.object = "apply",
     .signature = "FILE [--dry-run] [--empty] [--confirm SECONDS]",
     .help = "make the running configuration equal to a file",
     .example = "apply isolation.conf --dry-run",
     .run = runApply,
     .details = APPLY_DETAILS,
     .json = "an array of {change, line}; change is remove or add"},
    {.object = "confirm",
     .help = "keep the change that `apply --confirm` made",
     .example = "confirm",
     .run = runConfirm},
};

}  // namespace

Commands applyCommands() {
    return APPLY_COMMANDS;
}
