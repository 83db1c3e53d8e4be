#include "host/board/board_control.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "common/local_socket.h"
#include "common/text.h"
#include "host/board/board_events.h"
#include "host/board/faults.h"
#include "host/board/journal.h"
#include "host/board/this_board.h"
#include "host/linux/link_watch.h"
#include "host/sockets/line_server.h"
#include "platform/route_messages.h"
#include "wire/framing.h"

namespace {
using Words = std::vector<std::string>;

constexpr char BOARD_TASK[] = "boardcontrol";

// The problem of a verb that was written wrongly: the answer then shows its usage.
const std::string WRONG_USE = "usage";

// Carries out a verb; `words` begin with it. Returns what went wrong, and writes the result's lines.
using VerbFunction = std::string (*)(Board& board, const Words& words, std::string& result);

struct Verb {
    const char* name;
    const char* arguments;
    const char* help;
    VerbFunction run;
    const char* kernelCommand = nullptr;  // does it where the kernel decides
};

std::string unknown(const std::string& name) {
    return "no such interface: " + name;
}

const char* roleName(Role role) {
    switch (role) {
        case Role::single:
            return "single";
        case Role::active:
            return "active";
        case Role::standby:
            return "standby";
    }
    return "";
}

const char* kindName(IfKind kind) {
    switch (kind) {
        case IfKind::ethernet:
            return "ethernet";
        case IfKind::pon:
            return "pon";
        case IfKind::trunk:
            return "trunk";
        case IfKind::vlan:
            return "vlan";
    }
    return "";
}

std::string nameOf(Board& board, uint32_t number) {
    const Interface* interface = findInterface(board, number);
    return interface == nullptr ? "-" : interface->name;
}

std::string listVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() != 1) return WRONG_USE;
    std::lock_guard guard(board.lock);
    for (const auto& [number, interface] : board.interfaces) {
        std::string members;
        for (const uint32_t member : interface.members)
            members += (members.empty() ? "" : ",") + nameOf(board, member);
        const bool vlan = interface.kind == IfKind::vlan;
        const bool protocol = vlan ? board.protocolVlans.contains(interface.vid) : interface.protocol;
        appendFormat(result, "number=%" PRIu32 " name=%s kind=%s slot=%" PRIu32 " present=%s trunk=%s",
                     number, interface.name.c_str(), kindName(interface.kind), slotOf(board, interface),
                     interface.present ? "yes" : "no", nameOf(board, interface.trunk).c_str());
        appendFormat(result, " ability=%" PRIu32 " protocol=%s members=%s vlan=%s", interface.ability,
                     protocol ? "on" : "off", members.empty() ? "-" : members.c_str(),
                     vlan ? std::to_string(interface.vid).c_str() : "-");
        appendFormat(result, " device=%s access=%s\n",
                     board.bridge.empty() ? "-" : deviceOf(interface).c_str(),
                     isAccess(interface) ? "yes" : "no");
    }
    return {};
}

std::string unplugVerb(Board& board, const Words& words, std::string&) {
    return words.size() == 2 ? unplugInterface(board, words[1]) : WRONG_USE;
}

std::string plugVerb(Board& board, const Words& words, std::string&) {
    return words.size() == 2 ? plugInterface(board, words[1]) : WRONG_USE;
}

std::string joinVerb(Board& board, const Words& words, std::string&) {
    return words.size() == 3 ? joinTrunkEvent(board, words[1], words[2]) : WRONG_USE;
}

