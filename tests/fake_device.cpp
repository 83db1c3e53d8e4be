#include <gtest/gtest.h>

#include <cstring>

#include "platform/hardware.h"
#include "tests/fake_platform.h"
#include "wire/records.h"

namespace {

FakeInterface lookUp(uint32_t ifUnit) {
    const auto found = fake.interfaces.find(ifUnit);
    return found == fake.interfaces.end() ? FakeInterface() : found->second;
}

int32_t isolate(uint32_t src, const AttrSetRecord& command) {
    const int32_t status = faultOf("daxIfSyncApi");
    IsolateCmdData data = {};
    std::memcpy(&data, command.data, command.dataLen);
    const uint32_t id = command.attrId;
    const bool add = id == DAX_ISO_BI_ADD || id == DAX_ISO_BI_VLAN_ADD || id == DAX_ISO_UNI_ADD;
    const bool uni = id == DAX_ISO_UNI_ADD || id == DAX_ISO_UNI_DEL;
    EXPECT_EQ(id == DAX_ISO_BI_VLAN_ADD || id == DAX_ISO_BI_VLAN_DEL, data.vid != 0);
    const uint8_t op = add ? ISOLATE_OP_ADD : ISOLATE_OP_DEL;
    EXPECT_EQ(data.op, command.dataLen == sizeof(data) ? op : 0);
    std::string call = words("%s-%s %u %u", uni ? "uni" : "bi", add ? "add" : "del", src, data.dstIfUnit);
    if (!uni) call += words(" grp %u", data.grpNo);
    if (data.vid != 0) call += words(" vid %u", data.vid);
    if (data.srcSerial != 0 || data.dstSerial != 0) {
        call += words(" serial %u/%u", data.srcSerial, data.dstSerial);
    }
    if (command.flag != 1) call += words(" flag %u", command.flag);
    record(call, status);
    if (status != 0) return status;
    auto& standing = uni ? fake.uni : fake.bi;
    if (add) {
        standing.insert({src, data.dstIfUnit});
    } else if (standing.erase({src, data.dstIfUnit}) == 0 && !uni) {
        standing.erase({data.dstIfUnit, src});
    }
    return 0;
}

int32_t protocolCall(const char* call, const char* what, uint32_t unit, uint32_t opcode,
                     const void* protocol) {
    EXPECT_EQ(std::memcmp(protocol, &DAX_PROTO_PORT_ISOLATE, sizeof(uint32_t)), 0);
    return record(words("%s %u %s", what, unit, opcode == DAX_IF_PROTO_ENABLE ? "on" : "off"), faultOf(call));
}

std::string controlWords(const HwCmdControl& control) {
    return words("control %x/%u/%u", control.flags, control.keyLength, control.dataLength);
}

}  // namespace

FakeDevice standardDevice() {
    FakeDevice device;
    const std::map<uint32_t, std::vector<uint32_t>> trunks = {
        {100, {21, 22}}, {200, {31, 32, 33}}, {300, {}}};
    for (const auto& [trunk, members] : trunks) {
        device.interfaces[trunk].flags = DAX_IF_FLAG_TRUNK;
        device.interfaces[trunk].members = members;
        for (const uint32_t port : members) device.interfaces[port].flags = DAX_IF_FLAG_TRUNK_MEMBER;
    }
    for (const uint32_t vlan : {10u, 20u, 100u, 4095u}) {
        device.interfaces[1000 + vlan].location = {0, 0, 0, 0, vlan, DAX_LOCATION_KIND_VLAN, 0, 0};
    }
    return device;
}

char* daxIfUnit2Name(uint32_t ifUnit, char* name, uint32_t size) {
    std::snprintf(name, size, "if%u%s", ifUnit, size == 64 ? "/64" : "");
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

int32_t daxScalarSetApi(uint32_t first, uint32_t second, AttrSetRecord* scalar) {
    EXPECT_TRUE(first == 0 && second == 0);
    uint32_t mode = 0;
    std::memcpy(&mode, scalar->data, sizeof(mode));
    return record(words("mode %u attr %u flag %u", mode, scalar->attrId, scalar->flag),
                  faultOf("daxScalarSetApi"));
}

int32_t daxHwilScalarSet(uint32_t unit, uint32_t scalar, void* value, uint32_t length) {
    EXPECT_EQ(unit, 0u);
    const uint32_t word = *static_cast<uint32_t*>(value);
    return record(words("scalar %u = %u length %u", scalar, word, length), faultOf("daxHwilScalarSet"));
}

int32_t daxHwilScalarGet(uint32_t unit, uint32_t scalar, void* value) {
    EXPECT_TRUE(unit == 0 && value == nullptr);
    return scalar == DAX_HWSCALAR_SERIAL_SENDER ? fake.serialSender : fake.serialReceiver;
}

int32_t daxHwilCmdSetApi(uint32_t key, uint32_t command, DataDesc* data, HwCmdControl* control) {
    EXPECT_EQ(command, DAX_CMD_PON_ISOLATE);
    const uint8_t state = static_cast<const uint8_t*>(data->data)[4];
    const int32_t status =
        record(words("pon %u state %u ", key, state) + controlWords(*control), faultOf("daxHwilCmdSetApi"));
    if (status == 0 && state == PON_ISOLATION_OFF) fake.ponOff.insert(key);
    if (status == 0 && state == PON_ISOLATION_ON) fake.ponOff.erase(key);
    return status;
}

int32_t daxHwilCmdSyncApi(uintptr_t key, uint32_t command, void* data, HwCmdControl* control) {
    uint32_t keyWord = static_cast<uint32_t>(key);
    if (control->keyLength > 4) std::memcpy(&keyWord, reinterpret_cast<void*>(key), sizeof(keyWord));
    DataDesc value = {data, 4};
    if (control->dataLength != 4) value = *static_cast<DataDesc*>(data);
    const auto* bytes = static_cast<const uint8_t*>(value.data);
    fake.data.assign(bytes, bytes + value.length);
    return record(words("mirror %x key %u ", command, keyWord) + controlWords(*control),
                  faultOf("daxHwilCmdSyncApi"));
}

int32_t daxCardUpPcsSet(void* card, uint32_t protocol) {
    return record(words("card-done %u protocol %u", static_cast<uint32_t*>(card)[3], protocol),
                  faultOf("daxCardUpPcsSet"));
}
