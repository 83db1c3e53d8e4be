// Who asked for what: every request for the monitor, and one line in the log for each that sets something.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/sockets/command_client.h"

// The frame is what follows its length word, `status` that of its reply. To be called before the reply goes
// out: the client is still there then, to be looked at.
void reportRequest(CommandClient& client, const uint8_t* frame, size_t length, int32_t status);
