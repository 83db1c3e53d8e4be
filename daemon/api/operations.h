// The operation table: which handler serves which opcode of the command socket. The opcode of a row equals
// its position; row 0 has no handler.
//
// A handler gets what the command server unpacked: the index (an index record's address, or a VLAN id by
// value), the column, and the address of the value cell - a u32, or a DataDesc for the buffer scalars. Null
// stands for what was not sent. Records have their nominal sizes, which the server has seen to. A handler
// answers 0, a status of wire/status.h, or the status of a call of the platform, unchanged.
//
// Thread-safety
//
// Handlers that change something are called on the command server's task, one at a time; those that only read
// may be called by any task. All are called without the semaphore. Each takes it after its parameter check
// and gives it back on return, across every platform call; none may be called with it held. The functions of
// api/ whose names begin with an underscore are the workers of set and sync, and take it as well.
#pragma once

#include "platform/services.h"
#include "wire/operations.h"

using PortIsolateFuncMapEntry = IcmFuncMapEntry;

extern "C" const PortIsolateFuncMapEntry gPortisolateFuncMap[OP_COUNT];
