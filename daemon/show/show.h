// Printouts of all settings and tables, to standard output, for an operator or a developer on the device.
// They are exported under their names, to be run from outside on demand, and read the state without the
// semaphore: a table may change under a running printout.
#pragma once

#include <cstdint>

extern "C" {
void portIsolateGlobalShow();
void portIsolateSerialShow();
void portIsolateGrpShow();
void portIsolateIfPairShow();
void portIsolateIfInnerShow();
void portIsolatePortShow();

// Writes the set bits from position `start` on of a list of `bytes` bytes as numbers and ranges ("1-3,5"),
// and stops in front of a new run once more than `limit` characters stand in `output`, which holds `limit`
// and one more run. Returns the position where it stopped, bytes * 8 at the end. The output is terminated.
uint32_t portIsolatebitList2Str(const uint8_t* list, uint32_t bytes, char* output, uint32_t limit,
                                uint32_t start);
}
