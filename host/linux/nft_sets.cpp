#include "host/linux/nft_sets.h"

#include <arpa/inet.h>

#include <bit>
#include <charconv>
#include <cstring>
#include <unordered_map>

namespace {

constexpr struct {
    FilterKind kind;
    uint8_t need;
} PAIR_NEEDS[] = {
    {FilterKind::twoWay, NEED_TWO_WAY},  {FilterKind::oneWay, NEED_ONE_WAY},
    {FilterKind::within, NEED_WITHIN},   {FilterKind::hairpin, NEED_HAIRPIN},
    {FilterKind::strange, NEED_STRANGE},
};

uint8_t needOf(FilterKind kind) {
    for (const auto& one : PAIR_NEEDS) {
        if (one.kind == kind) return one.need;
    }
    return 0;
}

FilterElement pairElement(FilterKind kind, const FilterElement& pair) {
    FilterElement element = pair;
    element.kind = kind;
    element.vid = 0;
    return element;
}

// All that needs the pair of this element. `any`: kinds of which there is one.
uint8_t needsHeld(const FilterElements& held, const FilterElement& pair, uint8_t any = UINT8_MAX) {
    uint8_t needs = 0;
    for (const auto& one : PAIR_NEEDS) {
        if ((any & one.need) != 0 && held.contains(pairElement(one.kind, pair))) needs |= one.need;
    }
    return needs;
}

// Other bits of a device's mark than those of groups.
constexpr uint32_t MARK_STRANGE = GROUP_BITS + 1;

// Which bit of its needs an element of the kernel meets together with others; 0: it has one of its own.
uint32_t sharedNeed(const FilterElement& element) {
    if (element.kind != FilterKind::marked) return needOf(element.kind);
    return element.group == 0 ? MARK_STRANGE : spanningBit(element.group);
}

uint32_t strangeNeed(const FilterElement& element) {
    return element.kind == FilterKind::marked ? MARK_STRANGE : NEED_STRANGE;
}

uint32_t marksHeld(const FilterElements& held, FilterElement marked) {
    uint32_t needs = 0;
    for (marked.group = 0; marked.group <= SPANNING_GROUP_MAX; ++marked.group) {
        if (held.contains(marked)) needs |= sharedNeed(marked);
    }
    return needs;
}

// Those of the needs that decide what stands in the kernel.
uint32_t decisive(const FilterElement& key, uint32_t needs) {
    if (key.kind == FilterKind::marked) return needs;
    for (const uint32_t mask : {NEED_DROP, NEED_WITHIN, NEED_HAIRPIN, NEED_STRANGE}) {
        if ((needs & mask) != 0) return needs & mask;
    }
    return 0;
}

struct SharedNeeds {
    uint32_t before, after;
    bool added;
};

// What becomes of elements of the kernel that meet several needs.
struct SharedChanges {
    const FilterElements& held;
    uint8_t any = 0;  // kinds of needs of pairs of which there is one
    std::unordered_map<FilterElement, SharedNeeds, FilterElementHash> changes = {};

