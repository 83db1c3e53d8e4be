#include "daemon/start/init.h"

#include <cstring>

#include "daemon/api/operations.h"
#include "daemon/base/report.h"
#include "daemon/hw/isolation_mode.h"
#include "daemon/start/event_task.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"
#include "daemon/tables/sorted_table.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "platform/services.h"
#include "wire/framing.h"

namespace {

constexpr uint32_t TASK_PRIORITY = 50;
constexpr uint32_t TASK_STACK = 65536;  // bytes
constexpr uint32_t DEFAULT_GROUPS = 64;
constexpr uint32_t DEFAULT_PAIRS_PER_SOURCE = 30;

struct PoolPlan {
    SilMemPool* pool;
    const char* name;
    uint64_t count;
    uint32_t elementSize;
    uint32_t option;
    const char* failure;  // null: fails without a message
};

bool createPool(const PoolPlan& plan) {
    if (silMemPoolInit(plan.pool, plan.name, plan.count, plan.elementSize, plan.option) == 0) return true;
    if (plan.failure != nullptr) portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, "%s", plan.failure);
    return false;
}

// The products of limits are taken in 64 bits, so that absurd options are refused and not wrapped.
bool createEntryPools() {
    PortIsoInfo& info = gPortIsoInfo;
    const uint64_t members = uint64_t{info.maxPortNumPerGrp} * info.maxIsoGrpNum;
    const uint64_t pairs = uint64_t{info.maxPortNum} * info.maxPortNum;
    const PoolPlan plans[] = {
        {&info.ifGrpPool, "portisolate_group", members, sizeof(PortIsolateIfGrpEntry), 0,
         "init if group table failed\n\r"},
        {&info.ifVlanGrpPool, "portisolate_vlangroup", members, sizeof(PortIsolateIfVlanGrpEntry), 0,
         "init if vlan group table failed\n\r"},
        {&info.portPool, "portisolate_port", info.maxPortNum, sizeof(PortIsolatePortEntry), 0,
         "init port table failed\n\r"},
        {&info.ifPairPool, "portisolate_pair", pairs, sizeof(PortIsolateIfPairEntry), 0,
         "init if pair table failed\n\r"},
    };
    for (const PoolPlan& plan : plans) {
        if (!createPool(plan)) return false;
    }
    return true;
}

bool createTables() {
    PortIsoInfo& info = gPortIsoInfo;
    info.mutex = silCreateBSem(1, 1);
    if (info.mutex == nullptr) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, "init sem failed\n\r");
        return false;
    }
    tableInit(GROUP_TABLE);
    tableInit(PAIR_TABLE);
    tableInit(INNER_TABLE);
    tableInit(PORT_TABLE);
    tableInit(VLAN_GROUP_TABLE);
    const uint64_t pairs = uint64_t{info.maxPortNum} * info.maxPortNum;
    if (!createPool({&info.refPool, "portisolate_ref", pairs, bitListBytes(info.maxIsoGrpNum), 0, nullptr})) {
        return false;
    }
    if (!createPool({&info.ifSerialPool, "portisolate_ifserial", info.maxPortNum, sizeof(uint32_t),
                     SIL_MEMPOOL_ARRAY, nullptr})) {
        return false;
    }
    info.serialTable = reinterpret_cast<PortIsolateSerialTable*>(info.ifSerialPool.base);
    std::memset(info.serialTable, 0, sizeof(PortIsolateSerialTable) * info.maxPortNum);
    return true;
}

bool joinEventGroups() {
    const struct {
        uint32_t group;
        const char* failure;
    } groups[] = {
        {DAX_RTGRP_SLOT, "route socket add slot member option failed.(%d)\n\r"},
        {DAX_RTGRP_CARD, "route socket add card member option failed.(%d)\n\r"},
        {DAX_RTGRP_SYSTEM, "route socket add system member option failed.(%d)\n\r"},
        {DAX_RTGRP_LINK, "route socket add link member option failed.(%d)\n\r"},
        {DAX_RTGRP_VLAN, "route socket add vlan member option failed.(%d)\n\r"},
        {DAX_RTGRP_SYSTEM_GROUP, "route socket add system group failed.(%d)\n\r"},
    };
    for (const auto& row : groups) {
        if (dax_setsockopt(gPortIsoInfo.rtSock, DAX_SOL_MEMBERSHIP, DAX_SO_ADD_GROUP, &row.group,
                           sizeof(row.group)) != 0) {
            portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, row.failure, errnoGet());
            return false;
        }
    }
    return true;
}

