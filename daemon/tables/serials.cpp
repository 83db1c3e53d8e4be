#include "daemon/tables/serials.h"

#include "daemon/base/report.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "wire/status.h"

namespace {

constexpr uint32_t SCAN_STEP = 32;  // slots

// Whether one of SCAN_STEP slots has this owner. Counts all hits: without an early exit the compiler compares
// several slots at once.
bool stepHolds(const PortIsolateSerialTable* slots, uint32_t owner) {
    uint32_t hits = 0;
    for (uint32_t i = 0; i < SCAN_STEP; ++i) hits += slots[i] == owner ? 1u : 0u;
    return hits != 0;
}

// Scanned, not indexed; the header says why.
int32_t findSlot(uint32_t owner, uint16_t* slot) {
    uint32_t i = 0;
    while (i + SCAN_STEP <= gPortIsoInfo.maxPortNum && !stepHolds(gPortIsoInfo.serialTable + i, owner)) {
        i += SCAN_STEP;
    }
    for (; i < gPortIsoInfo.maxPortNum; ++i) {
        if (gPortIsoInfo.serialTable[i] != owner) continue;
        *slot = static_cast<uint16_t>(i);
        return STATUS_OK;
    }
    return STATUS_FAILED;
}

// Leaves `serial` alone when no slot is free.
bool claimSerial(uint32_t ifUnit, uint16_t& serial, bool& claimed) {
    uint16_t slot = 0;
    if (portIsolateSerialCheck(ifUnit, &slot) != 0) {
        if (portIsolateFreeSerialGet(&slot) != 0) return false;
        gPortIsoInfo.serialTable[slot] = ifUnit;
        claimed = true;
    }
    serial = static_cast<uint16_t>(slot + 1);
    return true;
}

}  // namespace

int32_t portIsolateSerialCheck(uint32_t ifUnit, uint16_t* slot) {
    return findSlot(ifUnit, slot);
}

int32_t portIsolateFreeSerialGet(uint16_t* slot) {
    return findSlot(0, slot);
}

int32_t portIsolateIfIsFree(uint32_t ifUnit) {
    const bool named = unitFirst(GROUP_TABLE, ifUnit) != nullptr || pairTableNames(PAIR_TABLE, ifUnit) ||
                       pairTableNames(INNER_TABLE, ifUnit);
    return named ? STATUS_FAILED : STATUS_OK;
}

int32_t portIsolateSerialFree(uint32_t ifUnit) {
    if (ifUnit == 0) return STATUS_FAILED;
    for (uint32_t i = 0; i < gPortIsoInfo.maxPortNum; ++i) {
        if (gPortIsoInfo.serialTable[i] != ifUnit) continue;
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "free %u; interface %s\r\n", i, ifName(ifUnit).text);
        gPortIsoInfo.serialTable[i] = 0;
    }
    return STATUS_OK;
}

int32_t serialPairClaim(uint32_t src, uint32_t dst, SerialPair* serials) {
    *serials = {};
    if (!claimSerial(src, serials->src, serials->srcClaimed)) return STATUS_FAILED;
    if (claimSerial(dst, serials->dst, serials->dstClaimed)) return STATUS_OK;
    if (serials->srcClaimed) portIsolateSerialFree(src);
    return STATUS_FAILED;
}

SerialPair serialPairGet(uint32_t src, uint32_t dst) {
    uint16_t srcSlot = 0;
    uint16_t dstSlot = 0;
    // The results are not tested: a port without a slot goes to the hardware as serial number 1.
    portIsolateSerialCheck(src, &srcSlot);
    portIsolateSerialCheck(dst, &dstSlot);
    return {static_cast<uint16_t>(srcSlot + 1), static_cast<uint16_t>(dstSlot + 1), false, false};
}

void serialPairRelease(uint32_t src, uint32_t dst) {
    if (portIsolateIfIsFree(src) == 0) portIsolateSerialFree(src);
    if (portIsolateIfIsFree(dst) == 0) portIsolateSerialFree(dst);
}
