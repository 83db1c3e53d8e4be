// The sets of the filter's table, which the rules look pairs, ports and VLANs up in, and their elements.
//
// A key is the devices' names and then the VLAN id, each part filled up to whole words.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "host/linux/nft_content.h"
#include "host/linux/nft_transaction.h"

inline constexpr size_t FILTER_DEVICE_SIZE = 16;  // bytes of a device's name, zeros behind it

// A VLAN-filtering bridge has stripped the tag of what leaves untagged before the filter sees it. Where all
// that leaves a port untagged is of one VLAN (`egress`), pairs that are isolated in that VLAN stand in
// `biEgress` as well. `egressOff`: PON isolation is off in every VLAN that leaves the port untagged.
// `hairpin` pairs each access port with itself: what a port reflects is not held.
enum class FilterSet : uint8_t { bi, biVlan, biEgress, uni, access, ponOff, egress, egressOff, hairpin };

// Element of a set; what the set has no use for is zero.
struct FilterElement {
    std::array<char, FILTER_DEVICE_SIZE> src;
    std::array<char, FILTER_DEVICE_SIZE> dst;
    uint16_t vid;
    FilterSet set;
    uint8_t reserved;

    friend bool operator==(const FilterElement&, const FilterElement&) = default;
};
static_assert(std::has_unique_object_representations_v<FilterElement>);

// Names longer than 15 bytes are cut.
FilterElement filterElement(FilterSet set, std::string_view src, std::string_view dst, uint16_t vid);

struct FilterElementHash {
    size_t operator()(const FilterElement& element) const {
        return std::hash<std::string_view>{}({element.src.data(), sizeof(element)});
    }
};

using FilterElements = std::unordered_map<FilterElement, FilterCounter, FilterElementHash>;

// Adds and deletes in one transaction: all or nothing. To delete an element that is not there fails.
int changeElements(Filter& filter, const std::vector<FilterElement>& add,
                   const std::vector<FilterElement>& del);
// The elements of all sets with what each has counted; `elements` is replaced. A set that is not there has
// none.
int readElements(Filter& filter, FilterElements& elements);

// Types by which the filter's own command prints keys. It has none for a VLAN id by its number; a port's
// number, of the same size and byte order, looks the same.
inline constexpr uint32_t NFT_TYPE_DEVICE = 41;
inline constexpr uint32_t NFT_TYPE_VLAN_ID = 13;
inline constexpr uint32_t NFT_TYPE_BITS = 6;
inline constexpr uint32_t NFT_TYPE_TWO_DEVICES = NFT_TYPE_DEVICE << NFT_TYPE_BITS | NFT_TYPE_DEVICE;

struct SetShape {
    const char* name;
    uint32_t keyType;
    uint32_t devices;  // names in the key
    bool vlan;         // a VLAN id behind them, in network byte order
    bool counts;       // each element counts what it matched
};

// By FilterSet.
inline constexpr SetShape FILTER_SETS[] = {
    {"bi", NFT_TYPE_TWO_DEVICES, 2, false, true},
    {"bi_vlan", NFT_TYPE_TWO_DEVICES << NFT_TYPE_BITS | NFT_TYPE_VLAN_ID, 2, true, true},
    {"bi_egress", NFT_TYPE_TWO_DEVICES, 2, false, true},
    {"uni", NFT_TYPE_TWO_DEVICES, 2, false, true},
    {"access", NFT_TYPE_DEVICE, 1, false, false},
    {"pon_off", NFT_TYPE_VLAN_ID, 0, true, false},
    {"egress", NFT_TYPE_DEVICE, 1, false, false},
    {"egress_off", NFT_TYPE_DEVICE, 1, false, false},
    {"hairpin", NFT_TYPE_TWO_DEVICES, 2, false, false},
};
inline constexpr size_t FILTER_SET_COUNT = std::size(FILTER_SETS);
static_assert(FILTER_SET_COUNT == static_cast<size_t>(FilterSet::hairpin) + 1);

inline constexpr uint32_t KEY_WORD = 4;  // bytes
inline constexpr uint32_t KEY_MAX = 2 * FILTER_DEVICE_SIZE + KEY_WORD;

inline const SetShape& shapeOf(FilterSet set) {
    return FILTER_SETS[static_cast<size_t>(set)];
}

// Bytes of a key.
inline uint32_t keyLength(const SetShape& shape) {
    const uint32_t vlan = !shape.vlan ? 0 : shape.devices == 0 ? sizeof(uint16_t) : KEY_WORD;
    return shape.devices * static_cast<uint32_t>(FILTER_DEVICE_SIZE) + vlan;
}
