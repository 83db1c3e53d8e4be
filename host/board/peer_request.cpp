#include "host/board/peer_request.h"

#include "common/bytes.h"
#include "platform/mirror.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"
#include "wire/scalars.h"

namespace {

struct MirrorRange {
    uint32_t base;  // command id of column 0
    PortIsolateOpcode opcode;
};
constexpr MirrorRange MIRROR_RANGES[] = {
    {DAX_MIRROR_SCALAR, OP_SCALAR_SYNC},
    {DAX_MIRROR_GROUP, OP_GROUP_SYNC},
    {DAX_MIRROR_PAIR, OP_PAIR_SYNC},
    {DAX_MIRROR_VLAN, OP_VLAN_SYNC},
    {DAX_MIRROR_VLAN_GROUP, OP_VLAN_GROUP_SYNC},
};

}  // namespace

bool decodePeerRequest(uintptr_t key, uint32_t command, const void* data, const HwCmdControl& control,
                       PeerRequest& request) {
    const MirrorRange* range = nullptr;
    for (const MirrorRange& one : MIRROR_RANGES) {
        if (command - one.base < DAX_MIRROR_COLUMNS) range = &one;
    }
    if (range == nullptr) return false;
    request.opcode = range->opcode;
    request.column = command - range->base;
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[range->opcode];
    if (shape.indexIsNumber) {
        request.number = static_cast<uint32_t>(key);
        request.index = &request.number;
        request.indexLength = sizeof(request.number);
    } else if (shape.indexLength != 0) {
        request.index = reinterpret_cast<const void*>(key);
        request.indexLength = control.keyLength;
    }
    const bool isBuffer = range->opcode == OP_SCALAR_SYNC && portIsolateScalarIsBuffer(request.column);
    if (data != nullptr && isBuffer) {
        request.value = static_cast<const DataDesc*>(data)->data;
        request.valueLength = static_cast<const DataDesc*>(data)->length;
    } else if (data != nullptr) {
        request.value = data;
        request.valueLength = sizeof(uint32_t);
    }
    if (request.index == nullptr) request.indexLength = 0;
    if (request.value == nullptr) request.valueLength = 0;
    return request.indexLength <= COMMAND_VALUE_MAX && request.valueLength <= COMMAND_VALUE_MAX;
}

std::string requestFrame(const PeerRequest& request) {
    std::string frame;
    appendWord(frame, COMMAND_WORDS_MIN + request.indexLength + request.valueLength);
    appendWord(frame, request.opcode);
    appendWord(frame, request.column);
    appendWord(frame, request.indexLength);
    frame.append(static_cast<const char*>(request.index), request.indexLength);
    appendWord(frame, request.valueLength);
    frame.append(static_cast<const char*>(request.value), request.valueLength);
    return frame;
}

bool isProbe(const PeerRequest& request) {
    const bool row = request.opcode == OP_GROUP_SYNC || request.opcode == OP_PAIR_SYNC ||
                     request.opcode == OP_VLAN_GROUP_SYNC;
    return row && request.valueLength == WORD_SIZE && wordAt(request.value) == ROW_PROBE;
}
