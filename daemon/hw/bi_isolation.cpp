#include "daemon/hw/bi_isolation.h"

#include "daemon/base/report.h"
#include "daemon/hw/isolate_command.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/serials.h"
#include "wire/status.h"

namespace {

struct Claim {
    uint32_t grpNo;
    uint32_t vid;
    uint32_t src;
    uint32_t dst;
};

Claim orderPair(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second, uint32_t ability) {
    const bool swap = !oneSidedMode() && ability == DAX_ABILITY_SYMMETRIC && second < first;
    return {grpNo, vid, swap ? second : first, swap ? first : second};
}

// Sends the command and reports how it went; `serials` is null where serial numbers are not used.
int32_t sendCommand(const Claim& claim, uint8_t op, const SerialPair* serials) {
    const bool withSerials = serials != nullptr;
    const SerialPair used = withSerials ? *serials : SerialPair{};
    IsolateCmdData data = {};
    data.dstIfUnit = claim.dst;
    data.srcSerial = used.src;
    data.dstSerial = used.dst;
    data.vid = static_cast<uint16_t>(claim.vid);
    data.grpNo = claim.grpNo;
    data.op = op;
    uint32_t attrId = op == ISOLATE_OP_ADD ? DAX_ISO_BI_ADD : DAX_ISO_BI_DEL;
    if (claim.vid != 0) attrId = op == ISOLATE_OP_ADD ? DAX_ISO_BI_VLAN_ADD : DAX_ISO_BI_VLAN_DEL;
    const int32_t status = isolateCommandSend(claim.src, attrId, &data, sizeof(data));
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                       "%s phy bi-isolate; %s bi-isolate [src: %s, target: %s, vid: %d, grpNo: %d] %s\n\r",
                       isolateOpText(op), isolateOpText(op),
                       isolatePortText(claim.src, withSerials, used.src).text,
                       isolatePortText(claim.dst, withSerials, used.dst).text, claim.vid, claim.grpNo,
                       isolateResultText(status));
    if (status != 0) isolateLogRefusal(claim.src, claim.dst, claim.vid, "isolate", claim.grpNo, op);
    return status;
}

// Here the row comes first and stays when the command is refused; serial numbers are not used.
int32_t addOneSided(const Claim& claim) {
    PortIsolateIfInnerEntry* entry = portIsolateIfInnerEntryAdd(claim.src, claim.dst);
    if (entry == nullptr) return STATUS_FAILED;
    bitListSet(entry->ref, claim.grpNo - 1);
    return sendCommand(claim, ISOLATE_OP_ADD, nullptr);
}

// Here the command comes first; a refused one leaves neither a row nor newly claimed serial numbers.
int32_t addTwoSided(const Claim& claim) {
    SerialPair serials = {};
    const bool withSerials = gPortIsoInfo.isSupportSerial != 0;
    if (withSerials && serialPairClaim(claim.src, claim.dst, &serials) != 0) return STATUS_FAILED;
    const int32_t status = sendCommand(claim, ISOLATE_OP_ADD, withSerials ? &serials : nullptr);
    if (status != 0) {
        if (serials.srcClaimed) portIsolateSerialFree(claim.src);
        if (serials.dstClaimed) portIsolateSerialFree(claim.dst);
        return status;
    }
    PortIsolateIfInnerEntry* entry = portIsolateIfInnerEntryAdd(claim.src, claim.dst);
    if (entry == nullptr) return STATUS_POOL_EXHAUSTED;
    bitListSet(entry->ref, claim.grpNo - 1);
    return STATUS_OK;
}

// `format` is one of the "inner entry" texts, whose arguments are the entry's two ports and the group.
void clearRef(PortIsolateIfInnerEntry* entry, uint32_t grpNo, const char* format) {
    bitListClear(entry->ref, grpNo - 1);
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, format, ifName(entry->src).text, ifName(entry->dst).text,
                       grpNo);
}

// Drops a port's self isolation, without a command and whatever groups still claim it, because a pair of the
// port is released. False when the port has none.
bool dropSelf(uint32_t port, uint32_t grpNo, const char* format) {
    PortIsolateIfInnerEntry* self = portIsolateIfInnerEntryGet(port, port);
    if (self == nullptr) return false;
    clearRef(self, grpNo, format);
    portIsolateIfInnerEntryDel(self);
    return true;
}

