// The operation table: which handler serves which opcode of the command socket. The opcode of a row equals
// its position; row 0 has no handler.
//
// A handler gets what the command server unpacked: the index (an index record's address, or a VLAN id by
// value), the column, and the address of the value cell - a u32, or a DataDesc for the buffer scalars. Null
// stands for what was not sent. It answers a status. Every handler takes the semaphore after its parameter
// check and gives it back on return, across every platform call; none is called with it held.
#pragma once

#include "platform/services.h"
#include "wire/records.h"

using PortIsolateFuncMapEntry = IcmFuncMapEntry;

extern "C" const PortIsolateFuncMapEntry gPortisolateFuncMap[OP_COUNT];
