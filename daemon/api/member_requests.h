// The row-status requests of groups and VLAN groups as one rule, over the entry of either table. What the two
// do differently stands in MemberRules.
#pragma once

#include <cstdint>

#include "daemon/base/report.h"
#include "daemon/rules/admission.h"
#include "daemon/rules/port_use.h"
#include "daemon/tables/groups.h"
#include "wire/records.h"
#include "wire/status.h"

template <typename Entry>
struct MemberRules {
    bool needsVlan;
    const char* addFailed;
    const char* operation;  // as the texts name it, with the lines of the first use and of the last
    int32_t beginLine;
    int32_t endLine;
    Entry* (*add)(const Membership& member);
    int32_t (*validate)(Entry* entry);
    int32_t (*release)(Entry* entry);
};

// `entry` is the row that is there already, null: none.
template <typename Entry>
int32_t memberCreate(const MemberRules<Entry>& rules, const Membership& member, const Entry* entry) {
    if (!memberIsPossible(member, rules.needsVlan)) {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "if group set api; interface %s can't add to group %u\n\r",
                           ifName(member.ifUnit).text, member.isoGrpNo);
        return STATUS_NOT_SUPPORTED;
    }
    if (entry != nullptr) return STATUS_OK;
    const int32_t status = memberAdmit<Entry>(member);
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
    if (entry->status == ROW_STATE_PROGRAMMED) return STATUS_OK;
    const int32_t status = rules.validate(entry);
    if (status == 0) entry->status = ROW_STATE_PROGRAMMED;
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
