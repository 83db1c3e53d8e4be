// The elements of the filter's table: what the plane needs, and how that stands in the kernel's sets and
// maps.
//
// Needs and elements
// ------------------
// A need is one reason to hold something. Several may be met by one element of the kernel: a pair of devices
// has one element in the map `pairs`, whose verdict follows from all that needs the pair. A change of needs
// exchanges that element in one transaction, so releasing one kind never opens another.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/linux/nft_content.h"
#include "host/linux/nft_transaction.h"
#include "host/planes/frame_mark.h"
#include "host/planes/spread_map.h"

inline constexpr size_t FILTER_DEVICE_SIZE = 16;  // bytes of a device's name, zeros behind it

// The first are what is asked for; the others follow from them.
enum class FilterKind : uint8_t {
    twoWay,
    twoWayVlan,  // within a VLAN
    oneWay,
    access,   // a device that PON isolation keeps apart from others like it
    ponOff,   // a VLAN in which it does not
    within,   // the pair's VLAN has to be looked at
    hairpin,  // what an access device reflects passes
    port,     // a device whose frames have to be marked with their VLAN
    vlan,     // a VLAN that such a mark names
    opened,   // a port whose door is open: its name, and its index in words in place of a second
    strange,  // nobody knows: somebody else's
};

// What the kind has no use for is zero.
struct FilterElement {
    std::array<char, FILTER_DEVICE_SIZE> src;
    std::array<char, FILTER_DEVICE_SIZE> dst;
    uint16_t vid;
    FilterKind kind;
    uint8_t reserved;

    friend bool operator==(const FilterElement&, const FilterElement&) = default;
};
static_assert(std::has_unique_object_representations_v<FilterElement>);

// Whether it is met by the verdict of a pair.
bool isVerdictKind(FilterKind kind);

// The name in an element, without the zeros behind it.
std::string_view deviceText(const std::array<char, FILTER_DEVICE_SIZE>& device);

// Names longer than 15 bytes are cut.
FilterElement filterElement(FilterKind kind, std::string_view src, std::string_view dst, uint16_t vid);

// Of a port by its index and name, whose door is open.
FilterElement openedElement(uint32_t index, std::string_view device);

struct FilterElementHash {
    size_t operator()(const FilterElement& element) const {
        return std::hash<std::string_view>{}({element.src.data(), sizeof(element)});
    }
};

// With what each has counted: only what is asked for counts, and of a pair that is needed both ways and one
// way the former.
using FilterElements = SpreadMap<FilterElement, FilterCounter, FilterElementHash>;

// How many there are of each kind.
using KindCounts = std::array<size_t, static_cast<size_t>(FilterKind::strange) + 1>;

enum class FilterSet : uint8_t { pairs, vlanPairs, vlanPorts, access, openVlans, tags, pvids, opened };

// Types by which the filter's own command prints keys.
inline constexpr uint32_t NFT_TYPE_INTEGER = 4;
inline constexpr uint32_t NFT_TYPE_MARK = 19;
inline constexpr uint32_t NFT_TYPE_INDEX = 20;
inline constexpr uint32_t NFT_TYPE_DEVICE = 41;
inline constexpr uint32_t NFT_TYPE_BITS = 6;
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
    {"opened", NFT_TYPE_INDEX << NFT_TYPE_BITS | NFT_TYPE_DEVICE, sizeof(uint32_t) + FILTER_DEVICE_SIZE, 0,
     false},
};
inline constexpr size_t FILTER_SET_COUNT = std::size(FILTER_SETS);
static_assert(FILTER_SET_COUNT == static_cast<size_t>(FilterSet::opened) + 1);
inline constexpr uint32_t KEY_MAX = TWO_DEVICES_SIZE + sizeof(uint32_t);

inline const SetShape& shapeOf(FilterSet set) {
    return FILTER_SETS[static_cast<size_t>(set)];
}

// The chain that pairs go on to whose VLAN has to be looked at.
inline constexpr char WITHIN_CHAIN[] = "within_vlan";

// Needs that come and that go.
struct FilterChange {
    std::vector<FilterElement> add;
    std::vector<FilterElement> del;
};

// An element as the kernel knows it.
struct RawElement {
    std::array<char, KEY_MAX> key;
    FilterSet set;
    uint8_t needs;  // of a pair
    uint32_t mark;  // of a VLAN
    FilterCounter counter;
};

struct RawChange {
    std::vector<RawElement> add;
    std::vector<RawElement> del;
    bool news = false;  // it is a transaction to the kernel, which takes what is there already for nothing
};

// What a change of needs is to the kernel that holds `held`, of each kind as many as `heldOf` says. What is
// not there is not deleted; what is there already is added again, so that it holds where somebody else has
// taken it away unseen.
RawChange rawChange(const Filter& filter, const FilterElements& held, const KindCounts& heldOf,
                    const FilterChange& change);
// All of these, to a kernel that holds nothing, with what they have counted.
RawChange rawWhole(const Filter& filter, const FilterElements& elements);
void appendElements(Batch& batch, const RawChange& change);

// The needs that the elements of all sets meet; `elements` is replaced. A set that is not there has none.
// `moved`: they stand there under another frame mark.
int readElements(Filter& filter, FilterElements& elements, bool& moved);
// Adds what stands in the sets of the layout that came before this one.
int readFormerElements(Filter& filter, FilterElements& elements);
// Adds the needs that follow from those that are asked for.
void addConsequences(FilterElements& elements);
// What follows from one that is asked for.
std::vector<FilterElement> consequencesOf(const FilterElement& element);
