#include "daemon/api/group_api.h"

#include "daemon/api/member_requests.h"
#include "daemon/api/row_requests.h"
#include "daemon/rules/programming.h"

namespace {

using Entry = PortIsolateIfGrpEntry;
using Index = PortIsolateIfGrpIndex;

const MemberRules<Entry> RULES = {
    .needsVlan = false,
    .addFailed = "if group entry add failed\n\r",
    .operation = "_portIsolateIfGrpSetApi",
    .beginLine = 528,
    .endLine = 591,
    .add = [](const Membership& member) { return portIsolateIfGrpEntryAdd(member.ifUnit, member.isoGrpNo); },
    .validate = portIsolateIfGrpEntryValid,
    .release = portIsolateIfGrpEntryDel,
};

void reportSetMissing(const Index& index, uint32_t /*column*/) {
    PORT_ISOLATE_TRACE(LEVEL_PARAMETER, CATEGORY_WORK,
                       "if group set api; entry [group: %d, interface %s] not exist\n\r", index.isoGrpNo,
                       ifName(index.ifUnit).text);
}

void reportGetMissing(const Index& index, uint32_t column) {
    PORT_ISOLATE_TRACE(LEVEL_PARAMETER, CATEGORY_WORK,
                       "if group get api; entry [group: %d, interface %s] not exist.(%u)\n\r", index.isoGrpNo,
                       ifName(index.ifUnit).text, column);
}

const RowFamily<Entry, Index> FAMILY = {
    .table = GROUP_TABLE,
    .column = GROUP_COLUMN_ROW_STATUS,
    .syncCommand = DAX_MIRROR_GROUP,
    .setParamError = "if group set api; param err.(%u)\n\r",
    .getParamError = "if group get api; param err.(%u)\n\r",
    .firstParamError = "if group get first; param err\n\r",
    .nextParamError = "if group get next; param err\n\r",
    .syncFailed = "if group set api; sync if group status failed.(%d)\n\r",
    .reportSetMissing = reportSetMissing,
    .reportGetMissing = reportGetMissing,
    .reportGetColumn = nullptr,
    .find = [](const Index& index) { return portIsolateIfGrpEntryGet(index.ifUnit, index.isoGrpNo); },
    .compare = portIsolateIfGrpCompare,
    .key =
        [](const Index& index) {
            return TableKey{index.isoGrpNo, 0, index.ifUnit};
        },
    .writeKey =
        [](const Entry& entry, Index& index) {
            index.ifUnit = entry.ifUnit;
            index.isoGrpNo = entry.isoGrpNo;
        },
    .create =
        [](const Index& index, Entry* entry) {
            const Membership member = {index.ifUnit, index.isoGrpNo, 0};
            return memberCreate(RULES, member, entry);
        },
    .activate = [](Entry* entry) { return memberActivate(RULES, entry); },
    .probe = memberProbe<Entry>,
    .destroy = [](const Index& index, Entry* entry) { return memberDestroy(RULES, index.ifUnit, entry); },
};

}  // namespace

int32_t _portIsolateIfGrpSetApi(const PortIsolateIfGrpIndex* index, uint32_t column, uint32_t* value,
                                uint32_t flags) {
    return rowSet(FAMILY, index, column, value, flags);
}

int32_t portIsolateIfGrpSetApi(void* index, uint32_t column, void* value) {
    return rowSet(FAMILY, index, column, value, DAX_MIRROR_FLAGS_SET);
}

int32_t portIsolateIfGrpSyncApi(void* index, uint32_t column, void* value) {
    return rowSet(FAMILY, index, column, value, DAX_MIRROR_FLAGS_SYNC);
}

int32_t portIsolateIfGrpGetApi(void* index, uint32_t column, void* value) {
    return rowGet(FAMILY, index, column, value);
}

int32_t portIsolateIfGrpCompare(const PortIsolateIfGrpEntry* entry, const PortIsolateIfGrpIndex* index) {
    if ((index->matchMask & MATCH_GROUP) != 0 && entry->isoGrpNo != index->isoGrpNo) return -1;
    if ((index->matchMask & MATCH_IF_UNIT) != 0 && entry->ifUnit != index->ifUnit) return -1;
    return 0;
}

int32_t portIsolateIfGrpGetFirst(void* index) {
    return rowGetFirst(FAMILY, index);
}

int32_t portIsolateIfGrpGetNext(void* current, void* result) {
    return rowGetNext(FAMILY, current, result);
}
