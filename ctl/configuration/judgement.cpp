#include "ctl/commands/why.h"

#include <algorithm>

#include "ctl/client/interfaces.h"
#include "ctl/client/printouts.h"
#include "ctl/text/output.h"
#include "wire/framing.h"

namespace {

using PortPair = std::pair<uint32_t, uint32_t>;

constexpr char FORWARDS[] = "forwards";
constexpr char BLOCKED[] = "blocked";
constexpr char PARTLY[] = "partly";

const BoardInterface* interfaceOf(const Tables& tables, uint32_t number) {
    for (const BoardInterface& interface : tables.interfaces) {
        if (interface.number == number) {
            return &interface;
        }
    }
    return nullptr;
}

std::string nameOf(const Tables& tables, uint32_t number) {
    const BoardInterface* interface = interfaceOf(tables, number);
    return interface != nullptr ? interface->name : std::to_string(number);
}

std::vector<const BoardInterface*> membersOf(const Tables& tables, const BoardInterface& trunk) {
    std::vector<const BoardInterface*> members;
    for (const std::string& name : trunk.members) {
        for (const BoardInterface& interface : tables.interfaces) {
            if (interface.name == name) {
                members.push_back(&interface);
            }
        }
    }
    return members;
}

bool isTrunk(const BoardInterface* interface) {
    return interface != nullptr && interface->kind == "trunk";
}

// The ports that an isolation of an interface is programmed at.
std::vector<uint32_t> programmedPorts(const Tables& tables, uint32_t number, bool trunkToPort) {
    const BoardInterface* interface = interfaceOf(tables, number);
    if (!trunkToPort || !isTrunk(interface)) {
        return {number};
    }
    std::vector<uint32_t> ports;
    for (const BoardInterface* member : membersOf(tables, *interface)) {
        ports.push_back(member->number);
    }
    return ports;
}

// The ports that traffic of an interface runs over: the plugged members of a trunk that has some.
std::vector<const BoardInterface*> carriersOf(const Tables& tables, const BoardInterface& interface) {
    std::vector<const BoardInterface*> carriers = membersOf(tables, interface);
    std::erase_if(carriers, [](const BoardInterface* member) { return !member->present; });
    if (carriers.empty()) {
        carriers.push_back(&interface);
    }
    return carriers;
}

// Traffic from one port to another, within that of two interfaces.
struct Flow {
    const BoardInterface* source;
    const BoardInterface* target;
    bool blocked = false;
};

// One question while it is answered.
struct Inquiry {
    const Tables& tables;
    uint32_t from, to, vlan;
    std::vector<Flow> flows;
    Judgement judgement;
};

bool touches(uint32_t programmed, const BoardInterface* port, uint32_t whole) {
    return programmed == port->number || programmed == whole;
}

// Marks the flows that an isolation programmed at a pair of ports holds up. True when there are any.
bool blockFlows(Inquiry& inquiry, PortPair pair, bool bothWays) {
    bool any = false;
    for (Flow& flow : inquiry.flows) {
        const bool forth =
            touches(pair.first, flow.source, inquiry.from) && touches(pair.second, flow.target, inquiry.to);
        const bool back =
            touches(pair.second, flow.source, inquiry.from) && touches(pair.first, flow.target, inquiry.to);
        if (forth || (bothWays && back)) {
            flow.blocked = any = true;
        }
    }
    return any;
}

std::vector<PortPair> portPairs(const Tables& tables, uint32_t source, bool sourceToPort, uint32_t target,
                                bool targetToPort) {
    std::vector<PortPair> pairs;
    for (const uint32_t first : programmedPorts(tables, source, sourceToPort)) {
        for (const uint32_t second : programmedPorts(tables, target, targetToPort)) {
            if (first != second) {
                pairs.emplace_back(first, second);
            }
        }
    }
    return pairs;
}

// The port pairs of two members of a group. Where one switch alone is on, both orders are programmed.
std::vector<PortPair> groupPairs(const Tables& tables, uint32_t left, uint32_t right) {
    const bool source = tables.sourceTrunkToPort, target = tables.targetTrunkToPort;
    std::vector<PortPair> pairs = portPairs(tables, left, source, right, target);
    if (source != target) {
        const std::vector<PortPair> reverse = portPairs(tables, right, source, left, target);
        pairs.insert(pairs.end(), reverse.begin(), reverse.end());
    }
    return pairs;
}

bool isClaimed(const Tables& tables, PortPair pair, uint32_t group) {
    const auto found = tables.claims.find(std::minmax(pair.first, pair.second));
    return found != tables.claims.end() && found->second.contains(group);
}

// An interface as a member, with what a trunk stands for.
std::string memberText(const Tables& tables, uint32_t number) {
    const BoardInterface* interface = interfaceOf(tables, number);
    std::string text = nameOf(tables, number);
    if (isTrunk(interface) && (tables.sourceTrunkToPort || tables.targetTrunkToPort)) {
        text += interface->members.empty() ? " (without member ports)"
                                           : " (as " + joinChoices(interface->members, "and") + ")";
    }
    return text;
}

std::string groupText(const ConfigRow& row) {
    return row.kind == ConfigKind::group ? formatText("group %u", row.scope.number)
                                         : formatText("VLAN group %u", row.scope.number);
}

// Whether a row may speak for traffic of an interface: it names it, its trunk or a member of it.
bool concerns(const Tables& tables, uint32_t row, uint32_t number) {
    const BoardInterface* asked = interfaceOf(tables, number);
    const BoardInterface* named = interfaceOf(tables, row);
    return row == number || (asked != nullptr && named != nullptr &&
                             (asked->trunk == named->name || named->trunk == asked->name));
}

// One pair of members of a group.
void judgeMembers(Inquiry& inquiry, const ConfigRow& left, bool leftActive, uint32_t right,
                  bool rightActive) {
    const Tables& tables = inquiry.tables;
    const std::string both =
        groupText(left) + " holds " + memberText(tables, left.member) + " and " + memberText(tables, right);
    if (left.scope.vlan != 0 && left.scope.vlan != inquiry.vlan) {
        inquiry.judgement.notes.push_back(both + formatText(", but within VLAN %u only", left.scope.vlan));
        return;
    }
    bool blocks = false, waits = false;
    for (const PortPair& pair : groupPairs(tables, left.member, right)) {
        // A member that was only created counts for those that were activated after it.
        const bool programmed = (leftActive && rightActive) ||
                                ((leftActive || rightActive) && isClaimed(tables, pair, left.scope.number));
        blocks = (programmed && blockFlows(inquiry, pair, true)) || blocks;
        waits = waits || !programmed;
    }
    if (blocks) {
        inquiry.judgement.reasons.push_back(both);
    } else if (waits) {
        inquiry.judgement.notes.push_back(both + ", but " + nameOf(tables, leftActive ? right : left.member) +
                                          " is not active");
    } else {
        inquiry.judgement.notes.push_back(both + ", but no port pair comes of it");
    }
}

void judgeGroups(Inquiry& inquiry) {
    const auto& rows = inquiry.tables.configuration.rows;
    for (const auto& [left, leftActive] : rows) {
        if (left.kind == ConfigKind::pair || !concerns(inquiry.tables, left.member, inquiry.from)) {
            continue;
        }
        for (auto at = rows.lower_bound({left.kind, left.scope, 0});
             at != rows.end() && at->first.kind == left.kind && at->first.scope == left.scope; ++at) {
            const uint32_t right = at->first.member;
            if (right != left.member && concerns(inquiry.tables, right, inquiry.to)) {
                judgeMembers(inquiry, left, leftActive, right, at->second);
            }
        }
    }
}

void judgePairs(Inquiry& inquiry) {
    const Tables& tables = inquiry.tables;
    for (const auto& [row, active] : tables.configuration.rows) {
        if (row.kind != ConfigKind::pair || !concerns(tables, row.scope.number, inquiry.from) ||
            !concerns(tables, row.member, inquiry.to)) {
            continue;
        }
        bool blocks = false;
        // A trunk as target is always replaced by its members.
        for (const PortPair& pair :
             portPairs(tables, row.scope.number, tables.sourceTrunkToPort, row.member, true)) {
            blocks = (active && blockFlows(inquiry, pair, false)) || blocks;
        }
        const std::string text =
            "pair " + memberText(tables, row.scope.number) + " to " + memberText(tables, row.member);
        if (blocks) {
            inquiry.judgement.reasons.push_back(text);
        } else {
            inquiry.judgement.notes.push_back(
                text + (active ? ", but no port pair comes of it" : ", but it is not active"));
        }
    }
}

// Whether PON isolation holds a port, by itself or as a member of the trunk `whole`.
bool isAccess(const Inquiry& inquiry, const BoardInterface* port, uint32_t whole) {
    return port->access || interfaceOf(inquiry.tables, whole)->access;
}

void judgePon(Inquiry& inquiry) {
    bool pon = false;
    const bool off = inquiry.tables.configuration.ponOff.contains(inquiry.vlan);
    for (Flow& flow : inquiry.flows) {
        if (isAccess(inquiry, flow.source, inquiry.from) && isAccess(inquiry, flow.target, inquiry.to)) {
            pon = true;
            flow.blocked = flow.blocked || (inquiry.vlan != 0 && !off);
        }
    }
    if (!pon) {
        return;
    }
    if (inquiry.vlan == 0) {
        inquiry.judgement.notes.push_back("PON isolation may hold both within a VLAN: ask with --vlan");
    } else if (off) {
        inquiry.judgement.notes.push_back(formatText("PON isolation is off in VLAN %u", inquiry.vlan));
    } else {
        inquiry.judgement.reasons.push_back(formatText("PON isolation is on in VLAN %u", inquiry.vlan));
    }
}

// The usual reason for a difference: hardware keeps a pair of ports under the scope of the group that claimed
// it first, even when that one is gone.
void noteClaims(Inquiry& inquiry) {
    for (const Flow& flow : inquiry.flows) {
        const auto claims = inquiry.tables.claims.find(std::minmax(flow.source->number, flow.target->number));
        if (claims != inquiry.tables.claims.end()) {
            const std::vector<uint32_t> groups(claims->second.begin(), claims->second.end());
            inquiry.judgement.claims = flow.source->name + " and " + flow.target->name +
                                       " are claimed by group " + numberListCell(groups).text +
                                       "; hardware keeps the scope of the first group that claimed them";
            return;
        }
    }
}

// The daemon's switches and claims, from its printouts.
Exit readPrintouts(Session& session, Tables& tables) {
    std::string global, inner, why;
    LineResult result = shellRequest("portIsolateGlobalShow", session.timeoutMs, global, why);
    if (result == LineResult::done) {
        result = shellRequest("portIsolateIfInnerShow", session.timeoutMs, inner, why);
    }
    for (const auto& [name, value] : readSettings(global)) {
        if (name == "isSrcTrunkToPort") {
            tables.sourceTrunkToPort = value != "0";
        } else if (name == "isDstTrunkToPort") {
            tables.targetTrunkToPort = value != "0";
        }
    }
    for (const PrintedPair& pair : readPairs(inner)) {
        tables.claims[std::minmax(pair.source, pair.target)].insert(pair.groups.begin(), pair.groups.end());
    }
    return lineExit(result, "printouts", SHELL_SOCKET_PATH, why);
}

// What the forwarding plane answers: a verdict as above, and why.
Exit askPlane(Session& session, uint32_t from, uint32_t to, uint32_t vlan, std::string& verdict,
              std::string& reason) {
    std::vector<std::string> lines;
    const std::string request = formatText("forward %u %u", from, to);
    const Exit exit = askBoard(session, vlan != 0 ? request + formatText(" %u", vlan) : request, lines);
    if (exit != Exit::done) {
        return exit;
    }
    const size_t blank = lines.size() == 1 ? std::min(lines[0].find(' '), lines[0].size()) : 0;
    const std::string word = lines.size() == 1 ? lines[0].substr(0, blank) : "";
    if (word != "yes" && word != "no" && word != "partly") {
        return brokenProtocol("no single answer to a question");
    }
    verdict = word == "yes" ? FORWARDS : word == "no" ? BLOCKED : PARTLY;
    reason = lines[0].substr(std::min(blank + 1, lines[0].size()));
    return Exit::done;
}

// The answer for one direction.
struct Answer {
    std::string from, to;
    uint32_t vlan = 0;
    bool plugged = true;  // otherwise the tables do not matter
    Judgement tables;
    std::string hardware;
    std::string reason;  // of the hardware
};

bool agrees(const Answer& answer) {
    return !answer.plugged || answer.tables.verdict == answer.hardware;
}

Exit answerOne(Session& session, const Tables& tables, uint32_t from, uint32_t to, uint32_t vlan,
               Answer& answer) {
    answer.from = nameOf(tables, from);
    answer.to = nameOf(tables, to);
    answer.vlan = vlan;
    answer.plugged = interfaceOf(tables, from)->present && interfaceOf(tables, to)->present;
    answer.tables = judgeTables(tables, from, to, vlan);
    const Exit exit = askPlane(session, from, to, vlan, answer.hardware, answer.reason);
    if (!agrees(answer) && !answer.tables.claims.empty()) {
        answer.tables.notes.push_back(answer.tables.claims);
    }
    return exit;
}

Tone verdictTone(const std::string& verdict) {
    return verdict == FORWARDS ? Tone::good : verdict == BLOCKED ? Tone::bad : Tone::warning;
}

const char* verdictText(const std::string& verdict) {
    return verdict == FORWARDS  ? "passes"
           : verdict == BLOCKED ? "is blocked"
                                : "passes over some member ports only";
}

void printAnswer(const Answer& answer) {
    printLine(toned(Tone::heading, safeText(answer.from + " to " + answer.to)) +
              (answer.vlan != 0 ? formatText(" in VLAN %u", answer.vlan) : "") + ": " +
              toned(verdictTone(answer.hardware), verdictText(answer.hardware)));
    const char* label = "  tables:    ";
    for (const std::string& reason : answer.tables.reasons) {
        printLine(label + safeText(reason));
        label = "             ";
    }
    if (answer.tables.reasons.empty()) {
        printLine(label + std::string("nothing blocks it"));
    }
    for (const std::string& note : answer.tables.notes) {
        printLine("             " + toned(Tone::faint, "(" + safeText(note) + ")"));
    }
    printLine("  hardware:  " + (answer.reason.empty() ? "nothing blocks it" : safeText(answer.reason)));
    if (!agrees(answer)) {
        printLine(toned(Tone::bad, std::string("  They disagree: by the tables traffic ") +
                                       verdictText(answer.tables.verdict) + ", by the hardware it " +
                                       verdictText(answer.hardware) + "."));
    }
}

std::string answerJson(const Answer& answer) {
    return jsonObject(
        {{nullptr, "from"},
         {nullptr, "to"},
         {nullptr, "vlan"},
         {nullptr, "tables"},
         {nullptr, "reasons"},
         {nullptr, "notes"},
         {nullptr, "hardware"},
         {nullptr, "hardwareReason"},
         {nullptr, "agree"}},
        {textCell(answer.from), textCell(answer.to), numberCell(answer.vlan), textCell(answer.tables.verdict),
         listCell(answer.tables.reasons), listCell(answer.tables.notes), textCell(answer.hardware),
         textCell(answer.reason), flagCell(agrees(answer), "", "")});
}

// The two interfaces and the VLAN that are asked about.
Exit readQuestion(Session& session, const Invocation& invocation, PortPair& ends, uint32_t& vlan) {
    Exit exit = resolveInterface(session, invocation.arguments[0], ends.first);
    if (exit == Exit::done) {
        exit = resolveInterface(session, invocation.arguments[1], ends.second);
    }
    const std::string* given = optionValue(invocation.options, "--vlan");
    if (exit == Exit::done && given != nullptr) {
        exit = numberArgument("VLAN", *given, vlan);
    }
    return exit;
}

}  // namespace

