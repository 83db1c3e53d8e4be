// The daemon's global values as requests carry them: their ids, which take the place of the column, and the
// values that are more than a number. All words are in the host's byte order.
#pragma once

#include <cstdint>

// Scalar ids. The buffer scalars carry bytes, all others one u32. All can be read but SCALAR_SERIAL_TABLE;
// the mode, the debug mask and the serial table can be set.
enum PortIsolateScalar : uint32_t {
    SCALAR_MODE = 1,
    SCALAR_MAX_PORT_NUM = 2,          // interfaces that the tables hold
    SCALAR_MAX_PORT_NUM_PER_GRP = 3,  // members of one group
    SCALAR_MAX_ISO_GRP_NUM = 4,       // groups, numbered from 1
    SCALAR_MAX_UNI_ISO_PORT_NUM = 5,  // one-way pairs of one source
    SCALAR_GRP_COUNT = 6,             // rows of the group table
    SCALAR_GRP_POOL_FREE = 7,         // rows that may still come
    SCALAR_INNER_COUNT = 8,           // pairs of ports that are isolated in the hardware for groups
    SCALAR_PAIR_COUNT = 9,            // rows of the pair table
    SCALAR_PAIR_POOL_FREE = 10,       // rows of the pair and the inner table that may still come
    SCALAR_DEBUG_MASK = 11,           // CATEGORY_ bits
    SCALAR_VERSION = 12,              // buffer: text without an end mark; the capacity includes room for one
    SCALAR_SERIAL_TABLE = 13,         // buffer, set only: the record below
    SCALAR_MODE_ABILITY = 14,         // buffer: 4 bytes, a bit list of the modes that the device offers
    SCALAR_DEFAULT_MODE = 15,
    SCALAR_P2P_ENABLE_VLAN =
        16,  // buffer: a bit list of the VLANs without PON isolation, cut behind the last
    SCALAR_VLAN_GROUP_ENABLE = 17,  // 1: enabled, 2: disabled
    SCALAR_CAPABILITY = 18,         // buffer: the words 1, whatever was there, 2
};

constexpr bool portIsolateScalarIsBuffer(uint32_t id) {
    return id == SCALAR_VERSION || id == SCALAR_SERIAL_TABLE || id == SCALAR_MODE_ABILITY ||
           id == SCALAR_P2P_ENABLE_VLAN || id == SCALAR_CAPABILITY;
}

// Categories of debug texts: bits of SCALAR_DEBUG_MASK.
inline constexpr uint32_t CATEGORY_INIT = 1;
inline constexpr uint32_t CATEGORY_WORK = 2;  // requests, table changes, hardware programming
inline constexpr uint32_t CATEGORY_EVENT = 4;
inline constexpr uint32_t CATEGORY_SERIAL = 8;  // transfer of the serial table to the peer board

// SCALAR_CAPABILITY: three words.
inline constexpr uint32_t CAPABILITY_LENGTH = 12;  // bytes

// SCALAR_SERIAL_TABLE: the kind of the record, a byte 0, then a word for each slot of the table, unaligned. A
// table that does not fit the record is not carried. A record of another kind is ignored.
inline constexpr uint8_t SERIAL_RECORD_KIND = 1;        // byte 0
inline constexpr uint32_t SERIAL_RECORD_SLOTS = 2;      // offset of the slot words, in bytes
inline constexpr uint32_t SERIAL_RECORD_LENGTH = 1500;  // bytes, at most
inline constexpr uint32_t SERIAL_RECORD_SLOTS_MAX =
    (SERIAL_RECORD_LENGTH - SERIAL_RECORD_SLOTS) / sizeof(uint32_t);
static_assert(SERIAL_RECORD_SLOTS_MAX == 374);
