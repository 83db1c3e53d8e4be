// Isolations between interfaces, turned into isolations between ports.
//
// A trunk on either side is replaced by its member ports where the trunk-to-port switches say so, and the
// port-level operation is called once for each resulting pair, source by source:
//
//                  source a trunk                       target a trunk
//   bi-isolation   replaced when isSrcTrunkToPort       replaced when isDstTrunkToPort
//   one-way        replaced when isSrcTrunkToPort       always replaced
//
// A trunk that is not replaced goes to the hardware as it is. One without members makes no pair, which is
// success. All member lists are read before the first call, at most 128 members of each: what the platform
// changes afterwards comes as an event of its own (rules/lifecycle.h). Members are those of the moment, so
// that a release names other ports than the add did when the trunk has changed in between without such an
// event.
//
// Thread-safety
//
// The caller holds the semaphore. Rows of the inner table and serial numbers may come and go under a call.
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
