// The isolation commands of the hardware layer, taken apart, checked and handed to the board's forwarding
// plane. The board's lock is held. Both return the plane's status, or one of the stand-in's own for a command
// or a data block that is not what the platform defines.
#pragma once

#include <cstdint>

#include "host/board/board.h"
#include "platform/hardware.h"

// DAX_IF_ISOLATE, sent to the interface `src`; `record` may be null. A one-way command may carry the number
// of the other interface alone.
int32_t isolate(Board& board, const Interface& src, const AttrSetRecord* record);

// DAX_CMD_PON_ISOLATE of the VLAN `vid`, for all cards that are in their slots; `data` may be null.
int32_t setPonIsolation(Board& board, uint32_t vid, const DataDesc* data);
