// What a change of a row means for the hardware: a member of a group is programmed against every other
// member, and released the same way.
//
// Where the isolation rules are
//
//   who may join a group            rules/admission.h
//   who may be in a one-way pair    rules/admission.h; api/pair_api.cpp asks in order
//   when the protocol is switched   rules/port_use.h
//   a row comes or goes             here: isolated from whom, and what is undone after a refusal
//   the device changes              rules/lifecycle.h: what an event means for rows and hardware
//   which ports an interface means  hw/trunk_expansion.h
//   which pairs are in hardware     hw/bi_isolation.h (counted by group), hw/uni_isolation.h (not)
//
// Pairs of a member
//
// The other members are taken in table order, each as the source, the entry as the target. In one-sided mode,
// with exactly one trunk-to-port switch on, a pair takes two calls, one for each as source, since only one
// side of a call has its trunk replaced. A release of a VLAN group leaves out members of another VLAN; there
// are none, as long as admission keeps a group in one VLAN.
//
// Rollback
//
// When a pair is refused, the walk is done again up to and including the refused member with the opposite
// operation. The walk back includes the entry itself, and the refused member when its first call was the
// refused one. An opposite call that is refused is not followed up.
//
// A lone member
//
// With both switches off the only member of a group is isolated from itself, so that its group holds
// something in the hardware. A second member does not take the self isolation away; the release of a pair may
// (hw/bi_isolation.h).
//
// Thread-safety
//
// The caller holds the semaphore; the entry is linked in its table, and gone when a Del answers 0. Entries of
// the inner table must not be kept across a call.
#pragma once

#include <cstdint>

#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"

// Programs the entry against the group's other members. 0, or the status of the refused pair after the
// rollback. No table is changed, the entry's status neither.
int32_t portIsolateIfGrpEntryValid(PortIsolateIfGrpEntry* entry);
int32_t portIsolateIfVlanGrpEntryValid(PortIsolateIfVlanGrpEntry* entry);

// Releases the entry from the group's other members, whatever its status, and drops it: 0. STATUS_FAILED when
// a release was refused; the entry stays then.
int32_t portIsolateIfGrpEntryDel(PortIsolateIfGrpEntry* entry);
int32_t portIsolateIfVlanGrpEntryDel(PortIsolateIfVlanGrpEntry* entry);

// Programs the one-way isolation of a pair; its status.
int32_t portIsolateIfPairEntryValid(PortIsolateIfPairEntry* entry);

// Releases the one-way isolation of a pair, whatever its status, and drops the entry: 0. A non-zero status of
// the release leaves the entry as it is.
int32_t portIsolateIfPairEntryDel(PortIsolateIfPairEntry* entry);
