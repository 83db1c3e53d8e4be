#include "lib/configuration/policy_rows.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/text.h"
#include "lib/configuration/patterns.h"
#include "lib/configuration/policy.h"
#include "lib/link/interfaces.h"

namespace {

constexpr size_t POLICY_PORTS_MAX = 4096;  // ranges come at will, and each two ports are looked at

struct PortRole {
    const ConfigRole* role = nullptr;
    Place place{};
    bool pattern = false;
    bool clashes = false;  // patterns give it several roles
};

// The roles of a policy's ports, in the order of its lines.
struct Roles {
    std::map<uint32_t, PortRole> ofPorts;
    std::vector<uint32_t> order;
};

bool sameRole(const ConfigRole& one, const ConfigRole& other) {
    return one.kind == other.kind && one.name == other.name;
}

std::string roleText(const ConfigRole& role) {
    static constexpr const char* WORDS[] = {"promiscuous", "community ", "isolated"};
    return WORDS[static_cast<size_t>(role.kind)] + role.name;
}

void giveRole(Roles& roles, uint32_t port, const PortRole& role) {
    if (roles.ofPorts.emplace(port, role).second) roles.order.push_back(port);
}

void nameRoles(Resolver& resolver, const ConfigLine& line, Roles& roles) {
    for (const ConfigRole& role : line.roles) {
        for (const ConfigWord& word : role.members) {
            if (word.excluded || word.kind != WordKind::plain) continue;
            for (const uint32_t port : resolveWord(resolver, word)) {
                const auto before = roles.ofPorts.find(port);
                if (before != roles.ofPorts.end()) {
                    addMistake(resolver, word.place,
                               fmt::format("{} was named before, in {}",
                                           safeText(interfaceName(resolver.session, port)),
                                           lineText(before->second.place)));
                    break;
                }
                giveRole(roles, port, {.role = &role, .place = word.place});
            }
        }
    }
}

void noteClash(Resolver& resolver, const ConfigLine& line, uint32_t port, PortRole& first,
               const ConfigRole& role) {
    first.clashes = true;
    resolver.result.notes.push_back(fmt::format(
        "{} is {} by line {} and {} by line {} of the policy {}: it is isolated until one of them leaves it "
        "out",
        safeText(interfaceName(resolver.session, port)), roleText(*first.role), first.place.line,
        roleText(role), role.place.line, line.name));
}

// Patterns of `isolated` give way to all others: they are for those that nothing else speaks of. A port that
// gets two other roles is isolated: it reaches no more than any of them allows.
void matchRoles(Resolver& resolver, const ConfigLine& line, bool isolated, Roles& roles) {
    for (const ConfigRole& role : line.roles) {
        if ((role.kind == RoleKind::isolated) != isolated) continue;
        for (const ConfigWord& word : role.members) {
            if (word.excluded || word.kind == WordKind::plain) continue;
            for (const uint32_t port : matchPattern(boardInterfaces(resolver.session), word, role.members)) {
                const auto before = roles.ofPorts.find(port);
                if (before == roles.ofPorts.end()) {
                    giveRole(roles, port, {.role = &role, .place = word.place, .pattern = true});
                    continue;
                }
                PortRole& first = before->second;
                const bool clashes = first.pattern && !isolated && !sameRole(*first.role, role);
                if (clashes && !first.clashes) noteClash(resolver, line, port, first, role);
            }
        }
    }
}

// A port has one role in a VLAN, or in all traffic.
void claimPorts(Resolver& resolver, const ConfigLine& line, Roles& roles) {
    std::erase_if(roles.order, [&](uint32_t port) {
        const Place place = roles.ofPorts.at(port).place;
        const auto [other, fresh] =
            resolver.policyPorts.emplace(std::pair(line.vlan, port), std::pair(line.name, place));
        if (fresh) return false;
        addMistake(resolver, place,
                   fmt::format("{} has its role in the policy {} by {}; leave it out of one of them",
                               safeText(interfaceName(resolver.session, port)), other->second.first,
                               lineText(other->second.second)));
        return true;
    });
}

std::vector<PolicyPort> portsOf(const Roles& roles) {
    std::vector<PolicyPort> ports;
    std::map<std::string, uint32_t> communities;
    uint32_t next = 0;
    for (const uint32_t port : roles.order) {
        const PortRole& role = roles.ofPorts.at(port);
        if (role.role->kind == RoleKind::promiscuous && !role.clashes) continue;
        const bool alone = role.clashes || role.role->kind == RoleKind::isolated;
        uint32_t community = next;
        if (!alone) community = communities.emplace(role.role->name, next).first->second;
        if (community == next) ++next;
        ports.push_back({port, community});
    }
    return ports;
}

ConfigKind kindOf(const ConfigLine& line) {
    return line.vlan == 0 ? ConfigKind::group : ConfigKind::vlanGroup;
}

// What stands of a policy, and the numbers that hold rows of others.
struct Found {
    PolicyRows former;
    std::set<uint32_t> foreign;
};

Found findFormer(const Resolver& resolver, const ConfigLine& line, const std::vector<PolicyPort>& ports) {
    const Standing& standing = resolver.standing;
    std::set<uint32_t> own;
    for (const PolicyPort& port : ports) own.insert(port.number);
    std::set<ConfigRow> rows = standing.owned;
    for (const auto& [row, active] : standing.running.rows) rows.insert(row);
    Found found;
    for (const ConfigRow& row : rows) {
        if (row.kind == ConfigKind::pair) {
            const bool back = rows.contains({ConfigKind::pair, {row.member, 0}, row.scope.number});
            if (back) found.former.pairs.insert(std::minmax(row.scope.number, row.member));
            continue;
        }
        const bool alike = row.kind == kindOf(line) && row.scope.vlan == line.vlan;
        if (alike && own.contains(row.member)) found.former.groups[row.scope.number].insert(row.member);
        const bool free = standing.ownsAll || standing.owned.contains(row);
        if (!free && (!alike || !own.contains(row.member))) found.foreign.insert(row.scope.number);
    }
    return found;
}

// From the highest down where the policy has none of its own, since people count from the lowest up.
std::vector<uint32_t> numbersFor(const Resolver& resolver, const ConfigLine& line,
                                 const std::set<uint32_t>& foreign) {
    const bool own = line.lastNumber != 0;
    const uint32_t last = std::min(own ? line.lastNumber : UINT32_MAX, resolver.standing.limits.groups);
    std::set<uint32_t> taken = resolver.policyNumbers;
    for (const auto& [number, first] : resolver.groups) taken.insert(number);
    if (!own) {
        taken.insert(foreign.begin(), foreign.end());
        taken.insert(resolver.reserved.begin(), resolver.reserved.end());
    }
    std::vector<uint32_t> numbers;
    for (uint32_t number = own ? line.number : 1; number <= last; ++number) {
        if (!taken.contains(number)) numbers.push_back(number);
    }
    if (!own) std::reverse(numbers.begin(), numbers.end());
    return numbers;
}

std::string shortText(Resolver& resolver, const ConfigLine& line, const PolicyRows& rows, size_t numbers) {
    const auto& [left, right] = rows.open.front();
    const std::string others =
        rows.open.size() == 1 ? "" : fmt::format(" and {} more pairs of ports", rows.open.size() - 1);
    return fmt::format(
        "the group numbers for the policy {}, {} of them, do not suffice{}: {} and {}{} would reach one "
        "another; {}, "
        "or "
        "make communities smaller",
        line.name, numbers,
        line.vlan == 0 ? ", nor do pairs (maxuniisoportnum)" : ", and pairs cannot hold within a VLAN",
        safeText(interfaceName(resolver.session, left)), safeText(interfaceName(resolver.session, right)),
        others, line.lastNumber != 0 ? "give it more with `groups`" : "raise maxisogrpnum or maxifnumpergrp");
}

void addPolicyRows(Resolver& resolver, const ConfigLine& line, const Roles& roles, const PolicyRows& rows) {
    const auto originOf = [&](uint32_t port) {
        const PortRole& role = roles.ofPorts.at(port);
        return Origin{.place = role.place, .policy = line.name, .pattern = role.pattern};
    };
    for (const auto& [number, members] : rows.groups) {
        for (const uint32_t member : members) {
            const ConfigRow row{kindOf(line), {number, line.vlan}, member};
            if (!addRow(resolver, row, true, originOf(member))) return;
        }
    }
    for (const auto& [left, right] : rows.pairs) {
        addRow(resolver, {ConfigKind::pair, {left, 0}, right}, true, originOf(left));
        addRow(resolver, {ConfigKind::pair, {right, 0}, left}, true, originOf(right));
    }
}

// Every machine finds numbers for its own ports, so they mean something else on each.
void noteSpanning(Resolver& resolver, const ConfigLine& line, const PolicyUse& use) {
    if (line.lastNumber != 0 || !resolver.standing.running.spanning) return;
    SpanningGroups shared = 0;
    for (const uint32_t group : use.groups) {
        if (group <= SPANNING_GROUP_MAX) shared |= spanningBit(group);
    }
    shared &= resolver.result.wanted.spanning.value_or(SPANNING_ALL);
    if (shared == 0) return;
    resolver.result.notes.push_back(fmt::format(
        "policy {} uses numbers that span machines ({}), on which they are those of others: give it "
        "some of its own with `groups`, or leave these out of `spanning`",
        line.name, spanningText(shared)));
}

}  // namespace

