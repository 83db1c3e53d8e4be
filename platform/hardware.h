// The platform's interface and hardware layer: everything the daemon asks of interfaces, trunks, VLANs, the
// forwarding hardware and the peer control board. Declarations only; a board's libraries (or host/) define
// them.
//
// Interfaces are named by `ifUnit`, a 32-bit number of a port, a trunk or a VLAN interface. Records and
// blocks are in the host's byte order.
//
// Statuses
//
// Unless said otherwise a call returns 0 for success and a platform status otherwise, which the daemon passes
// on unchanged. A call that fails leaves alone what it would have filled: the daemon may go on with what it
// preset.
//
// Thread-safety
//
// Every call may block and is safe to call from any task. The daemon makes them with its one semaphore held,
// those of its start excepted: no call may lead back into the daemon or wait for it. What an argument points
// to belongs to the caller again when the call returns.
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

// What DAX_ATTR_ISO_ABILITY says of a port: how its hardware isolates, and what that forbids. A port with any
// other value keeps the order of its pairs and is forbidden nothing.
enum DaxIsoAbility : uint32_t {
    // The isolation of (A, B) is that of (B, A): it is kept once, with the lower ifUnit first, and its
    // release takes a self isolation of one of the two with it. A port whose ability was not read counts as
    // this.
    DAX_ABILITY_SYMMETRIC = 1,
    // A pair keeps its order, and its release finds it in the reverse order too. The port joins one group
    // of a kind only; it is no target of a one-way pair in mode DAX_ISO_MODE_NO_RESTRICTED_TARGET; and
    // where it is the port that is asked, the mode does not change while tables hold rows.
    DAX_ABILITY_RESTRICTED = 2,
};

// The one isolation mode that forbids something; all others are the platform's matter alone.
inline constexpr uint32_t DAX_ISO_MODE_NO_RESTRICTED_TARGET = 1;

// The location record of daxIndexTrans: eight words, of which these have a meaning here. The first three
// identify the slot of an interface.
inline constexpr uint32_t DAX_LOCATION_WORDS = 8;
inline constexpr uint32_t DAX_LOCATION_CHASSIS = 0;
inline constexpr uint32_t DAX_LOCATION_SLOT = 1;
inline constexpr uint32_t DAX_LOCATION_SUBSLOT = 6;
inline constexpr uint32_t DAX_LOCATION_VLAN = 4;  // id of a VLAN interface
inline constexpr uint32_t DAX_LOCATION_KIND = 5;
inline constexpr uint32_t DAX_LOCATION_KIND_VLAN = 3;  // value of word DAX_LOCATION_KIND

// Describes a block of bytes; owns nothing.
struct DataDesc {
    void* data;
    uint32_t length;  // bytes
};

// One attribute to be set on an interface or as a scalar.
struct AttrSetRecord {
    uint32_t attrId;
    void* data;
    uint8_t flag;  // of an isolation: 1 when both trunk-to-port switches are on; of the mode: 1
    uint8_t zero;
    uint16_t dataLen;  // bytes at `data`; 0 for the mode, which is a u32
    uint8_t reserved[8];
};

// Control block of hardware commands and mirror requests; words not named are 0.
struct HwCmdControl {
    uint32_t flags;      // DAX_PON_ISOLATE_FLAGS, or DAX_MIRROR_ flags
    uint32_t keyLength;  // bytes
    uint32_t reserved1[2];
    uint32_t dataLength;  // bytes
    uint32_t reserved2[11];
};

// Data of an isolation command between two ports; the first port is the interface that the command is sent
// to. A one-way isolation without serial numbers carries the u32 `dstIfUnit` alone.
struct IsolateCmdData {
    uint32_t dstIfUnit;  // the second port
    uint16_t srcSerial;  // serial number (slot + 1), 0 when serial numbers are not in use
    uint16_t dstSerial;
    uint16_t reserved1;
    uint16_t vid;    // 0: all traffic
    uint32_t grpNo;  // group that asked first; 0: one-way
    uint8_t reserved2;
    uint8_t op;  // ISOLATE_OP_ADD, ISOLATE_OP_DEL, which attrId says as well
    uint8_t reserved3[6];
};