    SharedChanges(const FilterElements& now, const KindCounts& heldOf) : held(now) {
        for (const auto& one : PAIR_NEEDS) {
            if (heldOf[static_cast<size_t>(one.kind)] != 0) any |= one.need;
        }
    }
    SharedNeeds& of(const FilterElement& element) {
        const bool marks = element.kind == FilterKind::marked;
        FilterElement key = marks ? element : pairElement(FilterKind::within, element);
        key.group = 0;
        const auto [known, made] = changes.try_emplace(key);
        if (!made) return known->second;
        const uint32_t before = marks ? marksHeld(held, key) : needsHeld(held, element, any);
        known->second.before = known->second.after = before;
        return known->second;
    }
};

RawElement rawElement(FilterSet set, const FilterElement& element) {
    RawElement raw = {};
    raw.set = set;
    std::memcpy(raw.key.data(), element.src.data(), FILTER_DEVICE_SIZE);
    std::memcpy(raw.key.data() + FILTER_DEVICE_SIZE, element.dst.data(), FILTER_DEVICE_SIZE);
    return raw;
}

template <typename Value>
RawElement rawNumber(FilterSet set, Value value, uint32_t mark) {
    RawElement raw = {};
    raw.set = set;
    raw.mark = mark;
    std::memcpy(raw.key.data(), &value, sizeof(value));
    return raw;
}

RawElement rawDeviceMark(FilterSet set, const FilterElement& element, uint32_t mark) {
    RawElement raw = rawElement(set, element);
    std::memcpy(raw.key.data() + FILTER_DEVICE_SIZE, &mark, sizeof(mark));
    return raw;
}

uint32_t indexOf(const FilterElement& indexed) {
    uint32_t index = 0;
    std::from_chars(indexed.dst.data(), indexed.dst.data() + indexed.dst.size(), index);
    return index;
}

RawElement rawShared(const FilterElement& key, uint32_t needs) {
    const bool marks = key.kind == FilterKind::marked;
    RawElement raw = rawElement(marks ? FilterSet::spanMarks : FilterSet::pairs, key);
    raw.needs = marks ? 0 : static_cast<uint8_t>(needs);
    raw.mark = marks ? needs & GROUP_BITS : 0;
    return raw;
}

// The elements of a need that has its own.
void appendOwn(const Filter& filter, const FilterElement& element, std::vector<RawElement>& raw) {
    const uint32_t mark = markOfVlan(filter.markMask, element.vid);
    switch (element.kind) {
        case FilterKind::twoWayVlan:
            raw.push_back(rawElement(FilterSet::vlanPairs, element));
            std::memcpy(raw.back().key.data() + TWO_DEVICES_SIZE, &mark, sizeof(mark));
            break;
        case FilterKind::access:
            raw.push_back(rawElement(FilterSet::access, element));
            break;
        case FilterKind::port:
            raw.push_back(rawElement(FilterSet::vlanPorts, element));
            break;
        case FilterKind::ponOff:
            raw.push_back(rawNumber(FilterSet::openVlans, mark, 0));
            break;
        case FilterKind::vlan:
            raw.push_back(rawNumber(FilterSet::tags, htons(element.vid), mark));
            raw.push_back(rawNumber(FilterSet::pvids, element.vid, mark));
            break;
        case FilterKind::member:
            raw.push_back(rawDeviceMark(FilterSet::spanMembers, element, spanningBit(element.group) | mark));
            break;
        case FilterKind::sender:
            raw.push_back(rawDeviceMark(FilterSet::spanSenders, element, spanningBit(element.group)));
            break;
        case FilterKind::spanPort:
            raw.push_back(rawElement(FilterSet::spanPorts, element));
            break;
        case FilterKind::carrier:
        case FilterKind::opened: {
            const bool door = element.kind == FilterKind::opened;
            raw.push_back(rawNumber(door ? FilterSet::opened : FilterSet::spanOpen, indexOf(element), 0));
            std::memcpy(raw.back().key.data() + sizeof(uint32_t), element.src.data(), FILTER_DEVICE_SIZE);
            break;
        }
        default:
            break;
    }
}

FilterElement devicesOf(FilterKind kind, const char* key, bool both) {
    FilterElement element = {};
    element.kind = kind;
    std::memcpy(element.src.data(), key, FILTER_DEVICE_SIZE);
    if (both) std::memcpy(element.dst.data(), key + FILTER_DEVICE_SIZE, FILTER_DEVICE_SIZE);
    return element;
}

template <typename Value>
Value valueAt(const char* key) {
    Value value = 0;
    std::memcpy(&value, key, sizeof(value));
    return value;
}

// The mask under which the VLANs stand there; that of the filter where none does.
int readMask(Filter& filter, FilterElements& elements, uint32_t& mask) {
    mask = filter.markMask;
    FilterElements tagged;
    int problem = readSet(filter, FilterSet::tags, [&](const FoundElement& found) {
        const uint16_t vid = ntohs(valueAt<uint16_t>(found.key));
        if (vid == 0 || found.mark == 0) return;
        const int shift = std::countr_zero(found.mark) - std::countr_zero(vid);
        if (shift >= 0) mask = ((1U << MARK_BITS) - 1) << shift;
        tagged[filterElement(FilterKind::vlan, "", "", vid)] = {};
    });
    if (problem != 0) return problem;
    // Without its twin a VLAN is not named.
    return readSet(filter, FilterSet::pvids, [&](const FoundElement& found) {
        const FilterElement vlan = filterElement(FilterKind::vlan, "", "", valueAt<uint16_t>(found.key));
        if (found.mark == markOfVlan(mask, vlan.vid) && tagged.contains(vlan)) elements[vlan] = {};
    });
}

int readPairs(Filter& filter, FilterElements& elements) {
    return readSet(filter, FilterSet::pairs, [&](const FoundElement& found) {
        FilterCounter counter = found.counter;
        for (const auto& one : PAIR_NEEDS) {
            if ((found.needs & one.need) == 0) continue;
            elements[devicesOf(one.kind, found.key, true)] = counter;
            counter = {};
        }
    });
}

int readIndexed(Filter& filter, FilterSet set, FilterKind kind, FilterElements& elements) {
    return readSet(filter, set, [&](const FoundElement& found) {
        const FilterElement device = devicesOf(kind, found.key + sizeof(uint32_t), false);
        elements[indexedElement(kind, valueAt<uint32_t>(found.key), deviceText(device.src))] = {};
    });
}

// The group and the VLAN that the mark in a key names; false when it does not name one group.
bool takeMark(FilterElement& element, const char* key, uint32_t mask) {
    const auto mark = valueAt<uint32_t>(key + FILTER_DEVICE_SIZE);
    const uint32_t bits = mark & GROUP_BITS;
    element.group = static_cast<uint8_t>(std::countr_zero(bits) + 1);
    element.vid = vlanOfMark(mask, mark);
    return std::has_single_bit(bits) && (mark & ~mask) == bits;
}

// What stands in the sets of ports that lead to other machines, with VLANs under this mask.
int readSpan(Filter& filter, uint32_t mask, FilterElements& elements) {
    int problem = readSet(filter, FilterSet::spanPorts, [&](const FoundElement& found) {
        elements[devicesOf(FilterKind::spanPort, found.key, false)] = {};
    });
    if (problem == 0) problem = readIndexed(filter, FilterSet::spanOpen, FilterKind::carrier, elements);
    if (problem != 0) return problem;
    problem = readSet(filter, FilterSet::spanMarks, [&](const FoundElement& found) {
        FilterElement marked = devicesOf(FilterKind::marked, found.key, false);
        const uint32_t bits =
            (found.mark & GROUP_BITS) | ((found.mark & ~GROUP_BITS) != 0 ? MARK_STRANGE : 0);
        for (marked.group = 0; marked.group <= SPANNING_GROUP_MAX; ++marked.group) {
            if ((bits & sharedNeed(marked)) != 0) elements[marked] = {};
        }
    });
    for (const auto& [set, kind] : {std::pair(FilterSet::spanSenders, FilterKind::sender),
                                    std::pair(FilterSet::spanMembers, FilterKind::member)}) {
        if (problem != 0) return problem;
        problem = readSet(filter, set, [&, kind = kind](const FoundElement& found) {
            FilterElement element = devicesOf(kind, found.key, false);
            if (takeMark(element, found.key, mask)) elements[element] = found.counter;
        });
    }
    return problem;
}

// The needs whose counter an element of the kernel bears.
std::vector<FilterElement> countedElements(const Filter& filter, const RawElement& raw) {
    if (raw.set == FilterSet::pairs) {
        return {devicesOf(FilterKind::twoWay, raw.key.data(), true),
                devicesOf(FilterKind::oneWay, raw.key.data(), true)};
    }
    const bool pair = raw.set == FilterSet::vlanPairs;
    FilterElement element =
        devicesOf(pair ? FilterKind::twoWayVlan : FilterKind::member, raw.key.data(), pair);
    const char* mark = raw.key.data() + TWO_DEVICES_SIZE;
    if (pair) element.vid = vlanOfMark(filter.markMask, valueAt<uint32_t>(mark));
    if (!pair) takeMark(element, raw.key.data(), filter.markMask);
    return {element};
}

// Its own frames bear its groups whatever their VLAN, which is for the receiver to look at.
std::vector<FilterElement> consequencesOfMember(const Filter& filter, const FilterElement& member) {
    if (member.vid == VID_UNKNOWN) return {};
    const std::string_view device = deviceText(member.src);
    std::vector<FilterElement> follows = {memberElement(FilterKind::sender, device, member.group),
                                          memberElement(FilterKind::marked, device, member.group)};
    if (member.vid == 0) return follows;
    follows.push_back(filterElement(FilterKind::vlan, "", "", member.vid));
    for (const std::string& port : filter.span) {
        follows.push_back(filterElement(FilterKind::port, port, "", 0));
    }
    if (!filter.seesPvid) {
        follows.push_back(memberElement(FilterKind::member, device, member.group, VID_UNKNOWN));
    }
    return follows;
}

}  // namespace

