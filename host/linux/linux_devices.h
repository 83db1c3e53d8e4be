// The kernel's devices of the interfaces that are part of what a Linux plane was asked for. What belongs to
// an interface moves when its device gets another name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/linux/linux_state.h"

// Adds the elements of `now` and takes away those of `before`. 0, or the kernel's refusal.
int32_t exchange(LinuxPlane& plane, const std::vector<FilterElement>& now,
                 const std::vector<FilterElement>& before);
std::vector<FilterElement> entryElements(const LinuxPlane& plane, bool twoWay, PortPair pair,
                                         const PlaneIsolation& isolation);

// The device of an interface that is, or may be, part of entries. What belongs to it moves, in one
// transaction, and nothing else.
int32_t setDevice(LinuxPlane& plane, uint32_t ifUnit, const std::string& device);
// So many more entries of a device that is known, or of both of a pair. One without entries is forgotten.
void useDevice(LinuxPlane& plane, uint32_t ifUnit, int32_t more);
void countEntry(LinuxPlane& plane, PortPair pair, int32_t more);