std::string leaveVerb(Board& board, const Words& words, std::string&) {
    return words.size() == 3 ? leaveTrunkEvent(board, words[1], words[2]) : WRONG_USE;
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

// An event may be about an interface that is not described; it is then taken for a port.
bool findPublished(Board& board, const std::string& name, Interface& interface) {
    std::lock_guard guard(board.lock);
    const Interface* found = findInterface(board, name);
    if (found != nullptr) interface = *found;
    return found != nullptr || parseNumber(name, interface.number);
}

std::string publishLink(Board& board, const Words& words) {
    Interface interface;
    if (words.size() < 3) return WRONG_USE;
    if (!findPublished(board, words[2], interface)) return unknown(words[2]);
    uint32_t mask = 0;
    std::vector<LinkAttribute> attributes;
    for (size_t i = 3; i < words.size(); i++) {
        const bool memberAdd = words[i] == "member-add";
        if (words[i] == "register") {
            mask = RT_CHANGE_REGISTER;
        } else if (words[i] == "join") {
            attributes.push_back({DAX_RTA_TRUNK_JOIN, 0});
        } else if ((memberAdd || words[i] == "member-del") && i + 1 < words.size()) {
            Interface member;
            if (!findPublished(board, words[++i], member)) return unknown(words[i]);
            attributes.push_back({memberAdd ? DAX_RTA_MEMBER_ADD : DAX_RTA_MEMBER_DEL, member.number});
        } else {
            return WRONG_USE;
        }
    }
    return publishNewLink(interface, mask, attributes);
}

std::string publishOther(Board& board, const Words& words) {
    const std::string& event = words[1];
    Interface interface;
    uint32_t number = 0;
    if (words.size() == 2 && event == "reset") return publishPlain(DAX_RTGRP_SYSTEM_GROUP, DAX_RTM_RESET);
    if (words.size() == 2 && event == "mode-refresh")
        return publishPlain(DAX_RTGRP_SYSTEM, DAX_RTM_MODE_REFRESH);
    if (words.size() == 2 && event == "serial-sync")
        return publishPlain(DAX_RTGRP_SYSTEM, DAX_RTM_SERIAL_SYNC);
    if (words.size() == 4 && event == "raw") {
        std::vector<uint8_t> messages;
        if (!parseNumber(words[2], number) || !parseHex(words[3], messages)) return WRONG_USE;
        return publishRaw(number, messages);
    }
    if (words.size() != 3) return WRONG_USE;
    if (event == "card-up") return parseNumber(words[2], number) ? publishCardUp(number) : WRONG_USE;
    if (event != "dellink" && event != "if-reset") return WRONG_USE;
    if (!findPublished(board, words[2], interface)) return unknown(words[2]);
    return event == "dellink" ? publishDelLink(interface) : publishInterfaceReset(interface);
}

std::string publishVerb(Board& board, const Words& words, std::string&) {
    if (words.size() < 2) return WRONG_USE;
    return words[1] == "newlink" ? publishLink(board, words) : publishOther(board, words);
}

std::string settleVerb(Board&, const Words& words, std::string&) {
    if (words.size() != 1) return WRONG_USE;
    return settleLinuxBoard(SETTLE_TIMEOUT / 2) ? settle() : "the kernel's events are not handled in time";
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
            if (!findPublished(board, words[i + 1], interface)) return unknown(words[i + 1]);
            rule.key = interface.number;
        } else {
            return WRONG_USE;
        }
    }
    const char* refused = addFaultRule(rule);
    return refused == nullptr ? "" : refused;
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

bool parseVlan(const Words& words, size_t position, uint32_t& vid) {
    vid = 0;
    if (words.size() <= position) return true;
    return parseNumber(words[position], vid) && vid <= VLAN_ID_MAX;
}

std::string forwardVerb(Board& board, const Words& words, std::string& result) {
    uint32_t vid = 0;
    if (words.size() < 3 || words.size() > 4 || !parseVlan(words, 3, vid)) return WRONG_USE;
    std::lock_guard guard(board.lock);
    const Interface* src = findInterface(board, words[1]);
    const Interface* dst = findInterface(board, words[2]);
    if (src == nullptr || dst == nullptr) return unknown(words[src == nullptr ? 1 : 2]);
    if (src == dst) return "an interface does not forward to itself";
    if (src->kind == IfKind::vlan || dst->kind == IfKind::vlan) return "a VLAN interface forwards nothing";
    std::string reason;
    switch (boardForwards(board, *src, *dst, vid, reason)) {
        case Forwarding::yes:
            result = "yes\n";
            break;
        case Forwarding::no:
            result = "no " + reason + "\n";
            break;
        case Forwarding::partly:
            result = "partly " + reason + "\n";
            break;
    }
    return {};
}

