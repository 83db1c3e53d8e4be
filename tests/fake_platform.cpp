#include "tests/fake_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "daemon/api/group_api.h"
#include "daemon/api/pair_api.h"
#include "daemon/api/vlan_api.h"
#include "daemon/api/vlan_group_api.h"
#include "daemon/base/state.h"
#include "daemon/start/event_task.h"
#include "daemon/start/options.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "platform/services.h"

Fake fake;

namespace {

std::set<void*> liveElements;
std::jmp_buf taskEnd;  // where the event task goes when there is nothing more to deliver

int32_t faultOf(const std::string& call) {
    return fake.fault ? fake.fault(call) : 0;
}

std::string words(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string words(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

void record(std::string call, int32_t status) {
    if (status != 0) call += words(" = %d", status);
    fake.calls.push_back(std::move(call));
}

FakeInterface lookUp(uint32_t ifUnit) {
    const auto found = fake.interfaces.find(ifUnit);
    return found == fake.interfaces.end() ? FakeInterface() : found->second;
}

void keepData(const void* data, uint32_t length, const HwCmdControl* control = nullptr) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    fake.data.assign(bytes, bytes + length);
    const auto* block = reinterpret_cast<const uint8_t*>(control);
    fake.control.assign(block, block + (control == nullptr ? 0 : sizeof(*control)));
}

void switchIsolation(std::set<std::pair<uint32_t, uint32_t>>& standing, uint32_t src, uint32_t dst,
                     bool add) {
    if (add) {
        standing.insert({src, dst});
    } else if (standing.erase({src, dst}) == 0) {
        standing.erase({dst, src});
    }
}

int32_t isolate(uint32_t src, const AttrSetRecord& command) {
    const int32_t status = faultOf("daxIfSyncApi");
    keepData(command.data, command.dataLen);
    IsolateCmdData data = {};
    std::memcpy(&data, command.data, command.dataLen);
    const bool add = command.attrId == DAX_ISO_BI_ADD || command.attrId == DAX_ISO_BI_VLAN_ADD ||
                     command.attrId == DAX_ISO_UNI_ADD;
    const bool uni = command.attrId == DAX_ISO_UNI_ADD || command.attrId == DAX_ISO_UNI_DEL;
    const bool vlan = command.attrId == DAX_ISO_BI_VLAN_ADD || command.attrId == DAX_ISO_BI_VLAN_DEL;
    EXPECT_EQ(vlan, data.vid != 0);
    std::string call = words("%s-%s %u %u", uni ? "uni" : "bi", add ? "add" : "del", src, data.dstIfUnit);
    if (!uni) call += words(" grp %u", data.grpNo);
    if (data.vid != 0) call += words(" vid %u", data.vid);
    if (data.srcSerial != 0 || data.dstSerial != 0)
        call += words(" serial %u/%u", data.srcSerial, data.dstSerial);
    if (command.flag != 1) call += words(" flag %u", command.flag);
    record(call, status);
    const uint8_t op = add ? ISOLATE_OP_ADD : ISOLATE_OP_DEL;
    EXPECT_EQ(data.op, command.dataLen == sizeof(data) ? op : 0);
    if (status == 0) switchIsolation(uni ? fake.uni : fake.bi, src, data.dstIfUnit, add);
    return status;
}

int32_t protocolCall(const char* call, const char* what, uint32_t unit, uint32_t opcode,
                     const void* protocol) {
    uint32_t id = 0;
    std::memcpy(&id, protocol, sizeof(id));
    EXPECT_EQ(id, DAX_PROTO_PORT_ISOLATE);
    const int32_t status = faultOf(call);
    record(words("%s %u %s", what, unit, opcode == DAX_IF_PROTO_ENABLE ? "on" : "off"), status);
    return status;
}

void keepText(const char* channel, uint32_t source, const char* text) {
    std::string head = words("%s %u", channel, source & 0xFFFF);
    if (gPortIsolateTextCategory != 0) head += words("/%u", gPortIsolateTextCategory);
    EXPECT_EQ(source >> 16, 1003u);
    fake.texts.push_back(head + " " + text);
}

}  // namespace

extern "C" {

char* daxIfUnit2Name(uint32_t ifUnit, char* name, uint32_t size) {
    std::snprintf(name, size, "if%u", ifUnit);
    return name;
}

int32_t daxIfGetApi(uint32_t ifUnit, uint32_t attr, uint32_t* word) {
    EXPECT_EQ(attr, DAX_IF_ATTR_FLAGS);
    const int32_t status = faultOf("daxIfGetApi");
    if (status == 0) *word = lookUp(ifUnit).flags;
    return status;
}

int32_t daxEthAggIfGetApi(uint32_t trunk, uint32_t attr, DataDesc* members) {
    EXPECT_EQ(attr, DAX_AGG_ATTR_MEMBERS);
    EXPECT_EQ(members->length, 512u);
    const int32_t status = faultOf("daxEthAggIfGetApi");
    if (status != 0) return status;
    const std::vector<uint32_t> units = lookUp(trunk).members;
    members->length = static_cast<uint32_t>(units.size() * sizeof(uint32_t));
    if (!units.empty()) std::memcpy(members->data, units.data(), members->length);
    return 0;
}

int32_t daxIndexTrans(uint32_t ifUnit, uint32_t mode, uint32_t* location) {
    EXPECT_EQ(mode, DAX_INDEX_LOCATION);
    const int32_t status = faultOf("daxIndexTrans");
    if (status == 0) std::memcpy(location, lookUp(ifUnit).location.data(), 32);
    return status;
}

int32_t daxHwilIfGet(uint32_t ifUnit, uint32_t attr, uint32_t* word) {
    EXPECT_EQ(attr, DAX_ATTR_ISO_ABILITY);
    const int32_t status = faultOf("daxHwilIfGet");
    if (status == 0) *word = lookUp(ifUnit).ability;
    return status;
}

int32_t daxIfSyncApi(uint32_t ifUnit, uint32_t opcode, void* command) {
    if (opcode == DAX_IF_ISOLATE) return isolate(ifUnit, *static_cast<AttrSetRecord*>(command));
    return protocolCall("daxIfSyncApi", "protocol", ifUnit, opcode, command);
}

int32_t daxVlanSetApi(uint32_t vlan, uint32_t opcode, void* protocol) {
    return protocolCall("daxVlanSetApi", "vlan-protocol", vlan, opcode, protocol);
}

int32_t daxScalarSetApi(uint32_t, uint32_t, AttrSetRecord* scalar) {
    uint32_t mode = 0;
    std::memcpy(&mode, scalar->data, sizeof(mode));
    const int32_t status = faultOf("daxScalarSetApi");
    record(words("mode %u attr %u flag %u", mode, scalar->attrId, scalar->flag), status);
    return status;
}

int32_t daxHwilScalarSet(uint32_t, uint32_t scalar, void* value, uint32_t length) {
    record(words("scalar %u = %u length %u", scalar, *static_cast<uint32_t*>(value), length), 0);
    return faultOf("daxHwilScalarSet");
}

int32_t daxHwilScalarGet(uint32_t, uint32_t scalar, void*) {
    return scalar == DAX_HWSCALAR_SERIAL_SENDER ? fake.serialSender : fake.serialReceiver;
}

int32_t daxHwilCmdSetApi(uint32_t key, uint32_t command, DataDesc* data, HwCmdControl* control) {
    EXPECT_EQ(command, DAX_CMD_PON_ISOLATE);
    keepData(data->data, data->length, control);
    const int32_t status = faultOf("daxHwilCmdSetApi");
    record(words("pon %u state %u control %x/%u/%u", key, fake.data[4], control->flags, control->keyLength,
                 control->dataLength),
           status);
    if (status != 0) return status;
    if (fake.data[4] == PON_ISOLATION_OFF) fake.ponOff.insert(key);
    if (fake.data[4] == PON_ISOLATION_ON) fake.ponOff.erase(key);
    return 0;
}

int32_t daxHwilCmdSyncApi(uintptr_t key, uint32_t command, void* data, HwCmdControl* control) {
    const int32_t status = faultOf("daxHwilCmdSyncApi");
    uint32_t keyWord = static_cast<uint32_t>(key);
    if (control->keyLength > 4) std::memcpy(&keyWord, reinterpret_cast<void*>(key), sizeof(keyWord));
    if (control->dataLength == 4) {
        keepData(data, 4, control);
    } else {
        keepData(static_cast<DataDesc*>(data)->data, static_cast<DataDesc*>(data)->length, control);
    }
    record(words("mirror %x key %u control %x/%u/%u", command, keyWord, control->flags, control->keyLength,
                 control->dataLength),
           status);
    return status;
}

int32_t daxCardUpPcsSet(void* card, uint32_t protocol) {
    const int32_t status = faultOf("daxCardUpPcsSet");
    record(words("card-done %u protocol %u", static_cast<uint32_t*>(card)[3], protocol), status);
    return status;
}

void silCatchSegFault(void) {}
void patchSignalHandler(void) {}
int32_t procShellInit(const char*, uint32_t, uint32_t) {
    return 0;
}

int32_t silOptRead(uint32_t, const char* key, uint32_t, uint32_t, uint32_t, char* buffer, uint32_t capacity) {
    const auto found = fake.options.find(key);
    if (found == fake.options.end()) return 0;
    std::snprintf(buffer, capacity + 1, "%s", found->second.c_str());
    return static_cast<int32_t>(std::strlen(buffer));
}

int32_t silMemPoolInit(SilMemPool* pool, const char* name, uint64_t count, uint32_t elementSize,
                       uint32_t option) {
    const int32_t status = faultOf(std::string("silMemPoolInit ") + name);
    if (status != 0 || count == 0 || count * elementSize > (1u << 26)) return -1;
    record(words("pool %s %u x %u option %u", name, static_cast<uint32_t>(count), elementSize, option), 0);
    pool->name = name;
    pool->elementSize = elementSize;
    pool->count = static_cast<uint32_t>(count);
    pool->freeCount = pool->count;
    if (option == SIL_MEMPOOL_ARRAY)
        pool->base = static_cast<uint8_t*>(std::calloc(pool->count, elementSize));
    return 0;
}

void* silMemPoolAlloc(SilMemPool* pool, uint32_t) {
    if (pool->freeCount == 0 || faultOf(std::string("pool ") + pool->name) != 0) return nullptr;
    --pool->freeCount;
    ++fake.poolsInUse[pool->name];
    void* element = std::calloc(1, pool->elementSize);
    liveElements.insert(element);
    return element;
}

int32_t silMemPoolFree(SilMemPool* pool, void* element) {
    EXPECT_EQ(liveElements.erase(element), 1u) << "freed twice, or not of a pool: " << pool->name;
    ++pool->freeCount;
    --fake.poolsInUse[pool->name];
    std::free(element);
    return 0;
}

uint32_t silMemPoolFreeSize(const SilMemPool* pool) {
    return pool->freeCount;
}

int32_t silMemPoolDestroy(SilMemPool* pool) {
    if (pool->name == nullptr) return 0;
    record(words("pool %s destroyed", pool->name), 0);
    std::free(pool->base);
    *pool = {};
    return 0;
}

SilSem silCreateBSem(uint32_t, uint32_t) {
    return faultOf("silCreateBSem") == 0 ? &fake.semTaken : nullptr;
}

int32_t silTakeSem(SilSem, int32_t wait) {
    EXPECT_EQ(wait, SIL_WAIT_FOREVER);
    EXPECT_FALSE(fake.semTaken) << "the semaphore was taken twice";
    fake.semTaken = true;
    ++fake.semTakes;
    return 0;
}

int32_t silGiveSem(SilSem) {
    EXPECT_TRUE(fake.semTaken);
    fake.semTaken = false;
    return 0;
}

int32_t silDeleteSem(SilSem) {
    record("semaphore deleted", 0);
    return 0;
}

int32_t silCreateTask(const char* name, uint32_t priority, uint32_t stack, void (*entry)(void), uint32_t,
                      uint32_t, uint32_t*) {
    const int32_t status = faultOf("silCreateTask");
    record(words("task %s %u %u", name, priority, stack), status);
    fake.task = entry;
    return status;
}

int32_t icmProcTcpInit(const char* task, const char* path, const IcmFuncMapEntry* map, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(map[i].opcode, i);
    record(words("command server %s %s %u", task, path, count), 0);
    return faultOf("icmProcTcpInit");
}

void loggingDebugOutput(uint32_t source, uint32_t, uint32_t, const char* format, ...) {
    EXPECT_STREQ(format, "%s");
    va_list args;
    va_start(args, format);
    keepText("debug", source, va_arg(args, const char*));
    va_end(args);
}

void loggingLogOutput(uint32_t source, uint32_t, uint32_t, const char* format, ...) {
    EXPECT_STREQ(format, "%s");
    va_list args;
    va_start(args, format);
    keepText("log", source, va_arg(args, const char*));
    va_end(args);
}

int32_t dax_socket(int32_t family, int32_t type, int32_t protocol) {
    const int32_t status = faultOf("dax_socket");
    record(words("socket %d %d %d", family, type, protocol), status);
    return status != 0 ? -1 : 7;
}

int32_t dax_bind(int32_t fd, const void* address, uint32_t length) {
    const int32_t status = faultOf("dax_bind");
    record(words("bind %d family %u length %u", fd, static_cast<const uint8_t*>(address)[1], length), status);
    return status != 0 ? -1 : 0;
}

int32_t dax_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t) {
    uint32_t word = 0;
    std::memcpy(&word, value, sizeof(word));
    const int32_t status = faultOf("dax_setsockopt");
    record(words("setsockopt %d %d %d %u", fd, level, option, word), status);
    return status;
}

int32_t dax_select(int32_t limit, DaxFdSet* readSet, DaxFdSet*, DaxFdSet*, void*) {
    EXPECT_EQ(limit, 8);
    EXPECT_FALSE(fake.semTaken);
    if (fake.datagrams.empty()) std::longjmp(taskEnd, 1);
    if (faultOf("dax_select") != 0) return -1;
    return daxFdIsSet(*readSet, 7) ? 1 : 0;
}

int32_t dax_recvfrom(int32_t, void* buffer, uint32_t size, int32_t, void*, uint32_t*) {
    if (faultOf("dax_recvfrom") != 0) return -1;
    const Bytes datagram = fake.datagrams.front();
    fake.datagrams.erase(fake.datagrams.begin());
    const size_t bytes = std::min<size_t>(size, datagram.size());
    std::memcpy(buffer, datagram.data(), bytes);
    return static_cast<int32_t>(bytes);
}

int32_t dax_close(int32_t fd) {
    record(words("close %d", fd), 0);
    return 0;
}

int32_t errnoGet(void) {
    return 99;
}
}

