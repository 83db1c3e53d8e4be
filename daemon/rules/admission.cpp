#include "daemon/rules/admission.h"

#include "daemon/base/report.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "platform/hardware.h"
#include "wire/status.h"

namespace {

// How admission differs between the two kinds of groups.
template <typename Entry>
struct GroupKind;
template <>
struct GroupKind<PortIsolateIfGrpEntry> {
    using Other = PortIsolateIfVlanGrpEntry;  // entry of the table that must not use the number
    static constexpr int32_t NUMBER_TAKEN = STATUS_NUMBER_IS_VLAN_GROUP;
    static constexpr bool ONE_GROUP_CHECK = true;  // multiGroupCheck applies
};
template <>
struct GroupKind<PortIsolateIfVlanGrpEntry> {
    using Other = PortIsolateIfGrpEntry;
    static constexpr int32_t NUMBER_TAKEN = STATUS_NUMBER_IS_GROUP;
    static constexpr bool ONE_GROUP_CHECK = false;
};

bool pairJoins(uint32_t a, uint32_t b) {
    return portIsolateIfPairEntryGet(a, b) != nullptr || portIsolateIfPairEntryGet(b, a) != nullptr;
}

// An interface of restricted hardware joins one group of a kind only. A failed read refuses nothing.
bool joinsOneGroupOnly(uint32_t ifUnit, uint32_t& ability) {
    return daxHwilIfGet(ifUnit, DAX_ATTR_ISO_ABILITY, &ability) == 0 && ability == DAX_ABILITY_RESTRICTED;
}

// Whether one existing row refuses the membership; counts the members of its group.
template <typename Entry>
int32_t memberRefusal(const Membership& member, const Entry& entry, uint32_t& ability, uint32_t& count) {
    if (entry.isoGrpNo == member.isoGrpNo) {
        if (groupVlan(entry) != member.vlan) return STATUS_GROUP_OTHER_VLAN;
        ++count;
        if (!pairJoins(member.ifUnit, entry.ifUnit)) return STATUS_OK;
        portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK,
                         "Already created uniIsolation with port in the group %u\n\r", member.isoGrpNo);
        return STATUS_PAIR_IN_GROUP;
    }
    if (entry.ifUnit != member.ifUnit || !joinsOneGroupOnly(member.ifUnit, ability)) return STATUS_OK;
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                       "Failed.the same port %s can not join multi portisolate groups: %u/%u.\n\r",
                       ifName(member.ifUnit).text, entry.isoGrpNo, member.isoGrpNo);
    return STATUS_ABILITY_ONE_GROUP;
}

// The status of the first row of the own table that refuses the membership. Only members of the group and
// rows of the interface in other groups can; they are asked in table order.
template <typename Entry>
int32_t firstRefusal(const Membership& member, uint32_t& count) {
    uint32_t ability = DAX_ABILITY_SYMMETRIC;
    int32_t status = STATUS_OK;
    Entry* own = unitFirst(groupTable<Entry>(), member.ifUnit);
    for (; own != nullptr && own->isoGrpNo < member.isoGrpNo; own = unitNext(own)) {
        status = memberRefusal(member, *own, ability, count);
        if (status != STATUS_OK) return status;
    }
    for (Entry* fellow = groupFirst<Entry>(member.isoGrpNo); fellow != nullptr; fellow = groupNext(fellow)) {
        status = memberRefusal(member, *fellow, ability, count);
        if (status != STATUS_OK) return status;
    }
    for (; own != nullptr; own = unitNext(own)) {
        if (own->isoGrpNo == member.isoGrpNo) continue;
        status = memberRefusal(member, *own, ability, count);
        if (status != STATUS_OK) return status;
    }
    return STATUS_OK;
}

}  // namespace

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
        for (const uint32_t word : {DAX_LOCATION_CHASSIS, DAX_LOCATION_SLOT, DAX_LOCATION_SUBSLOT}) {
            if (own[word] != other[word]) return STATUS_OTHER_SLOT;
        }
    }
    return STATUS_OK;
}

int32_t portIsolateMultiGroupCheck(uint32_t ifUnit, uint32_t isoGrpNo) {
    for (auto* entry = unitFirst(GROUP_TABLE, ifUnit); entry != nullptr; entry = unitNext(entry)) {
        if (entry->isoGrpNo != isoGrpNo) return STATUS_OTHER_GROUP;
    }
    return STATUS_OK;
}

bool memberIsPossible(const Membership& member, bool needsVlan) {
    return member.isoGrpNo != 0 && (!needsVlan || member.vlan != 0) &&
           member.isoGrpNo <= gPortIsoInfo.maxIsoGrpNum && portInAG(member.ifUnit) == 0;
}

template <typename Entry>
int32_t memberAdmit(const Membership& member) {
    using Kind = GroupKind<Entry>;
    if (gPortIsoInfo.slotCheck != 0) {
        const int32_t status = portIsolateSlotCheck(member.ifUnit, member.isoGrpNo);
        if (status != 0) return status;
    }
    if (Kind::ONE_GROUP_CHECK && gPortIsoInfo.multiGroupCheck == 1) {
        const int32_t status = portIsolateMultiGroupCheck(member.ifUnit, member.isoGrpNo);
        if (status != 0) return status;
    }
    uint32_t count = 0;
    const int32_t refusal = firstRefusal<Entry>(member, count);
    if (refusal != STATUS_OK) return refusal;
    if (groupFirst<typename Kind::Other>(member.isoGrpNo) != nullptr) return Kind::NUMBER_TAKEN;
    if (count != gPortIsoInfo.maxPortNumPerGrp) return STATUS_OK;
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "Exceed max value of port num per group\n\r");
    return STATUS_GROUP_FULL;
}
template int32_t memberAdmit<PortIsolateIfGrpEntry>(const Membership& member);
template int32_t memberAdmit<PortIsolateIfVlanGrpEntry>(const Membership& member);

bool pairIsPossible(uint32_t src, uint32_t dst) {
    return src != dst && portInAG(src) == 0 && portInAG(dst) == 0;
}

bool pairSourceIsFull(uint32_t src) {
    uint32_t count = 0;
    for (auto* entry = tableFrom(PAIR_TABLE, {src, 0, 0}); entry != nullptr && entry->src == src;
         entry = tableNext(PAIR_TABLE, entry)) {
        ++count;
    }
    return count == gPortIsoInfo.maxUniIsoPortNum;
}

bool inOneGroup(uint32_t a, uint32_t b) {
    for (auto* entry = unitFirst(GROUP_TABLE, a); entry != nullptr; entry = unitNext(entry)) {
        if (portIsolateIfGrpEntryGet(b, entry->isoGrpNo) != nullptr) return true;
    }
    return false;
}
