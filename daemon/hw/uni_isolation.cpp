#include "daemon/hw/uni_isolation.h"

#include "daemon/base/report.h"
#include "daemon/hw/isolate_command.h"
#include "daemon/tables/serials.h"
#include "wire/status.h"

namespace {

bool withSerials() {
    return gPortIsoInfo.isSupportSerial != 0;
}

// Sends the command and reports how it went. Without serial numbers its data is the target's ifUnit alone.
void sendCommand(uint32_t src, uint32_t dst, uint8_t op, const SerialPair& serials) {
    const uint32_t attrId = op == ISOLATE_OP_ADD ? DAX_ISO_UNI_ADD : DAX_ISO_UNI_DEL;
    int32_t status = 0;
    if (withSerials()) {
        IsolateCmdData data = {};
        data.dstIfUnit = dst;
        data.srcSerial = serials.src;
        data.dstSerial = serials.dst;
        data.op = op;
        status = isolateCommandSend(src, attrId, &data, sizeof(data));
    } else {
        status = isolateCommandSend(src, attrId, &dst, sizeof(dst));
    }
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "%s hw-phy uni-isolate [src: %s, target: %s] %s\n\r",
                       isolateOpText(op), isolatePortText(src, withSerials(), serials.src).text,
                       isolatePortText(dst, withSerials(), serials.dst).text, isolateResultText(status));
    if (status != 0) isolateLogRefusal(src, dst, 0, "uni-isolate", 0, op);
}

}  // namespace

int32_t portIsolateAddHwPhyUniIsolate(uint32_t src, uint32_t dst) {
    SerialPair serials = {};
    if (withSerials() && serialPairClaim(src, dst, &serials) != 0) return STATUS_FAILED;
    sendCommand(src, dst, ISOLATE_OP_ADD, serials);
    return STATUS_OK;
}

int32_t portIsolateDelHwPhyUniIsolate(uint32_t src, uint32_t dst) {
    sendCommand(src, dst, ISOLATE_OP_DEL, withSerials() ? serialPairGet(src, dst) : SerialPair{});
    serialPairRelease(src, dst);
    return STATUS_OK;
}
