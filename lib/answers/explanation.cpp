#include "lib/answers/explanation.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "lib/configuration/judgement_text.h"
#include "lib/configuration/ownership.h"
#include "lib/configuration/saved.h"
#include "lib/configuration/shortfall.h"
#include "lib/link/forward.h"
#include "lib/link/interfaces.h"
#include "lib/link/plane.h"
#include "lib/link/printouts.h"

namespace {

// In the order of Verdict.
constexpr const char* VERDICTS[] = {"forwards", "blocked", "partly"};

bool spans(SpanningGroups groups, uint32_t group) {
    return group <= SPANNING_GROUP_MAX && (groups & spanningBit(group)) != 0;
}

// What the daemon runs with; its switches and claims are from its printouts.
Tables readTables(Session& session) {
    Tables tables;
    tables.interfaces = boardInterfaces(session);
    tables.configuration = readRunning(session);
    const std::string global = askShell(session, "portIsolateGlobalShow", "printouts");
    const std::string inner = askShell(session, "portIsolateIfInnerShow", "printouts");
    for (const auto& [name, value] : readSettings(global)) {
        if (name == "isSrcTrunkToPort") tables.sourceTrunkToPort = value != "0";
        if (name == "isDstTrunkToPort") tables.targetTrunkToPort = value != "0";
    }
    for (const PrintedPair& pair : readPairs(inner)) {
        tables.claims[std::minmax(pair.source, pair.target)].insert(pair.groups.begin(), pair.groups.end());
    }
    return tables;
}

using Origins = std::map<ConfigRow, Origin>;

Origins readOrigins(Session& session, const Tables& tables) {
    return lookAtSaved(session, {.running = tables.configuration, .owned = readOwnership(session).rows})
        .resolution.origins;
}

void addWanted(Session& session, const Origins& origins, const ConfigRow& row, uint32_t interface,
               std::vector<WantedBy>& wanted) {
    const auto origin = origins.find(row);
    if (origin == origins.end()) return;
    const WantedBy one = {interfaceName(session, interface), origin->second.policy,
                          origin->second.place.line};
    if (std::find(wanted.begin(), wanted.end(), one) == wanted.end()) wanted.push_back(one);
}

// What of the saved configuration the rows that block come of.
std::vector<WantedBy> findWanted(Session& session, const Origins& origins, const Judgement& judgement) {
    std::vector<WantedBy> wanted;
    const auto add = [&](const ConfigRow& row, uint32_t interface) {
        addWanted(session, origins, row, interface, wanted);
    };
    for (const Finding& finding : judgement.findings) {
        if (finding.bearing != Bearing::blocks || finding.kind == FindingKind::pon) continue;
        const ConfigRow& row = finding.row;
        if (finding.kind == FindingKind::pair) {
            add(row, row.scope.number);
        } else {
            add(row, row.member);
            add({row.kind, row.scope, finding.other}, finding.other);
        }
    }
    return wanted;
}

std::set<RowScope> scopesOf(const Tables& tables, uint32_t port) {
    return groupScopes(tables.interfaces, tables.configuration)[port];
}

// The groups of a port that span machines; within a VLAN, or whatever the VLAN (0). All, while its door is
// shut.
SpanningGroups spanningGroups(const Tables& tables, const PlaneReport& report, const BoardInterface& port,
                              uint32_t vlan) {
    if (hasShutDoor(report, port.name)) return report.spanning;
    SpanningGroups groups = 0;
    for (const RowScope& scope : scopesOf(tables, port.number)) {
        const bool within = vlan == 0 || scope.vlan == 0 || scope.vlan == vlan;
        if (within && spans(report.spanning, scope.number)) groups |= spanningBit(scope.number);
    }
    return groups;
}

// A port that leads to other machines takes the groups of those here along, or nothing of their members.
void judgeSpan(const Tables& tables, const PlaneReport& report, const BoardInterface& from,
               const BoardInterface& to, Direction& answer) {
    const SpanPort* out = findSpan(report, to.device);
    const SpanPort* in = findSpan(report, from.device);
    if ((out == nullptr) == (in == nullptr)) return;
    const SpanningGroups groups = spanningGroups(tables, report, out != nullptr ? from : to, answer.vlan);
    if (groups == 0) return;
    const std::string named = groupsText(groups);
    if (in != nullptr) {
        answer.notes.push_back(fmt::format("members of {} on other machines do not reach it", named));
    } else if (out->state == SPAN_CARRIES) {
        answer.notes.push_back(fmt::format("members of {} on other machines are not reached", named));
    } else {
        answer.tables = Verdict::blocked;
        answer.reasons.push_back(fmt::format("{} cannot carry {} of {}", to.name, named, from.name));
    }
}

Verdict verdictOf(const ForwardAnswer& plane) {
    return plane.word == "yes" ? Verdict::forwards : plane.word == "no" ? Verdict::blocked : Verdict::partly;
}

// An interface that is not plugged forwards nothing, whatever the tables say.
Direction explainOne(Session& session, const Tables& tables, const Origins& origins,
                     const PlaneReport& report, const BoardInterface& from, const BoardInterface& to,
                     uint32_t vlan) {
    Direction answer = {.from = from.name, .to = to.name, .vlan = vlan};
    const Judgement judgement = judgeTables(tables, from.number, to.number, vlan);
    answer.tables = judgement.verdict;
    answer.reasons = reasonTexts(tables, judgement);
    answer.notes = noteTexts(tables, judgement);
    answer.saved = findWanted(session, origins, judgement);
    const ForwardAnswer plane = askForward(session, from.number, to.number, vlan);
    answer.hardware = verdictOf(plane);
    answer.reason = plane.reason;
    judgeSpan(tables, report, from, to, answer);
    answer.agrees = !from.present || !to.present || answer.tables == answer.hardware;
    if (!answer.agrees && judgement.claim) answer.notes.push_back(claimText(tables, *judgement.claim));
    return answer;
}

// The names that the plane may know an interface, or the member ports of a trunk, by.
std::vector<std::string> planeNames(Session& session, const BoardInterface& interface) {
    std::vector<std::string> names = interface.members;
    names.push_back(interface.name);
    for (const BoardInterface& known : boardInterfaces(session)) {
        const bool own = std::find(names.begin(), names.end(), known.name) != names.end();
        if (own && !known.device.empty()) names.push_back(known.device);
    }
    return names;
}

void addDrops(const PlaneEntry& entry, Direction& answer) {
    if (entry.packets) answer.packets = answer.packets.value_or(0) + *entry.packets;
    if (entry.bytes) answer.bytes = answer.bytes.value_or(0) + *entry.bytes;
}

void countDrops(Session& session, const PlaneReport& report, const BoardInterface& from,
                const BoardInterface& to, Direction& answer) {
    const std::vector<std::string> sources = planeNames(session, from);
    const std::vector<std::string> targets = planeNames(session, to);
    for (const PlaneEntry& entry : report.entries) {
        const bool between = std::find(sources.begin(), sources.end(), entry.from) != sources.end() &&
                             std::find(targets.begin(), targets.end(), entry.to) != targets.end();
        if (!between || (answer.vlan != 0 && entry.vlan != 0 && entry.vlan != answer.vlan)) continue;
        addDrops(entry, answer);
    }
}

void countRemoteDrops(Session& session, const PlaneReport& report, const BoardInterface& to,
                      Direction& answer) {
    const std::vector<std::string> targets = planeNames(session, to);
    for (const PlaneEntry& entry : report.entries) {
        const bool meant = entry.kind == PlaneEntryKind::span && spans(answer.groups, entry.group) &&
                           std::find(targets.begin(), targets.end(), entry.to) != targets.end();
        if (meant && (answer.vlan == 0 || entry.vlan == 0 || entry.vlan == answer.vlan)) {
            addDrops(entry, answer);
        }
    }
}

// What the tables say about members of groups on other machines.
void judgeRemote(Session& session, const Tables& tables, const PlaneReport& report, const Origins& origins,
                 uint32_t to, Direction& answer) {
    if (report.spans.empty()) {
        answer.notes.emplace_back("no port leads to other machines: board.conf has no `span` line");
        return;
    }
    if (hasShutDoor(report, answer.to)) {
        answer.tables = Verdict::blocked;
        answer.reasons.push_back(fmt::format("the door of {} is closed", answer.to));
    }
    for (const RowScope& scope : scopesOf(tables, to)) {
        if (!spans(answer.groups, scope.number)) continue;
        const std::string group = fmt::format("{}group {}", scope.vlan != 0 ? "VLAN " : "", scope.number);
        const std::string member = fmt::format("{} is in {}", answer.to, group);
        if (!spans(report.spanning, scope.number)) {
            answer.notes.push_back(member + ", but that does not span machines");
        } else if (scope.vlan != 0 && scope.vlan != answer.vlan) {
            answer.notes.push_back(fmt::format("{}, but within VLAN {} only", member, scope.vlan));
        } else {
            answer.tables = Verdict::blocked;
            answer.reasons.push_back(member);
            const ConfigKind kind = scope.vlan != 0 ? ConfigKind::vlanGroup : ConfigKind::group;
            addWanted(session, origins, {kind, scope, to}, to, answer.saved);
        }
    }
}

Json savedJson(const std::vector<WantedBy>& saved) {
    Json rows = Json::array();
    for (const WantedBy& wanted : saved) {
        rows.push_back({{"interface", wanted.interface},
                        {"policy", wanted.policy.empty() ? Json() : Json(wanted.policy)},
                        {"line", wanted.line}});
    }
    return rows;
}

Json directionJson(const Direction& answer) {
    return {{answer.groups == 0 ? "from" : "groups",
             answer.groups == 0 ? Json(answer.from) : Json(spanningNumbers(answer.groups))},
            {"to", answer.to},
            {"vlan", vlanJson(answer.vlan)},
            {"tables", VERDICTS[static_cast<size_t>(answer.tables)]},
            {"reasons", answer.reasons},
            {"notes", answer.notes},
            {"saved", savedJson(answer.saved)},
            {"hardware", VERDICTS[static_cast<size_t>(answer.hardware)]},
            {"hardwareReason", answer.reason},
            {"agree", answer.agrees},
            {"packets", answer.packets ? Json(*answer.packets) : Json()},
            {"bytes", answer.bytes ? Json(*answer.bytes) : Json()}};
}

const BoardInterface& requireInterface(Session& session, uint32_t number) {
    const BoardInterface* interface = findInterface(session, number);
    if (interface != nullptr) return *interface;
    if (!session.interfacesFailure.empty()) throw boardUnreachable(session, session.interfacesFailure);
    throw misuse(fmt::format("no interface has the number {}", number));
}

}  // namespace

