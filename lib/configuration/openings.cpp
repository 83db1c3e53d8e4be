#include "lib/configuration/openings.h"

#include <algorithm>

#include "lib/configuration/shortfall.h"

namespace {

// What is in force at the moment that is most open: what stays, and what comes before anything goes.
Configuration standingRows(const Configuration& running, const Plan& plan) {
    Configuration standing = running;
    for (const std::vector<Step>* steps : {&plan.before, &plan.release}) {
        for (const Step& step : *steps) {
            if (step.action == StepAction::remove) standing.rows.erase(step.row);
        }
    }
    for (const Step& step : plan.early) {
        if (step.action == StepAction::add || step.action == StepAction::activate) {
            standing.rows[step.row] = true;
        }
    }
    return standing;
}

bool hasPair(const Configuration& configuration, uint32_t source, uint32_t target) {
    const auto found = configuration.rows.find({ConfigKind::pair, {source, 0}, target});
    return found != configuration.rows.end() && found->second;
}

// A configuration as the VLANs in which it isolates two interfaces, 0 for all.
struct Isolation {
    const Configuration& rows;
    GroupScopes scopes;
};

std::set<uint32_t> isolatedVlans(const Isolation& isolation, uint32_t source, uint32_t target) {
    std::set<uint32_t> vlans;
    for (const RowScope& scope : sharedScopes(isolation.scopes, source, target)) vlans.insert(scope.vlan);
    if (hasPair(isolation.rows, source, target)) vlans.insert(0);
    return vlans;
}

// Whether traffic of one direction that `vlan` says is isolated before and after, but not at that moment.
bool opens(const Isolation& standing, const Isolation& wanted, uint32_t source, uint32_t target,
           uint32_t vlan) {
    const std::set<uint32_t> held = isolatedVlans(standing, source, target);
    if (held.contains(0)) return false;
    const std::set<uint32_t> after = isolatedVlans(wanted, source, target);
    return std::any_of(after.begin(), after.end(), [&](uint32_t one) {
        const bool meets = one == 0 || vlan == 0 || one == vlan;
        return meets && !held.contains(std::max(one, vlan));
    });
}

}  // namespace

std::set<std::pair<uint32_t, uint32_t>> findOpenings(const Configuration& running,
                                                     const Configuration& wanted, const Plan& plan) {
    const Configuration rows = standingRows(running, plan);
    const Isolation before{running, groupScopes({}, running)};
    const Isolation standing{rows, groupScopes({}, rows)};
    const Isolation after{wanted, groupScopes({}, wanted)};
    std::set<std::pair<uint32_t, uint32_t>> openings;
    for (const auto& [row, active] : running.rows) {
        if (!active || rows.rows.contains(row)) continue;
        if (row.kind == ConfigKind::pair) {
            const uint32_t source = row.scope.number;
            if (opens(standing, after, source, row.member, 0)) {
                openings.insert(std::minmax(source, row.member));
            }
            continue;
        }
        for (const auto& [fellow, scopes] : before.scopes) {
            if (fellow == row.member || !scopes.contains(row.scope)) continue;
            if (opens(standing, after, row.member, fellow, row.scope.vlan) ||
                opens(standing, after, fellow, row.member, row.scope.vlan)) {
                openings.insert(std::minmax(row.member, fellow));
            }
        }
    }
    return openings;
}
