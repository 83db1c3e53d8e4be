#include "host/linux/linux_reconcile.h"

#include <algorithm>

#include "host/services/logging.h"

namespace {

constexpr size_t TRANSACTION_ELEMENTS = 1000;  // what a socket's buffer takes at once

void noteDamage(LinuxPlane& plane, const char* damage) {
    if (damage != nullptr && plane.damage == nullptr) {
        hostReport(
            "the kernel's filter table {} {}: what it isolated may be open until `portisolatectl plane "
            "restore`",
            FILTER_TABLE, damage);
    } else if (damage == nullptr && plane.damage != nullptr) {
        hostReport("the kernel's filter table {} is whole again", FILTER_TABLE);
    }
    plane.damage = damage;
}

// Everything that was asked for, from the records.
Wanted allWanted(const LinuxPlane& plane) {
    Wanted wanted;
    const auto take = [&](const std::vector<FilterElement>& elements) {
        for (const FilterElement& element : elements) ++wanted[element];
    };
    for (const auto& [pair, isolation] : plane.twoWay) take(twoWayElements(plane, pair, isolation.vid));
    for (const auto& [pair, isolation] : plane.oneWay) take(oneWayElements(plane, pair));
    for (const std::string& device : plane.access) take({deviceElement(FilterSet::access, device)});
    for (const uint16_t vid : plane.ponOff) take({ponOffElement(vid)});
    for (const auto& [device, vlans] : plane.egress) {
        if (vlans.size() == 1) take({deviceElement(FilterSet::egress, device)});
        if (allOff(plane.ponOff, vlans)) take({deviceElement(FilterSet::egressOff, device)});
    }
    return wanted;
}

}  // namespace

void want(LinuxPlane& plane, const FilterElement& element, Change& change) {
    if (++plane.wanted[element] == 1) change.add.push_back(element);
}

void unwant(LinuxPlane& plane, const FilterElement& element, Change& change) {
    const auto found = plane.wanted.find(element);
    if (found == plane.wanted.end() || --found->second > 0) return;
    plane.wanted.erase(found);
    if (plane.held.contains(element)) change.del.push_back(element);
}

int lookAtTable(LinuxPlane& plane) {
    const char* damage = nullptr;
    const int problem = inspectTable(plane.filter, damage, plane.pon);
    if (problem == 0) noteDamage(plane, damage);
    return problem;
}

int refresh(LinuxPlane& plane) {
    uint32_t generation = 0;
    int problem = readGeneration(plane.filter, generation);
    if (problem == 0) problem = lookAtTable(plane);
    if (problem == 0) problem = readElements(plane.filter, plane.held);
    if (problem != 0 && problem != ENOENT) return problem;
    plane.generation = plane.watched = generation;
    return 0;
}

int refreshIfChanged(LinuxPlane& plane) {
    uint32_t generation = 0;
    const int problem = readGeneration(plane.filter, generation);
    if (problem != 0 || generation == plane.generation) return problem;
    return refresh(plane);
}

int commitChange(LinuxPlane& plane, const Change& change) {
    if (plane.failure != 0) return plane.failure;
    if (change.add.empty() && change.del.empty()) return 0;
    const int problem = changeElements(plane.filter, change.add, change.del);
    if (problem != 0) {
        refresh(plane);
        return problem;
    }
    bool news = !change.del.empty();
    for (const FilterElement& element : change.add) news |= plane.held.try_emplace(element).second;
    for (const FilterElement& element : change.del) plane.held.erase(element);
    // A change that adds only what is there already is no transaction to the kernel.
    if (!news) return 0;
    plane.watched += plane.watched == plane.generation ? 1 : 0;
    ++plane.generation;
    return 0;
}

int32_t commitElements(LinuxPlane& plane, bool add, const std::vector<FilterElement>& elements,
                       uint64_t& changed) {
    for (size_t at = 0; at < elements.size(); at += TRANSACTION_ELEMENTS) {
        const auto begin = elements.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = elements.begin() +
                         static_cast<std::ptrdiff_t>(std::min(elements.size(), at + TRANSACTION_ELEMENTS));
        Change change;
        (add ? change.add : change.del).assign(begin, end);
        const int problem = commitChange(plane, change);
        if (problem != 0) return problem;
        changed += static_cast<uint64_t>(end - begin);
    }
    return 0;
}

int32_t reconcile(LinuxPlane& plane) {
    Wanted wanted = allWanted(plane);
    std::vector<FilterElement> add;
    std::vector<FilterElement> del;
    for (const auto& [element, uses] : wanted) {
        if (!plane.held.contains(element)) add.push_back(element);
    }
    for (const auto& [element, counter] : plane.held) {
        const bool ours =
            element.set == FilterSet::access || (element.set == FilterSet::egress && plane.egressKnown);
        if (!wanted.contains(element) && (ours || plane.wanted.contains(element))) del.push_back(element);
    }
    plane.wanted = std::move(wanted);
    uint64_t changed = 0;
    const int32_t added = commitElements(plane, true, add, changed);
    const int32_t removed = commitElements(plane, false, del, changed);
    return added != 0 ? added : removed;
}
