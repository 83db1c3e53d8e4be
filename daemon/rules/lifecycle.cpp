#include "daemon/rules/lifecycle.h"

#include <cstring>

#include "daemon/base/report.h"
#include "daemon/base/route_attributes.h"
#include "daemon/hw/pon_isolation.h"
#include "daemon/hw/protocol.h"
#include "daemon/hw/trunk_expansion.h"
#include "daemon/rules/programming.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "daemon/tables/serials.h"
#include "platform/route_messages.h"
#include "wire/records.h"

namespace {

constexpr int32_t LINK_ATTRIBUTES = sizeof(RtMsgHdr) + sizeof(RtIfInfo);  // offset in the message
constexpr uint32_t VLAN_MAX_DELETED = 4094;  // highest VLAN whose deletion is followed

RtIfInfo linkInfo(const uint8_t* message) {
    RtIfInfo info;
    std::memcpy(&info, message + sizeof(RtMsgHdr), sizeof(info));
    return info;
}

void removeGroupEntries(uint32_t ifUnit) {
    PortIsolateIfGrpEntry* next = nullptr;
    for (auto* entry = unitFirst(GROUP_TABLE, ifUnit); entry != nullptr; entry = next) {
        next = unitNext(entry);
        portIsolateIfGrpEntryDel(entry);
    }
}

template <typename Entry>
void removeAll(const Table<Entry>& table, int32_t (*remove)(Entry* entry)) {
    Entry* next = nullptr;
    for (Entry* entry = tableFirst(table); entry != nullptr; entry = next) {
        next = tableNext(table, entry);
        remove(entry);
    }
}

// Visits, in table order, the pairs that have the interface as their source or, if `asTarget`, as their
// target: those of lower sources, its own, those of higher sources. `visit` may remove the pair.
template <typename Visit>
void forEachPairOf(uint32_t ifUnit, bool asTarget, Visit visit) {
    using Entry = PortIsolateIfPairEntry;
    Entry* next = nullptr;
    Entry* target = asTarget ? unitFirst(PAIR_TABLE, ifUnit) : nullptr;
    for (; target != nullptr && target->src < ifUnit; target = next) {
        next = unitNext(target);
        visit(target);
    }
    while (target != nullptr && target->src == ifUnit) target = unitNext(target);
    for (Entry* own = tableFrom(PAIR_TABLE, {ifUnit, 0, 0}); own != nullptr && own->src == ifUnit;
         own = next) {
        next = tableNext(PAIR_TABLE, own);
        visit(own);
    }
    for (; target != nullptr; target = next) {
        next = unitNext(target);
        visit(target);
    }
}

// Frees the interface's serial number, switches its protocol off and drops its port entry. False when it had
// none.
bool dropPort(uint32_t ifUnit) {
    PortIsolatePortEntry* port = portIsolatePortEntryGet(ifUnit);
    if (port == nullptr) return false;
    portIsolateSerialFree(ifUnit);
    if (portIsolateProtocolSet(ifUnit, DAX_IF_PROTO_DISABLE) != 0) {
        portIsolateLog(LEVEL_PROTOCOL,
                       "The interface disable protocol error.(ifName=[%s], proto=[%s], type=[%s])\r\n",
                       ifName<64>(ifUnit).text, protoId2Name(DAX_PROTO_PORT_ISOLATE), "state");
    }
    portIsolatePortEntryDel(port);
    return true;
}

void registerInterface(uint32_t ifUnit) {
    PORT_ISOLATE_TRACE(LEVEL_EVENT, CATEGORY_EVENT, "interface %s register\n\r", ifName(ifUnit).text);
    for (auto* pair = unitFirst(PAIR_TABLE, ifUnit); pair != nullptr; pair = unitNext(pair)) {
        const int32_t status = portIsolateAddHwIfUniIsolate(pair->src, pair->dst);
        if (status == 0) continue;
        PORT_ISOLATE_TRACE(LEVEL_FAILURE, CATEGORY_EVENT,
                           "add hw-if uni-isolate [src: %s, target: %s] failed.(%d)\n\r",
                           ifName(pair->src).text, ifName(pair->dst).text, status);
        return;
    }
}

// What a trunk's change of members does to the port gained or lost.
struct MemberChange {
    int32_t (*biIsolate)(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst);
    int32_t (*uniIsolate)(uint32_t src, uint32_t dst);
    void (*report)(uint32_t src, uint32_t dst, uint32_t grpNo, int32_t status);
};

void reportMemberAdd(uint32_t src, uint32_t dst, uint32_t grpNo, int32_t status) {
    PORT_ISOLATE_TRACE(LEVEL_FAILURE, CATEGORY_EVENT,
                       "add hw-if bi-isolate [src: %s, target: %s] of group %u failed 0x%x\n\r",
                       ifName(src).text, ifName(dst).text, grpNo, static_cast<uint32_t>(status));
}

void reportMemberDel(uint32_t src, uint32_t dst, uint32_t grpNo, int32_t /*status*/) {
    PORT_ISOLATE_TRACE(LEVEL_FAILURE, CATEGORY_EVENT,
                       "del hw-if bi-isolate [src: %s, target: %s] of group %u failed\n\r", ifName(src).text,
                       ifName(dst).text, grpNo);
}

constexpr MemberChange MEMBER_ADDED = {portIsolateAddHwIfBiIsolate, portIsolateAddHwIfUniIsolate,
                                       reportMemberAdd};
constexpr MemberChange MEMBER_LOST = {portIsolateDelHwIfBiIsolate, portIsolateDelHwIfUniIsolate,
                                      reportMemberDel};

// Changes the port with respect to the other members of one of the trunk's groups.
void changeMemberInGroup(uint32_t trunk, uint32_t port, uint32_t grpNo, const MemberChange& change) {
    const bool portIsSource = gPortIsoInfo.isSrcTrunkToPort != 0 && gPortIsoInfo.isDstTrunkToPort == 0;
    for (auto* fellow = groupFirst<PortIsolateIfGrpEntry>(grpNo); fellow != nullptr;
         fellow = groupNext(fellow)) {
        if (fellow->ifUnit == trunk) continue;
        const uint32_t src = portIsSource ? port : fellow->ifUnit;
        const uint32_t dst = portIsSource ? fellow->ifUnit : port;
        const int32_t status = change.biIsolate(grpNo, 0, src, dst);
        if (status != 0) change.report(src, dst, grpNo, status);
    }
}

void changeMember(uint32_t trunk, uint32_t port, const MemberChange& change) {
    if (gPortIsoInfo.isSrcTrunkToPort == 0 && gPortIsoInfo.isDstTrunkToPort == 0) return;
    for (auto* entry = unitFirst(GROUP_TABLE, trunk); entry != nullptr; entry = unitNext(entry)) {
        changeMemberInGroup(trunk, port, entry->isoGrpNo, change);
    }
    forEachPairOf(trunk, true, [=](const PortIsolateIfPairEntry* pair) {
        if (pair->dst == trunk) {
            change.uniIsolate(pair->src, port);
        } else if (gPortIsoInfo.isSrcTrunkToPort != 0) {
            change.uniIsolate(port, pair->dst);
        }
    });
}

void joinTrunk(uint32_t ifUnit) {
    removeGroupEntries(ifUnit);
    forEachPairOf(ifUnit, true, portIsolateIfPairEntryDel);
    if (!dropPort(ifUnit)) return;
    portIsolateDebug(LEVEL_EVENT, CATEGORY_EVENT, "ifunit %d del because of join trunk!\r\n", ifUnit);
}

void handleAttribute(uint32_t ifUnit, const uint8_t* attribute) {
    RtAttr header;
    std::memcpy(&header, attribute, sizeof(header));
    const bool namesMember = header.length >= sizeof(header) + sizeof(uint32_t);
    if (header.type == DAX_RTA_TRUNK_JOIN) joinTrunk(ifUnit);
    if (header.type == DAX_RTA_MEMBER_ADD && namesMember) {
        changeMember(ifUnit, attrGetU32(attribute), MEMBER_ADDED);
    }
    if (header.type == DAX_RTA_MEMBER_DEL && namesMember) {
        changeMember(ifUnit, attrGetU32(attribute), MEMBER_LOST);
    }
}

void deleteVlan(uint32_t vlan) {
    portIsolateDebug(LEVEL_EVENT, CATEGORY_EVENT, "vlan %d unregister\n\r", vlan);
    if (vlan == 0 || vlan > VLAN_MAX_DELETED || bitListTest(gPortIsoInfo.p2pEnableVlan, vlan) == 0) return;
    bitListClear(gPortIsoInfo.p2pEnableVlan, vlan);
    portIsolateP2pVlanLenUpdate();
    const int32_t status = portIsolatePonIsolateSet(vlan, PON_ISOLATION_ON, 1);
    portIsolateDebug(LEVEL_EVENT, CATEGORY_EVENT, "vlan %d del, enable all port pon-isolate, ret %d\r\n",
                     vlan, status);
    portIsolateVlanProtocolSet(vlan, DAX_IF_PROTO_DISABLE);
}

void deleteInterface(uint32_t ifUnit) {
    PORT_ISOLATE_TRACE(LEVEL_EVENT, CATEGORY_EVENT, "interface %s unregister\n\r", ifName(ifUnit).text);
    removeGroupEntries(ifUnit);
    forEachPairOf(ifUnit, true, portIsolateIfPairEntryDel);
    if (!dropPort(ifUnit)) return;
    portIsolateDebug(LEVEL_EVENT, CATEGORY_EVENT, "[%s]line %d: ifunit %d del prot isolate!\r\n",
                     "portIsolateDelLinkProcess", 3091, ifUnit);
}

template <typename Visit>
void forEachP2pVlan(Visit visit) {
    for (uint32_t vlan = 1; vlan < VLAN_COUNT; ++vlan) {
        if (bitListTest(gPortIsoInfo.p2pEnableVlan, vlan) != 0) visit(vlan);
    }
}

}  // namespace

