#include "host/linux/linux_reconcile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "host/services/logging.h"

namespace {

constexpr size_t DIFFERENCES_TOLD = 4;
constexpr size_t TRANSACTION_ELEMENTS = 1000;  // what a socket's buffer takes at once

std::string damageWords(const LinuxPlane& plane) {
    if (plane.damage == TableDamage::none) return {};
    const std::vector<std::string>& parts = plane.differences;
    if (plane.damage == TableDamage::gone) {
        return parts.front().substr(tablePart().size() + 1) + " from outside";
    }
    std::vector<std::string> words(
        parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(std::min(parts.size(), DIFFERENCES_TOLD)));
    if (words.size() < parts.size()) words.push_back(fmt::format("{} more", parts.size() - words.size()));
    if (!plane.lost.empty()) {
        const FilterElement& first = *plane.lost.begin();
        words.push_back(fmt::format("{} elements were deleted, one of them from set {}", plane.lost.size(),
                                    shapeOf(first.set).name));
    }
    return fmt::format("was changed from outside ({})", fmt::join(words, ", "));
}

// Reports when the damage comes or goes.
void judgeTable(LinuxPlane& plane) {
    const bool whole = plane.differences.empty();
    const bool gone = !whole && plane.differences.front().starts_with(tablePart());
    const TableDamage former = plane.damage;
    plane.damage = gone                 ? TableDamage::gone
                   : !whole             ? TableDamage::parts
                   : plane.lost.empty() ? TableDamage::none
                                        : TableDamage::elements;
    std::string text = damageWords(plane);
    if (plane.damage == TableDamage::none && former != TableDamage::none) {
        hostReport("the kernel's filter table {} is whole again", FILTER_TABLE);
    } else if (plane.damage != TableDamage::none && text != plane.damageText) {
        hostReport(
            "the kernel's filter table {} {}: what it isolated may be open until `portisolatectl plane "
            "restore`",
            FILTER_TABLE, text);
    }
    plane.damageText = std::move(text);
}

// What is gone without a command of ours, and what has come.
void compareElements(LinuxPlane& plane, const FilterElements& former) {
    for (const auto& [element, counter] : former) {
        if (!plane.held.contains(element) && plane.wanted.contains(element)) plane.lost.insert(element);
    }
    std::erase_if(plane.lost, [&](const FilterElement& element) {
        return plane.held.contains(element) || !plane.wanted.contains(element);
    });
    const auto strange = std::count_if(plane.held.begin(), plane.held.end(), [&](const auto& held) {
        return !former.contains(held.first) && !plane.wanted.contains(held.first);
    });
    if (strange == 0 || plane.generation == 0) return;
    hostReport(
        "{} elements were added to the kernel's filter table {} from outside: `portisolatectl plane "
        "sweep` removes them",
        strange, FILTER_TABLE);
}

// Everything that was asked for, from the records.
Wanted allWanted(const LinuxPlane& plane) {
    Wanted wanted;
    const auto take = [&](const std::vector<FilterElement>& elements) {
        for (const FilterElement& element : elements) ++wanted[element];
    };
    for (const auto& [pair, isolation] : plane.twoWay) take(twoWayElements(plane, pair, isolation.vid));
    for (const auto& [pair, isolation] : plane.oneWay) take(oneWayElements(plane, pair));
    for (const std::string& device : plane.access) {
        take(
            {deviceElement(FilterSet::access, device), filterElement(FilterSet::hairpin, device, device, 0)});
    }
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

int refresh(LinuxPlane& plane) {
    uint32_t generation = 0;
    TableContent found;
    FilterElements held;
    int problem = readGeneration(plane.filter, generation);
    if (problem == 0) problem = readContent(plane.filter, found, plane.pon);
    if (problem == 0) problem = readElements(plane.filter, held);
    if (problem != 0) return problem;
    plane.held.swap(held);
    plane.differences = contentDifferences(plane.laid, found);
    compareElements(plane, held);
    plane.generation = generation;
    judgeTable(plane);
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
    if (news) ++plane.generation;
    if (!plane.lost.empty()) {
        compareElements(plane, plane.held);
        judgeTable(plane);
    }
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
        const bool ours = element.set == FilterSet::access || element.set == FilterSet::hairpin ||
                          (element.set == FilterSet::egress && plane.egressKnown);
        if (!wanted.contains(element) && (ours || plane.wanted.contains(element))) del.push_back(element);
    }
    plane.wanted = std::move(wanted);
    uint64_t changed = 0;
    const int32_t added = commitElements(plane, true, add, changed);
    const int32_t removed = commitElements(plane, false, del, changed);
    return added != 0 ? added : removed;
}
