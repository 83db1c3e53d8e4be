#include "daemon/hw/pon_isolation.h"

#include <cstring>

#include "daemon/base/report.h"
#include "platform/hardware.h"

namespace {

constexpr uint32_t CONTROL_FLAGS = 0x90000000;
constexpr uint32_t VLAN_KEY_LENGTH = 4;
constexpr uint32_t BLOCK_SIZE = 5;  // a 4-byte value, then the state
constexpr uint32_t BLOCK_STATE = 4;

}  // namespace

int32_t portIsolatePonIsolateSetOne(uint32_t vlan, uint32_t value, uint8_t state) {
    uint8_t block[BLOCK_SIZE];
    std::memcpy(block, &value, sizeof(value));
    block[BLOCK_STATE] = state;
    DataDesc data = {block, BLOCK_SIZE};
    HwCmdControl control = {};
    control.flags = CONTROL_FLAGS;
    control.keyLength = VLAN_KEY_LENGTH;
    control.dataLength = BLOCK_SIZE;
    return daxHwilCmdSetApi(vlan, DAX_CMD_PON_ISOLATE, &data, &control);
}

int32_t portIsolatePonIsolateSet(uint32_t vlan, uint32_t state, uint8_t /*unused*/) {
    const int32_t status = portIsolatePonIsolateSetOne(vlan, 0, static_cast<uint8_t>(state));
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK,
                     "set portisolate vlan pon isolate. [vid: %u enable %d ret: %d]\n\r", vlan, state,
                     status);
    return status;
}
