// The rules that turn a change of a table into hardware work: a member of a group is programmed against every
// other member, pair by pair, and released the same way; each operation undoes its own work when a pair is
// refused part-way. The caller holds the semaphore; the entry is linked in its table.
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
