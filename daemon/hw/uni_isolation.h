// One-way isolation of a source port from a target port. Nothing is counted: every call sends a command, also
// one that repeats what stands in the hardware. A release looks the serial numbers up without seeing whether
// there are any: a port that has none goes to the hardware as serial number 1.
//
// The caller holds the semaphore.
#pragma once

#include <cstdint>

// STATUS_FAILED when serial numbers ran out, with nothing sent; otherwise 0, also when the command was
// refused (which is logged; slots claimed for it stay claimed).
int32_t portIsolateAddHwPhyUniIsolate(uint32_t src, uint32_t dst);
int32_t portIsolateDelHwPhyUniIsolate(uint32_t src, uint32_t dst);  // 0
