#include "daemon/hw/pon_isolation.h"

#include <cstring>

#include "daemon/base/report.h"
#include "platform/hardware.h"

int32_t portIsolatePonIsolateSetOne(uint32_t vlan, uint32_t value, uint8_t state) {
    PonIsolateCmdData block = {};
    static_assert(sizeof(block.value) == sizeof(value));
    std::memcpy(block.value, &value, sizeof(value));
    block.state = state;
    DataDesc data = {&block, sizeof(block)};
    HwCmdControl control = {};
    control.flags = DAX_PON_ISOLATE_FLAGS;
    control.keyLength = sizeof(vlan);
    control.dataLength = sizeof(block);
    return daxHwilCmdSetApi(vlan, DAX_CMD_PON_ISOLATE, &data, &control);
}

int32_t portIsolatePonIsolateSet(uint32_t vlan, uint32_t state, uint8_t /*unused*/) {
    const int32_t status = portIsolatePonIsolateSetOne(vlan, 0, static_cast<uint8_t>(state));
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK,
                     "set portisolate vlan pon isolate. [vid: %u enable %d ret: %d]\n\r", vlan, state,
                     status);
    return status;
}
