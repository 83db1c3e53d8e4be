#include "lib/configuration/judgement.h"

#include <algorithm>

namespace {

using PortPair = std::pair<uint32_t, uint32_t>;

std::vector<const BoardInterface*> membersOf(const Tables& tables, const BoardInterface& trunk) {
    std::vector<const BoardInterface*> members;
    for (const std::string& name : trunk.members) {
        for (const BoardInterface& interface : tables.interfaces) {
            if (interface.name == name) members.push_back(&interface);
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
    if (!trunkToPort || !isTrunk(interface)) return {number};
    std::vector<uint32_t> ports;
    for (const BoardInterface* member : membersOf(tables, *interface)) ports.push_back(member->number);
    return ports;
}

// The ports that traffic of an interface runs over: the plugged members of a trunk that has some.
std::vector<const BoardInterface*> carriersOf(const Tables& tables, const BoardInterface& interface) {
    std::vector<const BoardInterface*> carriers = membersOf(tables, interface);
    std::erase_if(carriers, [](const BoardInterface* member) { return !member->present; });
    if (carriers.empty()) carriers.push_back(&interface);
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
        if (forth || (bothWays && back)) flow.blocked = any = true;
    }
    return any;
}

std::vector<PortPair> portPairs(const Tables& tables, uint32_t source, bool sourceToPort, uint32_t target,
                                bool targetToPort) {
    std::vector<PortPair> pairs;
    for (const uint32_t first : programmedPorts(tables, source, sourceToPort)) {
        for (const uint32_t second : programmedPorts(tables, target, targetToPort)) {
            if (first != second) pairs.emplace_back(first, second);
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
    Finding finding = {.kind = FindingKind::members,
                       .bearing = Bearing::otherVlan,
                       .row = left,
                       .other = right,
                       .waiting = leftActive ? right : left.member};
    if (left.scope.vlan == 0 || left.scope.vlan == inquiry.vlan) {
        bool blocks = false, waits = false;
        for (const PortPair& pair : groupPairs(inquiry.tables, left.member, right)) {
            // A member that was only created counts for those that were activated after it.
            const bool claimed = isClaimed(inquiry.tables, pair, left.scope.number);
            const bool programmed = (leftActive && rightActive) || ((leftActive || rightActive) && claimed);
            blocks = (programmed && blockFlows(inquiry, pair, true)) || blocks;
            waits = waits || !programmed;
        }
        finding.bearing = blocks ? Bearing::blocks : waits ? Bearing::inactive : Bearing::noPorts;
    }
    inquiry.judgement.findings.push_back(finding);
}

void judgeGroups(Inquiry& inquiry) {
    const auto& rows = inquiry.tables.configuration.rows;
    for (const auto& [left, leftActive] : rows) {
        if (left.kind == ConfigKind::pair || !concerns(inquiry.tables, left.member, inquiry.from)) continue;
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
        const Bearing bearing = blocks ? Bearing::blocks : active ? Bearing::noPorts : Bearing::inactive;
        inquiry.judgement.findings.push_back({.kind = FindingKind::pair, .bearing = bearing, .row = row});
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
    if (!pon) return;
    const Bearing bearing = inquiry.vlan == 0 ? Bearing::noVlan : off ? Bearing::off : Bearing::blocks;
    inquiry.judgement.findings.push_back(
        {.kind = FindingKind::pon, .bearing = bearing, .vlan = inquiry.vlan});
}

void findClaim(Inquiry& inquiry) {
    for (const auto& [source, target, blocked] : inquiry.flows) {
        const auto found = inquiry.tables.claims.find(std::minmax(source->number, target->number));
        if (found == inquiry.tables.claims.end()) continue;
        inquiry.judgement.claim = {source->number, target->number, found->second};
        return;
    }
}

}  // namespace

Judgement judgeTables(const Tables& tables, uint32_t from, uint32_t to, uint32_t vlan) {
    Inquiry inquiry{tables, from, to, vlan, {}, {}};
    for (const BoardInterface* source : carriersOf(tables, *interfaceOf(tables, from))) {
        for (const BoardInterface* target : carriersOf(tables, *interfaceOf(tables, to))) {
            if (source != target) inquiry.flows.push_back({source, target});
        }
    }
    judgeGroups(inquiry);
    judgePairs(inquiry);
    judgePon(inquiry);
    findClaim(inquiry);
    const auto blocked = std::count_if(inquiry.flows.begin(), inquiry.flows.end(),
                                       [](const Flow& flow) { return flow.blocked; });
    inquiry.judgement.verdict = blocked == 0                                           ? Verdict::forwards
                                : static_cast<size_t>(blocked) == inquiry.flows.size() ? Verdict::blocked
                                                                                       : Verdict::partly;
    return inquiry.judgement;
}

const BoardInterface* interfaceOf(const Tables& tables, uint32_t number) {
    for (const BoardInterface& interface : tables.interfaces) {
        if (interface.number == number) return &interface;
    }
    return nullptr;
}
