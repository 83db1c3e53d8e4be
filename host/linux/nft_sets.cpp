#include "host/linux/nft_sets.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <libnftnl/set.h>
#include <libnftnl/udata.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <unordered_map>

namespace {

constexpr size_t MESSAGE_ELEMENTS = 400;  // as many as the 64 KiB of one attribute hold
constexpr uint32_t REMARK_SIZE = 64;      // bytes

// What needs a pair, as bits, and what stands for them in the kernel. A drop without a remark is two-way.
constexpr uint8_t NEED_TWO_WAY = 1;
constexpr uint8_t NEED_ONE_WAY = 2;
constexpr uint8_t NEED_DROP = NEED_TWO_WAY | NEED_ONE_WAY;
constexpr uint8_t NEED_WITHIN = 4;
constexpr uint8_t NEED_HAIRPIN = 8;
constexpr uint8_t NEED_STRANGE = 16;
constexpr struct {
    FilterKind kind;
    uint8_t need;
} PAIR_NEEDS[] = {
    {FilterKind::twoWay, NEED_TWO_WAY},  {FilterKind::oneWay, NEED_ONE_WAY},
    {FilterKind::within, NEED_WITHIN},   {FilterKind::hairpin, NEED_HAIRPIN},
    {FilterKind::strange, NEED_STRANGE},
};
constexpr const char* REMARKS[] = {nullptr, nullptr, "one-way", "two-way and one-way"};  // by NEED_DROP

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

void setVerdict(nftnl_set_elem* made, uint8_t needs) {
    constexpr auto JUMP = static_cast<uint32_t>(NFT_JUMP);
    const uint32_t verdict = (needs & NEED_DROP) != 0 ? NF_DROP : needs == NEED_HAIRPIN ? NF_ACCEPT : JUMP;
    nftnl_set_elem_set_u32(made, NFTNL_SET_ELEM_VERDICT, verdict);
    if (needs == NEED_WITHIN) nftnl_set_elem_set_str(made, NFTNL_SET_ELEM_CHAIN, WITHIN_CHAIN);
    const char* remark = REMARKS[needs & NEED_DROP];
    if (remark == nullptr) return;
    nftnl_udata_buf* remarks = nftnl_udata_buf_alloc(REMARK_SIZE);
    nftnl_udata_put_strz(remarks, NFTNL_UDATA_SET_ELEM_COMMENT, remark);
    nftnl_set_elem_set(made, NFTNL_SET_ELEM_USERDATA, nftnl_udata_buf_data(remarks),
                       nftnl_udata_buf_len(remarks));
    nftnl_udata_buf_free(remarks);
}

nftnl_set_elem* makeElement(const RawElement& raw, bool whole) {
    const SetShape& shape = shapeOf(raw.set);
    nftnl_set_elem* made = nftnl_set_elem_alloc();
    nftnl_set_elem_set(made, NFTNL_SET_ELEM_KEY, raw.key.data(), shape.keyLength);
    if (whole && shape.dataType == NFT_VERDICTS) setVerdict(made, raw.needs);
    if (whole && shape.dataType == NFT_TYPE_MARK) {
        nftnl_set_elem_set(made, NFTNL_SET_ELEM_DATA, &raw.mark, sizeof(raw.mark));
    }
    if (whole && raw.counter.packets != 0) {
        nftnl_expr* counter = nftnl_expr_alloc("counter");
        nftnl_expr_set_u64(counter, NFTNL_EXPR_CTR_PACKETS, raw.counter.packets);
        nftnl_expr_set_u64(counter, NFTNL_EXPR_CTR_BYTES, raw.counter.bytes);
        nftnl_set_elem_add_expr(made, counter);
    }
    return made;
}

// One message for at most MESSAGE_ELEMENTS elements of `wanted`, from `at` on; `at` goes behind the last.
void appendMessageOf(Batch& batch, int type, FilterSet wanted, const std::vector<RawElement>& elements,
                     size_t& at) {
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, FILTER_TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, shapeOf(wanted).name);
    for (size_t count = 0; at < elements.size() && count < MESSAGE_ELEMENTS; ++at) {
        if (elements[at].set != wanted) continue;
        nftnl_set_elem_add(set, makeElement(elements[at], type == NFT_MSG_NEWSETELEM));
        ++count;
    }
    nlmsghdr* header = appendMessage(batch, type, type == NFT_MSG_NEWSETELEM ? NLM_F_CREATE : 0);
    nftnl_set_elems_nlmsg_build_payload(header, set);
    closeMessage(batch, header);
    nftnl_set_free(set);
}

