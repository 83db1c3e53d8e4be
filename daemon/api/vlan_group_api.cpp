#include "daemon/api/vlan_group_api.h"

#include "daemon/api/member_requests.h"
#include "daemon/api/row_requests.h"
#include "daemon/rules/programming.h"

namespace {

using Entry = PortIsolateIfVlanGrpEntry;
using Index = PortIsolateIfVlanGrpIndex;

const MemberRules<Entry> RULES = {
    .needsVlan = true,
    .addFailed = "if vlan group entry add failed\n\r",
    .operation = "_portIsolateIfVlanGrpSetApi",
    .beginLine = 1636,
    .endLine = 1699,
    .add =
        [](const Membership& member) {
            return portIsolateIfVlanGrpEntryAdd(member.ifUnit, member.vlan, member.isoGrpNo);
        },
    .validate = portIsolateIfVlanGrpEntryValid,
    .release = portIsolateIfVlanGrpEntryDel,
};

void reportSetMissing(const Index& index, uint32_t /*column*/) {
    PORT_ISOLATE_TRACE(LEVEL_PARAMETER, CATEGORY_WORK,
                       "if vlan group set api; entry [group: %d, vid: %u, interface %s] not exist\n\r",
                       index.isoGrpNo, index.vlan, ifName(index.ifUnit).text);
}

void reportGetMissing(const Index& index, uint32_t column) {
    PORT_ISOLATE_TRACE(LEVEL_PARAMETER, CATEGORY_WORK,
                       "if vlan group get api; entry [group: %d, vlan: %u, interface %s] not exist.(%u)\n\r",
                       index.isoGrpNo, index.vlan, ifName(index.ifUnit).text, column);
}

const RowFamily<Entry, Index> FAMILY = {
    .table = VLAN_GROUP_TABLE,
    .column = GROUP_COLUMN_ROW_STATUS,
    .syncCommand = DAX_MIRROR_VLAN_GROUP,
    .setParamError = "if vlan group set api; param err.(%u)\n\r",
    .getParamError = "if vlan group get api; param err.(%u)\n\r",
    .firstParamError = "if vlan group get first; param err\n\r",
    .nextParamError = "if vlan group get next; param err\n\r",
    .syncFailed = "if vlan group set api; sync if group status failed.(%d)\n\r",
    .reportSetMissing = reportSetMissing,
    .reportGetMissing = reportGetMissing,
    .reportGetColumn = nullptr,
    .find =
        [](const Index& index) {
            return portIsolateIfVlanGrpEntryGet(index.ifUnit, index.vlan, index.isoGrpNo);
        },
    .compare = portIsolateIfVlanGrpCompare,
    .key =
        [](const Index& index) {
            return TableKey{index.isoGrpNo, index.vlan, index.ifUnit};
        },
    .writeKey =
        [](const Entry& entry, Index& index) {
            index.ifUnit = entry.ifUnit;
            index.isoGrpNo = entry.isoGrpNo;
            index.vlan = entry.vlan;
        },
    .create =
        [](const Index& index, Entry* entry) {
            const Membership member = {index.ifUnit, index.isoGrpNo, index.vlan};
            return memberCreate(RULES, member, entry);
        },
    .activate = [](Entry* entry) { return memberActivate(RULES, entry); },
    .probe = memberProbe<Entry>,
    .destroy = [](const Index& index, Entry* entry) { return memberDestroy(RULES, index.ifUnit, entry); },
};

}  // namespace

int32_t _portIsolateIfVlanGrpSetApi(const PortIsolateIfVlanGrpIndex* index, uint32_t column, uint32_t* value,
                                    uint32_t flags) {
    return rowSet(FAMILY, index, column, value, flags);
}

int32_t portIsolateIfVlanGrpSetApi(void* index, uint32_t column, void* value) {
    return rowSet(FAMILY, index, column, value, DAX_MIRROR_FLAGS_SET);
}

int32_t portIsolateIfVlanGrpSyncApi(void* index, uint32_t column, void* value) {
    return rowSet(FAMILY, index, column, value, DAX_MIRROR_FLAGS_SYNC);
}

int32_t portIsolateIfVlanGrpGetApi(void* index, uint32_t column, void* value) {
    return rowGet(FAMILY, index, column, value);
}

int32_t portIsolateIfVlanGrpCompare(const PortIsolateIfVlanGrpEntry* entry,
                                    const PortIsolateIfVlanGrpIndex* index) {
    if ((index->matchMask & MATCH_GROUP) != 0 && entry->isoGrpNo != index->isoGrpNo) return -1;
    if ((index->matchMask & MATCH_IF_UNIT) != 0 && entry->ifUnit != index->ifUnit) return -1;
    if ((index->matchMask & MATCH_VLAN) != 0 && entry->vlan != index->vlan) return -1;
    return 0;
}

int32_t portIsolateIfVlanGrpGetFirst(void* index) {
    return rowGetFirst(FAMILY, index);
}

int32_t portIsolateIfVlanGrpGetNext(void* current, void* result) {
    return rowGetNext(FAMILY, current, result);
}
