#include "lib/answers/status_answer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "common/text.h"
#include "lib/answers/board_answers.h"
#include "lib/configuration/comparison.h"
#include "lib/configuration/ownership.h"
#include "lib/configuration/saved.h"
#include "lib/configuration/shortfall.h"
#include "lib/link/interfaces.h"

namespace {

constexpr char UNCOMPARED[] = "unknown";
constexpr char PEER_BACK[] = "back";
constexpr char DIFFERENT[] = "the boards differ: `portisolatectl board compare` shows how";

std::string timeText(const std::string& seconds) {
    if (seconds.empty()) return {};
    const size_t point = std::min(seconds.find('.'), seconds.size());
    const auto when = static_cast<time_t>(std::strtoll(seconds.c_str(), nullptr, 10));
    tm local{};
    localtime_r(&when, &local);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text + seconds.substr(point);
}

void readPending(Session& session, Status& status) {
    const Saved saved =
        lookAtSaved(session, {.running = status.running, .owned = readOwnership(session).rows});
    status.saved = saved.there;
    status.pending = pendingLines(session, saved, status.running);
    for (const std::string& line : status.pending) status.problems.push_back("pending: " + line);
    status.policies = saved.resolution.policies;
    for (const std::string& note : saved.resolution.notes) status.problems.push_back(note);
    if (!saved.there || !saved.mistakes.empty()) return;
    const Configuration& wanted = saved.resolution.wanted;
    for (const auto& [row, active] : status.running.rows) {
        if (!wanted.rows.contains(row)) ++status.unsaved;
    }
    for (const uint32_t vlan : status.running.ponOff) {
        if (!wanted.ponOff.contains(vlan)) ++status.unsaved;
    }
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

Json policiesJson(const Status& status) {
    Json policies = Json::array();
    for (const PolicyUse& use : status.policies) {
        policies.push_back({{"name", use.name}, {"groups", use.groups}, {"pairs", use.pairs}});
    }
    return policies;
}

Json peerJson(const Status& status) {
    Json peer = peerAnswer(status.link);
    if (!peer.is_null()) peer["boards"] = status.boards;
    return peer;
}

}  // namespace

Status readStatus(Session& session) {
    Status status;
    status.about = readAbout(session);
    status.since = timeText(status.about.since);
    status.plane = readPlane(session);
    status.role = readRole(session);
    status.link = readPeerLink(session);
    status.running = readRunning(session);
    readPending(session, status);
    if (!holdsAll(status.plane)) {
        status.problems.emplace_back(
            "the plane does not hold what it should: `portisolatectl plane show` tells more");
    }
    for (const Shortfall& one :
         findShortfalls(boardInterfaces(session), status.running, status.plane.entries)) {
        status.plane.shortfalls.push_back(shortfallText(one));
    }
    const size_t narrow = status.plane.shortfalls.size();
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

Json statusAnswer(const Status& status) {
    return {{"version", status.about.version},
            {"since", status.since},
            {"plane", status.plane.name},
            {"state", status.plane.state},
            {"notes", status.plane.notes},
            {"missing", countEntries(status.plane, PlaneEntryState::missing)},
            {"leftOver", countEntries(status.plane, PlaneEntryState::leftOver)},
            {"healed", status.plane.healed},
            {"doors", status.plane.doors},
            {"refused", status.about.refused},
            {"saved", status.saved},
            {"pending", status.pending},
            {"notSaved", status.unsaved},
            {"policies", policiesJson(status)},
            {"role", status.role},
            {"peer", peerJson(status)},
            {"problems", status.problems}};
}