Judgement judgeTables(const Tables& tables, uint32_t from, uint32_t to, uint32_t vlan) {
    Inquiry inquiry{tables, from, to, vlan, {}, {}};
    for (const BoardInterface* source : carriersOf(tables, *interfaceOf(tables, from))) {
        for (const BoardInterface* target : carriersOf(tables, *interfaceOf(tables, to))) {
            if (source != target) {
                inquiry.flows.push_back({source, target});
            }
        }
    }
    judgeGroups(inquiry);
    judgePairs(inquiry);
    judgePon(inquiry);
    noteClaims(inquiry);
    const auto blocked = std::count_if(inquiry.flows.begin(), inquiry.flows.end(),
                                       [](const Flow& flow) { return flow.blocked; });
    inquiry.judgement.verdict = blocked == 0                                           ? FORWARDS
                                : static_cast<size_t>(blocked) == inquiry.flows.size() ? BLOCKED
                                                                                       : PARTLY;
    return inquiry.judgement;
}

Exit runWhy(Session& session, const Invocation& invocation) {
    PortPair ends;
    uint32_t vlan = 0;
    Exit exit = readQuestion(session, invocation, ends, vlan);
    if (exit != Exit::done) {
        return exit;
    }
    Tables tables;
    tables.interfaces = boardInterfaces(session);
    for (const uint32_t end : {ends.first, ends.second}) {
        if (interfaceOf(tables, end) == nullptr) {
            return session.interfacesFailure.empty()
                       ? misuse(formatText("no interface has the number %u", end))
                       : lineExit(LineResult::failed, "", BOARD_SOCKET_PATH, session.interfacesFailure);
        }
    }
    if (ends.first == ends.second) {
        return misuse("name two different interfaces");
    }
    exit = readRunning(session, tables.configuration);
    if (exit == Exit::done) {
        exit = readPrintouts(session, tables);
    }
    Answer answers[2];
    for (size_t at = 0; at < std::size(answers) && exit == Exit::done; ++at) {
        exit = answerOne(session, tables, at == 0 ? ends.first : ends.second,
                         at == 0 ? ends.second : ends.first, vlan, answers[at]);
    }
    if (exit != Exit::done) {
        return exit;
    }
    if (session.json) {
        printLine("[" + answerJson(answers[0]) + ",\n " + answerJson(answers[1]) + "]");
        return Exit::done;
    }
    printAnswer(answers[0]);
    printAnswer(answers[1]);
    return Exit::done;
}