char matrixMark(Forwarding forwarding) {
    return forwarding == Forwarding::yes ? 'o' : forwarding == Forwarding::no ? 'x' : 'p';
}

std::string matrixVerb(Board& board, const Words& words, std::string& result) {
    uint32_t vid = 0;
    if (words.size() > 2 || !parseVlan(words, 1, vid)) return WRONG_USE;
    std::lock_guard guard(board.lock);
    std::vector<const Interface*> shown;
    for (const auto& [number, interface] : board.interfaces) {
        const bool standsForItself =
            isPort(interface) ? interface.trunk == 0 : interface.kind == IfKind::trunk;
        if (standsForItself && interface.present) shown.push_back(&interface);
    }
    for (const Interface* column : shown) result += (column == shown.front() ? "" : " ") + column->name;
    result += '\n';
    for (const Interface* row : shown) {
        result += row->name + " ";
        for (const Interface* column : shown) {
            std::string reason;
            result += row == column ? '-' : matrixMark(boardForwards(board, *row, *column, vid, reason));
        }
        result += '\n';
    }
    return {};
}

std::string hardwareVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() != 1) return WRONG_USE;
    std::lock_guard guard(board.lock);
    board.plane.list(board.plane.state, result);
    appendFormat(result, "mode %" PRIu32 "\n", board.mode);
    const PlaneCounters counters = board.plane.counters(board.plane.state);
    appendFormat(result,
                 "counters bi=%" PRIu64 " uni=%" PRIu64 " pon-off=%" PRIu64 " accepted=%" PRIu64
                 " refused=%" PRIu64 "\n",
                 counters.twoWay, counters.oneWay, counters.ponOff, counters.accepted, counters.refused);
    return {};
}

std::string planeVerb(Board& board, const Words& words, std::string& result) {
    if (words.size() != 2) return WRONG_USE;
    std::lock_guard guard(board.lock);
    const Plane& plane = board.plane;
    if (words[1] == "show") {
        plane.inspect(plane.state, result);
        return {};
    }
    if (words[1] != "sweep" && words[1] != "restore") return WRONG_USE;
    uint64_t changed = 0;
    const int32_t status = (words[1] == "sweep" ? plane.sweep : plane.restore)(plane.state, changed);
    if (status != 0) return std::string("the kernel refused it: ") + strerror(status);
    appendFormat(result, "%" PRIu64 "\n", changed);
    return {};
}

std::string roleVerb(Board& board, const Words& words, std::string& result) {
    std::lock_guard guard(board.lock);
    if (words.size() == 1) {
        result = std::string(roleName(board.role)) + "\n";
        return {};
    }
    if (words.size() != 2) return WRONG_USE;
    for (const Role role : {Role::single, Role::active, Role::standby}) {
        if (words[1] != roleName(role)) continue;
        board.role = role;
        return {};
    }
    return WRONG_USE;
}

std::string helpVerb(Board& board, const Words& words, std::string& result);

// The journal and the monitor are streams and are served apart.
constexpr char JOURNAL_VERB[] = "journal";
constexpr char MONITOR_VERB[] = "monitor";

