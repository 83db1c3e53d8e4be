#include "ctl/commands/peer_commands.h"

#include <fmt/format.h>

#include "common/text.h"
#include "ctl/commands/plan_run.h"
#include "lib/answers/comparison_answer.h"
#include "lib/link/peer.h"
#include "lib/link/scalars.h"
#include "lib/link/spanning.h"
#include "lib/text/listing.h"
#include "wire/records.h"

namespace {

constexpr int ROUNDS_MAX = 5;  // of a resync, while the boards change

constexpr char COMPARE_DETAILS[] =
    "  - LINE    configured here and not on the peer board\n"
    "  + LINE    configured on the peer board and not here\n"
    "  ! NAME    a limit or a setting that is not the same\n"
    "\n"
    "  Mode, groups, VLAN groups, pairs and PON isolation are compared, and the scalars that decide what a\n"
    "  board carries out. The debug mask is each board's own. The exit status is 0 when the boards are\n"
    "  equal, 1 when they differ, 3 when one of them does not answer.";

constexpr char RESYNC_DETAILS[] =
    "  Makes the standby board hold what the active one holds, from whichever of the two it is called.\n"
    "  Nothing changes on the active board, and ports that are isolated on both stay isolated meanwhile\n"
    "  where the daemon's rules allow it: new isolations come before removals, as with apply.\n"
    "\n"
    "  The difference is printed; with --dry-run that is all. The exit status is 1 when a change was\n"
    "  refused or the boards still differ. Limits cannot be changed so: they stand in portisolate.conf.";

void printComparison(Session& session, const Comparison& comparison) {
    if (session.json) return printLine(jsonRows(comparisonAnswer(session, comparison)));
    const std::vector<std::string> here = configLines(session, without(comparison.here, comparison.there));
    const std::vector<std::string> there = configLines(session, without(comparison.there, comparison.here));
    for (const std::string& line : here) printLine(toned(Tone::bad, "- " + safeText(line)));
    for (const std::string& line : there) printLine(toned(Tone::good, "+ " + safeText(line)));
    for (const SettingDifference& setting : comparison.settings) {
        printLine(toned(Tone::warning, fmt::format("! {}: {} here, {} on the peer board",
                                                   scalarName(setting.scalar), setting.here, setting.there)));
    }
    if (sameBoards(comparison)) printLine("both boards hold the same");
}

Exit runCompare(Session& session, const Invocation&) {
    PeerSession peer;
    openPeer(session, peer);
    const Comparison comparison = compareBoards(session, peer.session);
    printComparison(session, comparison);
    return sameBoards(comparison) ? Exit::done : Exit::refused;
}

// The two boards of a resync.
struct Boards {
    Session& active;
    Session& standby;
};

Boards boardsByRole(Session& session, Session& peer) {
    const std::string here = readRole(session);
    const std::string there = readRole(peer);
    if (here == "active" && there == "standby") return {session, peer};
    if (here == "standby" && there == "active") return {peer, session};
    throw CommandEnds{Exit::refused,
                      fmt::format("resync needs an active and a standby board: this one is {}, "
                                  "the peer {}; `portisolatectl board role` sets it",
                                  safeText(here), safeText(there))};
}

// Whether the active board still wants a step that was planned some time ago and opens something. An active
// row that has to become a created one is removed whatever the active board holds by then.
bool isStillWanted(const Boards& boards, const Configuration& wanted, const Step& step) {
    if (step.action == StepAction::setPon && !step.on) {
        return readPon(boards.active, step.number).word == PON_ISOLATION_OFF;
    }
    if (step.action == StepAction::setSpanning) {
        const std::optional<SpanningGroups> groups = readSpanning(boards.active).groups;
        return groups && (*groups & ~step.number) == 0;
    }
    return step.action != StepAction::remove || wanted.rows.contains(step.row) ||
           !rowExists(boards.active, rowFamily(step.row.kind), step.row.scope, step.row.member);
}

// One round. True when there is nothing to do any more.
bool resyncRound(const Boards& boards, const Configuration& wanted, Progress& progress) {
    const Plan plan = planChanges(readRunning(boards.standby), wanted);
    if (stepCount(plan) == 0) return true;
    runPlan(boards.standby, plan, progress,
            [&](const Step& step) { return isStillWanted(boards, wanted, step); });
    return false;
}

Exit resync(const Boards& boards) {
    Progress progress;
    bool same = false;
    for (int round = 0; round < ROUNDS_MAX && !same && progress.refused == 0; ++round) {
        same = resyncRound(boards, readRunning(boards.active), progress);
    }
    if (progress.refused > 0 || !same) {
        complain(fmt::format("{} made, {} refused; `portisolatectl board compare` lists what still differs",
                             changesText(progress.changed), progress.refused));
        return Exit::refused;
    }
    tellAgreement(boards.active);
    tellAgreement(boards.standby);
    if (!boards.active.json) {
        printLine(progress.changed == 0 ? "nothing to change"
                                        : changesText(progress.changed) + " made on the standby board");
    }
    return Exit::done;
}

Exit runResync(Session& session, const Invocation& invocation) {
    PeerSession peer;
    openPeer(session, peer);
    const Boards boards = boardsByRole(session, peer.session);
    const Comparison comparison = compareBoards(boards.standby, boards.active);
    printDifference(session, comparison.here, comparison.there);
    if (fieldValue(invocation.options, "--dry-run") != nullptr) return Exit::done;
    boards.standby.asPeer = true;
    return resync(boards);
}

constexpr Command PEER_COMMANDS[] = {
    {.object = "board",
     .verb = "compare",
     .help = "show what differs between this board and the peer board",
     .example = "board compare",
     .run = runCompare,
     .details = COMPARE_DETAILS,
     .json = "an array of {only, line}, only here or peer, and of {setting, here, peer}; empty when they are "
             "equal"},
    {.object = "board",
     .verb = "resync",
     .signature = "[--dry-run]",
     .help = "make the standby board hold what the active board holds",
     .example = "board resync --dry-run",
     .run = runResync,
     .details = RESYNC_DETAILS,
     .json = "an array of {change, line}; change is remove or add"},
};

}  // namespace

Commands peerCommands() {
    return PEER_COMMANDS;
}
