// Records and numbers of the management operations, as requests carry them. Plain data without any
// dependency, so that the command server and clients of the command socket share it with the handlers.
//
// An index record addresses a table row by u32 words in the host's byte order. Its last word, the match mask,
// is read by get first and get next only: each bit set makes one field count.
#pragma once

#include <cstddef>
#include <cstdint>

struct PortIsolateIfGrpIndex {
    uint32_t ifUnit;    // mask bit 0x1
    uint32_t isoGrpNo;  // mask bit 0x2
    uint32_t matchMask;
};

struct PortIsolateIfPairIndex {
    uint32_t src;  // mask bit 0x1
    uint32_t dst;  // mask bit 0x2
    uint32_t matchMask;
};

struct PortIsolateIfVlanGrpIndex {
    uint32_t ifUnit;    // mask bit 0x1
    uint32_t isoGrpNo;  // mask bit 0x2
    uint32_t vlan;      // mask bit 0x4
    uint32_t matchMask;
};

static_assert(sizeof(PortIsolateIfGrpIndex) == 12 && offsetof(PortIsolateIfGrpIndex, ifUnit) == 0 &&
              offsetof(PortIsolateIfGrpIndex, isoGrpNo) == 4 &&
              offsetof(PortIsolateIfGrpIndex, matchMask) == 8);
static_assert(sizeof(PortIsolateIfPairIndex) == 12 && offsetof(PortIsolateIfPairIndex, src) == 0 &&
              offsetof(PortIsolateIfPairIndex, dst) == 4 && offsetof(PortIsolateIfPairIndex, matchMask) == 8);
static_assert(sizeof(PortIsolateIfVlanGrpIndex) == 16 && offsetof(PortIsolateIfVlanGrpIndex, ifUnit) == 0 &&
              offsetof(PortIsolateIfVlanGrpIndex, isoGrpNo) == 4 &&
              offsetof(PortIsolateIfVlanGrpIndex, vlan) == 8 &&
              offsetof(PortIsolateIfVlanGrpIndex, matchMask) == 12);

inline constexpr uint32_t MATCH_IF_UNIT = 0x1;  // group and VLAN-group index
inline constexpr uint32_t MATCH_GROUP = 0x2;
inline constexpr uint32_t MATCH_VLAN = 0x4;
inline constexpr uint32_t MATCH_SRC = 0x1;  // pair index
inline constexpr uint32_t MATCH_DST = 0x2;

// Row-status column of each family, and what is written to it.
inline constexpr uint32_t GROUP_COLUMN_ROW_STATUS = 1;  // groups and VLAN groups
inline constexpr uint32_t PAIR_COLUMN_ROW_STATUS = 0;
inline constexpr uint32_t ROW_ACTIVATE = 1;
inline constexpr uint32_t ROW_CREATE = 2;
inline constexpr uint32_t ROW_PROBE = 3;
inline constexpr uint32_t ROW_DESTROY = 4;

// What get answers there, and the `status` of a table entry.
inline constexpr uint32_t STATUS_PROGRAMMED = 1;
inline constexpr uint32_t STATUS_CREATED = 3;

// State of the PON isolation of a VLAN; columns 1 and 2 are the same.
inline constexpr uint32_t PON_ISOLATION_ON = 1;
inline constexpr uint32_t PON_ISOLATION_OFF = 2;

// Scalar ids. The buffer scalars carry bytes, all others one u32.
enum PortIsolateScalar : uint32_t {
    SCALAR_MODE = 1,
    SCALAR_MAX_PORT_NUM = 2,
    SCALAR_MAX_PORT_NUM_PER_GRP = 3,
    SCALAR_MAX_ISO_GRP_NUM = 4,
    SCALAR_MAX_UNI_ISO_PORT_NUM = 5,
    SCALAR_GRP_COUNT = 6,
    SCALAR_GRP_POOL_FREE = 7,
    SCALAR_INNER_COUNT = 8,
    SCALAR_PAIR_COUNT = 9,
    SCALAR_PAIR_POOL_FREE = 10,
    SCALAR_DEBUG_MASK = 11,
    SCALAR_VERSION = 12,       // buffer
    SCALAR_SERIAL_TABLE = 13,  // buffer, set only
    SCALAR_MODE_ABILITY = 14,  // buffer
    SCALAR_DEFAULT_MODE = 15,
    SCALAR_P2P_ENABLE_VLAN = 16,  // buffer
    SCALAR_VLAN_GROUP_ENABLE = 17,
    SCALAR_CAPABILITY = 18,  // buffer
};

constexpr bool portIsolateScalarIsBuffer(uint32_t id) {
    return id == SCALAR_VERSION || id == SCALAR_SERIAL_TABLE || id == SCALAR_MODE_ABILITY ||
           id == SCALAR_P2P_ENABLE_VLAN || id == SCALAR_CAPABILITY;
}

// Opcodes of the operation table.
enum PortIsolateOpcode : uint32_t {
    OP_SCALAR_SET = 1,
    OP_SCALAR_SYNC = 2,
    OP_SCALAR_GET = 3,
    OP_GROUP_SET = 4,
    OP_GROUP_SYNC = 5,
    OP_GROUP_GET = 6,
    OP_PAIR_SET = 7,
    OP_PAIR_SYNC = 8,
    OP_PAIR_GET = 9,
    OP_GROUP_GET_FIRST = 10,
    OP_GROUP_GET_NEXT = 11,
    OP_PAIR_GET_FIRST = 12,
    OP_PAIR_GET_NEXT = 13,
    OP_VLAN_GET_FIRST = 14,
    OP_VLAN_GET_NEXT = 15,
    OP_VLAN_GET = 16,
    OP_VLAN_SET = 17,
    OP_VLAN_SYNC = 18,
    OP_VLAN_GROUP_GET_FIRST = 19,
    OP_VLAN_GROUP_GET_NEXT = 20,
    OP_VLAN_GROUP_GET = 21,
    OP_VLAN_GROUP_SET = 22,
    OP_VLAN_GROUP_SYNC = 23,
};
inline constexpr uint32_t OP_COUNT = 24;  // rows of the table, row 0 without a handler

// How an operation is called: what kind it is and what its index looks like.
enum class OpKind : uint8_t { none, set, get, first, next };
struct OpShape {
    OpKind kind;          // sync has the shape of set
    uint8_t indexLength;  // bytes; 0: the operation has no index
    bool indexIsNumber;   // the index is passed by value
};

inline constexpr OpShape PORT_ISOLATE_OP_SHAPES[OP_COUNT] = {
    {OpKind::none, 0, false},   {OpKind::set, 0, false},   {OpKind::set, 0, false},
    {OpKind::get, 0, false},                                                          // scalar
    {OpKind::set, 12, false},   {OpKind::set, 12, false},  {OpKind::get, 12, false},  // group
    {OpKind::set, 12, false},   {OpKind::set, 12, false},  {OpKind::get, 12, false},  // pair
    {OpKind::first, 12, false}, {OpKind::next, 12, false},                            // group
    {OpKind::first, 12, false}, {OpKind::next, 12, false},                            // pair
    {OpKind::first, 4, true},   {OpKind::next, 4, true},                              // VLAN
    {OpKind::get, 4, true},     {OpKind::set, 4, true},    {OpKind::set, 4, true},    // VLAN
    {OpKind::first, 16, false}, {OpKind::next, 16, false},                            // VLAN group
    {OpKind::get, 16, false},   {OpKind::set, 16, false},  {OpKind::set, 16, false},  // VLAN group
};
