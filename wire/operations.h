// The operations of the command socket: their opcodes, and how each is called.
#pragma once

#include <cstdint>

#include "wire/records.h"

// An opcode is the position of its row in the operation table.
enum PortIsolateOpcode : uint32_t {
    OP_NONE = 0,
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

// What a request of an operation carries and what its reply does. Set sends a value; get offers room for one,
// which the reply fills; get first sends a record of which the match mask counts, get next the key of the row
// before, and both replies carry the key of the row found.
enum class OpKind : uint8_t { none, set, get, first, next };

struct OpShape {
    PortIsolateOpcode opcode;
    OpKind kind;
    uint8_t indexLength;  // bytes; 0: the operation has no index
    bool indexIsNumber;   // the index is a VLAN id, which handlers take by value, else a record
    bool isSync;          // a set that comes from the peer board and is not handed on to it
};

// The shape of an operation whose index is an `Index`: a record, or a u32.
template <typename Index>
constexpr OpShape opShape(PortIsolateOpcode opcode, OpKind kind, bool isSync = false) {
    return {opcode, kind, sizeof(Index), sizeof(Index) == sizeof(uint32_t), isSync};
}

// By opcode.
inline constexpr OpShape PORT_ISOLATE_OP_SHAPES[OP_COUNT] = {
    {OP_NONE, OpKind::none, 0, false, false},
    {OP_SCALAR_SET, OpKind::set, 0, false, false},
    {OP_SCALAR_SYNC, OpKind::set, 0, false, true},
    {OP_SCALAR_GET, OpKind::get, 0, false, false},
    opShape<PortIsolateIfGrpIndex>(OP_GROUP_SET, OpKind::set),
    opShape<PortIsolateIfGrpIndex>(OP_GROUP_SYNC, OpKind::set, true),
    opShape<PortIsolateIfGrpIndex>(OP_GROUP_GET, OpKind::get),
    opShape<PortIsolateIfPairIndex>(OP_PAIR_SET, OpKind::set),
    opShape<PortIsolateIfPairIndex>(OP_PAIR_SYNC, OpKind::set, true),
    opShape<PortIsolateIfPairIndex>(OP_PAIR_GET, OpKind::get),
    opShape<PortIsolateIfGrpIndex>(OP_GROUP_GET_FIRST, OpKind::first),
    opShape<PortIsolateIfGrpIndex>(OP_GROUP_GET_NEXT, OpKind::next),
    opShape<PortIsolateIfPairIndex>(OP_PAIR_GET_FIRST, OpKind::first),
    opShape<PortIsolateIfPairIndex>(OP_PAIR_GET_NEXT, OpKind::next),
    opShape<uint32_t>(OP_VLAN_GET_FIRST, OpKind::first),
    opShape<uint32_t>(OP_VLAN_GET_NEXT, OpKind::next),
    opShape<uint32_t>(OP_VLAN_GET, OpKind::get),
    opShape<uint32_t>(OP_VLAN_SET, OpKind::set),
    opShape<uint32_t>(OP_VLAN_SYNC, OpKind::set, true),
    opShape<PortIsolateIfVlanGrpIndex>(OP_VLAN_GROUP_GET_FIRST, OpKind::first),
    opShape<PortIsolateIfVlanGrpIndex>(OP_VLAN_GROUP_GET_NEXT, OpKind::next),
    opShape<PortIsolateIfVlanGrpIndex>(OP_VLAN_GROUP_GET, OpKind::get),
    opShape<PortIsolateIfVlanGrpIndex>(OP_VLAN_GROUP_SET, OpKind::set),
    opShape<PortIsolateIfVlanGrpIndex>(OP_VLAN_GROUP_SYNC, OpKind::set, true),
};

constexpr bool portIsolateOpIsSync(uint32_t opcode) {
    return opcode < OP_COUNT && PORT_ISOLATE_OP_SHAPES[opcode].isSync;
}

// The operation that carries out the same as a set and is not handed on to the peer board.
constexpr uint32_t portIsolateSyncOf(uint32_t opSet) {
    return opSet + 1;
}

// Whether each row of a table with a field `opcode` stands at the position of its opcode.
template <typename Row>
constexpr bool standsByOpcode(const Row (&rows)[OP_COUNT]) {
    for (uint32_t position = 0; position < OP_COUNT; ++position) {
        if (rows[position].opcode != position) return false;
    }
    return true;
}
static_assert(standsByOpcode(PORT_ISOLATE_OP_SHAPES));

constexpr bool syncFollowsSet() {
    for (const OpShape& shape : PORT_ISOLATE_OP_SHAPES) {
        if (shape.kind != OpKind::set || shape.isSync) continue;
        const OpShape& sync = PORT_ISOLATE_OP_SHAPES[portIsolateSyncOf(shape.opcode)];
        if (!sync.isSync || sync.indexLength != shape.indexLength) return false;
    }
    return true;
}
static_assert(syncFollowsSet());
