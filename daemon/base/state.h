// The daemon's state record, and the two small families of primitives that every table is built from: bit
// lists and intrusive circular lists. (The third, the order index, is in base/index.h.)
//
// All state lives in the one record gPortIsoInfo: limits, settings, pools, the heads of all tables and their
// indexes, the semaphore and the route socket. The pools' elements, the rows, belong to their tables.
//
// Thread-safety
//
// Initialisation clears and fills the record before any other task exists. From then on two tasks share it,
// the event task and the command server's; the main thread sleeps.
//
// Fixed from then on, and read by anybody: the limits, `defaultMode`, `modeAbility`, the trunk and serial
// switches, `slotCheck`, `vlanGroupEnable`, `multiGroupCheck`, `mutex`, `rtSock` and the address of the
// serial table.
//
// Everything else - the tables with their indexes and pools, the serial table's slots, `mode`,
// `p2pEnableVlan` and its length - is read and changed with `mutex` held: by the event task for a whole
// datagram, by a request handler from its parameter check to its return. Table, rule and hardware operations
// never take the semaphore themselves; their callers hold it, across every call of the platform.
//
// Two exceptions: `debugMask` is read at any time, as one atomic word (base/report.h), and the printouts
// (show/show.h) read everything without the semaphore and take what they find.
#pragma once

#include <cstdint>

#include "daemon/base/index.h"
#include "platform/services.h"
#include "wire/records.h"

// Bit list: bit n lies in byte n / 8 under mask 0x80 >> (n mod 8). Callers keep n within the list, and hold
// what guards it.
void bitListSet(uint8_t* list, uint32_t n);
void bitListClear(uint8_t* list, uint32_t n);
int32_t bitListTest(const uint8_t* list, uint32_t n);  // 1: set, 0: clear
// Bits at `bits` and beyond are never looked at by these two.
int32_t bitListIsEmpty(const uint8_t* list, uint32_t bits);  // 1: no bit is set, 0: one is
uint32_t bitListLast(const uint8_t* list,
                     uint32_t bits);  // number of the highest bit set + 1, 0 when none is
// Bytes of a list of at least one bit.
constexpr uint32_t bitListBytes(uint32_t bits) {
    return (bits - 1) / 8 + 1;
}

// Node of a circular list; the first field of every table entry, so that an entry is its own node. An empty
// head points to itself both ways.
struct ListNode {
    ListNode* next;
    ListNode* prev;
};

inline void listInit(ListNode* head) {
    head->next = head;
    head->prev = head;
}
inline void listAdd(ListNode* node, ListNode* after) {
    node->next = after->next;
    node->prev = after;
    after->next->prev = node;
    after->next = node;
}
// Leaves the node's own pointers as they were; a node that was never linked (all zero) changes nothing.
inline void listDel(ListNode* node) {
    if (node->next != nullptr) node->next->prev = node->prev;
    if (node->prev != nullptr) node->prev->next = node->next;
}
inline void listMove(ListNode* node, ListNode* after) {
    listDel(node);
    listAdd(node, after);
}
inline bool listIsEmpty(const ListNode* head) {
    return head->next == head;
}

// Walks: the entry at a node, null when the walk is back at the head. A walk that may remove the entry at
// hand takes the next one first.
template <typename Entry>
Entry* listFirst(ListNode* head) {
    return head->next == head ? nullptr : reinterpret_cast<Entry*>(head->next);
}
template <typename Entry>
Entry* listNext(ListNode* head, Entry* entry) {
    return entry->links.next == head ? nullptr : reinterpret_cast<Entry*>(entry->links.next);
}

// A slot of the serial table: slot i holds the ifUnit that owns serial number i + 1, 0 when it is free.
using PortIsolateSerialTable = uint32_t;

inline constexpr uint32_t VLAN_COUNT = VLAN_ID_MAX + 1;  // bits of a list with one for each VLAN id

// Heads of the indexes of one table, which find its rows beside its list.
struct TableIndex {
    IndexNode byKey;
    IndexNode byUnit;
};

struct PortIsoInfo {
    uint32_t maxPortNum;                  // slots of the serial table; interfaces that the tables hold
    uint32_t maxIsoGrpNum;                // isolation groups; bits of a reference list
    uint32_t maxPortNumPerGrp;            // members of one group
    uint32_t maxUniIsoPortNum;            // one-way pairs of one source interface
    uint32_t mode;                        // current isolation mode
    PortIsolateSerialTable* serialTable;  // maxPortNum words, the array of ifSerialPool
    SilMemPool ifSerialPool;
    SilMemPool ifGrpPool;   // of PortIsolateIfGrpEntry
    SilMemPool ifPairPool;  // of PortIsolateIfPairEntry, which inner entries are too
    SilMemPool portPool;    // of PortIsolatePortEntry
    SilMemPool refPool;     // of reference lists, one to each pair or inner entry
    SilMemPool ifVlanGrpPool;
    ListNode ifGrpList;
    ListNode ifPairList;
    ListNode ifInnerList;
    ListNode portList;
    ListNode ifVlanGrpList;
    SilSem mutex;                   // 0: none
    int32_t rtSock;                 // -1: none
    uint32_t isSrcTrunkToPort : 1;  // a trunk as source is replaced by its member ports
    uint32_t isDstTrunkToPort : 1;  // the same for the target
    uint32_t isSupportSerial : 1;   // ports get serial numbers
    uint32_t defaultMode;
    uint8_t modeAbility[4];                 // bit m: the device offers mode m
    uint32_t debugMask;                     // categories of debug texts that are written
    uint8_t p2pEnableVlan[VLAN_COUNT / 8];  // bit v: PON isolation is off in VLAN v
    uint32_t p2pEnableVlanLen;              // bytes up to and including the highest bit set
    uint8_t slotCheck;                      // non-zero: members of a group are of one slot
    uint8_t vlanGroupEnable;                // 1 enabled, 2 disabled; reported, gates nothing
    uint8_t multiGroupCheck;                // 1: an interface joins one group only; 2: several

    // Up to here the order of the fields is fixed.
    TableIndex ifGrpIndex;
    TableIndex ifPairIndex;
    TableIndex ifInnerIndex;
    TableIndex portIndex;  // byUnit alone
    TableIndex ifVlanGrpIndex;
};

extern "C" PortIsoInfo gPortIsoInfo;

// Whether exactly one of the trunk-to-port switches is on.
inline bool oneSidedMode() {
    return gPortIsoInfo.isSrcTrunkToPort != gPortIsoInfo.isDstTrunkToPort;
}

// To be called, with the semaphore held, after a change of p2pEnableVlan.
void portIsolateP2pVlanLenUpdate();
