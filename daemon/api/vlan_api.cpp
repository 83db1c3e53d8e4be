#include "daemon/api/vlan_api.h"

#include "daemon/api/request.h"
#include "daemon/base/report.h"
#include "daemon/hw/pon_isolation.h"
#include "daemon/hw/protocol.h"
#include "platform/hardware.h"
#include "wire/records.h"
#include "wire/status.h"

namespace {

bool isColumn(uint32_t column) {
    return column == PON_COLUMN_STATE || column == PON_COLUMN_STATE_ALIAS;
}

bool isVlan(uint32_t vlan) {
    return vlan != 0 && vlan < VLAN_COUNT;
}

bool isListed(uint32_t vlan) {
    return bitListTest(gPortIsoInfo.p2pEnableVlan, vlan) != 0;
}

// The hardware takes any state; only the two known ones can differ from what the list says.
bool changesState(uint32_t vlan, uint32_t state) {
    return (state == PON_ISOLATION_OFF && !isListed(vlan)) || (state == PON_ISOLATION_ON && isListed(vlan));
}

void recordState(uint32_t vlan, uint32_t state) {
    const bool off = state == PON_ISOLATION_OFF;
    if (off) {
        bitListSet(gPortIsoInfo.p2pEnableVlan, vlan);
    } else {
        bitListClear(gPortIsoInfo.p2pEnableVlan, vlan);
    }
    portIsolateP2pVlanLenUpdate();
    portIsolateVlanProtocolSet(vlan, off ? DAX_IF_PROTO_ENABLE : DAX_IF_PROTO_DISABLE);
}

int32_t setState(uint32_t vlan, uint32_t state) {
    const int32_t status = portIsolatePonIsolateSet(vlan, state, 0);
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "configure disable vlan %d pon-isolate, ret %d\r\n", vlan,
                     status);
    if (!changesState(vlan, state)) return status;
    if (status == 0) {
        recordState(vlan, state);
    } else {
        const uint32_t previous = state == PON_ISOLATION_OFF ? PON_ISOLATION_ON : PON_ISOLATION_OFF;
        portIsolatePonIsolateSet(vlan, previous, 1);
    }
    return status;
}

int32_t writeFirstListed(uint32_t from, void* vlan) {
    for (uint32_t id = from; id < VLAN_COUNT; ++id) {
        if (!isListed(id)) continue;
        *static_cast<uint32_t*>(vlan) = id;
        return STATUS_OK;
    }
    return STATUS_NOT_FOUND;
}

}  // namespace

int32_t _portIsolateVlanSetApi(uint32_t vlan, uint32_t column, uint32_t* value, uint32_t flags) {
    if (value == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "vlan set api; param err.(%u)\n\r", column);
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] {
        if (!isColumn(column)) return STATUS_NOT_SUPPORTED;
        const int32_t mirrored =
            portIsolatePeerMirror({vlan, DAX_MIRROR_VLAN + column, flags | DAX_MIRROR_FLAG_VLAN, sizeof(vlan),
                                   DAX_MIRROR_WORD_LENGTH},
                                  value);
        if (mirrored != 0) {
            portIsolateDebug(LEVEL_FAILURE, CATEGORY_WORK, "vlan set api; sync entry status failed.(%d)\n\r",
                             mirrored);
            return mirrored;
        }
        return isVlan(vlan) ? setState(vlan, *value) : STATUS_BAD_VLAN;
    });
}

int32_t portIsolateVlanSetApi(uint32_t vlan, uint32_t column, void* value) {
    return _portIsolateVlanSetApi(vlan, column, static_cast<uint32_t*>(value), DAX_MIRROR_FLAGS_SET);
}

int32_t portIsolateVlanSyncApi(uint32_t vlan, uint32_t column, void* value) {
    return _portIsolateVlanSetApi(vlan, column, static_cast<uint32_t*>(value), DAX_MIRROR_FLAGS_SYNC);
}

int32_t portIsolateVlanGetApi(uint32_t vlan, uint32_t column, void* value) {
    if (value == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "vlan get api; param err.(%u)\n\r", column);
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] {
        if (!isColumn(column)) return STATUS_NOT_SUPPORTED;
        if (!isVlan(vlan)) return STATUS_BAD_VLAN;
        *static_cast<uint32_t*>(value) = isListed(vlan) ? PON_ISOLATION_OFF : PON_ISOLATION_ON;
        return STATUS_OK;
    });
}

int32_t portIsolateVlanGetFirst(void* vlan) {
    if (vlan == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "vlan get first; param err\n\r");
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore([&] { return writeFirstListed(0, vlan); });
}

int32_t portIsolateVlanGetNext(uint32_t current, void* vlan) {
    if (vlan == nullptr) {
        portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "if group get next; param err\n\r");
        return STATUS_NULL_ARGUMENT;
    }
    return underSemaphore(
        [&] { return current < VLAN_COUNT ? writeFirstListed(current + 1, vlan) : STATUS_NOT_FOUND; });
}
