// Serial numbers of ports: the hardware knows a port of an isolation by a small number as well as by its
// ifUnit. The table holds the owner of each slot; the serial number is the slot + 1.
//
// A slot's life
//
// A port gets the lowest free slot when an isolation of it is first sent with serial numbers, and keeps it
// while a group, a pair or an inner entry refers to it. Nothing counts references: an operation that takes
// something away asks portIsolateIfIsFree afterwards and frees the slots. An interface that goes away loses
// them at once. What refers to a port is looked up in tables/groups.h and tables/pairs.h, which is why this
// stands on the same floor.
//
// Why it is scanned
//
// The table may be overwritten as a whole by that of the peer board (hw/serial_transfer.h), after which a
// port may own several slots or one that no table accounts for. The lowest slot wins then, and freeing a port
// frees all of them; an index would have to be rebuilt each time.
//
// Thread-safety
//
// The caller holds the semaphore. A slot that is found free is not claimed by that.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"

// Writes the lowest slot that `ifUnit` (not 0) owns; STATUS_FAILED, with *slot untouched, when it owns none.
int32_t portIsolateSerialCheck(uint32_t ifUnit, uint16_t* slot);
// Writes the lowest free slot, without claiming it; STATUS_FAILED when all are taken.
int32_t portIsolateFreeSerialGet(uint16_t* slot);
// 0 when no group, pair or inner entry refers to the interface, else STATUS_FAILED. VLAN groups do not count.
int32_t portIsolateIfIsFree(uint32_t ifUnit);
// Frees every slot of the interface. STATUS_FAILED for interface 0, with nothing done.
int32_t portIsolateSerialFree(uint32_t ifUnit);

// Serial numbers of the two ports of an isolation, and which slots were claimed for it just now.
struct SerialPair {
    uint16_t src;
    uint16_t dst;
    bool srcClaimed;
    bool dstClaimed;
};

// Gives both ports a serial number, claiming slots where they have none: 0. STATUS_FAILED when slots run out;
// what this call claimed is free again then.
int32_t serialPairClaim(uint32_t src, uint32_t dst, SerialPair* serials);
// The serial numbers that two ports have; 1 for a port without.
SerialPair serialPairGet(uint32_t src, uint32_t dst);
// Frees the slots of the ports that nothing refers to any more.
void serialPairRelease(uint32_t src, uint32_t dst);
