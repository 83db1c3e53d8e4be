// The platform's interface and hardware layer: everything the daemon asks of interfaces, trunks, VLANs, the
// forwarding hardware and the peer control board. Declarations only; a board's libraries (or host/) define
// them.
//
// Every call may block and is safe to call from any task. Unless said otherwise a call returns 0 for success
// and a platform status otherwise, which the daemon passes on unchanged. Interfaces are named by `ifUnit`, a
// 32-bit number of a port, a trunk or a VLAN interface.
#pragma once

#include <cstddef>
#include <cstdint>

// The protocol number of this daemon: names the route socket, and is what the protocol commands switch.
inline constexpr uint32_t DAX_PROTO_PORT_ISOLATE = 198;

// Attributes and commands, by the call that takes them.
inline constexpr uint32_t DAX_IF_ATTR_FLAGS = 10;             // daxIfGetApi
inline constexpr uint32_t DAX_AGG_ATTR_MEMBERS = 1005;        // daxEthAggIfGetApi
inline constexpr uint32_t DAX_INDEX_LOCATION = 5;             // daxIndexTrans
inline constexpr uint32_t DAX_ATTR_ISO_ABILITY = 0x03E802B7;  // daxHwilIfGet
inline constexpr uint32_t DAX_IF_ISOLATE = 44;                // daxIfSyncApi, with an AttrSetRecord
inline constexpr uint32_t DAX_IF_PROTO_ENABLE = 56;  // daxIfSyncApi, daxVlanSetApi, with a protocol id
inline constexpr uint32_t DAX_IF_PROTO_DISABLE = 57;
inline constexpr uint32_t DAX_SCALAR_ISO_MODE = 221;          // daxScalarSetApi
inline constexpr uint32_t DAX_HWSCALAR_PROTO_OWNER = 499;     // daxHwilScalarSet
inline constexpr uint32_t DAX_HWSCALAR_SERIAL_RECEIVER = 54;  // daxHwilScalarGet
inline constexpr uint32_t DAX_HWSCALAR_SERIAL_SENDER = 55;    // daxHwilScalarGet
inline constexpr uint32_t DAX_CMD_PON_ISOLATE = 0x06D600E3;   // daxHwilCmdSetApi

// Bits of the DAX_IF_ATTR_FLAGS word.
inline constexpr uint32_t DAX_IF_FLAG_TRUNK = 0x04;
inline constexpr uint32_t DAX_IF_FLAG_TRUNK_MEMBER = 0x10;

// AttrSetRecord.attrId under DAX_IF_ISOLATE.
inline constexpr uint32_t DAX_ISO_BI_ADD = 0x03E80155;
inline constexpr uint32_t DAX_ISO_BI_DEL = 0x03E80156;
inline constexpr uint32_t DAX_ISO_UNI_ADD = 0x03E80157;
inline constexpr uint32_t DAX_ISO_UNI_DEL = 0x03E80158;
inline constexpr uint32_t DAX_ISO_BI_VLAN_ADD = 0x03E80159;
inline constexpr uint32_t DAX_ISO_BI_VLAN_DEL = 0x03E8015A;

// The location record of daxIndexTrans: eight words, of which these have a meaning to the daemon.
inline constexpr uint32_t DAX_LOCATION_WORDS = 8;
inline constexpr uint32_t DAX_LOCATION_VLAN = 4;
inline constexpr uint32_t DAX_LOCATION_KIND = 5;
inline constexpr uint32_t DAX_LOCATION_KIND_VLAN = 3;  // value of word DAX_LOCATION_KIND

// Describes a block of bytes that somebody else owns.
struct DataDesc {
    void* data;
    uint32_t length;  // bytes
};

// One attribute to be set on an interface or as a scalar.
struct AttrSetRecord {
    uint32_t attrId;
    void* data;
    uint8_t flag;
    uint8_t zero;
    uint16_t dataLen;  // bytes at `data`
    uint8_t reserved[8];
};

// Control block of hardware commands; words not named are 0.
struct HwCmdControl {
    uint32_t flags;
    uint32_t keyLength;  // bytes
    uint32_t reserved1[2];
    uint32_t dataLength;  // bytes
    uint32_t reserved2[11];
};

// Data of an isolation command between two ports; the first port is the interface that the command is sent
// to.
struct IsolateCmdData {
    uint32_t dstIfUnit;
    uint16_t srcSerial;  // serial number (slot + 1), 0 when serial numbers are not in use
    uint16_t dstSerial;
    uint16_t reserved1;
    uint16_t vid;  // 0: all traffic
    uint32_t grpNo;
    uint8_t reserved2;
    uint8_t op;
    uint8_t reserved3[6];
};

inline constexpr uint8_t ISOLATE_OP_ADD = 1;
inline constexpr uint8_t ISOLATE_OP_DEL = 2;

