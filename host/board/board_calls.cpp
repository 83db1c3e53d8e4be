// The interface and hardware layer on top of the board. Every call passes through one gate, where the fault
// rules may answer it and the journal writes it down.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "common/bytes.h"
#include "host/board/faults.h"
#include "host/board/isolation_commands.h"
#include "host/board/journal.h"
#include "host/board/peer_link.h"
#include "host/board/this_board.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "wire/status.h"

namespace {

// Values of the location record of daxIndexTrans.
constexpr uint32_t LOCATION_KIND_PORT = 1;
constexpr uint32_t LOCATION_KIND_TRUNK = 2;
constexpr uint32_t CHASSIS = 1;

// Nothing is thrown across the daemon, which would not give its semaphore back: without memory the call
// fails.
template <typename Body>
int32_t throughGate(const HardwareCall& call, Body&& body) {
    int32_t status = STATUS_FAILED;
    try {
        const auto fault = faultFor(call);
        status = fault ? *fault : body();
        journalCall(call, status);
    } catch (const std::bad_alloc&) {  // of the journal or the call; a call that was carried out stays so
    }
    return status;
}

// As throughGate, with the board's lock held during the body. The body gets the interface of the call.
template <typename Body>
int32_t onInterface(const HardwareCall& call, Body&& body) {
    return throughGate(call, [&] {
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        Interface* interface = findInterface(board, call.key);
        return interface == nullptr ? STATUS_NOT_FOUND : body(board, *interface);
    });
}

uint32_t wordOrZero(const void* data) {
    return data == nullptr ? 0 : wordAt(data);
}

bool switchesProtocol(uint32_t opcode) {
    return opcode == DAX_IF_PROTO_ENABLE || opcode == DAX_IF_PROTO_DISABLE;
}

void fillLocation(Board& board, const Interface& interface, uint32_t* record) {
    std::memset(record, 0, DAX_LOCATION_WORDS * sizeof(*record));
    record[DAX_LOCATION_CHASSIS] = CHASSIS;
    record[DAX_LOCATION_SLOT] = slotOf(board, interface);
    record[DAX_LOCATION_VLAN] = interface.vid;
    record[DAX_LOCATION_KIND] = interface.kind == IfKind::vlan    ? DAX_LOCATION_KIND_VLAN
                                : interface.kind == IfKind::trunk ? LOCATION_KIND_TRUNK
                                                                  : LOCATION_KIND_PORT;
}

void describeData(HardwareCall& call, const AttrSetRecord* record) {
    call.record = record;
    if (record == nullptr) return;
    call.data = record->data;
    call.dataLength = record->dataLen;
}

}  // namespace

char* daxIfUnit2Name(uint32_t ifUnit, char* name, uint32_t size) {
    if (name == nullptr || size == 0) return name;
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    const Interface* interface = findInterface(board, ifUnit);
    if (interface != nullptr) {
        std::snprintf(name, size, "%s", interface->name.c_str());
    } else {
        std::snprintf(name, size, "if%u", ifUnit);
    }
    return name;
}

int32_t daxIfGetApi(uint32_t ifUnit, uint32_t attr, uint32_t* word) {
    const HardwareCall call = {"daxIfGetApi", ifUnit, attr, {{"ifUnit", ifUnit}, {"attr", attr}, {}}};
    return onInterface(call, [&](Board&, const Interface& interface) {
        if (attr != DAX_IF_ATTR_FLAGS || word == nullptr) return STATUS_NOT_SUPPORTED;
        *word = (interface.kind == IfKind::trunk ? DAX_IF_FLAG_TRUNK : 0) |
                (interface.trunk != 0 ? DAX_IF_FLAG_TRUNK_MEMBER : 0);
        return 0;
    });
}

int32_t daxEthAggIfGetApi(uint32_t trunk, uint32_t attr, DataDesc* members) {
    const HardwareCall call = {"daxEthAggIfGetApi", trunk, attr, {{"ifUnit", trunk}, {"attr", attr}, {}}};
    return onInterface(call, [&](Board&, const Interface& interface) {
        if (attr != DAX_AGG_ATTR_MEMBERS || interface.kind != IfKind::trunk) return STATUS_NOT_SUPPORTED;
        if (members == nullptr || members->data == nullptr) return STATUS_BAD_LENGTH;
        const uint32_t room = members->length / static_cast<uint32_t>(sizeof(uint32_t));
        const uint32_t count = std::min(room, static_cast<uint32_t>(interface.members.size()));
        std::copy_n(interface.members.begin(), count, static_cast<uint32_t*>(members->data));
        members->length = count * static_cast<uint32_t>(sizeof(uint32_t));
        return 0;
    });
}

int32_t daxIndexTrans(uint32_t ifUnit, uint32_t mode, uint32_t* record) {
    const HardwareCall call = {"daxIndexTrans", ifUnit, mode, {{"ifUnit", ifUnit}, {"mode", mode}, {}}};
    return onInterface(call, [&](Board& board, const Interface& interface) {
        if (mode != DAX_INDEX_LOCATION || record == nullptr) return STATUS_NOT_SUPPORTED;
        fillLocation(board, interface, record);
        return 0;
    });
}

