#include "daemon/hw/isolate_command.h"

#include <cstdio>

#include "daemon/base/report.h"
#include "daemon/base/state.h"

int32_t isolateCommandSend(uint32_t srcIfUnit, uint32_t attrId, void* data, uint16_t dataLen) {
    AttrSetRecord record = {};
    record.attrId = attrId;
    record.data = data;
    record.flag = gPortIsoInfo.isSrcTrunkToPort != 0 && gPortIsoInfo.isDstTrunkToPort != 0 ? 1 : 0;
    record.dataLen = dataLen;
    return daxIfSyncApi(srcIfUnit, DAX_IF_ISOLATE, &record);
}

const char* isolateOpText(uint8_t op) {
    return op == ISOLATE_OP_ADD ? "add" : "del";
}

const char* isolateResultText(int32_t status) {
    return status == 0 ? "ok" : "failed";
}

IsolatePortText isolatePortText(uint32_t ifUnit, bool withSerial, uint16_t serial) {
    IsolatePortText port;
    const char* format = withSerial ? "%s/%u" : "%s";
    std::snprintf(port.text, sizeof(port.text), format, ifName(ifUnit).text, serial);
    return port;
}

void isolateLogRefusal(uint32_t src, uint32_t dst, uint32_t vid, const char* type, uint32_t grpNo,
                       uint8_t op) {
    portIsolateLog(LEVEL_FAILURE,
                   "failed to operate isolate. (srcIfName=[%s], dstIfName=[%s], vlan=[%d], type=[%s], "
                   "group=[%d], operation=[%s])\r\n",
                   ifName(src).text, ifName(dst).text, vid, type, grpNo, isolateOpText(op));
}