bool openRouteSocket() {
    PortIsoInfo& info = gPortIsoInfo;
    info.rtSock = dax_socket(DAX_AF_ROUTE, DAX_SOCK_DGRAM, 0);
    if (info.rtSock < 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, "create route socket failed.(%d)\n\r", errnoGet());
        return false;
    }
    const uint8_t address[DAX_ROUTE_ADDRESS_LEN] = {0, DAX_AF_ROUTE};
    if (dax_bind(info.rtSock, address, sizeof(address)) < 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, "route socket bind failed.(%d)\n\r", errnoGet());
        return false;
    }
    if (!joinEventGroups()) return false;
    if (dax_setsockopt(info.rtSock, DAX_SOL_SOCKET, DAX_SO_NAME, &DAX_PROTO_PORT_ISOLATE,
                       sizeof(DAX_PROTO_PORT_ISOLATE)) != 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, "route socket set name failed.(%d)\n\r", errnoGet());
        return false;
    }
    return true;
}

bool startEventTask() {
    uint32_t taskId = 0;
    if (silCreateTask("portisolatetask", TASK_PRIORITY, TASK_STACK, portIsolateTask, 0, 0, &taskId) == 0) {
        return true;
    }
    portIsolateDebug(LEVEL_FAILURE, CATEGORY_INIT, "create task failed\n\r");
    return false;
}

// Pools that were never created are all zero, which the platform leaves alone.
void cleanUp() {
    PortIsoInfo& info = gPortIsoInfo;
    if (info.rtSock >= 0) {
        dax_close(info.rtSock);
        info.rtSock = -1;
    }
    if (info.mutex != nullptr) {
        silDeleteSem(info.mutex);
        info.mutex = nullptr;
    }
    silMemPoolDestroy(&info.refPool);
    silMemPoolDestroy(&info.ifPairPool);
    silMemPoolDestroy(&info.ifGrpPool);
    silMemPoolDestroy(&info.portPool);
    silMemPoolDestroy(&info.ifVlanGrpPool);
    silMemPoolDestroy(&info.ifSerialPool);
}

}  // namespace

int32_t portIsolateDefauleModeSet() {
    uint32_t mode = gPortIsoInfo.defaultMode;
    const int32_t status = portIsolateModePush(&mode);
    if (status != 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_WORK, "set api; set port-isolate mode failed.(%d)\n\r",
                         mode);
    }
    return status;
}

int32_t portIsolateInit(uint32_t maxIfNum, uint32_t maxIfNumPerGrp, uint32_t maxIsoGrpNum,
                        uint32_t maxUniIsoPortNum, uint32_t srcAggToPort, uint32_t dstAggToPort,
                        uint32_t supportSerial, uint32_t defaultMode, uint8_t slotCheck,
                        uint8_t vlanGroupEnable, uint8_t multiGroupCheck, const uint8_t* modeAbility) {
    PortIsoInfo& info = gPortIsoInfo;
    info = {};
    info.rtSock = -1;
    info.maxPortNum = maxIfNum;
    info.maxPortNumPerGrp = maxIfNumPerGrp != 0 ? maxIfNumPerGrp : maxIfNum;
    info.maxIsoGrpNum = maxIsoGrpNum != 0 ? maxIsoGrpNum : DEFAULT_GROUPS;
    info.maxUniIsoPortNum = maxUniIsoPortNum != 0 ? maxUniIsoPortNum : DEFAULT_PAIRS_PER_SOURCE;
    info.mode = defaultMode;
    info.defaultMode = defaultMode;
    std::memcpy(info.modeAbility, modeAbility, sizeof(info.modeAbility));
    info.isSrcTrunkToPort = srcAggToPort & 1;
    info.isDstTrunkToPort = dstAggToPort & 1;
    info.isSupportSerial = supportSerial & 1;
    portIsolateDebugMaskSet(CATEGORY_INIT);
    info.slotCheck = slotCheck;
    info.vlanGroupEnable = vlanGroupEnable;
    info.multiGroupCheck = multiGroupCheck;

    if (!createEntryPools() || !createTables() || !openRouteSocket() || !startEventTask()) {
        cleanUp();
        return -1;
    }

    // No failure from here on stops the start: a daemon without its command server or mode still follows
    // events.
    icmProcTcpInit("portisolatecmdtask", COMMAND_SOCKET_PATH, gPortisolateFuncMap, OP_COUNT);
    portIsolateDefauleModeSet();
    uint32_t protocol = DAX_PROTO_PORT_ISOLATE;
    daxHwilScalarSet(0, DAX_HWSCALAR_PROTO_OWNER, &protocol, 0);
    return 0;
}
