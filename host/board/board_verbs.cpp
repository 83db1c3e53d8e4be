#include "host/board/board_verbs.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/bytes.h"
#include "common/text.h"
#include "host/board/board_events.h"
#include "host/board/board_publish.h"
#include "host/board/board_views.h"
#include "host/board/faults.h"
#include "host/board/peer_link.h"
#include "host/board/this_board.h"
#include "host/sockets/command_server.h"
#include "wire/framing.h"

namespace {

constexpr char READ_ONLY[] = "error: this user may read and not change: only the group portisolate may\n";

// The verbs whose only word is an interface, or whose words are a trunk and a port.
template <std::string (*Event)(Board&, const std::string&)>
std::string interfaceVerb(Board& board, const Words& words, std::string&) {
    return words.size() == 2 ? Event(board, words[1]) : WRONG_USE;
}

template <std::string (*Event)(Board&, const std::string&, const std::string&)>
std::string memberVerb(Board& board, const Words& words, std::string&) {
    return words.size() == 3 ? Event(board, words[1], words[2]) : WRONG_USE;
}

std::string vlanAddVerb(Board& board, const Words& words, std::string&) {
    uint32_t vid = 0;
    uint32_t number = 0;
    if (words.size() != 4 || !parseNumber(words[1], vid) || !parseNumber(words[2], number)) return WRONG_USE;
    return addVlan(board, vid, number, words[3]);
}

// The verbs whose only word is a number.
template <std::string (*Event)(Board&, uint32_t)>
std::string numberVerb(Board& board, const Words& words, std::string&) {
    uint32_t number = 0;
    return words.size() == 2 && parseNumber(words[1], number) ? Event(board, number) : WRONG_USE;
}

std::string settleVerb(Board& board, const Words& words, std::string&) {
    if (words.size() != 1) return WRONG_USE;
    const bool followed = board.follower == nullptr || board.follower->settle(SETTLE_TIMEOUT / 2);
    return followed ? settle() : "the kernel's events were not handled in time";
}

std::string aboutVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() != 1) return WRONG_USE;
    std::lock_guard guard(board.lock);
    result = fmt::format("version={} protocol={}.{} since={}.{:03} refused={}\n", PORTISOLATE_VERSION,
                         PROTOCOL_MAJOR, PROTOCOL_MINOR, board.started / 1000, board.started % 1000,
                         board.plane.counters(board.plane.state).refused);
    result += fmt::format("clients={}\n", commandClients());
    return {};
}

std::string savedVerb(Board& board, const Words& words, std::string&) {
    if (words.size() != 1) return WRONG_USE;
    if (board.follower != nullptr) board.follower->readSaved();
    return {};
}

std::string setFault(Board& board, const Words& words) {
    FaultRule rule;
    uint32_t number = 0;
    if (words.size() < 4 || words.size() % 2 != 0) return WRONG_USE;
    rule.call = words[1];
    rule.every = words[2] == "every";
    if (!rule.every && !parseNumber(words[2], rule.nth)) return WRONG_USE;
    // A status may be written as a negative number.
    const bool negative = words[3].starts_with('-');
    if (!parseNumber(words[3].substr(negative ? 1 : 0), number)) return WRONG_USE;
    rule.status = static_cast<int32_t>(negative ? 0u - number : number);
    for (size_t i = 4; i < words.size(); i += 2) {
        if (words[i] == "command" && parseNumber(words[i + 1], number)) {
            rule.command = number;
        } else if (words[i] == "if") {
            Interface interface;
            if (!findPublished(board, words[i + 1], interface)) return unknownInterface(words[i + 1]);
            rule.key = interface.number;
        } else {
            return WRONG_USE;
        }
    }
    return addFaultRule(rule);
}

std::string faultVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() == 2 && words[1] == "list") {
        result = listFaultRules();
        return {};
    }
    if (words.size() == 2 && words[1] == "clear") {
        clearFaultRules();
        return {};
    }
    return setFault(board, words);
}

std::string roleVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() > 2) return WRONG_USE;
    std::lock_guard guard(board.lock);
    if (words.size() == 2) return parseRole(words[1], board.role) ? "" : WRONG_USE;
    result = std::string(roleName(board.role)) + "\n";
    return {};
}

std::string peerVerb(Board&, const Words& words, std::string& result) {
    // In the order of PeerState.
    constexpr const char* STATES[] = {"none", "unknown", "reached", "silent", "absent", "starved", "failed"};
    if (words.size() == 2 && words[1] == "agrees") {
        peerAgrees();
        return {};
    }
    if (words.size() != 1) return WRONG_USE;
    const PeerStatus peer = peerStatus();
    const PeerCounts& counts = peer.counts;
    result = fmt::format("state={} answered={} differing={} missed={} lost={} ended={} waiting={} root={}\n",
                         STATES[static_cast<size_t>(peer.state)], counts.answered, counts.differing,
                         counts.missed, counts.lost, counts.ended, peer.waiting, peer.root);
    return {};
}

std::string helpVerb(Board& board, const Words& words, std::string& result);

