#include "lib/configuration/config_plan.h"

#include <algorithm>
#include <utility>

namespace {

using Rows = std::map<ConfigRow, bool>;

// The groups of one configuration that an interface is an active member of.
struct Membership {
    ConfigKind kind;
    RowScope scope;
    auto operator<=>(const Membership&) const = default;
};
using Memberships = std::map<uint32_t, std::set<Membership>>;

bool isGroup(const ConfigRow& row) {
    return row.kind != ConfigKind::pair;
}

bool isActive(const Rows& rows, const ConfigRow& row) {
    const auto found = rows.find(row);
    return found != rows.end() && found->second;
}

Memberships membershipsOf(const Rows& rows) {
    Memberships memberships;
    for (const auto& [row, active] : rows) {
        if (active && isGroup(row)) memberships[row.member].insert({row.kind, row.scope});
    }
    return memberships;
}

// Active members of the group of `row`.
std::vector<uint32_t> fellowsOf(const Rows& rows, const ConfigRow& row) {
    std::vector<uint32_t> fellows;
    for (auto at = rows.lower_bound({row.kind, row.scope, 0});
         at != rows.end() && at->first.kind == row.kind && at->first.scope == row.scope; ++at) {
        if (at->second && at->first.member != row.member) fellows.push_back(at->first.member);
    }
    return fellows;
}

// What a planner works with.
struct Changes {
    const Configuration& running;
    const Configuration& wanted;
    Memberships runningGroups;
    Memberships wantedGroups;
    std::set<ConfigRow> removed;
    std::set<ConfigRow> held;  // removals that wait for the new claims
    Memberships heldGroups;
    std::set<ConfigRow> early;  // additions that the held removals wait for
};

bool shares(const Memberships& memberships, uint32_t member, const Membership& group) {
    const auto found = memberships.find(member);
    return found != memberships.end() && found->second.contains(group);
}

// Rows that, once added, keep the traffic of two interfaces apart that a removal of `gone` would let through.
// None when nothing does, or what does is there already.
void findCover(const Changes& changes, const ConfigRow& gone, uint32_t fellow,
               std::vector<ConfigRow>& cover) {
    const auto missing = [&](const ConfigRow& row) {
        if (!isActive(changes.running.rows, row)) cover.push_back(row);
    };
    const auto mine = changes.wantedGroups.find(gone.member);
    if (mine != changes.wantedGroups.end()) {
        for (const Membership& group : mine->second) {
            if (group.scope.vlan == gone.scope.vlan && shares(changes.wantedGroups, fellow, group)) {
                missing({group.kind, group.scope, gone.member});
                missing({group.kind, group.scope, fellow});
                return;
            }
        }
    }
    // A pair may stand beside a VLAN group, never beside a plain one.
    for (const auto& [source, target] : {std::pair(gone.member, fellow), std::pair(fellow, gone.member)}) {
        const ConfigRow pair{ConfigKind::pair, {source, 0}, target};
        if (gone.kind == ConfigKind::vlanGroup && isActive(changes.wanted.rows, pair)) missing(pair);
    }
}

// Holds a removal back where ports are isolated after it, too, but by rows that are still to come.
void holdBack(Changes& changes, const ConfigRow& gone) {
    if (!isGroup(gone) || !isActive(changes.running.rows, gone)) return;
    for (const uint32_t fellow : fellowsOf(changes.running.rows, gone)) {
        std::vector<ConfigRow> cover;
        findCover(changes, gone, fellow, cover);
        if (!cover.empty()) {
            changes.held.insert(gone);
            changes.heldGroups[gone.member].insert({gone.kind, gone.scope});
            changes.early.insert(cover.begin(), cover.end());
        }
    }
}

// Whether `member` only waits for its removal from a group of another scope that `fellow` is in, too. A claim
// on both that came now would stay under that scope for good.
bool wouldInheritScope(const Changes& changes, uint32_t vlan, uint32_t member, uint32_t fellow) {
    const auto held = changes.heldGroups.find(member);
    return held != changes.heldGroups.end() &&
           std::any_of(held->second.begin(), held->second.end(), [&](const Membership& group) {
               return group.scope.vlan != vlan && shares(changes.runningGroups, fellow, group);
           });
}

// Claims that have to wait for the removals after all are taken out of the early ones.
void postpone(Changes& changes) {
    std::erase_if(changes.early, [&](const ConfigRow& row) {
        if (!isGroup(row)) return false;
        const std::vector<uint32_t> fellows = fellowsOf(changes.wanted.rows, row);
        return std::any_of(fellows.begin(), fellows.end(), [&](uint32_t fellow) {
            return wouldInheritScope(changes, row.scope.vlan, row.member, fellow) ||
                   wouldInheritScope(changes, row.scope.vlan, fellow, row.member);
        });
    });
}

void planAdditions(const Changes& changes, Plan& plan) {
    std::vector<Step> created;
    for (const auto& [row, active] : changes.wanted.rows) {
        const bool there = changes.running.rows.contains(row) && !changes.removed.contains(row);
        if (there && isActive(changes.running.rows, row) == active) continue;
        if (!active) {
            created.push_back({StepAction::create, row});
        } else {
            const Step step{there ? StepAction::activate : StepAction::add, row};
            (changes.early.contains(row) ? plan.early : plan.after).push_back(step);
        }
    }
    // Activating a row programs it against all members, those that are only created included.
    plan.after.insert(plan.after.end(), created.begin(), created.end());
}

// The VLANs of one configuration that another lacks, with PON isolation to be switched.
void planPon(const std::set<uint32_t>& vlans, const std::set<uint32_t>& lacking, bool on,
             std::vector<Step>& steps) {
    for (const uint32_t vlan : vlans) {
        if (!lacking.contains(vlan)) steps.push_back({StepAction::setPon, {}, vlan, on});
    }
}

void planSpanning(const Configuration& running, const Configuration& wanted, Plan& plan) {
    if (!spanDifferently(running, wanted)) return;
    const uint32_t both = *running.spanning | *wanted.spanning;
    if (both != *running.spanning) {
        plan.before.insert(plan.before.begin(), {StepAction::setSpanning, {}, both});
    }
    if (both != *wanted.spanning) plan.after.push_back({StepAction::setSpanning, {}, *wanted.spanning});
}

}  // namespace

Plan planChanges(const Configuration& running, const Configuration& wanted) {
    Changes changes{running, wanted, membershipsOf(running.rows), membershipsOf(wanted.rows), {}, {}, {}, {}};
    for (const auto& [row, active] : running.rows) {
        const auto kept = wanted.rows.find(row);
        // Nothing but a new entry makes an active row a created one.
        if (kept == wanted.rows.end() || (active && !kept->second)) changes.removed.insert(row);
    }
    for (const ConfigRow& row : changes.removed) holdBack(changes, row);
    postpone(changes);

    Plan plan;
    planPon(running.ponOff, wanted.ponOff, true, plan.before);
    for (const ConfigRow& row : changes.removed) {
        const bool held = changes.held.contains(row);
        (held ? plan.release : plan.before).push_back({StepAction::remove, row});
    }
    if (wanted.mode && wanted.mode != running.mode) {
        plan.early.push_back({StepAction::setMode, {}, *wanted.mode});
    }
    planAdditions(changes, plan);
    planPon(wanted.ponOff, running.ponOff, false, plan.after);
    planSpanning(running, wanted, plan);
    return plan;
}
