#include "ctl/commands/status.h"

#include <fmt/format.h>

#include "common/text.h"
#include "lib/answers/status_answer.h"
#include "lib/link/peer.h"
#include "lib/text/listing.h"

namespace {

constexpr char STATUS_DETAILS[] =
    "  daemon   its version, and since when it runs\n"
    "  plane    the kind of the forwarding plane, and whether it holds all that it was asked for; how much\n"
    "           is missing, left over, was healed, waits behind closed doors, was refused\n"
    "  saved    whether all of the saved configuration is in force, or how much of it is pending; how many\n"
    "           rows run that it does not want; the group numbers that its policies use\n"
    "  role     active, standby or single\n"
    "  peer     none: no peer board is described; unknown: nothing was handed to it yet; reached;\n"
    "           silent: it takes requests and does not answer; starved: this board has no descriptor for\n"
    "           the connection; absent: it is not there; back: it was absent and answers now;\n"
    "           failed: it stalls\n"
    "  boards   equal, differ, or unknown where the peer board cannot be asked\n"
    "\n"
    "  The exit status is 0 only when nothing is wrong; what is wrong is listed below,\n"
    "  and so is what the plane cannot hold, as notes.";

std::string planeText(const Status& status) {
    const PlaneReport& plane = status.plane;
    std::string text = plane.state;
    const auto add = [&text](uint64_t count, const char* what) {
        if (count != 0) text += fmt::format(", {} {}", count, what);
    };
    add(countEntries(plane, PlaneEntryState::missing), "missing");
    add(countEntries(plane, PlaneEntryState::leftOver), "left over");
    add(plane.healed, "healed");
    add(plane.doors.size(), "behind closed doors");
    add(status.about.refused, "refused since the start");
    return text;
}

std::string savedText(const Status& status) {
    if (!status.pending.empty()) return fmt::format("{} pending", status.pending.size());
    if (!status.saved) return "nothing";
    if (status.unsaved == 0) return "in force";
    return fmt::format("in force; not saved: {} row{}", status.unsaved, status.unsaved == 1 ? "" : "s");
}

void printStatus(const Session& session, const Status& status) {
    if (session.json) {
        return printLine(jsonFields(statusAnswer(status)));
    }
    const std::string doubt = doubtText(status.link);
    printLine(fmt::format("daemon  {}, since {}", safeText(status.about.version), status.since));
    printLine(fmt::format("plane   {}, {}", safeText(status.plane.name), safeText(planeText(status))));
    printLine("saved   " + savedText(status));
    for (const PolicyUse& use : status.policies) printLine("        " + safeText(policyUseText(use)));
    printLine("role    " + safeText(status.role));
    printLine("peer    " + safeText(status.link.state) + (doubt.empty() ? "" : "; " + doubt));
    if (!status.boards.empty()) printLine("boards  " + status.boards);
    for (const std::string& note : status.plane.notes) {
        printLine("note: " + toned(Tone::warning, safeText(note)));
    }
    for (const std::string& problem : status.problems) {
        printLine(toned(Tone::bad, "problem: " + safeText(problem)));
    }
}

Exit runStatus(Session& session, const Invocation&) {
    const Status status = readStatus(session);
    printStatus(session, status);
    return status.problems.empty() ? Exit::done : Exit::refused;
}

constexpr Command STATUS_COMMANDS[] = {
    {.object = "status",
     .help = "show whether daemon, plane, saved configuration and peer board are as they should be",
     .example = "status",
     .run = runStatus,
     .details = STATUS_DETAILS,
     .json =
         "{version, since, plane, state, notes, missing, leftOver, healed, doors, refused, saved, pending, "
         "notSaved, policies, role, peer, problems}: since is local time, saved whether there is a saved "
         "configuration, policies an array of {name, groups, pairs}, peer is null or {root, state, boards, "
         "answered, differing, missed, lost, ended, waiting}, problems an array of sentences"},
};

}  // namespace

Commands statusCommands() {
    return STATUS_COMMANDS;
}

void tellDoubt(Session& session) {
    try {
        const PeerLink link = readPeerLink(session);
        const std::string doubt = doubtText(link);
        if (doubt.empty()) return;
        complain((link.differing != 0 ? "the boards differ (" : "the boards may differ (") + doubt +
                 "); `portisolatectl board compare` shows how");
    } catch (const CommandEnds&) {
        return;
    }
}