// Clears the group's bit in the row of the pair, and drops a self isolation with it. Returns the pair's row,
// null when there is none.
PortIsolateIfInnerEntry* releaseClaim(const Claim& claim, uint32_t ability) {
    PortIsolateIfInnerEntry* pair = portIsolateIfInnerEntryGet(claim.src, claim.dst);
    if (pair != nullptr) {
        clearRef(pair, claim.grpNo,
                 "del phy bi-isolate; inner entry1 [src: %s, target: %s] clear ref group %u\n\r");
        if (ability != DAX_ABILITY_SYMMETRIC || claim.src == claim.dst) return pair;
        if (!dropSelf(claim.src, claim.grpNo,
                      "del phy bi-isolate; inner entry2 [src: %s, target: %s] clear ref group %u\n\r")) {
            dropSelf(claim.dst, claim.grpNo,
                     "del phy bi-isolate; inner entry3 [src: %s, target: %s] clear ref group %u\n\r");
        }
        return pair;
    }
    if (ability != DAX_ABILITY_RESTRICTED || claim.src == claim.dst) return nullptr;
    pair = portIsolateIfInnerEntryGet(claim.dst, claim.src);
    if (pair == nullptr) return nullptr;
    clearRef(pair, claim.grpNo,
             "del phy bi-isolate; inner entry4 [src: %s, target: %s] clear ref group %u\n\r");
    dropSelf(claim.dst, claim.grpNo,
             "del phy bi-isolate; inner entry5 [src: %s, target: %s] clear ref group %u\n\r");
    return pair;
}

}  // namespace

int32_t portIsolateAddPhyBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second) {
    uint32_t ability = DAX_ABILITY_SYMMETRIC;
    if (!oneSidedMode()) {
        const int32_t status = daxHwilIfGet(second, DAX_ATTR_ISO_ABILITY, &ability);
        if (status != 0) {
            portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK,
                             "add phy bi-isolate error! can't read hw ability\r\n");
            return status;
        }
    }
    const Claim claim = orderPair(grpNo, vid, first, second, ability);
    PortIsolateIfInnerEntry* entry = portIsolateIfInnerEntryGet(claim.src, claim.dst);
    if (entry != nullptr) {
        bitListSet(entry->ref, grpNo - 1);
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "inner entry [src: %s, target: %s] set ref group %u\n\r", ifName(entry->src).text,
                           ifName(entry->dst).text, grpNo);
        return STATUS_OK;
    }
    return oneSidedMode() ? addOneSided(claim) : addTwoSided(claim);
}

int32_t portIsolateDelPhyBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second) {
    uint32_t ability = DAX_ABILITY_SYMMETRIC;
    const int32_t abilityStatus = daxHwilIfGet(second, DAX_ATTR_ISO_ABILITY, &ability);
    if (abilityStatus != 0) {
        portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "del phy bi-isolate error! can't read hw ability\r\n");
        return abilityStatus;
    }
    const Claim claim = orderPair(grpNo, vid, first, second, ability);
    PortIsolateIfInnerEntry* pair = releaseClaim(claim, ability);
    if (pair == nullptr) {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "del phy bi-isolate; inner entry [src: %s, target: %s, grpNo: %d] get failed\n\r",
                           ifName(claim.src).text, ifName(claim.dst).text, grpNo);
        return STATUS_OK;
    }
    if (bitListIsEmpty(pair->ref, gPortIsoInfo.maxIsoGrpNum) == 0) return STATUS_OK;

    // The row goes whether or not the hardware takes the command, which names the ports in the order asked
    // for even when the row had them reversed.
    portIsolateIfInnerEntryDel(pair);
    const bool withSerials = gPortIsoInfo.isSupportSerial != 0;
    const SerialPair serials = withSerials ? serialPairGet(claim.src, claim.dst) : SerialPair{};
    sendCommand(claim, ISOLATE_OP_DEL, withSerials ? &serials : nullptr);
    if (withSerials) serialPairRelease(claim.src, claim.dst);
    return STATUS_OK;
}
