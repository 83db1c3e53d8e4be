#include "tests/daemon_driver.h"

#include "daemon/api/operations.h"
#include "daemon/start/event_task.h"
#include "daemon/start/options.h"

int32_t startDaemon(Options options) {
    forgetPools();
    const auto fault = fake.fault;
    fake = {{}, standardDevice(), {}};
    fake.fault = fault;
    fake.options = std::move(options);
    gPortIsoInfo = {};
    return portIsolateOptInit();
}

void startWatched(uint32_t categories, const Options& options) {
    ASSERT_EQ(startDaemon(options), 0);
    portIsolateDebugMaskSet(categories);
    fake.calls.clear();
    fake.texts.clear();
}

Options trunkSwitches(bool src, bool dst) {
    return {{"srcaggtoport", src ? "1" : "0"}, {"dstaggtoport", dst ? "1" : "0"}};
}

int32_t perform(uint32_t opcode, uint32_t* index, uint32_t column, void* value) {
    const IcmHandler& handler = gPortisolateFuncMap[opcode].handler;
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[opcode];
    if (shape.kind == OpKind::first) return handler.first(index);
    if (shape.kind == OpKind::next) {
        return shape.indexIsNumber ? handler.nextNumber(*index, value) : handler.next(index, value);
    }
    return shape.indexIsNumber ? handler.accessNumber(*index, column, value)
                               : handler.access(index, column, value);
}

int32_t groupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp) {
    uint32_t index[] = {ifUnit, grp, 0};
    return perform(OP_GROUP_SET, index, GROUP_COLUMN_ROW_STATUS, &rowStatus);
}

int32_t vlanGroupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp, uint32_t vlan) {
    uint32_t index[] = {ifUnit, grp, vlan, 0};
    return perform(OP_VLAN_GROUP_SET, index, GROUP_COLUMN_ROW_STATUS, &rowStatus);
}

int32_t pairSet(uint32_t rowStatus, uint32_t src, uint32_t dst) {
    uint32_t index[] = {src, dst, 0};
    return perform(OP_PAIR_SET, index, PAIR_COLUMN_ROW_STATUS, &rowStatus);
}

int32_t ponSet(uint32_t vlan, uint32_t state) {
    return perform(OP_VLAN_SET, &vlan, 1, &state);
}

int32_t groupJoin(uint32_t ifUnit, uint32_t grp) {
    const int32_t status = groupSet(ROW_CREATE, ifUnit, grp);
    return status != 0 ? status : groupSet(ROW_ACTIVATE, ifUnit, grp);
}

int32_t vlanGroupJoin(uint32_t ifUnit, uint32_t grp, uint32_t vlan) {
    const int32_t status = vlanGroupSet(ROW_CREATE, ifUnit, grp, vlan);
    return status != 0 ? status : vlanGroupSet(ROW_ACTIVATE, ifUnit, grp, vlan);
}

int32_t pairJoin(uint32_t src, uint32_t dst) {
    const int32_t status = pairSet(ROW_CREATE, src, dst);
    return status != 0 ? status : pairSet(ROW_ACTIVATE, src, dst);
}

Bytes plainMessage(uint16_t type, const Bytes& payload) {
    RtMsgHdr header = {};
    header.length = static_cast<uint32_t>(sizeof(header) + payload.size());
    header.type = type;
    return bytesOf(header) + payload;
}

Bytes linkMessage(uint16_t type, uint32_t ifUnit, uint32_t changeMask, const Bytes& attributes) {
    RtIfInfo info = {};
    info.ifUnit = ifUnit;
    info.changeMask = changeMask;
    return plainMessage(type, bytesOf(info) + attributes);
}

Bytes attribute(uint16_t type, uint32_t value) {
    return bytesOf(RtAttr{8, type}) + bytesOf(value);
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.resize((a.size() + 3) / 4 * 4);
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

void deliver(const Bytes& datagram) {
    silTakeSem(gPortIsoInfo.mutex, SIL_WAIT_FOREVER);
    EXPECT_EQ(portIsolateEvtNotifyRecv(datagram.data(), static_cast<int32_t>(datagram.size())), 0);
    silGiveSem(gPortIsoInfo.mutex);
}