FilterElement filterElement(FilterKind kind, std::string_view src, std::string_view dst, uint16_t vid) {
    FilterElement element = {};
    src.copy(element.src.data(), FILTER_DEVICE_SIZE - 1);
    dst.copy(element.dst.data(), FILTER_DEVICE_SIZE - 1);
    element.vid = vid;
    element.kind = kind;
    return element;
}

FilterElement indexedElement(FilterKind kind, uint32_t index, std::string_view device) {
    return filterElement(kind, device, std::to_string(index), 0);
}

FilterElement memberElement(FilterKind kind, std::string_view device, uint32_t group, uint16_t vid) {
    FilterElement element = filterElement(kind, device, "", vid);
    element.group = static_cast<uint8_t>(group);
    return element;
}

std::string_view deviceText(const std::array<char, FILTER_DEVICE_SIZE>& device) {
    return {device.data(), strnlen(device.data(), device.size())};
}

bool isVerdictKind(FilterKind kind) {
    return needOf(kind) != 0;
}

RawChange rawChange(const Filter& filter, const FilterElements& held, const KindCounts& heldOf,
                    const FilterChange& change) {
    RawChange raw;
    SharedChanges shared(held, heldOf);
    for (const FilterElement& element : change.del) {
        if (!held.contains(element)) continue;
        const uint32_t need = sharedNeed(element);
        raw.news |= need == 0;
        if (need == 0) appendOwn(filter, element, raw.del);
        if (need != 0) shared.of(element).after &= ~need;
    }
    for (const FilterElement& element : change.add) {
        const uint32_t need = sharedNeed(element);
        raw.news |= need == 0 && !held.contains(element);
        if (need == 0) appendOwn(filter, element, raw.add);
        if (need == 0) continue;
        SharedNeeds& needs = shared.of(element);
        needs.after = (needs.after | need) & ~strangeNeed(element);
        needs.added = true;
    }
    for (const auto& [key, needs] : shared.changes) {
        const uint32_t before = decisive(key, needs.before);
        const uint32_t after = decisive(key, needs.after);
        const RawElement element = rawShared(key, after);
        const bool differs = before != after;
        raw.news |= differs;
        if (differs && before != 0) raw.del.push_back(element);
        if (after != 0 && (differs || needs.added)) raw.add.push_back(element);
    }
    return raw;
}