constexpr Verb VERBS[] = {
    {"list", "", "all interfaces and their state", listVerb},
    {"unplug", "IF", "take an interface away", unplugVerb, "ip link set IF nomaster"},
    {"plug", "IF", "bring it back", plugVerb, "ip link set IF master BRIDGE"},
    {"join", "TRUNK IF", "put a port into a trunk", joinVerb, "ip link set IF master TRUNK"},
    {"leave", "TRUNK IF", "take a port out of a trunk", leaveVerb, "ip link set IF nomaster"},
    {"vlan-add", "VID NUMBER NAME", "add a VLAN interface", vlanAddVerb,
     "ip link add link BRIDGE name NAME type vlan id VID"},
    {"vlan-del", "VID", "delete a VLAN interface", numberVerb<deleteVlan>, "ip link delete NAME"},
    {"card-pull", "SLOT", "pull a card with its ports", numberVerb<pullCard>, "ip link set IF nomaster"},
    {"card-push", "SLOT", "push a fresh card into its slot", numberVerb<pushCard>,
     "ip link set IF master BRIDGE"},
    {"publish",
     "newlink IF [register] [join] [member-add IF]... [member-del IF]... | dellink IF | if-reset IF | reset "
     "| "
     "mode-refresh | serial-sync | card-up SLOT | raw GROUP HEX",
     "publish an event without changing the board", publishVerb},
    {"settle", "", "wait until all events are handled", settleVerb},
    {"fault", "CALL NTH|every STATUS [if IF] [command NUMBER] | list | clear",
     "make a call of the hardware layer fail", faultVerb},
    {"forward", "A B [VID]", "would traffic from A reach B", forwardVerb},
    {"matrix", "[VID]", "who can talk to whom: o yes, x no, p partly", matrixVerb},
    {"hardware", "", "what is programmed", hardwareVerb},
    {"plane", "show|sweep|restore",
     "what is in force beside what was asked for; remove what is left over; put back what is missing",
     planeVerb},
    {"role", "[active|standby|single]", "show or set the board's role", roleVerb},
    {"help", "", "this list", helpVerb},
};

std::string helpVerb(Board&, const Words&, std::string& result) {
    for (const Verb& verb : VERBS) appendFormat(result, "%s %s - %s\n", verb.name, verb.arguments, verb.help);
    appendFormat(result, "%s - calls of the hardware layer as they happen\n", JOURNAL_VERB);
    appendFormat(result, "%s - requests, events, hardware calls and texts as they happen\n", MONITOR_VERB);
    return {};
}

void streamJournal(int client, bool everything) {
    const auto stream = openJournalStream(everything);
    if (stream == nullptr) {
        answerClient(client, "error: no descriptor left\n");
        return;
    }
    // Of the client only its end is waited for; one that closed its sending side goes on listening.
    for (bool open = answerClient(client, "ok\n"); open;) {
        pollfd polled[] = {{stream->wake, POLLIN, 0}, {client, 0, 0}};
        if (poll(polled, 2, -1) < 0 && errno != EINTR) break;
        open = polled[1].revents == 0 && answerClient(client, takeJournalLines(*stream));
    }
    closeJournalStream(stream);
}

std::string runVerb(Board& board, const Verb& verb, const Words& words, std::string& result) {
    if (verb.kernelCommand != nullptr) {
        std::lock_guard guard(board.lock);
        if (!board.bridge.empty())
            return std::string("the kernel decides what is plugged here: ") + verb.kernelCommand;
    }
    return verb.run(board, words, result);
}

std::string answerVerb(const Words& words) {
    for (const Verb& verb : VERBS) {
        if (words[0] != verb.name) continue;
        std::string result;
        std::string problem = runVerb(theBoard(), verb, words, result);
        if (problem == WRONG_USE) problem = std::string("usage: ") + verb.name + " " + verb.arguments;
        return problem.empty() ? "ok\n" + result : "error: " + printable(problem) + "\n";
    }
    return "error: no such verb: " + printable(words[0]) + "; help lists them\n";
}

void boardRequest(int client, const std::string& line) {
    const Words words = splitWords(line);
    if (words.empty())
        answerClient(client, "error: expected a verb; help lists them\n");
    else if (words.size() == 1 && (words[0] == JOURNAL_VERB || words[0] == MONITOR_VERB))
        streamJournal(client, words[0] == MONITOR_VERB);
    else
        answerClient(client, answerVerb(words));
}
}  // namespace

int32_t startBoardControl() {
    return startLineServer(BOARD_TASK, rootedPath(BOARD_SOCKET_PATH), boardRequest);
}