static_assert(sizeof(IsolateCmdData) == 24 && offsetof(IsolateCmdData, dstIfUnit) == 0 &&
              offsetof(IsolateCmdData, srcSerial) == 4 && offsetof(IsolateCmdData, dstSerial) == 6 &&
              offsetof(IsolateCmdData, reserved1) == 8 && offsetof(IsolateCmdData, vid) == 10 &&
              offsetof(IsolateCmdData, grpNo) == 12 && offsetof(IsolateCmdData, reserved2) == 16 &&
              offsetof(IsolateCmdData, op) == 17 && offsetof(IsolateCmdData, reserved3) == 18);
static_assert(sizeof(HwCmdControl) == 64 && offsetof(HwCmdControl, flags) == 0 &&
              offsetof(HwCmdControl, keyLength) == 4 && offsetof(HwCmdControl, dataLength) == 16);
// Records that hold addresses have their fixed layout where addresses are 4 bytes.
static_assert(sizeof(void*) != 4 || (sizeof(DataDesc) == 8 && offsetof(DataDesc, length) == 4));
static_assert(sizeof(void*) != 4 ||
              (sizeof(AttrSetRecord) == 20 && offsetof(AttrSetRecord, attrId) == 0 &&
               offsetof(AttrSetRecord, data) == 4 && offsetof(AttrSetRecord, flag) == 8 &&
               offsetof(AttrSetRecord, zero) == 9 && offsetof(AttrSetRecord, dataLen) == 10 &&
               offsetof(AttrSetRecord, reserved) == 12));

extern "C" {

// Writes the printable, terminated name of an interface (cut to `size` bytes) and returns `name`. Any ifUnit
// has a name, one that does not exist too.
char* daxIfUnit2Name(uint32_t ifUnit, char* name, uint32_t size);

// Reads attribute `attr` (DAX_IF_ATTR_FLAGS) of an interface into *word.
int32_t daxIfGetApi(uint32_t ifUnit, uint32_t attr, uint32_t* word);

// Reads the member ports of a trunk (DAX_AGG_ATTR_MEMBERS) as 32-bit ifUnits into `members`, whose length
// goes from the capacity to the bytes filled.
int32_t daxEthAggIfGetApi(uint32_t trunk, uint32_t attr, DataDesc* members);

// Fills an 8-word record about an interface (mode DAX_INDEX_LOCATION): words 0, 1 and 6 identify its slot,
// word 5 its kind, word 4 the VLAN id of a VLAN interface.
int32_t daxIndexTrans(uint32_t ifUnit, uint32_t mode, uint32_t* record);

// Reads a hardware attribute of a port (DAX_ATTR_ISO_ABILITY) into *word.
int32_t daxHwilIfGet(uint32_t ifUnit, uint32_t attr, uint32_t* word);

// Runs a command on an interface: DAX_IF_ISOLATE with an AttrSetRecord, DAX_IF_PROTO_ENABLE and
// DAX_IF_PROTO_DISABLE with the address of a u32 protocol id.
int32_t daxIfSyncApi(uint32_t ifUnit, uint32_t opcode, void* record);

// Switches a protocol on or off in a VLAN: DAX_IF_PROTO_ENABLE, DAX_IF_PROTO_DISABLE with the address of its
// id.
int32_t daxVlanSetApi(uint32_t vlan, uint32_t opcode, void* protocolId);

// Sets a platform scalar: the isolation mode, from the u32 at record->data.
int32_t daxScalarSetApi(uint32_t unit, uint32_t index, AttrSetRecord* record);

// Sets a hardware scalar. The daemon names itself as owner of port isolation (DAX_HWSCALAR_PROTO_OWNER).
int32_t daxHwilScalarSet(uint32_t unit, uint32_t scalar, void* value, uint32_t length);

// The value of a hardware scalar itself, no status: non-zero when this board sends
// (DAX_HWSCALAR_SERIAL_SENDER) or applies (DAX_HWSCALAR_SERIAL_RECEIVER) the table of serial numbers.
int32_t daxHwilScalarGet(uint32_t unit, uint32_t scalar, void* value);

// Runs a hardware command keyed by a VLAN id; control->dataLength bytes lie at data->data.
int32_t daxHwilCmdSetApi(uint32_t key, uint32_t command, DataDesc* data, HwCmdControl* control);

// Mirrors a request to the peer control board. `key` is a row's key: 0, a VLAN id, or the address of an index
// record of control->keyLength bytes. `data` is the value cell of the request. 0 when it reached the peer.
int32_t daxHwilCmdSyncApi(uintptr_t key, uint32_t command, void* data, HwCmdControl* control);

// Tells the platform that the daemon has restored its settings on a card; `card` is the card-up message's
// record.
int32_t daxCardUpPcsSet(void* card, uint32_t protocol);
}
