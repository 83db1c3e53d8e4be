// The daemon's state record, and the two small families of primitives that every table is built from: bit
// lists and intrusive circular lists.
//
// All state lives in the one record gPortIsoInfo. Initialisation clears and fills it before any task runs;
// from then on whoever reads or changes a table, the serial table or a field that changes at run time holds
// `mutex` (the event task for a whole datagram, a request handler from its parameter check to its return).
// Table and hardware operations never take the semaphore themselves: their callers hold it.
#pragma once

#include <cstdint>

#include "platform/services.h"

// Bit list: bit n lies in byte n / 8 under mask 0x80 >> (n mod 8). Callers keep n within the list.
void bitListSet(uint8_t* list, uint32_t n);
void bitListClear(uint8_t* list, uint32_t n);
int32_t bitListTest(const uint8_t* list, uint32_t n);
// Bits at `bits` and beyond are never looked at by these two.
int32_t bitListIsEmpty(const uint8_t* list, uint32_t bits);
uint32_t bitListLast(const uint8_t* list,
                     uint32_t bits);  // number of the highest bit set + 1, 0 when none is
constexpr uint32_t bitListBytes(uint32_t bits) {
    return (bits - 1) / 8 + 1;
}

// Node of a circular list; the first field of every table entry. An empty head points to itself both ways.
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

// Slot i holds the ifUnit that owns serial number i + 1, 0 when the slot is free.
using PortIsolateSerialTable = uint32_t;

inline constexpr uint32_t VLAN_COUNT = 4096;  // VLAN ids 0 to 4095

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
    uint8_t modeAbility[4];  // bit m: the device offers mode m
    uint32_t debugMask;      // categories of debug texts that are written; read without `mutex`
    uint8_t p2pEnableVlan[VLAN_COUNT / 8];  // bit v: PON isolation is off in VLAN v
    uint32_t p2pEnableVlanLen;              // bytes up to and including the highest bit set
    uint8_t slotCheck;                      // non-zero: members of a group are of one slot
    uint8_t vlanGroupEnable;                // 1 enabled, 2 disabled; reported, gates nothing
    uint8_t multiGroupCheck;                // 1: an interface joins one group only; 2: several
};

extern "C" PortIsoInfo gPortIsoInfo;

// To be called by whoever changed p2pEnableVlan.
void portIsolateP2pVlanLenUpdate();
