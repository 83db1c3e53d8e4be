// The row-status requests of groups and VLAN groups as one rule, over the entry of either table. What the two
// do differently stands in MemberRules.
#pragma once

#include <cstdint>

#include "daemon/base/report.h"
#include "daemon/rules/admission.h"
#include "daemon/rules/port_use.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "platform/hardware.h"
#include "wire/records.h"
#include "wire/status.h"

// A membership asked for; vlan is 0 for a plain group.
struct Membership {
    uint32_t ifUnit;
    uint32_t isoGrpNo;
    uint32_t vlan;
};

template <typename Entry>
struct MemberRules {
    bool needsVlan;
    bool oneGroupCheck;   // multiGroupCheck applies
    int32_t numberTaken;  // status when the other table uses the group number
    const char* addFailed;
    const char* operation;  // as the texts name it, with the lines of the first use and of the last
    int32_t beginLine;
    int32_t endLine;
    Entry* (*add)(const Membership& member);
    int32_t (*validate)(Entry* entry);
    int32_t (*release)(Entry* entry);
};

inline bool pairJoins(uint32_t a, uint32_t b) {
    return portIsolateIfPairEntryGet(a, b) != nullptr || portIsolateIfPairEntryGet(b, a) != nullptr;
}

// An interface of ability 2 joins one group of a kind only. A failed read refuses nothing.
inline bool joinsOneGroupOnly(uint32_t ifUnit, uint32_t& ability) {
    constexpr uint32_t ABILITY_ONE_GROUP = 2;
    return daxHwilIfGet(ifUnit, DAX_ATTR_ISO_ABILITY, &ability) == 0 && ability == ABILITY_ONE_GROUP;
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

// What the first row of the own table that refuses the membership says. The rows that can are the members of
// the group and the interface's rows in other groups; they are asked in table order.
template <typename Entry>
int32_t firstRefusal(const Membership& member, uint32_t& count) {
    uint32_t ability = 1;
    int32_t status = STATUS_OK;
    Entry* own = unitFirst<Entry>(groupList(static_cast<Entry*>(nullptr)), member.ifUnit);
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

// The admission checks on the two group tables. `Other` is the entry of the table that must not use the
// number.
template <typename Entry, typename Other>
int32_t memberAdmit(const MemberRules<Entry>& rules, const Membership& member) {
    uint32_t count = 0;
    const int32_t refusal = firstRefusal<Entry>(member, count);
    if (refusal != STATUS_OK) return refusal;
    if (groupFirst<Other>(member.isoGrpNo) != nullptr) return rules.numberTaken;
    if (count != gPortIsoInfo.maxPortNumPerGrp) return STATUS_OK;
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "Exceed max value of port num per group\n\r");
    return STATUS_GROUP_FULL;
}

template <typename Entry, typename Other>
int32_t memberCreate(const MemberRules<Entry>& rules, const Membership& member, const Entry* entry) {
    if (member.isoGrpNo == 0 || (rules.needsVlan && member.vlan == 0) ||
        member.isoGrpNo > gPortIsoInfo.maxIsoGrpNum || portInAG(member.ifUnit) != 0) {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "if group set api; interface %s can't add to group %u\n\r",
                           ifName(member.ifUnit).text, member.isoGrpNo);
        return STATUS_NOT_SUPPORTED;
    }
    if (entry != nullptr) return STATUS_OK;
    if (gPortIsoInfo.slotCheck != 0) {
        const int32_t status = portIsolateSlotCheck(member.ifUnit, member.isoGrpNo);
        if (status != 0) return status;
    }
    if (rules.oneGroupCheck && gPortIsoInfo.multiGroupCheck == 1) {
        const int32_t status = portIsolateMultiGroupCheck(member.ifUnit, member.isoGrpNo);
        if (status != 0) return status;
    }
    const int32_t status = memberAdmit<Entry, Other>(rules, member);
    if (status != 0) return status;
    if (rules.add(member) == nullptr) {
        portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "%s", rules.addFailed);
        return STATUS_NOT_FOUND;
    }
    portUseBegin(member.ifUnit, rules.operation, rules.beginLine);
    return STATUS_OK;
}

template <typename Entry>
int32_t memberActivate(const MemberRules<Entry>& rules, Entry* entry) {
    if (entry == nullptr) return STATUS_NOT_FOUND;
    if (entry->status == STATUS_PROGRAMMED) return STATUS_OK;
    const int32_t status = rules.validate(entry);
    if (status == 0) entry->status = STATUS_PROGRAMMED;
    return status;
}

template <typename Entry>
int32_t memberProbe(Entry* entry) {
    return entry != nullptr ? STATUS_OK : STATUS_NOT_FOUND;
}

template <typename Entry>
int32_t memberDestroy(const MemberRules<Entry>& rules, uint32_t ifUnit, Entry* entry) {
    const int32_t status = rules.release(entry);
    portUseEnd(ifUnit, rules.operation, rules.endLine);
    return status;
}
