// The kernel's packet filter as far as the Linux plane needs it: the table `portisolate` of the bridge
// family, its sets of pairs of devices, and the rules that drop what is in them. One netlink transaction for
// each change; all functions return 0 or an errno value, the kernel's own where it answered.
//
// One task at a time.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

struct mnl_socket;

inline constexpr char FILTER_TABLE[] = "portisolate";
inline constexpr size_t FILTER_DEVICE_SIZE = 16;  // bytes of a device's name, zeros behind it

// A VLAN-filtering bridge has stripped the tag of what leaves untagged before the filter sees it. Where all
// that leaves a port untagged is of one VLAN (`egress`), pairs that are isolated in that VLAN stand in
// `biEgress` as well. `egressOff`: PON isolation is off in every VLAN that leaves the port untagged.
enum class FilterSet : uint8_t { bi, biVlan, biEgress, uni, access, ponOff, egress, egressOff };

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

FilterElement filterElement(FilterSet set, std::string_view src, std::string_view dst, uint16_t vid);

struct FilterElementHash {
    size_t operator()(const FilterElement& element) const {
        return std::hash<std::string_view>{}({element.src.data(), sizeof element});
    }
};

struct FilterCounter {
    uint64_t packets;
    uint64_t bytes;
};

using FilterElements = std::unordered_map<FilterElement, FilterCounter, FilterElementHash>;

struct Filter {
    mnl_socket* socket = nullptr;
    uint32_t sequence = 0;
    bool seesPvid = false;      // the kernel can tell the VLAN of an untagged frame
    std::vector<char> message;  // room for one transaction
    std::vector<char> answer;
};

int openFilter(Filter& filter);
void closeFilter(Filter& filter);

// Lays the table; what stands in its sets stays, and its rules are replaced in one step.
int layTable(Filter& filter);

// Adds and deletes in one transaction: all or nothing. To delete an element that is not there fails.
int changeElements(Filter& filter, const std::vector<FilterElement>& add,
                   const std::vector<FilterElement>& del);
int readElements(Filter& filter, FilterElements& elements);

// The number of the filter's last transaction, whoever made it: it counts up by one.
int readGeneration(Filter& filter, uint32_t& generation);

// Whether table, chain and rules are as layTable leaves them; null, or what is wrong with them. `pon` counts
// what the PON isolation of VLANs has dropped.
int inspectTable(Filter& filter, const char*& damage, FilterCounter& pon);
