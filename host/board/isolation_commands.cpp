#include "host/board/isolation_commands.h"

#include <cstring>

#include "common/bytes.h"
#include "host/board/plane_turn.h"
#include "wire/records.h"
#include "wire/status.h"

namespace {

struct IsolationCommand {
    bool twoWay;
    bool add;
    bool inVlan;
};

// By attribute.
constexpr struct {
    uint32_t attrId;
    IsolationCommand command;
} COMMANDS[] = {
    {DAX_ISO_BI_ADD, {.twoWay = true, .add = true, .inVlan = false}},
    {DAX_ISO_BI_DEL, {.twoWay = true, .add = false, .inVlan = false}},
    {DAX_ISO_BI_VLAN_ADD, {.twoWay = true, .add = true, .inVlan = true}},
    {DAX_ISO_BI_VLAN_DEL, {.twoWay = true, .add = false, .inVlan = true}},
    {DAX_ISO_UNI_ADD, {.twoWay = false, .add = true, .inVlan = false}},
    {DAX_ISO_UNI_DEL, {.twoWay = false, .add = false, .inVlan = false}},
};

// Null for an attribute that is no isolation.
const IsolationCommand* findCommand(uint32_t attrId) {
    for (const auto& one : COMMANDS) {
        if (one.attrId == attrId) return &one.command;
    }
    return nullptr;
}

// False when the data block is not what the command needs.
bool decodeIsolationData(const AttrSetRecord& record, const IsolationCommand& command, IsolateCmdData& data) {
    data = {};
    if (record.data == nullptr) return false;
    if (!command.twoWay && record.dataLen == sizeof(data.dstIfUnit)) {
        data.dstIfUnit = wordAt(record.data);
        return true;
    }
    if (record.dataLen != sizeof(data)) return false;
    std::memcpy(&data, record.data, sizeof(data));
    return data.op == (command.add ? ISOLATE_OP_ADD : ISOLATE_OP_DEL) && (data.vid != 0) == command.inVlan;
}

}  // namespace

int32_t isolate(Board& board, const Interface& src, const AttrSetRecord* record) {
    if (record == nullptr) return STATUS_BAD_LENGTH;
    const IsolationCommand* command = findCommand(record->attrId);
    IsolateCmdData data = {};
    if (command == nullptr) return STATUS_NOT_SUPPORTED;
    if (!decodeIsolationData(*record, *command, data)) return STATUS_BAD_LENGTH;
    const Interface* dst = findInterface(board, data.dstIfUnit);
    if (dst == nullptr) return STATUS_NOT_FOUND;

    const Plane& plane = board.plane;
    joinTurn(board);
    if (!command->add) {
        const auto remove = command->twoWay ? plane.deleteTwoWay : plane.deleteOneWay;
        return remove(plane.state, src.number, data.dstIfUnit);
    }
    const auto add = command->twoWay ? plane.addTwoWay : plane.addOneWay;
    return add(
        plane.state, planePort(board, src), planePort(board, *dst),
        {.vid = data.vid, .srcSerial = data.srcSerial, .dstSerial = data.dstSerial, .group = data.grpNo});
}

int32_t setPonIsolation(Board& board, uint32_t vid, const DataDesc* data) {
    if (data == nullptr || data->data == nullptr || data->length != sizeof(PonIsolateCmdData) ||
        vid > VLAN_ID_MAX) {
        return STATUS_BAD_LENGTH;
    }
    const uint8_t state = static_cast<const PonIsolateCmdData*>(data->data)->state;
    if (state != PON_ISOLATION_ON && state != PON_ISOLATION_OFF) return STATUS_BAD_LENGTH;
    joinTurn(board);
    return board.plane.setPon(board.plane.state, vid, state == PON_ISOLATION_ON, presentSlots(board));
}
