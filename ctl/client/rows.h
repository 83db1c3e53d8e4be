// The families whose rows live by row status: groups, one-way pairs and VLAN groups.
//
// A row is a member (an interface, or the target of a pair) of a scope (a group number, within a VLAN or not,
// or the source of a pair). What differs between the families stands in a record, so that whatever is done
// with rows is written once. The daemon knows a row by an index record; how its words are placed and in which
// order the daemon's tables run belongs to the record, too.
//
// Every function ends the command when the daemon does not answer, or answers what makes no sense. Those that
// answer a status leave a refusal to their caller.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
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

struct Row {
    RowScope scope;
    uint32_t member = 0;
    uint32_t status = 0;
};

extern const RowFamily GROUP_ROWS;
extern const RowFamily PAIR_ROWS;
extern const RowFamily VLAN_GROUP_ROWS;

bool familyHasVlans(const RowFamily& family);

// "group 5 in VLAN 10" or "pair ge1/1", and "group 5, ge1/1" or "pair ge1/1 to ge1/2".
std::string scopeText(Session& session, const RowFamily& family, RowScope scope);
std::string rowText(Session& session, const RowFamily& family, RowScope scope, uint32_t member);

// Writes one row's status (ROW_CREATE, ...). Answers the daemon's status.
int32_t sendRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                      uint32_t value);
// Prints that `step`, such as "create", was refused.
void tellRowRefusal(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                    const char* step, int32_t status);

// The word is one of ROW_STATE_...; the status STATUS_NOT_FOUND for a row that is not there.
WordReply readRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member);
// Unlike readRowStatus, asking for a missing row is not a failure to the daemon. Ends the command when the
// look-up is refused.
bool rowExists(Session& session, const RowFamily& family, RowScope scope, uint32_t member);

// The rows of a scope, or of the whole table for null, in the table's order, without their status.
std::vector<Row> walkRows(Session& session, const RowFamily& family, const RowScope* scope);
// The same with the status of each row; one that is gone by then is left out.
std::vector<Row> collectRows(Session& session, const RowFamily& family, const RowScope* scope);
