// Who may join: the checks on a new membership of an isolation group and on a new one-way pair, against the
// platform and the rows that are there. Nothing is changed by asking.
//
// A request is answered with the first refusal, so that the order of the checks is part of what a client
// sees. For memberships the order is here; for pairs it is in api/pair_api.cpp, where the status of an
// ability read runs through it.
//
// The caller holds the semaphore.
#pragma once

#include <cstdint>

// A membership asked for; vlan is 0 for a plain group.
struct Membership {
    uint32_t ifUnit;
    uint32_t isoGrpNo;
    uint32_t vlan;
};

// Non-zero when the interface is a member port of a trunk; 0 also when the platform cannot tell.
uint32_t portInAG(uint32_t ifUnit);

// 0 when the interface is of the same slot as every member of the (plain) group; STATUS_OTHER_SLOT;
// STATUS_FAILED when one of them cannot be located.
int32_t portIsolateSlotCheck(uint32_t ifUnit, uint32_t isoGrpNo);

// 0, or STATUS_OTHER_GROUP when the interface is already in another (plain) group.
int32_t portIsolateMultiGroupCheck(uint32_t ifUnit, uint32_t isoGrpNo);

// Whether such a membership can be at all: numbers in their ranges, and no member port of a trunk.
bool memberIsPossible(const Membership& member, bool needsVlan);

// 0 when a new row of this table may be added, or the first of these refusals: the slot (slotCheck); for
// plain groups, another group (multiGroupCheck); what the table's rows say, in table order - a group of
// another VLAN, a one-way pair with a member, another group of an interface whose hardware allows one -; the
// number used by the other table; a full group.
template <typename Entry>
int32_t memberAdmit(const Membership& member);

// Whether such a pair can be at all: two interfaces, and no member port of a trunk.
bool pairIsPossible(uint32_t src, uint32_t dst);
// Whether the source has all pairs that it may have.
bool pairSourceIsFull(uint32_t src);
// Whether a (plain) group isolates the two from one another already.
bool inOneGroup(uint32_t a, uint32_t b);
