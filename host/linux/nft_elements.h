// The sets and maps of the filter's table, and their elements as the kernel knows them, in messages. What an
// element is good for is host/linux/nft_sets.h.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <iterator>
#include <vector>

#include "host/linux/nft_content.h"
#include "host/linux/nft_transaction.h"

inline constexpr size_t FILTER_DEVICE_SIZE = 16;  // bytes of a device's name, zeros behind it

enum class FilterSet : uint8_t {
    pairs,
    vlanPairs,
    vlanPorts,
    access,
    openVlans,
    tags,
    pvids,
    opened,
    // These are laid where ports carry groups to other machines.
    spanPorts,
    spanOpen,
    spanMarks,
    spanSenders,
    spanMembers
};

// Types by which the filter's own command prints keys.
inline constexpr uint32_t NFT_TYPE_INTEGER = 4;
inline constexpr uint32_t NFT_TYPE_MARK = 19;
inline constexpr uint32_t NFT_TYPE_INDEX = 20;
inline constexpr uint32_t NFT_TYPE_DEVICE = 41;
inline constexpr uint32_t NFT_TYPE_BITS = 6;
inline constexpr uint32_t NFT_TYPE_DEVICE_MARK = NFT_TYPE_DEVICE << NFT_TYPE_BITS | NFT_TYPE_MARK;
inline constexpr uint32_t NFT_TYPE_INDEX_DEVICE = NFT_TYPE_INDEX << NFT_TYPE_BITS | NFT_TYPE_DEVICE;
inline constexpr uint32_t NFT_TYPE_TWO_DEVICES = NFT_TYPE_DEVICE << NFT_TYPE_BITS | NFT_TYPE_DEVICE;

struct SetShape {
    const char* name;
    uint32_t keyType;
    uint32_t keyLength;
    uint32_t dataType;  // 0: no map
    bool counts;        // each element counts what it matched
};

inline constexpr uint32_t NFT_VERDICTS = 0xffffff00;
inline constexpr uint32_t TWO_DEVICES_SIZE = 2 * FILTER_DEVICE_SIZE;
inline constexpr uint32_t INDEX_DEVICE_SIZE = sizeof(uint32_t) + FILTER_DEVICE_SIZE;
inline constexpr uint32_t DEVICE_MARK_SIZE = FILTER_DEVICE_SIZE + sizeof(uint32_t);

// By FilterSet.
inline constexpr SetShape FILTER_SETS[] = {
    {"pairs", NFT_TYPE_TWO_DEVICES, TWO_DEVICES_SIZE, NFT_VERDICTS, true},
    {"vlan_pairs", NFT_TYPE_TWO_DEVICES << NFT_TYPE_BITS | NFT_TYPE_MARK, TWO_DEVICES_SIZE + sizeof(uint32_t),
     0, true},
    {"vlan_ports", NFT_TYPE_DEVICE, FILTER_DEVICE_SIZE, 0, false},
    {"access", NFT_TYPE_DEVICE, FILTER_DEVICE_SIZE, 0, false},
    {"open_vlans", NFT_TYPE_MARK, sizeof(uint32_t), 0, false},
    {"tags", NFT_TYPE_INTEGER, sizeof(uint16_t), NFT_TYPE_MARK, false},
    {"pvids", NFT_TYPE_INTEGER, sizeof(uint16_t), NFT_TYPE_MARK, false},
    {"opened", NFT_TYPE_INDEX_DEVICE, INDEX_DEVICE_SIZE, 0, false},
    {"span_ports", NFT_TYPE_DEVICE, FILTER_DEVICE_SIZE, 0, false},
    {"span_open", NFT_TYPE_INDEX_DEVICE, INDEX_DEVICE_SIZE, 0, false},
    {"span_marks", NFT_TYPE_DEVICE, FILTER_DEVICE_SIZE, NFT_TYPE_MARK, false},
    {"span_senders", NFT_TYPE_DEVICE_MARK, DEVICE_MARK_SIZE, 0, false},
    {"span_members", NFT_TYPE_DEVICE_MARK, DEVICE_MARK_SIZE, 0, true},
};
inline constexpr size_t FILTER_SET_COUNT = std::size(FILTER_SETS);
static_assert(FILTER_SET_COUNT == static_cast<size_t>(FilterSet::spanMembers) + 1);
inline constexpr uint32_t KEY_MAX = TWO_DEVICES_SIZE + sizeof(uint32_t);

inline const SetShape& shapeOf(FilterSet set) {
    return FILTER_SETS[static_cast<size_t>(set)];
}

// The chain that pairs go on to whose VLAN has to be looked at.
inline constexpr char WITHIN_CHAIN[] = "within_vlan";

// What needs a pair, as bits, and what stands for them in the kernel. A drop without a remark is two-way.
inline constexpr uint8_t NEED_TWO_WAY = 1;
inline constexpr uint8_t NEED_ONE_WAY = 2;
inline constexpr uint8_t NEED_DROP = NEED_TWO_WAY | NEED_ONE_WAY;
inline constexpr uint8_t NEED_WITHIN = 4;
inline constexpr uint8_t NEED_HAIRPIN = 8;
inline constexpr uint8_t NEED_STRANGE = 16;

// An element as the kernel knows it.
struct RawElement {
    std::array<char, KEY_MAX> key;
    FilterSet set;
    uint8_t needs;  // of a pair
    uint32_t mark;  // of a VLAN, or of groups
    FilterCounter counter;
};

struct RawChange {
    std::vector<RawElement> add;
    std::vector<RawElement> del;
    bool news = false;  // it is a transaction to the kernel, which takes what is there already for nothing
};

// Deletions come first.
void appendElements(Batch& batch, const RawChange& change);

// An element as it is read.
struct FoundElement {
    const char* key;
    FilterCounter counter;
    uint8_t needs;  // of a pair
    uint32_t mark;
};
using TakeElement = std::function<void(const FoundElement&)>;

// All elements of a set; one that is not there has none.
int readSet(Filter& filter, FilterSet set, const TakeElement& take);
int readSet(Filter& filter, const char* name, uint32_t keyLength, uint32_t dataType, const TakeElement& take);
