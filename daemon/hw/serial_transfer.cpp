#include "daemon/hw/serial_transfer.h"

#include <cstring>

#include "daemon/base/report.h"
#include "daemon/hw/peer_mirror.h"
#include "platform/mirror.h"
#include "wire/scalars.h"
#include "wire/status.h"

int32_t portIsolateSerialInfoSyncSend() {
    if (daxHwilScalarGet(0, DAX_HWSCALAR_SERIAL_SENDER, nullptr) == 0) return STATUS_OK;
    int32_t status = STATUS_FAILED;
    if (gPortIsoInfo.maxPortNum <= SERIAL_RECORD_SLOTS_MAX) {
        uint8_t record[SERIAL_RECORD_LENGTH] = {SERIAL_RECORD_KIND};
        const uint32_t words = gPortIsoInfo.maxPortNum * static_cast<uint32_t>(sizeof(uint32_t));
        std::memcpy(record + SERIAL_RECORD_SLOTS, gPortIsoInfo.serialTable, words);
        DataDesc data = {record, SERIAL_RECORD_SLOTS + words};
        status = portIsolatePeerMirror(
            {0, DAX_MIRROR_SCALAR + SCALAR_SERIAL_TABLE, DAX_MIRROR_FLAGS_SERIALS, 0, data.length}, &data);
    }
    if (status != 0) {
        portIsolateDebug(LEVEL_FAILURE, CATEGORY_SERIAL, "scalar sync send failed.(%d)\r\n", status);
    }
    return status;
}

int32_t portIsolateSerialInfoSyncParse(const DataDesc* record) {
    if (daxHwilScalarGet(0, DAX_HWSCALAR_SERIAL_RECEIVER, nullptr) == 0) return STATUS_OK;
    if (gPortIsoInfo.maxPortNum > SERIAL_RECORD_SLOTS_MAX) return STATUS_OK;
    std::memcpy(gPortIsoInfo.serialTable, static_cast<const uint8_t*>(record->data) + SERIAL_RECORD_SLOTS,
                gPortIsoInfo.maxPortNum * sizeof(uint32_t));
    return STATUS_OK;
}
