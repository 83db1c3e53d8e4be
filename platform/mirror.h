// Mirror requests to the peer control board, as both sides of daxHwilCmdSyncApi know them: which command a
// request becomes, and what the flags of its control block say.
//
// A family of operations has a range of commands, of which the request's column, or scalar id, picks one. The
// peer carries it out as the sync operation of the same family, index, column and value.
#pragma once

#include <cstdint>

// Command of column 0 of each family; the column is added. Key of the call: 0; the address of the index
// record; the same; the VLAN id; the address of the index record.
inline constexpr uint32_t DAX_MIRROR_SCALAR = 0x0000C000;
inline constexpr uint32_t DAX_MIRROR_GROUP = 0x08FA0000;
inline constexpr uint32_t DAX_MIRROR_PAIR = 0x08CC4000;
inline constexpr uint32_t DAX_MIRROR_VLAN = 0x075F4000;
inline constexpr uint32_t DAX_MIRROR_VLAN_GROUP = 0x0AE14000;
inline constexpr uint32_t DAX_MIRROR_COLUMNS = 0x1000;  // commands of a family

// HwCmdControl.flags. A request that came from the peer itself is mirrored without the one bit that has it
// handed on.
inline constexpr uint32_t DAX_MIRROR_TO_PEER = 0x2;
inline constexpr uint32_t DAX_MIRROR_FLAGS_SET = 0x1 | DAX_MIRROR_TO_PEER;
inline constexpr uint32_t DAX_MIRROR_FLAGS_SYNC = 0x1;
inline constexpr uint32_t DAX_MIRROR_FLAG_VLAN = 0x10000000;  // added where the key is a VLAN id
inline constexpr uint32_t DAX_MIRROR_FLAGS_SERIALS = 0x80000101 | DAX_MIRROR_TO_PEER;

// HwCmdControl.dataLength of a value that is one word.
inline constexpr uint32_t DAX_MIRROR_WORD_LENGTH = 4;
