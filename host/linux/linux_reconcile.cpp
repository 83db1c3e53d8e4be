#include "host/linux/linux_reconcile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "host/services/logging.h"

namespace {

constexpr size_t DIFFERENCES_TOLD = 4;
constexpr size_t ELEMENT_ROOM = 128;  // bytes of a transaction, at most
constexpr int COMMIT_TRIES = 3;       // while others change the table
// Where an element of each kind stands.
constexpr const char* KIND_SETS[] = {"pairs", "vlan_pairs", "pairs",      "access", "open_vlans",
                                     "pairs", "pairs",      "vlan_ports", "tags",   "pairs"};

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
                                    KIND_SETS[static_cast<size_t>(first.kind)]));
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
    if (strange == 0 || plane.laid.empty() || plane.generation == 0) return;
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
    for (const std::string& device : plane.access) take(accessElements(device));
    for (const uint16_t vid : plane.ponOff) take(ponOffElements(vid));
    return wanted;
}

void countHeld(LinuxPlane& plane) {
    plane.heldOf = {};
    for (const auto& [element, counter] : plane.held) ++plane.heldOf[static_cast<size_t>(element.kind)];
}

// What the kernel holds after the change. The kernel numbers it when it was any news there.
void takeOver(LinuxPlane& plane, const FilterChange& change) {
    for (const FilterElement& element : change.del) {
        plane.heldOf[static_cast<size_t>(element.kind)] -= plane.held.erase(element);
    }
    for (const FilterElement& element : change.add) {
        plane.heldOf[static_cast<size_t>(element.kind)] += plane.held.try_emplace(element).second ? 1 : 0;
        FilterElement strange = element;
        strange.kind = FilterKind::strange;
        if (!isVerdictKind(element.kind)) continue;
        plane.heldOf[static_cast<size_t>(strange.kind)] -= plane.held.erase(strange);
    }
    if (plane.lost.empty()) return;
    compareElements(plane, plane.held);
    judgeTable(plane);
}

int layWith(LinuxPlane& plane, const FilterLayout& layout, const RawChange& change, bool marksMove) {
    LaidTable laid;
    const int problem = layTable(plane.filter, layout, change, marksMove, laid);
    if (problem != 0) return problem;
    plane.layout = layout;
    plane.laid = std::move(laid.content);
    // Where somebody else's change came in between, or was mended with this, everything is read anew.
    const bool known = laid.before == plane.generation && plane.damage == TableDamage::none;
    plane.generation = known ? laid.after : 0;
    return 0;
}

int commitRaw(LinuxPlane& plane, const RawChange& raw) {
    FilterLayout needed = plane.layout;
    for (const RawElement& element : raw.add) {
        needed.pairs |= element.set == FilterSet::pairs;
        needed.ports |= element.set == FilterSet::vlanPorts;
        needed.access |= element.set == FilterSet::access;
    }
    if (needed != plane.layout) return layWith(plane, needed, raw, false);
    const int problem = changeElements(plane.filter, raw);
    if (problem == 0 && raw.news) ++plane.generation;
    return problem;
}

// `anew`: the elements, too.
int layAll(LinuxPlane& plane, const FilterLayout& layout, bool anew) {
    FilterChange all;
    for (const auto& [element, counter] : plane.held) {
        if (anew) all.add.push_back(element);
    }
    const int problem = layWith(plane, layout, rawChange(plane.filter, {}, all), plane.marksMoved);
    return problem != 0 ? problem : refresh(plane);
}

FilterLayout layoutInUse(const LinuxPlane& plane) {
    const auto any = [&](FilterKind kind) { return plane.heldOf[static_cast<size_t>(kind)] != 0; };
    FilterLayout layout = plane.layout;
    layout.ports = any(FilterKind::port);
    layout.access = any(FilterKind::access);
    layout.pairs = false;
    for (const FilterKind kind : {FilterKind::twoWay, FilterKind::oneWay, FilterKind::within,
                                  FilterKind::hairpin, FilterKind::strange}) {
        layout.pairs |= any(kind);
    }
    return layout;
}

}  // namespace

void want(LinuxPlane& plane, const FilterElement& element, FilterChange& change) {
    if (++plane.wanted[element] == 1) change.add.push_back(element);
}

void unwant(LinuxPlane& plane, const FilterElement& element, FilterChange& change) {
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
    if (problem == 0) problem = readElements(plane.filter, held, plane.marksMoved);
    if (problem != 0) return problem;
    plane.held.swap(held);
    countHeld(plane);
    plane.differences = contentDifferences(plane.laid, found);
    if (plane.marksMoved) plane.differences.push_back(setPart("tags") + " was changed");
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

int commitChange(LinuxPlane& plane, const FilterChange& change) {
    int problem = plane.failure;
    for (int i = 0; i < COMMIT_TRIES && plane.failure == 0; ++i) {
        const RawChange raw = rawChange(plane.filter, plane.held, change);
        problem = raw.add.empty() && raw.del.empty() ? 0 : commitRaw(plane, raw);
        if (problem == 0) {
            takeOver(plane, change);
            return 0;
        }
        // When it was refused for what others have done, it is made again for what stands there now.
        const uint32_t before = plane.generation;
        if (refresh(plane) != 0 || plane.generation == before) return problem;
    }
    return problem;
}

int layFirst(LinuxPlane& plane) {
    TableContent standing;
    probePvid(plane.filter);
    int problem = readContent(plane.filter, standing, plane.pon);
    if (problem == 0) problem = readElements(plane.filter, plane.held, plane.marksMoved);
    const bool former = isFormerLayout(standing);
    if (problem == 0 && former) problem = readFormerElements(plane.filter, plane.held);
    if (problem != 0) return problem;
    countHeld(plane);
    return layAll(plane, layoutInUse(plane), former || plane.marksMoved);
}

int layLayout(LinuxPlane& plane, const FilterLayout& layout) {
    return layAll(plane, layout, plane.marksMoved);
}

void trimTable(LinuxPlane& plane) {
    const FilterLayout layout = layoutInUse(plane);
    if (plane.damage == TableDamage::none && layout != plane.layout) layLayout(plane, layout);
}

int32_t commitElements(LinuxPlane& plane, bool add, const std::vector<FilterElement>& elements,
                       uint64_t& changed) {
    const size_t most = plane.filter.capacity / ELEMENT_ROOM;
    for (size_t at = 0; at < elements.size(); at += most) {
        const auto begin = elements.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = elements.begin() + static_cast<std::ptrdiff_t>(std::min(elements.size(), at + most));
        FilterChange change;
        (add ? change.add : change.del).assign(begin, end);
        const int problem = commitChange(plane, change);
        if (problem != 0) return problem;
        changed += static_cast<uint64_t>(std::count_if(begin, end, isEntry));
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
        const bool ours = element.kind == FilterKind::access || element.kind == FilterKind::hairpin;
        if (!wanted.contains(element) && (ours || plane.wanted.contains(element))) del.push_back(element);
    }
    plane.wanted = std::move(wanted);
    uint64_t changed = 0;
    const int32_t added = commitElements(plane, true, add, changed);
    const int32_t removed = commitElements(plane, false, del, changed);
    return added != 0 ? added : removed;
}