void resolvePolicy(Resolver& resolver, const ConfigLine& line) {
    Roles roles;
    nameRoles(resolver, line, roles);
    for (const bool isolated : {false, true}) matchRoles(resolver, line, isolated, roles);
    claimPorts(resolver, line, roles);
    const std::vector<PolicyPort> ports = portsOf(roles);
    if (ports.size() > POLICY_PORTS_MAX) {
        return addMistake(resolver, line.place,
                          fmt::format("more than {} ports in a policy", POLICY_PORTS_MAX));
    }
    const Found found = findFormer(resolver, line, ports);
    const DaemonLimits& limits = resolver.standing.limits;
    const std::vector<uint32_t> numbers = numbersFor(resolver, line, found.foreign);
    const PolicyRows rows = coverPolicy(ports, found.former,
                                        {.numbers = numbers,
                                         .portsPerGroup = limits.portsPerGroup,
                                         .pairsPerSource = line.vlan == 0 ? limits.pairsPerSource : 0});
    addPolicyRows(resolver, line, roles, rows);
    PolicyUse use{.name = line.name, .groups = {}, .pairs = rows.pairs.size()};
    for (const auto& [number, members] : rows.groups) {
        use.groups.insert(number);
        resolver.policyNumbers.insert(number);
    }
    noteSpanning(resolver, line, use);
    resolver.result.policies.push_back(use);
    if (!rows.open.empty()) {
        addMistake(resolver, line.place, shortText(resolver, line, rows, numbers.size()));
    }
}
