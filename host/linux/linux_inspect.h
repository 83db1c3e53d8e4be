// Describes a Linux plane: to the operator who asks, and in the reports of its start.
#pragma once

#include <cstdint>
#include <string>

#include "host/linux/linux_state.h"

// The functions `forwards`, `list`, `counters` and `inspect` of its Plane record. Whether traffic passes is
// answered from what the kernel holds, so left-over elements count and missing ones do not; a plane that is
// not in force lets everything pass.
bool linuxForwards(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid,
                   std::string& reason);
void linuxList(void* state, std::string& text);
void linuxListWithinVlans(void* state, std::string& text);
PlaneCounters linuxCounters(void* state);
void linuxInspect(void* state, std::string& text);

// Why a plane could not be started, as a sentence.
std::string linuxFailure(LinuxPlane& plane);
// Reports what is left over from an earlier run, and notes what this kernel cannot do. To be called once the
// plane has started.
void reportStart(LinuxPlane& plane);
