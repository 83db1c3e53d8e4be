// The interface and hardware layer on top of the board. Every call passes through one gate, where the fault
// rules may answer it and the journal writes it down.
#include "host/board/this_board.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/local_socket.h"
#include "common/text.h"
#include "host/board/faults.h"
#include "host/board/journal.h"
#include "host/board/peer_link.h"
#include "host/linux/link_watch.h"
#include "host/services/logging.h"
#include "platform/hardware.h"
#include "wire/statuses.h"

namespace {
constexpr char BOARD_FILE[] = "/etc/portisolate/board.conf";

// The location record of daxIndexTrans.
constexpr uint32_t LOCATION_CHASSIS = 0;
constexpr uint32_t LOCATION_SLOT = 1;
constexpr uint32_t LOCATION_KIND_PORT = 1;
constexpr uint32_t LOCATION_KIND_TRUNK = 2;
constexpr uint32_t CHASSIS = 1;

// The data block of DAX_CMD_PON_ISOLATE: four bytes without a meaning here, then the state.
constexpr uint32_t PON_DATA_LENGTH = 5;
constexpr uint32_t PON_STATE_OFFSET = 4;
constexpr uint8_t PON_STATE_ON = 1;
constexpr uint8_t PON_STATE_OFF = 2;

constexpr uint32_t CARD_RECORD_LENGTH = 16;

constexpr const char* CALLS[] = {
    "daxIfGetApi",      "daxEthAggIfGetApi", "daxIndexTrans",     "daxHwilIfGet",
    "daxIfSyncApi",     "daxVlanSetApi",     "daxScalarSetApi",   "daxHwilScalarSet",
    "daxHwilScalarGet", "daxHwilCmdSetApi",  "daxHwilCmdSyncApi", "daxCardUpPcsSet",
};

template <typename Body>
int32_t throughGate(const HardwareCall& call, Body&& body) {
    const auto fault = faultFor(call);
    const int32_t status = fault ? *fault : body();
    journalCall(call, status);
    return status;
}

// As throughGate, with the board's lock held during the body. The body gets the interface of the call.
template <typename Body>
int32_t onInterface(const HardwareCall& call, Body&& body) {
    return throughGate(call, [&] {
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        Interface* interface = findInterface(board, call.key);
        return interface == nullptr ? HOST_STATUS_NOT_FOUND : body(board, *interface);
    });
}

uint32_t wordAt(const void* data) {
    uint32_t word = 0;
    if (data != nullptr) memcpy(&word, data, sizeof word);
    return word;
}

struct IsolationCommand {
    bool twoWay;
    bool add;
    bool inVlan;
};

bool decodeIsolation(uint32_t attrId, IsolationCommand& command) {
    switch (attrId) {
        case DAX_ISO_BI_ADD:
            command = {true, true, false};
            return true;
        case DAX_ISO_BI_DEL:
            command = {true, false, false};
            return true;
        case DAX_ISO_BI_VLAN_ADD:
            command = {true, true, true};
            return true;
        case DAX_ISO_BI_VLAN_DEL:
            command = {true, false, true};
            return true;
        case DAX_ISO_UNI_ADD:
            command = {false, true, false};
            return true;
        case DAX_ISO_UNI_DEL:
            command = {false, false, false};
            return true;
        default:
            return false;
    }
}

// False when the data block is not what the command needs.
bool decodeIsolationData(const AttrSetRecord& record, const IsolationCommand& command, IsolateCmdData& data) {
    data = {};
    if (record.data == nullptr) return false;
    if (!command.twoWay && record.dataLen == sizeof data.dstIfUnit) {
        data.dstIfUnit = wordAt(record.data);
        return true;
    }
    if (record.dataLen != sizeof data) return false;
    memcpy(&data, record.data, sizeof data);
    return data.op == (command.add ? ISOLATE_OP_ADD : ISOLATE_OP_DEL) && (data.vid != 0) == command.inVlan;
}

int32_t isolate(Board& board, const Interface& src, const AttrSetRecord* record) {
    IsolationCommand command = {};
    IsolateCmdData data = {};
    if (record == nullptr) return HOST_STATUS_BAD_ARGUMENT;
    if (!decodeIsolation(record->attrId, command)) return HOST_STATUS_NOT_SUPPORTED;
    if (!decodeIsolationData(*record, command, data)) return HOST_STATUS_BAD_ARGUMENT;
    const Interface* dst = findInterface(board, data.dstIfUnit);
    if (dst == nullptr) return HOST_STATUS_NOT_FOUND;

    const Plane& plane = board.plane;
    const PlaneIsolation isolation = {data.vid, data.srcSerial, data.dstSerial, data.grpNo};
    if (command.twoWay && command.add)
        return plane.addTwoWay(plane.state, planePort(board, src), planePort(board, *dst), isolation);
    if (command.twoWay) return plane.deleteTwoWay(plane.state, src.number, data.dstIfUnit);
    if (command.add)
        return plane.addOneWay(plane.state, planePort(board, src), planePort(board, *dst), isolation);
    return plane.deleteOneWay(plane.state, src.number, data.dstIfUnit);
}

bool switchesProtocol(uint32_t opcode) {
    return opcode == DAX_IF_PROTO_ENABLE || opcode == DAX_IF_PROTO_DISABLE;
}

int32_t setPonIsolation(Board& board, uint32_t vid, const DataDesc* data) {
    if (data == nullptr || data->data == nullptr || data->length != PON_DATA_LENGTH || vid > VLAN_ID_MAX)
        return HOST_STATUS_BAD_ARGUMENT;
    const uint8_t state = static_cast<const uint8_t*>(data->data)[PON_STATE_OFFSET];
    if (state != PON_STATE_ON && state != PON_STATE_OFF) return HOST_STATUS_BAD_ARGUMENT;
    return board.plane.setPon(board.plane.state, vid, state == PON_STATE_ON, presentSlots(board));
}

void fillLocation(Board& board, const Interface& interface, uint32_t* record) {
    memset(record, 0, DAX_LOCATION_WORDS * sizeof *record);
    record[LOCATION_CHASSIS] = CHASSIS;
    record[LOCATION_SLOT] = slotOf(board, interface);
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

bool isHardwareCall(const char* name) {
    for (const char* call : CALLS) {
        if (strcmp(call, name) == 0) return true;
    }
    return false;
}

Board& theBoard() {
    // Never destroyed: tasks use it until the process ends.
    static Board& board = *new Board;
    return board;
}

void loadBoard() {
    Board& board = theBoard();
    const std::string path = rootedPath(BOARD_FILE);
    std::string text;
    if (!readTextFile(path, text))
        hostReport("board without interfaces: %s: %s", path.c_str(), strerror(errno));
    {
        std::lock_guard guard(board.lock);
        readBoard(text, path.c_str(), board);
    }
    startLinuxBoard(board);
}

void openBoardJournal() {
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    if (board.journalFile.empty()) return;
    const std::string journal = rootedPath(board.journalFile.c_str());
    const int problem = openJournalFile(journal);
    if (problem != 0) hostReport("no journal: %s: %s", journal.c_str(), strerror(problem));
}

char* daxIfUnit2Name(uint32_t ifUnit, char* name, uint32_t size) {
    if (name == nullptr || size == 0) return name;
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    const Interface* interface = findInterface(board, ifUnit);
    if (interface != nullptr)
        snprintf(name, size, "%s", interface->name.c_str());
    else
        snprintf(name, size, "if%u", ifUnit);
    return name;
}

int32_t daxIfGetApi(uint32_t ifUnit, uint32_t attr, uint32_t* word) {
    const HardwareCall call = {"daxIfGetApi", ifUnit, attr, {{"ifUnit", ifUnit}, {"attr", attr}, {}}};
    return onInterface(call, [&](Board&, const Interface& interface) {
        if (attr != DAX_IF_ATTR_FLAGS || word == nullptr) return HOST_STATUS_NOT_SUPPORTED;
        *word = (interface.kind == IfKind::trunk ? DAX_IF_FLAG_TRUNK : 0) |
                (interface.trunk != 0 ? DAX_IF_FLAG_TRUNK_MEMBER : 0);
        return 0;
    });
}

int32_t daxEthAggIfGetApi(uint32_t trunk, uint32_t attr, DataDesc* members) {
    const HardwareCall call = {"daxEthAggIfGetApi", trunk, attr, {{"ifUnit", trunk}, {"attr", attr}, {}}};
    return onInterface(call, [&](Board&, const Interface& interface) {
        if (attr != DAX_AGG_ATTR_MEMBERS || interface.kind != IfKind::trunk) return HOST_STATUS_NOT_SUPPORTED;
        if (members == nullptr || members->data == nullptr) return HOST_STATUS_BAD_ARGUMENT;
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
        if (mode != DAX_INDEX_LOCATION || record == nullptr) return HOST_STATUS_NOT_SUPPORTED;
        fillLocation(board, interface, record);
        return 0;
    });
}

int32_t daxHwilIfGet(uint32_t ifUnit, uint32_t attr, uint32_t* word) {
    const HardwareCall call = {"daxHwilIfGet", ifUnit, attr, {{"ifUnit", ifUnit}, {"attr", attr}, {}}};
    return onInterface(call, [&](Board&, const Interface& interface) {
        if (attr != DAX_ATTR_ISO_ABILITY || word == nullptr) return HOST_STATUS_NOT_SUPPORTED;
        *word = interface.ability;
        return 0;
    });
}

int32_t daxIfSyncApi(uint32_t ifUnit, uint32_t opcode, void* record) {
    HardwareCall call = {"daxIfSyncApi", ifUnit, opcode, {{"ifUnit", ifUnit}, {"opcode", opcode}, {}}};
    if (opcode == DAX_IF_ISOLATE)
        describeData(call, static_cast<const AttrSetRecord*>(record));
    else if (switchesProtocol(opcode))
        call.words[2] = {"protocol", wordAt(record)};
    return onInterface(call, [&](Board& board, Interface& interface) {
        if (opcode == DAX_IF_ISOLATE)
            return isolate(board, interface, static_cast<const AttrSetRecord*>(record));
        if (!switchesProtocol(opcode)) return HOST_STATUS_NOT_SUPPORTED;
        interface.protocol = opcode == DAX_IF_PROTO_ENABLE;
        return 0;
    });
}

int32_t daxVlanSetApi(uint32_t vlan, uint32_t opcode, void* protocolId) {
    const HardwareCall call = {"daxVlanSetApi",
                               vlan,
                               opcode,
                               {{"vlan", vlan}, {"opcode", opcode}, {"protocol", wordAt(protocolId)}}};
    return throughGate(call, [&] {
        if (!switchesProtocol(opcode)) return HOST_STATUS_NOT_SUPPORTED;
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        if (opcode == DAX_IF_PROTO_ENABLE)
            board.protocolVlans.insert(vlan);
        else
            board.protocolVlans.erase(vlan);
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
        if (call.data == nullptr) return HOST_STATUS_NOT_SUPPORTED;
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        board.mode = wordAt(call.data);
        return 0;
    });
}

int32_t daxHwilScalarSet(uint32_t unit, uint32_t scalar, void* value, uint32_t) {
    const HardwareCall call = {
        "daxHwilScalarSet", unit, scalar, {{"unit", unit}, {"scalar", scalar}, {"value", wordAt(value)}}};
    return throughGate(call,
                       [&] { return scalar == DAX_HWSCALAR_PROTO_OWNER ? 0 : HOST_STATUS_NOT_SUPPORTED; });
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
        if (command != DAX_CMD_PON_ISOLATE) return HOST_STATUS_NOT_SUPPORTED;
        Board& board = theBoard();
        std::lock_guard guard(board.lock);
        return setPonIsolation(board, key, data);
    });
}

int32_t daxHwilCmdSyncApi(uintptr_t key, uint32_t command, void* data, HwCmdControl* control) {
    PeerRequest request;
    const bool known = control != nullptr && decodePeerRequest(key, command, data, *control, request);
    HardwareCall call = {"daxHwilCmdSyncApi", wordAt(request.index), command, {{"command", command}, {}, {}}};
    call.control = control;
    call.index = request.indexLength == 0 ? nullptr : request.index;
    call.indexLength = request.indexLength;
    call.data = request.value;
    call.dataLength = request.valueLength;
    return throughGate(
        call, [&] { return known ? mirrorToPeer(request, control->flags) : HOST_STATUS_NOT_SUPPORTED; });
}

int32_t daxCardUpPcsSet(void* card, uint32_t protocol) {
    HardwareCall call = {"daxCardUpPcsSet", 0, protocol, {{"protocol", protocol}, {}, {}}};
    call.data = card;
    call.dataLength = card == nullptr ? 0 : CARD_RECORD_LENGTH;
    return throughGate(call, [] { return 0; });
}
