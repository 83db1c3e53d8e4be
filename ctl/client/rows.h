// The families whose rows live by row status: groups, one-way pairs and VLAN groups. A row is a member
// (interface or target) of a scope (group number or source); what differs between the families stands in a
// record, and every command is written once.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "ctl/client/session.h"
#include "wire/records.h"

inline constexpr size_t INDEX_WORDS_MAX = 4;
using IndexWords = std::array<uint32_t, INDEX_WORDS_MAX>;

struct RowFamily {
    const char* object;
    uint32_t opSet, opGet, opFirst, opNext;
    uint32_t column;  // of the row status
    // Places of the words in the index record; its last word is the match mask.
    size_t words, member, scope, vlan;
    std::array<size_t, 3> order;  // the table's sort keys, `words` - 1 of them
    uint32_t memberMask, scopeMask, vlanMask;
    const char* createRule;  // what a create that is "not supported" has broken
};

// A scope of one family: a group number, a group number and VLAN, or a pair's source.
struct RowScope {
    uint32_t number = 0;
    uint32_t vlan = 0;  // 0: of no VLAN, or of any where rows are looked for
    auto operator<=>(const RowScope&) const = default;
};

struct Row {
    RowScope scope;
    uint32_t member = 0;
    uint32_t status = 0;
};

extern const RowFamily GROUP_ROWS;
extern const RowFamily PAIR_ROWS;
extern const RowFamily VLAN_GROUP_ROWS;

// "group 5, ge1/1" or "pair ge1/1 to ge1/2".
std::string rowText(Session& session, const RowFamily& family, RowScope scope, uint32_t member);

// One row's status written, for callers that deal with a refusal themselves: `status` is the daemon's.
Exit sendRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member, uint32_t value,
                   int32_t& status);
// Tells a refusal of `step`, such as "create".
Exit refuseRow(Session& session, const RowFamily& family, RowScope scope, uint32_t member, const char* step,
               int32_t status);

// Creates and activates the rows that are not there yet, in order. When one is refused, those that this call
// created are destroyed again, and the operator is told which and why.
Exit addRows(Session& session, const RowFamily& family, RowScope scope, const std::vector<uint32_t>& members,
             bool activate);
// Each of the members, going on after a refusal.
Exit activateRows(Session& session, const RowFamily& family, RowScope scope,
                  const std::vector<uint32_t>& members);
Exit deleteRows(Session& session, const RowFamily& family, RowScope scope,
                const std::vector<uint32_t>& members);

// The rows of a scope, or of the whole table for null, in the table's order. Status is read for each row when
// `statuses` says so; a row that is gone by then is left out.
Exit collectRows(Session& session, const RowFamily& family, const RowScope* scope, bool statuses,
                 std::vector<Row>& rows);

Exit runRowsAdd(Session& session, const Invocation& invocation);
Exit runRowsCreate(Session& session, const Invocation& invocation);
Exit runRowsActivate(Session& session, const Invocation& invocation);
Exit runRowsDelete(Session& session, const Invocation& invocation);
Exit runRowsList(Session& session, const Invocation& invocation);
Exit runRowsProbe(Session& session, const Invocation& invocation);