std::string groupsText(SpanningGroups groups) {
    return (std::has_single_bit(groups) ? "group " : "groups ") + spanningText(groups);
}

std::string wantedText(const WantedBy& wanted) {
    return fmt::format("{} is isolated by {}line {}", wanted.interface,
                       wanted.policy.empty() ? "" : fmt::format("the policy {}, ", wanted.policy),
                       wanted.line);
}

Explanation explain(Session& session, uint32_t first, uint32_t second, uint32_t vlan) {
    const BoardInterface from = requireInterface(session, first);
    const BoardInterface to = requireInterface(session, second);
    if (first == second) throw misuse("name two different interfaces");
    const Tables tables = readTables(session);
    const PlaneReport report = readPlane(session);
    const Origins origins = readOrigins(session, tables);
    Explanation explanation = {explainOne(session, tables, origins, report, from, to, vlan),
                               explainOne(session, tables, origins, report, to, from, vlan)};
    countDrops(session, report, from, to, explanation[0]);
    countDrops(session, report, to, from, explanation[1]);
    return explanation;
}

Json explanationAnswer(const Explanation& explanation) {
    return {directionJson(explanation[0]), directionJson(explanation[1])};
}

SpanningGroups groupsArgument(const std::string& text) {
    SpanningGroups groups = 0;
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        const std::string wrong = addSpanningWord(text.substr(at, comma - at), groups);
        if (!wrong.empty()) throw misuse(wrong);
        at = comma + 1;
    }
    return groups;
}

Direction explainRemote(Session& session, uint32_t to, SpanningGroups groups, uint32_t vlan) {
    const BoardInterface interface = requireInterface(session, to);
    const Tables tables = readTables(session);
    const PlaneReport report = readPlane(session);
    const Origins origins = readOrigins(session, tables);
    Direction answer = {.to = interface.name, .groups = groups, .vlan = vlan};
    judgeRemote(session, tables, report, origins, to, answer);
    const ForwardAnswer plane = askRemoteForward(session, groups, to, vlan);
    answer.hardware = verdictOf(plane);
    answer.reason = plane.reason;
    answer.agrees = !interface.present || answer.tables == answer.hardware;
    countRemoteDrops(session, report, interface, answer);
    return answer;
}

Json remoteAnswer(const Direction& answer) {
    return directionJson(answer);
}