inline constexpr uint8_t ISOLATE_OP_ADD = 1;
inline constexpr uint8_t ISOLATE_OP_DEL = 2;

// Data of DAX_CMD_PON_ISOLATE, whose key is a VLAN id.
struct PonIsolateCmdData {
    uint8_t value[4];  // of no meaning to the hardware
    uint8_t state;     // PON_ISOLATION_ON, PON_ISOLATION_OFF
};

inline constexpr uint32_t DAX_PON_ISOLATE_FLAGS = 0x90000000;  // HwCmdControl.flags

static_assert(sizeof(PonIsolateCmdData) == 5 && offsetof(PonIsolateCmdData, state) == 4);
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

// Reads the member ports of a trunk (DAX_AGG_ATTR_MEMBERS) as 32-bit ifUnits into `members`, whose length in
// bytes goes from the capacity to what is filled.
int32_t daxEthAggIfGetApi(uint32_t trunk, uint32_t attr, DataDesc* members);

// Fills a record of DAX_LOCATION_WORDS words about where an interface is and what it is (mode
// DAX_INDEX_LOCATION).
int32_t daxIndexTrans(uint32_t ifUnit, uint32_t mode, uint32_t* record);

// Reads a hardware attribute of a port (DAX_ATTR_ISO_ABILITY) into *word.
int32_t daxHwilIfGet(uint32_t ifUnit, uint32_t attr, uint32_t* word);

// Runs a command on an interface: DAX_IF_ISOLATE with an AttrSetRecord whose data is an IsolateCmdData,
// DAX_IF_PROTO_ENABLE and DAX_IF_PROTO_DISABLE with the address of a u32 protocol id.
int32_t daxIfSyncApi(uint32_t ifUnit, uint32_t opcode, void* record);

// Switches a protocol on or off in a VLAN (an id, 1 to 4095): DAX_IF_PROTO_ENABLE, DAX_IF_PROTO_DISABLE with
// the address of its u32 id.
int32_t daxVlanSetApi(uint32_t vlan, uint32_t opcode, void* protocolId);

// Sets a platform scalar (unit 0, index 0): the isolation mode, from the u32 at record->data.
int32_t daxScalarSetApi(uint32_t unit, uint32_t index, AttrSetRecord* record);

// Sets a hardware scalar of unit 0. The daemon names itself as owner of port isolation
// (DAX_HWSCALAR_PROTO_OWNER, with the address of its u32 protocol id and length 0) and does not look at the
// status.
int32_t daxHwilScalarSet(uint32_t unit, uint32_t scalar, void* value, uint32_t length);

// The value of a hardware scalar of unit 0 itself, no status: non-zero when this board sends
// (DAX_HWSCALAR_SERIAL_SENDER) or applies (DAX_HWSCALAR_SERIAL_RECEIVER) the table of serial numbers. `value`
// is null.
int32_t daxHwilScalarGet(uint32_t unit, uint32_t scalar, void* value);

// Runs a hardware command keyed by a VLAN id; control->dataLength bytes lie at data->data.
int32_t daxHwilCmdSetApi(uint32_t key, uint32_t command, DataDesc* data, HwCmdControl* control);

// Mirrors a request to the peer control board, with a command of platform/mirror.h. `key` is a row's key: 0,
// a VLAN id, or the address of an index record of control->keyLength bytes. `data` is the value cell of the
// request: a u32, or a DataDesc for a buffer. 0 when it reached the peer, which says nothing of what becomes
// of it there, or when there is no peer.
int32_t daxHwilCmdSyncApi(uintptr_t key, uint32_t command, void* data, HwCmdControl* control);

// Tells the platform that the daemon has restored its settings on a card; `card` is the RtCardInfo of the
// card-up message. The daemon does not look at the status.
int32_t daxCardUpPcsSet(void* card, uint32_t protocol);
}
