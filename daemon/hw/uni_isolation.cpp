#include "daemon/hw/uni_isolation.h"

#include "daemon/base/report.h"
#include "daemon/hw/isolate_command.h"
#include "daemon/tables/serials.h"
#include "wire/status.h"

namespace {

bool withSerials() {
    return gPortIsoInfo.isSupportSerial != 0;
}

// Without serial numbers the command's data is the target's number alone.
int32_t sendCommand(uint32_t src, uint32_t dst, uint8_t op, const SerialPair& serials) {
    const uint32_t attrId = op == ISOLATE_OP_ADD ? DAX_ISO_UNI_ADD : DAX_ISO_UNI_DEL;
    if (!withSerials()) return isolateCommandSend(src, attrId, &dst, sizeof(dst));
    IsolateCmdData data = {};
    data.dstIfUnit = dst;
    data.srcSerial = serials.src;
    data.dstSerial = serials.dst;
    data.op = op;
    return isolateCommandSend(src, attrId, &data, sizeof(data));
}

void logRefusal(uint32_t src, uint32_t dst, const char* operation) {
    portIsolateLog(LEVEL_FAILURE,
                   "failed to operate isolate. (srcIfName=[%s], dstIfName=[%s], vlan=[0], type=[%s], "
                   "group=[%d], operation=[%s])\r\n",
                   ifName(src).text, ifName(dst).text, "uni-isolate", 0, operation);
}

}  // namespace

int32_t portIsolateAddHwPhyUniIsolate(uint32_t src, uint32_t dst) {
    SerialPair serials = {};
    if (withSerials() && serialPairClaim(src, dst, &serials) != 0) return STATUS_FAILED;
    const int32_t status = sendCommand(src, dst, ISOLATE_OP_ADD, serials);
    if (withSerials()) {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "add hw-phy uni-isolate [src: %s/%u, target: %s/%u] %s\n\r", ifName(src).text,
                           serials.src, ifName(dst).text, serials.dst, isolateResultText(status));
    } else {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "add hw-phy uni-isolate [src: %s, target: %s] %s\n\r",
                           ifName(src).text, ifName(dst).text, isolateResultText(status));
    }
    if (status != 0) logRefusal(src, dst, "add");
    return STATUS_OK;
}

int32_t portIsolateDelHwPhyUniIsolate(uint32_t src, uint32_t dst) {
    const SerialPair serials = withSerials() ? serialPairGet(src, dst) : SerialPair{};
    const int32_t status = sendCommand(src, dst, ISOLATE_OP_DEL, serials);
    if (withSerials()) {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK,
                           "del hw-phy uni-isolate [src: %s/%u, target: %s/%u] %s\n\r", ifName(src).text,
                           serials.src, ifName(dst).text, serials.dst, isolateResultText(status));
    } else {
        PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "del hw-phy uni-isolate [src: %s, target: %s] %s\n\r",
                           ifName(src).text, ifName(dst).text, isolateResultText(status));
    }
    if (status != 0) logRefusal(src, dst, "del");
    serialPairRelease(src, dst);
    return STATUS_OK;
}
