#include "daemon/api/scalar_api.h"

#include <cstring>

#include "daemon/api/request.h"
#include "daemon/base/report.h"
#include "daemon/hw/isolation_mode.h"
#include "daemon/hw/serial_transfer.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "platform/hardware.h"
#include "wire/scalars.h"
#include "wire/status.h"

namespace {

constexpr char VERSION[] = "PORTISOLATE__V7.00.08.00";
constexpr uint32_t VERSION_LENGTH = sizeof(VERSION) - 1;

// The ability of the first group member, or else of the first pair's target; symmetric when there is neither.
int32_t readDecidingAbility(uint32_t* ability) {
    if (const auto* entry = tableFirst(GROUP_TABLE); entry != nullptr) {
        return daxHwilIfGet(entry->ifUnit, DAX_ATTR_ISO_ABILITY, ability);
    }
    if (const auto* pair = tableFirst(PAIR_TABLE); pair != nullptr) {
        return daxHwilIfGet(pair->dst, DAX_ATTR_ISO_ABILITY, ability);
    }
    return STATUS_OK;
}

// The refusal for the first table that holds rows; null when none does.
const char* tableInUse() {
    if (!listIsEmpty(&gPortIsoInfo.ifInnerList)) {
        return "set api; if pair inner table not empty, can't change mode\n\r";
    }
    if (!listIsEmpty(&gPortIsoInfo.ifGrpList)) {
        return "set api; if group table not empty, can't change mode\n\r";
    }
    if (!listIsEmpty(&gPortIsoInfo.ifPairList)) {
        return "set api; if pair table not empty, can't change mode\n\r";
    }
    return nullptr;
}

int32_t setMode(uint32_t* value, uint32_t flags) {
    const int32_t mirrored =
        portIsolatePeerMirror({0, DAX_MIRROR_SCALAR + SCALAR_MODE, flags, 0, DAX_MIRROR_WORD_LENGTH}, value);
    if (mirrored != 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_WORK, "set api; sync mode failed.(%d)\n\r", mirrored);
        return mirrored;
    }
    if (*value == gPortIsoInfo.mode) return STATUS_OK;

    uint32_t ability = DAX_ABILITY_SYMMETRIC;
    const int32_t result = readDecidingAbility(&ability);
    if ((gPortIsoInfo.isSrcTrunkToPort == 0 && gPortIsoInfo.isDstTrunkToPort != 0) ||
        ability == DAX_ABILITY_RESTRICTED) {
        const char* refusal = tableInUse();
        if (refusal != nullptr) {
            portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "%s", refusal);
            return STATUS_MODE_IN_USE;
        }
    }
    if (portIsolateModePush(value) != 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_WORK, "set api; set port-isolate mode failed.(%d)\n\r",
                         *value);
    }
    // The mode changes even if the platform refused it; the result is the status of the ability read.
    gPortIsoInfo.mode = *value;
    return result;
}

int32_t setSerialTable(const DataDesc* record) {
    if (record->data == nullptr) return STATUS_OK;
    if (*static_cast<const uint8_t*>(record->data) != SERIAL_RECORD_KIND) return STATUS_OK;
    return portIsolateSerialInfoSyncParse(record);
}

int32_t writeWord(void* value, uint32_t word) {
    std::memcpy(value, &word, sizeof(word));
    return STATUS_OK;
}

// `capacity`: bytes that the buffer must hold, which may be more than are written.
int32_t writeBytes(void* value, const void* bytes, uint32_t length, uint32_t capacity) {
    auto* buffer = static_cast<DataDesc*>(value);
    if (buffer->length < capacity) return STATUS_BUFFER_TOO_SMALL;
    if (buffer->data == nullptr && length != 0) return STATUS_BUFFER_TOO_SMALL;
    if (length != 0) std::memcpy(buffer->data, bytes, length);
    buffer->length = length;
    return STATUS_OK;
}