int32_t startDaemon(const std::map<std::string, std::string>& options) {
    std::free(gPortIsoInfo.ifSerialPool.base);
    for (void* element : liveElements) std::free(element);
    liveElements.clear();
    const auto fault = fake.fault;
    fake = {};
    fake.options = options;
    fake.fault = fault;
    gPortIsoInfo = {};
    const int32_t status = portIsolateOptInit();
    standardDevice();
    return status;
}

std::vector<std::string> drainCalls(const std::vector<std::string>& words) {
    std::vector<std::string> calls = std::exchange(fake.calls, {});
    std::erase_if(calls, [&](const std::string& call) {
        const auto begins = [&](const std::string& word) { return call.starts_with(word); };
        return !words.empty() && std::none_of(words.begin(), words.end(), begins);
    });
    return calls;
}

void failNth(const std::string& call, uint32_t nth, int32_t status) {
    fake.fault = [=, left = nth](const std::string& name) mutable {
        if (name != call || left == 0 || --left != 0) return 0;
        return status;
    };
}

int32_t groupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp) {
    PortIsolateIfGrpIndex index = {ifUnit, grp, 0};
    return portIsolateIfGrpSetApi(&index, GROUP_COLUMN_ROW_STATUS, &rowStatus);
}

int32_t vlanGroupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp, uint32_t vlan) {
    PortIsolateIfVlanGrpIndex index = {ifUnit, grp, vlan, 0};
    return portIsolateIfVlanGrpSetApi(&index, GROUP_COLUMN_ROW_STATUS, &rowStatus);
}

