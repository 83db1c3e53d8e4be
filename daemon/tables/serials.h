// Serial numbers of ports: the hardware knows a port of an isolation by a small number as well as by its
// ifUnit. The table holds the owner of each slot; the serial number is the slot + 1. The lowest free slot is
// always given out, and a port's slots are freed once nothing refers to it any more. The whole table is
// mirrored to the peer board on demand, whether or not serial numbers are in use. The caller holds the
// semaphore.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "platform/hardware.h"

// Writes the lowest slot that `ifUnit` (not 0) owns; STATUS_FAILED, with *slot untouched, when it owns none.
int32_t portIsolateSerialCheck(uint32_t ifUnit, uint16_t* slot);
// Writes the lowest free slot, without claiming it; STATUS_FAILED when all are taken.
int32_t portIsolateFreeSerialGet(uint16_t* slot);
// 0 when no group, pair or inner entry refers to the interface, else STATUS_FAILED. VLAN groups do not count.
int32_t portIsolateIfIsFree(uint32_t ifUnit);
// Frees every slot of the interface. STATUS_FAILED for interface 0, with nothing done.
int32_t portIsolateSerialFree(uint32_t ifUnit);

// Sends the table to the peer board if this board is the sender: 0 when it is not, else the status of the
// call; STATUS_FAILED when the table does not fit its record.
int32_t portIsolateSerialInfoSyncSend();
// Overwrites the table from a record received if this board is the receiver. `record` describes at least as
// many bytes as the table's record has. Returns 0.
int32_t portIsolateSerialInfoSyncParse(const DataDesc* record);

// Serial numbers of the two ports of an isolation, and which slots were claimed for it just now.
struct SerialPair {
    uint16_t src;
    uint16_t dst;
    bool srcClaimed;
    bool dstClaimed;
};

// Gives both ports a serial number, claiming slots where they have none. STATUS_FAILED when slots run out;
// what this call claimed is free again then.
int32_t serialPairClaim(uint32_t src, uint32_t dst, SerialPair* serials);
// The serial numbers that two ports have; 1 for a port without.
SerialPair serialPairGet(uint32_t src, uint32_t dst);
// Frees the slots of the ports that nothing refers to any more.
void serialPairRelease(uint32_t src, uint32_t dst);
