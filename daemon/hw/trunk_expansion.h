// Isolations between interfaces, turned into isolations between ports: a trunk on either side is replaced by
// its member ports where the trunk-to-port switches say so, and the port-level operation is called once for
// each resulting pair, source by source. All member lists are read before the first call. The caller holds
// the semaphore.
#pragma once

#include <cstdint>

// Non-zero when the interface is a trunk; 0 also when the platform cannot tell (which is reported).
uint32_t portIsAG(uint32_t ifUnit);

// For groups. 0 or the first non-zero status met, where the walk stopped; pairs before it stay programmed.
int32_t portIsolateAddHwIfBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst);
int32_t portIsolateDelHwIfBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst);

// For one-way pairs, whose target trunk is always replaced. 0, or the status of a failed read of members;
// every pair of ports is tried, whatever becomes of the others.
int32_t portIsolateAddHwIfUniIsolate(uint32_t src, uint32_t dst);
int32_t portIsolateDelHwIfUniIsolate(uint32_t src, uint32_t dst);
