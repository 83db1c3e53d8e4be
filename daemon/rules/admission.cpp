#include "daemon/rules/admission.h"

#include "daemon/tables/groups.h"
#include "platform/hardware.h"
#include "wire/status.h"

uint32_t portInAG(uint32_t ifUnit) {
    uint32_t flags = 0;
    if (daxIfGetApi(ifUnit, DAX_IF_ATTR_FLAGS, &flags) != 0) return 0;
    return flags & DAX_IF_FLAG_TRUNK_MEMBER;
}

int32_t portIsolateSlotCheck(uint32_t ifUnit, uint32_t isoGrpNo) {
    for (auto* member = groupFirst<PortIsolateIfGrpEntry>(isoGrpNo); member != nullptr;
         member = groupNext(member)) {
        uint32_t own[DAX_LOCATION_WORDS] = {};
        uint32_t other[DAX_LOCATION_WORDS] = {};
        if (daxIndexTrans(ifUnit, DAX_INDEX_LOCATION, own) != 0) return STATUS_FAILED;
        if (daxIndexTrans(member->ifUnit, DAX_INDEX_LOCATION, other) != 0) return STATUS_FAILED;
        if (own[0] != other[0] || own[1] != other[1] || own[6] != other[6]) return STATUS_OTHER_SLOT;
    }
    return STATUS_OK;
}

int32_t portIsolateMultiGroupCheck(uint32_t ifUnit, uint32_t isoGrpNo) {
    ListNode* head = &gPortIsoInfo.ifGrpList;
    for (auto* entry = unitFirst<PortIsolateIfGrpEntry>(head, ifUnit); entry != nullptr;
         entry = unitNext(entry)) {
        if (entry->isoGrpNo != isoGrpNo) return STATUS_OTHER_GROUP;
    }
    return STATUS_OK;
}
