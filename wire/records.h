// Rows as requests carry them: the records that address them, their columns and the values of these. Plain
// data without any dependency, shared by the handlers, the command server and the clients of the command
// socket.
//
// All words are u32 in the host's byte order. An index record addresses one row. Its last word, the match
// mask, is read by get first and get next only: each bit set makes one field count, and 0 matches every row.
// An interface is an `ifUnit`, the platform's number of a port, a trunk or a VLAN interface.
#pragma once

#include <cstddef>
#include <cstdint>

// Membership of an interface in an isolation group.
struct PortIsolateIfGrpIndex {
    uint32_t ifUnit;    // MATCH_IF_UNIT
    uint32_t isoGrpNo;  // MATCH_GROUP; 1 to the number of groups
    uint32_t matchMask;
};

// One-way pair: traffic from `src` does not reach `dst`.
struct PortIsolateIfPairIndex {
    uint32_t src;  // MATCH_SRC
    uint32_t dst;  // MATCH_DST
    uint32_t matchMask;
};

// Membership of an interface in an isolation group of one VLAN.
struct PortIsolateIfVlanGrpIndex {
    uint32_t ifUnit;    // MATCH_IF_UNIT
    uint32_t isoGrpNo;  // MATCH_GROUP; 1 to the number of groups
    uint32_t vlan;      // MATCH_VLAN; 1 to VLAN_ID_MAX
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

inline constexpr uint32_t VLAN_ID_MAX = 4095;  // ids begin with 1

// Row-status column of each family, and what is written to it.
inline constexpr uint32_t GROUP_COLUMN_ROW_STATUS = 1;  // groups and VLAN groups
inline constexpr uint32_t PAIR_COLUMN_ROW_STATUS = 0;
inline constexpr uint32_t ROW_ACTIVATE = 1;  // bring the row into force in the hardware
inline constexpr uint32_t ROW_CREATE = 2;    // enter the row, without effect in the hardware
inline constexpr uint32_t ROW_PROBE = 3;     // whether the row is there; a pair always is
inline constexpr uint32_t ROW_DESTROY = 4;   // release the hardware and remove the row

// What get answers there, and the `status` of a table entry.
inline constexpr uint32_t ROW_STATE_PROGRAMMED = 1;
inline constexpr uint32_t ROW_STATE_CREATED = 3;

// PON isolation of a VLAN: the columns, which are the same but for the command that mirrors them, and the
// state they hold, which is also what the hardware command carries.
inline constexpr uint32_t PON_COLUMN_STATE = 1;
inline constexpr uint32_t PON_COLUMN_STATE_ALIAS = 2;
inline constexpr uint32_t PON_ISOLATION_ON = 1;
inline constexpr uint32_t PON_ISOLATION_OFF = 2;