RawChange rawWhole(const Filter& filter, const FilterElements& elements) {
    FilterChange all;
    for (const auto& [element, counter] : elements) all.add.push_back(element);
    RawChange raw = rawChange(filter, {}, {}, all);
    for (RawElement& one : raw.add) {
        if (!shapeOf(one.set).counts) continue;
        for (const FilterElement& element : countedElements(filter, one)) {
            const auto held = elements.find(element);
            if (held != elements.end() && held->second.packets != 0) one.counter = held->second;
        }
    }
    return raw;
}

int readElements(Filter& filter, FilterElements& elements, bool& moved) {
    elements.clear();
    uint32_t mask = 0;
    int problem = readMask(filter, elements, mask);
    moved = mask != filter.markMask;
    const auto vlanOf = [&](const char* at) { return vlanOfMark(mask, valueAt<uint32_t>(at)); };
    if (problem == 0) problem = readPairs(filter, elements);
    if (problem == 0) {
        problem = readSet(filter, FilterSet::vlanPairs, [&](const FoundElement& found) {
            FilterElement element = devicesOf(FilterKind::twoWayVlan, found.key, true);
            // The way to it is open as long as the pair has an element.
            if (needsHeld(elements, element) != 0) elements[pairElement(FilterKind::within, element)] = {};
            element.vid = vlanOf(found.key + TWO_DEVICES_SIZE);
            elements[element] = found.counter;
        });
    }
    for (const auto& [set, kind] : {std::pair(FilterSet::access, FilterKind::access),
                                    std::pair(FilterSet::vlanPorts, FilterKind::port)}) {
        if (problem != 0) return problem;
        problem = readSet(filter, set, [&, kind = kind](const FoundElement& found) {
            elements[devicesOf(kind, found.key, false)] = {};
        });
    }
    if (problem != 0) return problem;
    problem = readSet(filter, FilterSet::openVlans, [&](const FoundElement& found) {
        elements[filterElement(FilterKind::ponOff, "", "", vlanOf(found.key))] = {};
    });
    if (problem != 0) return problem;
    problem = readIndexed(filter, FilterSet::opened, FilterKind::opened, elements);
    return problem != 0 || filter.span.empty() ? problem : readSpan(filter, mask, elements);
}

