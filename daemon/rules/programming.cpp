#include "daemon/rules/programming.h"

#include "daemon/base/report.h"
#include "daemon/hw/trunk_expansion.h"
#include "wire/status.h"

namespace {

using HwIfBiIsolate = int32_t (*)(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst);

// How far a pass over the members of a group came.
template <typename Entry>
struct Pass {
    uint32_t others;     // members other than the entry
    Entry* failed;       // member whose pair was refused, null when none was
    bool firstCallDone;  // the first of the failed member's two calls had succeeded
    int32_t status;
};

bool expandsNoTrunk() {
    return gPortIsoInfo.isSrcTrunkToPort == 0 && gPortIsoInfo.isDstTrunkToPort == 0;
}

// Calls `isolate` for the entry and every other member, the member as source first, until one is refused. In
// one-sided mode a pair takes two calls, one for each as source.
template <typename Entry>
Pass<Entry> isolateFromMembers(Entry* entry, bool sameVlanOnly, HwIfBiIsolate isolate) {
    const uint32_t grpNo = entry->isoGrpNo;
    const uint32_t vid = groupVlan(*entry);
    Pass<Entry> pass = {};
    for (Entry* member = groupFirst<Entry>(grpNo); member != nullptr; member = groupNext(member)) {
        if (member->ifUnit == entry->ifUnit) continue;
        if (sameVlanOnly && groupVlan(*member) != vid) continue;
        ++pass.others;
        pass.firstCallDone = false;
        pass.status = isolate(grpNo, vid, member->ifUnit, entry->ifUnit);
        if (pass.status == 0 && oneSidedMode()) {
            pass.firstCallDone = true;
            pass.status = isolate(grpNo, vid, entry->ifUnit, member->ifUnit);
        }
        if (pass.status != 0) {
            pass.failed = member;
            return pass;
        }
    }
    return pass;
}

// Undoes what a refused pass did, with the opposite operation. The walk includes the entry itself, and the
// failed member when its first call was the refused one.
template <typename Entry>
void undoPass(Entry* entry, const Pass<Entry>& pass, HwIfBiIsolate opposite) {
    const uint32_t grpNo = entry->isoGrpNo;
    const uint32_t vid = groupVlan(*entry);
    for (Entry* member = groupFirst<Entry>(grpNo); member != nullptr; member = groupNext(member)) {
        const bool failed = member == pass.failed;
        if (!failed || !pass.firstCallDone) {
            if (oneSidedMode()) opposite(grpNo, vid, entry->ifUnit, member->ifUnit);
            opposite(grpNo, vid, member->ifUnit, entry->ifUnit);
        }
        if (failed) return;
    }
}

void traceSelf(const PortIsolateIfGrpEntry& entry, bool added, int32_t status) {
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                       "%s portisolate grp entry [src: %s, target: %s, ret: %d]\n\r", added ? "add" : "del",
                       ifName(entry.ifUnit).text, ifName(entry.ifUnit).text, status);
}

void traceSelf(const PortIsolateIfVlanGrpEntry& entry, bool added, int32_t status) {
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                       "%s grp entry [group %d, vid: %u, src: %s, target: %s, ret: %d]\n\r",
                       added ? "add portisolate vlan" : "del portisolate", entry.isoGrpNo, entry.vlan,
                       ifName(entry.ifUnit).text, ifName(entry.ifUnit).text, status);
}

// The only member of a group is isolated from itself, so that its group holds something in the hardware. A
// refusal shows in the text alone.
template <typename Entry>
void isolateSelf(const Entry& entry) {
    const uint32_t unit = entry.ifUnit;
    traceSelf(entry, true, portIsolateAddHwIfBiIsolate(entry.isoGrpNo, groupVlan(entry), unit, unit));
}

// The release of a pair may have dropped the inner entry of the self isolation. It is made anew, so that the
// release below finds a claim to clear and reaches the hardware.
template <typename Entry>
void releaseSelf(const Entry& entry) {
    const uint32_t unit = entry.ifUnit;
    PortIsolateIfInnerEntry* self = portIsolateIfInnerEntryGet(unit, unit);
    if (self == nullptr) self = portIsolateIfInnerEntryAdd(unit, unit);
    if (self != nullptr) bitListSet(self->ref, entry.isoGrpNo - 1);
    traceSelf(entry, false, portIsolateDelHwIfBiIsolate(entry.isoGrpNo, groupVlan(entry), unit, unit));
}

template <typename Entry>
int32_t validate(Entry* entry) {
    const Pass<Entry> pass = isolateFromMembers(entry, false, portIsolateAddHwIfBiIsolate);
    if (pass.failed != nullptr) {
        undoPass(entry, pass, portIsolateDelHwIfBiIsolate);
        return pass.status;
    }
    if (expandsNoTrunk() && pass.others == 0) isolateSelf(*entry);
    return STATUS_OK;
}

template <typename Entry>
int32_t release(Entry* entry) {
    const Pass<Entry> pass = isolateFromMembers(entry, true, portIsolateDelHwIfBiIsolate);
    if (pass.failed != nullptr) {
        undoPass(entry, pass, portIsolateAddHwIfBiIsolate);
        return STATUS_FAILED;
    }
    if (expandsNoTrunk() && pass.others == 0) releaseSelf(*entry);
    groupEntryDrop(entry);
    return STATUS_OK;
}

void tracePairFailed(const PortIsolateIfPairEntry& entry, const char* operation, int32_t status) {
    PORT_ISOLATE_TRACE(LEVEL_FAILURE, CATEGORY_WORK,
                       "if pair entry [src: %s, target: %s] %s; %s hw-if uni-isolate failed.(%d)\n\r",
                       ifName(entry.src).text, ifName(entry.dst).text, operation, operation, status);
}

}  // namespace

int32_t portIsolateIfGrpEntryValid(PortIsolateIfGrpEntry* entry) {
    return validate(entry);
}

int32_t portIsolateIfVlanGrpEntryValid(PortIsolateIfVlanGrpEntry* entry) {
    return validate(entry);
}

int32_t portIsolateIfGrpEntryDel(PortIsolateIfGrpEntry* entry) {
    return release(entry);
}

int32_t portIsolateIfVlanGrpEntryDel(PortIsolateIfVlanGrpEntry* entry) {
    return release(entry);
}

int32_t portIsolateIfPairEntryValid(PortIsolateIfPairEntry* entry) {
    const int32_t status = portIsolateAddHwIfUniIsolate(entry->src, entry->dst);
    if (status != 0) tracePairFailed(*entry, "add", status);
    return status;
}

int32_t portIsolateIfPairEntryDel(PortIsolateIfPairEntry* entry) {
    const int32_t status = portIsolateDelHwIfUniIsolate(entry->src, entry->dst);
    if (status != 0) {
        tracePairFailed(*entry, "del", status);
        return status;
    }
    pairEntryDrop(entry);
    return STATUS_OK;
}
