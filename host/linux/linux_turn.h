// Commands of one turn of the daemon, in as few transactions as there can be.
//
// The first that the kernel has to hear of is a transaction of its own: what cannot be done at all is refused
// with the kernel's status. Behind it elements gather, and go to the kernel together when the turn ends, when
// they are many, or before somebody else looks. Should it refuse them then, each is tried by itself; what is
// refused again stays asked for, or held, and is reported: it is missing, or left over.
#pragma once

#include "host/linux/linux_state.h"

void beginTurn(LinuxPlane& plane);
void closeTurn(LinuxPlane& plane);
// Makes the change, or gathers it.
int32_t commitInTurn(LinuxPlane& plane, const FilterChange& change);
// Puts in force what has gathered.
void flushTurn(LinuxPlane& plane);
