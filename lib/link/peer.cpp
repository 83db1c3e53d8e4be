#include "lib/link/peer.h"

#include <fmt/format.h>

#include <charconv>

#include "common/fields.h"
#include "common/text.h"
#include "lib/text/output.h"

namespace {

constexpr char ROOT_FIELD[] = " root=";

// What counts as doubt, in words; "{}" is the number.
struct Doubt {
    uint64_t PeerLink::*count;
    const char* text;
};
constexpr Doubt DOUBTS[] = {
    {&PeerLink::differing, "requests carried out by one board alone: "},
    {&PeerLink::missed, "not handed to the peer: "},
    {&PeerLink::lost, "without an answer: "},
    {&PeerLink::ended, "connections lost: "},
};

struct Count {
    const char* name;
    uint64_t PeerLink::*count;
};
constexpr Count COUNTS[] = {
    {"answered", &PeerLink::answered}, {"differing", &PeerLink::differing}, {"missed", &PeerLink::missed},
    {"lost", &PeerLink::lost},         {"ended", &PeerLink::ended},         {"waiting", &PeerLink::waiting},
};

bool parseCount(const std::string& text, uint64_t& count) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc() && end == text.data() + text.size();
}

// The root ends the line, blanks and all.
bool parseLink(const std::string& line, PeerLink& link) {
    const size_t root = line.find(ROOT_FIELD);
    if (root == std::string::npos) return false;
    link.root = line.substr(root + std::string_view(ROOT_FIELD).size());
    std::vector<Field> fields;
    for (const std::string& word : splitWords(line.substr(0, root))) fields.push_back(splitField(word));
    for (const Count& count : COUNTS) {
        const std::string* value = fieldValue(fields, count.name);
        if (value == nullptr || !parseCount(*value, link.*count.count)) return false;
    }
    const std::string* state = fieldValue(fields, "state");
    if (state != nullptr) link.state = *state;
    return !link.state.empty();
}

}  // namespace

PeerLink readPeerLink(Session& session) {
    PeerLink link;
    const std::vector<std::string> lines = askBoard(session, "peer");
    if (lines.size() != 1 || !parseLink(lines[0], link)) throw brokenProtocol("the link to the peer board");
    return link;
}

std::string readRole(Session& session) {
    const std::vector<std::string> lines = askBoard(session, "role");
    if (lines.size() != 1) throw brokenProtocol("the role of the board");
    return lines[0];
}

std::string doubtText(const PeerLink& link) {
    std::vector<std::string> doubts;
    for (const Doubt& doubt : DOUBTS) {
        if (link.*doubt.count != 0) doubts.push_back(doubt.text + std::to_string(link.*doubt.count));
    }
    return joinWords(doubts, ", ");
}

void openPeer(Session& session, PeerSession& peer) {
    const PeerLink link = readPeerLink(session);
    if (link.root.empty()) {
        throw CommandEnds{Exit::refused, "no peer board is described: board.conf has no line `peer ROOT`"};
    }
    peer.session.root = link.root;
    peer.session.timeoutMs = session.timeoutMs;
    peer.session.json = session.json;
    sessionOpen(peer.session);
}

void tellAgreement(Session& session) {
    askBoard(session, "peer agrees");
}
