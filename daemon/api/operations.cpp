#include "daemon/api/operations.h"

#include "daemon/api/group_api.h"
#include "daemon/api/pair_api.h"
#include "daemon/api/scalar_api.h"
#include "daemon/api/vlan_api.h"
#include "daemon/api/vlan_group_api.h"

const PortIsolateFuncMapEntry gPortisolateFuncMap[OP_COUNT] = {
    {0, {}},
    {OP_SCALAR_SET, {.access = portIsolateScalarSetApi}},
    {OP_SCALAR_SYNC, {.access = portIsolateScalarSyncApi}},
    {OP_SCALAR_GET, {.access = portIsolateScalarGetApi}},
    {OP_GROUP_SET, {.access = portIsolateIfGrpSetApi}},
    {OP_GROUP_SYNC, {.access = portIsolateIfGrpSyncApi}},
    {OP_GROUP_GET, {.access = portIsolateIfGrpGetApi}},
    {OP_PAIR_SET, {.access = portIsolateIfPairSetApi}},
    {OP_PAIR_SYNC, {.access = portIsolateIfPairSyncApi}},
    {OP_PAIR_GET, {.access = portIsolateIfPairGetApi}},
    {OP_GROUP_GET_FIRST, {.first = portIsolateIfGrpGetFirst}},
    {OP_GROUP_GET_NEXT, {.next = portIsolateIfGrpGetNext}},
    {OP_PAIR_GET_FIRST, {.first = portIsolateIfPairGetFirst}},
    {OP_PAIR_GET_NEXT, {.next = portIsolateIfPairGetNext}},
    {OP_VLAN_GET_FIRST, {.first = portIsolateVlanGetFirst}},
    {OP_VLAN_GET_NEXT, {.nextNumber = portIsolateVlanGetNext}},
    {OP_VLAN_GET, {.accessNumber = portIsolateVlanGetApi}},
    {OP_VLAN_SET, {.accessNumber = portIsolateVlanSetApi}},
    {OP_VLAN_SYNC, {.accessNumber = portIsolateVlanSyncApi}},
    {OP_VLAN_GROUP_GET_FIRST, {.first = portIsolateIfVlanGrpGetFirst}},
    {OP_VLAN_GROUP_GET_NEXT, {.next = portIsolateIfVlanGrpGetNext}},
    {OP_VLAN_GROUP_GET, {.access = portIsolateIfVlanGrpGetApi}},
    {OP_VLAN_GROUP_SET, {.access = portIsolateIfVlanGrpSetApi}},
    {OP_VLAN_GROUP_SYNC, {.access = portIsolateIfVlanGrpSyncApi}},
};
