#include "daemon/hw/isolate_command.h"

#include "daemon/base/state.h"

int32_t isolateCommandSend(uint32_t srcIfUnit, uint32_t attrId, void* data, uint16_t dataLen) {
    AttrSetRecord record = {};
    record.attrId = attrId;
    record.data = data;
    record.flag = gPortIsoInfo.isSrcTrunkToPort != 0 && gPortIsoInfo.isDstTrunkToPort != 0 ? 1 : 0;
    record.dataLen = dataLen;
    return daxIfSyncApi(srcIfUnit, DAX_IF_ISOLATE, &record);
}

const char* isolateResultText(int32_t status) {
    return status == 0 ? "ok" : "failed";
}