void portIsolateAddLinkProcess(const uint8_t* message, int32_t bytes) {
    if (bytes < static_cast<int32_t>(sizeof(RtIfInfo))) return;
    RtMsgHdr header;
    std::memcpy(&header, message, sizeof(header));
    int32_t remaining = static_cast<int32_t>(header.length) - LINK_ATTRIBUTES;
    if (remaining < 0) return;

    const RtIfInfo info = linkInfo(message);
    if (info.changeMask == RT_CHANGE_REGISTER) {
        registerInterface(info.ifUnit);
        return;
    }
    for (const uint8_t* attribute = message + LINK_ATTRIBUTES; attrOk(attribute, remaining);
         attribute = attrNext(attribute, remaining)) {
        handleAttribute(info.ifUnit, attribute);
    }
}

int32_t portIsolateDelLinkProcess(const uint8_t* message, int32_t bytes) {
    if (bytes < static_cast<int32_t>(sizeof(RtIfInfo))) return 0;
    const uint32_t ifUnit = linkInfo(message).ifUnit;
    uint32_t location[DAX_LOCATION_WORDS] = {};
    if (daxIndexTrans(ifUnit, DAX_INDEX_LOCATION, location) != 0) return 0;
    if (location[DAX_LOCATION_KIND] == DAX_LOCATION_KIND_VLAN) {
        deleteVlan(location[DAX_LOCATION_VLAN]);
    } else {
        deleteInterface(ifUnit);
    }
    return 0;
}

int32_t portIsolateIfResetConfig(uint32_t ifUnit) {
    removeGroupEntries(ifUnit);
    forEachPairOf(ifUnit, false, portIsolateIfPairEntryDel);
    if (!dropPort(ifUnit)) return 0;
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "[%s]line %d: ifunit %d del prot isolate!\r\n",
                     "portIsolateIfResetConfig", 2073, ifUnit);
    return 0;
}

void portIsolateResetConfig() {
    removeAll(GROUP_TABLE, portIsolateIfGrpEntryDel);
    removeAll(PAIR_TABLE, portIsolateIfPairEntryDel);
    forEachP2pVlan([](uint32_t vlan) {
        portIsolatePonIsolateSet(vlan, PON_ISOLATION_ON, 1);
        portIsolateVlanProtocolSet(vlan, DAX_IF_PROTO_DISABLE);
    });
    std::memset(gPortIsoInfo.p2pEnableVlan, 0, sizeof(gPortIsoInfo.p2pEnableVlan));
    gPortIsoInfo.p2pEnableVlanLen = 0;
}

void portIsolateCardUpProcess() {
    forEachP2pVlan([](uint32_t vlan) { portIsolatePonIsolateSet(vlan, PON_ISOLATION_OFF, 1); });
}