void appendAll(Batch& batch, int type, const std::vector<RawElement>& elements) {
    for (size_t id = 0; id < FILTER_SET_COUNT; ++id) {
        const auto set = static_cast<FilterSet>(id);
        size_t at = 0;
        const auto skip = [&] {
            while (at < elements.size() && elements[at].set != set) ++at;
        };
        for (skip(); at < elements.size(); skip()) appendMessageOf(batch, type, set, elements, at);
    }
}

// An element as it is read.
struct FoundElement {
    const char* key;
    FilterCounter counter;
    uint8_t needs;  // of a pair
    uint32_t mark;
};

bool isRemark(nftnl_set_elem* element, const char* remark) {
    uint32_t length = 0;
    const auto* data =
        static_cast<const char*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_USERDATA, &length));
    const std::string_view text = data == nullptr ? "" : std::string_view(data, length);
    return remark == nullptr ? text.empty()
                             : text.find(remark) == 2 && text.size() == std::strlen(remark) + 3;
}

uint8_t needsOf(nftnl_set_elem* element) {
    if (!nftnl_set_elem_is_set(element, NFTNL_SET_ELEM_VERDICT)) return NEED_STRANGE;
    const auto verdict = static_cast<int32_t>(nftnl_set_elem_get_u32(element, NFTNL_SET_ELEM_VERDICT));
    const char* chain = nftnl_set_elem_get_str(element, NFTNL_SET_ELEM_CHAIN);
    const bool within = chain != nullptr && std::string_view(chain) == WITHIN_CHAIN;
    if (verdict == NF_ACCEPT) return NEED_HAIRPIN;
    if (verdict == NFT_JUMP && within) return NEED_WITHIN;
    for (uint8_t needs = NEED_TWO_WAY; verdict == NF_DROP && needs <= NEED_DROP; ++needs) {
        if (isRemark(element, REMARKS[needs])) return needs;
    }
    return NEED_STRANGE;
}

FoundElement foundElement(nftnl_set_elem* element, uint32_t keyLength, uint32_t dataType) {
    FoundElement found = {};
    uint32_t length = 0;
    uint32_t size = 0;
    found.key = static_cast<const char*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_KEY, &length));
    if (length != keyLength) found.key = nullptr;
    const auto* expression =
        static_cast<const nftnl_expr*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_EXPR, &size));
    if (expression != nullptr) found.counter = countedBy(expression);
    if (dataType == NFT_VERDICTS) found.needs = needsOf(element);
    const void* data =
        dataType == NFT_TYPE_MARK ? nftnl_set_elem_get(element, NFTNL_SET_ELEM_DATA, &size) : nullptr;
    if (data != nullptr && size == sizeof(found.mark)) std::memcpy(&found.mark, data, sizeof(found.mark));
    return found;
}

template <typename Take>
void takeMessage(const nlmsghdr* header, uint32_t keyLength, uint32_t dataType, Take&& take) {
    nftnl_set* part = nftnl_set_alloc();
    nftnl_set_elems_iter* each =
        nftnl_set_elems_nlmsg_parse(header, part) < 0 ? nullptr : nftnl_set_elems_iter_create(part);
    while (nftnl_set_elem* element = each == nullptr ? nullptr : nftnl_set_elems_iter_next(each)) {
        const FoundElement found = foundElement(element, keyLength, dataType);
        if (found.key != nullptr) take(found);
    }
    if (each != nullptr) nftnl_set_elems_iter_destroy(each);
    nftnl_set_free(part);
}

template <typename Take>
int readSet(Filter& filter, const char* name, uint32_t keyLength, uint32_t dataType, Take&& take) {
    const auto build = [&](nlmsghdr* header) {
        mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_TABLE, FILTER_TABLE);
        mnl_attr_put_strz(header, NFTA_SET_ELEM_LIST_SET, name);
    };
    const auto read = [&](const nlmsghdr* header) { takeMessage(header, keyLength, dataType, take); };
    const int problem = ask(filter, NFT_MSG_GETSETELEM, NLM_F_DUMP, {.build = build, .read = read});
    return problem == ENOENT ? 0 : problem;
}

template <typename Take>
int readSet(Filter& filter, FilterSet set, Take&& take) {
    const SetShape& shape = shapeOf(set);
    return readSet(filter, shape.name, shape.keyLength, shape.dataType, take);
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

void appendElements(Batch& batch, const RawChange& change) {
    appendAll(batch, NFT_MSG_DELSETELEM, change.del);
    appendAll(batch, NFT_MSG_NEWSETELEM, change.add);
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
