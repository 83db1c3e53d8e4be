#include "daemon/api/pair_api.h"

#include "daemon/api/row_requests.h"
#include "daemon/rules/admission.h"
#include "daemon/rules/port_use.h"
#include "daemon/rules/programming.h"
#include "platform/hardware.h"

namespace {

using Entry = PortIsolateIfPairEntry;
using Index = PortIsolateIfPairIndex;

constexpr char OPERATION[] = "_portIsolateIfPairSetApi";
constexpr int32_t BEGIN_LINE_SRC = 855;
constexpr int32_t BEGIN_LINE_DST = 864;
constexpr int32_t END_LINE_SRC = 918;
constexpr int32_t END_LINE_DST = 936;

void reportRefused(const Index& index) {
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "can't set uni-isolate [src: %s, target: %s]\n\r",
                       ifName(index.src).text, ifName(index.dst).text);
}

// The status of the ability read is the result of the request unless a later step sets another.
int32_t createPair(const Index& index, Entry* entry) {
    if (!pairIsPossible(index.src, index.dst)) {
        reportRefused(index);
        return STATUS_NOT_SUPPORTED;
    }
    uint32_t ability = DAX_ABILITY_SYMMETRIC;
    int32_t status = daxHwilIfGet(index.dst, DAX_ATTR_ISO_ABILITY, &ability);
    if (ability == DAX_ABILITY_RESTRICTED && gPortIsoInfo.mode == DAX_ISO_MODE_NO_RESTRICTED_TARGET) {
        reportRefused(index);
        return STATUS_PAIR_NOT_IN_MODE;
    }
    if (entry != nullptr) return status;
    if (pairSourceIsFull(index.src)) {
        portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "Exceed max value of uni-isolate port num\n\r");
        return STATUS_GROUP_FULL;
    }
    if (inOneGroup(index.src, index.dst)) {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "if pair set api; ports [src: %s, target: %s] in the same group\n\r",
                           ifName(index.src).text, ifName(index.dst).text);
        status = STATUS_PAIR_SHARES_GROUP;
    }
    if (status != 0) return status;
    if (portIsolateIfPairEntryAdd(index.src, index.dst) == nullptr) {
        status = STATUS_POOL_EXHAUSTED;
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "if pair entry [src: %s, target: %s] add failed\n\r",
                           ifName(index.src).text, ifName(index.dst).text);
    }
    // Done even for a pair that could not be added: its interfaces keep the protocol until something releases
    // them.
    portUseBegin(index.src, OPERATION, BEGIN_LINE_SRC);
    portUseBegin(index.dst, OPERATION, BEGIN_LINE_DST);
    return status;
}

int32_t activatePair(Entry* entry) {
    if (entry == nullptr) return STATUS_NOT_SUPPORTED;
    if (entry->status == ROW_STATE_PROGRAMMED) return STATUS_OK;
    const int32_t status = portIsolateIfPairEntryValid(entry);
    if (status == 0) entry->status = ROW_STATE_PROGRAMMED;
    return status;
}

int32_t destroyPair(const Index& index, Entry* entry) {
    portIsolateIfPairEntryDel(entry);  // an entry that stays is found again by later walks
    portUseEnd(index.src, OPERATION, END_LINE_SRC);
    portUseEnd(index.dst, OPERATION, END_LINE_DST);
    return STATUS_OK;
}

void reportSetMissing(const Index& index, uint32_t column) {
    PORT_ISOLATE_TRACE(LEVEL_PARAMETER, CATEGORY_WORK,
                       "if pair set api; entry [src: %s, target: %s] not exist.(%u)\n\r",
                       ifName(index.src).text, ifName(index.dst).text, column);
}

void reportGetMissing(const Index& index, uint32_t /*column*/) {
    PORT_ISOLATE_TRACE(LEVEL_PARAMETER, CATEGORY_WORK,
                       "if pair get api; entry [src: %s, target: %s] not exist\n\r", ifName(index.src).text,
                       ifName(index.dst).text);
}

void reportGetColumn(uint32_t column) {
    portIsolateDebug(LEVEL_PARAMETER, CATEGORY_WORK, "if pair get api; unknown cmd %u\n\r", column);
}

const RowFamily<Entry, Index> FAMILY = {
    .table = PAIR_TABLE,
    .column = PAIR_COLUMN_ROW_STATUS,
    .syncCommand = DAX_MIRROR_PAIR,
    .setParamError = "if pair set api; param err.(%u)\n\r",
    .getParamError = "if pair get api; param err.(%u)\n\r",
    .firstParamError = "if pair get first; param err\n\r",
    .nextParamError = "if pair get next; param err\n\r",
    .syncFailed = "if pair set api; sync entry status failed.(%d)\n\r",
    .reportSetMissing = reportSetMissing,
    .reportGetMissing = reportGetMissing,
    .reportGetColumn = reportGetColumn,
    .find = [](const Index& index) { return portIsolateIfPairEntryGet(index.src, index.dst); },
    .compare = portIsolateIfPairCompare,
    .key =
        [](const Index& index) {
            return TableKey{index.src, index.dst, 0};
        },
    .writeKey =
        [](const Entry& entry, Index& index) {
            index.src = entry.src;
            index.dst = entry.dst;
        },
    .create = createPair,
    .activate = activatePair,
    .probe = [](Entry*) { return STATUS_OK; },  // even without a row
    .destroy = destroyPair,
};

}  // namespace

int32_t _portIsolateIfPairSetApi(const PortIsolateIfPairIndex* index, uint32_t column, uint32_t* value,
                                 uint32_t flags) {
    return rowSet(FAMILY, index, column, value, flags);
}

int32_t portIsolateIfPairSetApi(void* index, uint32_t column, void* value) {
    return rowSet(FAMILY, index, column, value, DAX_MIRROR_FLAGS_SET);
}

int32_t portIsolateIfPairSyncApi(void* index, uint32_t column, void* value) {
    return rowSet(FAMILY, index, column, value, DAX_MIRROR_FLAGS_SYNC);
}

int32_t portIsolateIfPairGetApi(void* index, uint32_t column, void* value) {
    return rowGet(FAMILY, index, column, value);
}

int32_t portIsolateIfPairCompare(const PortIsolateIfPairEntry* entry, const PortIsolateIfPairIndex* index) {
    if ((index->matchMask & MATCH_SRC) != 0 && entry->src != index->src) return -1;
    if ((index->matchMask & MATCH_DST) != 0 && entry->dst != index->dst) return -1;
    return 0;
}

int32_t portIsolateIfPairGetFirst(void* index) {
    return rowGetFirst(FAMILY, index);
}

int32_t portIsolateIfPairGetNext(void* current, void* result) {
    return rowGetNext(FAMILY, current, result);
}
