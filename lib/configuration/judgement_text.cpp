#include "lib/configuration/judgement_text.h"

#include <fmt/format.h>

#include "lib/text/output.h"

namespace {

std::string nameOf(const Tables& tables, uint32_t number) {
    const BoardInterface* interface = interfaceOf(tables, number);
    return interface != nullptr ? interface->name : std::to_string(number);
}

// An interface as a member, with what a trunk stands for.
std::string memberText(const Tables& tables, uint32_t number) {
    const BoardInterface* interface = interfaceOf(tables, number);
    std::string name = nameOf(tables, number);
    const bool replaced = tables.sourceTrunkToPort || tables.targetTrunkToPort;
    if (!replaced || interface == nullptr || interface->kind != "trunk") return name;
    if (interface->members.empty()) return name + " (without member ports)";
    return name + " (as " + joinChoices(interface->members, "and") + ")";
}

std::string membersText(const Tables& tables, const Finding& finding) {
    const ConfigRow& row = finding.row;
    std::string both =
        fmt::format("{} {} holds {} and {}", row.kind == ConfigKind::group ? "group" : "VLAN group",
                    row.scope.number, memberText(tables, row.member), memberText(tables, finding.other));
    switch (finding.bearing) {
        case Bearing::otherVlan:
            return fmt::format("{}, but within VLAN {} only", both, row.scope.vlan);
        case Bearing::inactive:
            return both + ", but " + nameOf(tables, finding.waiting) + " is not active";
        case Bearing::noPorts:
            return both + ", but no port pair comes of it";
        default:
            return both;
    }
}

std::string pairText(const Tables& tables, const Finding& finding) {
    std::string pair = "pair " + memberText(tables, finding.row.scope.number) + " to " +
                       memberText(tables, finding.row.member);
    if (finding.bearing == Bearing::blocks) return pair;
    return pair + (finding.bearing == Bearing::inactive ? ", but it is not active"
                                                        : ", but no port pair comes of it");
}

std::string ponText(const Finding& finding) {
    if (finding.bearing == Bearing::noVlan) {
        return "PON isolation may hold both within a VLAN: ask with --vlan";
    }
    return fmt::format("PON isolation is {} in VLAN {}", finding.bearing == Bearing::off ? "off" : "on",
                       finding.vlan);
}

std::string findingText(const Tables& tables, const Finding& finding) {
    switch (finding.kind) {
        case FindingKind::members:
            return membersText(tables, finding);
        case FindingKind::pair:
            return pairText(tables, finding);
        default:
            return ponText(finding);
    }
}

std::vector<std::string> textsOf(const Tables& tables, const Judgement& judgement, bool blocking) {
    std::vector<std::string> texts;
    for (const Finding& finding : judgement.findings) {
        const bool blocks = finding.bearing == Bearing::blocks;
        if (blocks == blocking) texts.push_back(findingText(tables, finding));
    }
    return texts;
}

}  // namespace

std::vector<std::string> reasonTexts(const Tables& tables, const Judgement& judgement) {
    return textsOf(tables, judgement, true);
}

std::vector<std::string> noteTexts(const Tables& tables, const Judgement& judgement) {
    return textsOf(tables, judgement, false);
}

std::string claimText(const Tables& tables, const Claim& claim) {
    return fmt::format(
        "{} and {} are claimed by group {}; hardware keeps the scope of the first group that claimed them",
        nameOf(tables, claim.source), nameOf(tables, claim.target), fmt::join(claim.groups, ","));
}
