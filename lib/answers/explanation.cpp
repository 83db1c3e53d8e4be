#include "lib/answers/explanation.h"

#include <fmt/format.h>

#include <algorithm>

#include "lib/configuration/judgement_text.h"
#include "lib/configuration/ownership.h"
#include "lib/configuration/saved.h"
#include "lib/link/forward.h"
#include "lib/link/interfaces.h"
#include "lib/link/plane.h"
#include "lib/link/printouts.h"

namespace {

// In the order of Verdict.
constexpr const char* VERDICTS[] = {"forwards", "blocked", "partly"};

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

// What of the saved configuration the rows that block come of.
std::vector<WantedBy> findWanted(Session& session, const Origins& origins, const Judgement& judgement) {
    std::vector<WantedBy> wanted;
    const auto add = [&](const ConfigRow& row, uint32_t interface) {
        const auto origin = origins.find(row);
        if (origin == origins.end()) return;
        const WantedBy one = {interfaceName(session, interface), origin->second.policy,
                              origin->second.place.line};
        if (std::find(wanted.begin(), wanted.end(), one) == wanted.end()) wanted.push_back(one);
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

// An interface that is not plugged forwards nothing, whatever the tables say.
Direction explainOne(Session& session, const Tables& tables, const Origins& origins,
                     const BoardInterface& from, const BoardInterface& to, uint32_t vlan) {
    Direction answer = {.from = from.name, .to = to.name, .vlan = vlan};
    const Judgement judgement = judgeTables(tables, from.number, to.number, vlan);
    answer.tables = judgement.verdict;
    answer.reasons = reasonTexts(tables, judgement);
    answer.notes = noteTexts(tables, judgement);
    answer.saved = findWanted(session, origins, judgement);
    const ForwardAnswer plane = askForward(session, from.number, to.number, vlan);
    answer.hardware = plane.word == "yes"  ? Verdict::forwards
                      : plane.word == "no" ? Verdict::blocked
                                           : Verdict::partly;
    answer.reason = plane.reason;
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

void countDrops(Session& session, const PlaneReport& report, const BoardInterface& from,
                const BoardInterface& to, Direction& answer) {
    const std::vector<std::string> sources = planeNames(session, from);
    const std::vector<std::string> targets = planeNames(session, to);
    for (const PlaneEntry& entry : report.entries) {
        const bool between = std::find(sources.begin(), sources.end(), entry.from) != sources.end() &&
                             std::find(targets.begin(), targets.end(), entry.to) != targets.end();
        if (!between || (answer.vlan != 0 && entry.vlan != 0 && entry.vlan != answer.vlan)) continue;
        if (entry.packets) answer.packets = answer.packets.value_or(0) + *entry.packets;
        if (entry.bytes) answer.bytes = answer.bytes.value_or(0) + *entry.bytes;
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
    return {{"from", answer.from},
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
    const Origins origins =
        lookAtSaved(session, {.running = tables.configuration, .owned = readOwnership(session).rows})
            .resolution.origins;
    Explanation explanation = {explainOne(session, tables, origins, from, to, vlan),
                               explainOne(session, tables, origins, to, from, vlan)};
    countDrops(session, report, from, to, explanation[0]);
    countDrops(session, report, to, from, explanation[1]);
    return explanation;
}

Json explanationAnswer(const Explanation& explanation) {
    return {directionJson(explanation[0]), directionJson(explanation[1])};
}
