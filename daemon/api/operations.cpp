#include "daemon/api/operations.h"

#include "daemon/api/group_api.h"
#include "daemon/api/pair_api.h"
#include "daemon/api/scalar_api.h"
#include "daemon/api/vlan_api.h"
#include "daemon/api/vlan_group_api.h"

namespace {

// Rows by the signature of their handler, each checked against the shape that clients know the operation by.
template <PortIsolateOpcode OP>
constexpr const OpShape& SHAPE = PORT_ISOLATE_OP_SHAPES[OP];
template <PortIsolateOpcode OP>
constexpr bool IS_ACCESS = SHAPE<OP>.kind == OpKind::set || SHAPE<OP>.kind == OpKind::get;

template <PortIsolateOpcode OP>
constexpr PortIsolateFuncMapEntry row(int32_t (*handler)(void* index, uint32_t column, void* value)) {
    static_assert(IS_ACCESS<OP> && !SHAPE<OP>.indexIsNumber);
    return {OP, {.access = handler}};
}
template <PortIsolateOpcode OP>
constexpr PortIsolateFuncMapEntry row(int32_t (*handler)(uint32_t index, uint32_t column, void* value)) {
    static_assert(IS_ACCESS<OP> && SHAPE<OP>.indexIsNumber);
    return {OP, {.accessNumber = handler}};
}
template <PortIsolateOpcode OP>
constexpr PortIsolateFuncMapEntry row(int32_t (*handler)(void* index)) {
    static_assert(SHAPE<OP>.kind == OpKind::first);
    return {OP, {.first = handler}};
}
template <PortIsolateOpcode OP>
constexpr PortIsolateFuncMapEntry row(int32_t (*handler)(void* current, void* result)) {
    static_assert(SHAPE<OP>.kind == OpKind::next && !SHAPE<OP>.indexIsNumber);
    return {OP, {.next = handler}};
}
template <PortIsolateOpcode OP>
constexpr PortIsolateFuncMapEntry row(int32_t (*handler)(uint32_t current, void* result)) {
    static_assert(SHAPE<OP>.kind == OpKind::next && SHAPE<OP>.indexIsNumber);
    return {OP, {.nextNumber = handler}};
}

}  // namespace

constexpr PortIsolateFuncMapEntry gPortisolateFuncMap[OP_COUNT] = {
    {OP_NONE, {}},
    row<OP_SCALAR_SET>(portIsolateScalarSetApi),
    row<OP_SCALAR_SYNC>(portIsolateScalarSyncApi),
    row<OP_SCALAR_GET>(portIsolateScalarGetApi),
    row<OP_GROUP_SET>(portIsolateIfGrpSetApi),
    row<OP_GROUP_SYNC>(portIsolateIfGrpSyncApi),
    row<OP_GROUP_GET>(portIsolateIfGrpGetApi),
    row<OP_PAIR_SET>(portIsolateIfPairSetApi),
    row<OP_PAIR_SYNC>(portIsolateIfPairSyncApi),
    row<OP_PAIR_GET>(portIsolateIfPairGetApi),
    row<OP_GROUP_GET_FIRST>(portIsolateIfGrpGetFirst),
    row<OP_GROUP_GET_NEXT>(portIsolateIfGrpGetNext),
    row<OP_PAIR_GET_FIRST>(portIsolateIfPairGetFirst),
    row<OP_PAIR_GET_NEXT>(portIsolateIfPairGetNext),
    row<OP_VLAN_GET_FIRST>(portIsolateVlanGetFirst),
    row<OP_VLAN_GET_NEXT>(portIsolateVlanGetNext),
    row<OP_VLAN_GET>(portIsolateVlanGetApi),
    row<OP_VLAN_SET>(portIsolateVlanSetApi),
    row<OP_VLAN_SYNC>(portIsolateVlanSyncApi),
    row<OP_VLAN_GROUP_GET_FIRST>(portIsolateIfVlanGrpGetFirst),
    row<OP_VLAN_GROUP_GET_NEXT>(portIsolateIfVlanGrpGetNext),
    row<OP_VLAN_GROUP_GET>(portIsolateIfVlanGrpGetApi),
    row<OP_VLAN_GROUP_SET>(portIsolateIfVlanGrpSetApi),
    row<OP_VLAN_GROUP_SYNC>(portIsolateIfVlanGrpSyncApi),
};
static_assert(standsByOpcode(gPortisolateFuncMap));
