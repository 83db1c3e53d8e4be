#include "ctl/commands/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "client/configuration/comparison.h"
#include "client/configuration/saved.h"
#include "client/configuration/shortfall.h"
#include "client/link/happening.h"
#include "client/link/interfaces.h"
#include "client/link/peer.h"
#include "client/link/plane.h"
#include "client/text/listing.h"
#include "common/text.h"

namespace {

constexpr char STATUS_DETAILS[] =
    "  daemon   its version, and since when it runs\n"
    "  plane    the kind of the forwarding plane, and whether it holds all that it was asked for; how much\n"
    "           is missing, left over, was healed, waits behind closed doors, was refused\n"
    "  saved    whether all of the saved configuration is in force, or how much of it is pending\n"
    "  role     active, standby or single\n"
    "  peer     none: no peer board is described; unknown: nothing was handed to it yet; reached;\n"
    "           silent: it takes requests and does not answer; starved: this board has no descriptor for\n"
    "           the connection; absent: it is not there; back: it was absent and answers now;\n"
    "           failed: it stalls\n"
    "  boards   equal, differ, or unknown where the peer board cannot be asked\n"
    "\n"
    "  The exit status is 0 only when nothing is wrong; what is wrong is listed below,\n"
    "  and so is what the plane cannot hold, as notes.";

constexpr char UNCOMPARED[] = "unknown";
constexpr char PEER_BACK[] = "back";
constexpr char DIFFERENT[] = "the boards differ: `portisolatectl board compare` shows how";

// Of the daemon, as the board knows it.
struct About {
    std::string version;
    std::string since;  // local time
    uint64_t refused = 0;
};

struct Status {
    About about;
    PlaneReport plane;
    bool saved = false;
    std::vector<std::string> pending;
    std::string role;
    PeerLink link;
    std::string boards;  // empty: there is no peer
    std::vector<std::string> problems;
};

std::string timeText(const std::string& seconds) {
    const size_t point = std::min(seconds.find('.'), seconds.size());
    const auto when = static_cast<time_t>(std::strtoll(seconds.c_str(), nullptr, 10));
    tm local{};
    localtime_r(&when, &local);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text + seconds.substr(point);
}

About readAbout(Session& session) {
    About about;
    for (const std::string& line : askBoard(session, "about")) {
        for (const std::string& word : splitWords(line)) {
            const Field field = splitField(word);
            if (field.name == "version") about.version = field.value;
            if (field.name == "since" && isBoardNumber(field.value)) about.since = timeText(field.value);
            if (field.name == "refused") about.refused = std::strtoull(field.value.c_str(), nullptr, 10);
        }
    }
    return about;
}

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
    return status.saved ? "in force" : "nothing";
}

void readPending(Session& session, const Configuration& running, Status& status) {
    const Saved saved = lookAtSaved(session);
    status.saved = saved.there;
    status.pending = pendingLines(session, saved, running);
    for (const std::string& line : status.pending) status.problems.push_back("pending: " + line);
}

// Asks the peer board, too; that it does not answer is part of the status.
void comparePeer(Session& session, Status& status) {
    try {
        PeerSession peer;
        openPeer(session, peer);
        const bool same = sameBoards(compareBoards(session, peer.session));
        status.boards = same ? "equal" : "differ";
        if (!same) status.problems.emplace_back(DIFFERENT);
        const std::string role = readRole(peer.session);
        if (role == status.role) status.problems.push_back("both boards are " + role);
    } catch (const CommandEnds& end) {
        status.boards = UNCOMPARED;
        status.problems.push_back("the peer board: " + end.why);
    }
}

Status readStatus(Session& session) {
    Status status = {.about = readAbout(session),
                     .plane = readPlane(session),
                     .saved = false,
                     .pending = {},
                     .role = readRole(session),
                     .link = readPeerLink(session),
                     .boards = {},
                     .problems = {}};
    const Configuration running = readRunning(session);
    readPending(session, running, status);
    if (!holdsAll(status.plane)) {
        status.problems.emplace_back(
            "the plane does not hold what it should: `portisolatectl plane show` tells more");
    }
    const size_t narrow = findShortfalls(boardInterfaces(session), running, status.plane).size();
    if (narrow != 0) {
        status.problems.push_back(fmt::format(
            "{} {} isolated in fewer VLANs than asked for: `portisolatectl plane show` names them", narrow,
            narrow == 1 ? "pair of ports is" : "pairs of ports are"));
    }
    if (status.link.root.empty()) return status;
    comparePeer(session, status);
    std::string& state = status.link.state;
    // The link looks for the peer when it has something to hand over; the comparison has found it.
    if (state == PEER_ABSENT && status.boards != UNCOMPARED) state = PEER_BACK;
    if (state != PEER_REACHED && state != PEER_UNKNOWN && state != PEER_BACK) {
        status.problems.push_back("the peer board is " + state + ": the log says more");
    }
    return status;
}

Json peerJson(const Status& status) {
    const PeerLink& link = status.link;
    if (link.root.empty()) return {};
    return {{"root", link.root},         {"state", link.state},         {"boards", status.boards},
            {"answered", link.answered}, {"differing", link.differing}, {"missed", link.missed},
            {"lost", link.lost},         {"ended", link.ended},         {"waiting", link.waiting}};
}

void printStatus(const Session& session, const Status& status) {
    if (session.json) {
        return printLine(jsonLines(
            "{",
            {jsonField("version", jsonText(status.about.version)),
             jsonField("since", jsonText(status.about.since)),
             jsonField("plane", jsonText(status.plane.name)),
             jsonField("state", jsonText(status.plane.state)),
             jsonField("notes", jsonText(status.plane.notes)),
             jsonField("missing", jsonText(countEntries(status.plane, PlaneEntryState::missing))),
             jsonField("leftOver", jsonText(countEntries(status.plane, PlaneEntryState::leftOver))),
             jsonField("healed", jsonText(status.plane.healed)),
             jsonField("doors", jsonText(status.plane.doors)),
             jsonField("refused", jsonText(status.about.refused)), jsonField("saved", jsonText(status.saved)),
             jsonField("pending", jsonText(status.pending)), jsonField("role", jsonText(status.role)),
             jsonField("peer", jsonText(peerJson(status))), jsonField("problems", jsonText(status.problems))},
            "}"));
    }
    const std::string doubt = doubtText(status.link);
    printLine(fmt::format("daemon  {}, since {}", safeText(status.about.version), status.about.since));
    printLine(fmt::format("plane   {}, {}", safeText(status.plane.name), safeText(planeText(status))));
    printLine("saved   " + savedText(status));
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
         "role, "
         "peer, problems}: since is local time, saved whether there is a saved configuration, peer is null "
         "or {root, state, boards, answered, "
         "differing, missed, lost, ended, waiting}, problems an array of sentences"},
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
