// What happens to the tables and the hardware when the device changes: interfaces register and go away,
// trunks gain and lose member ports, VLANs are deleted, cards come up, configuration is reset.
//
// The handlers run on the event task, once for each message, with the semaphore held. Entries are always
// removed together with their hardware; one whose release is refused stays in its table, and the handler goes
// on.
#pragma once

#include <cstdint>

// Link messages. `message` is the message's start, `bytes` runs from the end of its header to the end of the
// datagram. Messages too short are dropped.
void portIsolateAddLinkProcess(const uint8_t* message, int32_t bytes);
int32_t portIsolateDelLinkProcess(const uint8_t* message, int32_t bytes);

int32_t portIsolateIfResetConfig(uint32_t ifUnit);
void portIsolateResetConfig();
void portIsolateCardUpProcess();