int32_t pairSet(uint32_t rowStatus, uint32_t src, uint32_t dst) {
    PortIsolateIfPairIndex index = {src, dst, 0};
    return portIsolateIfPairSetApi(&index, PAIR_COLUMN_ROW_STATUS, &rowStatus);
}

int32_t ponSet(uint32_t vlan, uint32_t state) {
    return portIsolateVlanSetApi(vlan, 1, &state);
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

template <typename Record>
Bytes bytesOf(const Record& record) {
    const auto* raw = reinterpret_cast<const uint8_t*>(&record);
    return {raw, raw + sizeof(record)};
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

void runTask() {
    if (setjmp(taskEnd) == 0) fake.task();
}

void standardDevice() {
    const std::map<uint32_t, std::vector<uint32_t>> trunks = {
        {100, {21, 22}}, {200, {31, 32, 33}}, {300, {}}};
    for (const auto& [trunk, members] : trunks) {
        fake.interfaces[trunk].flags = DAX_IF_FLAG_TRUNK;
        fake.interfaces[trunk].members = members;
        for (const uint32_t port : members) fake.interfaces[port].flags = DAX_IF_FLAG_TRUNK_MEMBER;
    }
    for (const uint32_t vlan : {10u, 20u, 100u, 4095u}) {
        fake.interfaces[1000 + vlan].location = {0, 0, 0, 0, vlan, DAX_LOCATION_KIND_VLAN, 0, 0};
    }
}