constexpr Verb VERBS[] = {
    {"list", "", "all interfaces and their state", listVerb, nullptr, false, NO_WORDS},
    {"unplug", "IF", "take an interface away", interfaceVerb<unplugInterface>, "ip link set IF nomaster"},
    {"plug", "IF", "bring it back", interfaceVerb<plugInterface>, "ip link set IF master BRIDGE"},
    {"join", "TRUNK IF", "put a port into a trunk", memberVerb<joinTrunkEvent>,
     "ip link set IF master TRUNK"},
    {"leave", "TRUNK IF", "take a port out of a trunk", memberVerb<leaveTrunkEvent>,
     "ip link set IF nomaster"},
    {"vlan-add", "VID NUMBER NAME", "add a VLAN interface", vlanAddVerb,
     "ip link add link BRIDGE name NAME type vlan id VID"},
    {"vlan-del", "VID", "delete a VLAN interface", numberVerb<deleteVlan>, "ip link delete NAME"},
    {"card-pull", "SLOT", "pull a card with its ports", numberVerb<pullCard>, "ip link set IF nomaster"},
    {"card-push", "SLOT", "push a fresh card into its slot", numberVerb<pushCard>,
     "ip link set IF master BRIDGE"},
    {"publish",
     "newlink IF [register] [join] [member-add IF]... [member-del IF]... | dellink IF | if-reset IF | reset "
     "| mode-refresh | serial-sync | card-up SLOT | raw GROUP HEX",
     "publish an event without changing the board", publishVerb, nullptr, true},
    {"settle", "", "wait until all events are handled", settleVerb},
    {"about", "",
     "the versions of daemon and protocol, its start, how many commands the plane has refused, and how many "
     "clients there are",
     aboutVerb, nullptr, false, NO_WORDS},
    {"saved", "", "know the ports that the saved configuration names, present or not", savedVerb},
    {"fault", "CALL NTH|every STATUS [if IF] [command NUMBER] | list | clear",
     "make a call of the hardware layer fail", faultVerb, nullptr, true, "list"},
    {"forward", "A B [VID] | remote B GROUP[,GROUP]... [VID]",
     "whether traffic from A, or from members of groups on other machines, reaches B", forwardVerb, nullptr,
     false, ANY_WORDS},
    {"matrix", "[VID]", "which interfaces reach one another: o yes, x no, p partly", matrixVerb, nullptr,
     false, ANY_WORDS},
    {"hardware", "[vlans]",
     "the entries of the forwarding plane; vlans: only those of ports that are isolated within a VLAN",
     hardwareVerb, nullptr, false, ANY_WORDS},
    {"plane", "show|sweep|restore | open|close NUMBER[=LIFE]...|all | spanning [GROUP...|none]",
     "compare what is in force with what was asked for; remove what is left over; put back what is missing; "
     "open or close doors; show or set which groups mean the same on other machines",
     planeVerb, nullptr, false, "show spanning"},
    {"role", "[active|standby|single]", "show or set the board's role", roleVerb, nullptr, false, NO_WORDS},
    {"peer", "[agrees]", "the link to the peer board; agrees: the boards were found equal, count anew",
     peerVerb, nullptr, false, NO_WORDS},
    {"help", "", "this list", helpVerb, nullptr, false, NO_WORDS},
};

std::string helpVerb(Board&, const Words&, std::string& result) {
    for (const Verb& verb : VERBS) {
        result += fmt::format("{} {} - {}\n", verb.name, verb.arguments, verb.help);
    }
    result += fmt::format("{} - calls of the hardware layer as they happen\n", JOURNAL_VERB);
    result += fmt::format(
        "{} [{}] - requests, events, hardware calls and texts as they happen; only what changes something\n",
        MONITOR_VERB, MONITOR_CHANGES);
    return {};
}

// Why a board with a bridge does not take the verb, empty for nothing.
std::string refusedOnBridge(Board& board, const Verb& verb) {
    std::lock_guard guard(board.lock);
    if (board.bridge.empty()) return {};
    if (verb.kernelCommand != nullptr) {
        return std::string("the kernel decides what is plugged here: ") + verb.kernelCommand;
    }
    if (!verb.laboratory || board.laboratory) return {};
    return "this board isolates real ports: only with a line `laboratory` in board.conf are faults and "
           "events "
           "made up";
}

bool onlyReads(const Verb& verb, const Words& words) {
    if (verb.reads == nullptr) return false;
    const std::string_view reads = verb.reads;
    if (reads == ANY_WORDS) return true;
    if (words.size() == 1) return reads == NO_WORDS;
    const Words alone = splitWords(verb.reads);
    return words.size() == 2 && std::find(alone.begin(), alone.end(), words[1]) != alone.end();
}

std::string runVerb(Board& board, const Verb& verb, const Words& words, std::string& result) {
    const std::string refused = refusedOnBridge(board, verb);
    return refused.empty() ? verb.run(board, words, result) : refused;
}

}  // namespace

std::string answerVerb(const Words& words, bool mayChange) {
    for (const Verb& verb : VERBS) {
        if (words[0] != verb.name) continue;
        if (!mayChange && !onlyReads(verb, words)) return READ_ONLY;
        std::string result;
        std::string problem = runVerb(theBoard(), verb, words, result);
        if (problem == WRONG_USE) problem = std::string("usage: ") + verb.name + " " + verb.arguments;
        return problem.empty() ? "ok\n" + result : "error: " + safeText(problem) + "\n";
    }
    return "error: no such verb: " + safeText(words[0]) + "; help lists them\n";
}