int readFormerElements(Filter& filter, FilterElements& elements) {
    constexpr uint32_t WITH_VLAN = TWO_DEVICES_SIZE + sizeof(uint32_t);
    constexpr struct {
        const char* name;
        uint32_t keyLength;
        FilterKind kind;
    } FORMER[] = {{"bi", TWO_DEVICES_SIZE, FilterKind::twoWay},
                  {"uni", TWO_DEVICES_SIZE, FilterKind::oneWay},
                  {"bi_vlan", WITH_VLAN, FilterKind::twoWayVlan},
                  {"pon_off", sizeof(uint16_t), FilterKind::ponOff}};
    for (const auto& former : FORMER) {
        const int problem = readSet(filter, former.name, former.keyLength, 0, [&](const FoundElement& found) {
            const bool pair = former.keyLength >= TWO_DEVICES_SIZE;
            FilterElement element =
                pair ? devicesOf(former.kind, found.key, true) : filterElement(former.kind, "", "", 0);
            const char* vid = found.key + (pair ? TWO_DEVICES_SIZE : 0);
            if (former.keyLength != TWO_DEVICES_SIZE) element.vid = ntohs(valueAt<uint16_t>(vid));
            if (!pair || element.src != element.dst) elements[element] = found.counter;
        });
        if (problem != 0) return problem;
    }
    addConsequences(filter, elements);
    return 0;
}

std::vector<FilterElement> consequencesOf(const Filter& filter, const FilterElement& element) {
    const FilterElement vlan = filterElement(FilterKind::vlan, "", "", element.vid);
    FilterElement device = pairElement(FilterKind::port, element);
    device.dst = {};
    FilterElement self = pairElement(FilterKind::hairpin, element);
    self.dst = self.src;
    switch (element.kind) {
        case FilterKind::twoWayVlan:
            return {pairElement(FilterKind::within, element), device, vlan};
        case FilterKind::access:
            return {self, device};
        case FilterKind::ponOff:
            return {vlan};
        case FilterKind::member:
            return consequencesOfMember(filter, element);
        default:
            return {};
    }
}

void addConsequences(const Filter& filter, FilterElements& elements) {
    std::vector<FilterElement> more;
    for (const auto& [element, counter] : elements) {
        for (const FilterElement& follows : consequencesOf(filter, element)) more.push_back(follows);
    }
    for (const FilterElement& element : more) elements.try_emplace(element);
}