int32_t daxHwilIfGet(uint32_t ifUnit, uint32_t attr, uint32_t* word) {
    const HardwareCall call = {"daxHwilIfGet", ifUnit, attr, {{"ifUnit", ifUnit}, {"attr", attr}, {}}};
    return onInterface(call, [&](Board&, const Interface& interface) {
        if (attr != DAX_ATTR_ISO_ABILITY || word == nullptr) return STATUS_NOT_SUPPORTED;
        *word = interface.ability;
        return 0;
    });
}

int32_t daxIfSyncApi(uint32_t ifUnit, uint32_t opcode, void* record) {
    HardwareCall call = {"daxIfSyncApi", ifUnit, opcode, {{"ifUnit", ifUnit}, {"opcode", opcode}, {}}};
    if (opcode == DAX_IF_ISOLATE) {
        describeData(call, static_cast<const AttrSetRecord*>(record));
    } else if (switchesProtocol(opcode)) {
        call.words[2] = {"protocol", wordOrZero(record)};
    }
    return onInterface(call, [&](Board& board, Interface& interface) {
        if (opcode == DAX_IF_ISOLATE) {
            return isolate(board, interface, static_cast<const AttrSetRecord*>(record));
        }
        if (!switchesProtocol(opcode)) return STATUS_NOT_SUPPORTED;
        interface.protocol = opcode == DAX_IF_PROTO_ENABLE;
        return 0;
    });
}

int32_t daxVlanSetApi(uint32_t vlan, uint32_t opcode, void* protocolId) {
    const HardwareCall call = {"daxVlanSetApi",
                               vlan,
                               opcode,
                               {{"vlan", vlan}, {"opcode", opcode}, {"protocol", wordOrZero(protocolId)}}};
    return throughGate(call, [&] {
        if (!switchesProtocol(opcode)) return STATUS_NOT_SUPPORTED;
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        if (opcode == DAX_IF_PROTO_ENABLE) {
            board.protocolVlans.insert(vlan);
        } else {
            board.protocolVlans.erase(vlan);
        }
        return 0;
    });
}

int32_t daxScalarSetApi(uint32_t unit, uint32_t index, AttrSetRecord* record) {
    HardwareCall call = {"daxScalarSetApi", unit, index, {{"unit", unit}, {"index", index}, {}}};
    call.record = record;
    if (record != nullptr && record->attrId == DAX_SCALAR_ISO_MODE && record->data != nullptr) {
        // The record gives no length for a scalar word.
        call.data = record->data;
        call.dataLength = sizeof(uint32_t);
    }
    return throughGate(call, [&] {
        if (call.data == nullptr) return STATUS_NOT_SUPPORTED;
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        board.mode = wordAt(call.data);
        return 0;
    });
}

int32_t daxHwilScalarSet(uint32_t unit, uint32_t scalar, void* value, uint32_t) {
    const HardwareCall call = {
        "daxHwilScalarSet", unit, scalar, {{"unit", unit}, {"scalar", scalar}, {"value", wordOrZero(value)}}};
    return throughGate(call, [&] { return scalar == DAX_HWSCALAR_PROTO_OWNER ? 0 : STATUS_NOT_SUPPORTED; });
}

int32_t daxHwilScalarGet(uint32_t unit, uint32_t scalar, void*) {
    const HardwareCall call = {"daxHwilScalarGet", unit, scalar, {{"unit", unit}, {"scalar", scalar}, {}}};
    return throughGate(call, [&] {
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        const bool sender = scalar == DAX_HWSCALAR_SERIAL_SENDER && board.role == Role::active;
        const bool receiver = scalar == DAX_HWSCALAR_SERIAL_RECEIVER && board.role == Role::standby;
        return sender || receiver ? 1 : 0;
    });
}

int32_t daxHwilCmdSetApi(uint32_t key, uint32_t command, DataDesc* data, HwCmdControl* control) {
    HardwareCall call = {"daxHwilCmdSetApi", key, command, {{"key", key}, {"command", command}, {}}};
    call.control = control;
    if (data != nullptr) {
        call.data = data->data;
        call.dataLength = data->length;
    }
    return throughGate(call, [&] {
        if (command != DAX_CMD_PON_ISOLATE) return STATUS_NOT_SUPPORTED;
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        return setPonIsolation(board, key, data);
    });
}

int32_t daxHwilCmdSyncApi(uintptr_t key, uint32_t command, void* data, HwCmdControl* control) {
    PeerRequest request;
    const bool known = control != nullptr && decodePeerRequest(key, command, data, *control, request);
    HardwareCall call = {
        "daxHwilCmdSyncApi", wordOrZero(request.index), command, {{"command", command}, {}, {}}};
    call.control = control;
    call.index = request.indexLength == 0 ? nullptr : request.index;
    call.indexLength = request.indexLength;
    call.data = request.value;
    call.dataLength = request.valueLength;
    return throughGate(call,
                       [&] { return known ? mirrorToPeer(request, control->flags) : STATUS_NOT_SUPPORTED; });
}

int32_t daxCardUpPcsSet(void* card, uint32_t protocol) {
    HardwareCall call = {"daxCardUpPcsSet", 0, protocol, {{"protocol", protocol}, {}, {}}};
    call.data = card;
    call.dataLength = card == nullptr ? 0 : sizeof(RtCardInfo);
    return throughGate(call, [] { return 0; });
}
