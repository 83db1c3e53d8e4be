// The families whose rows live by row status: groups, one-way pairs and VLAN groups.
//
// A row is a member (an interface, or the target of a pair) of a scope (a group number, within a VLAN or not,
// or the source of a pair). What differs between the families stands in a record, so that whatever is done
// with rows is written once. The daemon knows a row by an index record; how its words are placed and in which
// order the daemon's tables run belongs to the record, too.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

inline constexpr size_t INDEX_WORDS_MAX = 4;
using IndexWords = std::array<uint32_t, INDEX_WORDS_MAX>;

struct RowFamily {
    const char* object;
    uint32_t opSet, opGet, opFirst, opNext;
    uint32_t column;  // of the row status
    // Places of the words in the index record; its last word is the match mask. A family without VLANs has
    // INDEX_WORDS_MAX for `vlan`.
    size_t words, member, scope, vlan;
    std::array<size_t, 3> order;  // the table's sort keys, `words` - 1 of them
    uint32_t memberMask, scopeMask, vlanMask;
    const char* createRule;  // the rule behind a create that is "not supported"
};

// A scope of one family: a group number, a group number and VLAN, or a pair's source.
struct RowScope {
    uint32_t number = 0;
    uint32_t vlan = 0;  // 0: of no VLAN, or of any where rows are looked for
    auto operator<=>(const RowScope&) const = default;
};

extern const RowFamily GROUP_ROWS;
extern const RowFamily PAIR_ROWS;
extern const RowFamily VLAN_GROUP_ROWS;

bool familyHasVlans(const RowFamily& family);

// How an interface is called, by its number.
using InterfaceNamer = std::function<std::string(uint32_t)>;

// "group 5 in VLAN 10" or "pair ge1/1", and "group 5, ge1/1" or "pair ge1/1 to ge1/2".
std::string scopeText(const InterfaceNamer& nameOf, const RowFamily& family, RowScope scope);
std::string rowText(const InterfaceNamer& nameOf, const RowFamily& family, RowScope scope, uint32_t member);
