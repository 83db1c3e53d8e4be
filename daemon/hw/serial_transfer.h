// The table of serial numbers between the two control boards: sent whole by the board that is the sender,
// taken whole by the one that is the receiver, whether or not serial numbers are in use. The caller holds the
// semaphore.
#pragma once

#include <cstdint>

#include "platform/hardware.h"

// Sends the table to the peer board if this board is the sender: 0 when it is not, else the status of the
// call; STATUS_FAILED when the table does not fit its record.
int32_t portIsolateSerialInfoSyncSend();
// Overwrites the table from a record received if this board is the receiver. `record` describes at least as
// many bytes as the table's record has. Returns 0.
int32_t portIsolateSerialInfoSyncParse(const DataDesc* record);
