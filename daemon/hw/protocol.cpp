#include "daemon/hw/protocol.h"

#include "platform/hardware.h"

int32_t portIsolateProtocolSet(uint32_t ifUnit, uint32_t command) {
    uint32_t protocol = DAX_PROTO_PORT_ISOLATE;
    return daxIfSyncApi(ifUnit, command, &protocol);
}

int32_t portIsolateVlanProtocolSet(uint32_t vlan, uint32_t command) {
    uint32_t protocol = DAX_PROTO_PORT_ISOLATE;
    return daxVlanSetApi(vlan, command, &protocol);
}
