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

#include "host/linux/nft_elements.h"
#include "host/planes/frame_mark.h"
#include "host/planes/spread_map.h"

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

// Needs that come and that go.
struct FilterChange {
    std::vector<FilterElement> add;
    std::vector<FilterElement> del;
};

// What a change of needs is to the kernel that holds `held`, of each kind as many as `heldOf` says. What is
// not there is not deleted; what is there already is added again, so that it holds where somebody else has
// taken it away unseen.
RawChange rawChange(const Filter& filter, const FilterElements& held, const KindCounts& heldOf,
                    const FilterChange& change);
// All of these, to a kernel that holds nothing, with what they have counted.
RawChange rawWhole(const Filter& filter, const FilterElements& elements);

// The needs that the elements of all sets meet; `elements` is replaced. A set that is not there has none.
// `moved`: they stand there under another frame mark.
int readElements(Filter& filter, FilterElements& elements, bool& moved);
// Adds what stands in the sets of the layout that came before this one.
int readFormerElements(Filter& filter, FilterElements& elements);
// Adds the needs that follow from those that are asked for.
void addConsequences(FilterElements& elements);
// What follows from one that is asked for.
std::vector<FilterElement> consequencesOf(const FilterElement& element);
