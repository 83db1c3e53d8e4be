#include "daemon/hw/peer_mirror.h"

#include "platform/hardware.h"

int32_t portIsolatePeerMirror(const PeerMirror& mirror, void* value) {
    HwCmdControl control = {};
    control.flags = mirror.flags;
    control.keyLength = mirror.keyLength;
    control.dataLength = mirror.dataLength;
    return daxHwilCmdSyncApi(mirror.key, mirror.command, value, &control);
}