// Words 0 and 2 of the record; word 1 stays what the caller had there.
int32_t writeCapability(void* value) {
    auto* buffer = static_cast<DataDesc*>(value);
    if (buffer->data == nullptr || buffer->length < CAPABILITY_LENGTH) return STATUS_BAD_BUFFER;
    auto* bytes = static_cast<uint8_t*>(buffer->data);
    writeWord(bytes, 1);
    writeWord(bytes + 8, 2);
    buffer->length = CAPABILITY_LENGTH;
    return STATUS_OK;
}

int32_t getScalar(uint32_t id, void* value) {
    PortIsoInfo& info = gPortIsoInfo;
    switch (id) {
        case SCALAR_MODE:
            return writeWord(value, info.mode);
        case SCALAR_MAX_PORT_NUM:
            return writeWord(value, info.maxPortNum);
        case SCALAR_MAX_PORT_NUM_PER_GRP:
            return writeWord(value, info.maxPortNumPerGrp);
        case SCALAR_MAX_ISO_GRP_NUM:
            return writeWord(value, info.maxIsoGrpNum);
        case SCALAR_MAX_UNI_ISO_PORT_NUM:
            return writeWord(value, info.maxUniIsoPortNum);
        case SCALAR_GRP_COUNT:
            return writeWord(value, tableCount(GROUP_TABLE));
        case SCALAR_GRP_POOL_FREE:
            return writeWord(value, silMemPoolFreeSize(&info.ifGrpPool));
        case SCALAR_INNER_COUNT:
            return writeWord(value, tableCount(INNER_TABLE));
        case SCALAR_PAIR_COUNT:
            return writeWord(value, tableCount(PAIR_TABLE));
        case SCALAR_PAIR_POOL_FREE:
            return writeWord(value, silMemPoolFreeSize(&info.ifPairPool));
        case SCALAR_DEBUG_MASK:
            return writeWord(value, info.debugMask);
        case SCALAR_VERSION:
            return writeBytes(value, VERSION, VERSION_LENGTH, VERSION_LENGTH + 1);
        case SCALAR_MODE_ABILITY:
            return writeBytes(value, info.modeAbility, sizeof(info.modeAbility), sizeof(info.modeAbility));
        case SCALAR_DEFAULT_MODE:
            return writeWord(value, info.defaultMode);
        case SCALAR_P2P_ENABLE_VLAN:
            return writeBytes(value, info.p2pEnableVlan, info.p2pEnableVlanLen, info.p2pEnableVlanLen);
        case SCALAR_VLAN_GROUP_ENABLE:
            return writeWord(value, info.vlanGroupEnable);
        case SCALAR_CAPABILITY:
            return writeCapability(value);
        default:
            return STATUS_NOT_SUPPORTED;
    }
}

}  // namespace

int32_t _portIsolateScalarSetApi(void* /*index*/, uint32_t id, void* value, uint32_t flags) {
    if (value == nullptr) return STATUS_NULL_ARGUMENT;
    return underSemaphore([&] {
        switch (id) {
            case SCALAR_DEBUG_MASK:
                portIsolateDebugMaskSet(*static_cast<uint32_t*>(value));
                return STATUS_OK;
            case SCALAR_SERIAL_TABLE:
                return setSerialTable(static_cast<DataDesc*>(value));
            case SCALAR_MODE:
                return setMode(static_cast<uint32_t*>(value), flags);
            default:
                return STATUS_NOT_SUPPORTED;
        }
    });
}

int32_t portIsolateScalarSetApi(void* index, uint32_t id, void* value) {
    return _portIsolateScalarSetApi(index, id, value, DAX_MIRROR_FLAGS_SET);
}

int32_t portIsolateScalarSyncApi(void* index, uint32_t id, void* value) {
    return _portIsolateScalarSetApi(index, id, value, DAX_MIRROR_FLAGS_SYNC);
}

int32_t portIsolateScalarGetApi(void* /*index*/, uint32_t id, void* value) {
    if (value == nullptr) return STATUS_NULL_ARGUMENT;
    return underSemaphore([&] { return getScalar(id, value); });
}
