// The elements of the filter's table: what the plane needs, and how that stands in the kernel's sets and
// maps.
//
// Needs and elements
// ------------------
// A need is one reason to hold something. Several may be met by one element of the kernel: a pair of devices
// has one element in the map `pairs`, whose verdict follows from all that needs the pair. A change of needs
// exchanges that element in one transaction, so releasing one kind never opens another. In the same way a
// device has one element in the map `span_marks`, with the bits of all its groups.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <vector>

#include "common/spanning_groups.h"
#include "host/linux/nft_elements.h"
#include "host/planes/frame_mark.h"
#include "host/planes/spread_map.h"

// The first are what is asked for; the others follow from them.
enum class FilterKind : uint8_t {
    twoWay,
    twoWayVlan,  // within a VLAN
    oneWay,
    access,    // a device that PON isolation keeps apart from others like it
    ponOff,    // a VLAN in which it does not
    member,    // a device that members of a group on other machines do not reach, within a VLAN or at all
    within,    // the pair's VLAN has to be looked at
    hairpin,   // what an access device reflects passes
    port,      // a device whose frames have to be marked with their VLAN
    vlan,      // a VLAN that such a mark names
    opened,    // a port whose door is open: its name, and its index in words in place of a second
    sender,    // a device of which other machines hear that it is in a group, whatever the frame's mark
    marked,    // the same where the frame has no mark; group 0: other bits, somebody else's
    spanPort,  // a device that leads to other machines
    carrier,   // one of these that tells them the groups: its name, and its index as for a door
    strange,   // nobody knows: somebody else's
};

// What the kind has no use for is zero.
struct FilterElement {
    std::array<char, FILTER_DEVICE_SIZE> src;
    std::array<char, FILTER_DEVICE_SIZE> dst;
    uint16_t vid;
    FilterKind kind;
    uint8_t group;

    friend bool operator==(const FilterElement&, const FilterElement&) = default;
};
static_assert(std::has_unique_object_representations_v<FilterElement>);

// Whether it is met by the verdict of a pair.
bool isVerdictKind(FilterKind kind);
// Whether somebody else has put it there in place of ours.
inline bool isStrange(const FilterElement& element) {
    return element.kind == FilterKind::strange || (element.kind == FilterKind::marked && element.group == 0);
}

// The name in an element, without the zeros behind it.
std::string_view deviceText(const std::array<char, FILTER_DEVICE_SIZE>& device);

// Names longer than 15 bytes are cut.
FilterElement filterElement(FilterKind kind, std::string_view src, std::string_view dst, uint16_t vid);

// Of a port by its index and name: `opened` or `carrier`.
FilterElement indexedElement(FilterKind kind, uint32_t index, std::string_view device);

// The VLAN of a member as which it is kept from frames whose VLAN nobody can tell.
inline constexpr uint16_t VID_UNKNOWN = (1U << MARK_BITS) - 1;
// Of a device in a group: `member`, `sender` or `marked`.
FilterElement memberElement(FilterKind kind, std::string_view device, uint32_t group, uint16_t vid = 0);

// A frame's mark holds the groups of its sender between machines in these bits.
inline constexpr uint32_t GROUP_BITS = SPANNING_ALL;

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
void addConsequences(const Filter& filter, FilterElements& elements);
// What follows from one that is asked for.
std::vector<FilterElement> consequencesOf(const Filter& filter, const FilterElement& element);
