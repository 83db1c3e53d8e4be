#include "common/row_families.h"

#include <fmt/format.h>

#include "wire/operations.h"
#include "wire/records.h"

constexpr size_t NO_WORD = INDEX_WORDS_MAX;

const RowFamily GROUP_ROWS = {
    .object = "group",
    .opSet = OP_GROUP_SET,
    .opGet = OP_GROUP_GET,
    .opFirst = OP_GROUP_GET_FIRST,
    .opNext = OP_GROUP_GET_NEXT,
    .column = GROUP_COLUMN_ROW_STATUS,
    .words = 3,
    .member = 0,
    .scope = 1,
    .vlan = NO_WORD,
    .order = {1, 0, 0},
    .memberMask = MATCH_IF_UNIT,
    .scopeMask = MATCH_GROUP,
    .vlanMask = 0,
    .createRule =
        "group numbers run from 1 to scalar max-groups, and a member port of a trunk cannot join by itself"};

const RowFamily PAIR_ROWS = {
    .object = "pair",
    .opSet = OP_PAIR_SET,
    .opGet = OP_PAIR_GET,
    .opFirst = OP_PAIR_GET_FIRST,
    .opNext = OP_PAIR_GET_NEXT,
    .column = PAIR_COLUMN_ROW_STATUS,
    .words = 3,
    .member = 1,
    .scope = 0,
    .vlan = NO_WORD,
    .order = {0, 1, 0},
    .memberMask = MATCH_DST,
    .scopeMask = MATCH_SRC,
    .vlanMask = 0,
    .createRule = "source and target must differ, and a member port of a trunk cannot be either"};

const RowFamily VLAN_GROUP_ROWS = {
    .object = "vlan-group",
    .opSet = OP_VLAN_GROUP_SET,
    .opGet = OP_VLAN_GROUP_GET,
    .opFirst = OP_VLAN_GROUP_GET_FIRST,
    .opNext = OP_VLAN_GROUP_GET_NEXT,
    .column = GROUP_COLUMN_ROW_STATUS,
    .words = 4,
    .member = 0,
    .scope = 1,
    .vlan = 2,
    .order = {1, 2, 0},
    .memberMask = MATCH_IF_UNIT,
    .scopeMask = MATCH_GROUP,
    .vlanMask = MATCH_VLAN,
    .createRule =
        "group numbers run from 1 to scalar max-groups, the VLAN is not 0, and a member port of a "
        "trunk cannot join by itself"};

bool familyHasVlans(const RowFamily& family) {
    return family.vlan != NO_WORD;
}

std::string scopeText(const InterfaceNamer& nameOf, const RowFamily& family, RowScope scope) {
    if (&family == &PAIR_ROWS) return "pair " + nameOf(scope.number);
    const std::string text = fmt::format("{} {}", family.object, scope.number);
    return scope.vlan != 0 ? fmt::format("{} in VLAN {}", text, scope.vlan) : text;
}

std::string rowText(const InterfaceNamer& nameOf, const RowFamily& family, RowScope scope, uint32_t member) {
    const char* between = &family == &PAIR_ROWS ? " to " : ", ";
    return scopeText(nameOf, family, scope) + between + nameOf(member);
}
