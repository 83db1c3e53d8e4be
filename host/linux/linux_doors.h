// The doors of a Linux plane, as far as they are its own to open: which ports were opened since they came.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/linux/linux_state.h"

// By index and name.
using PresentPorts = std::set<std::pair<uint32_t, std::string>>;

// The functions `setDoors` and `shutDoor` of the plane's record.
int32_t linuxSetDoors(void* state, const std::vector<PlanePort>& ports, bool open, uint64_t& changed);
bool linuxShutDoor(void* state, const PlanePort& port);

// Whether the port has a door that the kernel holds shut.
bool isShut(const LinuxPlane& plane, const PlanePort& port);
// Takes over, before anything is asked for, which doors an earlier run has opened.
void adoptDoors(LinuxPlane& plane);
// Forgets the doors of ports that are gone. Cheap without doors.
void keepDoors(LinuxPlane& plane, const PresentPorts& present);
