#include "host/linux/linux_reconcile.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "host/linux/linux_damage.h"
#include "host/linux/nft_doors.h"

namespace {

constexpr size_t ELEMENT_ROOM = 128;  // bytes of a transaction, at most
constexpr int COMMIT_TRIES = 3;       // while others change the table
constexpr int HEALING_TRIES = 3;

// Everything that was asked for, from the records.
Wanted allWanted(const LinuxPlane& plane) {
    Wanted wanted;
    const auto take = [&](const std::vector<FilterElement>& elements) {
        for (const FilterElement& element : elements) ++wanted[element];
    };
    for (const auto& [pair, isolation] : plane.twoWay) take(twoWayElements(plane, pair, isolation.vid));
    for (const auto& [pair, isolation] : plane.oneWay) take(oneWayElements(plane, pair));
    for (const std::string& device : plane.access) take(accessElements(plane, device));
    for (const uint16_t vid : plane.ponOff) take(ponOffElements(plane, vid));
    take({plane.opened.begin(), plane.opened.end()});
    take({plane.carriers.begin(), plane.carriers.end()});
    for (const std::string& device : plane.filter.span) {
        take({filterElement(FilterKind::spanPort, device, "", 0)});
    }
    for (const auto& [ifUnit, memberships] : plane.members) {
        for (const Membership& one : memberships) take(membershipElements(plane, ifUnit, one));
    }
    return wanted;
}

void countElement(LinuxPlane& plane, const FilterElement& element, size_t more) {
    plane.heldOf[static_cast<size_t>(element.kind)] += more;
    if (element.kind != FilterKind::member) return;
    (element.vid == 0 ? plane.plainMembers : plane.vlanMembers)[element.group - 1U] += more;
}

void countHeld(LinuxPlane& plane) {
    plane.heldOf = {};
    plane.plainMembers = plane.vlanMembers = {};
    for (const auto& [element, counter] : plane.held) countElement(plane, element, 1);
}

void dropHeld(LinuxPlane& plane, const FilterElement& element) {
    if (plane.held.erase(element) != 0) countElement(plane, element, SIZE_MAX);
}

// What the kernel holds after the change. The kernel numbers it when it was any news there.
void takeOver(LinuxPlane& plane, const FilterChange& change) {
    for (const FilterElement& element : change.del) dropHeld(plane, element);
    for (const FilterElement& element : change.add) {
        if (plane.held.try_emplace(element).second) countElement(plane, element, 1);
        // What others have put in its place is gone.
        FilterElement strange = element;
        strange.kind = isVerdictKind(element.kind) ? FilterKind::strange : element.kind;
        strange.group = 0;
        const bool any = plane.heldOf[static_cast<size_t>(FilterKind::strange)] != 0;
        if (element.kind == FilterKind::marked || (any && strange.kind == FilterKind::strange)) {
            dropHeld(plane, strange);
        }
    }
    if (plane.lost.empty()) return;
    compareElements(plane, plane.held);
    judgeTable(plane);
    tellDamage(plane);
}

int layWith(LinuxPlane& plane, const FilterLayout& layout, const RawChange& change, LayMode mode) {
    LaidTable laid;
    const int problem = layTable(plane.filter, layout, change, mode, laid);
    if (problem != 0) return problem;
    plane.layout = layout;
    plane.laid = std::move(laid.content);
    // Where somebody else's change came in between, or was mended with this, everything is read anew.
    const bool known = laid.before == plane.generation && plane.damage == TableDamage::none;
    plane.generation = known ? laid.after : 0;
    return 0;
}

void noteGroup(FilterLayout& layout, const RawElement& member) {
    uint32_t mark = 0;
    std::memcpy(&mark, member.key.data() + FILTER_DEVICE_SIZE, sizeof(mark));
    const auto group = static_cast<SpanningGroups>(mark & GROUP_BITS);
    (mark == group ? layout.spanPlain : layout.spanVlan) |= group;
}

int commitRaw(LinuxPlane& plane, const RawChange& raw) {
    FilterLayout needed = plane.layout;
    for (const RawElement& element : raw.add) {
        needed.pairs |= element.set == FilterSet::pairs;
        needed.ports |= element.set == FilterSet::vlanPorts;
        needed.access |= element.set == FilterSet::access;
        if (element.set == FilterSet::spanMembers) noteGroup(needed, element);
    }
    if (needed != plane.layout) return layWith(plane, needed, raw, LayMode::keep);
    const int problem = changeElements(plane.filter, raw);
    if (problem == 0 && raw.news) ++plane.generation;
    return problem;
}

LayMode layMode(const LinuxPlane& plane) {
    if (plane.exchanges) return LayMode::exchange;
    return plane.marksMoved ? LayMode::marksMove : LayMode::keep;
}

// `anew`: the elements, too.
int layAll(LinuxPlane& plane, const FilterLayout& layout, bool anew) {
    const LayMode mode = layMode(plane);
    const bool whole = anew || mode != LayMode::keep;
    const RawChange change = whole ? rawWhole(plane.filter, plane.held) : RawChange{};
    const int problem = layWith(plane, layout, change, mode);
    // Where nobody came in between, the elements are those that are known.
    const bool known = !whole && plane.generation != 0;
    return problem != 0 || known ? problem : refresh(plane);
}

int readKernel(LinuxPlane& plane) {
    uint32_t generation = 0;
    TableContent found;
    FilterElements held;
    int problem = readGeneration(plane.filter, generation);
    if (problem == 0) problem = readContent(plane.filter, CLOSED_SET, found, plane.counted);
    if (problem == 0) problem = readElements(plane.filter, held, plane.marksMoved);
    if (problem != 0) return problem;
    std::swap(plane.held, held);
    countHeld(plane);
    plane.exchanges = standsOtherwise(plane.filter, found);
    plane.differences = contentDifferences(plane.laid, found);
    if (plane.marksMoved) plane.differences.push_back(setPart("tags") + " was changed");
    compareElements(plane, held);
    plane.generation = generation;
    judgeTable(plane);
    return 0;
}

bool fits(const LinuxPlane& plane, size_t elements) {
    return elements < plane.filter.capacity / ELEMENT_ROOM;
}

// A set that is not as it was laid goes with its elements.
bool setsDiffer(const LinuxPlane& plane) {
    return std::any_of(plane.differences.begin(), plane.differences.end(),
                       [](const std::string& part) { return part.starts_with(setPart("")); });
}

// Everything that others have taken, and nothing of what they have put there to open something, in one
// transaction if a socket takes so much.
int putBack(LinuxPlane& plane) {
    const FilterChange change = {.add = {plane.lost.begin(), plane.lost.end()}, .del = plane.intruders};
    const bool parts = !plane.differences.empty();
    const bool whole = layMode(plane) != LayMode::keep || setsDiffer(plane);
    if (parts && whole) {
        FilterElements all = plane.held;
        for (const FilterElement& element : change.del) all.erase(element);
        for (const FilterElement& element : change.add) all.try_emplace(element);
        return layWith(plane, plane.layout, rawWhole(plane.filter, all), LayMode::exchange);
    }
    const bool atOnce = fits(plane, change.add.size());
    const RawChange raw = atOnce ? rawChange(plane.filter, plane.held, plane.heldOf, change) : RawChange{};
    int problem = parts ? layWith(plane, plane.layout, raw, LayMode::keep) : 0;
    if (problem == 0 && !parts && atOnce) problem = changeElements(plane.filter, raw);
    uint64_t changed = 0;
    if (problem == 0 && !atOnce) problem = commitElements(plane, true, change.add, changed);
    return problem;
}

// Puts back what others took as long as they let it be.
int heal(LinuxPlane& plane) {
    const Damage before = damageOf(plane);
    int problem = 0;
    plane.healing.busy = true;
    for (int i = 0; i < HEALING_TRIES && problem == 0 && plane.damage != TableDamage::none; ++i) {
        problem = putBack(plane);
        for (const FilterElement& element : plane.intruders) plane.held.erase(element);
        if (problem == 0) problem = readKernel(plane);
    }
    plane.healing.busy = false;
    if (plane.damage == TableDamage::none) {
        tellHealed(plane, before);
    } else {
        tellDamage(plane);
    }
    return problem;
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
    layout.spanPlain = layout.spanVlan = 0;
    for (uint32_t group = 1; group <= SPANNING_GROUP_MAX; ++group) {
        if (plane.plainMembers[group - 1] != 0) layout.spanPlain |= spanningBit(group);
        if (plane.vlanMembers[group - 1] != 0) layout.spanVlan |= spanningBit(group);
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
    const int problem = readKernel(plane);
    if (problem != 0) return problem;
    const HealingState& healing = plane.healing;
    const bool heals = healing.mode != Healing::off && !healing.busy && !plane.laid.empty();
    if (heals && plane.damage != TableDamage::none) return heal(plane);
    tellDamage(plane);
    return 0;
}

int refreshIfChanged(LinuxPlane& plane) {
    uint32_t generation = 0;
    const int problem = readGeneration(plane.filter, generation);
    if (problem != 0 || generation == plane.generation) return problem;
    return refresh(plane);
}

int commitOnce(LinuxPlane& plane, const FilterChange& change) {
    const RawChange raw = rawChange(plane.filter, plane.held, plane.heldOf, change);
    const int problem = raw.add.empty() && raw.del.empty() ? 0 : commitRaw(plane, raw);
    if (problem == 0) takeOver(plane, change);
    return problem;
}

int commitChange(LinuxPlane& plane, const FilterChange& change) {
    int problem = plane.failure;
    for (int i = 0; i < COMMIT_TRIES && plane.failure == 0; ++i) {
        problem = commitOnce(plane, change);
        if (problem == 0) return 0;
        // It is made again for what stands there now.
        const uint32_t before = plane.generation;
        if (refresh(plane) != 0 || plane.generation == before) return problem;
    }
    return problem;
}

int layFirst(LinuxPlane& plane) {
    TableContent standing;
    probePvid(plane.filter);
    plane.filter.owns = plane.healing.mode == Healing::on && probeOwner(plane.filter);
    int problem = readGeneration(plane.filter, plane.generation);
    if (problem == 0) problem = readContent(plane.filter, CLOSED_SET, standing, plane.counted);
    if (problem == 0) problem = readElements(plane.filter, plane.held, plane.marksMoved);
    const bool former = isFormerLayout(standing);
    plane.exchanges = standsOtherwise(plane.filter, standing);
    if (problem == 0 && former) problem = readFormerElements(plane.filter, plane.held);
    if (problem != 0) return problem;
    // Without doors there is nowhere for these.
    const bool doors = !plane.layout.closed.empty();
    for (auto& part : plane.held.parts) {
        std::erase_if(part,
                      [&](const auto& held) { return held.first.kind == FilterKind::opened && !doors; });
    }
    countHeld(plane);
    // A table that is too large for one transaction stays of the kind that it is.
    if (plane.exchanges && plane.filter.owns && !fits(plane, plane.held.size())) {
        plane.filter.owns = plane.exchanges = false;
    }
    return layAll(plane, layoutInUse(plane), former);
}

int layLayout(LinuxPlane& plane, const FilterLayout& layout) {
    return layAll(plane, layout, false);
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
        constexpr FilterKind OURS[] = {FilterKind::access, FilterKind::hairpin, FilterKind::opened,
                                       FilterKind::spanPort, FilterKind::carrier};
        const bool ours = std::ranges::find(OURS, element.kind) != std::end(OURS);
        if (!wanted.contains(element) && (ours || plane.wanted.contains(element))) del.push_back(element);
    }
    plane.wanted = std::move(wanted);
    uint64_t changed = 0;
    const int32_t added = commitElements(plane, true, add, changed);
    const int32_t removed = commitElements(plane, false, del, changed);
    return added != 0 ? added : removed;
}
