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

// Those of the needs that decide what stands in the kernel.
uint8_t decisive(uint8_t needs) {
    for (const uint8_t mask : {NEED_DROP, NEED_WITHIN, NEED_HAIRPIN, NEED_STRANGE}) {
        if ((needs & mask) != 0) return needs & mask;
    }
    return 0;
}

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

uint32_t indexOf(const FilterElement& opened) {
    uint32_t index = 0;
    std::from_chars(opened.dst.data(), opened.dst.data() + opened.dst.size(), index);
    return index;
}

// The elements of a need that is not of a pair as such.
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
        case FilterKind::opened:
            raw.push_back(rawNumber(FilterSet::opened, indexOf(element), 0));
            std::memcpy(raw.back().key.data() + sizeof(uint32_t), element.src.data(), FILTER_DEVICE_SIZE);
            break;
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

}  // namespace

FilterElement filterElement(FilterKind kind, std::string_view src, std::string_view dst, uint16_t vid) {
    FilterElement element = {};
    src.copy(element.src.data(), FILTER_DEVICE_SIZE - 1);
    dst.copy(element.dst.data(), FILTER_DEVICE_SIZE - 1);
    element.vid = vid;
    element.kind = kind;
    return element;
}

FilterElement openedElement(uint32_t index, std::string_view device) {
    return filterElement(FilterKind::opened, device, std::to_string(index), 0);
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
    uint8_t any = 0;
    for (const auto& one : PAIR_NEEDS) {
        if (heldOf[static_cast<size_t>(one.kind)] != 0) any |= one.need;
    }
    struct Needs {
        uint8_t before, after;
        bool added;
    };
    std::unordered_map<FilterElement, Needs, FilterElementHash> pairs;
    const auto needsIn = [&](const FilterElement& element) -> Needs& {
        const auto [pair, made] = pairs.try_emplace(pairElement(FilterKind::within, element));
        if (made) pair->second.before = pair->second.after = needsHeld(held, element, any);
        return pair->second;
    };
    for (const FilterElement& element : change.del) {
        const uint8_t need = needOf(element.kind);
        if (!held.contains(element)) continue;
        raw.news |= need == 0;
        if (need == 0) appendOwn(filter, element, raw.del);
        if (need != 0) needsIn(element).after &= static_cast<uint8_t>(~need);
    }
    for (const FilterElement& element : change.add) {
        const uint8_t need = needOf(element.kind);
        raw.news |= need == 0 && !held.contains(element);
        if (need == 0) appendOwn(filter, element, raw.add);
        if (need == 0) continue;
        Needs& needs = needsIn(element);
        needs.after = static_cast<uint8_t>((needs.after | need) & ~NEED_STRANGE);
        needs.added = true;
    }
    for (const auto& [pair, needs] : pairs) {
        RawElement element = rawElement(FilterSet::pairs, pair);
        const uint8_t before = decisive(needs.before);
        element.needs = decisive(needs.after);
        const bool differs = before != element.needs;
        raw.news |= differs;
        if (differs && before != 0) raw.del.push_back(element);
        if (element.needs != 0 && (differs || needs.added)) raw.add.push_back(element);
    }
    return raw;
}

RawChange rawWhole(const Filter& filter, const FilterElements& elements) {
    FilterChange all;
    for (const auto& [element, counter] : elements) all.add.push_back(element);
    RawChange raw = rawChange(filter, {}, {}, all);
    for (RawElement& one : raw.add) {
        if (!shapeOf(one.set).counts) continue;
        const bool pair = one.set == FilterSet::pairs;
        for (const FilterKind kind : {FilterKind::twoWay, FilterKind::oneWay, FilterKind::twoWayVlan}) {
            FilterElement element = devicesOf(kind, one.key.data(), true);
            if (pair == (kind == FilterKind::twoWayVlan)) continue;
            if (!pair) {
                element.vid =
                    vlanOfMark(filter.markMask, valueAt<uint32_t>(one.key.data() + TWO_DEVICES_SIZE));
            }
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
    return readSet(filter, FilterSet::opened, [&](const FoundElement& found) {
        const FilterElement device = devicesOf(FilterKind::opened, found.key + sizeof(uint32_t), false);
        elements[openedElement(valueAt<uint32_t>(found.key), deviceText(device.src))] = {};
    });
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
    addConsequences(elements);
    return 0;
}

std::vector<FilterElement> consequencesOf(const FilterElement& element) {
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
        default:
            return {};
    }
}

void addConsequences(FilterElements& elements) {
    std::vector<FilterElement> more;
    for (const auto& [element, counter] : elements) {
        for (const FilterElement& follows : consequencesOf(element)) more.push_back(follows);
    }
    for (const FilterElement& element : more) elements.try_emplace(element);
}
